// Candidates evaluated in real children, recorded in a store and submitted to a pool as the search
// does it.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/embedded/host/embedded_host.hpp"
#include "hosts/embedded/search/run_recorder.hpp"
#include "search_templates/genetic/evaluation/candidate_simulation.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/process/batch_results.hpp"
#include "search_templates/genetic/submission/recording.hpp"
#include "search_templates/genetic/submission/submitting.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {

// Lets a test act at the moment between the measurement against the pool and the record.
class PausingRecorder : public ResultRecorder {
 public:
  explicit PausingRecorder(ResultRecorder& recorder) : recorder_(recorder) {}

  genetic::Value record(const genetic::Value& graph, bool passed, const genetic::Mapping& keywords,
                        const ActiveAttempt& attempt) override {
    before_record();
    return recorder_.record(graph, passed, keywords, attempt);
  }
  [[nodiscard]] std::shared_ptr<EmbeddedTracker> tracker() override { return recorder_.tracker(); }
  [[nodiscard]] genetic::Value run_id() override { return recorder_.run_id(); }
  void record_metrics(const genetic::Mapping& metrics) override {
    recorder_.record_metrics(metrics);
  }

  std::function<void()> before_record = [] {};

 private:
  ResultRecorder& recorder_;
};

class RecordingTest : public ContextTest {
 protected:
  explicit RecordingTest(const PoolSettings& pool = first_stays(),
                         const GateThresholds& gates = open_gates())
      : ContextTest(pool), gates_(gates) {}

  static genetic::Value negated(const genetic::Value& graph) {
    return make_graph_node("arith_neg", kRotationType, genetic::List{graph});
  }
  // A long-short book, where those of ranks are long only.
  static genetic::Value unlike_the_others() {
    return make_graph_node("cross_demean", kRotationType, genetic::List{feature("returns")});
  }
  // The result of a child, which nobody has recorded yet.
  genetic::Mapping evaluated(const genetic::Value& graph) {
    const genetic::Callable simulate = genetic::make_callable(
        [this, &graph](std::span<const genetic::Value>, const genetic::Mapping&) -> genetic::Value {
          return genetic::simulate_candidate(host_, context_, graph);
        });
    const auto configured = process_.pool.configure([this] {
      genetic::ProcessEvaluationConfig config;
      config.timeout_seconds = 60.0;
      config.worker_memory_limit_bytes = process_.pool.default_worker_memory_limit_bytes();
      return config;
    });
    const genetic::Value results = configured->evaluate_candidate_batch(
        genetic::List{process_.pool.candidate_evaluation(0, graph)}, simulate);
    return genetic::candidate_result_from_process_result(genetic::item(results, 0));
  }
  genetic::Mapping recorded(const genetic::Value& graph) {
    genetic::Mapping candidate = evaluated(graph);
    EXPECT_TRUE(genetic::record_candidate_result_in_parent(host_, context_, candidate));
    return candidate;
  }
  void submit(const genetic::Mapping& candidate) {
    genetic::submit_candidate(host_, context_, candidate);
  }
  // A member of the pool.
  genetic::Mapping joined(const genetic::Value& graph) {
    genetic::Mapping candidate = recorded(graph);
    submit(candidate);
    EXPECT_EQ(submission_.sync().settled.size(), 1U);
    EXPECT_EQ(submissions_of(candidate).at(0).state, SubmissionState::Submitted);
    return candidate;
  }
  std::vector<SubmissionRecord> submissions_of(const genetic::Mapping& candidate) {
    return store_.submissions().of_evaluation(genetic::str(candidate.at(genetic::keys::kEvalId)));
  }
  EvaluationRecord row_of(const genetic::Mapping& candidate) {
    return store_.find_evaluation(genetic::str(candidate.at(genetic::keys::kEvalId)))->evaluation;
  }
  static genetic::Mapping tracking_of(const genetic::Mapping& candidate) {
    return candidate.at(genetic::keys::kTrackingMetricKwargs).mapping();
  }

  GateThresholds gates_;
  RecordingObserver observer_;
  RunRecorder recorder_{store_,     observer_, lineage_, *stop_, {10, gates_, {}, pool_identity_},
                        run_start()};
  PausingRecorder pausing_{recorder_};
  EmbeddedHost host_{process_, evaluator_.vocabulary(), lineage_, submission_, host_settings()};
  EmbeddedContext context_{evaluator_, context_settings(), stop_, pausing_, submission_, process_};

  [[nodiscard]] RunStart run_start() const {
    RunStart start{1.0, 1, "{}", "prices.csv", "ab12", "0.1.0"};
    start.market_id = pool_identity_.market_id;
    start.era_number = pool_identity_.era_number;
    return start;
  }

 private:
  [[nodiscard]] HostSettings host_settings() const {
    HostSettings settings;
    settings.gates = gates_;
    settings.log = [](LogLevel, std::string_view) {};
    settings.client_manifest = {{"client", "test"}};
    settings.seed = 5;
    return settings;
  }
  [[nodiscard]] ContextSettings context_settings() const {
    ContextSettings settings;
    settings.gates = gates_;
    settings.pool = pool_identity_;
    return settings;
  }
};

}  // namespace varnholt::embedded::test
