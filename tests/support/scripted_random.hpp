// The hand-made random generators: real Mersenne Twisters unless a test scripts their draws.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/host/secure_random.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/mersenne_twister.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {

// A generator of real random numbers, or of scripted ones: whatever `on_random` and
// `on_getrandbits` give while they are set.
class ScriptedGenerator : public RandomGenerator {
 public:
  ScriptedGenerator(CallLog& log, MersenneTwister twister) : log_(log), twister_(twister) {}

  std::function<double()> on_random;
  std::function<std::uint64_t(int)> on_getrandbits;

  [[nodiscard]] double random() override {
    log_.add("rng.random()");
    return on_random ? on_random() : twister_.random();
  }
  [[nodiscard]] std::uint64_t getrandbits(int count) override {
    log_.add("rng.getrandbits", {count});
    return on_getrandbits ? on_getrandbits(count) : twister_.getrandbits(count);
  }
  [[nodiscard]] Value getstate() const override {
    log_.add("rng.getstate()");
    return make_object<State>(twister_.state());
  }

  // The state as a value. Equal states are equal values.
  class State : public HostObject {
   public:
    explicit State(const MersenneTwisterState& words) : words_(words) {}

    [[nodiscard]] const MersenneTwisterState& words() const noexcept { return words_; }
    [[nodiscard]] std::string type_name() const override { return "tuple"; }
    [[nodiscard]] std::string repr() const override {
      return "<state " + std::to_string(words_.words[0]) + " at " +
             std::to_string(words_.position) + ">";
    }
    [[nodiscard]] bool equals(const Value& other) const override {
      const auto* const state =
          other.is_object() ? dynamic_cast<const State*>(&other.object()) : nullptr;
      return state != nullptr && state->words_ == words_;
    }

   private:
    MersenneTwisterState words_;
  };

 private:
  CallLog& log_;
  MersenneTwister twister_;
};

// A generator whose draws are these, in order, and no more.
[[nodiscard]] inline std::shared_ptr<ScriptedGenerator> scripted_draws(
    CallLog& log, std::initializer_list<double> draws) {
  auto rng = std::make_shared<ScriptedGenerator>(log, MersenneTwister(1));
  rng->on_random = in_turn<double>(draws);
  return rng;
}

class ScriptedRandomGenerators : public RandomGenerators {
 public:
  explicit ScriptedRandomGenerators(CallLog& log) : log_(log) {}

  std::function<std::shared_ptr<RandomGenerator>(const Value&)> on_seeded =
      [this](const Value& seed) {
        const auto number = static_cast<std::uint64_t>(saturated_integer(seed));
        return std::make_shared<ScriptedGenerator>(log_, MersenneTwister(number));
      };
  std::function<std::shared_ptr<RandomGenerator>(const Value&)> on_from_state =
      [this](const Value& state) {
        const auto& words = dynamic_cast<ScriptedGenerator::State&>(state.object()).words();
        return std::make_shared<ScriptedGenerator>(log_, MersenneTwister(words));
      };

  [[nodiscard]] std::shared_ptr<RandomGenerator> seeded(const Value& seed) override {
    log_.add("random_generators.seeded", {seed});
    return on_seeded(seed);
  }
  [[nodiscard]] std::shared_ptr<RandomGenerator> from_state(const Value& state) override {
    log_.add("random_generators.from_state", {state});
    return on_from_state(state);
  }

 private:
  CallLog& log_;
};

class ScriptedSecureRandom : public SecureRandom {
 public:
  explicit ScriptedSecureRandom(CallLog& log) : log_(log) {}

  std::function<std::uint64_t(int)> on_randbits = always(20240229U);

  [[nodiscard]] std::uint64_t randbits(int count) override {
    log_.add("secure_random.randbits", {count});
    return on_randbits(count);
  }

 private:
  CallLog& log_;
};

}  // namespace varnholt::genetic::test
