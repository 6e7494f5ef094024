#include "apps/genetic_search/listed_signal.hpp"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "apps/genetic_search/stored_signal.hpp"

namespace varnholt::app {
namespace {

using Settled = std::optional<embedded::Settlement>;

std::optional<double> holdout_sharpe(const ListedSignal& signal) {
  return figure_of(signal.holdout, genetic::key<"sharpe">());
}

std::optional<double> novelty(const ListedSignal& signal) {
  const Settled& settled = signal.submission.settlement;
  return settled ? std::optional(settled->novelty) : std::nullopt;
}

std::optional<double> correlation(const ListedSignal& signal) {
  const Settled& settled = signal.submission.settlement;
  return settled ? std::optional(settled->correlation) : std::nullopt;
}

std::optional<double> sharpe(const ListedSignal& signal) {
  return figure_of(signal.in_sample, genetic::key<"sharpe">());
}
std::optional<double> quality(const ListedSignal& signal) {
  return figure_of(signal.in_sample, genetic::key<"quality_score">());
}
std::optional<double> annual_return(const ListedSignal& signal) {
  return figure_of(signal.in_sample, genetic::key<"annualized_returns">());
}
std::optional<double> turnover(const ListedSignal& signal) {
  return figure_of(signal.in_sample, genetic::key<"turnover">());
}
std::optional<double> drawdown(const ListedSignal& signal) {
  return figure_of(signal.in_sample, genetic::key<"drawdown">());
}

constexpr bool kHighIsBest = true;
constexpr bool kLowIsBest = false;

constexpr auto kFigures = std::to_array<SignalFigure>({
    {"sharpe", kHighIsBest, "Sharpe ratio in sample, a year", sharpe, true},
    {"holdout", kHighIsBest, "Sharpe ratio in the hold-out, a year", holdout_sharpe, true},
    {"quality", kHighIsBest, "score by which signals are ranked", quality},
    {"return", kHighIsBest, "mean return in sample, a year; 0.1 is 10 %", annual_return},
    {"turnover", kLowIsBest, "mean fraction of the capital traded a day", turnover},
    {"drawdown", kLowIsBest, "deepest fall in sample; 0.1 is 10 %", drawdown},
    {"novelty", kHighIsBest, "novelty beside the pool, 0 to 1", novelty},
    {"correlation", kLowIsBest, "greatest correlation with the pool, 0 to 1", correlation},
});

}  // namespace

std::string SignalFigure::bound_option() const {
  return fmt::format("--{}-{}", high_is_best ? "min" : "max", name);
}

std::span<const SignalFigure> signal_figures() {
  return kFigures;
}

const SignalFigure* find_signal_figure(std::string_view name) {
  const auto found = std::find_if(kFigures.begin(), kFigures.end(),
                                  [name](const SignalFigure& row) { return row.name == name; });
  return found == kFigures.end() ? nullptr : &*found;
}

std::string signal_figure_names() {
  std::string text;
  for (const SignalFigure& figure : kFigures)
    text += fmt::format("{}{}", text.empty() ? "" : ", ", figure.name);
  return text;
}

bool is_within(const ListedSignal& signal, const FigureBounds& bounds) {
  return std::all_of(kFigures.begin(), kFigures.end(), [&](const SignalFigure& figure) {
    const auto bound = bounds.find(figure.name);
    if (bound == bounds.end() || !bound->second) return true;
    const std::optional<double> value = figure.of(signal);
    return value && (figure.high_is_best ? *value >= *bound->second : *value <= *bound->second);
  });
}

void sort_by(const SignalFigure& figure, std::vector<ListedSignal>& signals) {
  std::stable_sort(signals.begin(), signals.end(),
                   [&figure](const ListedSignal& left, const ListedSignal& right) {
                     const std::optional<double> a = figure.of(left);
                     const std::optional<double> b = figure.of(right);
                     if (!a || !b) return a.has_value() && !b.has_value();
                     return figure.high_is_best ? *a > *b : *a < *b;
                   });
}

}  // namespace varnholt::app
