#include "hosts/embedded/backtest/statistics.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "hosts/embedded/backtest/held_positions.hpp"
#include "hosts/embedded/backtest/return_series.hpp"
#include "hosts/embedded/vocabulary/widest_vectors.hpp"

namespace varnholt::embedded {
namespace {

// The sums over the instruments, one entry a holding day.
struct DailySums {
  Eigen::ArrayXd gross_return;
  Eigen::ArrayXd traded;
  Eigen::ArrayXd net_exposure;
  Eigen::ArrayXd gross_exposure;
  Eigen::ArrayXd max_weight;       // The greatest of the day.
  Eigen::ArrayXd missing_returns;  // How many.
};

// Holding days, as the weights and prices count them.
struct HoldingDays {
  Eigen::Index first = 0;
  Eigen::Index count = 0;
};

// Adds plain days of a column, whose first is entry `first`. No day waits for the one before, so
// that the loop is vectorised; what is not held adds zeros.
void add_plain_days(DailySums& sums, const WantedColumn& column, const Capital& capital,
                    Eigen::Index first_day, Eigen::Index first, Eigen::Index count) {
  const double* const wanted = column.wanted_from(first_day);
  const double* const share = capital.shares_from(first_day);
  const double* const close = column.closes_from(first_day);
  double* const __restrict traded = sums.traded.data() + first;
  double* const __restrict net_exposure = sums.net_exposure.data() + first;
  double* const __restrict gross_exposure = sums.gross_exposure.data() + first;
  double* const __restrict max_weight = sums.max_weight.data() + first;
  for (Eigen::Index i = 0; i < count; ++i) {
    const double weight = wanted[i] * share[i];
    const double size = std::abs(weight);
    traded[i] += std::abs(weight - wanted[i - 1] * share[i - 1]);
    net_exposure[i] += weight;
    gross_exposure[i] += size;
    max_weight[i] = size > max_weight[i] ? size : max_weight[i];
  }
  double* const __restrict gross_return = sums.gross_return.data() + first;
  double* const __restrict missing = sums.missing_returns.data() + first;
  for (Eigen::Index i = 0; i < count; ++i) {
    const double weight = wanted[i] * share[i];
    const double change = close[i + 1] / close[i] - 1.0;
    const bool is_booked = std::abs(change) <= kLargestReturn;
    gross_return[i] += is_booked ? weight * change : 0.0;
    const double if_held = is_booked ? 0.0 : 1.0;
    missing[i] += weight != 0.0 ? if_held : 0.0;
  }
}

void add_column(DailySums& sums, const WantedColumn& column, const Capital& capital,
                const BookRules& rules, HoldingDays held) {
  Position position = position_before(column, capital, held.first);
  for (Eigen::Index entry = 0; entry < held.count; ++entry) {
    Eigen::Index day = held.first + entry;
    if (column.is_plain(day)) {
      const Eigen::Index end = column.plain_end(day, held.first + held.count);
      in_widest_vectors([&] { add_plain_days(sums, column, capital, day, entry, end - day); });
      position = {column.wanted(end - 1) * capital.share(end - 1), column.close(end - 1)};
      entry += end - day;
      day = end;
      if (entry == held.count) return;
    }
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
    sums.max_weight(entry) = std::max(sums.max_weight(entry), std::abs(position.weight));
    const auto change = booked_change(column, position, day, rules);
    if (change) sums.gross_return(entry) += position.weight * *change;
    if (!change || !column.has_close(day) || !column.has_close(day + 1))
      sums.missing_returns(entry) += 1.0;
  }
}

DailySums daily_sums(const Panel& weights, const Panel& close, const BookRules& rules,
                     HoldingDays held) {
  const Eigen::ArrayXd zeros = Eigen::ArrayXd::Zero(held.count);
  DailySums sums{zeros, zeros, zeros, zeros, zeros, zeros};
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
  bool is_finite = true;
  for (Eigen::Index column = 0; column < weights.cols(); ++column) {
    is_finite = is_finite && are_finite(weights.data() + column * weights.rows() + first_row, rows);
  }
  if (!is_finite) refuse_weights_that_are_not_finite();
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

// All but what is of single positions: the greatest weight, and the missing returns.
void set_figures_of_series(BacktestResult& result, const BookRules& rules) {
  BacktestStatistics& statistics = result.statistics;
  statistics.sharpe = annualised_sharpe(result.net_returns, rules.periods_per_year);
  statistics.gross_returns_sharpe = annualised_sharpe(result.gross_returns, rules.periods_per_year);
  statistics.annualized_returns = rules.periods_per_year * mean_of(result.net_returns);
  statistics.turnover = mean_of(result.traded);
  statistics.drawdown = deepest_fall(result.net_returns);
  statistics.delta_exposure = mean_of(result.net_exposure.abs());
  statistics.abs_weight_sum_mean = mean_of(result.gross_exposure);
  statistics.quality_score =
      statistics.sharpe - statistics.drawdown - kTurnoverPenalty * statistics.turnover;
  statistics.holding_days = result.gross_returns.size();
  statistics.active_days = (result.gross_exposure > 0.0).count();
}

Eigen::ArrayXd after_costs(const BacktestResult& result, const BookRules& rules) {
  return result.gross_returns - rules.cost_basis_points / 10'000.0 * result.traded;
}

BacktestResult result_of(DailySums sums, const BookRules& rules) {
  BacktestResult result;
  result.gross_returns = std::move(sums.gross_return);
  result.traded = std::move(sums.traded);
  result.net_exposure = std::move(sums.net_exposure);
  result.gross_exposure = std::move(sums.gross_exposure);
  result.net_returns = after_costs(result, rules);
  BacktestStatistics& statistics = result.statistics;
  statistics.max_weight = sums.max_weight.size() == 0 ? 0.0 : sums.max_weight.maxCoeff();
  statistics.missing_return_count = static_cast<std::int64_t>(sums.missing_returns.sum());
  set_figures_of_series(result, rules);
  return result;
}

void weigh_days(const DayTile& tile, Panel& panel) {
  // The greatest entry of the day is divided out first: a sum of very large or very small entries
  // would overflow or lose its digits.
  DaySums greatest{};
  DaySums gross{};
  for (Eigen::Index column = 0; column < panel.cols(); ++column) {
    const double* const entries = tile.of_column(panel, column);
    tile.expect_after(panel, column);
    for (std::size_t day = 0; day < tile.days; ++day) {
      const double size = std::abs(entries[day]);
      const bool is_greater = std::isfinite(entries[day]) && size > greatest[day];
      greatest[day] = is_greater ? size : greatest[day];
    }
  }
  for (Eigen::Index column = 0; column < panel.cols(); ++column) {
    double* const entries = tile.of_column(panel, column);
    for (std::size_t day = 0; day < tile.days; ++day) {
      // Not finite are the shares of what is not, and of a day of zeros.
      const double share = entries[day] / greatest[day];
      const double weight = std::isfinite(share) ? share : 0.0;
      entries[day] = weight;
      gross[day] += std::abs(weight);
    }
  }
  for (double& sum : gross)
    sum = sum > 0.0 ? sum : 1.0;
  for (Eigen::Index column = 0; column < panel.cols(); ++column) {
    double* const entries = tile.of_column(panel, column);
    for (std::size_t day = 0; day < tile.days; ++day)
      entries[day] /= gross[day];
  }
}

}  // namespace

void weigh_tile(const DayTile& tile, Panel& panel) {
  in_widest_vectors([&] { weigh_days(tile, panel); });
}

Panel signal_weights(Panel signal) {
  for (const DayTile& tile : day_tiles(signal))
    weigh_tile(tile, signal);
  return signal;
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

// Every position has the other sign, and so has what it earns and every sum of that: rounding knows
// no sign. What is traded and held has the same size, and costs the same.
BacktestResult opposite_backtest(const BacktestResult& result, const BookRules& rules) {
  BacktestResult opposite = result;
  // Taken from zero: a sum of nothing is 0, never -0.
  opposite.gross_returns = 0.0 - result.gross_returns;
  opposite.net_exposure = 0.0 - result.net_exposure;
  opposite.net_returns = after_costs(opposite, rules);
  set_figures_of_series(opposite, rules);
  return opposite;
}

}  // namespace varnholt::embedded
