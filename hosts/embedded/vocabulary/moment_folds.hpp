// The folds of rolling_lanes.hpp that are made of the moments of one series or of two.
//
// All of them are sums of powers and of products of centred values, which add up without a
// division; mean and deviations are taken from the sums of the whole window.
#pragma once

#include <array>

#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/rolling_lanes.hpp"

namespace varnholt::embedded {

// Whether the spread of so many values is nothing but rounding.
template <typename Vector>
[[nodiscard]] LaneMask<Vector> has_no_spread(const Lanes<Vector>& deviations,
                                             const Lanes<Vector>& count,
                                             const Lanes<Vector>& mean) {
  return deviations <= kConstantTolerance * (deviations + count * mean * mean);
}

template <typename Vector>
struct PowerSums {
  Lanes<Vector> sum;
  Lanes<Vector> squares;
};

// The mean less what the values are centred by, and the sum of squared deviations from it.
template <typename Vector>
struct Moments {
  Lanes<Vector> mean;
  Lanes<Vector> deviations;

  Moments(const PowerSums<Vector>& sums, const DayCount<Vector>& known)
      : mean(sums.sum * known.share), deviations(sums.squares - sums.sum * mean) {}

  // The sample standard deviation; 0 of a constant window, and NaN of one day.
  [[nodiscard]] Lanes<Vector> spread(const DayCount<Vector>& known,
                                     const Lanes<Vector>& centre) const {
    const Lanes<Vector> root = square_root(deviations * known.less_share);
    const Lanes<Vector> spread =
        choose(has_no_spread(deviations, known.days, centre + mean), 0.0, root);
    return choose(known.days < 2.0, kUnknown, spread);
  }
};

template <typename Vector>
struct MomentsFold {
  static constexpr std::size_t kInputs = 1;
  static constexpr bool kIsCentred = true;
  using Number = Lanes<Vector>;
  using Values = std::array<Number, kInputs>;
  using End = WindowEnd<Vector, kInputs>;
  using State = PowerSums<Vector>;

  template <typename Known>
  [[nodiscard]] static State lift(const Values& x, const Known& known, double /*row*/) {
    const Number value = known.or_else(x[0], 0.0);
    return {value, value * value};
  }
  [[nodiscard]] static State merge(const State& a, const State& b) {
    return {a.sum + b.sum, a.squares + b.squares};
  }
};

template <typename Vector>
struct DeviationFold : MomentsFold<Vector> {
  using typename MomentsFold<Vector>::Number;
  using typename MomentsFold<Vector>::State;
  using typename MomentsFold<Vector>::End;
  [[nodiscard]] static Number result(const State& window, const End& end) {
    return Moments<Vector>(window, end.known).spread(end.known, end.centre[0]);
  }
};

template <typename Vector>
struct ScoreFold : MomentsFold<Vector> {
  using typename MomentsFold<Vector>::Number;
  using typename MomentsFold<Vector>::State;
  using typename MomentsFold<Vector>::End;
  [[nodiscard]] static Number result(const State& window, const End& end) {
    const Moments<Vector> moments(window, end.known);
    const Number spread = moments.spread(end.known, end.centre[0]);
    const Number score = (end.today[0] - moments.mean) / spread;
    return choose(spread == Number(0.0), kUnknown, score);
  }
};

template <typename Vector>
struct FourPowerSums {
  Lanes<Vector> first;
  Lanes<Vector> second;
  Lanes<Vector> third;
  Lanes<Vector> fourth;
};

template <typename Vector>
struct FourMomentsFold {
  static constexpr std::size_t kInputs = 1;
  static constexpr bool kIsCentred = true;
  using Number = Lanes<Vector>;
  using Values = std::array<Number, kInputs>;
  using End = WindowEnd<Vector, kInputs>;
  using State = FourPowerSums<Vector>;

  template <typename Known>
  [[nodiscard]] static State lift(const Values& x, const Known& known, double /*row*/) {
    const Number value = known.or_else(x[0], 0.0);
    const Number square = value * value;
    return {value, square, square * value, square * square};
  }
  [[nodiscard]] static State merge(const State& a, const State& b) {
    return {a.first + b.first, a.second + b.second, a.third + b.third, a.fourth + b.fourth};
  }
};

template <typename Vector>
struct SkewFold : FourMomentsFold<Vector> {
  using typename FourMomentsFold<Vector>::Number;
  using typename FourMomentsFold<Vector>::State;
  using typename FourMomentsFold<Vector>::End;
  [[nodiscard]] static Number result(const State& sums, const End& end) {
    const Number n = end.known.days;
    const Number mean = sums.first * end.known.share;
    const Number second = sums.second - sums.first * mean;
    const Number third = sums.third - mean * (3.0 * second + sums.first * mean);
    const Number variance = second * end.known.less_share;
    const Number skew = n / ((n - 1.0) * (n - 2.0)) * third / (variance * square_root(variance));
    return choose((n < 3.0) | has_no_spread(second, n, end.centre[0] + mean), kUnknown, skew);
  }
};

template <typename Vector>
struct KurtosisFold : FourMomentsFold<Vector> {
  using typename FourMomentsFold<Vector>::Number;
  using typename FourMomentsFold<Vector>::State;
  using typename FourMomentsFold<Vector>::End;
  [[nodiscard]] static Number result(const State& sums, const End& end) {
    const Number n = end.known.days;
    const Number mean = sums.first * end.known.share;
    const Number square = mean * mean;
    const Number second = sums.second - sums.first * mean;
    const Number third = sums.third - mean * (3.0 * second + sums.first * mean);
    const Number fourth = sums.fourth - mean * (4.0 * third) - square * (6.0 * second + n * square);
    const Number variance = second * end.known.less_share;
    const Number kurtosis =
        n * (n + 1.0) / ((n - 1.0) * (n - 2.0) * (n - 3.0)) * (fourth / (variance * variance)) -
        3.0 * (n - 1.0) * (n - 1.0) / ((n - 2.0) * (n - 3.0));
    return choose((n < 4.0) | has_no_spread(second, n, end.centre[0] + mean), kUnknown, kurtosis);
  }
};

// Which sums of squares a fold of two series needs beside their sums and that of the products.
enum class PairSquares { None, OfY, OfYAndX };

// The squares of the second series stand before those of the first.
template <typename Vector, PairSquares kSquares>
struct PairFold {
  static constexpr std::size_t kInputs = 2;
  static constexpr bool kIsCentred = true;
  using Number = Lanes<Vector>;
  using Values = std::array<Number, kInputs>;
  using End = WindowEnd<Vector, kInputs>;
  static constexpr std::size_t kSums = 3 + static_cast<std::size_t>(kSquares);
  using State = std::array<Number, kSums>;

  template <typename Known>
  [[nodiscard]] static State lift(const Values& values, const Known& known, double /*row*/) {
    const Number x = known.or_else(values[0], 0.0);
    const Number y = known.or_else(values[1], 0.0);
    State sums;
    sums[0] = x;
    sums[1] = y;
    sums[2] = x * y;
    if constexpr (kSquares != PairSquares::None) sums[3] = y * y;
    if constexpr (kSquares == PairSquares::OfYAndX) sums[4] = x * x;
    return sums;
  }
  [[nodiscard]] static State merge(State a, const State& b) {
    for (std::size_t i = 0; i < kSums; ++i)
      a[i] = a[i] + b[i];
    return a;
  }
};

// The means of both less what they are centred by, and the sums of the products of deviations.
template <typename Vector>
struct PairMoments {
  Lanes<Vector> x_mean;
  Lanes<Vector> y_mean;
  Lanes<Vector> products;

  template <typename State>
  PairMoments(const State& sums, const DayCount<Vector>& known)
      : x_mean(sums[0] * known.share),
        y_mean(sums[1] * known.share),
        products(sums[2] - sums[0] * sums[1] * known.share) {}
};

template <typename Vector>
struct CovarianceFold : PairFold<Vector, PairSquares::None> {
  using Base = PairFold<Vector, PairSquares::None>;
  [[nodiscard]] static Lanes<Vector> result(const typename Base::State& sums,
                                            const typename Base::End& end) {
    const PairMoments<Vector> pair(sums, end.known);
    return choose(end.known.days < 2.0, kUnknown, pair.products * end.known.less_share);
  }
};

template <typename Vector>
struct CorrelationFold : PairFold<Vector, PairSquares::OfYAndX> {
  using Base = PairFold<Vector, PairSquares::OfYAndX>;
  [[nodiscard]] static Lanes<Vector> result(const typename Base::State& sums,
                                            const typename Base::End& end) {
    using Number = Lanes<Vector>;
    const PairMoments<Vector> pair(sums, end.known);
    const Number y_deviations = sums[3] - sums[1] * pair.y_mean;
    const Number x_deviations = sums[4] - sums[0] * pair.x_mean;
    const Number correlation =
        pair.products / (square_root(x_deviations) * square_root(y_deviations));
    // Rounding can carry a perfect correlation beyond one; a NaN stays one.
    const Number not_below = choose(correlation < -1.0, -1.0, correlation);
    const Number within = choose(Number(1.0) < not_below, 1.0, not_below);
    const Number& n = end.known.days;
    return choose(has_no_spread(x_deviations, n, end.centre[0] + pair.x_mean) |
                      has_no_spread(y_deviations, n, end.centre[1] + pair.y_mean),
                  kUnknown, within);
  }
};

// The line x = a + b y.
template <typename Vector>
struct LineFold : PairFold<Vector, PairSquares::OfY> {
  using Base = PairFold<Vector, PairSquares::OfY>;
  // NaN where y is constant: then there is no line.
  [[nodiscard]] static Lanes<Vector> slope(const PairMoments<Vector>& pair,
                                           const typename Base::State& sums,
                                           const typename Base::End& end) {
    const Lanes<Vector> deviations = sums[3] - sums[1] * pair.y_mean;
    return choose(has_no_spread(deviations, end.known.days, end.centre[1] + pair.y_mean), kUnknown,
                  pair.products / deviations);
  }
};

template <typename Vector>
struct SlopeFold : LineFold<Vector> {
  using typename LineFold<Vector>::Base;
  [[nodiscard]] static Lanes<Vector> result(const typename Base::State& sums,
                                            const typename Base::End& end) {
    return LineFold<Vector>::slope(PairMoments<Vector>(sums, end.known), sums, end);
  }
};

template <typename Vector>
struct ResidualFold : LineFold<Vector> {
  using typename LineFold<Vector>::Base;
  [[nodiscard]] static Lanes<Vector> result(const typename Base::State& sums,
                                            const typename Base::End& end) {
    const PairMoments<Vector> pair(sums, end.known);
    return (end.today[0] - pair.x_mean) -
           LineFold<Vector>::slope(pair, sums, end) * (end.today[1] - pair.y_mean);
  }
};

}  // namespace varnholt::embedded
