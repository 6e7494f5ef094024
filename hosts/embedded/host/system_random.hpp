// Random bits for the seeds of runs.
#pragma once

#include <cstdint>
#include <optional>

#include "search_templates/genetic/host/secure_random.hpp"

namespace varnholt::embedded {

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
