#include "search_templates/genetic/host/twister_generators.hpp"

#include <string>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"

namespace varnholt::genetic {
namespace {

class TwisterState : public HostObject {
 public:
  explicit TwisterState(const MersenneTwisterState& state) : state_(state) {}

  [[nodiscard]] const MersenneTwisterState& state() const { return state_; }
  [[nodiscard]] std::string type_name() const override { return "MersenneTwisterState"; }

 private:
  MersenneTwisterState state_;
};

}  // namespace

Value TwisterGenerator::getstate() const {
  return make_object<TwisterState>(twister_.state());
}

std::shared_ptr<RandomGenerator> TwisterGenerators::seeded(const Value& seed) {
  if (!seed.is_integer() || seed.integer() < 0) {
    throw ValueError("a seed is an integer from 0 to 9223372036854775807");
  }
  return std::make_shared<TwisterGenerator>(
      MersenneTwister(static_cast<std::uint64_t>(seed.integer())));
}

std::shared_ptr<RandomGenerator> TwisterGenerators::from_state(const Value& state) {
  const auto* const held =
      state.is_object() ? dynamic_cast<const TwisterState*>(&state.object()) : nullptr;
  if (held == nullptr) throw TypeError("not the state of a random generator");
  return std::make_shared<TwisterGenerator>(MersenneTwister(held->state()));
}

}  // namespace varnholt::genetic
