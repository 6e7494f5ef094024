// The validators of settings: what each accepts, and the kind and text of each refusal in the order
// in which they are tested.
#include "search_templates/genetic/settings/validators.hpp"

#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Converts with an error of its own.
class Stubborn : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Stubborn"; }
  [[nodiscard]] double to_float() const override { throw RuntimeError("not now"); }
};

Value huge_integer() {
  return to_integer("1" + std::string(400, '0'));
}

TEST(PositiveInt, AcceptsExactIntegersAboveZero) {
  EXPECT_EQ(positive_int(1, "batch_size").integer(), 1);
  EXPECT_TRUE(positive_int(huge_integer(), "batch_size") == huge_integer());
}

TEST(PositiveInt, RefusesOtherTypesFirst) {
  const std::string message = "TypeError: genetic batch_size must be an integer";
  for (const Value& value : {Value(true), Value(false), Value(1.0), Value("1"), Value(),
                             Value(List{}), test::scripted_object(Mapping())}) {
    EXPECT_EQ(error_of([&] { return positive_int(value, "batch_size"); }), message);
  }
}

TEST(PositiveInt, RefusesZeroAndBelow) {
  const std::string message = "ValueError: genetic batch_size must be positive";
  EXPECT_EQ(error_of([] { return positive_int(0, "batch_size"); }), message);
  EXPECT_EQ(error_of([] { return positive_int(-1, "batch_size"); }), message);
  EXPECT_EQ(
      error_of([] { return positive_int(to_integer("-1" + std::string(30, '0')), "batch_size"); }),
      message);
}

TEST(OptionalNonnegativeInt, AcceptsAbsentAndZero) {
  EXPECT_TRUE(optional_nonnegative_int(Value(), "max_improvement_depth").is_absent());
  EXPECT_EQ(optional_nonnegative_int(0, "max_improvement_depth").integer(), 0);
  EXPECT_TRUE(optional_nonnegative_int(huge_integer(), "x") == huge_integer());
}

TEST(OptionalNonnegativeInt, RefusesOtherTypesAndNegatives) {
  const std::string message = "TypeError: genetic x must be an integer or None";
  for (const Value& value : {Value(true), Value(0.0), Value("0"), Value(Tuple{})}) {
    EXPECT_EQ(error_of([&] { return optional_nonnegative_int(value, "x"); }), message);
  }
  EXPECT_EQ(error_of([] { return optional_nonnegative_int(-1, "x"); }),
            "ValueError: genetic x must be non-negative");
}

// The rules that the three validators of reals share.
template <typename Validate>
void check_reals(const Validate& validate, const std::string& type_message) {
  EXPECT_EQ(validate("0.5"), 0.5);
  EXPECT_EQ(validate(" 1_0.5 "), 10.5);
  EXPECT_EQ(validate("\xD9\xA3"), 3.0);  // An Arabic-Indic digit.
  EXPECT_EQ(validate(true), 1.0);
  EXPECT_EQ(validate(3), 3.0);
  EXPECT_EQ(validate(to_integer("100000000000000000000")), 1e20);
  for (const Value& value :
       {Value("abc"), Value(""), Value(List{}), huge_integer(), test::scripted_object(Mapping())}) {
    EXPECT_EQ(error_of([&] { return validate(value); }), "TypeError: " + type_message);
  }
  for (const Value& value : {Value(std::nan("")), Value(kInfinity), Value(-kInfinity), Value("nan"),
                             Value("-inf"), Value("1e999")}) {
    EXPECT_EQ(error_of([&] { return validate(value); }), "ValueError: genetic x must be finite");
  }
  // Any other failure of the conversion is the caller's.
  EXPECT_EQ(error_of([&] { return validate(make_object<Stubborn>()); }), "RuntimeError: not now");
}

TEST(PositiveFloat, AcceptsWhatConvertsAndIsAboveZero) {
  check_reals([](const Value& value) { return positive_float(value, "x"); },
              "genetic x must be a finite number");
  EXPECT_EQ(positive_float("0.5", "elite_fraction"), 0.5);
  EXPECT_EQ(positive_float(5e-324, "x"), 5e-324);
  EXPECT_EQ(error_of([] { return positive_float(Value(), "x"); }),
            "TypeError: genetic x must be a finite number");
  for (const Value& value : {Value(0.0), Value(-0.0), Value(false), Value("-1"), Value(-5)}) {
    EXPECT_EQ(error_of([&] { return positive_float(value, "x"); }),
              "ValueError: genetic x must be positive");
  }
}

TEST(NonnegativeFloat, AcceptsWhatConvertsAndIsNotBelowZero) {
  check_reals([](const Value& value) { return nonnegative_float(value, "x"); },
              "genetic x must be a finite number");
  EXPECT_EQ(nonnegative_float(0, "x"), 0.0);
  EXPECT_EQ(error_of([] { return nonnegative_float(Value(), "x"); }),
            "TypeError: genetic x must be a finite number");
  EXPECT_EQ(error_of([] { return nonnegative_float(-5e-324, "x"); }),
            "ValueError: genetic x must be non-negative");
}

TEST(NonnegativeFloat, KeepsTheSignOfZero) {
  EXPECT_TRUE(std::signbit(nonnegative_float(-0.0, "x").real()));
  EXPECT_TRUE(std::signbit(optional_nonnegative_float("-0.0", "x").real()));
}

TEST(OptionalNonnegativeFloat, AcceptsAbsentAsWell) {
  check_reals([](const Value& value) { return optional_nonnegative_float(value, "x"); },
              "genetic x must be a finite number or None");
  EXPECT_TRUE(optional_nonnegative_float(Value(), "x").is_absent());
  EXPECT_EQ(optional_nonnegative_float(0.0, "x"), 0.0);
  EXPECT_EQ(error_of([] { return optional_nonnegative_float(-1, "x"); }),
            "ValueError: genetic x must be non-negative");
}

}  // namespace
}  // namespace varnholt::genetic
