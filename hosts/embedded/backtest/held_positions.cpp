#include "hosts/embedded/backtest/held_positions.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "hosts/embedded/vocabulary/widest_vectors.hpp"

namespace varnholt::embedded {
namespace {

// A day on which an instrument cannot be traded, and what was wanted of it when it last was.
struct CarriedDay {
  Eigen::Index day = 0;
  Eigen::Index traded = 0;
  double wanted = 0.0;
};

void add_carried_days(const WantedColumn& column, Eigen::Index days,
                      std::vector<CarriedDay>& carried) {
  Eigen::Index traded = -1;
  const Eigen::Index end = std::min(days, column.last() + 1);
  for (Eigen::Index day = 0; day < end; ++day) {
    if (column.has_close(day)) {
      traded = day;
    } else if (traded >= 0) {
      carried.push_back({day, traded, column.wanted(traded)});
    }
  }
}

}  // namespace

bool are_finite(const double* values, Eigen::Index count) {
  // No way out of the loop, which is vectorised so.
  double not_finite = 0.0;
  in_widest_vectors([&not_finite, values, count] {
    double found = 0.0;
    for (Eigen::Index i = 0; i < count; ++i)
      found = std::isfinite(values[i]) ? found : 1.0;
    not_finite = found;
  });
  return not_finite == 0.0;
}

WantedColumn::WantedColumn(const Panel& weights, const Panel& close, const BookRules& rules,
                           Eigen::Index column, Eigen::Index last_day)
    : weights_(weights),
      close_(close),
      column_(column),
      delay_(rules.delay_days),
      last_(std::min(last_day, close.rows() - 1)) {
  while (last_ >= 0 && !has_close(last_))
    --last_;
}

bool WantedColumn::has_gap() const {
  Eigen::Index first = 0;
  while (first < last_ && !has_close(first))
    ++first;
  return !are_finite(closes_from(first), last_ + 1 - first);
}

Eigen::Index WantedColumn::plain_end(Eigen::Index day, Eigen::Index end) const {
  const double* const closes = closes_from(0);
  const Eigen::Index last = std::min(last_, end);
  while (day < last && std::isfinite(closes[day + 1]))
    ++day;
  return day;
}

Capital::Capital(const Panel& weights, const Panel& close, const BookRules& rules,
                 Eigen::Index last_day)
    : shares_(Eigen::ArrayXd::Ones(std::min(last_day + 1, close.rows()))) {
  std::vector<WantedColumn> with_gaps;
  for (Eigen::Index column = 0; column < close.cols(); ++column) {
    const WantedColumn wanted(weights, close, rules, column, last_day);
    if (wanted.has_gap()) with_gaps.push_back(wanted);
  }
  if (with_gaps.empty()) return;

  const Eigen::Index days = shares_.size();
  Eigen::ArrayXd wanted_at_all = Eigen::ArrayXd::Zero(days);
  Eigen::ArrayXd tradable = Eigen::ArrayXd::Zero(days);
  for (Eigen::Index column = 0; column < close.cols(); ++column) {
    const WantedColumn wanted(weights, close, rules, column, last_day);
    in_widest_vectors([&, weight = wanted.wanted_from(0), closes = wanted.closes_from(0),
                       all = wanted_at_all.data(), some = tradable.data()] {
      for (Eigen::Index day = rules.delay_days; day < days; ++day) {
        const double size = std::abs(weight[day]);
        all[day] += size;
        some[day] += std::isfinite(closes[day]) ? size : 0.0;
      }
    });
  }

  std::vector<CarriedDay> carried_days;
  for (const WantedColumn& column : with_gaps)
    add_carried_days(column, days, carried_days);
  // Those of a day stay in the order of the columns, in which they are added up.
  std::stable_sort(carried_days.begin(), carried_days.end(),
                   [](const CarriedDay& a, const CarriedDay& b) { return a.day < b.day; });
  for (auto first = carried_days.begin(); first != carried_days.end();) {
    const Eigen::Index day = first->day;
    double carried = 0.0;
    for (; first != carried_days.end() && first->day == day; ++first)
      carried += std::abs(first->wanted * shares_(first->traded));
    if (carried > 0.0 && tradable(day) > 0.0) {
      shares_(day) = std::clamp((wanted_at_all(day) - carried) / tradable(day), 0.0, 1.0);
    }
  }
}

Position position_before(const WantedColumn& column, const Capital& capital, Eigen::Index day) {
  if (day > column.last() + 1) return {};  // Paid out.
  for (Eigen::Index before = day; before-- > 0;) {
    if (!column.has_close(before)) continue;
    const Position position = {column.wanted(before) * capital.share(before), column.close(before)};
    if (!std::isfinite(position.weight)) refuse_weights_that_are_not_finite();
    return position;
  }
  return {};
}

std::optional<double> booked_change(const WantedColumn& column, const Position& held,
                                    Eigen::Index day, const BookRules& rules) {
  if (column.has_close(day + 1)) {
    const double change = column.close(day + 1) / held.close - 1.0;
    return std::abs(change) <= kLargestReturn ? std::optional(change) : std::nullopt;
  }
  return day == column.last() ? std::optional(rules.delisting_return) : std::nullopt;
}

void refuse_weights_that_are_not_finite() {
  throw std::invalid_argument("a weight is not finite; make weights with signal_weights");
}

}  // namespace varnholt::embedded
