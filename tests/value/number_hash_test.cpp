// Numbers of different kinds compare by their exact values and hash alike where they are equal.
//
// Method: CPython's values at the edges by hand; random integers and doubles that are equal, or
// differ by one, must agree between hash and comparison.
#include "search_templates/genetic/value/number_hash.hpp"

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "tests/support/python_process.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(NumberHash, GivesCPythonsHashOfIntegers) {
  EXPECT_EQ(hash_integer(0), 0);
  EXPECT_EQ(hash_integer(1), 1);
  EXPECT_EQ(hash_integer(-1), -2);
  EXPECT_EQ(hash_integer(-2), -2);
  EXPECT_EQ(hash_integer((std::int64_t{1} << 61) - 1), 0);
  EXPECT_EQ(hash_integer(std::int64_t{1} << 61), 1);
  EXPECT_EQ(hash_integer(-(std::int64_t{1} << 61)), -2);
  EXPECT_EQ(hash_integer(kLargest), 3);
  EXPECT_EQ(hash_integer(kSmallest), -4);
}

TEST(NumberHash, GivesCPythonsHashOfFloats) {
  EXPECT_EQ(hash_real(0.0), 0);
  EXPECT_EQ(hash_real(-0.0), 0);
  EXPECT_EQ(hash_real(-1.0), -2);
  EXPECT_EQ(hash_real(0.5), 1152921504606846976);
  EXPECT_EQ(hash_real(0.1), 230584300921369408);
  EXPECT_EQ(hash_real(-1e300), -1224995262755759164);
  EXPECT_EQ(hash_real(5e-324), 16777216);
  EXPECT_EQ(hash_real(kInfinity), 314159);
  EXPECT_EQ(hash_real(-kInfinity), -314159);
  EXPECT_EQ(hash_real(std::nan("")), 0);
}

TEST(NumberHash, OrdersWithoutRounding) {
  constexpr std::int64_t kEnd = std::int64_t{1} << 53;  // Of the integers that doubles hold.
  EXPECT_EQ(compare_exactly(kEnd, 9007199254740992.0), std::partial_ordering::equivalent);
  EXPECT_EQ(compare_exactly(kEnd + 1, 9007199254740992.0), std::partial_ordering::greater);
  EXPECT_EQ(compare_exactly(kLargest, 9223372036854775808.0), std::partial_ordering::less);
  EXPECT_EQ(compare_exactly(kSmallest, -9223372036854775808.0), std::partial_ordering::equivalent);
  EXPECT_EQ(compare_exactly(kSmallest, -9223372036854777856.0), std::partial_ordering::greater);
  EXPECT_EQ(compare_exactly(2, 2.5), std::partial_ordering::less);
  EXPECT_EQ(compare_exactly(-2, -2.5), std::partial_ordering::greater);
  EXPECT_EQ(compare_exactly(0, -0.0), std::partial_ordering::equivalent);
  EXPECT_EQ(compare_exactly(0, 5e-324), std::partial_ordering::less);
  EXPECT_EQ(compare_exactly(kLargest, kInfinity), std::partial_ordering::less);
  EXPECT_EQ(compare_exactly(kSmallest, -kInfinity), std::partial_ordering::greater);
  EXPECT_EQ(compare_exactly(0, std::nan("")), std::partial_ordering::unordered);
}

TEST(NumberHash, IsTheSameForEqualNumbers) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  std::mt19937_64 random(seed);
  for (int round = 0; round < 5000; ++round) {
    // A double that is an integer of at most 62 bits, and that integer.
    const auto value = static_cast<double>(static_cast<std::int64_t>(random()) >> (1 + round % 60));
    const auto integer = static_cast<std::int64_t>(value);
    EXPECT_EQ(compare_exactly(integer, value), std::partial_ordering::equivalent) << integer;
    EXPECT_EQ(hash_integer(integer), hash_real(value)) << integer;
    EXPECT_EQ(compare_exactly(integer + 1, value), std::partial_ordering::greater) << integer;
    EXPECT_EQ(compare_exactly(integer - 1, value), std::partial_ordering::less) << integer;
  }
}

}  // namespace
}  // namespace varnholt::genetic
