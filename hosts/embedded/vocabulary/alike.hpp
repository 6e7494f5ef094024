// When two values count as one.
//
// A two-day z-score is plus or minus 0.7071 and nothing else, but its last digits are rounding.
// Ranking them would rank that rounding: two right ways to add the same numbers would make two
// signals of one formula. So ranks and comparisons tell values apart only by more than rounding.
#pragma once

#include <cmath>

namespace varnholt::embedded {

// Values count as equal where they differ by at most this share of the greater of their sizes. What
// is left of a price after its mean, for instance, has lost the digits that both begin with; nine
// digits stay true where the change is a hundred-thousandth of the price, and no daily figure means
// anything in the tenth. Zero is alike only to itself.
inline constexpr double kAlikeTolerance = 1e-9;

// False where either is NaN. The same for -a and -b. Written without a branch, so that loops over
// it can be vectorised.
[[nodiscard]] inline bool are_alike(double a, double b) {
  const double size_a = std::abs(a);
  const double size_b = std::abs(b);
  return std::abs(a - b) <= kAlikeTolerance * (size_a > size_b ? size_a : size_b);
}

}  // namespace varnholt::embedded
