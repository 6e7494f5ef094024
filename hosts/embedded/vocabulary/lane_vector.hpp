// Eight numbers side by side: what is written as for one number works on all of them.
//
// They are four of the pairs that every processor of 64 bits works on at once. A compiler takes
// longer vectors apart where the machine has none, number by number; of pairs it never needs to.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstring>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"

namespace varnholt::embedded {

inline constexpr std::size_t kLanes = 8;

using Pair = double __attribute__((vector_size(2 * sizeof(double))));
// All bits or none of each number.
using PairMask = decltype(Pair() == Pair());

struct LaneMask {
  PairMask a, b, c, d;

  friend LaneMask operator&(const LaneMask& x, const LaneMask& y) {
    return {x.a & y.a, x.b & y.b, x.c & y.c, x.d & y.d};
  }
  friend LaneMask operator|(const LaneMask& x, const LaneMask& y) {
    return {x.a | y.a, x.b | y.b, x.c | y.c, x.d | y.d};
  }
};

struct Lanes {
  Pair a, b, c, d;

  // The same number in each. Meant to convert.
  Lanes(double value)
      : Lanes(Pair{value, value}, Pair{value, value}, Pair{value, value}, Pair{value, value}) {}
  Lanes() : Lanes(0.0) {}
  Lanes(Pair first, Pair second, Pair third, Pair fourth)
      : a(first), b(second), c(third), d(fourth) {}

  // Of numbers that lie together.
  [[nodiscard]] static Lanes from(const double* values) {
    const auto pair = [values](std::size_t place) {
      Pair numbers;
      std::memcpy(&numbers, values + 2 * place, sizeof numbers);
      return numbers;
    };
    return {pair(0), pair(1), pair(2), pair(3)};
  }

  [[nodiscard]] double get(std::size_t lane) const {
    double value = 0.0;
    std::memcpy(&value, reinterpret_cast<const char*>(this) + lane * sizeof value, sizeof value);
    return value;
  }
  void set(std::size_t lane, double value) {
    std::memcpy(reinterpret_cast<char*>(this) + lane * sizeof value, &value, sizeof value);
  }

  friend Lanes operator+(const Lanes& x, const Lanes& y) {
    return {x.a + y.a, x.b + y.b, x.c + y.c, x.d + y.d};
  }
  friend Lanes operator-(const Lanes& x, const Lanes& y) {
    return {x.a - y.a, x.b - y.b, x.c - y.c, x.d - y.d};
  }
  friend Lanes operator*(const Lanes& x, const Lanes& y) {
    return {x.a * y.a, x.b * y.b, x.c * y.c, x.d * y.d};
  }
  friend Lanes operator/(const Lanes& x, const Lanes& y) {
    return {x.a / y.a, x.b / y.b, x.c / y.c, x.d / y.d};
  }
  friend LaneMask operator==(const Lanes& x, const Lanes& y) {
    return {x.a == y.a, x.b == y.b, x.c == y.c, x.d == y.d};
  }
  friend LaneMask operator<(const Lanes& x, const Lanes& y) {
    return {x.a < y.a, x.b < y.b, x.c < y.c, x.d < y.d};
  }
  friend LaneMask operator<=(const Lanes& x, const Lanes& y) {
    return {x.a <= y.a, x.b <= y.b, x.c <= y.c, x.d <= y.d};
  }
};

// x where the mask is set, and y elsewhere.
[[nodiscard]] inline Lanes choose(const LaneMask& mask, const Lanes& x, const Lanes& y) {
  return {mask.a ? x.a : y.a, mask.b ? x.b : y.b, mask.c ? x.c : y.c, mask.d ? x.d : y.d};
}

[[nodiscard]] inline Lanes absolute(const Lanes& x) {
  return choose(x < 0.0, Lanes(0.0) - x, x);
}

// As alike.hpp has it.
[[nodiscard]] inline LaneMask are_alike(const Lanes& x, const Lanes& y) {
  const Lanes size_x = absolute(x);
  const Lanes size_y = absolute(y);
  return absolute(x - y) <= kAlikeTolerance * choose(size_y < size_x, size_x, size_y);
}

[[nodiscard]] inline LaneMask are_known(const Lanes& x) {
  return x == x;
}

// The values that are known, and `otherwise` in the place of the others.
[[nodiscard]] inline Lanes known_or(double otherwise, const Lanes& x) {
  return choose(are_known(x), x, otherwise);
}

[[nodiscard]] inline Lanes one_where(const LaneMask& mask) {
  return choose(mask, 1.0, 0.0);
}

[[nodiscard]] inline Lanes finite_or_nan(const Lanes& x) {
  return choose(x - x == Lanes(0.0), x, kUnknown);
}

[[nodiscard]] inline Lanes square_root(const Lanes& x) {
  const auto root = [](Pair pair) { return Pair{std::sqrt(pair[0]), std::sqrt(pair[1])}; };
  return {root(x.a), root(x.b), root(x.c), root(x.d)};
}

}  // namespace varnholt::embedded
