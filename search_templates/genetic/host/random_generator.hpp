// The search's stream of random numbers: Mersenne Twister, as Python's `random.Random` has it.
//
// The order of draws is behaviour: a generator is handed on as an argument, never held by what
// draws from it, and never global.
#pragma once

#include <cstdint>
#include <memory>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class RandomGenerator {
 public:
  virtual ~RandomGenerator() = default;

  // A real from 0.0 up to but not including 1.0, with 53 random bits.
  [[nodiscard]] virtual double random() = 0;
  // `count` random bits, 0 to 64.
  [[nodiscard]] virtual std::uint64_t getrandbits(int count) = 0;
  // The state, opaque: it can be kept, and restored by RandomGenerators::from_state.
  [[nodiscard]] virtual Value getstate() const = 0;
};

// A uniform integer from 0 up to but not including `bound`, which must be above 0. Draws as many
// bits as `bound` has, again and again until they are below it, as Python's randrange does.
[[nodiscard]] std::uint64_t random_below(RandomGenerator& generator, std::uint64_t bound);

// Makes generators.
class RandomGenerators {
 public:
  virtual ~RandomGenerators() = default;

  // Seeded from an integer.
  [[nodiscard]] virtual std::shared_ptr<RandomGenerator> seeded(const Value& seed) = 0;
  // A clone on `state`: advancing it changes neither the state nor any other clone.
  [[nodiscard]] virtual std::shared_ptr<RandomGenerator> from_state(const Value& state) = 0;
};

}  // namespace varnholt::genetic
