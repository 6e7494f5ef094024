// Goal: sort keys are compared as the host's language compares tuples. Method: a table of pairs of
// keys with NaNs, integers of any size and objects in them.
#include "search_templates/genetic/value/tuple_order.hpp"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

template <typename Left, typename Right>
bool is_less(const Left& left, const Right& right) {
  return TupleOrder().then(left, right).is_less();
}

TEST(TupleOrder, FirstPairThatIsNotEqualDecides) {
  EXPECT_TRUE(TupleOrder().then(1, 1).then(0.5, 1.0).then(9, 1).is_less());
  EXPECT_FALSE(TupleOrder().then(1, 1).then(1.5, 1.0).then(1, 9).is_less());
  EXPECT_TRUE(TupleOrder().then(2, 2).then(1.0, 1.0).then(Value(1), Value(2)).is_less());
}

TEST(TupleOrder, EqualKeysAreNotLess) {
  const TupleOrder order = TupleOrder().then(1, 1).then(Value("a"), Value("a"));
  EXPECT_FALSE(order.is_less());
  EXPECT_FALSE(order.is_decided());
  EXPECT_FALSE(TupleOrder().is_less());
}

TEST(TupleOrder, NaNDecidesAndIsNeverLess) {
  EXPECT_FALSE(TupleOrder().then(kNan, 1.0).then(0, 1).is_less());
  EXPECT_FALSE(TupleOrder().then(1.0, kNan).then(0, 1).is_less());
  EXPECT_FALSE(TupleOrder().then(kNan, kNan).then(0, 1).is_less());
  EXPECT_FALSE(TupleOrder().then(Value(kNan), Value(kNan)).then(0, 1).is_less());
}

TEST(TupleOrder, TheSameNaNIsEqualByIdentity) {
  const Value nan(kNan);
  EXPECT_TRUE(TupleOrder().then(nan, nan).then(0, 1).is_less());
}

TEST(TupleOrder, NumbersOfAllKindsCompare) {
  EXPECT_FALSE(is_less(0.0, -0.0));
  EXPECT_FALSE(is_less(-0.0, 0.0));
  EXPECT_TRUE(is_less(-kInfinity, kInfinity));
  EXPECT_TRUE(is_less(Value(1), Value(1.5)));
  EXPECT_TRUE(TupleOrder().then(Value(1), Value(1.0)).then(Value(true), Value(2)).is_less());
  const Value big = integer_sum(std::numeric_limits<std::int64_t>::max(), 1);
  EXPECT_TRUE(is_less(Value(std::numeric_limits<std::int64_t>::max()), big));
  EXPECT_FALSE(is_less(big, Value(3)));
}

TEST(TupleOrder, WhatHasNoOrderFailsUnlessItIsDecidedBefore) {
  EXPECT_EQ(error_of([] { return is_less(Value("a"), Value(1)); }),
            "TypeError: '<' not supported between instances of 'str' and 'int'");
  EXPECT_TRUE(TupleOrder().then(1, 2).then(Value("a"), Value(1)).is_less());
  const Value object = scripted_object(Mapping());
  EXPECT_FALSE(is_less(object, object));
}

}  // namespace
}  // namespace varnholt::genetic::test
