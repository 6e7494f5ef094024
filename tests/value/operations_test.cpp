// Goal: unpacking, membership, the turned sign, the number to reckon with, the written entry and
// the read one do what the statements of the host's language do, and fail with their texts.
//
// Method: a table for each operation over every kind of value, and objects that answer for
// themselves; random values are compared with CPython in python_semantics_test.
#include "search_templates/genetic/value/operations.hpp"

#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
constexpr const char* kBeyond = "9223372036854775808";  // 2**63

// An object of the host that is walked and looked into, and writes down what it is asked.
class Crate : public HostObject {
 public:
  Crate(CallLog& log, std::initializer_list<Value> items) : log_(log), items_(items) {}

  [[nodiscard]] std::string type_name() const override { return "Crate"; }
  [[nodiscard]] std::unique_ptr<ValueIterator> iterate() const override {
    return std::make_unique<ScriptedIterator>(
        log_, "crate", [items = items_, index = std::size_t{0}]() mutable -> std::optional<Value> {
          if (index == items.size()) return std::nullopt;
          return items.at(index++);
        });
  }
  [[nodiscard]] bool contains(const Value& item) const override {
    log_.add("crate.contains", {item});
    return item == Value("held");
  }
  [[nodiscard]] Value get(const Value& key) const override {
    log_.add("crate.get", {key});
    return Tuple{"got", key};
  }
  [[nodiscard]] Value negated() const override { return "turned"; }

 private:
  CallLog& log_;
  List items_;
};

// A subclass of the text type, or a text that is not valid Unicode.
class HostText : public HostObject {
 public:
  explicit HostText(std::string text) : text_(std::move(text)) {}

  [[nodiscard]] std::string type_name() const override { return "str"; }
  [[nodiscard]] bool is_instance_of(Kind kind) const override { return kind == Kind::kText; }
  [[nodiscard]] std::string text() const override { return text_; }

 private:
  std::string text_;
};

std::string unpacked(const Value& value) {
  std::string pair;
  const std::string error = error_of([&] {
    const auto [first, second] = unpack_pair(value);
    return pair = repr(first) + " and " + repr(second);
  });
  return error == "no error" ? pair : error;
}

TEST(UnpackPair, TakesTwoItemsOfWhateverCanBeWalked) {
  EXPECT_EQ(unpacked(Tuple{1, "b"}), "1 and 'b'");
  EXPECT_EQ(unpacked(List{Value(), List()}), "None and []");
  EXPECT_EQ(unpacked("ab"), "'a' and 'b'");
  EXPECT_EQ(unpacked("\xC3\xA9\xF0\x9F\x98\x80"), "'\xC3\xA9' and '\xF0\x9F\x98\x80'");
  // The keys of a mapping, in its order.
  EXPECT_EQ(unpacked(Mapping{{"z", 1}, {"a", 2}}), "'z' and 'a'");
  EXPECT_EQ(unpacked(as_host_containers(List{3, 4})), "3 and 4");
  EXPECT_EQ(unpacked(as_host_containers(Mapping{{"z", 1}, {"a", 2}})), "'z' and 'a'");
}

TEST(UnpackPair, GivesTheItemsThemselves) {
  const Value inner = Mapping{{"k", 1}};
  EXPECT_TRUE(same_object(unpack_pair(Tuple{inner, 1}).first, inner));
  EXPECT_TRUE(same_object(unpack_pair(List{1, inner}).second, inner));
}

TEST(UnpackPair, FailsForAnotherNumberOfItems) {
  EXPECT_EQ(unpacked(Tuple()), "ValueError: not enough values to unpack (expected 2, got 0)");
  EXPECT_EQ(unpacked(""), "ValueError: not enough values to unpack (expected 2, got 0)");
  EXPECT_EQ(unpacked(List{1}), "ValueError: not enough values to unpack (expected 2, got 1)");
  EXPECT_EQ(unpacked("abc"), "ValueError: too many values to unpack (expected 2)");
  EXPECT_EQ(unpacked(Mapping{{1, 1}, {2, 2}, {3, 3}}),
            "ValueError: too many values to unpack (expected 2)");
}

TEST(UnpackPair, FailsForWhatCannotBeWalked) {
  EXPECT_EQ(unpacked(Value()), "TypeError: cannot unpack non-iterable NoneType object");
  EXPECT_EQ(unpacked(true), "TypeError: cannot unpack non-iterable bool object");
  EXPECT_EQ(unpacked(1), "TypeError: cannot unpack non-iterable int object");
  EXPECT_EQ(unpacked(0.5), "TypeError: cannot unpack non-iterable float object");
  // An object is asked, and its own error passes.
  EXPECT_EQ(unpacked(scripted_object(Mapping())), "TypeError: 'Record' object is not iterable");
}

TEST(UnpackPair, WalksAnObjectUntilItIsSureOfTheNumber) {
  CallLog log;
  EXPECT_EQ(unpacked(make_object<Crate>(log, std::initializer_list<Value>{7, 8})), "7 and 8");
  EXPECT_THAT(log.lines(),
              ElementsAre("crate.next()", "crate.next()", "crate.next()", "crate.release()"));
  log.clear();
  EXPECT_EQ(unpacked(make_object<Crate>(log, std::initializer_list<Value>{7, 8, 9, 10})),
            "ValueError: too many values to unpack (expected 2)");
  // The fourth is not asked for.
  EXPECT_EQ(log.count("crate.next"), 3U);
}

struct MemberCase {
  Value container;
  Value item;
  std::string answer;
};

TEST(Contains, AnswersByTheKindOfTheContainer) {
  const Value nan(std::nan(""));
  const MemberCase cases[] = {
      // A key of a mapping, not its value.
      {Mapping{{"a", "b"}}, "a", "yes"},
      {Mapping{{"a", "b"}}, "b", "no"},
      {Mapping{{1, "b"}}, 1.0, "yes"},
      {Mapping{{1, "b"}}, true, "yes"},
      {Mapping{{"a", Value()}}, "a", "yes"},
      {as_host_containers(Mapping{{"a", 1}}), "a", "yes"},
      {as_host_containers(Mapping{{"a", 1}}), "b", "no"},
      {Mapping{{"a", 1}}, List(), "TypeError: unhashable type: 'list'"},
      {Mapping(), Mapping(), "TypeError: unhashable type: 'dict'"},
      // An item of a sequence, by identity or equality.
      {List{1, "a"}, "a", "yes"},
      {List{1, "a"}, 1.0, "yes"},
      {List{1, "a"}, "b", "no"},
      {List{Value(List{1})}, List{1}, "yes"},
      {List{nan}, nan, "yes"},
      {List{nan}, Value(std::nan("")), "no"},
      {Tuple{1, Value()}, Value(), "yes"},
      {Tuple{}, Value(), "no"},
      {as_host_containers(List{1, 2}), 2, "yes"},
      {as_host_containers(List{1, 2}), 3, "no"},
      // A part of a text.
      {"abc", "bc", "yes"},
      {"abc", "ac", "no"},
      {"abc", "", "yes"},
      {"", "", "yes"},
      {"", "a", "no"},
      {"abc", make_object<HostText>("b"), "yes"},
      {"abc", make_object<HostText>("d"), "no"},
      {"abc", 1, "TypeError: 'in <string>' requires string as left operand, not int"},
      {"abc", Value(), "TypeError: 'in <string>' requires string as left operand, not NoneType"},
      // Nothing else can be looked into.
      {Value(), "a", "TypeError: argument of type 'NoneType' is not iterable"},
      {true, "a", "TypeError: argument of type 'bool' is not iterable"},
      {1, "a", "TypeError: argument of type 'int' is not iterable"},
      {0.5, "a", "TypeError: argument of type 'float' is not iterable"},
      {nan, "a", "TypeError: argument of type 'float' is not iterable"},
      {scripted_object(Mapping{{"a", 1}}), "a",
       "TypeError: argument of type 'Record' is not iterable"},
  };
  for (const MemberCase& test_case : cases) {
    SCOPED_TRACE(repr(test_case.item) + " in " + repr(test_case.container));
    bool answer = false;
    const std::string error =
        error_of([&] { return answer = contains(test_case.container, test_case.item); });
    EXPECT_EQ(error == "no error" ? (answer ? "yes" : "no") : error, test_case.answer);
  }
}

TEST(Contains, AsksAnObjectItself) {
  CallLog log;
  const Value crate = make_object<Crate>(log, std::initializer_list<Value>{"walked"});
  EXPECT_TRUE(contains(crate, "held"));
  EXPECT_FALSE(contains(crate, "walked"));
  EXPECT_THAT(log.lines(), ElementsAre("crate.contains('held')", "crate.contains('walked')"));
}

TEST(Negated, TurnsTheSignOfEveryKindOfNumber) {
  struct Case {
    Value value;
    std::string opposite;
  };
  const Case cases[] = {
      {true, "-1"},
      {false, "0"},
      {7, "-7"},
      {-7, "7"},
      {0, "0"},
      {kSmallest + 1, "9223372036854775807"},
      // The one whose opposite needs more bits, and back.
      {kSmallest, kBeyond},
      {to_integer(kBeyond), "-9223372036854775808"},
      {to_integer("-9223372036854775809"), "9223372036854775809"},
      {to_integer("100000000000000000000"), "-100000000000000000000"},
      {1.5, "-1.5"},
      {0.0, "-0.0"},
      {-0.0, "0.0"},
      {std::numeric_limits<double>::infinity(), "-inf"},
      {std::nan(""), "nan"},
  };
  for (const Case& test_case : cases) {
    EXPECT_EQ(repr(negated(test_case.value)), test_case.opposite) << repr(test_case.value);
  }
  CallLog log;
  EXPECT_EQ(negated(make_object<Crate>(log, std::initializer_list<Value>{})), "turned");
}

TEST(Negated, IsOfTheKindThatHoldsTheNumber) {
  EXPECT_TRUE(negated(true).is_integer());
  EXPECT_TRUE(negated(kSmallest).is_object());
  EXPECT_TRUE(negated(to_integer(kBeyond)).is_integer());
  EXPECT_EQ(negated(to_integer(kBeyond)).integer(), kSmallest);
  EXPECT_EQ(repr(negated(std::nan(""))), "nan");
}

TEST(Negated, FailsForWhatIsNoNumber) {
  const std::pair<Value, std::string> cases[] = {
      {Value(), "NoneType"}, {"1", "str"},        {List{1}, "list"},
      {Tuple{1}, "tuple"},   {Mapping(), "dict"}, {scripted_object(Mapping()), "Record"}};
  for (const auto& [value, type] : cases) {
    EXPECT_EQ(error_of([&, operand = value] { return negated(operand); }),
              "TypeError: bad operand type for unary -: '" + type + "'");
  }
}

// An object of the host that is neither equal to anything nor different from it.
class Undecided : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Undecided"; }
  [[nodiscard]] bool differs(const Value& /*other*/) const override { return false; }
};

TEST(Differ, AsksAnObjectOnEitherSideWhetherItDiffers) {
  EXPECT_FALSE(differ(1, 1.0));
  EXPECT_TRUE(differ("1", 1));
  const Value undecided = make_object<Undecided>();
  EXPECT_FALSE(undecided == Value(1));
  EXPECT_FALSE(differ(undecided, 1));
  EXPECT_FALSE(differ(1, undecided));
  EXPECT_TRUE(differ(scripted_object(Mapping()), 1));
}

TEST(ExpectedRecord, IsTheMappingItself) {
  const Mapping own;
  expected_record(own).set("k", 1);
  EXPECT_EQ(repr(own), "{'k': 1}");

  const auto host = std::make_shared<HostMapping>();
  expected_record(mapping_of(host)).set("k", 2);
  EXPECT_EQ(host->entries.size(), 1U);

  const Mapping entries;
  expected_record(make_object<Ledger>(entries)).set("k", 3);
  EXPECT_EQ(repr(entries), "{'k': 3}");
}

TEST(ExpectedRecord, OfAnythingElseFailsWhereItIsUsed) {
  const std::pair<Value, std::string> cases[] = {
      {Value(), "NoneType"}, {1, "int"},         {"text", "str"},
      {0.5, "float"},        {Tuple(), "tuple"}, {scripted_object(Mapping()), "Record"}};
  for (const auto& [value, type] : cases) {
    SCOPED_TRACE(type);
    Mapping record = expected_record(value);
    EXPECT_EQ(error_of([&] {
                record.set("k", 1);
                return 0;
              }),
              "TypeError: '" + type + "' object does not support item assignment");
    const std::string lacks = "AttributeError: '" + type + "' object has no attribute ";
    EXPECT_EQ(error_of([&] { return record.get("k"); }), lacks + "'get'");
    EXPECT_EQ(error_of([&] { return record.erase("k"); }), lacks + "'pop'");
    EXPECT_EQ(error_of([&] { return record.set_default("k", 1); }), lacks + "'setdefault'");
  }
}

TEST(ExpectedRecord, OfAListTakesItemsByPlace) {
  const List list{1, 2};
  Mapping record = expected_record(list);
  record.set(-1, 3);
  EXPECT_EQ(repr(list), "[1, 3]");
  const auto set = [&record](const Value& key) {
    return error_of([&] {
      record.set(key, 0);
      return 0;
    });
  };
  EXPECT_EQ(set("k"), "TypeError: list indices must be integers or slices, not str");
  EXPECT_EQ(set(2), "IndexError: list assignment index out of range");
  EXPECT_EQ(set(-3), "IndexError: list assignment index out of range");
  EXPECT_EQ(error_of([&] { return record.erase("k"); }),
            "TypeError: pop expected at most 1 argument, got 2");
}

TEST(Entry, IsThatOfAMappingOrWhatAnObjectGives) {
  EXPECT_EQ(entry(Mapping{{"k", 1}}, "k"), 1);
  EXPECT_TRUE(entry(Mapping{{"k", 1}}, "other").is_absent());
  EXPECT_EQ(entry(as_host_containers(Mapping{{"k", 1}}), "k"), 1);
  EXPECT_EQ(entry(make_object<Ledger>(Mapping{{"k", 2}}), "k"), 2);

  CallLog log;
  EXPECT_EQ(repr(entry(make_object<Crate>(log, std::initializer_list<Value>{}), "k")),
            "('got', 'k')");
  EXPECT_THAT(log.lines(), ElementsAre("crate.get('k')"));
}

TEST(Entry, FailsForWhatHasNoSuchOperation) {
  const std::pair<Value, std::string> cases[] = {{Value(), "NoneType"},
                                                 {true, "bool"},
                                                 {1, "int"},
                                                 {0.5, "float"},
                                                 {"text", "str"},
                                                 {List{1}, "list"},
                                                 {Tuple{1}, "tuple"},
                                                 // An attribute of that name is no entry.
                                                 {scripted_object(Mapping{{"k", 1}}), "Record"}};
  for (const auto& [value, type] : cases) {
    EXPECT_EQ(error_of([&, record = value] { return entry(record, "k"); }),
              "AttributeError: '" + type + "' object has no attribute 'get'");
  }
}

TEST(IntegerSum, IsExactWhateverTheSize) {
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(integer_sum(40, 2), 42);
  EXPECT_TRUE(integer_sum(40, 2).is_integer());
  EXPECT_EQ(str(integer_sum(kLargest, 1)), kBeyond);
  EXPECT_EQ(integer_sum(integer_sum(kLargest, 1), -1), kLargest);
  EXPECT_TRUE(integer_sum(integer_sum(kLargest, 1), -1).is_integer());
  EXPECT_EQ(str(integer_sum(integer_sum(kSmallest, -1), -1)), "-9223372036854775810");
  EXPECT_EQ(str(integer_sum(to_integer("100000000000000000000"), 1)), "100000000000000000001");
}

TEST(AtLeast, IsTheOrderOfNumbersAndTexts) {
  EXPECT_TRUE(at_least(3, 3));
  EXPECT_TRUE(at_least(3, 2.5));
  EXPECT_FALSE(at_least(2, 2.5));
  EXPECT_TRUE(at_least(true, 1));
  EXPECT_TRUE(at_least("b", "a"));
  EXPECT_FALSE(at_least("a", "b"));
  EXPECT_TRUE(at_least(integer_sum(std::numeric_limits<std::int64_t>::max(), 1), 5));
  EXPECT_FALSE(at_least(5, integer_sum(std::numeric_limits<std::int64_t>::max(), 1)));
}

TEST(AtLeast, NothingIsAtLeastANaNNorIsItOfAnything) {
  const Value nan(std::nan(""));
  EXPECT_FALSE(at_least(nan, 1));
  EXPECT_FALSE(at_least(1, nan));
  EXPECT_FALSE(at_least(nan, nan));
}

TEST(AtLeast, FailsWithTheStatementsText) {
  EXPECT_EQ(error_of([] { return at_least(1, "a"); }),
            "TypeError: '>=' not supported between instances of 'int' and 'str'");
  EXPECT_EQ(error_of([] { return at_least(Value(), 1); }),
            "TypeError: '>=' not supported between instances of 'NoneType' and 'int'");
}

}  // namespace
}  // namespace varnholt::genetic::test
