#include "hosts/embedded/signal_pool/pnl_measures.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
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

void require_same_size(Index left, Index right) {
  if (left == right) return;
  throw std::invalid_argument(
      fmt::format("two PnL series have {} and {} days; only equal days compare", left, right));
}

// The plane of two series, cut into cells of equally many places along either axis, so that the
// neighbours of a day are found in the cells around its own.
class NeighbourGrid {
 public:
  NeighbourGrid(const NormalScores& left, const NormalScores& right, int neighbours)
      : left_(left), right_(right), neighbours_(static_cast<std::size_t>(neighbours)) {
    const Index size = left.size();
    const double cells = static_cast<double>(size) * density_of(left, right) / kDaysInCell;
    side_ = std::max<Index>(1, std::lround(std::sqrt(cells)));
    first_place_.resize(static_cast<std::size_t>(side_) + 1);
    for (Index line = 0; line <= side_; ++line) {
      // The least place with place * side / size == line.
      first_place_[static_cast<std::size_t>(line)] = (line * size + side_ - 1) / side_;
    }
    std::vector<Index> line_of_place(static_cast<std::size_t>(size));
    for (Index line = 0; line < side_; ++line) {
      const auto begin = line_of_place.begin();
      std::fill(begin + first_place_[static_cast<std::size_t>(line)],
                begin + first_place_[static_cast<std::size_t>(line) + 1], line);
    }
    sort_into_cells(line_of_place);
  }

  // The distance of the last of the day's neighbours.
  double distance_of_last(Index day) {
    const auto index = static_cast<std::size_t>(day);
    const Index row = cell_of_day_[index] / side_;
    const Index column = cell_of_day_[index] % side_;
    const double x = left_.by_day()[day];
    const double y = right_.by_day()[day];
    for (Index reach = 1;; ++reach) {
      const Lines rows = lines_around(row, reach);
      const Lines columns = lines_around(column, reach);
      const double beyond = std::min(distance_beyond(left_.in_order(), x, rows),
                                     distance_beyond(right_.in_order(), y, columns));
      // First those that are likely near enough, then, where they are too few, all.
      for (const double limit : {std::min(likely_limit(rows, columns), beyond), beyond}) {
        const std::size_t count = collect_distances({x, y}, rows, columns, limit);
        // The day itself is among them, at distance 0.
        if (count > neighbours_) return distance_at(neighbours_, count);
      }
    }
  }

 private:
  // Both found by trying: fewer days are looked at in small cells, but more cells.
  static constexpr double kDaysInCell = 3.0;
  static constexpr double kLikelyDays = 1.5;  // For each neighbour.
  // Beyond this one is all but a copy of the other, and a grid would be of empty cells.
  static constexpr double kGreatestDensity = 20.0;

  // How much denser the days lie than those of two independent series: that of a Gaussian pair,
  // exp(its mutual information). A copy of a signal has all of its days in the cells of a diagonal.
  static double density_of(const NormalScores& left, const NormalScores& right) {
    const ArrayXd& x = left.by_day();
    const double correlation = (x * right.by_day()).sum() / x.square().sum();
    constexpr double kLeastUnexplained = 1.0 / (kGreatestDensity * kGreatestDensity);
    return 1.0 / std::sqrt(std::max(1.0 - correlation * correlation, kLeastUnexplained));
  }

  // The lines first .. end - 1 of one axis.
  struct Lines {
    Index first;
    Index end;
  };

  [[nodiscard]] Lines lines_around(Index line, Index reach) const {
    return {std::max<Index>(0, line - reach), std::min(side_, line + reach + 1)};
  }

  // No day outside the lines is nearer than this; infinity where there is none.
  [[nodiscard]] double distance_beyond(const std::vector<double>& in_order, double value,
                                       const Lines& lines) const {
    double distance = std::numeric_limits<double>::infinity();
    const auto first =
        static_cast<std::size_t>(first_place_[static_cast<std::size_t>(lines.first)]);
    const auto end = static_cast<std::size_t>(first_place_[static_cast<std::size_t>(lines.end)]);
    if (first > 0) distance = value - in_order[first - 1];
    if (end < in_order.size()) distance = std::min(distance, in_order[end] - value);
    return distance;
  }

  void sort_into_cells(const std::vector<Index>& line_of_place) {
    const auto size = static_cast<std::size_t>(left_.size());
    first_in_cell_.assign(static_cast<std::size_t>(side_ * side_) + 1, 0);
    cell_of_day_.resize(size);
    for (std::size_t day = 0; day < size; ++day) {
      const Index row = line_of_place[static_cast<std::size_t>(left_.place_of_day()[day])];
      const Index column = line_of_place[static_cast<std::size_t>(right_.place_of_day()[day])];
      cell_of_day_[day] = row * side_ + column;
      ++first_in_cell_[static_cast<std::size_t>(cell_of_day_[day]) + 1];
    }
    std::partial_sum(first_in_cell_.begin(), first_in_cell_.end(), first_in_cell_.begin());
    std::vector<std::size_t> next(first_in_cell_.begin(), first_in_cell_.end() - 1);
    xs_.resize(size + NearDays::kReadBeyond);
    ys_.resize(size + NearDays::kReadBeyond);
    distances_.resize(size + NearDays::kReadBeyond);
    for (std::size_t day = 0; day < size; ++day) {
      const std::size_t place = next[static_cast<std::size_t>(cell_of_day_[day])]++;
      xs_[place] = left_.by_day()[static_cast<Index>(day)];
      ys_[place] = right_.by_day()[static_cast<Index>(day)];
    }
  }

  // Within it there are kLikelyDays for each neighbour, if the days of the cells are spread evenly.
  [[nodiscard]] double likely_limit(const Lines& rows, const Lines& columns) const {
    std::size_t days = 0;
    for (Index row = rows.first; row < rows.end; ++row) {
      days += first_in_cell_[static_cast<std::size_t>(row * side_ + columns.end)] -
              first_in_cell_[static_cast<std::size_t>(row * side_ + columns.first)];
    }
    const double area = extent(left_.in_order(), rows) * extent(right_.in_order(), columns);
    return 0.5 * std::sqrt(kLikelyDays * static_cast<double>(neighbours_ + 1) * area /
                           static_cast<double>(days));
  }
  [[nodiscard]] double extent(const std::vector<double>& in_order, const Lines& lines) const {
    const Index first = first_place_[static_cast<std::size_t>(lines.first)];
    const Index end = first_place_[static_cast<std::size_t>(lines.end)];
    return in_order[static_cast<std::size_t>(end - 1)] - in_order[static_cast<std::size_t>(first)];
  }

  // To the days of the cells that are no farther than `limit`. The days of one row of cells lie
  // side by side.
  std::size_t collect_distances(const PlaneDay& day, const Lines& rows, const Lines& columns,
                                double limit) {
    std::size_t count = 0;
    for (Index row = rows.first; row < rows.end; ++row) {
      const std::size_t first =
          first_in_cell_[static_cast<std::size_t>(row * side_ + columns.first)];
      const std::size_t end = first_in_cell_[static_cast<std::size_t>(row * side_ + columns.end)];
      const PlaneDays days{xs_.data() + first, ys_.data() + first, end - first};
      count += loops_.keep(day, days, limit, distances_.data() + count);
    }
    return count;
  }

  // Of so many that were collected, the one with `place` before it in ascending order.
  double distance_at(std::size_t place, std::size_t count) {
    if (place == kNeighbours) return loops_.of_last_neighbour(distances_.data(), count);
    double* const found = distances_.data() + place;
    std::nth_element(distances_.data(), found, distances_.data() + count);
    return *found;
  }

  const NormalScores& left_;
  const NormalScores& right_;
  const NearDays& loops_ = near_days();
  std::size_t neighbours_;
  Index side_ = 1;                          // Lines along either axis.
  std::vector<Index> first_place_;          // Of each line, and of the one after the last.
  std::vector<Index> cell_of_day_;          // row * side + column.
  std::vector<std::size_t> first_in_cell_;  // In the two below, and one after the last.
  std::vector<double> xs_;
  std::vector<double> ys_;
  std::vector<double> distances_;  // Those that were collected last, in front.
};

// The first place from which on `is_beyond` holds, looked for around a place that is likely.
template <typename IsBeyond>
Index first_beyond(Index likely, Index begin, Index end, const IsBeyond& is_beyond) {
  Index place = std::clamp(likely, begin, end);
  while (place > begin && is_beyond(place - 1))
    --place;
  while (place < end && !is_beyond(place))
    ++place;
  return place;
}

// The other days nearer to the day than `distance`.
Index count_nearer(const NormalScores& scores, Index day, double distance) {
  const std::vector<double>& in_order = scores.in_order();
  const auto at = [&](Index place) { return in_order[static_cast<std::size_t>(place)]; };
  const double value = scores.by_day()[day];
  const Index place = scores.place_of_day()[static_cast<std::size_t>(day)];
  const Index first = first_beyond(scores.tables().likely_place(value - distance), 0, place,
                                   [&](Index other) { return !(value - at(other) >= distance); });
  const Index end =
      first_beyond(scores.tables().likely_place(value + distance), place, scores.size(),
                   [&](Index other) { return !(at(other) - value < distance); });
  return (end - first) - 1;
}

// Before so many days nothing is sure: one day in ten may tell all, and be missed.
constexpr Index kFirstLook = 128;
constexpr double kSureDeviations = 4.0;

// Mean and standard deviation of what was added (B. Welford, "Note on a method for calculating
// corrected sums of squares and products", Technometrics 4, 1962).
class Spread {
 public:
  void add(double value) {
    ++count_;
    const double difference = value - mean_;
    mean_ += difference / count_;
    squares_ += difference * (value - mean_);
  }
  [[nodiscard]] double mean() const { return mean_; }
  [[nodiscard]] double error_of_mean() const {
    return std::sqrt(squares_ / (count_ - 1.0) / count_);
  }

 private:
  double count_ = 0.0;
  double mean_ = 0.0;
  double squares_ = 0.0;
};

// A step of about 0.618 of the size that has no divisor in common with it: in such steps every day
// is met once, and the first ones are spread evenly.
Index step_through(Index size) {
  auto step = std::max<Index>(1, std::lround(static_cast<double>(size) / std::numbers::phi));
  while (std::gcd(step, size) != 1)
    ++step;
  return step;
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

std::optional<double> mutual_information_from(const NormalScores& left, const NormalScores& right,
                                              double least, const ArrayXd& guess, int neighbours) {
  require_same_size(left.size(), right.size());
  const Index size = left.size();
  require_same_size(size, guess.size());
  if (neighbours < 1 || size <= neighbours) {
    throw std::invalid_argument(
        fmt::format("{} neighbours cannot be found among {} days", neighbours, size));
  }
  if (left.is_constant() || right.is_constant()) return 0.0;
  const std::vector<double>& digamma = left.tables().digamma;
  const auto psi = [&](Index n) { return digamma[static_cast<std::size_t>(n - 1)]; };
  const double greatest = psi(neighbours) + psi(size);
  NeighbourGrid grid(left, right, neighbours);
  // The days in steps that meet all of them, so that the first ones come from everywhere.
  const Index step = step_through(size);
  ArrayXd terms(size);
  // Beside the guess the days scatter less, and its mean over all of them is known.
  const double guessed = greatest + guess.mean();
  Spread beside_guess;
  Index next_look = kFirstLook;
  Index day = 0;
  for (Index looked_at = 0; looked_at < size; ++looked_at) {
    if (looked_at == next_look && next_look <= size / 2) {
      next_look += next_look / 4;  // A look costs next to nothing, a day does not.
      const double error = kSureDeviations * beside_guess.error_of_mean();
      if (guessed - beside_guess.mean() + error < least) return std::nullopt;
    }
    const double distance = grid.distance_of_last(day);
    terms[day] =
        psi(count_nearer(left, day, distance) + 1) + psi(count_nearer(right, day, distance) + 1);
    beside_guess.add(terms[day] + guess[day]);
    day += step;
    if (day >= size) day -= size;
  }
  // In the order of the days, so that the bits do not depend on how they were gone through.
  double sum = 0.0;
  for (const double term : terms)
    sum += term;
  return greatest - sum / static_cast<double>(size);
}

double mutual_information(const NormalScores& left, const NormalScores& right, int neighbours) {
  return *mutual_information_from(left, right, -std::numeric_limits<double>::infinity(),
                                  ArrayXd::Zero(left.size()), neighbours);
}

double mutual_information(const ArrayXd& left, const ArrayXd& right, int neighbours) {
  return mutual_information(NormalScores(left), NormalScores(right), neighbours);
}

}  // namespace varnholt::embedded
