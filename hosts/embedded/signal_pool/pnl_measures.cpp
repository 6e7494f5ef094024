#include "hosts/embedded/signal_pool/pnl_measures.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXd;
using Eigen::Index;

void require_finite(const ArrayXd& series) {
  if (series.isFinite().all()) return;
  throw std::invalid_argument("a PnL series has an entry that is no finite number");
}

void require_same_size(Index left, Index right) {
  if (left == right) return;
  throw std::invalid_argument(
      fmt::format("two PnL series have {} and {} days; only equal days compare", left, right));
}

// SplitMix64 (G. Steele, D. Lea, C. Flood, "Fast splittable pseudorandom number generators", 2014):
// one step, and a mixer of bits.
std::uint64_t mixed(std::uint64_t bits) {
  bits += 0x9e3779b97f4a7c15ULL;
  bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9ULL;
  bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebULL;
  return bits ^ (bits >> 31);
}

// For each day how many different values are smaller: the same for any series of the same order.
std::vector<std::uint64_t> dense_ranks(const ArrayXd& series, const std::vector<Index>& order) {
  std::vector<std::uint64_t> ranks(order.size());
  std::uint64_t rank = 0;
  for (std::size_t i = 1; i < order.size(); ++i) {
    if (series[order[i]] != series[order[i - 1]]) ++rank;
    ranks[static_cast<std::size_t>(order[i])] = rank;
  }
  return ranks;
}

// Walks away from a day along the one series, always on to the nearer side, and keeps the distances
// of the days nearest to it in the plane.
class NeighbourSearch {
 public:
  NeighbourSearch(const NormalScores& along, const NormalScores& across, int neighbours)
      : along_(along), across_(across), nearest_(static_cast<std::size_t>(neighbours)) {}

  // The distance of the last of the neighbours.
  double distance_of_last(Index day) {
    std::fill(nearest_.begin(), nearest_.end(), std::numeric_limits<double>::infinity());
    const std::vector<Index>& order = along_.days_in_order();
    Index below = along_.place_of_day()[static_cast<std::size_t>(day)] - 1;
    Index above = below + 2;
    while (true) {
      const double down = distance_along(day, below);
      const double up = distance_along(day, above);
      const double nearer = std::min(down, up);
      // Also ends the walk when both sides have run out.
      if (!(nearer < nearest_.back())) return nearest_.back();
      Index& place = down <= up ? below : above;
      const Index other = order[static_cast<std::size_t>(place)];
      place += down <= up ? -1 : 1;
      keep(std::max(nearer, std::abs(across_.by_day()[day] - across_.by_day()[other])));
    }
  }

 private:
  [[nodiscard]] double distance_along(Index day, Index place) const {
    if (place < 0 || place >= along_.size()) return std::numeric_limits<double>::infinity();
    const Index other = along_.days_in_order()[static_cast<std::size_t>(place)];
    return std::abs(along_.by_day()[day] - along_.by_day()[other]);
  }
  void keep(double distance) {
    if (distance >= nearest_.back()) return;
    const auto place = std::upper_bound(nearest_.begin(), nearest_.end(), distance);
    std::move_backward(place, nearest_.end() - 1, nearest_.end());
    *place = distance;
  }

  const NormalScores& along_;
  const NormalScores& across_;
  std::vector<double> nearest_;  // Ascending.
};

// The other days nearer to the day than `distance`.
Index count_nearer(const NormalScores& scores, Index day, double distance) {
  const std::vector<Index>& order = scores.days_in_order();
  const double value = scores.by_day()[day];
  const auto self = order.begin() + scores.place_of_day()[static_cast<std::size_t>(day)];
  const auto first = std::partition_point(
      order.begin(), self, [&](Index other) { return value - scores.by_day()[other] >= distance; });
  const auto last = std::partition_point(
      self, order.end(), [&](Index other) { return scores.by_day()[other] - value < distance; });
  return (last - first) - 1;
}

}  // namespace

double pearson_correlation(const ArrayXd& left, const ArrayXd& right) {
  require_same_size(left.size(), right.size());
  require_finite(left);
  require_finite(right);
  if (left.size() == 0) return 0.0;
  // The sums of a constant series round to something next to nothing, not to nothing.
  if ((left == left[0]).all() || (right == right[0]).all()) return 0.0;
  // Scaled to a greatest value of 1, so that no square is lost or beyond all numbers.
  const ArrayXd x = left / left.abs().maxCoeff();
  const ArrayXd y = right / right.abs().maxCoeff();
  const ArrayXd dx = x - x.mean();
  const ArrayXd dy = y - y.mean();
  const double norm = std::sqrt(dx.square().sum()) * std::sqrt(dy.square().sum());
  if (!(norm > 0.0)) return 0.0;
  return std::clamp((dx * dy).sum() / norm, -1.0, 1.0);
}

NormalScores::NormalScores(const ArrayXd& series) : by_day_(series.size()) {
  require_finite(series);
  const auto size = static_cast<std::size_t>(series.size());
  days_in_order_.resize(size);
  place_of_day_.resize(size);
  std::iota(days_in_order_.begin(), days_in_order_.end(), Index{0});
  std::sort(days_in_order_.begin(), days_in_order_.end(),
            [&](Index a, Index b) { return series[a] < series[b]; });
  const std::vector<std::uint64_t> ranks = dense_ranks(series, days_in_order_);
  is_constant_ = size == 0 || series[days_in_order_.front()] == series[days_in_order_.back()];

  std::uint64_t seed = 0;
  for (const std::uint64_t rank : ranks)
    seed = mixed(seed ^ rank);
  const auto key = [&](Index day) {
    const std::uint64_t tie = mixed(seed ^ mixed(static_cast<std::uint64_t>(day)));
    return std::make_pair(ranks[static_cast<std::size_t>(day)], tie);
  };
  std::sort(days_in_order_.begin(), days_in_order_.end(),
            [&](Index a, Index b) { return key(a) < key(b); });
  for (std::size_t place = 0; place < size; ++place) {
    const Index day = days_in_order_[place];
    place_of_day_[static_cast<std::size_t>(day)] = static_cast<Index>(place);
    by_day_[day] = normal_quantile((static_cast<double>(place) + 0.5) / static_cast<double>(size));
  }
}

double mutual_information(const NormalScores& left, const NormalScores& right, int neighbours) {
  require_same_size(left.size(), right.size());
  const Index size = left.size();
  if (neighbours < 1 || size <= neighbours) {
    throw std::invalid_argument(
        fmt::format("{} neighbours cannot be found among {} days", neighbours, size));
  }
  if (left.is_constant() || right.is_constant()) return 0.0;
  const std::vector<double> digamma = digamma_of_integers(size);
  const auto psi = [&](Index n) { return digamma[static_cast<std::size_t>(n - 1)]; };
  NeighbourSearch search(left, right, neighbours);
  double sum = 0.0;
  for (Index day = 0; day < size; ++day) {
    const double distance = search.distance_of_last(day);
    sum += psi(count_nearer(left, day, distance) + 1) + psi(count_nearer(right, day, distance) + 1);
  }
  return psi(neighbours) + psi(size) - sum / static_cast<double>(size);
}

double mutual_information(const ArrayXd& left, const ArrayXd& right, int neighbours) {
  return mutual_information(NormalScores(left), NormalScores(right), neighbours);
}

double normal_quantile(double p) {
  if (p > 0.5) return -normal_quantile(1.0 - p);
  // A rational function that is right to 4.5e-4 (M. Abramowitz, I. Stegun, "Handbook of
  // mathematical functions", 26.2.23), and two steps of Halley's method to the last digits.
  const double t = std::sqrt(-2.0 * std::log(p));
  double x = (2.515517 + t * (0.802853 + t * 0.010328)) /
                 (1.0 + t * (1.432788 + t * (0.189269 + t * 0.001308))) -
             t;
  for (int step = 0; step < 2; ++step) {
    const double error = 0.5 * std::erfc(-x / std::numbers::sqrt2) - p;
    const double newton = error * std::sqrt(2.0 * std::numbers::pi) * std::exp(x * x / 2.0);
    x -= newton / (1.0 + x * newton / 2.0);
  }
  return x;
}

std::vector<double> digamma_of_integers(std::int64_t n) {
  std::vector<double> values;
  values.reserve(static_cast<std::size_t>(n));
  double value = -std::numbers::egamma;
  for (std::int64_t m = 1; m <= n; ++m) {
    values.push_back(value);
    value += 1.0 / static_cast<double>(m);
  }
  return values;
}

}  // namespace varnholt::embedded
