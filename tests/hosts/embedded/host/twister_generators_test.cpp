// Generators are clones of a state: the same state gives the same draws, and drawing changes
// neither the state nor another clone.
#include "hosts/embedded/host/twister_generators.hpp"

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::embedded {
namespace {

TEST(TwisterGenerators, TheSameSeedGivesTheSameDraws) {
  TwisterGenerators generators;
  const auto first = generators.seeded(42);
  const auto second = generators.seeded(42);
  for (int i = 0; i < 1000; ++i)
    ASSERT_EQ(first->random(), second->random());
  EXPECT_NE(generators.seeded(43)->random(), generators.seeded(42)->random());
}

TEST(TwisterGenerators, AStateIsRestoredAsOftenAsItIsAsked) {
  TwisterGenerators generators;
  const auto generator = generators.seeded(7);
  static_cast<void>(generator->getrandbits(13));
  const genetic::Value state = generator->getstate();
  const double expected = generator->random();
  EXPECT_EQ(generators.from_state(state)->random(), expected);
  EXPECT_EQ(generators.from_state(state)->random(), expected);
}

TEST(TwisterGenerators, RefuseWhatIsNoSeedAndNoState) {
  TwisterGenerators generators;
  EXPECT_THROW(static_cast<void>(generators.seeded(-1)), genetic::ValueError);
  EXPECT_THROW(static_cast<void>(generators.seeded("7")), genetic::ValueError);
  EXPECT_THROW(static_cast<void>(generators.from_state(7)), genetic::TypeError);
  EXPECT_THROW(static_cast<void>(generators.from_state(genetic::Value())), genetic::TypeError);
}

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
}  // namespace varnholt::embedded
