// The functions of window_functions.hpp that ask where values stand in a window, and in what order.
#include "hosts/embedded/vocabulary/window_functions.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/known_days.hpp"
#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/rolling_lanes.hpp"

namespace varnholt::embedded {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

using OneValue = std::array<Lanes, 1>;

struct Product {
  Lanes value;
};

struct ProductFold {
  using State = Product;
  [[nodiscard]] static Product lift(const OneValue& x, const Lanes& /*day*/) {
    return {known_or(1.0, x[0])};
  }
  [[nodiscard]] static Product merge(const Product& a, const Product& b) {
    return {a.value * b.value};
  }
  [[nodiscard]] static Lanes result(const Product& product, const Lanes& /*known*/,
                                    const OneValue& /*today*/, const Lanes& /*day*/) {
    return product.value;
  }
};

struct Place {
  Lanes value;
  Lanes day;
  // 1 where the days before the one that has the value must be looked at for what is alike to it.
  Lanes unsure;
};

// The place of the greatest, or with the sign -1 of the least; kUnsure where the window must be
// looked at.
struct PlaceFold {
  using State = Place;
  static constexpr double kUnsure = -1.0;

  double sign;
  double window;

  [[nodiscard]] Place lift(const OneValue& x, const Lanes& day) const {
    return {known_or(-kInfinity, sign * x[0]), day, 0.0};
  }
  // The days of a are older, and stay where the two are equal. Where they are only alike, a day of
  // a that is alike to its first need not be alike to that of b.
  [[nodiscard]] static Place merge(const Place& a, const Place& b) {
    const LaneMask is_after = a.value < b.value;
    const LaneMask is_near = is_after & (Lanes(-kInfinity) < a.value) & are_alike(a.value, b.value);
    return {choose(is_after, b.value, a.value), choose(is_after, b.day, a.day),
            choose(is_near, 1.0, choose(is_after, b.unsure, a.unsure))};
  }
  [[nodiscard]] Lanes result(const Place& first, const Lanes& /*known*/, const OneValue& /*today*/,
                             const Lanes& day) const {
    return choose(Lanes(0.0) < first.unsure, kUnsure, first.day - (day - window));
  }
};

// The place, from 1 on, of the oldest day of a window that is alike to the greatest in it.
double oldest_alike(const double* last, Eigen::Index days, double sign) {
  const double* const first = last - days + 1;
  double greatest = -kInfinity;
  for (const double* value = first; value <= last; ++value)
    greatest = sign * *value > greatest ? sign * *value : greatest;
  const double* const found =
      std::find_if(first, last, [&](double value) { return are_alike(sign * value, greatest); });
  return static_cast<double>(found - first + 1);
}

Panel place_of_greatest(const Panel& x, const Window& window, double sign) {
  Panel places = rolled(std::array{&x}, window, PlaceFold{sign, static_cast<double>(window.days)});
  for (Eigen::Index i = 0; i < places.size(); ++i) {
    double& place = places.data()[i];
    if (place == PlaceFold::kUnsure) place = oldest_alike(x.data() + i, window.days, sign);
  }
  return places;
}

// A sum in which a day counts the less the older it is, relative to the last day of it.
struct FadingSum {
  Lanes fade;  // What a day before it would count.
  Lanes sum;
  Lanes weights;
};

struct FadingFold {
  using State = FadingSum;

  double fade;

  [[nodiscard]] FadingSum lift(const OneValue& x, const Lanes& /*day*/) const {
    return {fade, known_or(0.0, x[0]), one_where(are_known(x[0]))};
  }
  [[nodiscard]] static FadingSum merge(const FadingSum& a, const FadingSum& b) {
    return {a.fade * b.fade, a.sum * b.fade + b.sum, a.weights * b.fade + b.weights};
  }
  [[nodiscard]] static Lanes result(const FadingSum& sums, const Lanes& /*known*/,
                                    const OneValue& /*today*/, const Lanes& /*day*/) {
    return sums.sum / sums.weights;
  }
};

double value_at_share(const std::vector<double>& sorted, double share) {
  const double place = share * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, sorted.size() - 1);
  const double part = place - static_cast<double>(below);
  return part == 0.0 ? sorted[below] : sorted[below] + part * (sorted[above] - sorted[below]);
}

}  // namespace

Panel ts_delay(const Panel& x, const Window& window) {
  require_window(window.days);
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  const Eigen::Index days = x.rows() - window.days;
  if (days > 0) result.bottomRows(days) = x.topRows(days);
  return result;
}

Panel ts_product(const Panel& x, const Window& window) {
  return rolled(std::array{&x}, window, ProductFold());
}

Panel ts_argmax(const Panel& x, const Window& window) {
  return place_of_greatest(x, window, 1.0);
}

Panel ts_argmin(const Panel& x, const Window& window) {
  return place_of_greatest(x, window, -1.0);
}

Panel ts_ema(const Panel& x, const Window& window) {
  const auto days = static_cast<double>(window.days);
  return rolled(std::array{&x}, window, FadingFold{(days - 1.0) / (days + 1.0)});
}

Panel ts_quantile(const Panel& x, double share, const Window& window) {
  require_window(window.days);
  if (!(share >= 0.0 && share <= 1.0)) {
    throw std::invalid_argument("the share " + std::to_string(share) +
                                " of a quantile; a share is a number from 0 to 1");
  }
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  std::vector<std::int32_t> known(static_cast<std::size_t>(x.rows()));
  std::vector<double> sorted;  // The known values of the window.
  sorted.reserve(static_cast<std::size_t>(std::min(window.days, x.rows())) + 1);
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    sorted.clear();
    const double* const from = x.data() + column * x.rows();
    count_known_days(
        window, [&](Eigen::Index day) { return !std::isnan(from[day]); }, known);
    for (Eigen::Index day = 0; day < x.rows(); ++day) {
      const double today = from[day];
      if (!std::isnan(today)) {
        sorted.insert(std::upper_bound(sorted.begin(), sorted.end(), today), today);
      }
      const double gone = day >= window.days ? from[day - window.days] : kUnknown;
      if (!std::isnan(gone)) sorted.erase(std::lower_bound(sorted.begin(), sorted.end(), gone));
      if (known[static_cast<std::size_t>(day)] == 0) continue;
      result(day, column) = finite_or_nan(value_at_share(sorted, share));
    }
  }
  return result;
}

}  // namespace varnholt::embedded
