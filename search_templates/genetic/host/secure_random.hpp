// Random bits for a run's seed.
#pragma once

#include <cstdint>

namespace varnholt::genetic {

// A host that wants to repeat a run gives the same bits again.
class SecureRandom {
 public:
  virtual ~SecureRandom() = default;

  // `count` random bits, at most 64 of them.
  [[nodiscard]] virtual std::uint64_t randbits(int count) = 0;
};

}  // namespace varnholt::genetic
