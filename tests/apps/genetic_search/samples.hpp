// Hand-made events of a run, for the tests of what is told of them.
#pragma once

#include <string>

#include "hosts/embedded/host/search_events.hpp"
#include "search_templates/genetic/settings/constants.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::app::samples {

inline embedded::SearchStarted started() {
  embedded::SearchStarted started;
  started.run_id = 7;
  started.prices = "prices.csv";
  started.database = "runs.db";
  started.instruments = 4;
  started.days = 3268;
  started.first_date = "2000-03-01";
  started.last_date = "2013-03-01";
  started.jobs = 2;
  started.batch_size = 32;
  started.seed = 123;
  started.signal_pool_name = "signals";
  started.market_id = 1;
  started.era_number = 3;
  started.seen_days = 2451;
  started.last_seen_date = "2009-11-27";
  started.holdout_days = 817;
  started.first_holdout_date = "2009-11-30";
  return started;
}

// Candidates of run 7.
inline embedded::CandidateRecorded candidate_of_run(std::int64_t number) {
  embedded::CandidateRecorded candidate;
  candidate.candidate_number = number;
  candidate.eval_id = "7-" + std::to_string(number);
  return candidate;
}

inline embedded::CandidateRecorded passing(std::int64_t number, double quality) {
  embedded::CandidateRecorded candidate = candidate_of_run(number);
  candidate.generation = 1;
  candidate.passed = true;
  candidate.expression = "arith_add(cross_rank(ts_delta(close, 5)), volume)";
  candidate.statistics.emplace();
  candidate.statistics->sharpe = 1.234;
  candidate.statistics->gross_returns_sharpe = 1.5;
  candidate.statistics->annualized_returns = 0.1234;
  candidate.statistics->turnover = 0.25;
  candidate.statistics->drawdown = 0.333;
  candidate.statistics->quality_score = quality;
  candidate.statistics->holding_days = 3267;
  candidate.elapsed_seconds = 0.5;
  return candidate;
}

inline embedded::CandidateRecorded failing(std::int64_t number) {
  embedded::CandidateRecorded candidate = candidate_of_run(number);
  candidate.failure_reason = "sharpe_min";
  candidate.failure_detail = "sharpe 0.12 is below 0.3";
  return candidate;
}

inline embedded::SearchProgress progress() {
  embedded::SearchProgress progress;
  progress.generation = 3;
  progress.candidates = 96;
  progress.passing = 12;
  progress.fresh_in_generation = 18;
  progress.bred_in_generation = 14;
  progress.failures = {{"sharpe_min", 60}, {"turnover_max", 20}, {"worker_timeout", 4}};
  progress.best = passing(17, 1.32);
  progress.elapsed_seconds = 4.0;
  return progress;
}

// The record as the search writes it.
inline genetic::Mapping metrics(const std::string& terminal_reason = "stopped") {
  using genetic::Mapping;
  return Mapping{
      {"batch_size", 32},
      {"process_count", 2},
      {"candidate_count", 96},
      {"generated_graph_count", 100},
      {"unique_graph_count", 96},
      {"duplicate_graph_count", 4},
      {"unique_ratio", 0.96},
      {"seed", 123},
      {"improvement_round_count", 0},
      {"terminal_reason", terminal_reason},
      {"failure_count", 84},
      {"elapsed_simulation_seconds", 3.25},
      {"determinism_metadata",
       Mapping{{"seed", 123}, {"process_count", 2}, {"tie_semantics", genetic::TIE_SEMANTICS}}}};
}

inline embedded::SubmittedSignal submitted(std::int64_t number, double in_sample, double holdout) {
  embedded::SubmittedSignal signal;
  signal.eval_id = "7-" + std::to_string(number);
  signal.expression = "cross_rank(ts_delta(close, 5))";
  signal.statistics.in_sample.sharpe = in_sample;
  signal.statistics.holdout.sharpe = holdout;
  signal.novelty = 0.75;
  signal.correlation = 0.125;
  return signal;
}

inline embedded::SettledSignal settled(std::int64_t number, const std::string& refusal = {}) {
  embedded::SettledSignal signal;
  signal.eval_id = "7-" + std::to_string(number);
  signal.submitted = refusal.empty();
  signal.refusal_reason = refusal;
  if (!refusal.empty()) signal.refusal_detail = "0.9 is above 0.7";
  signal.novelty = 0.75;
  signal.correlation = 0.9;
  if (signal.submitted) signal.replaced = {"7-2"};
  return signal;
}

inline embedded::SearchSummary summary() {
  embedded::SearchSummary summary;
  summary.run_id = 7;
  summary.stop_cause = embedded::StopCause::Generations;
  summary.progress = progress();
  summary.metrics = metrics();
  summary.best = {passing(17, 1.32), passing(5, 0.8)};
  summary.submitted = {submitted(17, 1.234, 0.4), submitted(5, 0.8, -0.25)};
  summary.market.in_sample.sharpe = 0.51;
  summary.market.holdout.sharpe = 0.62;
  summary.submissions.submitted = 2;
  summary.submissions.refused = {{"correlation_exceeded", 4}, {"pnl_mi_below_threshold", 1}};
  summary.submissions.waiting = 1;
  return summary;
}

}  // namespace varnholt::app::samples
