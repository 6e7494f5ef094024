// A host that does nothing, so that what is measured is the library's own work.
//
// Graphs come from the benchmark, the pool simulates in this very process, the evaluator returns
// one outcome that was made beforehand, the recorder gives a fixed id. No operation keeps, copies
// or looks at what it is given.
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

#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic::benchmarks {

// A function of the host that returns one value for ever.
inline Callable constant(Value value) {
  return make_callable([value = std::move(value)](std::span<const Value> /*positional*/,
                                                  const Mapping& /*keywords*/) { return value; });
}

class NullDepth : public GraphDepth {
 public:
  [[nodiscard]] Value graph_depth_for_attempt_marker(const Value& /*graph*/) override { return 1; }
};

// Details and verdicts are absent.
class NullGates : public Gates {
 public:
  [[nodiscard]] DetailOperation find_recorded_failure_detail() override {
    return [](const FailureEvidence& /*evidence*/) { return Value(); };
  }
  [[nodiscard]] VerdictOperation find_failed_gate_verdict() override { return verdict; }
  [[nodiscard]] VerdictOperation find_gate_verdict() override { return verdict; }

 private:
  static Value verdict(const GateOutcome& /*outcome*/) { return {}; }
};

// An empty pool, in which both metrics pass.
class NullPool : public PoolThresholds, public PoolMetrics {
 public:
  [[nodiscard]] MiThresholdOperation find_submission_mi_threshold_and_pool() override {
    return [this](const Value&, const Value&, const Value&) { return threshold_; };
  }
  [[nodiscard]] CorrelationThresholdOperation find_submission_correlation_threshold_and_pool()
      override {
    return [this](const Value&, const Value&) { return threshold_; };
  }
  [[nodiscard]] Value refresh_submission_manifest_membership(
      const Value& /*era_config*/, const Value& /*signal_pool_name*/,
      const Value& /*sync_manager*/) override {
    return true;
  }
  [[nodiscard]] Value submission_pnl_mi_from_backtest_or_compute(
      const PoolMetricRequest& /*request*/, const Value& /*thresholds*/) override {
    return passed_metric_;
  }
  [[nodiscard]] Value submission_correlation_from_backtest_or_compute(
      const PoolMetricRequest& /*request*/) override {
    return passed_metric_;
  }

 private:
  Value threshold_ = Tuple{0.25, "pool"};
  Value passed_metric_ = Tuple{0.5, true};
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
  [[nodiscard]] std::unique_ptr<WorkerResolution> resolve_process_worker_count_details(
      const std::function<Value()>& /*requested*/, const Value& /*candidate_count*/) override {
    return std::make_unique<OneWorker>();
  }
  [[nodiscard]] Value candidate_evaluation(const Value& candidate_index,
                                           const Value& graph) override {
    return make_object<CandidateEvaluation>(candidate_index, graph);
  }
  [[nodiscard]] std::unique_ptr<ConfiguredPool> configure(
      const std::function<ProcessEvaluationConfig()>& config) override {
    static_cast<void>(config());
    class Configured : public ConfiguredPool {
     public:
      [[nodiscard]] Value evaluate_candidate_batch(const List& candidates,
                                                   const Callable& simulate) override {
        List results(candidates.size());
        for (const Value& candidate : candidates.native_items()) {
          // There is no child before which an attempt would be announced.
          dynamic_cast<CandidateEvaluation&>(candidate.object())
              .metadata()
              .set(keys::kProcessAttempt, 0);
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
  [[nodiscard]] Value default_parsimony_weight() override { return 0.125; }
  [[nodiscard]] Value default_operator_rates() override { return Mapping{{"crossover", 1.0}}; }
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
  [[nodiscard]] GraphDepth& graph_depth() override { return depth_; }
  [[nodiscard]] Gates& gates() override { return gates_; }
  [[nodiscard]] PoolThresholds& pool_thresholds() override { return signal_pool_; }
  [[nodiscard]] PoolMetrics& pool_metrics() override { return signal_pool_; }
  [[nodiscard]] ProcessEvaluation& process_evaluation() override { return pool_; }
  [[nodiscard]] Eliteness& eliteness() override { return eliteness_; }
  [[nodiscard]] GeneticOps& genetic_ops() override { return genetic_ops_; }
  [[nodiscard]] RandomWeighted& random_weighted() override { return random_weighted_; }
  [[nodiscard]] SearchSettings& search_settings() override { return search_settings_; }
  [[nodiscard]] EvaluationVerdicts& evaluation_verdicts() override { return verdicts_; }
  [[nodiscard]] BacktestTimings& backtest_timings() override { return timings_; }
  [[nodiscard]] RandomGenerators& random_generators() override { return random_generators_; }
  [[nodiscard]] SecureRandom& secure_random() override { return secure_random_; }
  [[nodiscard]] Pause& pause() override { return pause_; }

 private:
  NullDepth depth_;
  NullGates gates_;
  NullPool signal_pool_;
  InProcessPool pool_;
  NullEliteness eliteness_;
  NullGeneticOps genetic_ops_;
  NoRandomGraphs random_weighted_;
  FixedSettings search_settings_;
  NullVerdicts verdicts_;
  NullTimings timings_;
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
  [[nodiscard]] std::optional<Value> attribute(std::string_view name) override {
    if (name == "_era_config") return era_config_;
    if (name == "_signal_pool_name") return pool_name_;
    if (name == "_backtester") return 1;
    if (name == "_market_id") return 1;
    if (name == "_era_number") return 2;
    return std::nullopt;
  }
  [[nodiscard]] Callable evaluate_for_template() override { return evaluator_; }
  [[nodiscard]] Callable safe_record() override { return recorder_; }
  [[nodiscard]] Callable enqueue_deferred_submission_payload() override { return queue_; }

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
