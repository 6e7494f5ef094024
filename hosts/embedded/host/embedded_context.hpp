// The embedded host's search context: the evaluator, the recorder and the settings of one search.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "hosts/embedded/attempts/embedded_tracker.hpp"
#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/host/known_behaviours.hpp"
#include "hosts/embedded/host/known_structures.hpp"
#include "hosts/embedded/host/process_side.hpp"
#include "hosts/embedded/host/search_stop.hpp"
#include "hosts/embedded/host/signal_submission.hpp"
#include "hosts/embedded/timing/stopwatch.hpp"
#include "search_templates/genetic/host/operation_table.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The attempt that the search has made the current one before a record; both absent where it has
// made none.
struct ActiveAttempt {
  genetic::Value id;
  genetic::Value evidence;
};

// Where the parent persists what the search found.
class ResultRecorder {
 public:
  virtual ~ResultRecorder() = default;

  // `keywords` are those of the context's operation `safe_record`. Returns the evaluation's id.
  virtual genetic::Value record(const genetic::Value& graph, bool passed,
                                const genetic::Mapping& keywords, const ActiveAttempt& attempt) = 0;
  virtual void record_metrics(const genetic::Mapping& metrics) = 0;
  // The search waits for its workers: a moment to show the progress.
  virtual void tick() {}

  // The run's attempts; null for a recorder that keeps none.
  [[nodiscard]] virtual std::shared_ptr<EmbeddedTracker> tracker() { return nullptr; }
  // The number of the run; absent where there is none.
  [[nodiscard]] virtual genetic::Value run_id() { return {}; }
};

struct ContextSettings {
  int jobs = 1;
  int max_depth = 5;
  GateThresholds gates;
  HardLimits limits;
  std::optional<std::int64_t> worker_memory_limit_bytes;
  // The nice value of the workers; absent is that of the search.
  std::optional<int> worker_nice;
  // The market, the era and the pool that signals are submitted to, and the era's first and last
  // day.
  PoolIdentity pool;
  std::string first_date;
  std::string last_date;
  // What the market earned on the days of the search; what a signal does is told beside it.
  Eigen::ArrayXd market_returns;
  // What is not evaluated again; null where all is. It must outlive the context.
  KnownStructures* known = nullptr;
  // What signals held that were evaluated, by which repeats are told; null where every signal is
  // backtested. It must outlive the context.
  KnownBehaviours* behaviours = nullptr;
};

class EmbeddedContext : public genetic::SearchContext {
 public:
  // All but the settings must outlive the context. In a child, which has entered its role, the
  // parent's operations are not there, and timings are the child's own.
  EmbeddedContext(const Evaluator& evaluator, const ContextSettings& settings,
                  std::shared_ptr<SearchStop> stop, ResultRecorder& recorder,
                  SignalSubmission& submission, ProcessSide& process);

  [[nodiscard]] std::shared_ptr<genetic::StopEvent> stop_event() override { return stop_; }
  [[nodiscard]] genetic::Callable record_search_run_metrics() override;
  [[nodiscard]] std::optional<genetic::Value> max_depth() override { return settings_.max_depth; }
  // {"functions": {"rotation": [{"name", "family", "data_children", "needs_window", "child_count"},
  // ...]}}: a new mapping at each call.
  [[nodiscard]] std::optional<genetic::Value> vocabulary() override;
  [[nodiscard]] std::optional<genetic::Value> n_jobs() override { return settings_.jobs; }
  [[nodiscard]] std::optional<genetic::Value> worker_memory_limit_bytes() override;
  [[nodiscard]] std::optional<genetic::Value> attribute(std::string_view name) override;
  [[nodiscard]] genetic::Callable own_graph_validator() override;
  [[nodiscard]] genetic::Callable evaluate_for_template() override;
  [[nodiscard]] std::optional<genetic::Value> last_evaluation_record() override {
    return last_evaluation_record_;
  }
  [[nodiscard]] genetic::Callable safe_record() override;
  [[nodiscard]] genetic::Callable required_safe_record() override;
  void activate_existing_attempt(const genetic::Value& source_attempt_id,
                                 const genetic::Value& attempt_evidence) override;
  [[nodiscard]] genetic::Callable enqueue_deferred_submission_payload() override;
  // Whether a backtest was completed, and its timing: of the graph evaluated last in a child, or of
  // the attempt that the parent has made the current one.
  [[nodiscard]] genetic::Value current_attempt_evidence() override { return attempt_evidence_; }
  [[nodiscard]] genetic::Callable derive_rejection_reason_detail() override;
  // In a child there is none.
  [[nodiscard]] std::shared_ptr<genetic::AttemptTracker> tracker() override;
  // Whether evaluations under way are cancelled: at a signal and at the limit in seconds. The pool
  // asks several times a second while it waits, so this is also when the progress is shown.
  [[nodiscard]] bool submission_cancelled() override;
  // The operations that a child guards are the recorder, the queue of submissions and the recorder
  // of a run's metrics.
  [[nodiscard]] genetic::ChildContext& child() override { return child_; }

 private:
  class Child : public genetic::ChildContext {
   public:
    explicit Child(EmbeddedContext& context) : context_(context) {}

    [[nodiscard]] std::shared_ptr<genetic::TemplateEvaluationState> template_evaluation_state()
        override {
      return state_;
    }
    [[nodiscard]] std::shared_ptr<genetic::ReplaceableObject> operations() override {
      return context_.operations_;
    }
    [[nodiscard]] genetic::Callable set_last_evaluation_record() override { return {}; }
    void assign_last_evaluation_record(const genetic::Value& record) override {
      context_.last_evaluation_record_ = record;
    }

   private:
    EmbeddedContext& context_;
    std::shared_ptr<genetic::OwnEvaluationState> state_ =
        std::make_shared<genetic::OwnEvaluationState>();
  };

  // Either the result of a backtest and its timing, or the candidate whose weights are repeated.
  struct Backtested {
    BacktestResult result;
    genetic::Mapping timing;
    std::uint64_t fingerprint = 0;
    std::optional<std::int64_t> repeated = {};
  };

  [[nodiscard]] genetic::Mapping parent_operations();
  [[nodiscard]] genetic::Mapping with_worker_count(const genetic::Mapping& metrics) const;
  [[nodiscard]] genetic::Callable operation(genetic::Key name);
  [[nodiscard]] genetic::Value evaluate(const genetic::Value& graph);
  [[nodiscard]] genetic::Value passed_or_failed(const genetic::Value& graph,
                                                const Backtested& backtested);
  [[nodiscard]] genetic::Value repeated(std::int64_t candidate);
  [[nodiscard]] genetic::Value outcome(const genetic::Mapping& record);
  void announce_backtest();
  [[nodiscard]] Backtested backtest(const genetic::Value& graph);
  [[nodiscard]] std::optional<genetic::Value> tracker_attribute();

  const Evaluator& evaluator_;
  ContextSettings settings_;
  std::shared_ptr<SearchStop> stop_;
  ResultRecorder& recorder_;
  SignalSubmission& submission_;
  ProcessSide& process_;
  SystemTimingClock clock_;
  // What the search reads by name.
  genetic::Mapping attributes_;
  genetic::Value attempt_evidence_;
  genetic::Value active_attempt_;
  genetic::Value last_evaluation_record_;
  std::shared_ptr<genetic::OperationTable> operations_;
  Child child_{*this};
};

}  // namespace varnholt::embedded
