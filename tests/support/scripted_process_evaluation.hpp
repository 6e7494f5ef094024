// The hand-made process pool, which starts no process. See scripted_host.hpp for how it is
// scripted.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/host/process_evaluation.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {

class ScriptedWorkerResolution : public WorkerResolution {
 public:
  explicit ScriptedWorkerResolution(Value resolved) : resolved_(std::move(resolved)) {}
  [[nodiscard]] Value resolved() const override { return resolved_; }

 private:
  Value resolved_;
};

// A failure of process evaluation, with the attributes that it has.
class ScriptedProcessError : public RuntimeError {
 public:
  explicit ScriptedProcessError(const std::string& text, Mapping attributes = Mapping())
      : RuntimeError(text), attributes_(std::make_shared<Entries>(std::move(attributes))) {}

  [[nodiscard]] std::shared_ptr<const ErrorAttributes> attributes() const override {
    return attributes_;
  }

 protected:
  [[nodiscard]] std::string_view kind_name() const noexcept override {
    return "ProcessEvaluationError";
  }

 private:
  class Entries : public ErrorAttributes {
   public:
    explicit Entries(Mapping entries) : entries_(std::move(entries)) {}
    [[nodiscard]] std::optional<Value> attribute(std::string_view name) const override {
      return entries_.find(name);
    }

   private:
    Mapping entries_;
  };

  std::shared_ptr<const Entries> attributes_;
};

// A work item and a result as tests write them; the pool makes the objects of them.
struct ScriptedCandidate {
  std::int64_t candidate_index = 0;
  Value graph;
  Value item = {};
};
struct ScriptedResult {
  Value candidate_index;
  Value payload;
  Value worker_pid;
  Value elapsed_simulation_seconds;
  Value attempt;

  [[nodiscard]] Value object() const {
    return make_object<ProcessResult>(candidate_index, payload, worker_pid,
                                      elapsed_simulation_seconds, attempt);
  }
};

// Runs every candidate in this very process, in order, unless a test scripts something else.
class ScriptedProcessEvaluation : public ProcessEvaluation {
 public:
  using Simulate = std::function<Value(const ScriptedCandidate&)>;

  explicit ScriptedProcessEvaluation(CallLog& log) : log_(log) {}

  std::function<Value()> on_default_search_template_timeout_seconds = always(600.0);
  std::function<Value()> on_default_worker_memory_limit_bytes = always(1 << 30);
  std::function<Value()> on_terminal_worker_failed = always("worker_failed");
  std::function<Value()> on_terminal_worker_timeout = always("worker_timeout");
  std::function<Value()> on_terminal_process_priority_failed = always("process_priority_failed");
  std::function<Value()> on_terminal_memory_budget_exceeded = always("memory_budget_exceeded");
  // The number of workers for what was requested and for how many candidates.
  std::function<Value(const Value&, const Value&)> on_resolve_process_worker_count_details =
      always(1);
  std::function<void(const List&)> on_prefetch_candidate_features = [](const List& /*graphs*/) {};
  std::function<std::vector<ScriptedResult>(const std::vector<ScriptedCandidate>&, const Simulate&,
                                            const ProcessEvaluationConfig&)>
      on_evaluate_candidate_batch = simulate_in_this_process;

  [[nodiscard]] static std::vector<ScriptedResult> simulate_in_this_process(
      const std::vector<ScriptedCandidate>& candidates, const Simulate& simulate,
      const ProcessEvaluationConfig& /*config*/) {
    std::vector<ScriptedResult> results;
    for (const ScriptedCandidate& candidate : candidates) {
      results.push_back({candidate.candidate_index, simulate(candidate), 4321, 0.5, 1});
    }
    return results;
  }

  [[nodiscard]] Value default_search_template_timeout_seconds() override {
    log_.add("process_evaluation.default_search_template_timeout_seconds");
    return on_default_search_template_timeout_seconds();
  }
  [[nodiscard]] Value default_worker_memory_limit_bytes() override {
    log_.add("process_evaluation.default_worker_memory_limit_bytes");
    return on_default_worker_memory_limit_bytes();
  }
  [[nodiscard]] Value terminal_worker_failed() override {
    log_.add("process_evaluation.terminal_worker_failed");
    return on_terminal_worker_failed();
  }
  [[nodiscard]] Value terminal_worker_timeout() override {
    log_.add("process_evaluation.terminal_worker_timeout");
    return on_terminal_worker_timeout();
  }
  [[nodiscard]] Value terminal_process_priority_failed() override {
    log_.add("process_evaluation.terminal_process_priority_failed");
    return on_terminal_process_priority_failed();
  }
  [[nodiscard]] Value terminal_memory_budget_exceeded() override {
    log_.add("process_evaluation.terminal_memory_budget_exceeded");
    return on_terminal_memory_budget_exceeded();
  }
  [[nodiscard]] std::optional<Value> as_error(const std::exception& error) override {
    log_.add("process_evaluation.as_error", {error.what()});
    if (dynamic_cast<const ScriptedProcessError*>(&error) == nullptr) return std::nullopt;
    return error_object(error);
  }
  [[nodiscard]] std::unique_ptr<WorkerResolution> resolve_process_worker_count_details(
      const std::function<Value()>& requested_jobs, const Value& candidate_count) override {
    const Value requested = requested_jobs();
    log_.add("process_evaluation.resolve_process_worker_count_details",
             {requested, candidate_count});
    return std::make_unique<ScriptedWorkerResolution>(
        on_resolve_process_worker_count_details(requested, candidate_count));
  }
  void log_worker_count_reduction(Logger& /*logger*/, const WorkerResolution& resolution,
                                  std::string_view scope, SearchContext& /*cache_owner*/,
                                  std::string_view detail) override {
    log_.add("process_evaluation.log_worker_count_reduction",
             {resolution.resolved(), scope, detail});
  }
  void prefetch_candidate_features(SearchContext& /*context*/, const List& graphs) override {
    log_.add("process_evaluation.prefetch_candidate_features", {graphs});
    on_prefetch_candidate_features(graphs);
  }
  [[nodiscard]] Value candidate_evaluation(const Value& candidate_index,
                                           const Value& graph) override {
    return make_object<CandidateEvaluation>(candidate_index, graph);
  }
  [[nodiscard]] std::unique_ptr<ConfiguredPool> configure(
      const std::function<ProcessEvaluationConfig()>& config) override {
    return std::make_unique<Configured>(*this, config());
  }

 private:
  class Configured : public ConfiguredPool {
   public:
    Configured(ScriptedProcessEvaluation& pool, ProcessEvaluationConfig config)
        : pool_(pool), config_(std::move(config)) {}

    [[nodiscard]] Value evaluate_candidate_batch(const List& candidates,
                                                 const Callable& simulate) override {
      pool_.log_.add("process_evaluation.evaluate_candidate_batch",
                     {static_cast<std::int64_t>(candidates.size())},
                     {{"n_jobs", config_.n_jobs},
                      {"max_retries", config_.max_retries},
                      {"timeout_seconds", config_.timeout_seconds},
                      {"worker_memory_limit_bytes", config_.worker_memory_limit_bytes}});
      std::vector<ScriptedCandidate> scripted;
      for (const Value& item : candidates.native_items()) {
        const auto& work = dynamic_cast<const CandidateEvaluation&>(item.object());
        scripted.push_back({work.candidate_index().integer(), work.graph(), item});
      }
      const auto simulate_one = [&simulate](const ScriptedCandidate& candidate) {
        return simulate({candidate.item});
      };
      List results;
      for (const ScriptedResult& result :
           pool_.on_evaluate_candidate_batch(scripted, simulate_one, config_)) {
        results.append(result.object());
      }
      return results;
    }

   private:
    ScriptedProcessEvaluation& pool_;
    ProcessEvaluationConfig config_;
  };

  CallLog& log_;
};

}  // namespace varnholt::genetic::test
