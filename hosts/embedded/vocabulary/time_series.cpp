// The functions of panel_functions.hpp that work over the history of one instrument.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/known_days.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/rolling_lanes.hpp"

namespace varnholt::embedded {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// A share of days that is as near to a whole number is meant to be it: 0.55 of 20 is 11.
constexpr double kShareTolerance = 1e-9;

using OneValue = std::array<Lanes, 1>;
using TwoValues = std::array<Lanes, 2>;

// A number of which two are joined by a function.
struct Single {
  Lanes value;
};

struct SumFold {
  using State = Single;
  [[nodiscard]] static Single lift(const OneValue& x, const Lanes& /*day*/) {
    return {known_or(0.0, x[0])};
  }
  [[nodiscard]] static Single merge(const Single& a, const Single& b) {
    return {a.value + b.value};
  }
  [[nodiscard]] static Lanes result(const Single& sum, const Lanes& /*known*/,
                                    const OneValue& /*today*/, const Lanes& /*day*/) {
    return sum.value;
  }
};

struct MeanFold : SumFold {
  [[nodiscard]] static Lanes result(const Single& sum, const Lanes& known,
                                    const OneValue& /*today*/, const Lanes& /*day*/) {
    return sum.value / known;
  }
};

struct LeastFold : SumFold {
  [[nodiscard]] static Single lift(const OneValue& x, const Lanes& /*day*/) {
    return {known_or(kInfinity, x[0])};
  }
  [[nodiscard]] static Single merge(const Single& a, const Single& b) {
    return {choose(b.value < a.value, b.value, a.value)};
  }
};

struct GreatestFold : SumFold {
  [[nodiscard]] static Single lift(const OneValue& x, const Lanes& /*day*/) {
    return {known_or(-kInfinity, x[0])};
  }
  [[nodiscard]] static Single merge(const Single& a, const Single& b) {
    return {choose(a.value < b.value, b.value, a.value)};
  }
};

// Mean and sum of squared deviations from it, of the known values. Two sets merge without
// cancellation by the formula of Chan, Golub and LeVeque (1979), "Updating formulae and a pairwise
// algorithm for computing sample variances".
struct Moments {
  Lanes count;
  Lanes mean;
  Lanes deviations;

  // Whether the spread is nothing but rounding.
  [[nodiscard]] LaneMask is_constant() const {
    return deviations <= kConstantTolerance * (deviations + count * mean * mean);
  }
  [[nodiscard]] Lanes standard_deviation() const {
    const Lanes spread = square_root(deviations / (count - 1.0));
    return choose(count < 2.0, kUnknown, choose(is_constant(), 0.0, spread));
  }
};

struct MomentsFold {
  using State = Moments;
  [[nodiscard]] static Moments lift(const OneValue& x, const Lanes& /*day*/) {
    return {one_where(are_known(x[0])), known_or(0.0, x[0]), 0.0};
  }
  [[nodiscard]] static Moments merge(const Moments& a, const Moments& b) {
    const Lanes count = a.count + b.count;
    const Lanes share = b.count / at_least_one(count);  // Of two empty sets it is 0.
    const Lanes distance = b.mean - a.mean;
    return {count, a.mean + distance * share,
            a.deviations + b.deviations + distance * distance * a.count * share};
  }
};

struct DeviationFold : MomentsFold {
  [[nodiscard]] static Lanes result(const Moments& moments, const Lanes& /*known*/,
                                    const OneValue& /*today*/, const Lanes& /*day*/) {
    return moments.standard_deviation();
  }
};

struct ScoreFold : MomentsFold {
  [[nodiscard]] static Lanes result(const Moments& moments, const Lanes& /*known*/,
                                    const OneValue& today, const Lanes& /*day*/) {
    const Lanes spread = moments.standard_deviation();
    const Lanes score = (today[0] - moments.mean) / spread;
    return choose(spread == Lanes(0.0), kUnknown, score);
  }
};

// The means of two series, and the sum of the products of the deviations from them.
struct Products {
  Lanes count;
  Lanes x_mean;
  Lanes y_mean;
  Lanes products;
};

struct CovarianceFold {
  using State = Products;
  [[nodiscard]] static Products lift(const TwoValues& values, const Lanes& /*day*/) {
    const LaneMask known = are_known(values[0]) & are_known(values[1]);
    return {one_where(known), choose(known, values[0], 0.0), choose(known, values[1], 0.0), 0.0};
  }
  [[nodiscard]] static Products merge(const Products& a, const Products& b) {
    const Lanes count = a.count + b.count;
    const Lanes share = b.count / at_least_one(count);
    const Lanes x_distance = b.x_mean - a.x_mean;
    const Lanes y_distance = b.y_mean - a.y_mean;
    return {count, a.x_mean + x_distance * share, a.y_mean + y_distance * share,
            a.products + b.products + x_distance * y_distance * a.count * share};
  }
  [[nodiscard]] static Lanes result(const Products& pair, const Lanes& /*known*/,
                                    const TwoValues& /*today*/, const Lanes& /*day*/) {
    return choose(pair.count < 2.0, kUnknown, pair.products / (pair.count - 1.0));
  }
};

// The moments of two series and their co-moment, the sum of the products of their deviations.
struct PairMoments {
  Lanes count;
  Lanes x_mean;
  Lanes x_deviations;
  Lanes y_mean;
  Lanes y_deviations;
  Lanes products;

  [[nodiscard]] Moments x() const { return {count, x_mean, x_deviations}; }
  [[nodiscard]] Moments y() const { return {count, y_mean, y_deviations}; }
};

struct PairFold {
  using State = PairMoments;
  [[nodiscard]] static PairMoments lift(const TwoValues& values, const Lanes& /*day*/) {
    const LaneMask known = are_known(values[0]) & are_known(values[1]);
    return {one_where(known),
            choose(known, values[0], 0.0),
            0.0,
            choose(known, values[1], 0.0),
            0.0,
            0.0};
  }
  [[nodiscard]] static PairMoments merge(const PairMoments& a, const PairMoments& b) {
    const Moments x = MomentsFold::merge(a.x(), b.x());
    const Moments y = MomentsFold::merge(a.y(), b.y());
    const Lanes share = b.count / at_least_one(a.count + b.count);
    const Lanes distance = (b.x_mean - a.x_mean) * (b.y_mean - a.y_mean);
    return {x.count, x.mean,       x.deviations,
            y.mean,  y.deviations, a.products + b.products + distance * a.count * share};
  }
};

struct CorrelationFold : PairFold {
  [[nodiscard]] static Lanes result(const PairMoments& pair, const Lanes& /*known*/,
                                    const TwoValues& /*today*/, const Lanes& /*day*/) {
    const Lanes correlation =
        pair.products / square_root(pair.x_deviations) / square_root(pair.y_deviations);
    // Rounding can carry a perfect correlation beyond one; a NaN stays one.
    const Lanes not_below = choose(correlation < -1.0, -1.0, correlation);
    const Lanes within = choose(Lanes(1.0) < not_below, 1.0, not_below);
    return choose(pair.x().is_constant() | pair.y().is_constant(), kUnknown, within);
  }
};

// A sum, and the sum in which the value of the i-th oldest day counts i times; and both of ones in
// the place of the known values, which are the weights.
struct WeightedSum {
  Lanes days;
  Lanes sum;
  Lanes weighted;
  Lanes known;
  Lanes weights;
};

struct DecayFold {
  using State = WeightedSum;
  [[nodiscard]] static WeightedSum lift(const OneValue& x, const Lanes& /*day*/) {
    const Lanes value = known_or(0.0, x[0]);
    const Lanes known = one_where(are_known(x[0]));
    return {1.0, value, value, known, known};
  }
  // Behind a.days older days, each value of b counts a.days times more.
  [[nodiscard]] static WeightedSum merge(const WeightedSum& a, const WeightedSum& b) {
    return {a.days + b.days, a.sum + b.sum, a.weighted + b.weighted + a.days * b.sum,
            a.known + b.known, a.weights + b.weights + a.days * b.known};
  }
  [[nodiscard]] static Lanes result(const WeightedSum& sums, const Lanes& /*known*/,
                                    const OneValue& /*today*/, const Lanes& /*day*/) {
    return sums.weighted / sums.weights;
  }
};

// For some days from `today` on: how many of the `earlier` days before each have a lesser value;
// one that is alike to that of the day counts half, one that is not known nothing.
Lanes places_in_window(const double* today, std::size_t earlier) {
  const Lanes value = Lanes::from(today);
  const Lanes rounding = value * kAlikeTolerance;
  const Lanes low = choose(rounding < 0.0, value + rounding, value - rounding);
  const Lanes high = choose(rounding < 0.0, value - rounding, value + rounding);
  Lanes places = 0.0;
  for (std::size_t age = 1; age <= earlier; ++age) {
    const Lanes other = Lanes::from(today - age);
    places = places + choose(other < low, 0.5, 0.0) + choose(other <= high, 0.5, 0.0);
  }
  return places;
}

}  // namespace

Window::Window(Eigen::Index all_days, double least_known_share)
    : days(all_days),
      least_known(std::max<Eigen::Index>(
          1, static_cast<Eigen::Index>(std::ceil(least_known_share * static_cast<double>(all_days) -
                                                 kShareTolerance)))) {}

Panel ts_sum(const Panel& x, const Window& window) {
  return rolled(std::array{&x}, window, SumFold());
}

Panel ts_mean(const Panel& x, const Window& window) {
  return rolled(std::array{&x}, window, MeanFold());
}

Panel ts_min(const Panel& x, const Window& window) {
  return rolled(std::array{&x}, window, LeastFold());
}

Panel ts_max(const Panel& x, const Window& window) {
  return rolled(std::array{&x}, window, GreatestFold());
}

Panel ts_std(const Panel& x, const Window& window) {
  return rolled(std::array{&x}, window, DeviationFold());
}

Panel ts_zscore(const Panel& x, const Window& window) {
  return rolled(std::array{&x}, window, ScoreFold());
}

Panel ts_rank(const Panel& x, const Window& window) {
  require_window(window.days);
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  if (window.days > x.rows()) return result;
  // Today is compared with every day of its window: that is window comparisons a day, but without
  // branches and for some days at once, which is faster than keeping the window sorted for any
  // window in use. Before the history and behind it stands what is not known.
  const auto before = static_cast<std::size_t>(window.days - 1);
  const auto days = static_cast<std::size_t>(x.rows());
  std::vector<double> history(before + days + kLanes, kUnknown);
  std::vector<std::int32_t> known(days);
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const from = x.data() + column * x.rows();
    double* const to = result.data() + column * x.rows();
    std::copy(from, from + days, history.begin() + window.days - 1);
    count_known_days(
        window, [&](Eigen::Index day) { return !std::isnan(from[day]); }, known);
    for (std::size_t day = 0; day < days; day += kLanes) {
      const Lanes places = places_in_window(history.data() + before + day, before);
      for (std::size_t i = day; i < std::min(day + kLanes, days); ++i) {
        if (known[i] == 0) continue;
        to[i] = known[i] == 1 ? 0.5 : places.get(i - day) / static_cast<double>(known[i] - 1);
      }
    }
  }
  return result;
}

Panel ts_delta(const Panel& x, const Window& window) {
  require_window(window.days);
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    for (Eigen::Index day = window.days; day < x.rows(); ++day) {
      result(day, column) = finite_or_nan(x(day, column) - x(day - window.days, column));
    }
  }
  return result;
}

Panel ts_decay(const Panel& x, const Window& window) {
  return rolled(std::array{&x}, window, DecayFold());
}

Panel ts_covariance(const Panel& x, const Panel& y, const Window& window) {
  return rolled(std::array{&x, &y}, window, CovarianceFold());
}

Panel ts_correlation(const Panel& x, const Panel& y, const Window& window) {
  return rolled(std::array{&x, &y}, window, CorrelationFold());
}

}  // namespace varnholt::embedded
