#include "hosts/embedded/host/twister_generators.hpp"

#include <cerrno>
#include <string>
#include <system_error>

#include <sys/random.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"

namespace varnholt::embedded {
namespace {

class TwisterState : public genetic::HostObject {
 public:
  explicit TwisterState(const genetic::MersenneTwisterState& state) : state_(state) {}

  [[nodiscard]] const genetic::MersenneTwisterState& state() const { return state_; }
  [[nodiscard]] std::string type_name() const override { return "MersenneTwisterState"; }

 private:
  genetic::MersenneTwisterState state_;
};

std::uint64_t system_random_bits() {
  std::uint64_t bits = 0;
  while (getrandom(&bits, sizeof(bits), 0) != static_cast<ssize_t>(sizeof(bits))) {
    if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(),
                              "the operating system gives no random bits");
    }
  }
  return bits;
}

}  // namespace

genetic::Value TwisterGenerator::getstate() const {
  return genetic::make_object<TwisterState>(twister_.state());
}

std::shared_ptr<genetic::RandomGenerator> TwisterGenerators::seeded(const genetic::Value& seed) {
  if (!seed.is_integer() || seed.integer() < 0) {
    throw genetic::ValueError("a seed is an integer from 0 to 9223372036854775807");
  }
  return std::make_shared<TwisterGenerator>(
      genetic::MersenneTwister(static_cast<std::uint64_t>(seed.integer())));
}

std::shared_ptr<genetic::RandomGenerator> TwisterGenerators::from_state(
    const genetic::Value& state) {
  const auto* const held =
      state.is_object() ? dynamic_cast<const TwisterState*>(&state.object()) : nullptr;
  if (held == nullptr) throw genetic::TypeError("not the state of a random generator");
  return std::make_shared<TwisterGenerator>(genetic::MersenneTwister(held->state()));
}

std::uint64_t SystemRandom::randbits(int count) {
  if (count < 0 || count > 64) throw genetic::ValueError("random bits are drawn 0 to 64 at a time");
  if (count == 0) return 0;
  return (fixed_ ? *fixed_ : system_random_bits()) & (~std::uint64_t{0} >> (64 - count));
}

}  // namespace varnholt::embedded
