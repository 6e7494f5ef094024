// What a run counts, and the one condition under which the counting itself ends the run.
#pragma once

#include <cstdint>

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/settings/module_constants.hpp"
#include "search_templates/genetic/settings/search_config.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class RunCounters {
 public:
  RunCounters(Host& host, const ModuleConstants& constants, SearchContext& context,
              const SearchConfig& config, Value process_count);

  // Graphs that were dropped as seen.
  void count_duplicates(std::int64_t duplicates);
  // Results that were recorded, with the seconds that they took.
  void count_candidates(const Value& results);
  // The same without the seconds, for results that no process has returned.
  void count_untimed_candidates(const Value& results);
  void count_improvement_round() { ++improvement_round_count_; }

  // Adds an error of process evaluation and returns its reason. A process priority that cannot be
  // set adds nothing.
  Value count_process_evaluation_failures(const Value& error);

  // Follows how many candidates in a row met a runtime that was not ready, over the whole run, and
  // ends the run when they are too many: logs, records the metrics, calls the host's fatal callback
  // and throws the host's BackgroundInfrastructureError. The limit is tested once, after all the
  // results. A candidate lost with its process neither extends nor breaks the row, on purpose.
  void count_runtime_not_ready_results(const Value& results);

  // Writes the metrics record. Its figures are reconciled: the unique graphs are the candidates,
  // and the generated ones are those plus the duplicates, whatever the batches themselves have
  // counted.
  void record_run_metrics(const Value& terminal_reason);

  [[nodiscard]] std::int64_t candidate_count() const { return candidate_count_; }
  [[nodiscard]] bool metrics_recorded() const { return metrics_recorded_; }

 private:
  [[nodiscard]] bool breaks_streak(const Value& failures) const;

  Host& host_;
  const ModuleConstants& constants_;
  SearchContext& context_;
  const SearchConfig& config_;
  Value process_count_;
  std::int64_t candidate_count_ = 0;
  std::int64_t duplicate_graph_count_ = 0;
  std::int64_t improvement_round_count_ = 0;
  std::int64_t failure_count_ = 0;
  std::int64_t runtime_not_ready_streak_ = 0;
  double elapsed_simulation_seconds_ = 0.0;
  bool metrics_recorded_ = false;
};

}  // namespace varnholt::genetic
