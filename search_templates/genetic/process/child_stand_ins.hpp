// What stands in the place of the parent's operations while a child evaluates one candidate.
#pragma once

#include <memory>
#include <string_view>

#include "search_templates/genetic/host/child_context.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/process/backtest_boundary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Made for one evaluation. A host whose language can look into operations makes its own.
class ChildStandIns {
 public:
  virtual ~ChildStandIns() = default;

  // For the engine's marker of attempts: hands all its arguments to signal_child_backtest_boundary.
  [[nodiscard]] virtual Value attempt_marker(
      const Value& process_attempt,
      const std::shared_ptr<TemplateEvaluationState>& evaluation_state) = 0;
  // For the context's link to the pool (found_pnl_files.hpp).
  [[nodiscard]] virtual Value sync_snapshot(const Value& sync_manager) = 0;
  // For the context's recorder: (graph, passed_thresholds, rejection_reason, stats,
  // per_column_stats, expression_elapsed_seconds, tracking_metric_kwargs), the last five optional,
  // each positional or by name; other keywords are dropped. Hands them to child_safe_record.
  [[nodiscard]] virtual Value recorder() = 0;
  // For an operation that a child must not call: fails (child_guards.hpp).
  [[nodiscard]] virtual Value forbidden(std::string_view operation_name) = 0;
};

// For a host in C++. The context must outlive whatever is made.
class OwnChildStandIns : public ChildStandIns {
 public:
  OwnChildStandIns(SearchContext& context, Value candidate, Value found_pnl_paths,
                   BoundaryChannel channel);

  [[nodiscard]] Value attempt_marker(
      const Value& process_attempt,
      const std::shared_ptr<TemplateEvaluationState>& evaluation_state) override;
  [[nodiscard]] Value sync_snapshot(const Value& sync_manager) override;
  [[nodiscard]] Value recorder() override;
  [[nodiscard]] Value forbidden(std::string_view operation_name) override;

 private:
  SearchContext& context_;
  Value candidate_;
  Value found_pnl_paths_;
  BoundaryChannel channel_;
};

}  // namespace varnholt::genetic
