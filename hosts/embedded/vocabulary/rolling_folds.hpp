// The folds of rolling_lanes.hpp that are sums, extremes, products and places.
#pragma once

#include <array>
#include <limits>

#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/rolling_lanes.hpp"
#include "hosts/embedded/vocabulary/vector_kernels.hpp"

namespace varnholt::embedded {

// A number of which two are joined by a function.
template <typename Vector>
struct SingleFold {
  static constexpr std::size_t kInputs = 1;
  static constexpr bool kIsCentred = false;
  using Number = Lanes<Vector>;
  using Values = std::array<Number, kInputs>;
  using End = WindowEnd<Vector, kInputs>;
  using State = Number;

  [[nodiscard]] static Number result(const State& window, const End& /*end*/) { return window; }
};

template <typename Vector>
struct SumFold : SingleFold<Vector> {
  using typename SingleFold<Vector>::Number;
  using typename SingleFold<Vector>::Values;
  template <typename Known>
  [[nodiscard]] static Number lift(const Values& x, const Known& known, double /*row*/) {
    return known.or_else(x[0], 0.0);
  }
  [[nodiscard]] static Number merge(const Number& a, const Number& b) { return a + b; }
};

template <typename Vector>
struct MeanFold : SumFold<Vector> {
  using typename SumFold<Vector>::Number;
  using typename SingleFold<Vector>::End;
  [[nodiscard]] static Number result(const Number& sum, const End& end) {
    return sum * end.known.share;
  }
};

template <typename Vector>
struct LeastFold : SingleFold<Vector> {
  using typename SingleFold<Vector>::Number;
  using typename SingleFold<Vector>::Values;
  template <typename Known>
  [[nodiscard]] static Number lift(const Values& x, const Known& known, double /*row*/) {
    return known.or_else(x[0], std::numeric_limits<double>::infinity());
  }
  [[nodiscard]] static Number merge(const Number& a, const Number& b) {
    return choose(b < a, b, a);
  }
};

template <typename Vector>
struct GreatestFold : SingleFold<Vector> {
  using typename SingleFold<Vector>::Number;
  using typename SingleFold<Vector>::Values;
  template <typename Known>
  [[nodiscard]] static Number lift(const Values& x, const Known& known, double /*row*/) {
    return known.or_else(x[0], -std::numeric_limits<double>::infinity());
  }
  [[nodiscard]] static Number merge(const Number& a, const Number& b) {
    return choose(a < b, b, a);
  }
};

template <typename Vector>
struct ProductFold : SingleFold<Vector> {
  using typename SingleFold<Vector>::Number;
  using typename SingleFold<Vector>::Values;
  template <typename Known>
  [[nodiscard]] static Number lift(const Values& x, const Known& known, double /*row*/) {
    return known.or_else(x[0], 1.0);
  }
  [[nodiscard]] static Number merge(const Number& a, const Number& b) { return a * b; }
};

// A sum, and the sum in which the value of the i-th oldest day counts i times; and both of ones in
// the place of the known values, which are the weights.
template <typename Vector>
struct WeightedSum {
  Lanes<Vector> days;
  Lanes<Vector> sum;
  Lanes<Vector> weighted;
  Lanes<Vector> known;
  Lanes<Vector> weights;
};

template <typename Vector>
struct DecayFold : SingleFold<Vector> {
  using typename SingleFold<Vector>::Number;
  using typename SingleFold<Vector>::Values;
  using typename SingleFold<Vector>::End;
  using State = WeightedSum<Vector>;
  template <typename Known>
  [[nodiscard]] static State lift(const Values& x, const Known& known, double /*row*/) {
    const Number value = known.or_else(x[0], 0.0);
    const Number one = known.one();
    return {1.0, value, value, one, one};
  }
  // Behind a.days older days, each value of b counts a.days times more.
  [[nodiscard]] static State merge(const State& a, const State& b) {
    return {a.days + b.days, a.sum + b.sum, a.weighted + b.weighted + a.days * b.sum,
            a.known + b.known, a.weights + b.weights + a.days * b.known};
  }
  [[nodiscard]] static Number result(const State& window, const End& /*end*/) {
    return window.weighted / window.weights;
  }
};

// A sum in which a day counts the less the older it is, relative to the last day of it.
template <typename Vector>
struct FadingSum {
  Lanes<Vector> fade;  // What a day before it would count.
  Lanes<Vector> sum;
  Lanes<Vector> weights;
};

template <typename Vector>
struct FadingFold : SingleFold<Vector> {
  using typename SingleFold<Vector>::Number;
  using typename SingleFold<Vector>::Values;
  using typename SingleFold<Vector>::End;
  using State = FadingSum<Vector>;

  double fade;

  explicit FadingFold(double fade_a_day) : fade(fade_a_day) {}
  template <typename Known>
  [[nodiscard]] State lift(const Values& x, const Known& known, double /*row*/) const {
    return {fade, known.or_else(x[0], 0.0), known.one()};
  }
  [[nodiscard]] static State merge(const State& a, const State& b) {
    return {a.fade * b.fade, a.sum * b.fade + b.sum, a.weights * b.fade + b.weights};
  }
  [[nodiscard]] static Number result(const State& window, const End& /*end*/) {
    return window.sum / window.weights;
  }
};

template <typename Vector>
struct Place {
  Lanes<Vector> value;
  Lanes<Vector> row;
  // 1 where the days before the one that has the value must be looked at for what is alike to it.
  Lanes<Vector> unsure;
};

// The place of the greatest, or with the sign -1 of the least.
template <typename Vector>
struct PlaceFold : SingleFold<Vector> {
  using typename SingleFold<Vector>::Number;
  using typename SingleFold<Vector>::Values;
  using typename SingleFold<Vector>::End;
  using State = Place<Vector>;
  static constexpr double kNothing = -std::numeric_limits<double>::infinity();

  double sign;
  double window_days;

  PlaceFold(double sign_of_values, double days) : sign(sign_of_values), window_days(days) {}
  template <typename Known>
  [[nodiscard]] State lift(const Values& x, const Known& known, double row) const {
    return {known.or_else(sign * x[0], kNothing), row, 0.0};
  }
  // The days of a are older, and stay where the two are equal. Where they are only alike, a day of
  // a that is alike to its first need not be alike to that of b.
  [[nodiscard]] static State merge(const State& a, const State& b) {
    const LaneMask<Vector> is_after = a.value < b.value;
    const LaneMask<Vector> is_near =
        is_after & (Number(kNothing) < a.value) & are_alike(a.value, b.value);
    return {choose(is_after, b.value, a.value), choose(is_after, b.row, a.row),
            choose(is_near, 1.0, choose(is_after, b.unsure, a.unsure))};
  }
  [[nodiscard]] Number result(const State& first, const End& end) const {
    const Number place = first.row - (end.row - window_days);
    return choose(Number(0.0) < first.unsure, kUnsurePlace, place);
  }
};

}  // namespace varnholt::embedded
