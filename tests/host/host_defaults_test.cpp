// What a host gets that overrides no more than it must: every class that may be left out is there
// and says "none" in its own way. Method: the smallest host and context that compile, asked for
// everything; and a whole search of theirs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/driver/genetic.hpp"
#include "search_templates/genetic/host/attribute_object.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/host/function_iterator.hpp"
#include "search_templates/genetic/host/in_process_pool.hpp"
#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/submission/backtest_timing.hpp"
#include "tests/support/error_of.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;

// Draws graphs whose only node is a number, each another one.
class LeastHost : public Host,
                  public Eliteness,
                  public GeneticOps,
                  public RandomWeighted,
                  public GraphDepth,
                  public SecureRandom {
 public:
  ProcessEvaluation& process_evaluation() override { return pool_; }
  Eliteness& eliteness() override { return *this; }
  GeneticOps& genetic_ops() override { return *this; }
  RandomWeighted& random_weighted() override { return *this; }
  GraphDepth& graph_depth() override { return *this; }
  SecureRandom& secure_random() override { return *this; }

  Value score_candidate(const Value& candidate, const Mapping& /*keywords*/) override {
    return candidate.mapping().at("sharpe");
  }
  Value crossover(const Value& elite, const Value& /*mate*/,
                  const std::shared_ptr<RandomGenerator>& /*rng*/,
                  const Callable& /*validator*/) override {
    return elite;
  }
  Value point_mutation(const Value& elite, const Value& /*replacements*/,
                       const std::shared_ptr<RandomGenerator>& /*rng*/,
                       const Callable& /*validator*/) override {
    return elite;
  }
  Value subtree_mutation(const Value& elite, const Value& /*replacements*/,
                         const std::shared_ptr<RandomGenerator>& /*rng*/,
                         const Callable& /*validator*/) override {
    return elite;
  }
  Value hoist_mutation(const Value& elite, const std::shared_ptr<RandomGenerator>& /*rng*/,
                       const Callable& /*validator*/) override {
    return elite;
  }
  std::unique_ptr<ValueIterator> random_weighted_graphs(
      SearchContext& /*context*/, const std::shared_ptr<RandomGenerator>& /*rng*/,
      const Mapping& /*log_context*/, std::string_view /*template_name*/) override {
    return make_iterator([this] { return Mapping{{"node", str(Value(++graphs_))}}; });
  }
  Value graph_depth_for_attempt_marker(const Value& /*graph*/) override { return 1; }
  std::uint64_t randbits(int /*count*/) override { return 5; }

 private:
  InProcessPool pool_;
  std::int64_t graphs_ = 0;
};

struct Stop : StopEvent {
  bool is_set() override { return set; }
  bool wait(double /*seconds*/) override { return set; }
  bool set = false;
};

// Every second candidate passes. Stops the search when it has recorded ten.
class LeastContext : public SearchContext {
 public:
  Callable evaluate_for_template() override {
    return make_callable([this](std::span<const Value> /*positional*/, const Mapping&) -> Value {
      ++evaluated_;
      const Value stats =
          attribute_object("Statistics", {{"sharpe", static_cast<double>(evaluated_)}});
      return Mapping{
          {"record",
           Mapping{{"passed", evaluated_ % 2 == 0}, {"stats", stats}, {"rejection_reason", "odd"}}},
          {"attempt_evidence", Mapping{{"backtest_started", true},
                                       {"backtest_completed", true},
                                       {"backtest_timing", Mapping{{"seconds", 1}}}}}};
    });
  }
  Callable safe_record() override {
    return make_callable([this](std::span<const Value> positional, const Mapping&) -> Value {
      recorded.push_back(truth(positional[1]));
      stop_->set = recorded.size() >= 10;
      return static_cast<std::int64_t>(recorded.size());
    });
  }
  Callable enqueue_deferred_submission_payload() override {
    return make_callable([this](std::span<const Value> positional, const Mapping&) -> Value {
      submitted.push_back(positional[0]);
      return true;
    });
  }
  std::shared_ptr<StopEvent> stop_event() override { return stop_; }
  std::optional<Value> attribute(std::string_view name) override {
    static const Mapping known{{"_market_id", 1},
                               {"_era_number", 1},
                               {"_product_run_id", "run"},
                               {"_attempt_expected_columns", List()},
                               {"_thresholds", Mapping()}};
    return known.find(name);
  }

  std::vector<bool> recorded;
  std::vector<Value> submitted;

 private:
  std::shared_ptr<Stop> stop_ = std::make_shared<Stop>();
  std::int64_t evaluated_ = 0;
};

class HostDefaults : public testing::Test {
 protected:
  LeastHost host_;
  LeastContext context_;
};

TEST_F(HostDefaults, SufficeForASearch) {
  Module module(host_);
  TemplateArguments arguments = module.default_arguments();
  arguments.batch_size = 10;
  GeneticTemplate config = module.with_config(arguments);
  module.run(context_, config);
  EXPECT_THAT(context_.recorded, testing::ElementsAre(false, true, false, true, false, true, false,
                                                      true, false, true));
  ASSERT_EQ(context_.submitted.size(), 5U);
  const Mapping payload = context_.submitted[0].mapping();
  EXPECT_EQ(repr(payload.at("is_stats")),
            "{'sharpe': 10.0, 'annualized_returns': 0.0, 'turnover': 0.0, 'drawdown': 0.0, "
            "'quality_score': 10.0}")
      << "the best first, with the search's own figures";
  EXPECT_EQ(payload.at("graph").mapping().at("node").text(), "10");
}

TEST_F(HostDefaults, JudgeByNoThresholds) {
  Gates& gates = host_.gates();
  EXPECT_FALSE(truth(gates.stats_gate_threshold_set(Mapping(), Value())));
  EXPECT_FALSE(gates.find_recorded_failure_detail());
  EXPECT_FALSE(gates.find_failed_gate_verdict());
  EXPECT_FALSE(gates.find_gate_verdict());
  EXPECT_EQ(error_of([&] { return gates.recorded_failure_detail({}); }),
            "AttributeError: the host has no operation recorded_failure_detail");
  const Value failed = Mapping{{"passes", false}, {"failures", Mapping{{"sharpe_min", 1}}}};
  EXPECT_TRUE(expanded_threshold_failures(context_, gates, failed).empty());
  EXPECT_TRUE(sharpe_reaction_metric_pair(gates, host_.json_reader(), failed).value.is_absent());
}

TEST_F(HostDefaults, KnowNoPool) {
  EXPECT_FALSE(host_.pool_thresholds().find_submission_mi_threshold_and_pool());
  EXPECT_FALSE(host_.pool_thresholds().find_submission_correlation_threshold_and_pool());
  EXPECT_EQ(error_of([&] {
              return host_.pool_thresholds().submission_correlation_threshold_and_pool(1, "pool");
            }),
            "AttributeError: the host has no operation submission_correlation_threshold_and_pool");
  PoolMetrics& pool = host_.pool_metrics();
  EXPECT_FALSE(truth(pool.refresh_submission_manifest_membership(1, "pool", Value())));
  EXPECT_FALSE(truth(pool.selected_pool_has_synced_found_signal_ids(1, "pool")));
  EXPECT_FALSE(pool.as_pool_data_not_ready(std::make_exception_ptr(RuntimeError("x"))));
  for (const auto& unasked :
       {error_of([&] { return pool.submission_pnl_mi_from_backtest_or_compute({}, Value()); }),
        error_of([&] { return pool.submission_correlation_from_backtest_or_compute({}); }),
        error_of([&] { return pool.call_backtester_with_transform_context({}); })}) {
    EXPECT_THAT(unasked, testing::StartsWith("AttributeError: the host has no operation "));
  }
}

TEST_F(HostDefaults, AnOperationThatIsFoundIsTheRequiredOneToo) {
  class OneDetail : public Gates {
   public:
    DetailOperation find_recorded_failure_detail() override {
      return [](const FailureEvidence& evidence) { return evidence.metric; };
    }
  };
  class OneThreshold : public PoolThresholds {
   public:
    CorrelationThresholdOperation find_submission_correlation_threshold_and_pool() override {
      return [](const Value& era_config, const Value& signal_pool_name) -> Value {
        return Tuple{era_config, signal_pool_name};
      };
    }
  };
  OneDetail gates;
  EXPECT_EQ(gates.recorded_failure_detail({.reason = "r",
                                           .metric = "m",
                                           .value = 1,
                                           .threshold = 2,
                                           .gate = "g",
                                           .comparison = "<",
                                           .category = "c"}),
            Value("m"));
  OneThreshold thresholds;
  EXPECT_EQ(repr(thresholds.submission_correlation_threshold_and_pool(0.5, "pool")),
            "(0.5, 'pool')");
}

TEST_F(HostDefaults, AreReadyAndReadNoJson) {
  EXPECT_FALSE(host_.runtime_readiness().is_sdk_runtime_not_ready_error("error"));
  EXPECT_EQ(host_.runtime_readiness().infrastructure_failure_threshold().integer(), 25);
  EXPECT_EQ(error_of([&] { host_.runtime_readiness().raise_background_infrastructure_error("x"); }),
            "RuntimeError: x");
  EXPECT_EQ(error_of([&] { return host_.json_reader().read("{}"); }),
            "ValueError: the host reads no JSON");
  EXPECT_TRUE(failure_metric_pair(host_.json_reader(), Mapping{{"detail", "{\"value\": 1}"}})
                  .value.is_absent());
  EXPECT_EQ(repr(host_.evaluation_verdicts().not_evaluated_verdict()),
            "{'verdict': 'not_evaluated'}");
}

TEST_F(HostDefaults, TakeAnyTimingThatSaysSomething) {
  BacktestTimings& timings = host_.backtest_timings();
  const Value timing = Mapping{{"seconds", 0.5}};
  const Value taken = validated_process_backtest_timing(timings, timing);
  EXPECT_TRUE(taken == timing);
  EXPECT_FALSE(same_object(taken, timing)) << "what is written into it is not the evaluator's";
  const Value graph = Mapping{{"node", "x"}};
  const Value bound = graph_bound_process_backtest_timing(timings, graph, timing);
  EXPECT_EQ(str(bound.mapping().at("graph_key")).size(), 64U);
  EXPECT_FALSE(bound == graph_bound_process_backtest_timing(timings, Mapping{}, timing));
  EXPECT_EQ(error_of([&] { return validated_process_backtest_timing(timings, 7); }),
            "RuntimeError: genetic candidate has invalid backtest timing: a backtest's timing is a "
            "mapping: 7");
  EXPECT_THAT(error_of([&] { return validated_process_backtest_timing(timings, Mapping()); }),
              testing::HasSubstr("says nothing"));
  EXPECT_THAT(error_of([&] { return consumed_process_backtest_timing(timings, graph, Value()); }),
              testing::HasSubstr("the attempt's evidence must hold 'backtest_timing'"));
}

TEST_F(HostDefaults, OfAContextMissEverything) {
  SearchContext& context = context_;
  EXPECT_FALSE(context.max_depth());
  EXPECT_FALSE(context.vocabulary());
  EXPECT_FALSE(context.n_jobs());
  EXPECT_FALSE(context.worker_memory_limit_bytes());
  EXPECT_FALSE(context.last_evaluation_record());
  EXPECT_FALSE(context.fatal_callback());
  EXPECT_FALSE(context.record_search_run_metrics());
  EXPECT_FALSE(context.own_graph_validator());
  EXPECT_FALSE(context.backtester_validate_graph());
  EXPECT_FALSE(context.search_context_thresholds());
  EXPECT_FALSE(context.derive_rejection_reason_detail());
  EXPECT_TRUE(context.current_attempt_evidence().is_absent());
  EXPECT_TRUE(context.required_safe_record());

  class NoRecorder : public LeastContext {
   public:
    Callable safe_record() override { return {}; }
  };
  NoRecorder none;
  EXPECT_EQ(error_of([&] {
              static_cast<void>(none.required_safe_record());
              return 0;
            }),
            "AttributeError: 'SearchContext' object has no attribute '_safe_record'");
}

}  // namespace
}  // namespace varnholt::genetic
