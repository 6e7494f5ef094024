// Conversions that answer "no": for exactly three kinds of error, and for no other.
#include "search_templates/genetic/value/tolerant.hpp"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace varnholt::genetic {
namespace {

template <typename Failure>
std::optional<int> tolerate_failure(const Failure& failure) {
  return tolerate([&]() -> int { throw Failure(failure); });
}

TEST(Tolerate, AnswersNothingForThreeKindsOfError) {
  EXPECT_FALSE(tolerate_failure(TypeError("x")).has_value());
  EXPECT_FALSE(tolerate_failure(ValueError("x")).has_value());
  EXPECT_FALSE(tolerate_failure(OverflowError("x")).has_value());
  EXPECT_EQ(tolerate([] { return 5; }), 5);
}

TEST(Tolerate, LetsEveryOtherErrorPass) {
  EXPECT_THROW(static_cast<void>(tolerate_failure(KeyError("x"))), KeyError);
  EXPECT_THROW(static_cast<void>(tolerate_failure(RuntimeError("x"))), RuntimeError);
  EXPECT_THROW(static_cast<void>(tolerate_failure(AttributeError("x"))), AttributeError);
  EXPECT_THROW(static_cast<void>(tolerate_failure(std::runtime_error("x"))), std::runtime_error);
}

TEST(TolerantConversions, GiveTheNumberOrNothing) {
  EXPECT_EQ(tolerant_float("0.5"), 0.5);
  EXPECT_FALSE(tolerant_float("half").has_value());
  EXPECT_FALSE(tolerant_float(Value()).has_value());
  EXPECT_FALSE(tolerant_float(to_integer("1" + std::string(400, '0'))).has_value());
  EXPECT_EQ(tolerant_integer(2.9)->integer(), 2);
  EXPECT_FALSE(tolerant_integer("2.9").has_value());
  EXPECT_FALSE(tolerant_integer(1.0 / 0.0).has_value());
}

}  // namespace
}  // namespace varnholt::genetic
