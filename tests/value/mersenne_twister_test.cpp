// The random generator draws bit for bit what CPython's random.Random draws.
//
// Method: plans of random draws (random_draws.py tells their form) are carried out here and by the
// installed CPython, from seeds and from states that either side has made, and compared word by
// word. Known values of CPython and every error stand by hand.
#include "search_templates/genetic/value/mersenne_twister.hpp"

#include <algorithm>
#include <bit>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "tests/support/python_process.hpp"

namespace varnholt::genetic {
namespace {

using testing_support::run_python;
using testing_support::ScriptInput;
using testing_support::split;

constexpr const char* kScript = "tests/value/random_draws.py";

std::string bits_of(double value) {
  char buffer[17];
  std::snprintf(buffer, sizeof buffer, "%016llx",
                static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(value)));
  return buffer;
}

std::string text_of(const MersenneTwisterState& state) {
  std::string text;
  for (const std::uint32_t word : state.words)
    text += std::to_string(word) + ",";
  return text + std::to_string(state.position) + ";" +
         (state.gauss_next ? bits_of(*state.gauss_next) : "none");
}

MersenneTwisterState state_of(const std::string& text) {
  const auto halves = split(text, ';');
  const auto integers = split(halves.at(0), ',');
  MersenneTwisterState state;
  for (std::size_t i = 0; i < state.words.size(); ++i) {
    state.words[i] = static_cast<std::uint32_t>(std::stoul(integers.at(i)));
  }
  state.position = static_cast<std::uint32_t>(std::stoul(integers.at(state.words.size())));
  if (halves.at(1) != "none") {
    const std::uint64_t bits = std::stoull(halves.at(1), nullptr, 16);
    state.gauss_next = std::bit_cast<double>(bits);
  }
  return state;
}

MersenneTwister generator_from(const std::string& start) {
  const auto parts = split(start, '=');
  if (parts.at(0) == "seed") return MersenneTwister(std::stoull(parts.at(1)));
  return MersenneTwister(state_of(parts.at(1)));
}

std::string drawn(MersenneTwister& generator, const std::string& draw) {
  const auto parts = split(draw, ':');
  const auto number = [&parts](std::size_t i) { return std::stoll(parts.at(i)); };
  switch (draw.front()) {
    case 'r':
      return bits_of(generator.random());
    case 'b':
      return std::to_string(generator.getrandbits(static_cast<int>(number(1))));
    case 't':
      return text_of(generator.state());
    default:
      return "this side cannot draw " + draw;
  }
}

// What the script writes for a plan.
std::string carried_out(const std::string& plan) {
  const auto parts = split(plan, ' ');
  MersenneTwister generator = generator_from(parts.front());
  std::string line;
  for (std::size_t i = 1; i < parts.size(); ++i) {
    line += (i > 1 ? " " : "") + drawn(generator, parts[i]);
  }
  return line;
}

void expect_same_draws(const std::vector<std::string>& plans) {
  const ScriptInput input(plans);
  const auto lines = run_python(kScript, {input.path()});
  ASSERT_EQ(lines.size(), plans.size());
  for (std::size_t i = 0; i < plans.size(); ++i)
    EXPECT_EQ(carried_out(plans[i]), lines[i]) << plans[i];
}

// Random draws of every kind, with widths and ranges of every size.
class Draws {
 public:
  explicit Draws(std::uint64_t seed) : random_(seed) {}

  std::uint64_t number(int bits) { return bits == 0 ? 0 : random_() >> (64 - bits); }
  std::uint64_t below(std::uint64_t limit) { return random_() % limit; }

  std::string seed() { return "seed=" + std::to_string(number(static_cast<int>(below(65)))); }

  std::string draw() { return below(3) == 0 ? "r" : "b:" + std::to_string(below(65)); }

  std::string plan(const std::string& start, int draws) {
    std::string text = start;
    for (int i = 0; i < draws; ++i)
      text += " " + draw();
    return text;
  }

 private:
  std::mt19937_64 random_;
};

TEST(MersenneTwister, GivesTheKnownDrawsOfCPython) {
  MersenneTwister zero(0);
  EXPECT_EQ(zero.random(), 0.8444218515250481);
  EXPECT_EQ(zero.random(), 0.7579544029403025);
  MersenneTwister generator(42);
  EXPECT_EQ(generator.random(), 0.6394267984578837);
  EXPECT_EQ(generator.getrandbits(32), 107420369u);
}

TEST(MersenneTwister, DrawsAsCPythonFromAThousandSeeds) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  Draws draws(seed);
  std::vector<std::string> plans;
  for (const char* start :
       {"seed=0", "seed=1", "seed=4294967295", "seed=4294967296", "seed=18446744073709551615"}) {
    plans.push_back(draws.plan(start, 10));
  }
  while (plans.size() < 1000)
    plans.push_back(draws.plan(draws.seed(), 10));
  // Long enough to renew all words several times.
  plans.push_back(draws.plan(draws.seed(), 3000));
  expect_same_draws(plans);
}

TEST(MersenneTwister, HandsItsStateToCPython) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  Draws draws(seed);
  std::vector<std::string> plans;
  for (int i = 0; i < 40; ++i) {
    MersenneTwister generator(draws.number(64));
    const std::uint64_t before = draws.below(700);
    for (std::uint64_t k = 0; k < before; ++k)
      static_cast<void>(generator.getrandbits(32));
    MersenneTwisterState state = generator.state();
    if (i % 3 == 0) state.gauss_next = 0.125 * i - 2.0;
    plans.push_back(draws.plan("state=" + text_of(state) + " t", 30) + " t");
  }
  expect_same_draws(plans);
}

TEST(MersenneTwister, GoesOnFromAStateOfCPython) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  Draws draws(seed);
  std::vector<std::string> plans;
  for (int i = 0; i < 40; ++i) {
    // One Gaussian draw leaves a second pending, two leave none.
    const std::string gaussian = i % 2 == 0 ? " n" : " n n";
    plans.push_back(draws.plan(draws.plan(draws.seed(), i * 9) + gaussian + " t", 30) + " t");
  }
  const ScriptInput input(plans);
  const auto lines = run_python(kScript, {input.path()});
  ASSERT_EQ(lines.size(), plans.size());
  for (std::size_t i = 0; i < plans.size(); ++i) {
    const auto asked = split(plans[i], ' ');
    const auto words = split(lines[i], ' ');
    ASSERT_EQ(words.size() + 1, asked.size());
    const auto first =
        static_cast<std::size_t>(std::find(asked.begin(), asked.end(), "t") - asked.begin());
    MersenneTwister generator(state_of(words[first - 1]));
    EXPECT_EQ(generator.state().gauss_next.has_value(), i % 2 == 0);
    for (std::size_t k = first; k < asked.size(); ++k) {
      EXPECT_EQ(drawn(generator, asked[k]), words[k - 1]) << asked[k];
    }
  }
}

TEST(MersenneTwister, RepeatsFromItsOwnStateAndSeed) {
  MersenneTwister generator(5);
  static_cast<void>(generator.random());
  const MersenneTwisterState state = generator.state();
  const double next = generator.random();
  EXPECT_NE(generator.state(), state);
  generator.set_state(state);
  EXPECT_EQ(generator.state(), state);
  EXPECT_EQ(generator.random(), next);
  MersenneTwisterState pending = state;
  pending.gauss_next = 1.0;
  EXPECT_NE(pending, state);
  generator.set_state(pending);
  generator.seed(5);
  EXPECT_EQ(generator.state(), MersenneTwister(5).state());
}

TEST(MersenneTwister, DrawsNothingForNoBit) {
  MersenneTwister generator(1);
  const MersenneTwisterState state = generator.state();
  EXPECT_EQ(generator.getrandbits(0), 0u);
  EXPECT_EQ(generator.state(), state);
}

template <typename ErrorKind, typename Action>
std::string error_of(Action action) {
  try {
    action();
  } catch (const ErrorKind& error) {
    return error.text();
  }
  return "no error";
}

TEST(MersenneTwister, RefusesWhatCPythonRefuses) {
  MersenneTwister generator(1);
  const MersenneTwisterState before = generator.state();
  EXPECT_EQ(error_of<ValueError>([&] { static_cast<void>(generator.getrandbits(-1)); }),
            "number of bits must be non-negative");
  EXPECT_NE(error_of<ValueError>([&] { static_cast<void>(generator.getrandbits(65)); }),
            "no error");
  EXPECT_EQ(generator.state(), before);
}

TEST(MersenneTwister, RefusesAStateBeyondItsWordsAndKeepsItsOwn) {
  MersenneTwister generator(1);
  const MersenneTwisterState before = generator.state();
  MersenneTwisterState state = MersenneTwister(2).state();
  state.position = 625;
  EXPECT_EQ(error_of<ValueError>([&] { generator.set_state(state); }), "invalid state");
  EXPECT_EQ(generator.state(), before);
  state.position = 624;
  generator.set_state(state);
  EXPECT_EQ(generator.state(), state);
}

}  // namespace
}  // namespace varnholt::genetic
