#include "hosts/embedded/backtest/statistics.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "hosts/embedded/backtest/held_positions.hpp"
#include "hosts/embedded/backtest/return_series.hpp"

namespace varnholt::embedded {
namespace {

// The sums over the instruments, one entry a holding day.
struct DailySums {
  Eigen::ArrayXd gross_return;
  Eigen::ArrayXd traded;
  Eigen::ArrayXd net_exposure;
  Eigen::ArrayXd gross_exposure;
  double max_weight = 0.0;
  std::int64_t missing_returns = 0;
};

// Holding days, as the weights and prices count them.
struct HoldingDays {
  Eigen::Index first = 0;
  Eigen::Index count = 0;
};

void add_column(DailySums& sums, const WantedColumn& column, const Capital& capital,
                const BookRules& rules, HoldingDays held) {
  Position position = position_before(column, capital, held.first);
  for (Eigen::Index entry = 0; entry < held.count; ++entry) {
    const Eigen::Index day = held.first + entry;
    if (column.has_close(day)) {
      const double weight = column.wanted(day) * capital.share(day);
      sums.traded(entry) += std::abs(weight - position.weight);
      position = {weight, column.close(day)};
    } else if (day > column.last()) {
      return;  // Paid out, and never back.
    }
    if (position.weight == 0.0) continue;
    sums.net_exposure(entry) += position.weight;
    sums.gross_exposure(entry) += std::abs(position.weight);
    sums.max_weight = std::max(sums.max_weight, std::abs(position.weight));
    const auto change = booked_change(column, position, day, rules);
    if (change) sums.gross_return(entry) += position.weight * *change;
    if (!change || !column.has_close(day) || !column.has_close(day + 1)) ++sums.missing_returns;
  }
}

DailySums daily_sums(const Panel& weights, const Panel& close, const BookRules& rules,
                     HoldingDays held) {
  const Eigen::ArrayXd zeros = Eigen::ArrayXd::Zero(held.count);
  DailySums sums{zeros, zeros, zeros, zeros};
  const Eigen::Index last_day = held.first + held.count;  // On which the last of them ends.
  const Capital capital(weights, close, rules, last_day);
  for (Eigen::Index column = 0; column < close.cols(); ++column)
    add_column(sums, WantedColumn(weights, close, rules, column, last_day), capital, rules, held);
  return sums;
}

void check_shapes(const Panel& weights, const Panel& close) {
  if (weights.rows() == close.rows() && weights.cols() == close.cols()) return;
  throw std::invalid_argument("weights of " + std::to_string(weights.rows()) + " x " +
                              std::to_string(weights.cols()) + " for closes of " +
                              std::to_string(close.rows()) + " x " + std::to_string(close.cols()) +
                              "; take both from the same market data");
}

void check_finite(const Panel& weights, Eigen::Index first_row, Eigen::Index rows) {
  if (weights.middleRows(first_row, rows).isFinite().all()) return;
  refuse_weights_that_are_not_finite();
}

void check_days(HoldingDays held, Eigen::Index price_days) {
  // Written so that no sum can overflow.
  const Eigen::Index most = std::max<Eigen::Index>(price_days - 1, 0);
  if (held.first >= 0 && held.first <= most && held.count >= 0 && held.count <= most - held.first) {
    return;
  }
  throw std::invalid_argument(std::to_string(held.count) + " holding days from day " +
                              std::to_string(held.first) + " on of a history of " +
                              std::to_string(price_days) + " days, which has " +
                              std::to_string(most) + "; ask for days within it");
}

BacktestResult result_of(DailySums sums, const BookRules& rules) {
  BacktestResult result;
  result.net_returns = sums.gross_return - rules.cost_basis_points / 10'000.0 * sums.traded;

  BacktestStatistics& statistics = result.statistics;
  statistics.sharpe = annualised_sharpe(result.net_returns, rules.periods_per_year);
  statistics.gross_returns_sharpe = annualised_sharpe(sums.gross_return, rules.periods_per_year);
  statistics.annualized_returns = rules.periods_per_year * mean_of(result.net_returns);
  statistics.turnover = mean_of(sums.traded);
  statistics.drawdown = deepest_fall(result.net_returns);
  statistics.max_weight = sums.max_weight;
  statistics.delta_exposure = mean_of(sums.net_exposure.abs());
  statistics.abs_weight_sum_mean = mean_of(sums.gross_exposure);
  statistics.quality_score =
      statistics.sharpe - statistics.drawdown - kTurnoverPenalty * statistics.turnover;
  statistics.holding_days = sums.gross_return.size();
  statistics.active_days = (sums.gross_exposure > 0.0).count();
  statistics.missing_return_count = sums.missing_returns;
  result.gross_returns = std::move(sums.gross_return);
  result.traded = std::move(sums.traded);
  result.net_exposure = std::move(sums.net_exposure);
  result.gross_exposure = std::move(sums.gross_exposure);
  return result;
}

}  // namespace

Panel signal_weights(const Panel& signal) {
  const auto known = [&signal](Eigen::Index day, Eigen::Index column) {
    const double value = signal(day, column);
    return std::isfinite(value) ? value : 0.0;
  };
  // The greatest entry of the day is divided out first: a sum of very large or very small entries
  // would overflow or lose its digits.
  Eigen::ArrayXd greatest = Eigen::ArrayXd::Zero(signal.rows());
  for (Eigen::Index column = 0; column < signal.cols(); ++column) {
    for (Eigen::Index day = 0; day < signal.rows(); ++day) {
      greatest(day) = std::max(greatest(day), std::abs(known(day, column)));
    }
  }
  Panel weights = Panel::Zero(signal.rows(), signal.cols());
  Eigen::ArrayXd gross = Eigen::ArrayXd::Zero(signal.rows());
  for (Eigen::Index column = 0; column < signal.cols(); ++column) {
    for (Eigen::Index day = 0; day < signal.rows(); ++day) {
      if (greatest(day) == 0.0) continue;
      weights(day, column) = known(day, column) / greatest(day);
      gross(day) += std::abs(weights(day, column));
    }
  }
  for (Eigen::Index column = 0; column < signal.cols(); ++column) {
    for (Eigen::Index day = 0; day < signal.rows(); ++day) {
      if (gross(day) > 0.0) weights(day, column) /= gross(day);
    }
  }
  return weights;
}

BacktestResult backtest_weights(const Panel& weights, const Panel& close, const BookRules& rules) {
  check_book_rules(rules);
  check_shapes(weights, close);
  check_finite(weights, 0, weights.rows());
  const Eigen::Index days = std::max<Eigen::Index>(close.rows() - 1, 0);
  return result_of(daily_sums(weights, close, rules, {0, days}), rules);
}

BacktestResult backtest_holding_days(const Panel& weights, const Panel& close,
                                     const BookRules& rules, Eigen::Index first_day,
                                     Eigen::Index day_count) {
  const HoldingDays held{first_day, day_count};
  check_book_rules(rules);
  check_shapes(weights, close);
  check_days(held, close.rows());
  const Eigen::Index first_row = std::max<Eigen::Index>(first_day - 1 - rules.delay_days, 0);
  const Eigen::Index end_row =
      std::max<Eigen::Index>(first_day + day_count - rules.delay_days, first_row);
  check_finite(weights, first_row, end_row - first_row);
  return result_of(daily_sums(weights, close, rules, held), rules);
}

}  // namespace varnholt::embedded
