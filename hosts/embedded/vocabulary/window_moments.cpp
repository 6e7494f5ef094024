// The functions of window_functions.hpp that are made of moments.
#include <array>

#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/rolling_lanes.hpp"
#include "hosts/embedded/vocabulary/window_functions.hpp"

namespace varnholt::embedded {
namespace {

using OneValue = std::array<Lanes, 1>;
using TwoValues = std::array<Lanes, 2>;

// Mean and sums of the powers of the deviations from it. Two sets merge without cancellation by the
// formulas of Pebay (2008), "Formulas for robust, one-pass parallel computation of covariances and
// arbitrary-order statistical moments".
struct FourMoments {
  Lanes count;
  Lanes mean;
  Lanes second;
  Lanes third;
  Lanes fourth;

  // Whether the spread is nothing but rounding.
  [[nodiscard]] LaneMask is_constant() const {
    return second <= kConstantTolerance * (second + count * mean * mean);
  }
};

struct FourMomentsFold {
  using State = FourMoments;
  [[nodiscard]] static FourMoments lift(const OneValue& x, const Lanes& /*day*/) {
    return {one_where(are_known(x[0])), known_or(0.0, x[0]), 0.0, 0.0, 0.0};
  }
  [[nodiscard]] static FourMoments merge(const FourMoments& a, const FourMoments& b) {
    const Lanes n = a.count + b.count;
    const Lanes distance = b.mean - a.mean;
    const Lanes step = distance / at_least_one(n);  // Of two empty sets it is 0.
    const Lanes product = distance * step * a.count * b.count;
    FourMoments merged;
    merged.count = n;
    merged.mean = a.mean + step * b.count;
    merged.second = a.second + b.second + product;
    merged.third = a.third + b.third + product * step * (a.count - b.count) +
                   3.0 * step * (a.count * b.second - b.count * a.second);
    merged.fourth =
        a.fourth + b.fourth +
        product * step * step * (a.count * a.count - a.count * b.count + b.count * b.count) +
        6.0 * step * step * (a.count * a.count * b.second + b.count * b.count * a.second) +
        4.0 * step * (a.count * b.third - b.count * a.third);
    return merged;
  }
};

struct SkewFold : FourMomentsFold {
  [[nodiscard]] static Lanes result(const FourMoments& moments, const Lanes& /*known*/,
                                    const OneValue& /*today*/, const Lanes& /*day*/) {
    const Lanes n = moments.count;
    const Lanes variance = moments.second / (n - 1.0);
    const Lanes skew =
        n / ((n - 1.0) * (n - 2.0)) * moments.third / (variance * square_root(variance));
    return choose((n < 3.0) | moments.is_constant(), kUnknown, skew);
  }
};

struct KurtosisFold : FourMomentsFold {
  [[nodiscard]] static Lanes result(const FourMoments& moments, const Lanes& /*known*/,
                                    const OneValue& /*today*/, const Lanes& /*day*/) {
    const Lanes n = moments.count;
    const Lanes variance = moments.second / (n - 1.0);
    const Lanes fourth = moments.fourth / (variance * variance);
    const Lanes kurtosis = n * (n + 1.0) / ((n - 1.0) * (n - 2.0) * (n - 3.0)) * fourth -
                           3.0 * (n - 1.0) * (n - 1.0) / ((n - 2.0) * (n - 3.0));
    return choose((n < 4.0) | moments.is_constant(), kUnknown, kurtosis);
  }
};

// The means of two series, the squared deviations of the second, and the products of both.
struct LineSums {
  Lanes count;
  Lanes x_mean;
  Lanes y_mean;
  Lanes y_squares;
  Lanes products;

  // NaN where y is constant: then there is no line.
  [[nodiscard]] Lanes slope() const {
    const LaneMask is_constant =
        y_squares <= kConstantTolerance * (y_squares + count * y_mean * y_mean);
    return choose(is_constant, kUnknown, products / y_squares);
  }
};

struct LineFold {
  using State = LineSums;
  [[nodiscard]] static LineSums lift(const TwoValues& values, const Lanes& /*day*/) {
    const LaneMask known = are_known(values[0]) & are_known(values[1]);
    return {one_where(known), choose(known, values[0], 0.0), choose(known, values[1], 0.0), 0.0,
            0.0};
  }
  [[nodiscard]] static LineSums merge(const LineSums& a, const LineSums& b) {
    const Lanes n = a.count + b.count;
    const Lanes share = b.count / at_least_one(n);
    const Lanes x_distance = b.x_mean - a.x_mean;
    const Lanes y_distance = b.y_mean - a.y_mean;
    const Lanes weight = a.count * share;
    return {n, a.x_mean + x_distance * share, a.y_mean + y_distance * share,
            a.y_squares + b.y_squares + y_distance * y_distance * weight,
            a.products + b.products + x_distance * y_distance * weight};
  }
};

struct SlopeFold : LineFold {
  [[nodiscard]] static Lanes result(const LineSums& sums, const Lanes& /*known*/,
                                    const TwoValues& /*today*/, const Lanes& /*day*/) {
    return sums.slope();
  }
};

struct ResidualFold : LineFold {
  [[nodiscard]] static Lanes result(const LineSums& sums, const Lanes& /*known*/,
                                    const TwoValues& today, const Lanes& /*day*/) {
    return today[0] - sums.x_mean - sums.slope() * (today[1] - sums.y_mean);
  }
};

}  // namespace

Panel ts_skew(const Panel& x, const Window& window) {
  return rolled(std::array{&x}, window, SkewFold());
}

Panel ts_kurtosis(const Panel& x, const Window& window) {
  return rolled(std::array{&x}, window, KurtosisFold());
}

Panel ts_slope(const Panel& x, const Panel& y, const Window& window) {
  return rolled(std::array{&x, &y}, window, SlopeFold());
}

Panel ts_residual(const Panel& x, const Panel& y, const Window& window) {
  return rolled(std::array{&x, &y}, window, ResidualFold());
}

}  // namespace varnholt::embedded
