#include "hosts/embedded/backtest/performance.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include "hosts/embedded/backtest/return_series.hpp"

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXd;

constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

double ratio(double numerator, double denominator) {
  return denominator == 0.0 ? kUndefined : numerator / denominator;
}

double compounded(const ArrayXd& returns) {
  Equity equity;
  for (const double value : returns)
    equity.earn(value);
  return equity.value();
}

void set_moments(PerformanceFigures& figures, const ArrayXd& net) {
  figures.skewness = kUndefined;
  figures.excess_kurtosis = kUndefined;
  if (sample_deviation(net) == 0.0) return;
  const auto n = static_cast<double>(net.size());
  const ArrayXd deviations = net - mean_of(net);
  const ArrayXd squares = deviations.square();
  const double variance = mean_of(squares);
  if (net.size() >= 3) {
    const double g1 = mean_of(squares * deviations) / std::pow(variance, 1.5);
    figures.skewness = std::sqrt(n * (n - 1.0)) / (n - 2.0) * g1;
  }
  if (net.size() >= 4) {
    const double g2 = mean_of(squares.square()) / (variance * variance) - 3.0;
    figures.excess_kurtosis = (n - 1.0) / ((n - 2.0) * (n - 3.0)) * ((n + 1.0) * g2 + 6.0);
  }
}

std::int64_t longest_drawdown(const ArrayXd& net) {
  Equity equity;
  std::int64_t longest = 0;
  std::int64_t days = 0;
  for (const double value : net) {
    equity.earn(value);
    days = equity.fall() > 0.0 ? days + 1 : 0;
    longest = std::max(longest, days);
  }
  return longest;
}

void set_market_line(PerformanceFigures& figures, const ArrayXd& net, const ArrayXd& market,
                     double periods_per_year) {
  figures.beta = figures.alpha = figures.market_correlation = kUndefined;
  const double market_spread = sample_deviation(market);
  if (market_spread == 0.0) return;
  const double covariance = ordered_sum((net - mean_of(net)) * (market - mean_of(market))) /
                            static_cast<double>(net.size() - 1);
  figures.beta = covariance / (market_spread * market_spread);
  figures.alpha = periods_per_year * (mean_of(net) - figures.beta * mean_of(market));
  figures.market_correlation = ratio(covariance, market_spread * sample_deviation(net));
}

YearFigures year_of(const BacktestResult& backtest, Eigen::Index first, Eigen::Index count,
                    int year, double periods_per_year) {
  const ArrayXd net = backtest.net_returns.segment(first, count);
  YearFigures figures;
  figures.year = year;
  figures.days = count;
  figures.net_return = compounded(net) - 1.0;
  figures.sharpe = annualised_sharpe(net, periods_per_year);
  figures.volatility = std::sqrt(periods_per_year) * sample_deviation(net);
  figures.drawdown = deepest_fall(net);
  figures.turnover = mean_of(backtest.traded.segment(first, count));
  return figures;
}

}  // namespace

PerformanceFigures performance_figures(const BacktestResult& backtest,
                                       const ArrayXd& market_returns, double periods_per_year) {
  const ArrayXd& net = backtest.net_returns;
  if (market_returns.size() != net.size()) {
    throw std::invalid_argument(std::to_string(market_returns.size()) +
                                " returns of the market for a backtest of " +
                                std::to_string(net.size()) + " days; take both from the same days");
  }
  PerformanceFigures figures;
  const double years = static_cast<double>(net.size()) / periods_per_year;
  figures.volatility =
      net.size() < 2 ? kUndefined : std::sqrt(periods_per_year) * sample_deviation(net);
  figures.compound_growth =
      net.size() == 0 ? kUndefined : std::pow(compounded(net), 1.0 / years) - 1.0;
  figures.sortino =
      ratio(std::sqrt(periods_per_year) * mean_of(net), std::sqrt(mean_of(net.min(0.0).square())));
  figures.calmar = ratio(figures.compound_growth, deepest_fall(net));
  set_moments(figures, net);
  figures.hit_rate =
      ratio(static_cast<double>((net > 0.0).count()), static_cast<double>((net != 0.0).count()));
  figures.longest_drawdown_days = longest_drawdown(net);
  set_market_line(figures, net, market_returns, periods_per_year);
  figures.long_exposure = mean_of((backtest.gross_exposure + backtest.net_exposure) / 2.0);
  figures.short_exposure = mean_of((backtest.gross_exposure - backtest.net_exposure) / 2.0);
  figures.break_even_cost_basis_points =
      ratio(10'000.0 * mean_of(backtest.gross_returns), mean_of(backtest.traded));
  return figures;
}

std::vector<YearFigures> yearly_figures(const BacktestResult& backtest,
                                        const std::vector<Date>& dates, Eigen::Index first_booked,
                                        double periods_per_year) {
  const Eigen::Index days = backtest.net_returns.size();
  if (first_booked < 0 || std::cmp_less(dates.size(), first_booked + days)) {
    throw std::invalid_argument("a backtest of days that the dates do not hold");
  }
  const auto year_at = [&](Eigen::Index entry) {
    const Date date = dates[static_cast<std::size_t>(first_booked + entry)];
    return static_cast<int>(std::chrono::year_month_day(date).year());
  };
  std::vector<YearFigures> years;
  for (Eigen::Index first = 0; first < days;) {
    const int year = year_at(first);
    Eigen::Index end = first + 1;
    while (end < days && year_at(end) == year)
      ++end;
    years.push_back(year_of(backtest, first, end - first, year, periods_per_year));
    first = end;
  }
  return years;
}

}  // namespace varnholt::embedded
