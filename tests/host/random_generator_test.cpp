// Uniform integers below a bound take as many bits as the bound has, again and again until they are
// below it. Method: a generator whose bits are scripted, and CPython's sequence from a seed.
#include "search_templates/genetic/host/random_generator.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/scripted_random.hpp"

namespace varnholt::genetic {
namespace {

using test::CallLog;
using test::in_turn;
using test::ScriptedGenerator;
using ::testing::ElementsAre;

TEST(RandomBelow, DrawsAgainUntilTheBitsAreBelowTheBound) {
  CallLog log;
  ScriptedGenerator generator(log, MersenneTwister(1));
  generator.on_getrandbits = in_turn<std::uint64_t>({7, 5, 4});
  EXPECT_EQ(random_below(generator, 5), 4U);
  EXPECT_THAT(log.lines(),
              ElementsAre("rng.getrandbits(3)", "rng.getrandbits(3)", "rng.getrandbits(3)"));
}

TEST(RandomBelow, AsksForOneBitMoreThanAPowerOfTwoNeeds) {
  CallLog log;
  ScriptedGenerator generator(log, MersenneTwister(1));
  generator.on_getrandbits = in_turn<std::uint64_t>({8, 3, 0, ~std::uint64_t{0}, 1});
  EXPECT_EQ(random_below(generator, 8), 3U);
  EXPECT_EQ(random_below(generator, 1), 0U);
  EXPECT_EQ(random_below(generator, std::uint64_t{1} << 63U), 1U);
  EXPECT_THAT(log.lines(),
              ElementsAre("rng.getrandbits(4)", "rng.getrandbits(4)", "rng.getrandbits(1)",
                          "rng.getrandbits(64)", "rng.getrandbits(64)"));
}

TEST(RandomBelow, GivesWhatRandrangeGives) {
  CallLog log;
  // [random.Random(42).randrange(100) for each of five draws] of CPython.
  ScriptedGenerator generator(log, MersenneTwister(42));
  std::vector<std::uint64_t> draws;
  for (int i = 0; i < 5; ++i)
    draws.push_back(random_below(generator, 100));
  EXPECT_THAT(draws, ElementsAre(81U, 14U, 3U, 94U, 35U));
}

}  // namespace
}  // namespace varnholt::genetic
