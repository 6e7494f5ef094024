#include "hosts/embedded/host/figure_table.hpp"

#include <array>
#include <cmath>
#include <string>

#include "hosts/embedded/host/statistics_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Value;

constexpr auto kReturnFigures = std::to_array<FigureName>({
    {"sharpe", "a year"},
    {"gross_returns_sharpe", "a year"},
    {"annualized_returns", "of capital a year"},
    {"compound_growth", "of capital a year"},
    {"sortino", "a year"},
    {"calmar", "a year"},
    {"hit_rate", "of days"},
    {"deflated_sharpe", "probability"},
    {"quality_score", ""},
});
constexpr auto kRiskFigures = std::to_array<FigureName>({
    {"volatility", "of capital a year"},
    {"drawdown", "of the peak"},
    {"longest_drawdown_days", "days"},
    {"skewness", ""},
    {"excess_kurtosis", ""},
});
constexpr auto kMarketFigures = std::to_array<FigureName>({
    {"beta", ""},
    {"alpha", "of capital a year"},
    {"market_correlation", ""},
});
constexpr auto kPredictionFigures = std::to_array<FigureName>({
    {"information_coefficient", ""},
    {"information_coefficient_t", ""},
    {"rank_information_coefficient", ""},
    {"rank_information_coefficient_t", ""},
    {"information_days", "days"},
});
constexpr auto kBookFigures = std::to_array<FigureName>({
    {"turnover", "of capital a day"},
    {"break_even_cost_basis_points", "basis points"},
    {"long_exposure", "of capital"},
    {"short_exposure", "of capital"},
    {"delta_exposure", "of capital"},
    {"abs_weight_sum_mean", "of capital"},
    {"max_weight", "of capital"},
    {"holding_days", "days"},
    {"active_days", "days"},
    {"missing_return_count", ""},
});

const std::array<FigureGroup, 5> kGroups = {{{"Return", kReturnFigures},
                                             {"Risk", kRiskFigures},
                                             {"Beside the market", kMarketFigures},
                                             {"Prediction", kPredictionFigures},
                                             {"Book", kBookFigures}}};

// JSON has no other numbers.
Value number(double figure) {
  return std::isfinite(figure) ? Value(figure) : Value();
}

Mapping year_mapping(const YearFigures& figures) {
  return {{"year", figures.year},
          {"days", figures.days},
          {"net_return", number(figures.net_return)},
          {"sharpe", number(figures.sharpe)},
          {"volatility", number(figures.volatility)},
          {"drawdown", number(figures.drawdown)},
          {"turnover", number(figures.turnover)}};
}

}  // namespace

std::span<const FigureGroup> figure_groups() {
  return kGroups;
}

Mapping figures_mapping(const SampleFigures& figures) {
  const PerformanceFigures& performance = figures.performance;
  const InformationFigures& information = figures.information;
  Mapping mapping = statistics_mapping(figures.backtest.statistics);
  mapping.update(
      Mapping{{"volatility", number(performance.volatility)},
              {"compound_growth", number(performance.compound_growth)},
              {"sortino", number(performance.sortino)},
              {"calmar", number(performance.calmar)},
              {"skewness", number(performance.skewness)},
              {"excess_kurtosis", number(performance.excess_kurtosis)},
              {"hit_rate", number(performance.hit_rate)},
              {"longest_drawdown_days", performance.longest_drawdown_days},
              {"deflated_sharpe", number(figures.deflated_sharpe)},
              {"beta", number(performance.beta)},
              {"alpha", number(performance.alpha)},
              {"market_correlation", number(performance.market_correlation)},
              {"long_exposure", number(performance.long_exposure)},
              {"short_exposure", number(performance.short_exposure)},
              {"break_even_cost_basis_points", number(performance.break_even_cost_basis_points)},
              {"information_coefficient", number(information.pearson.mean)},
              {"information_coefficient_t", number(information.pearson.t_value)},
              {"rank_information_coefficient", number(information.rank.mean)},
              {"rank_information_coefficient_t", number(information.rank.t_value)},
              {"information_days", information.pearson.days}});
  List by_lag;
  for (const double mean : information.by_lag)
    by_lag.append(number(mean));
  mapping.set(Value(kByLag), by_lag);
  List by_year;
  for (const YearFigures& year : figures.years)
    by_year.append(year_mapping(year));
  mapping.set(Value(kByYear), by_year);
  return mapping;
}

}  // namespace varnholt::embedded
