// What values mean where no comparison with CPython by literals is possible: identity, objects that
// answer for themselves, values nested too deep, and the helpers that rules read values by. What
// can be written as literals is compared with CPython in python_semantics_test.
#include "search_templates/genetic/value/semantics.hpp"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;

// An object of a class that derives from a kind of ours, or behaves like one.
class Subclass : public HostObject {
 public:
  explicit Subclass(Value value) : value_(std::move(value)) {}

  [[nodiscard]] std::string type_name() const override { return "Subclass"; }
  [[nodiscard]] bool truth() const override { return genetic::truth(value_); }
  [[nodiscard]] bool equals(const Value& other) const override { return value_ == other; }
  [[nodiscard]] std::uint64_t hash() const override { return genetic::hash(value_); }
  [[nodiscard]] std::optional<bool> less(const Value& other) const override {
    return genetic::less(value_, other);
  }
  [[nodiscard]] std::optional<bool> greater(const Value& other) const override {
    return genetic::less(other, value_);
  }
  [[nodiscard]] double to_float() const override { return genetic::to_float(value_); }
  [[nodiscard]] Value to_integer() const override { return genetic::to_integer(value_); }
  [[nodiscard]] std::string str() const override { return "str of " + genetic::str(value_); }
  [[nodiscard]] std::string repr() const override { return "repr of " + genetic::repr(value_); }
  [[nodiscard]] std::optional<Mapping> as_mapping() const override {
    return genetic::as_mapping(value_);
  }
  [[nodiscard]] bool is_instance_of(Kind kind) const override { return value_.kind() == kind; }
  [[nodiscard]] std::size_t length() const override { return genetic::length(value_); }
  [[nodiscard]] std::unique_ptr<ValueIterator> iterate() const override {
    return genetic::iterate(value_);
  }
  [[nodiscard]] Value item(const Value& key) const override { return genetic::item(value_, key); }
  [[nodiscard]] std::optional<Value> attribute(std::string_view name) const override {
    return name == "inner" ? std::optional(value_) : std::nullopt;
  }

 private:
  Value value_;
};

// An object that says at once what its own side and the other one answer to equality.
class Judge : public HostObject {
 public:
  Judge(bool answer, bool for_both) : answer_(answer), for_both_(for_both) {}

  [[nodiscard]] std::string type_name() const override { return "Judge"; }
  [[nodiscard]] bool equals(const Value& /*other*/) const override { return answer_; }
  [[nodiscard]] bool equals_for_both() const override { return for_both_; }

 private:
  bool answer_;
  bool for_both_;
};

TEST(Equality, OfTwoObjectsIsWhatEitherSaysUnlessTheFirstAnswersForBoth) {
  const Value yes = make_object<Judge>(true, false);
  const Value no = make_object<Judge>(false, false);
  const Value no_for_both = make_object<Judge>(false, true);
  EXPECT_TRUE(yes == no);
  EXPECT_TRUE(no == yes);
  EXPECT_TRUE(yes == no_for_both);
  EXPECT_FALSE(no_for_both == yes);
}

Value subclass(Value value) {
  return make_object<Subclass>(std::move(value));
}

std::vector<std::string> walked(const Value& value) {
  std::vector<std::string> items;
  const auto iterator = iterate(value);
  while (const auto item = iterator->next())
    items.push_back(repr(*item));
  return items;
}

TEST(TypeName, IsTheExactType) {
  EXPECT_EQ(type_name(Value()), "NoneType");
  EXPECT_EQ(type_name(true), "bool");
  EXPECT_EQ(type_name(1), "int");
  EXPECT_EQ(type_name(1.0), "float");
  EXPECT_EQ(type_name("a"), "str");
  EXPECT_EQ(type_name(List{}), "list");
  EXPECT_EQ(type_name(Tuple{}), "tuple");
  EXPECT_EQ(type_name(Mapping{}), "dict");
  EXPECT_EQ(type_name(std::nan("")), "float");
  EXPECT_EQ(type_name(subclass(1)), "Subclass");
}

TEST(SameObject, TellsContainersApartAndScalarsOfTwoKinds) {
  EXPECT_TRUE(same_object(Value(), Value()));
  EXPECT_TRUE(same_object(1, 1));
  EXPECT_FALSE(same_object(1, 1.0));
  EXPECT_FALSE(same_object(1, true));
  EXPECT_FALSE(same_object(1, 2));
  EXPECT_TRUE(same_object(2.5, 2.5));
  EXPECT_TRUE(same_object("a", std::string("a")));
  EXPECT_FALSE(same_object("a", "b"));
  EXPECT_TRUE(same_object(false, false));
  EXPECT_FALSE(same_object(Tuple{1}, Tuple{1}));
  EXPECT_FALSE(same_object(List{}, List{}));
  EXPECT_FALSE(same_object(Mapping{}, Mapping{}));
  const Value object = subclass(1);
  EXPECT_TRUE(same_object(object, Value(object)));
  EXPECT_FALSE(same_object(object, subclass(1)));
}

TEST(Equality, ANanIsEqualOnlyInsideAContainerAndToItself) {
  const Value nan(std::nan(""));
  const Value other(std::nan(""));
  EXPECT_FALSE(nan == nan);
  EXPECT_TRUE(is_same_or_equal(nan, nan));
  EXPECT_TRUE(Value(List{nan}) == Value(List{nan}));
  EXPECT_TRUE(Value(Tuple{nan}) == Value(Tuple{nan}));
  EXPECT_TRUE(Value(Mapping{{"k", nan}}) == Value(Mapping{{"k", nan}}));
  EXPECT_FALSE(Value(List{nan}) == Value(List{other}));
  EXPECT_FALSE(Value(Mapping{{"k", nan}}) == Value(Mapping{{"k", other}}));
}

TEST(Equality, ANanIsAKeyByIdentity) {
  const Value nan(std::nan(""));
  Mapping mapping{{nan, 1}};
  EXPECT_EQ(mapping.at(nan).integer(), 1);
  EXPECT_FALSE(mapping.contains(std::nan("")));
  EXPECT_EQ(hash(nan), hash(Value(nan)));
}

TEST(Equality, IntegersCompareWithRealsExactly) {
  constexpr std::int64_t kTwoTo53 = std::int64_t{1} << 53;
  EXPECT_TRUE(Value(kTwoTo53) == Value(9007199254740992.0));
  EXPECT_FALSE(Value(kTwoTo53 + 1) == Value(9007199254740992.0));
  EXPECT_EQ(hash(kTwoTo53), hash(9007199254740992.0));
  EXPECT_NE(hash(kTwoTo53 + 1), hash(9007199254740992.0));
  EXPECT_TRUE(less(9007199254740992.0, kTwoTo53 + 1));
  EXPECT_FALSE(less(kTwoTo53 + 1, 9007199254740992.0));
  EXPECT_FALSE(Value(std::numeric_limits<std::int64_t>::max()) == Value(9223372036854775808.0));
  EXPECT_TRUE(to_integer("9223372036854775808") == Value(9223372036854775808.0));
  EXPECT_TRUE(Value(9223372036854775808.0) == to_integer("9223372036854775808"));
  EXPECT_FALSE(to_integer("9223372036854775809") == Value(9223372036854775808.0));
  EXPECT_EQ(hash(to_integer("9223372036854775808")), hash(9223372036854775808.0));
}

TEST(Equality, OfMappingsIgnoresOrderAndCountsKeys) {
  EXPECT_TRUE(Value(Mapping{{"a", 1}, {"b", 2}}) == Value(Mapping{{"b", 2.0}, {"a", true}}));
  EXPECT_FALSE(Value(Mapping{{"a", 1}}) == Value(Mapping{{"a", 1}, {"b", 2}}));
  EXPECT_FALSE(Value(Mapping{{"a", Value()}}) == Value(Mapping{{"b", Value()}}));
}

TEST(Equality, AValueThatContainsItselfEqualsItself) {
  List list;
  list.append(list);
  EXPECT_TRUE(Value(list) == Value(list));
  List other;
  other.append(other);
  EXPECT_EQ(error_of([&] { return Value(list) == Value(other); }),
            "RecursionError: maximum recursion depth exceeded in comparison");
  list.set(0, Value());
  other.set(0, Value());
}

TEST(Equality, AnObjectDecidesFromEitherSide) {
  EXPECT_TRUE(subclass(1) == Value(1.0));
  EXPECT_TRUE(Value(true) == subclass(1));
  EXPECT_FALSE(Value("1") == subclass(1));
  EXPECT_TRUE(subclass("a") == subclass("a"));
  EXPECT_TRUE(Value(List{subclass(1)}) == Value(List{1}));
  Mapping mapping{{"a", 1}};
  EXPECT_TRUE(mapping.contains(subclass("a")));
}

TEST(Less, TheFirstUnequalPairDecides) {
  EXPECT_TRUE(less(Tuple{1, "b"}, Tuple{1.0, "c"}));
  EXPECT_FALSE(less(Tuple{1, "c"}, Tuple{1.0, "b"}));
  EXPECT_TRUE(less(Tuple{1}, Tuple{1, 0}));
  EXPECT_FALSE(less(Tuple{1, 0}, Tuple{1}));
  EXPECT_TRUE(less(List{1, List{2}}, List{1, List{3}}));
  // Pairs behind the deciding one are not looked at, and equal ones need no order.
  EXPECT_TRUE(less(Tuple{1, "a"}, Tuple{2, 5}));
  EXPECT_TRUE(less(Tuple{Mapping{}, 1}, Tuple{Mapping{}, 2}));
  EXPECT_EQ(error_of([] {
              return less(Tuple{1, "a"}, Tuple{1, 5});
            }),
            "TypeError: '<' not supported between instances of 'str' and 'int'");
  EXPECT_EQ(error_of([] { return less(Tuple{1}, List{2}); }),
            "TypeError: '<' not supported between instances of 'tuple' and 'list'");
}

TEST(Less, ANanIsEqualToItselfInASortKeyAndLessThanNothing) {
  const Value nan(std::nan(""));
  EXPECT_FALSE(less(nan, 1));
  EXPECT_FALSE(less(1, nan));
  EXPECT_FALSE(less(nan, nan));
  EXPECT_FALSE(less(nan, to_integer("100000000000000000000")));
  EXPECT_FALSE(less(to_integer("100000000000000000000"), nan));
  EXPECT_TRUE(less(Tuple{nan, 1}, Tuple{nan, 2}));
  EXPECT_FALSE(less(Tuple{nan, 1}, Tuple{Value(std::nan("")), 2}));
  EXPECT_EQ(error_of([&] { return less(nan, "a"); }),
            "TypeError: '<' not supported between instances of 'float' and 'str'");
  EXPECT_EQ(error_of([&] { return less("a", nan); }),
            "TypeError: '<' not supported between instances of 'str' and 'float'");
}

TEST(Less, AnObjectDecidesFromEitherSide) {
  EXPECT_TRUE(less(subclass(1), 2));
  EXPECT_TRUE(less(1, subclass(2)));
  EXPECT_FALSE(less(2, subclass(1)));
  const Value plain = test::scripted_object(Mapping());
  EXPECT_EQ(error_of([&] { return less(plain, 1); }),
            "TypeError: '<' not supported between instances of 'Record' and 'int'");
  EXPECT_EQ(error_of([&] { return less(1, plain); }),
            "TypeError: '<' not supported between instances of 'int' and 'Record'");
}

// Every walk over a value nested too deep.
TEST(DeepValues, FailWithAnOrdinaryErrorInEveryWalk) {
  Value lists;
  Value same_lists;
  Value tuples;
  Value mappings;
  Value same_mappings;
  for (int i = 0; i < 100'000; ++i) {
    lists = List{lists};
    same_lists = List{same_lists};
    tuples = Tuple{tuples};
    mappings = Mapping{{"k", mappings}};
    same_mappings = Mapping{{"k", same_mappings}};
  }
  const std::string in_comparison =
      "RecursionError: maximum recursion depth exceeded in comparison";
  EXPECT_EQ(error_of([&] { return lists == same_lists; }), in_comparison);
  EXPECT_EQ(error_of([&] { return mappings == same_mappings; }), in_comparison);
  EXPECT_EQ(error_of([&] { return less(lists, same_lists); }), in_comparison);
  EXPECT_EQ(error_of([&] { return is_same_or_equal(lists, same_lists); }), in_comparison);
  const std::string in_repr =
      "RecursionError: maximum recursion depth exceeded while getting the repr of an object";
  EXPECT_EQ(error_of([&] { return repr(lists); }), in_repr);
  EXPECT_EQ(error_of([&] { return str(mappings); }), in_repr);
  EXPECT_EQ(error_of([&] { return hash(tuples); }),
            "RecursionError: maximum recursion depth exceeded");
}

TEST(DeepValues, FailInAnOrderThatNeverReachesTheirEnds) {
  // Lists of different lengths are unequal at once, so that only the order goes down.
  Value left;
  Value right;
  for (int i = 0; i < 100'000; ++i) {
    left = List{left};
    right = List{right, 0};
  }
  EXPECT_EQ(error_of([&] { return less(left, right); }),
            "RecursionError: maximum recursion depth exceeded in comparison");
}

TEST(Hash, OfTuplesFollowsEqualityOfTheirItems) {
  EXPECT_EQ(hash(Tuple{1, "a"}), hash(Tuple{1.0, "a"}));
  EXPECT_NE(hash(Tuple{1, 2}), hash(Tuple{2, 1}));
  EXPECT_EQ(hash(Value()), hash(Value()));
  EXPECT_EQ(error_of([] { return hash(Tuple{1, List{}}); }), "TypeError: unhashable type: 'list'");
  EXPECT_EQ(error_of([] { return hash(Mapping{}); }), "TypeError: unhashable type: 'dict'");
  EXPECT_EQ(hash(subclass(1)), hash(1));
}

TEST(Conversions, OfObjectsAreTheirOwn) {
  EXPECT_EQ(to_float(subclass("0.5")), 0.5);
  EXPECT_EQ(to_integer(subclass(2.9)).integer(), 2);
  EXPECT_TRUE(truth(subclass(1)));
  EXPECT_FALSE(truth(subclass("")));
  EXPECT_EQ(str(subclass(1)), "str of 1");
  EXPECT_EQ(repr(List{subclass(1)}), "[repr of 1]");
}

TEST(SaturatedInteger, CutsToWhat64BitsHold) {
  EXPECT_EQ(saturated_integer(5), 5);
  EXPECT_EQ(saturated_integer(true), 1);
  EXPECT_EQ(saturated_integer(to_integer("100000000000000000000")),
            std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(saturated_integer(to_integer("-100000000000000000000")),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(saturated_integer(subclass(5)), 5);
  EXPECT_EQ(error_of([] { return saturated_integer(1.0); }),
            "TypeError: 'float' object cannot be interpreted as an integer");
}

TEST(AsMapping, FindsAnyKindOfMapping) {
  EXPECT_TRUE(as_mapping(Mapping{}).has_value());
  EXPECT_TRUE(as_mapping(subclass(Mapping{})).has_value());
  EXPECT_FALSE(as_mapping(List{}).has_value());
  EXPECT_FALSE(as_mapping(subclass(1)).has_value());
}

TEST(IsInstanceOf, AcceptsSubclassesAndExactKindDoesNot) {
  EXPECT_TRUE(is_instance_of("a", Kind::kText));
  EXPECT_TRUE(is_instance_of(subclass(List{}), Kind::kList));
  EXPECT_FALSE(is_instance_of(subclass(List{}), Kind::kTuple));
  EXPECT_EQ(exact_kind(subclass(List{})), Kind::kObject);
  EXPECT_EQ(exact_kind(List{}), Kind::kList);
  EXPECT_EQ(exact_kind(to_integer("100000000000000000000")), Kind::kInteger);
  EXPECT_EQ(exact_kind(std::nan("")), Kind::kReal);
}

TEST(Length, CountsCodePointsItemsAndKeys) {
  EXPECT_EQ(length("a\xC3\xA9\xF0\x9F\x98\x80"), 3U);
  EXPECT_EQ(length(List{1, 2}), 2U);
  EXPECT_EQ(length(Tuple{}), 0U);
  EXPECT_EQ(length(Mapping{{1, 2}}), 1U);
  EXPECT_EQ(length(subclass(List{1})), 1U);
  EXPECT_EQ(error_of([] { return length(1); }), "TypeError: object of type 'int' has no len()");
}

TEST(Iterate, WalksTextsSequencesKeysAndObjects) {
  using Items = std::vector<std::string>;
  EXPECT_EQ(walked("a\xC3\xA9"), (Items{"'a'", "'\xC3\xA9'"}));
  EXPECT_EQ(walked(List{1, "b"}), (Items{"1", "'b'"}));
  EXPECT_EQ(walked(Tuple{1}), (Items{"1"}));
  EXPECT_EQ(walked(Mapping{{"k", 1}, {2, 3}}), (Items{"'k'", "2"}));
  EXPECT_EQ(walked(subclass(Tuple{7})), (Items{"7"}));
  EXPECT_EQ(error_of([] { return iterate(Value()) == nullptr; }),
            "TypeError: 'NoneType' object is not iterable");
}

TEST(Item, ReadsByIndexAndByKey) {
  EXPECT_EQ(item(List{1, 2}, 1).integer(), 2);
  EXPECT_EQ(item(List{1, 2}, -2).integer(), 1);
  EXPECT_EQ(item(Tuple{1, 2}, true).integer(), 2);
  EXPECT_EQ(item("a\xC3\xA9z", 1).text(), "\xC3\xA9");
  EXPECT_EQ(item("ab", -1).text(), "b");
  EXPECT_EQ(item(Mapping{{"k", 5}}, "k").integer(), 5);
  EXPECT_EQ(item(subclass(List{9}), 0).integer(), 9);
  EXPECT_EQ(error_of([] { return item(List{1}, 1); }), "IndexError: list index out of range");
  EXPECT_EQ(error_of([] { return item(Tuple{1}, -2); }), "IndexError: tuple index out of range");
  EXPECT_EQ(error_of([] { return item("a", 1); }), "IndexError: string index out of range");
  EXPECT_EQ(error_of([] { return item(List{1}, "a"); }),
            "TypeError: list indices must be integers or slices, not str");
  EXPECT_EQ(error_of([] { return item("a", 0.0); }),
            "TypeError: string indices must be integers, not 'float'");
  EXPECT_EQ(error_of([] { return item(List{1}, to_integer("100000000000000000000")); }),
            "IndexError: cannot fit 'int' into an index-sized integer");
  EXPECT_EQ(error_of([] { return item(Mapping{}, "k"); }), "KeyError: 'k'");
  EXPECT_EQ(error_of([] { return item(1, 0); }), "TypeError: 'int' object is not subscriptable");
}

TEST(RecordOf, IsAnyMappingOrTheErrorOfReadingOne) {
  EXPECT_EQ(record_of(Mapping{{"a", 1}}).at("a").integer(), 1);
  EXPECT_EQ(record_of(subclass(Mapping{{"a", 2}})).at("a").integer(), 2);
  EXPECT_EQ(error_of([] { return record_of(List{}).size(); }),
            "AttributeError: 'list' object has no attribute 'get'");
  EXPECT_EQ(error_of([] { return record_of(Value()).size(); }),
            "AttributeError: 'NoneType' object has no attribute 'get'");
}

TEST(FieldValue, ReadsTheEntryOrTheAttribute) {
  EXPECT_EQ(field_value(Mapping{{"graph", 1}}, keys::kGraph).integer(), 1);
  EXPECT_TRUE(field_value(Mapping{{"graph", Value()}}, keys::kGraph, 7).is_absent());
  EXPECT_EQ(field_value(Mapping{}, keys::kGraph, 7).integer(), 7);
  EXPECT_EQ(field_value(test::scripted_object({{"graph", 2}}), keys::kGraph).integer(), 2);
  EXPECT_EQ(field_value(test::scripted_object(Mapping()), keys::kGraph, 7).integer(), 7);
  EXPECT_TRUE(field_value(5, keys::kGraph).is_absent());
  EXPECT_EQ(attribute(subclass(3), "inner")->integer(), 3);
  EXPECT_FALSE(attribute(subclass(3), "outer").has_value());
  EXPECT_FALSE(attribute(Mapping{{"inner", 1}}, "inner").has_value());
}

}  // namespace
}  // namespace varnholt::genetic
