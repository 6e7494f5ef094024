// A hand-made host: every abstract class of host/, answering as a test tells it to and writing
// every call into one ordered log.
//
// An operation `x` of a class is answered by its public function `on_x`, which has a plain default
// and which a test replaces:
//
//   ScriptedHost host;
//   host.engine.on_graph_depth_for_attempt_marker = always(3);
//   host.context.on_max_depth = in_turn({5, 4});
//   host.eliteness.on_score_candidate = [](const Value& candidate, const Mapping&) { ... };
//   EXPECT_THAT(host.log.names(), ElementsAre("context.max_depth", ...));
//
// The bundle's own accessors are not written into the log: they only hand out what is then asked.
#pragma once

#include <exception>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/support/scripted_answers.hpp"
#include "tests/support/scripted_attempts.hpp"
#include "tests/support/scripted_context.hpp"
#include "tests/support/scripted_engine.hpp"
#include "tests/support/scripted_genetic_ops.hpp"
#include "tests/support/scripted_process_evaluation.hpp"
#include "tests/support/scripted_random.hpp"
#include "tests/support/scripted_reaction_planning.hpp"
#include "tests/support/scripted_timings.hpp"

namespace varnholt::genetic::test {

class ScriptedEliteness : public Eliteness {
 public:
  explicit ScriptedEliteness(CallLog& log) : log_(log) {}

  std::function<Value(const Value&, const Mapping&)> on_score_candidate = always(0.0);

  [[nodiscard]] Value score_candidate(const Value& candidate, const Mapping& keywords) override {
    log_.add("eliteness.score_candidate", {candidate}, keywords);
    return on_score_candidate(candidate, keywords);
  }

 private:
  CallLog& log_;
};

class ScriptedRandomWeighted : public RandomWeighted {
 public:
  explicit ScriptedRandomWeighted(CallLog& log) : log_(log) {}

  using Next = std::function<std::optional<Value>(RandomGenerator*)>;
  // The next random graph of whatever walk; nothing ends that walk. By default there is none.
  Next on_next = always(std::nullopt);
  // Whether a walk is given at all.
  std::function<bool()> on_random_weighted_graphs = always(true);

  [[nodiscard]] std::unique_ptr<ValueIterator> random_weighted_graphs(
      SearchContext& /*context*/, const std::shared_ptr<RandomGenerator>& rng,
      const Mapping& log_context, std::string_view template_name) override {
    log_.add("random_weighted.random_weighted_graphs", {},
             {{"rng", rng == nullptr ? Value() : Value("rng")},
              {"log_context", log_context},
              {"template_name", template_name}});
    if (!on_random_weighted_graphs()) return nullptr;
    return std::make_unique<ScriptedIterator>(log_, "random_graphs",
                                              [this, rng] { return on_next(rng.get()); });
  }

 private:
  CallLog& log_;
};

class ScriptedSearchSettings : public SearchSettings {
 public:
  explicit ScriptedSearchSettings(CallLog& log) : log_(log) {}

  std::function<Value()> on_default_batch_size = always(4);
  std::function<Value()> on_default_restart_threshold = always(3);
  std::function<Value()> on_default_elite_fraction = always(0.25);
  std::function<Value()> on_default_diversity_weight = always(0.5);
  std::function<Value()> on_default_parsimony_weight = always(0.125);
  std::function<Value()> on_default_operator_rates = always(Mapping{
      {"crossover", 0.4}, {"subtree_mutation", 0.3}, {"point_mutation", 0.2}, {"hoist", 0.1}});
  std::function<Value()> on_default_process_priority = always(10);

  [[nodiscard]] Value default_batch_size() override {
    log_.add("search_settings.default_batch_size");
    return on_default_batch_size();
  }
  [[nodiscard]] Value default_restart_threshold() override {
    log_.add("search_settings.default_restart_threshold");
    return on_default_restart_threshold();
  }
  [[nodiscard]] Value default_elite_fraction() override {
    log_.add("search_settings.default_elite_fraction");
    return on_default_elite_fraction();
  }
  [[nodiscard]] Value default_diversity_weight() override {
    log_.add("search_settings.default_diversity_weight");
    return on_default_diversity_weight();
  }
  [[nodiscard]] Value default_parsimony_weight() override {
    log_.add("search_settings.default_parsimony_weight");
    return on_default_parsimony_weight();
  }
  [[nodiscard]] Value default_operator_rates() override {
    log_.add("search_settings.default_operator_rates");
    return on_default_operator_rates();
  }
  [[nodiscard]] Value default_process_priority() override {
    log_.add("search_settings.default_process_priority");
    return on_default_process_priority();
  }

 private:
  CallLog& log_;
};

class ScriptedVerdicts : public EvaluationVerdicts {
 public:
  explicit ScriptedVerdicts(CallLog& log) : log_(log) {}

  // A new mapping at each call, as a real host makes.
  std::function<Value()> on_not_evaluated_verdict = [] {
    return Value(Mapping{{"verdict", "not_evaluated"}});
  };

  [[nodiscard]] Value not_evaluated_verdict() override {
    log_.add("evaluation_verdicts.not_evaluated_verdict()");
    return on_not_evaluated_verdict();
  }

 private:
  CallLog& log_;
};

class ScriptedPause : public Pause {
 public:
  explicit ScriptedPause(CallLog& log) : log_(log) {}

  std::function<void(double)> on_sleep = [](double /*seconds*/) {};

  void sleep(double seconds) override {
    log_.add("pause.sleep", {seconds});
    on_sleep(seconds);
  }

 private:
  CallLog& log_;
};

// All of it behind one log. The members carry the names that a test writes; the bundle that the
// library takes is `bundle()`.
struct ScriptedHost {
  CallLog log;
  ScriptedEngine engine{log};
  ScriptedLogger logger{log};
  ScriptedContext context{log};
  ScriptedProcessEvaluation process_evaluation{log};
  ScriptedEliteness eliteness{log};
  ScriptedGeneticOps genetic_ops{log};
  ScriptedRandomWeighted random_weighted{log};
  ScriptedReactionPlanning reaction_planning{log};
  ScriptedSearchSettings search_settings{log};
  ScriptedVerdicts evaluation_verdicts{log};
  ScriptedBacktestTimings backtest_timings{log};
  ScriptedJsonReader json_reader{log};
  ScriptedRandomGenerators random_generators{log};
  ScriptedSecureRandom secure_random{log};
  ScriptedPause pause{log};
  ScriptedTracker tracker{log};
  ScriptedMarkers attempt_markers{log};
  ScriptedAccounting attempt_accounting{log};
  ScriptedProcessContexts process_contexts{log};
  GenerationObserver* generation_observer = nullptr;
  // The engine's operations that a child guards.
  std::shared_ptr<ScriptedOperations> engine_operations = std::make_shared<ScriptedOperations>(
      log, "engine_operations",
      Mapping{{operation_names::kWriteEvaluationAttemptMarker, "the parent's"}});

  ScriptedHost() = default;
  ScriptedHost(const ScriptedHost&) = delete;
  ScriptedHost& operator=(const ScriptedHost&) = delete;

  [[nodiscard]] Host& bundle() noexcept { return bundle_; }

 private:
  class Bundle : public Host {
   public:
    explicit Bundle(ScriptedHost& host) : host_(host) {}

    [[nodiscard]] GraphDepth& graph_depth() override { return host_.engine; }
    [[nodiscard]] Gates& gates() override { return host_.engine; }
    [[nodiscard]] PoolThresholds& pool_thresholds() override { return host_.engine; }
    [[nodiscard]] PoolMetrics& pool_metrics() override { return host_.engine; }
    [[nodiscard]] SubmissionPayloads& submission_payloads() override { return host_.engine; }
    [[nodiscard]] RandomGraphLimits& random_graph_limits() override { return host_.engine; }
    [[nodiscard]] RuntimeReadiness& runtime_readiness() override { return host_.engine; }
    [[nodiscard]] Logger& logger() override { return host_.logger; }
    [[nodiscard]] ProcessEvaluation& process_evaluation() override {
      return host_.process_evaluation;
    }
    [[nodiscard]] Eliteness& eliteness() override { return host_.eliteness; }
    [[nodiscard]] GeneticOps& genetic_ops() override { return host_.genetic_ops; }
    [[nodiscard]] RandomWeighted& random_weighted() override { return host_.random_weighted; }
    [[nodiscard]] ReactionPlanning& reaction_planning() override { return host_.reaction_planning; }
    [[nodiscard]] SearchSettings& search_settings() override { return host_.search_settings; }
    [[nodiscard]] EvaluationVerdicts& evaluation_verdicts() override {
      return host_.evaluation_verdicts;
    }
    [[nodiscard]] BacktestTimings& backtest_timings() override { return host_.backtest_timings; }
    [[nodiscard]] JsonReader& json_reader() override { return host_.json_reader; }
    [[nodiscard]] RandomGenerators& random_generators() override { return host_.random_generators; }
    [[nodiscard]] SecureRandom& secure_random() override { return host_.secure_random; }
    [[nodiscard]] Pause& pause() override { return host_.pause; }
    [[nodiscard]] AttemptMarkers& attempt_markers() override { return host_.attempt_markers; }
    [[nodiscard]] AttemptAccounting& attempt_accounting() override {
      return host_.attempt_accounting;
    }
    [[nodiscard]] ProcessContexts& process_contexts() override { return host_.process_contexts; }
    [[nodiscard]] GenerationObserver* generation_observer() override {
      return host_.generation_observer;
    }
    [[nodiscard]] std::shared_ptr<ReplaceableObject> engine_operations() override {
      return host_.engine_operations;
    }

   private:
    ScriptedHost& host_;
  };

  Bundle bundle_{*this};
};

}  // namespace varnholt::genetic::test
