// The library's own random generators: Mersenne Twisters, bit for bit those of Python.
#pragma once

#include <cstdint>
#include <memory>

#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/mersenne_twister.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class TwisterGenerator : public RandomGenerator {
 public:
  explicit TwisterGenerator(MersenneTwister twister) : twister_(twister) {}

  [[nodiscard]] double random() override { return twister_.random(); }
  [[nodiscard]] std::uint64_t getrandbits(int count) override {
    return twister_.getrandbits(count);
  }
  [[nodiscard]] Value getstate() const override;

 private:
  MersenneTwister twister_;
};

class TwisterGenerators : public RandomGenerators {
 public:
  // The seed is an integer of at most 63 bits, as the template's seeds are; ValueError for another.
  [[nodiscard]] std::shared_ptr<RandomGenerator> seeded(const Value& seed) override;
  // The state is one of TwisterGenerator's; TypeError for another.
  [[nodiscard]] std::shared_ptr<RandomGenerator> from_state(const Value& state) override;
};

}  // namespace varnholt::genetic
