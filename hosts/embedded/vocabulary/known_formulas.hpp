// Signals that the field knows: what a search may begin with beside what it draws.
#pragma once

#include <span>
#include <string_view>

namespace varnholt::embedded {

struct KnownFormula {
  std::string_view name;
  std::string_view formula;  // As parse_formula reads it; windows are of the usual ones.
  std::string_view meaning;  // What is believed to earn by it.
};

// None mixes units. Some need a column that not all prices have, or a function that is drawn only
// when it is switched on.
[[nodiscard]] std::span<const KnownFormula> known_formulas();

}  // namespace varnholt::embedded
