// Generators are clones of a state: the same state gives the same draws, and drawing changes
// neither the state nor another clone.
#include "search_templates/genetic/host/twister_generators.hpp"

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {
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
  const Value state = generator->getstate();
  const double expected = generator->random();
  EXPECT_EQ(generators.from_state(state)->random(), expected);
  EXPECT_EQ(generators.from_state(state)->random(), expected);
}

TEST(TwisterGenerators, RefuseWhatIsNoSeedAndNoState) {
  TwisterGenerators generators;
  EXPECT_THROW(static_cast<void>(generators.seeded(-1)), ValueError);
  EXPECT_THROW(static_cast<void>(generators.seeded("7")), ValueError);
  EXPECT_THROW(static_cast<void>(generators.from_state(7)), TypeError);
  EXPECT_THROW(static_cast<void>(generators.from_state(Value())), TypeError);
}

}  // namespace
}  // namespace varnholt::genetic
