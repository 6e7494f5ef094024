#include "hosts/embedded/search/attempt_replay.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::embedded {

using genetic::Mapping;
using genetic::Value;

namespace {

// The days that the search of the run saw: all of them in a run without eras.
MarketData seen_days(const RunRecord& run, const MarketData& prices) {
  const Value eras = read_json(run.start.eras_json);
  const auto mapping = genetic::as_mapping(eras);
  if (!mapping) return prices;
  return prices.first_days(
      static_cast<Eigen::Index>(genetic::to_integer(mapping->at("seen_days")).integer()));
}

bool are_equal(const std::optional<double>& recorded, const std::optional<double>& replayed) {
  if (!recorded || !replayed) return !recorded && !replayed;
  if (std::isnan(*recorded) || std::isnan(*replayed)) {
    return std::isnan(*recorded) && std::isnan(*replayed);
  }
  if (*recorded == *replayed) return true;  // Infinities too.
  return std::abs(*recorded - *replayed) <= kReplayRounding * std::max(1.0, std::abs(*recorded));
}

std::optional<double> figure(const std::optional<Mapping>& statistics, const Value& name) {
  if (!statistics) return std::nullopt;
  return genetic::tolerant_float(statistics->get(name));
}

std::vector<ReplayedFigure> compared(const std::optional<Mapping>& recorded,
                                     const std::optional<Mapping>& replayed) {
  std::vector<ReplayedFigure> figures;
  if (!recorded && !replayed) return figures;
  genetic::MappingCursor cursor(replayed ? *replayed : *recorded);
  while (const auto entry = cursor.next()) {
    ReplayedFigure& made = figures.emplace_back();
    made.name = genetic::str(entry->key);
    made.recorded = figure(recorded, entry->key);
    made.replayed = figure(replayed, entry->key);
    made.is_equal = are_equal(made.recorded, made.replayed);
  }
  return figures;
}

}  // namespace

Replay replay_attempt(const AttemptRecord& attempt, const RunRecord& run,
                      const std::string& recorded_statistics_json, const MarketData& prices) {
  using Clock = std::chrono::steady_clock;
  const auto recorded = genetic::as_mapping(read_json(recorded_statistics_json));
  EvaluatorOptions options{.book = book_rules_of(run.start)};
  options.judges_both_signs = judges_both_signs(run.start);
  const Evaluator evaluator(seen_days(run, prices), options);
  const Value graph = read_json(attempt.start.graph_json);
  Replay replay;
  std::optional<Mapping> statistics;
  const auto begin = Clock::now();
  try {
    statistics = statistics_mapping(evaluator.judge(graph).statistics);
  } catch (const std::exception& error) {
    // What a backtest fails with is what the replay has to tell.
    replay.failure = error.what();
  }
  replay.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  replay.figures = compared(recorded, statistics);
  if (statistics && !recorded) return replay;
  replay.is_equal = std::all_of(replay.figures.begin(), replay.figures.end(),
                                [](const ReplayedFigure& figure) { return figure.is_equal; });
  return replay;
}

}  // namespace varnholt::embedded
