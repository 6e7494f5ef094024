// Random numbers from Python: `random.Random`, `secrets`, and the pause of `time`.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include <nanobind/nanobind.h>

#include "search_templates/genetic/host/pause.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/host/secure_random.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// Over a `random.Random`, or whatever else offers its methods.
class PythonRandomGenerator : public genetic::RandomGenerator {
 public:
  explicit PythonRandomGenerator(nb::object generator) : generator_(std::move(generator)) {}

  [[nodiscard]] const nb::object& object() const noexcept { return generator_; }

  [[nodiscard]] double random() override;
  [[nodiscard]] std::uint64_t getrandbits(int count) override;
  // The state object itself, not looked into.
  [[nodiscard]] genetic::Value getstate() const override;

 private:
  nb::object generator_;
};

class PythonRandomGenerators : public genetic::RandomGenerators {
 public:
  [[nodiscard]] std::shared_ptr<genetic::RandomGenerator> seeded(
      const genetic::Value& seed) override;
  [[nodiscard]] std::shared_ptr<genetic::RandomGenerator> from_state(
      const genetic::Value& state) override;
};

// secrets.randbits, looked up at each call.
class PythonSecureRandom : public genetic::SecureRandom {
 public:
  [[nodiscard]] std::uint64_t randbits(int count) override;
};

// time.sleep, which a signal's handler interrupts.
class PythonPause : public genetic::Pause {
 public:
  void sleep(double seconds) override;
};

// None is no generator.
[[nodiscard]] std::shared_ptr<genetic::RandomGenerator> generator_or_null(nb::handle generator);
// The Python generator behind one of the library's; None behind null.
[[nodiscard]] nb::object object_of(const std::shared_ptr<genetic::RandomGenerator>& generator);

}  // namespace varnholt::python
