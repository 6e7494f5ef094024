// A host that does nothing, so that what is measured is the library's own work.
//
// Graphs come from the benchmark, the pool simulates in this very process, the evaluator returns
// one outcome that was made beforehand, the recorder gives a fixed id. No operation keeps, copies
// or looks at what it is given.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic::benchmarks {

// A function of the host that returns one value for ever.
class Constant : public CallableBody {
 public:
  explicit Constant(Value value) : value_(std::move(value)) {}
  Value call(std::span<const Value> /*positional*/, const Mapping& /*keywords*/) override {
    return value_;
  }
  [[nodiscard]] std::optional<std::vector<Parameter>> signature() const override {
    return std::nullopt;
  }

 private:
  Value value_;
};

inline Callable constant(Value value) {
  return Callable(std::make_shared<Constant>(std::move(value)));
}

class NullLogger : public Logger {
 public:
  void error(std::string_view /*format*/, std::initializer_list<Value> /*values*/) override {}
  void warning(std::string_view /*format*/, std::initializer_list<Value> /*values*/) override {}
  void warning_with_error(std::string_view /*text*/, const std::exception_ptr& /*error*/) override {
  }
};

class NullEngine : public Engine {
 public:
  [[nodiscard]] Logger& logger() override { return logger_; }
  [[nodiscard]] Value graph_depth_for_attempt_marker(const Value& /*graph*/) override { return 1; }
  [[nodiscard]] Value function_entries_for_kind(const Value& /*vocabulary*/,
                                                std::string_view /*kind*/) override {
    return List();
  }
  [[nodiscard]] Value random_weighted_window_limit(SearchContext& /*context*/,
                                                   const Value& /*max_depth*/) override {
    return {};
  }
  [[nodiscard]] Value random_weighted_node_limit(SearchContext& /*context*/) override { return {}; }
  [[nodiscard]] Value random_weighted_runtime_registry(SearchContext& /*context*/) override {
    return {};
  }
  [[nodiscard]] Value signal_generation_safe_rotations(const Value& functions,
                                                       const Value& /*window_limit*/,
                                                       const Value& /*node_limit*/,
                                                       const Value& /*registry*/,
                                                       const Mapping& /*keywords*/) override {
    return functions;
  }
  [[nodiscard]] bool is_sdk_runtime_not_ready_error(const Value& /*error*/) override {
    return false;
  }
  [[nodiscard]] Value sdk_runtime_not_ready_rejection_detail() override { return {}; }
  // No thresholds, an empty pool, and both pool metrics pass.
  [[nodiscard]] Value stats_gate_threshold_set(const Mapping& /*thresholds*/,
                                               const Value& /*era_config*/) override {
    return {};
  }
  [[nodiscard]] Value stats_gate_metrics(const Value& /*stats*/) override { return {}; }
  [[nodiscard]] Value evaluate_threshold_gates(const Value& /*metrics*/,
                                               const Value& /*threshold_set*/) override {
    return {};
  }
  [[nodiscard]] Value threshold_gate_failure_reason(const Value& /*gate_failure*/) override {
    return {};
  }
  [[nodiscard]] Value threshold_gate_failure_metric(const Value& /*gate_failure*/) override {
    return {};
  }
  [[nodiscard]] Value recorded_failure_detail(std::span<const Value> /*positional*/,
                                              const Mapping& /*keywords*/) override {
    return {};
  }
  [[nodiscard]] Callable find_recorded_failure_detail() override { return constant_; }
  [[nodiscard]] Callable find_failed_gate_verdict() override { return constant_; }
  [[nodiscard]] Callable find_gate_verdict() override { return constant_; }
  [[nodiscard]] Callable find_submission_mi_threshold_and_pool() override { return threshold_; }
  [[nodiscard]] Callable find_submission_correlation_threshold_and_pool() override {
    return threshold_;
  }
  [[nodiscard]] Value submission_correlation_threshold_and_pool(
      const Value& /*era_config*/, const Value& /*signal_pool_name*/) override {
    return passed_metric_;
  }
  [[nodiscard]] Value refresh_submission_manifest_membership(
      const Value& /*era_config*/, const Value& /*signal_pool_name*/,
      const Value& /*sync_manager*/) override {
    return true;
  }
  [[nodiscard]] Value selected_pool_has_synced_found_signal_ids(
      const Value& /*era_config*/, const Value& /*signal_pool_name*/) override {
    return false;
  }
  void normalize_required_pool_pnl_matrix(const Value& /*gate_stats*/, const Value& /*era_config*/,
                                          const Value& /*signal_pool_name*/) override {}
  [[nodiscard]] Value evaluation_metaparameters_for_pool(const Value& /*signal_pool_name*/,
                                                         const Value& metaparameters) override {
    return metaparameters;
  }
  [[nodiscard]] Value call_backtester_with_transform_context(
      std::span<const Value> /*positional*/, const Mapping& /*extra_kwargs*/) override {
    return {};
  }
  [[nodiscard]] Value submission_pnl_mi_from_backtest_or_compute(
      std::span<const Value> /*positional*/) override {
    return passed_metric_;
  }
  [[nodiscard]] Value submission_correlation_from_backtest_or_compute(
      std::span<const Value> /*positional*/) override {
    return passed_metric_;
  }
  [[nodiscard]] std::optional<Value> as_pool_data_not_ready(
      const std::exception_ptr& /*error*/) override {
    return std::nullopt;
  }
  [[nodiscard]] Callable find_submitted_stats_payload_from_backtest() override { return {}; }
  void annotate_submission_client_manifest(Mapping& /*payload*/,
                                           const Value& /*sync_manager*/) override {}
  [[nodiscard]] Value infrastructure_failure_threshold() override { return 1000; }
  [[noreturn]] void raise_background_infrastructure_error(const std::string& detail) override {
    throw RuntimeError(detail);
  }

 private:
  NullLogger logger_;
  Value passed_metric_ = Tuple{0.5, true};
  Callable constant_ = constant(Value());
  Callable threshold_ = constant(Tuple{0.25, "pool"});
};

// Every timing is one and the same.
class NullTimings : public BacktestTimings {
 public:
  [[nodiscard]] Callable validate_backtest_timing_payload() override { return timing_; }
  [[nodiscard]] Callable validate_graph_backtest_timing_payload() override { return timing_; }
  [[nodiscard]] Callable validate_process_backtest_timing_payload() override { return timing_; }
  [[nodiscard]] Callable consume_recorded_backtest_timing_payload() override { return timing_; }
  [[nodiscard]] Callable graph_timing_key() override { return key_; }

 private:
  Callable timing_ = constant(Mapping{{"seconds", 0.25}, {"graph_key", "key"}});
  Callable key_ = constant("key");
};

class NoJson : public JsonReader {
 public:
  [[nodiscard]] Value read(const Value& /*text*/) override { throw ValueError("no JSON here"); }
};

// One random state for ever: nothing is drawn from it.
class NullGenerator : public RandomGenerator {
 public:
  [[nodiscard]] double random() override { return 0.0; }
  [[nodiscard]] std::uint64_t getrandbits(int /*count*/) override { return 0; }
  [[nodiscard]] Value getstate() const override { return 1; }
};

class NullRandomGenerators : public RandomGenerators {
 public:
  [[nodiscard]] std::shared_ptr<RandomGenerator> seeded(const Value& /*seed*/) override {
    return generator_;
  }
  [[nodiscard]] std::shared_ptr<RandomGenerator> from_state(const Value& /*state*/) override {
    return generator_;
  }

 private:
  std::shared_ptr<RandomGenerator> generator_ = std::make_shared<NullGenerator>();
};

class OneWorker : public WorkerResolution {
 public:
  [[nodiscard]] Value resolved() const override { return 1; }
};

class InProcessPool : public ProcessEvaluation {
 public:
  [[nodiscard]] Value default_search_template_timeout_seconds() override { return 600.0; }
  [[nodiscard]] Value default_worker_memory_limit_bytes() override { return 1 << 30; }
  [[nodiscard]] Value terminal_worker_failed() override { return "worker_failed"; }
  [[nodiscard]] Value terminal_worker_timeout() override { return "worker_timeout"; }
  [[nodiscard]] Value terminal_process_priority_failed() override { return "priority_failed"; }
  [[nodiscard]] Value terminal_memory_budget_exceeded() override { return "memory_exceeded"; }
  [[nodiscard]] std::optional<Value> as_error(const std::exception& /*error*/) override {
    return std::nullopt;
  }
  [[nodiscard]] std::unique_ptr<WorkerResolution> resolve_process_worker_count_details(
      const Value& /*requested*/, const Value& /*candidate_count*/) override {
    return std::make_unique<OneWorker>();
  }
  void log_worker_count_reduction(Logger& /*logger*/, const WorkerResolution& /*resolution*/,
                                  std::string_view /*scope*/, SearchContext& /*cache_owner*/,
                                  std::string_view /*detail*/) override {}
  void prefetch_candidate_features(SearchContext& /*context*/, const List& /*graphs*/) override {}
  [[nodiscard]] Value candidate_evaluation(const Value& candidate_index,
                                           const Value& graph) override {
    return make_object<CandidateEvaluation>(candidate_index, graph);
  }
  [[nodiscard]] std::unique_ptr<ConfiguredPool> configure(
      const ProcessEvaluationConfig& /*config*/) override {
    class Configured : public ConfiguredPool {
     public:
      [[nodiscard]] Value evaluate_candidate_batch(const List& candidates,
                                                   const Callable& simulate) override {
        List results(candidates.size());
        for (const Value& candidate : candidates.native_items()) {
          results.append(make_object<ProcessResult>(
              attribute(candidate, keys::kCandidateIndex.view()).value_or(Value()),
              simulate({candidate}), 4321, 0.25, 1));
        }
        return results;
      }
    };
    return std::make_unique<Configured>();
  }
};

class NullEliteness : public Eliteness {
 public:
  [[nodiscard]] Value score_candidate(const Value& /*candidate*/,
                                      const Mapping& /*keywords*/) override {
    return 1.0;
  }
};

// Gives back what it is given.
class NullGeneticOps : public GeneticOps {
 public:
  [[nodiscard]] Value crossover(const Value& elite, const Value& /*mate*/,
                                const std::shared_ptr<RandomGenerator>& /*rng*/,
                                const Callable& /*validator*/) override {
    return elite;
  }
  [[nodiscard]] Value point_mutation(const Value& elite, const Value& /*replacements*/,
                                     const std::shared_ptr<RandomGenerator>& /*rng*/,
                                     const Callable& /*validator*/) override {
    return elite;
  }
  [[nodiscard]] Value subtree_mutation(const Value& elite, const Value& /*replacements*/,
                                       const std::shared_ptr<RandomGenerator>& /*rng*/,
                                       const Callable& /*validator*/) override {
    return elite;
  }
  [[nodiscard]] Value hoist_mutation(const Value& elite,
                                     const std::shared_ptr<RandomGenerator>& /*rng*/,
                                     const Callable& /*validator*/) override {
    return elite;
  }
};

class NoRandomGraphs : public RandomWeighted {
 public:
  [[nodiscard]] std::unique_ptr<ValueIterator> random_weighted_graphs(
      SearchContext& /*context*/, const std::shared_ptr<RandomGenerator>& /*rng*/,
      const Mapping& /*log_context*/, std::string_view /*template_name*/) override {
    return nullptr;
  }
};

class FixedSettings : public SearchSettings {
 public:
  [[nodiscard]] Value default_batch_size() override { return 64; }
  // Every generation but the second begins anew, since the scores never change: what is measured is
  // the work after a batch is composed, and a fresh batch costs next to nothing to compose.
  [[nodiscard]] Value default_restart_threshold() override { return 1; }
  [[nodiscard]] Value default_elite_fraction() override { return 0.25; }
  [[nodiscard]] Value default_diversity_weight() override { return 0.5; }
  [[nodiscard]] Value default_parsimony_weight() override { return 0.125; }
  [[nodiscard]] Value default_operator_rates() override { return Mapping{{"crossover", 1.0}}; }
  [[nodiscard]] Value default_process_priority() override { return {}; }
};

class NullVerdicts : public EvaluationVerdicts {
 public:
  [[nodiscard]] Value not_evaluated_verdict() override { return {}; }
};

class FixedSecureRandom : public SecureRandom {
 public:
  [[nodiscard]] std::uint64_t randbits(int /*count*/) override { return 1; }
};

class NoPause : public Pause {
 public:
  void sleep(double /*seconds*/) override {}
};

class NullHost : public Host {
 public:
  [[nodiscard]] Engine& engine() override { return engine_; }
  [[nodiscard]] ProcessEvaluation& process_evaluation() override { return pool_; }
  [[nodiscard]] Eliteness& eliteness() override { return eliteness_; }
  [[nodiscard]] GeneticOps& genetic_ops() override { return genetic_ops_; }
  [[nodiscard]] RandomWeighted& random_weighted() override { return random_weighted_; }
  [[nodiscard]] SearchSettings& search_settings() override { return search_settings_; }
  [[nodiscard]] EvaluationVerdicts& evaluation_verdicts() override { return verdicts_; }
  [[nodiscard]] BacktestTimings& backtest_timings() override { return timings_; }
  [[nodiscard]] JsonReader& json_reader() override { return json_; }
  [[nodiscard]] RandomGenerators& random_generators() override { return random_generators_; }
  [[nodiscard]] SecureRandom& secure_random() override { return secure_random_; }
  [[nodiscard]] Pause& pause() override { return pause_; }

 private:
  NullEngine engine_;
  InProcessPool pool_;
  NullEliteness eliteness_;
  NullGeneticOps genetic_ops_;
  NoRandomGraphs random_weighted_;
  FixedSettings search_settings_;
  NullVerdicts verdicts_;
  NullTimings timings_;
  NoJson json_;
  NullRandomGenerators random_generators_;
  FixedSecureRandom secure_random_;
  NoPause pause_;
};

// A context whose evaluator returns `outcome`. It has no stop event unless it is given one.
class NullContext : public SearchContext {
 public:
  NullContext(const Value& outcome, std::shared_ptr<StopEvent> stop_event)
      : stop_event_(std::move(stop_event)), evaluator_(constant(outcome)) {}

  [[nodiscard]] std::shared_ptr<StopEvent> stop_event() override { return stop_event_; }
  [[nodiscard]] Callable fatal_callback() override { return {}; }
  [[nodiscard]] Callable record_search_run_metrics() override { return {}; }
  [[nodiscard]] std::optional<Value> max_depth() override { return std::nullopt; }
  [[nodiscard]] std::optional<Value> vocabulary() override { return std::nullopt; }
  [[nodiscard]] std::optional<Value> n_jobs() override { return std::nullopt; }
  [[nodiscard]] std::optional<Value> worker_memory_limit_bytes() override { return std::nullopt; }
  [[nodiscard]] std::optional<Value> attribute(std::string_view name) override {
    if (name == "_era_config") return era_config_;
    if (name == "_signal_pool_name") return pool_name_;
    if (name == "_backtester") return 1;
    if (name == "_market_id") return 1;
    if (name == "_era_number") return 2;
    return std::nullopt;
  }
  [[nodiscard]] Callable own_graph_validator() override { return {}; }
  [[nodiscard]] Callable backtester_validate_graph() override { return {}; }
  [[nodiscard]] Callable evaluate_for_template() override { return evaluator_; }
  [[nodiscard]] std::optional<Value> last_evaluation_record() override { return std::nullopt; }
  [[nodiscard]] Callable safe_record() override { return recorder_; }
  [[nodiscard]] Callable required_safe_record() override { return recorder_; }
  void activate_existing_attempt(const Value& /*source_attempt_id*/,
                                 const Value& /*attempt_evidence*/) override {}
  [[nodiscard]] Callable enqueue_deferred_submission_payload() override { return queue_; }
  [[nodiscard]] Callable search_context_thresholds() override { return {}; }
  [[nodiscard]] Value current_attempt_evidence() override { return {}; }
  [[nodiscard]] Callable derive_rejection_reason_detail() override { return {}; }

 private:
  std::shared_ptr<StopEvent> stop_event_;
  Callable evaluator_;
  Callable recorder_ = constant("evaluation-id");
  Callable queue_ = constant(true);
  Value pool_name_ = "pool";
  Value era_config_ = Mapping{{"id", 2}};
};

// A statistics object with the attributes that the library reads.
class FixedStatistics : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Statistics"; }
  [[nodiscard]] std::optional<Value> attribute(std::string_view name) const override {
    if (name == "sharpe") return 1.25;
    if (name == "quality_score") return 0.75;
    if (name == "correlation") return 0.5;
    return std::nullopt;
  }
};

}  // namespace varnholt::genetic::benchmarks
