// The bits of a seed: the operating system's, or always the same ones.
#include "hosts/embedded/host/system_random.hpp"

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::embedded::test {
namespace {

TEST(SystemRandom, FixedBitsAreTheLowestOnesOfTheirNumber) {
  SystemRandom fixed(0xFFFFFFFFFFFFFFFFU);
  EXPECT_EQ(fixed.randbits(63), 0x7FFFFFFFFFFFFFFFU);
  EXPECT_EQ(fixed.randbits(64), 0xFFFFFFFFFFFFFFFFU);
  EXPECT_EQ(fixed.randbits(1), 1U);
  EXPECT_EQ(fixed.randbits(0), 0U);
  EXPECT_THROW(static_cast<void>(fixed.randbits(65)), genetic::ValueError);
}

TEST(SystemRandom, TheOperatingSystemGivesOtherBitsEachTime) {
  SystemRandom random;
  const std::uint64_t first = random.randbits(63);
  EXPECT_EQ(first >> 63U, 0U);
  EXPECT_NE(first, random.randbits(63));  // Equal once in 2**63.
}

}  // namespace
}  // namespace varnholt::embedded::test
