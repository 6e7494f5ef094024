#include "search_templates/genetic/driver/run_counters.hpp"

#include <optional>
#include <string>
#include <utility>

#include "search_templates/genetic/driver/run_metrics.hpp"
#include "search_templates/genetic/reaction/lineage.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::string_view kRuntimeNotReadyLog =
    "Genetic search runtime was not ready for %s consecutive candidates; stopping the search";
constexpr Key kFatalCode = key<"BACKGROUND_TASK_FAILED">();
constexpr Key kFatalSource = key<"register()">();

std::string runtime_not_ready_detail(std::int64_t streak) {
  return "search runtime was not ready for " + std::to_string(streak) +
         " consecutive candidates; the runtime, not the candidate, is what fails, so the search "
         "stops instead of recording more candidate rejections";
}

// Membership as the host's language has it: among a mapping's keys, or a sequence's items.
bool names_failure(const Value& failures, const Value& reason) {
  if (const std::optional<Mapping> mapping = as_mapping(failures)) return mapping->contains(reason);
  const auto walk = iterate(failures);
  while (const std::optional<Value> item = walk->next()) {
    if (is_same_or_equal(*item, reason)) return true;
  }
  return false;
}

}  // namespace

RunCounters::RunCounters(Host& host, const ModuleConstants& constants, SearchContext& context,
                         const SearchConfig& config, Value process_count)
    : host_(host),
      constants_(constants),
      context_(context),
      config_(config),
      process_count_(std::move(process_count)) {}

void RunCounters::count_duplicates(std::int64_t duplicates) {
  duplicate_graph_count_ += duplicates;
}

void RunCounters::count_candidates(const Value& results) {
  count_untimed_candidates(results);
  elapsed_simulation_seconds_ += to_float(elapsed_candidate_seconds(results));
}

void RunCounters::count_untimed_candidates(const Value& results) {
  candidate_count_ += static_cast<std::int64_t>(length(results));
}

Value RunCounters::count_process_evaluation_failures(const Value& error) {
  ProcessEvaluation& process_evaluation = host_.process_evaluation();
  Value reason = attribute(error, keys::kTerminalReason.view()).value_or(Value());
  if (!truth(reason)) reason = process_evaluation.terminal_worker_failed();
  reason = text_form(reason);
  if (!is_same_or_equal(reason, process_evaluation.terminal_process_priority_failed())) {
    const Value count = attribute(error, keys::kFailureCount.view()).value_or(1);
    failure_count_ = saturated_sum(failure_count_, saturated_integer(to_integer(count)));
  }
  return reason;
}

bool RunCounters::breaks_streak(const Value& failures) const {
  const auto walk = iterate(failures);
  while (const std::optional<Value> reason = walk->next()) {
    if (constants_.is_process_terminal_failure_reason(*reason)) return false;
  }
  return true;
}

void RunCounters::count_runtime_not_ready_results(const Value& results) {
  const auto walk = iterate(results);
  while (const std::optional<Value> result = walk->next()) {
    Value failures = record_of(*result).get(keys::kFailures);
    if (!truth(failures)) failures = Mapping();
    if (names_failure(failures, reasons::kSdkRuntimeNotReady)) {
      ++runtime_not_ready_streak_;
    } else if (breaks_streak(failures)) {
      runtime_not_ready_streak_ = 0;
    }
  }
  if (less(runtime_not_ready_streak_, host_.runtime_readiness().infrastructure_failure_threshold()))
    return;

  const std::string detail = runtime_not_ready_detail(runtime_not_ready_streak_);
  host_.logger().error(kRuntimeNotReadyLog, {runtime_not_ready_streak_});
  record_run_metrics(reasons::kSdkRuntimeNotReady);
  if (const Callable fatal_callback = context_.fatal_callback()) {
    fatal_callback({kFatalCode, kFatalSource, detail});
  }
  host_.runtime_readiness().raise_background_infrastructure_error(detail);
}

void RunCounters::record_run_metrics(const Value& terminal_reason) {
  metrics_recorded_ = true;  // Also when the recorder fails: a run is reported once.
  RunFigures figures;
  figures.process_count = process_count_;
  figures.candidate_count = candidate_count_;
  figures.generated_graph_count = candidate_count_ + duplicate_graph_count_;
  figures.unique_graph_count = candidate_count_;
  figures.duplicate_graph_count = duplicate_graph_count_;
  figures.improvement_round_count = improvement_round_count_;
  figures.terminal_reason = terminal_reason;
  figures.failure_count = failure_count_;
  figures.elapsed_simulation_seconds = elapsed_simulation_seconds_;
  record_search_run_metrics(context_, config_, figures);
}

}  // namespace varnholt::genetic
