// The search's random numbers from the library's own Mersenne Twister.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/host/secure_random.hpp"
#include "search_templates/genetic/value/mersenne_twister.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class TwisterGenerator : public genetic::RandomGenerator {
 public:
  explicit TwisterGenerator(genetic::MersenneTwister twister) : twister_(twister) {}

  [[nodiscard]] double random() override { return twister_.random(); }
  [[nodiscard]] std::uint64_t getrandbits(int count) override {
    return twister_.getrandbits(count);
  }
  [[nodiscard]] genetic::Value getstate() const override;

 private:
  genetic::MersenneTwister twister_;
};

class TwisterGenerators : public genetic::RandomGenerators {
 public:
  // The seed is an integer of at most 63 bits, as the template's seeds are; genetic::ValueError for
  // another.
  [[nodiscard]] std::shared_ptr<genetic::RandomGenerator> seeded(
      const genetic::Value& seed) override;
  // The state is one of TwisterGenerator's; genetic::TypeError for another.
  [[nodiscard]] std::shared_ptr<genetic::RandomGenerator> from_state(
      const genetic::Value& state) override;
};

// Random bits from the operating system, or always the same ones, by which a run is repeated.
class SystemRandom : public genetic::SecureRandom {
 public:
  explicit SystemRandom(std::optional<std::uint64_t> fixed = std::nullopt) : fixed_(fixed) {}

  // std::system_error when the operating system has none to give.
  [[nodiscard]] std::uint64_t randbits(int count) override;

 private:
  std::optional<std::uint64_t> fixed_;
};

}  // namespace varnholt::embedded
