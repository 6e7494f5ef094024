#include "search_templates/genetic/driver/run_metrics.hpp"

#include <array>
#include <optional>
#include <vector>

#include "search_templates/genetic/settings/constants.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// The entries that a narrow recorder need not take, in the order in which it is asked for them. It
// is asked anew for each.
constexpr auto kOptionalEntries =
    std::to_array({keys::kDeterminismMetadata, keys::kGeneratedGraphCount, keys::kUniqueGraphCount,
                   keys::kDuplicateGraphCount, keys::kUniqueRatio, keys::kSeed});

double unique_ratio(const RunFigures& figures) {
  if (!less(0, figures.generated_graph_count)) return 0.0;
  return to_float(figures.unique_graph_count) / to_float(figures.generated_graph_count);
}

Mapping metrics_record(const SearchConfig& config, const RunFigures& figures) {
  Mapping record(13);
  record.set(keys::kBatchSize, config.batch_size());
  record.set(keys::kProcessCount, figures.process_count);
  record.set(keys::kCandidateCount, figures.candidate_count);
  record.set(keys::kGeneratedGraphCount, figures.generated_graph_count);
  record.set(keys::kUniqueGraphCount, figures.unique_graph_count);
  record.set(keys::kDuplicateGraphCount, figures.duplicate_graph_count);
  record.set(keys::kUniqueRatio, unique_ratio(figures));
  record.set(keys::kSeed, config.seed());
  record.set(keys::kImprovementRoundCount, figures.improvement_round_count);
  record.set(keys::kTerminalReason, figures.terminal_reason);
  record.set(keys::kFailureCount, figures.failure_count);
  record.set(keys::kElapsedSimulationSeconds, figures.elapsed_simulation_seconds);
  record.set(keys::kDeterminismMetadata, Mapping{{keys::kSeed, config.seed()},
                                                 {keys::kProcessCount, figures.process_count},
                                                 {keys::kTieSemantics, TIE_SEMANTICS}});
  return record;
}

}  // namespace

bool callable_accepts_keyword(const Callable& callable, std::string_view keyword) {
  const std::optional<std::vector<Parameter>> parameters = callable.signature();
  if (!parameters) return true;
  for (const Parameter& parameter : *parameters) {
    if (parameter.kind == ParameterKind::kVariableKeyword) return true;
    if (parameter.name == keyword && (parameter.kind == ParameterKind::kPositionalOrKeyword ||
                                      parameter.kind == ParameterKind::kKeywordOnly)) {
      return true;
    }
  }
  return false;
}

void record_search_run_metrics(SearchContext& context, const SearchConfig& config,
                               const RunFigures& figures) {
  const Callable recorder = context.record_search_run_metrics();
  if (!recorder) return;

  Mapping record = metrics_record(config, figures);
  for (const Key entry : kOptionalEntries) {
    if (!callable_accepts_keyword(recorder, entry.view())) record.erase(entry);
  }
  recorder({}, record);
}

}  // namespace varnholt::genetic
