// The canonical JSON text, byte for byte. Method: each rule by a small value; the property test
// beside this one (python_semantics_test) compares random values with CPython.
#include "search_templates/genetic/value/json_text.hpp"

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;

TEST(JsonText, OfScalars) {
  EXPECT_EQ(json_text(Value()), "null");
  EXPECT_EQ(json_text(true), "true");
  EXPECT_EQ(json_text(false), "false");
  EXPECT_EQ(json_text(1), "1");
  EXPECT_EQ(json_text(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(json_text(to_integer("-123456789012345678901234567890")),
            "-123456789012345678901234567890");
  EXPECT_EQ(json_text(1.0), "1.0");
  EXPECT_EQ(json_text(-0.0), "-0.0");
  EXPECT_EQ(json_text(1e16), "1e+16");
  EXPECT_EQ(json_text(1e-5), "1e-05");
  EXPECT_EQ(json_text(0.1), "0.1");
  EXPECT_EQ(json_text(std::nan("")), "NaN");
  EXPECT_EQ(json_text(std::numeric_limits<double>::infinity()), "Infinity");
  EXPECT_EQ(json_text(-std::numeric_limits<double>::infinity()), "-Infinity");
}

TEST(JsonText, OfTextsIsAscii) {
  EXPECT_EQ(json_text(""), R"("")");
  EXPECT_EQ(json_text("a\"b\\c/"), R"("a\"b\\c/")");
  EXPECT_EQ(json_text("\n\r\t\b\f\x01\x7F"), "\"\\n\\r\\t\\b\\f\\u0001\\u007f\"");
  EXPECT_EQ(json_text("\xC3\xA9"), R"("\u00e9")");
  EXPECT_EQ(json_text("\xF0\x9F\x98\x80"), R"("\ud83d\ude00")");
}

TEST(JsonText, OfContainersWithoutBlanks) {
  EXPECT_EQ(json_text(List{}), "[]");
  EXPECT_EQ(json_text(Tuple{1, Tuple{}}), "[1,[]]");
  EXPECT_EQ(json_text(Mapping{}), "{}");
  EXPECT_EQ(json_text(List{1, "a", Value()}), R"([1,"a",null])");
}

TEST(JsonText, SortsKeysAtEveryLevel) {
  const Mapping inner{{"z", 1}, {"y", Mapping{{"b", 1}, {"a", List{Mapping{{"d", 1}, {"c", 2}}}}}}};
  EXPECT_EQ(json_text(Mapping{{"b", inner}, {"a", inner}}),
            R"({"a":{"y":{"a":[{"c":2,"d":1}],"b":1},"z":1},)"
            R"("b":{"y":{"a":[{"c":2,"d":1}],"b":1},"z":1}})");
}

TEST(JsonText, SortsByCodePointNotByEscapedTextNorUtf16) {
  // U+FFFD comes before U+1F600, whose surrogates come before it; "~" comes before e acute, whose
  // escape begins with a backslash; a prefix comes first.
  EXPECT_EQ(json_text(Mapping{{"\xF0\x9F\x98\x80", 1}, {"\xEF\xBF\xBD", 2}}),
            R"({"\ufffd":2,"\ud83d\ude00":1})");
  EXPECT_EQ(json_text(Mapping{{"\xC3\xA9", 1}, {"~", 2}}), R"({"~":2,"\u00e9":1})");
  EXPECT_EQ(json_text(Mapping{{"ab", 1}, {"a", 2}, {"B", 3}, {"", 4}}),
            R"({"":4,"B":3,"a":2,"ab":1})");
}

TEST(JsonText, SortsManyKeys) {
  Mapping mapping;
  std::string expected;
  for (int i = 0; i < 100; ++i) {
    const int number = 100 + i;
    expected += (i == 0 ? "{" : ",") + ("\"" + std::to_string(number) + "\":0");
    mapping.set(std::to_string(100 + (i * 37) % 100), 0);
  }
  EXPECT_EQ(json_text(mapping), expected + "}");
}

TEST(JsonText, WritesKeysThatAreNoTextsAsTexts) {
  EXPECT_EQ(json_text(Mapping{{Value(), 1}}), R"({"null":1})");
  EXPECT_EQ(json_text(Mapping{{10, 1}, {9, 2}, {true, 3}, {0.5, 4}}),
            R"({"0.5":4,"true":3,"9":2,"10":1})");
  EXPECT_EQ(json_text(Mapping{{std::nan(""), 1}}), R"({"NaN":1})");
  EXPECT_EQ(json_text(Mapping{{to_integer("100000000000000000000"), 1}}),
            R"({"100000000000000000000":1})");
}

TEST(JsonText, RefusesKeysThatJsonCannotHold) {
  EXPECT_EQ(error_of([] {
              return json_text(Mapping{{Tuple{1}, 1}});
            }),
            "TypeError: keys must be str, int, float, bool or None, not tuple");
  EXPECT_EQ(error_of([] {
              return json_text(Mapping{{1, 1}, {"a", 2}});
            }),
            "TypeError: '<' not supported between instances of 'str' and 'int'");
  EXPECT_EQ(error_of([] {
              return json_text(Mapping{{Value(), 1}, {"a", 2}});
            }),
            "TypeError: '<' not supported between instances of 'str' and 'NoneType'");
}

TEST(JsonText, RefusesObjectsThatHaveNone) {
  const Value object = test::scripted_object(Mapping(), nullptr, "Statistics");
  EXPECT_EQ(error_of([&] {
              return json_text(List{1, object});
            }),
            "TypeError: Object of type Statistics is not JSON serializable");
}

// A text that is not valid Unicode, as an object of the host.
class StrayText : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "str"; }
  [[nodiscard]] Kind exact_kind() const override { return Kind::kText; }
  bool append_json(std::string& out) const override {
    out += R"("\ud800")";
    return true;
  }
};

TEST(JsonText, AnObjectWritesItself) {
  EXPECT_EQ(json_text(List{make_object<StrayText>()}), R"(["\ud800"])");
  EXPECT_EQ(json_text(Mapping{{make_object<StrayText>(), 1}}), R"({"\ud800":1})");
}

// An object that changes what it is written in.
class Intruder : public HostObject {
 public:
  explicit Intruder(std::function<void()> change) : change_(std::move(change)) {}
  [[nodiscard]] std::string type_name() const override { return "Intruder"; }
  bool append_json(std::string& out) const override {
    change_();
    out += "0";
    return true;
  }

 private:
  std::function<void()> change_;
};

TEST(JsonText, NoticesAMappingThatChangesUnderIt) {
  Mapping mapping;
  mapping.set("a", make_object<Intruder>([&mapping] { mapping.set("c", 1); }));
  mapping.set("b", 2);
  EXPECT_EQ(error_of([&] { return json_text(mapping); }),
            "RuntimeError: dictionary changed size during iteration");
  mapping.set("a", Value());
}

TEST(JsonText, WritesWhatAListHoldsWhenItsTurnComes) {
  List list;
  list.append(make_object<Intruder>([&list] {
    for (int i = 0; i < 100 && list.size() < 100; ++i)
      list.append(i);
  }));
  const std::string text = json_text(list);
  EXPECT_EQ(text.substr(0, 10), "[0,0,1,2,3");
  EXPECT_EQ(text.substr(text.size() - 4), ",98]");
  list.set(0, Value());
}

TEST(JsonText, KeepsAliveWhatItIsWriting) {
  // The object lets go of the list that it stands in, and of itself.
  List outer;
  outer.append(List{make_object<Intruder>([&outer] { outer.set(0, Value()); }), 1});
  EXPECT_EQ(json_text(outer), "[[0,1]]");
  EXPECT_EQ(json_text(outer), "[null]");
}

TEST(JsonText, ReadsContainersOfTheHost) {
  const Value value = Mapping{{"b", List{1, Mapping{{"d", 1}, {"c", 2}}}}, {"a", Tuple{1}}};
  EXPECT_EQ(json_text(test::as_host_containers(value)), json_text(value));
}

TEST(JsonText, NamesAValueThatContainsItself) {
  List list;
  list.append(Mapping{{"list", list}});
  EXPECT_EQ(error_of([&] { return json_text(list); }), "ValueError: Circular reference detected");
  list.set(0, Value());

  const auto host = std::make_shared<test::HostMapping>();
  host->entries.push_back({"self", test::mapping_of(host)});
  EXPECT_EQ(error_of([&] { return json_text(test::mapping_of(host)); }),
            "ValueError: Circular reference detected");
  host->entries.clear();
}

TEST(JsonText, OfAValueMetTwiceIsNoCircle) {
  const List shared{1};
  EXPECT_EQ(json_text(List{shared, shared}), "[[1],[1]]");
}

TEST(JsonText, OfAValueNestedTooDeepIsAnOrdinaryError) {
  Value value = List{};
  for (int i = 0; i < kMaximumNesting - 1; ++i)
    value = i % 2 == 0 ? Value(List{value}) : Value(Mapping{{"k", value}});
  EXPECT_EQ(error_of([&] { return json_text(value); }), "no error");
  value = List{value};
  EXPECT_EQ(error_of([&] { return json_text(value); }),
            "RecursionError: maximum recursion depth exceeded while encoding a JSON object");
  for (int i = 0; i < 100'000; ++i)
    value = i % 2 == 0 ? Value(List{value}) : Value(Mapping{{"k", value}});
  EXPECT_EQ(error_of([&] { return json_text(value); }),
            "RecursionError: maximum recursion depth exceeded while encoding a JSON object");
}

}  // namespace
}  // namespace varnholt::genetic
