// The embedded host's search context: the evaluator, the recorder and the settings of one search.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/search/search_stop.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// Where the parent persists what the search found.
class ResultRecorder {
 public:
  virtual ~ResultRecorder() = default;

  // `keywords` are those of the context's operation `safe_record`. Returns the evaluation's id.
  virtual genetic::Value record(const genetic::Value& graph, bool passed,
                                const genetic::Mapping& keywords) = 0;
  virtual void record_metrics(const genetic::Mapping& metrics) = 0;
};

struct ContextSettings {
  int jobs = 1;
  int max_depth = 5;
  GateThresholds gates;
  std::optional<std::int64_t> worker_memory_limit_bytes;
};

class EmbeddedContext : public genetic::SearchContext {
 public:
  // All four must outlive the context.
  EmbeddedContext(const Evaluator& evaluator, const ContextSettings& settings,
                  std::shared_ptr<SearchStop> stop, ResultRecorder& recorder);

  // Called in a child before it works: from then on the parent's operations are not there.
  void enter_child() { in_child_ = true; }

  [[nodiscard]] const Evaluator& evaluator() const { return evaluator_; }
  [[nodiscard]] SearchStop& stop() { return *stop_; }

  [[nodiscard]] std::shared_ptr<genetic::StopEvent> stop_event() override { return stop_; }
  [[nodiscard]] genetic::Callable fatal_callback() override { return {}; }
  [[nodiscard]] genetic::Callable record_search_run_metrics() override;
  [[nodiscard]] std::optional<genetic::Value> max_depth() override { return settings_.max_depth; }
  // {"functions": {"rotation": [{"name", "family", "data_children", "needs_window", "child_count"},
  // ...]}}: a new mapping at each call.
  [[nodiscard]] std::optional<genetic::Value> vocabulary() override;
  [[nodiscard]] std::optional<genetic::Value> n_jobs() override { return settings_.jobs; }
  [[nodiscard]] std::optional<genetic::Value> worker_memory_limit_bytes() override;
  [[nodiscard]] std::optional<genetic::Value> attribute(std::string_view name) override;
  [[nodiscard]] genetic::Callable own_graph_validator() override;
  [[nodiscard]] genetic::Callable backtester_validate_graph() override { return {}; }
  [[nodiscard]] genetic::Callable evaluate_for_template() override;
  [[nodiscard]] std::optional<genetic::Value> last_evaluation_record() override {
    return last_evaluation_record_;
  }
  [[nodiscard]] genetic::Callable safe_record() override;
  [[nodiscard]] genetic::Value current_attempt_evidence() override { return {}; }
  [[nodiscard]] genetic::Callable derive_rejection_reason_detail() override;

 private:
  [[nodiscard]] genetic::Value evaluate(const genetic::Value& graph);

  const Evaluator& evaluator_;
  ContextSettings settings_;
  std::shared_ptr<SearchStop> stop_;
  ResultRecorder& recorder_;
  genetic::Value last_evaluation_record_;
  bool in_child_ = false;
};

}  // namespace varnholt::embedded
