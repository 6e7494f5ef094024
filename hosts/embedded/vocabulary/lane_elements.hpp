// The functions of element_functions.hpp for eight entries side by side.
//
// They are made of additions, multiplications, divisions and of moving bits, each rounded by
// itself, so that vectors of any length give the same bits. What has a polynomial has the one that
// agrees with the series in Chebyshev's points of the interval, which is shorter than the series.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/element_functions.hpp"
#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"

namespace varnholt::embedded {

inline constexpr std::uint64_t kFraction = 0x000fffffffffffffU;
inline constexpr int kFractionBits = 52;
inline constexpr int kExponentBias = 1023;

// ln 2 in two parts: whole numbers of up to 11 bits times the first are exact.
inline constexpr double kLn2High = 0x1.62e42feep-1;
inline constexpr double kLn2Low = 0x1.a39ef35793c76p-33;

template <typename Vector>
struct LaneElements {
  using Number = Lanes<Vector>;
  using Mask = LaneMask<Vector>;
  using Bits = BitsOf<Vector>;
  static constexpr std::size_t kCount = kParts<Vector>;

  [[gnu::always_inline]] static Number add(const Number& x, const Number& y) { return x + y; }
  [[gnu::always_inline]] static Number sub(const Number& x, const Number& y) { return x - y; }
  [[gnu::always_inline]] static Number mul(const Number& x, const Number& y) { return x * y; }
  [[gnu::always_inline]] static Number div(const Number& x, const Number& y) {
    return choose(abs(y) < kNearZero, kUnknown, x / y);
  }

  [[gnu::always_inline]] static Number min(const Number& x, const Number& y) {
    return if_known(x, y, choose(y < x, y, x));
  }
  [[gnu::always_inline]] static Number max(const Number& x, const Number& y) {
    return if_known(x, y, choose(x < y, y, x));
  }

  [[gnu::always_inline]] static Number neg(const Number& x) {
    Number result = x;
    for (Vector& part : result.parts)
      part = -part;
    return result;
  }
  [[gnu::always_inline]] static Number abs(const Number& x) { return absolute(x); }
  [[gnu::always_inline]] static Number sign(const Number& x) {
    const Number of_known = choose(Number(0.0) < x, 1.0, choose(x < 0.0, -1.0, Number(0.0)));
    return choose(are_known(x), of_known, kUnknown);
  }

  // Within two units of the last digit.
  //
  // 1 + |x| is u + lost, with u rounded, and ln (u + lost) is ln u + lost / u.
  [[gnu::always_inline]] static Number log(const Number& x) {
    const Number size = abs(x);
    const Mask is_small = size < 1.0;
    const Number larger = choose(is_small, 1.0, size);
    const Number smaller = choose(is_small, size, 1.0);
    const Number sum = larger + smaller;
    const Number lost = smaller - (sum - larger);
    // What is not finite would come out as if it were a number.
    return with_sign_of(x, log_of(sum, 0.0, lost / sum) + (size - size));
  }

  // Within two units of the last digit.
  [[gnu::always_inline]] static Number ln(const Number& x) {
    constexpr double kLeastNormal = 0x1p-1022;
    constexpr double kShift = 54.0;
    const Mask is_tiny = x < kLeastNormal;
    const Number normal = choose(is_tiny, x * 0x1p54, x);
    const Number result = log_of(normal, choose(is_tiny, -kShift, Number(0.0)), 0.0) + (x - x);
    return choose(Number(0.0) < x, result, kUnknown);
  }

  // Within three units of the last digit. It is e / (e + 2), where e is exp(2 x) - 1.
  [[gnu::always_inline]] static Number tanh(const Number& x) {
    constexpr double kOneFrom = 22.0;  // To the last digit.
    const Number size = abs(x);
    const Number within = choose(Number(kOneFrom) < size, kOneFrom, size);
    const Number less_one = less_one_exponential(-2.0 * within);
    return with_sign_of(x, abs(less_one / (less_one + 2.0)));
  }

  // The power 0 of what is not known would be 1.
  static Number power(const Number& x, const Number& y) {
    std::array<double, kLanes> powers{};
    for (std::size_t lane = 0; lane < kLanes; ++lane)
      powers[lane] = std::pow(x.get(lane), y.get(lane));
    return if_known(x, y, Number::from(powers.data()));
  }
  static Number signed_power(const Number& x, const Number& y) {
    return sign(x) * power(abs(x), y);
  }

  [[gnu::always_inline]] static Number choice(const Number& x, const Number& y, const Number& z) {
    return choose(are_known(x), choose(x == Number(0.0), z, y), kUnknown);
  }
  [[gnu::always_inline]] static Number clip(const Number& x, const Number& low,
                                            const Number& high) {
    const Number within = choose(x < low, low, choose(high < x, high, x));
    return choose(are_known(x) & (low <= high), within, kUnknown);
  }

  [[gnu::always_inline]] static Number greater(const Number& x, const Number& y) {
    return if_known(x, y, choose(y < x, number_of(are_alike(x, y), 0.0, 1.0), 0.0));
  }
  [[gnu::always_inline]] static Number less(const Number& x, const Number& y) {
    return greater(y, x);
  }
  [[gnu::always_inline]] static Number greater_or_equal(const Number& x, const Number& y) {
    return 1.0 - less(x, y);
  }
  [[gnu::always_inline]] static Number less_or_equal(const Number& x, const Number& y) {
    return 1.0 - greater(x, y);
  }
  [[gnu::always_inline]] static Number equal(const Number& x, const Number& y) {
    return if_known(x, y, number_of(are_alike(x, y), 1.0, 0.0));
  }
  [[gnu::always_inline]] static Number not_equal(const Number& x, const Number& y) {
    return 1.0 - equal(x, y);
  }

  [[gnu::always_inline]] static Number both(const Number& x, const Number& y) {
    return if_known(x, y, number_of((x == Number(0.0)) | (y == Number(0.0)), 0.0, 1.0));
  }
  [[gnu::always_inline]] static Number either(const Number& x, const Number& y) {
    return if_known(x, y, number_of((x == Number(0.0)) & (y == Number(0.0)), 0.0, 1.0));
  }
  [[gnu::always_inline]] static Number negation(const Number& x) {
    return choose(are_known(x), number_of(x == Number(0.0), 1.0, 0.0), kUnknown);
  }

 private:
  [[gnu::always_inline]] static Number if_known(const Number& x, const Number& y,
                                                const Number& value) {
    return choose(are_known(x) & are_known(y), value, kUnknown);
  }
  [[gnu::always_inline]] static Number number_of(const Mask& mask, double set, double not_set) {
    return choose(mask, set, Number(not_set));
  }

  // A number that is not negative, with the sign of x.
  [[gnu::always_inline]] static Number with_sign_of(const Number& x, Number size) {
    for (std::size_t i = 0; i < kCount; ++i) {
      size.parts[i] = reinterpret_cast<Vector>(reinterpret_cast<Bits>(size.parts[i]) |
                                               (reinterpret_cast<Bits>(x.parts[i]) & kSignBit));
    }
    return size;
  }

  template <std::size_t kFactors>
  [[gnu::always_inline]] static Number polynomial(const std::array<double, kFactors>& factors,
                                                  const Number& x) {
    Number sum = factors[0];
    for (std::size_t i = 1; i < kFactors; ++i)
      sum = sum * x + factors[i];
    return sum;
  }

  // exp(x) - 1 for x from -50 to 0. x is k ln 2 and a rest of at most half of ln 2.
  [[gnu::always_inline]] static Number less_one_exponential(const Number& x) {
    constexpr double kLog2E = 0x1.71547652b82fep0;
    // Added to a number it rounds it, and its last bits are the whole number.
    constexpr double kRounder = 0x1.8p52;
    // (exp(x) - 1 - x) / x^2, from the tenth power to the second.
    constexpr auto kSeries = std::to_array(
        {0x1.af38a9b0ec855p-26, 0x1.289185613a3d6p-22, 0x1.71de0dae63bb3p-19, 0x1.a019b90d2ae7ap-16,
         0x1.a01a01a7c41d5p-13, 0x1.6c16c1788bd90p-10, 0x1.11111111109b3p-7, 0x1.5555555553d63p-5,
         0x1.5555555555556p-3, 0x1.0000000000001p-1});
    const Number shifted = x * kLog2E + kRounder;
    const Number k = shifted - kRounder;
    const Number rest = (x - k * kLn2High) - k * kLn2Low;
    const Number of_rest = rest + rest * rest * polynomial(kSeries, rest);
    Number power_of_two{};
    for (std::size_t i = 0; i < kCount; ++i) {
      const Bits exponent = reinterpret_cast<Bits>(shifted.parts[i]) + kExponentBias;
      power_of_two.parts[i] = reinterpret_cast<Vector>(exponent << kFractionBits);
    }
    return power_of_two * of_rest + (power_of_two - 1.0);
  }

  // ln x + k ln 2 + rest, for a normal x and a rest that is small beside ln x, or where that is 0.
  //
  // x is a power of two times m, from the root of 1/2 to that of 2. With f = m - 1, s = f / (2 + f)
  // and h = f^2 / 2, ln m is 2 artanh s = f - (h - s (h + 2 s^2 series)), where nothing cancels.
  [[gnu::always_inline]] static Number log_of(const Number& x, const Number& k,
                                              const Number& rest) {
    constexpr std::uint64_t kOne = 0x3ff0000000000000U;
    constexpr std::uint64_t kRootOfHalf = 0x3fe6a09e667f3bcdU;
    // The bits of a number to whose last ones whole numbers may be added.
    constexpr std::uint64_t kWhole = 0x4330000000000000U;
    constexpr double kWholeNumber = 0x1p52;
    // (artanh(s) / s - 1) / s^2, from the twelfth power to the first.
    constexpr auto kSeries = std::to_array(
        {0.07308360589930908, 0.07665849816771929, 0.09091444893095521, 0.11111105562861405,
         0.14285714313015532, 0.1999999999994969, 0.3333333333333335});
    Number exponent{};
    Number m{};
    for (std::size_t i = 0; i < kCount; ++i) {
      const Bits bits = reinterpret_cast<Bits>(x.parts[i]) + (kOne - kRootOfHalf);
      exponent.parts[i] = reinterpret_cast<Vector>((bits >> kFractionBits) | kWhole);
      m.parts[i] = reinterpret_cast<Vector>((bits & kFraction) + kRootOfHalf);
    }
    const Number twos = (exponent - (kWholeNumber + kExponentBias)) + k;
    const Number f = m - 1.0;
    const Number s = f / (2.0 + f);
    const Number square = s * s;
    const Number h = 0.5 * f * f;
    const Number tail =
        s * (h + 2.0 * square * polynomial(kSeries, square)) + (twos * kLn2Low + rest);
    return twos * kLn2High - ((h - tail) - f);
  }
};

}  // namespace varnholt::embedded
