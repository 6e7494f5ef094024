#include "hosts/embedded/search/attempt_end.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include "hosts/embedded/attempts/attempt_accounts.hpp"
#include "hosts/embedded/gates/threshold_set.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/known_behaviours.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Key;
using genetic::Mapping;
using genetic::Value;

namespace {

constexpr const char* kBacktestFailed = "backtest_failed";
constexpr const char* kExecution = "execution";
// Of a signal that its statistics let pass and the pool does not, and of one that repeats another.
constexpr const char* kNovelty = "novelty";
constexpr const char* kParentRecorder = "parent_recorder";
constexpr const char* kProcessEvaluation = "process_evaluation";

Mapping mapping_or_empty(const Value& value) {
  return genetic::as_mapping(value).value_or(Mapping());
}

std::optional<std::string> text_or_nothing(const std::string& text) {
  return text.empty() ? std::nullopt : std::optional(text);
}

std::string text_or(const Value& value, const char* fallback) {
  return value.is_absent() ? fallback : genetic::str(value);
}

Value statistics_value(const CandidateRecorded& candidate) {
  return candidate.statistics ? Value(statistics_mapping(*candidate.statistics)) : Value();
}

// Whether nothing went wrong: the backtest was completed, or left out on purpose.
bool was_judged(const CandidateRecorded& candidate, bool completed) {
  return completed || candidate.failure_reason == kBehaviourRepeated.view();
}

std::optional<std::string> category_of(const CandidateRecorded& candidate, bool judged) {
  if (candidate.passed) return std::nullopt;
  if (!judged) return kExecution;
  const std::span<const Gate> gates = gate_table();
  const auto gate = std::find_if(gates.begin(), gates.end(), [&](const Gate& row) {
    return row.reason.view() == candidate.failure_reason;
  });
  return gate != gates.end() ? std::string(gate->category.view()) : std::string(kNovelty);
}

const char* disposition_of(const CandidateRecorded& candidate, bool judged) {
  if (candidate.passed) return kPassed;
  return judged ? kRejected : kBacktestFailed;
}

const char* verdict_of(const CandidateRecorded& candidate, bool judged) {
  if (candidate.passed) return "passed";
  return judged ? "failed" : "blocked";
}

Mapping threshold_gate(const CandidateRecorded& candidate, const Mapping& evidence,
                       const Mapping& tracking, const GateThresholds& gates,
                       const HardLimits& limits, bool judged) {
  const auto text_value = [](const std::string& text) {
    return text.empty() ? Value() : Value(text);
  };
  return {{keys::kVerdict,
           text_or(evidence.get(keys::kThresholdVerdictOverride), verdict_of(candidate, judged))},
          {keys::kReason, text_value(candidate.failure_reason)},
          {keys::kDetail, text_value(candidate.failure_detail)},
          {keys::kThresholdSet, threshold_set(gates, limits)},
          {keys::kStatsVerdict, tracking.get(keys::kStatsVerdict)},
          {keys::kCorrelationVerdict, tracking.get(keys::kCorrelationVerdict)},
          {keys::kMiVerdict, tracking.get(keys::kMiVerdict)}};
}

Value inventory_of(const Mapping& evidence, const Value& statistics) {
  Value told = evidence.get(keys::kPerColumnInventory);
  if (!told.is_absent()) return told;
  const Mapping expected = statistics_mapping(BacktestStatistics());
  return AttemptAccounts().build_column_inventory(expected, mapping_or_empty(statistics));
}

}  // namespace

AttemptEndRow attempt_end(const CandidateRecorded& candidate, const Mapping& keywords,
                          const ActiveAttempt& attempt, const GateThresholds& gates,
                          const HardLimits& limits) {
  const Mapping evidence = mapping_or_empty(attempt.evidence);
  const Mapping tracking = mapping_or_empty(keywords.get(keys::kTrackingMetricKwargs));
  const Value statistics = statistics_value(candidate);
  const bool completed =
      genetic::truth(evidence.get(keys::kBacktestCompleted)) || candidate.statistics.has_value();
  const bool judged = was_judged(candidate, completed);
  const bool worker_was_lost = attempt.id.is_absent() && !judged;
  const auto told = [&evidence](Key key, const Value& otherwise) {
    const Value value = evidence.get(key);
    return stored_json(value.is_absent() ? otherwise : value);
  };

  AttemptEndRow end;
  end.terminal_disposition =
      text_or(evidence.get(keys::kTerminalDispositionOverride), disposition_of(candidate, judged));
  end.backtest_completed = completed;
  end.generated_stats_json = told(keys::kGeneratedStats, statistics);
  // Those of a recorded candidate stand in its evaluation.
  end.candidate_stats_json = told(keys::kCandidateStats, Value());
  end.stats_construction_blocker_json = told(keys::kStatsConstructionBlocker, Value());
  end.per_column_inventory_json = stored_json(inventory_of(evidence, statistics));
  end.threshold_gate_json =
      stored_json(threshold_gate(candidate, evidence, tracking, gates, limits, judged));
  end.failure_category = category_of(candidate, judged);
  const Value category = evidence.get(keys::kFailureCategoryOverride);
  if (!category.is_absent()) end.failure_category = genetic::str(category);
  end.failure_reason = text_or_nothing(candidate.failure_reason);
  end.failure_detail = text_or_nothing(candidate.failure_detail);
  end.classification_source = text_or(evidence.get(keys::kClassificationSourceOverride),
                                      worker_was_lost ? kProcessEvaluation : kParentRecorder);
  end.eval_id = candidate.eval_id;
  return end;
}

std::string announced_payload(const EvaluationRecord& record, const PoolIdentity& pool,
                              const Mapping& keywords) {
  const Mapping payload{{keys::kEvalId, record.eval_id},
                        {keys::kSubmissionType, "signal"},
                        {keys::kGraph, read_json(record.graph_json)},
                        {keys::kSignalPoolName, pool.signal_pool_name},
                        {keys::kIsStats, read_json(record.statistics_json)},
                        {keys::kExpressionElapsedSeconds, record.elapsed_seconds},
                        {keys::kBacktestTiming, keywords.get(keys::kBacktestTiming)},
                        {keys::kMarketId, pool.market_id},
                        {keys::kEraNumber, pool.era_number}};
  return genetic::json_text(payload);
}

}  // namespace varnholt::embedded
