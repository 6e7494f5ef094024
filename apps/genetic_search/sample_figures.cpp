#include "apps/genetic_search/sample_figures.hpp"

#include <array>
#include <cstddef>

#include <fmt/format.h>

#include "apps/genetic_search/text_layout.hpp"
#include "hosts/embedded/host/statistics_object.hpp"

namespace varnholt::app {
namespace {

using embedded::BacktestStatistics;

constexpr std::size_t kNameWidth = 30;
constexpr std::size_t kFigureWidth = 12;
constexpr double kPerCent = 100.0;

struct FigureRow {
  const char* name;
  double BacktestStatistics::*figure;
  double scale = 1.0;
};
constexpr auto kRows = std::to_array<FigureRow>({
    {"Sharpe ratio", &BacktestStatistics::sharpe},
    {"Sharpe ratio before costs", &BacktestStatistics::gross_returns_sharpe},
    {"return, % a year", &BacktestStatistics::annualized_returns, kPerCent},
    {"deepest fall, %", &BacktestStatistics::drawdown, kPerCent},
    {"gross exposure", &BacktestStatistics::abs_weight_sum_mean},
    {"net exposure, absolute", &BacktestStatistics::delta_exposure},
    {"turnover a day", &BacktestStatistics::turnover},
});

}  // namespace

std::string figures_line(const char* name, double in_sample, double holdout) {
  return "  " + padded(name, kNameWidth, Align::Left) +
         padded(fmt::format("{:.3f}", in_sample), kFigureWidth, Align::Right) +
         padded(fmt::format("{:.3f}", holdout), kFigureWidth, Align::Right) + "\n";
}

std::string sample_figures_text(const embedded::SampleStatistics& statistics) {
  std::string text = "  " + std::string(kNameWidth, ' ') +
                     padded("in sample", kFigureWidth, Align::Right) +
                     padded("hold-out", kFigureWidth, Align::Right) + "\n";
  for (const FigureRow& row : kRows) {
    text += figures_line(row.name, row.scale * (statistics.in_sample.*row.figure),
                         row.scale * (statistics.holdout.*row.figure));
  }
  return text;
}

Json sample_statistics_json(const embedded::SampleStatistics& statistics) {
  return {{"in_sample", to_json(embedded::statistics_mapping(statistics.in_sample))},
          {"holdout", to_json(embedded::statistics_mapping(statistics.holdout))}};
}

}  // namespace varnholt::app
