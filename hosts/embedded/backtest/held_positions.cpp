#include "hosts/embedded/backtest/held_positions.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

namespace varnholt::embedded {

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

bool WantedColumn::has_close(Eigen::Index day) const {
  return std::isfinite(close(day));
}

bool WantedColumn::has_gap() const {
  Eigen::Index day = 0;
  while (day < last_ && !has_close(day))
    ++day;
  while (day < last_ && has_close(day))
    ++day;
  return day < last_;
}

Capital::Capital(const Panel& weights, const Panel& close, const BookRules& rules,
                 Eigen::Index last_day) {
  std::vector<WantedColumn> with_gaps;
  for (Eigen::Index column = 0; column < close.cols(); ++column) {
    const WantedColumn wanted(weights, close, rules, column, last_day);
    if (wanted.has_gap()) with_gaps.push_back(wanted);
  }
  if (with_gaps.empty()) return;

  const Eigen::Index days = std::min(last_day + 1, close.rows());
  Eigen::ArrayXd wanted_at_all = Eigen::ArrayXd::Zero(days);
  Eigen::ArrayXd tradable = Eigen::ArrayXd::Zero(days);
  for (Eigen::Index column = 0; column < close.cols(); ++column) {
    const WantedColumn wanted(weights, close, rules, column, last_day);
    for (Eigen::Index day = 0; day < days; ++day) {
      const double size = std::abs(wanted.wanted(day));
      wanted_at_all(day) += size;
      if (wanted.has_close(day)) tradable(day) += size;
    }
  }

  shares_ = Eigen::ArrayXd::Ones(days);
  std::vector<double> held(with_gaps.size(), 0.0);
  for (Eigen::Index day = 0; day < days; ++day) {
    double carried = 0.0;
    for (std::size_t i = 0; i < with_gaps.size(); ++i) {
      if (!with_gaps[i].has_close(day) && day <= with_gaps[i].last()) carried += std::abs(held[i]);
    }
    if (carried > 0.0 && tradable(day) > 0.0) {
      shares_(day) = std::clamp((wanted_at_all(day) - carried) / tradable(day), 0.0, 1.0);
    }
    for (std::size_t i = 0; i < with_gaps.size(); ++i) {
      if (with_gaps[i].has_close(day)) held[i] = with_gaps[i].wanted(day) * shares_(day);
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
