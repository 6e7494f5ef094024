// The complete mapping of operator rates: given rates override the defaults, and each bad mapping
// has its own error. Method: small default mappings and one bad entry at a time.
#include "search_templates/genetic/settings/operator_rates.hpp"

#include <cmath>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;

Mapping defaults() {
  return {{"crossover", 0.6}, {"point", 0.3}, {"hoist", 0.1}};
}

// A key that is not a text but has a text form.
class NamedKey : public HostObject {
 public:
  explicit NamedKey(std::string text, std::string equal_to)
      : text_(std::move(text)), equal_to_(std::move(equal_to)) {}
  [[nodiscard]] std::string type_name() const override { return "NamedKey"; }
  [[nodiscard]] std::string str() const override { return text_; }
  [[nodiscard]] std::uint64_t hash() const override { return genetic::hash(Value(equal_to_)); }
  [[nodiscard]] bool equals(const Value& other) const override {
    return other.is_text() && other.text() == equal_to_;
  }

 private:
  std::string text_;
  std::string equal_to_;
};

// A mapping that is not of the exact mapping type.
class AnyMapping : public HostObject {
 public:
  explicit AnyMapping(Mapping mapping) : mapping_(std::move(mapping)) {}
  [[nodiscard]] std::string type_name() const override { return "AnyMapping"; }
  [[nodiscard]] std::optional<Mapping> as_mapping() const override { return mapping_; }
  [[nodiscard]] std::unique_ptr<ValueIterator> iterate() const override {
    return genetic::iterate(mapping_);
  }

 private:
  Mapping mapping_;
};

TEST(OperatorRates, AbsentGivesACopyOfTheDefaults) {
  const Mapping given = defaults();
  Mapping rates = complete_operator_rates(Value(), given);
  EXPECT_EQ(repr(rates), "{'crossover': 0.6, 'point': 0.3, 'hoist': 0.1}");
  rates.set("point", 9.0);
  EXPECT_EQ(given.at("point").real(), 0.3);
}

TEST(OperatorRates, AbsentIsNotValidated) {
  EXPECT_EQ(repr(complete_operator_rates(Value(), {{"a", 0.0}})), "{'a': 0.0}");
  EXPECT_TRUE(complete_operator_rates(Value(), Mapping()).empty());
}

TEST(OperatorRates, EmptyGivesTheDefaultsAndAPartialMappingOverridesSome) {
  EXPECT_EQ(repr(complete_operator_rates(Mapping(), defaults())), repr(defaults()));
  // The order of the defaults stays; numbers become reals.
  EXPECT_EQ(repr(complete_operator_rates(Mapping{{"hoist", 1}, {"crossover", "0.5"}}, defaults())),
            "{'crossover': 0.5, 'point': 0.3, 'hoist': 1.0}");
}

TEST(OperatorRates, ADefaultThatIsATextIsNoRate) {
  EXPECT_EQ(error_of([] {
              return complete_operator_rates(Mapping{{"a", 1.0}}, {{"a", 0.0}, {"b", "0.5"}});
            }),
            "TypeError: unsupported operand type(s) for +: 'float' and 'str'");
}

TEST(SumOfRates, AddsUpFromLeftToRightWithoutCompensation) {
  EXPECT_EQ(sum_of_rates(Mapping()), 0.0);
  EXPECT_EQ(sum_of_rates({{"crossover", 1}, {"unknown", 0.5}}), 1.5);
  // A compensated sum would be 2.0.
  EXPECT_EQ(sum_of_rates({{"a", 1.0}, {"b", 1e100}, {"c", 1.0}, {"d", -1e100}}), 0.0);
}

TEST(OperatorRates, NeverWriteIntoWhatWasGiven) {
  const Mapping given{{"hoist", 1}};
  const Mapping base = defaults();
  static_cast<void>(complete_operator_rates(given, base));
  EXPECT_EQ(repr(given), "{'hoist': 1}");
  EXPECT_EQ(repr(base), repr(defaults()));
}

TEST(OperatorRates, AnyMappingWillDo) {
  const Mapping given{{"hoist", 2}};
  EXPECT_EQ(complete_operator_rates(test::as_host_containers(given), defaults()).at("hoist").real(),
            2.0);
  EXPECT_EQ(complete_operator_rates(make_object<AnyMapping>(given), defaults()).at("hoist").real(),
            2.0);
  for (const Value& value : {Value(5), Value("crossover"), Value(List{}), Value(Tuple{})}) {
    EXPECT_EQ(error_of([&] { return complete_operator_rates(value, defaults()); }),
              "TypeError: genetic operator_rates must be a dictionary");
  }
}

TEST(OperatorRates, UnknownKeysAreListedSortedByTheirText) {
  EXPECT_EQ(error_of([] {
              return complete_operator_rates(
                  Mapping{{"z", -1}, {"point", "bad"}, {"a", 1}, {10, 1}, {9, 1}}, defaults());
            }),
            "ValueError: genetic operator_rates has unknown keys: 10, 9, a, z");
  // Two keys with one text form are both listed, although the text is a known name.
  EXPECT_EQ(error_of([] {
              return complete_operator_rates(Mapping{{make_object<NamedKey>("point", "p1"), 1},
                                                     {make_object<NamedKey>("point", "p2"), 1}},
                                             defaults());
            }),
            "ValueError: genetic operator_rates has unknown keys: point, point");
}

TEST(OperatorRates, TheKeyIsTestedAndItsTextIsStored) {
  const Mapping rates =
      complete_operator_rates(Mapping{{make_object<NamedKey>("POINT", "point"), 0.7}}, defaults());
  EXPECT_EQ(repr(rates), "{'crossover': 0.6, 'point': 0.3, 'hoist': 0.1, 'POINT': 0.7}");
}

TEST(OperatorRates, BadRatesAreNamedInTheOrderGiven) {
  EXPECT_EQ(error_of([] {
              return complete_operator_rates(Mapping{{"point", "much"}, {"hoist", -1}}, defaults());
            }),
            "TypeError: genetic operator_rates.point must be a finite number");
  EXPECT_EQ(error_of([] {
              return complete_operator_rates(Mapping{{"hoist", -1}, {"point", "much"}}, defaults());
            }),
            "ValueError: genetic operator_rates.hoist must be non-negative");
  EXPECT_EQ(error_of([] {
              return complete_operator_rates(Mapping{{"hoist", "inf"}}, defaults());
            }),
            "ValueError: genetic operator_rates.hoist must be finite");
}

TEST(OperatorRates, SomeRateMustBePositive) {
  const std::string message =
      "ValueError: genetic operator_rates must contain at least one positive rate";
  EXPECT_EQ(error_of([] {
              return complete_operator_rates(
                  Mapping{{"crossover", 0}, {"point", 0}, {"hoist", -0.0}}, defaults());
            }),
            message);
  EXPECT_EQ(error_of([] { return complete_operator_rates(Mapping(), {{"a", 0.0}}); }), message);
  EXPECT_EQ(error_of([] { return complete_operator_rates(Mapping(), Mapping()); }), message);
  EXPECT_EQ(repr(complete_operator_rates(Mapping{{"crossover", 0}, {"point", 0}}, defaults())),
            "{'crossover': 0.0, 'point': 0.0, 'hoist': 0.1}");
}

}  // namespace
}  // namespace varnholt::genetic
