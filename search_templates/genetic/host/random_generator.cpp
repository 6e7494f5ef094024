#include "search_templates/genetic/host/random_generator.hpp"

#include <bit>

namespace varnholt::genetic {

std::uint64_t random_below(RandomGenerator& generator, std::uint64_t bound) {
  const auto bits = static_cast<int>(std::bit_width(bound));
  std::uint64_t drawn = generator.getrandbits(bits);
  while (drawn >= bound)
    drawn = generator.getrandbits(bits);
  return drawn;
}

}  // namespace varnholt::genetic
