// Eight numbers side by side: what is written as for one number works on all of them.
//
// They are so many vectors of the compiler's own kind as fill a cache line: of two numbers, which
// every processor of 64 bits works on at once, or of four, where vector_kernels.hpp has found that
// the machine does. A compiler takes vectors that are too long for the machine apart, number by
// number, so each kernel is compiled for the length that it is run with. Both give the same bits.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"

namespace varnholt::embedded {

inline constexpr std::size_t kLanes = 8;

using Pair = double __attribute__((vector_size(2 * sizeof(double))));
using Quad = double __attribute__((vector_size(4 * sizeof(double))));

// The bits of each number: the sign, 11 of the exponent, 52 of the fraction.
inline constexpr std::uint64_t kSignBit = 0x8000000000000000U;
using PairBits = std::uint64_t __attribute__((vector_size(2 * sizeof(double))));
using QuadBits = std::uint64_t __attribute__((vector_size(4 * sizeof(double))));

// The numbers where they lie among others. (By memcpy a compiler moves them in halves.)
using PairInMemory [[gnu::aligned(alignof(double)), gnu::may_alias]] = Pair;
using QuadInMemory [[gnu::aligned(alignof(double)), gnu::may_alias]] = Quad;
[[gnu::always_inline]] inline void load(const double* values, Pair& vector) {
  vector = *reinterpret_cast<const PairInMemory*>(values);
}
[[gnu::always_inline]] inline void load(const double* values, Quad& vector) {
  vector = *reinterpret_cast<const QuadInMemory*>(values);
}
[[gnu::always_inline]] inline void store(const Pair& vector, double* values) {
  *reinterpret_cast<PairInMemory*>(values) = vector;
}
[[gnu::always_inline]] inline void store(const Quad& vector, double* values) {
  *reinterpret_cast<QuadInMemory*>(values) = vector;
}

template <typename Vector>
using BitsOf = std::conditional_t<std::is_same_v<Vector, Pair>, PairBits, QuadBits>;

template <typename Vector>
inline constexpr std::size_t kVectorSize = sizeof(Vector) / sizeof(double);
template <typename Vector>
inline constexpr std::size_t kParts = kLanes / kVectorSize<Vector>;

// All bits or none of each number.
template <typename Vector>
struct LaneMask {
  using Part = decltype(Vector() == Vector());
  std::array<Part, kParts<Vector>> parts;

  [[gnu::always_inline]] friend LaneMask operator&(const LaneMask& x, const LaneMask& y) {
    LaneMask both{};
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      both.parts[i] = x.parts[i] & y.parts[i];
    return both;
  }
  [[gnu::always_inline]] friend LaneMask operator|(const LaneMask& x, const LaneMask& y) {
    LaneMask either{};
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      either.parts[i] = x.parts[i] | y.parts[i];
    return either;
  }
  [[gnu::always_inline]] friend LaneMask operator^(const LaneMask& x, const LaneMask& y) {
    LaneMask one{};
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      one.parts[i] = x.parts[i] ^ y.parts[i];
    return one;
  }
  [[nodiscard, gnu::always_inline]] bool any() const {
    Part either = parts[0];
    for (std::size_t i = 1; i < kParts<Vector>; ++i)
      either = either | parts[i];
    bool is_set = false;
    for (std::size_t i = 0; i < kVectorSize<Vector>; ++i)
      is_set = is_set || either[i] != 0;
    return is_set;
  }
  [[nodiscard, gnu::always_inline]] bool all() const {
    Part both = parts[0];
    for (std::size_t i = 1; i < kParts<Vector>; ++i)
      both = both & parts[i];
    bool is_set = true;
    for (std::size_t i = 0; i < kVectorSize<Vector>; ++i)
      is_set = is_set && both[i] != 0;
    return is_set;
  }
};

template <typename Vector>
struct Lanes {
  std::array<Vector, kParts<Vector>> parts;

  Lanes() = default;
  // The same number in each. Meant to convert.
  [[gnu::always_inline]] Lanes(double value) {
    for (Vector& part : parts)
      part = value - Vector{};
  }

  // Of numbers that lie together.
  [[nodiscard, gnu::always_inline]] static Lanes from(const double* values) {
    Lanes lanes{};
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      load(values + i * kVectorSize<Vector>, lanes.parts[i]);
    return lanes;
  }
  [[gnu::always_inline]] void to(double* values) const {
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      store(parts[i], values + i * kVectorSize<Vector>);
  }

  [[nodiscard]] double get(std::size_t lane) const {
    return parts[lane / kVectorSize<Vector>][lane % kVectorSize<Vector>];
  }
  void set(std::size_t lane, double value) {
    parts[lane / kVectorSize<Vector>][lane % kVectorSize<Vector>] = value;
  }

  [[gnu::always_inline]] friend Lanes operator+(Lanes x, const Lanes& y) {
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      x.parts[i] += y.parts[i];
    return x;
  }
  [[gnu::always_inline]] friend Lanes operator-(Lanes x, const Lanes& y) {
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      x.parts[i] -= y.parts[i];
    return x;
  }
  [[gnu::always_inline]] friend Lanes operator*(Lanes x, const Lanes& y) {
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      x.parts[i] *= y.parts[i];
    return x;
  }
  [[gnu::always_inline]] friend Lanes operator/(Lanes x, const Lanes& y) {
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      x.parts[i] /= y.parts[i];
    return x;
  }
  [[gnu::always_inline]] friend LaneMask<Vector> operator==(const Lanes& x, const Lanes& y) {
    LaneMask<Vector> mask{};
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      mask.parts[i] = x.parts[i] == y.parts[i];
    return mask;
  }
  [[gnu::always_inline]] friend LaneMask<Vector> operator<(const Lanes& x, const Lanes& y) {
    LaneMask<Vector> mask{};
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      mask.parts[i] = x.parts[i] < y.parts[i];
    return mask;
  }
  [[gnu::always_inline]] friend LaneMask<Vector> operator<=(const Lanes& x, const Lanes& y) {
    LaneMask<Vector> mask{};
    for (std::size_t i = 0; i < kParts<Vector>; ++i)
      mask.parts[i] = x.parts[i] <= y.parts[i];
    return mask;
  }
};

// x where the mask is set, and y elsewhere.
template <typename Vector>
[[nodiscard, gnu::always_inline]] inline Lanes<Vector> choose(const LaneMask<Vector>& mask,
                                                              const Lanes<Vector>& x,
                                                              Lanes<Vector> y) {
  for (std::size_t i = 0; i < kParts<Vector>; ++i)
    y.parts[i] = mask.parts[i] ? x.parts[i] : y.parts[i];
  return y;
}
template <typename Vector>
[[nodiscard, gnu::always_inline]] inline Lanes<Vector> choose(const LaneMask<Vector>& mask,
                                                              double x, const Lanes<Vector>& y) {
  return choose(mask, Lanes<Vector>(x), y);
}
template <typename Vector>
[[nodiscard, gnu::always_inline]] inline Lanes<Vector> choose(const LaneMask<Vector>& mask,
                                                              const Lanes<Vector>& x, double y) {
  return choose(mask, x, Lanes<Vector>(y));
}

template <typename Vector>
[[nodiscard, gnu::always_inline]] inline Lanes<Vector> absolute(Lanes<Vector> x) {
  for (Vector& part : x.parts)
    part = reinterpret_cast<Vector>(reinterpret_cast<BitsOf<Vector>>(part) & ~kSignBit);
  return x;
}

// As alike.hpp has it.
template <typename Vector>
[[nodiscard, gnu::always_inline]] inline LaneMask<Vector> are_alike(const Lanes<Vector>& x,
                                                                    const Lanes<Vector>& y) {
  const Lanes<Vector> size_x = absolute(x);
  const Lanes<Vector> size_y = absolute(y);
  return absolute(x - y) <= kAlikeTolerance * choose(size_y < size_x, size_x, size_y);
}

template <typename Vector>
[[nodiscard, gnu::always_inline]] inline LaneMask<Vector> are_known(const Lanes<Vector>& x) {
  return x == x;
}

// The values that are finite: x less nothing, or less what is not known.
template <typename Vector>
[[nodiscard, gnu::always_inline]] inline Lanes<Vector> finite_or_nan(const Lanes<Vector>& x) {
  return x - (x - x);
}

template <typename Vector>
[[nodiscard, gnu::always_inline]] inline Lanes<Vector> square_root(Lanes<Vector> x) {
  for (Vector& part : x.parts) {
    Vector root = part;
    for (std::size_t i = 0; i < kVectorSize<Vector>; ++i)
      root[i] = std::sqrt(part[i]);
    part = root;
  }
  return x;
}

// A square of so many numbers as a vector has, row by row, with rows and columns exchanged.
[[gnu::always_inline]] inline void transpose(std::array<Pair, 2>& rows) {
  rows = {__builtin_shufflevector(rows[0], rows[1], 0, 2),
          __builtin_shufflevector(rows[0], rows[1], 1, 3)};
}
[[gnu::always_inline]] inline void transpose(std::array<Quad, 4>& rows) {
  const Quad even_low = __builtin_shufflevector(rows[0], rows[1], 0, 4, 2, 6);
  const Quad odd_low = __builtin_shufflevector(rows[0], rows[1], 1, 5, 3, 7);
  const Quad even_high = __builtin_shufflevector(rows[2], rows[3], 0, 4, 2, 6);
  const Quad odd_high = __builtin_shufflevector(rows[2], rows[3], 1, 5, 3, 7);
  rows = {__builtin_shufflevector(even_low, even_high, 0, 1, 4, 5),
          __builtin_shufflevector(odd_low, odd_high, 0, 1, 4, 5),
          __builtin_shufflevector(even_low, even_high, 2, 3, 6, 7),
          __builtin_shufflevector(odd_low, odd_high, 2, 3, 6, 7)};
}

}  // namespace varnholt::embedded
