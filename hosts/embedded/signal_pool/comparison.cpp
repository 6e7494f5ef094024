#include "hosts/embedded/signal_pool/comparison.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXd;
using Eigen::Index;

// Keeps the greatest, and of equal ones the member that joined first.
class Greatest {
 public:
  explicit Greatest(const std::optional<MemberInformation>& known) {
    if (known) information_ = known->information;
  }
  void offer(double information, std::size_t row) {
    const bool is_earlier = row_ && information == information_ && row < *row_;
    if (!(information > information_) && !is_earlier) return;
    information_ = information;
    row_ = row;
  }
  [[nodiscard]] double information() const { return information_; }
  // The row that gave it; absent where none was greater than what was known.
  [[nodiscard]] std::optional<std::size_t> row() const { return row_; }

 private:
  double information_ = -std::numeric_limits<double>::infinity();
  std::optional<std::size_t> row_;
};

// The measure's information and novelty from what the members say. There must be one.
void conclude(PoolComparison& known) {
  const MemberInformation* greatest = nullptr;
  for (const auto* found : {&known.of_doubtful, &known.of_told, &known.of_nearest}) {
    if (*found && (greatest == nullptr || (*found)->information > greatest->information)) {
      greatest = &**found;
    }
  }
  known.measure.mutual_information = greatest->information;
  known.measure.nearest_by_information = greatest->eval_id;
  known.measure.novelty = novelty_of(greatest->information);
}

// Of a Gaussian pair; at most what so many days can show.
double gaussian_information(double correlation, Index days) {
  return std::min(-0.5 * std::log1p(-correlation * correlation),
                  std::log(static_cast<double>(days)));
}

}  // namespace

std::optional<std::size_t> MemberComparison::find_nearest(const ComparedSignal& signal, Rows rows,
                                                          PoolMeasure& measure) const {
  const std::vector<double> found = series_.correlations(signal, rows);
  double greatest = measure.correlation;
  for (const double correlation : found)
    greatest = std::max(greatest, correlation);
  std::optional<std::size_t> nearest;
  for (std::size_t i = 0; i < found.size(); ++i) {
    if (found[i] < greatest - MemberSeries::kProductError) continue;
    const double correlation = series_.correlation(signal, rows[i]);
    if (measure.nearest_by_correlation && correlation <= measure.correlation) continue;
    measure.correlation = correlation;
    measure.nearest_by_correlation = eval_id_(rows[i]);
    nearest = rows[i];
  }
  return nearest;
}

std::optional<double> MemberComparison::information_in_doubt(const ComparedSignal& signal,
                                                             std::size_t row, double told,
                                                             double refusing) const {
  const bool is_left =
      has_tables() &&
      (told < kDoubt * refusing || series_.finer_information(signal, row) < kFinerDoubt * refusing);
  if (is_left) return std::nullopt;
  return series_.neighbour_information_from(signal, row, refusing);
}

void MemberComparison::add_information(const ComparedSignal& signal, Rows rows,
                                       std::optional<std::size_t> nearest, double least_novelty,
                                       PoolComparison& known) const {
  double of_nearest = 0.0;
  if (nearest) {
    of_nearest = series_.neighbour_information(signal, *nearest);
    known.of_nearest = MemberInformation{of_nearest, eval_id_(*nearest)};
    ++known.measure.informed;
    conclude(known);
    if (known.measure.novelty < least_novelty) return;
  }

  const double refusing = information_of(least_novelty);
  std::vector<std::pair<double, std::size_t>> asked;
  Greatest doubtful(known.of_doubtful);
  std::optional<std::size_t> told_most;
  for (const std::size_t row : rows) {
    const double told = series_.table_information(signal, row);
    if ((!known.of_told && !told_most) || told > known.told) {
      known.told = told;
      told_most = row;
    }
    if (!has_tables() || told >= kDoubt * refusing) asked.emplace_back(-told, row);
  }
  const std::size_t told_before = nearest ? 1 : 0;
  known.measure.informed += static_cast<std::int64_t>(rows.size() - told_before);
  const auto of_row = [&](std::size_t row) {
    return row == nearest ? of_nearest : series_.neighbour_information(signal, row);
  };
  // Those of which the table tells most come first: they are the likeliest to be enough. Whether
  // one is left does not depend on the others, nor therefore on when they joined.
  std::sort(asked.begin(), asked.end());
  for (const auto& [opposite_of_told, row] : asked) {
    const double told = -opposite_of_told;
    const bool may_be_left = has_tables() && told < kNearlyRefused * refusing;
    const std::optional<double> information =
        may_be_left ? information_in_doubt(signal, row, told, refusing) : of_row(row);
    if (information) doubtful.offer(*information, row);
    if (novelty_of(doubtful.information()) < least_novelty) break;
  }
  if (const auto row = doubtful.row()) {
    known.of_doubtful = MemberInformation{doubtful.information(), eval_id_(*row)};
  }
  if (told_most) {
    const bool is_known = told_most == doubtful.row();
    known.of_told = MemberInformation{is_known ? doubtful.information() : of_row(*told_most),
                                      eval_id_(*told_most)};
  }
  conclude(known);
}

void MemberComparison::add(const ArrayXd& pnl, Rows rows, double least_novelty,
                           PoolComparison& known) const {
  if (rows.empty()) return;
  PoolMeasure& measure = known.measure;
  const ComparedSignal signal = series_.compared(pnl);
  const std::optional<std::size_t> nearest = find_nearest(signal, rows, measure);
  measure.members += static_cast<std::int64_t>(rows.size());
  if (!(least_novelty > 0.0)) {
    measure.mutual_information = gaussian_information(measure.correlation, series_.days());
    measure.nearest_by_information = measure.nearest_by_correlation;
    measure.novelty = novelty_of(measure.mutual_information);
    return;
  }
  // Of a signal that is refused, only the correlation is still looked at.
  if (measure.novelty < least_novelty) return;
  add_information(signal, rows, nearest, least_novelty, known);
}

std::vector<std::size_t> MemberComparison::alike(const ArrayXd& pnl, Rows rows,
                                                 const PoolThresholds& thresholds) const {
  if (rows.empty()) return {};
  const ComparedSignal signal = series_.compared(pnl);
  const double refusing = information_of(thresholds.min_novelty);
  const auto is_known_by_another = [&](std::size_t row) {
    if (!(thresholds.min_novelty > 0.0)) return false;
    const double told = series_.table_information(signal, row);
    const auto information = information_in_doubt(signal, row, told, refusing);
    return information && novelty_of(*information) < thresholds.min_novelty;
  };
  std::vector<std::size_t> found;
  for (const std::size_t row : rows) {
    const bool correlates = series_.correlation(signal, row) > thresholds.max_correlation;
    if (correlates || is_known_by_another(row)) found.push_back(row);
  }
  return found;
}

}  // namespace varnholt::embedded
