#include "search_templates/genetic/process/process_attempts.hpp"

#include <array>
#include <cstddef>

#include "search_templates/genetic/context/verdicts.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// What an attempt without a result was.
struct Classification {
  Key blocker_type;
  Key terminal_disposition;
  Key failure_category;
  Key source;
};

enum Row : std::size_t { kCancelled, kBacktestStarted, kDispatchedOnly, kNotDispatched };

constexpr std::array<Classification, 4> kClassifications = {{
    {key<"process_search_cancelled">(), key<"cancelled">(), key<"operator">(),
     key<"client_lifecycle">()},
    {key<"process_backtest_execution_failed">(), key<"backtest_failed">(), key<"execution">(),
     key<"process_evaluation">()},
    {key<"process_worker_failed_backtest_state_unknown">(), key<"resource_blocked">(),
     key<"resource">(), key<"process_evaluation">()},
    {key<"process_dispatch_failed">(), key<"resource_blocked">(), key<"resource">(),
     key<"process_evaluation">()},
}};

constexpr Key kBlocked = key<"blocked">();
constexpr Key kSkipped = key<"skipped">();
constexpr Key kSearchStopped = key<"search_stopped">();

constexpr Key kSourcePath = key<"search_signal">();
constexpr Key kAlgorithm = key<"genetic">();
constexpr Key kEvalType = key<"signal">();

const Classification& classification(AttemptFlags flags) {
  if (flags.cancelled) return kClassifications[kCancelled];
  if (flags.backtest_started) return kClassifications[kBacktestStarted];
  return kClassifications[flags.dispatched ? kDispatchedOnly : kNotDispatched];
}

Key threshold_verdict(AttemptFlags flags) {
  return flags.dispatched ? kBlocked : kSkipped;
}

Value text_or_absent(const Value& detail) {
  return detail.is_absent() ? Value() : text_form(detail);
}

Value expected_columns(SearchContext& context) {
  return context.required_attribute(context_names::kAttemptExpectedColumns.view());
}

// The columns are read before the host's operation is looked for.
Value empty_column_inventory(Host& host, SearchContext& context) {
  const Value columns = expected_columns(context);
  return host.attempt_accounting().build_column_inventory(columns, Mapping());
}

Value threshold_set(Host& host, SearchContext& context) {
  const Value thresholds = context.required_attribute(context_names::kOwnThresholds.view());
  return host.attempt_accounting().json_ready(thresholds);
}

// Each verdict is a copy of its own, so that a host may complete one without the others.
Mapping threshold_gate(Host& host, SearchContext& context, const Value& reason, const Value& detail,
                       const Value& not_evaluated, AttemptFlags flags) {
  return {{keys::kVerdict, threshold_verdict(flags)},
          {keys::kReason, text_form(reason)},
          {keys::kDetail, text_or_absent(detail)},
          {keys::kThresholdSet, threshold_set(host, context)},
          {keys::kStatsVerdict, new_mapping(not_evaluated)},
          {keys::kCorrelationVerdict, new_mapping(not_evaluated)},
          {keys::kMiVerdict, new_mapping(not_evaluated)}};
}

}  // namespace

Value create_process_attempt(Host& host, SearchContext& context, const Value& candidate_index,
                             const Value& graph) {
  const auto tracker = context.tracker();
  const AttemptTracker::Create create = tracker->create_simulation_attempt();
  const auto read = [&context](Key name) { return context.required_attribute(name.view()); };
  const auto data_shape = [&] {
    const auto declared_shape = host.attempt_markers().attempt_declared_data_shape();
    return declared_shape(expected_columns(context));
  };
  // The members of a list in braces are computed from left to right: the order of the reads.
  return create(NewAttempt{
      .product_run_id = read(context_names::kProductRunId),
      .source_path = kSourcePath,
      .graph = graph,
      .algorithm = kAlgorithm,
      .rotation_identifier = "candidate-" + str(to_integer(candidate_index)),
      .era_number = read(context_names::kOwnEraNumber),
      .market_id = read(context_names::kOwnMarketId),
      .data_shape = data_shape(),
      .expected_columns = expected_columns(context),
      .eval_type = kEvalType,
  });
}

void finalize_process_failure_attempt(Host& host, SearchContext& context, const Value& attempt_id,
                                      const Value& reason, const Value& detail,
                                      AttemptFlags flags) {
  const Classification& was = classification(flags);
  const Value not_evaluated = not_evaluated_verdict(host.evaluation_verdicts());
  const auto tracker = context.tracker();
  const AttemptTracker::Finalize finalize = tracker->finalize_simulation_attempt();
  finalize(
      attempt_id,
      AttemptEnd{
          .terminal_disposition = was.terminal_disposition,
          .backtest_completed = false,
          .generated_stats = Value(),
          .candidate_stats = Value(),
          .stats_construction_blocker = process_attempt_blocker(reason, detail, flags),
          .expected_columns = expected_columns(context),
          .per_column_inventory = empty_column_inventory(host, context),
          .threshold_gate = threshold_gate(host, context, reason, detail, not_evaluated, flags),
          .failure_category = was.failure_category,
          .failure_reason = flags.cancelled ? Value(kSearchStopped) : text_form(reason),
          .failure_detail = text_or_absent(detail),
          .classification_source = was.source,
      });
}

Mapping process_attempt_blocker(const Value& reason, const Value& detail, AttemptFlags flags) {
  Mapping blocker{{keys::kType, classification(flags).blocker_type},
                  {keys::kReason, text_form(reason)}};
  if (!detail.is_absent()) blocker.set(keys::kDetail, text_form(detail));
  return blocker;
}

Mapping process_attempt_evidence(Host& host, SearchContext& context, const Value& reason,
                                 const Value& detail, AttemptFlags flags) {
  const Classification& was = classification(flags);
  return {{keys::kBacktestStarted, flags.backtest_started},
          {keys::kBacktestCompleted, false},
          {keys::kGeneratedStats, Value()},
          {keys::kCandidateStats, Value()},
          {keys::kStatsConstructionBlocker, process_attempt_blocker(reason, detail, flags)},
          {keys::kPerColumnInventory, empty_column_inventory(host, context)},
          {keys::kTerminalDispositionOverride, was.terminal_disposition},
          {keys::kThresholdVerdictOverride, threshold_verdict(flags)},
          {keys::kFailureCategoryOverride, was.failure_category},
          {keys::kClassificationSourceOverride, was.source}};
}

}  // namespace varnholt::genetic
