// The embedded context: what the evaluator makes of a graph, and what is there in the parent and in
// a child.
#include "hosts/embedded/search/embedded_context.hpp"

#include <gtest/gtest.h>

#include "hosts/embedded/search/statistics_object.hpp"
#include "search_templates/genetic/evaluation/candidate_simulation.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/search/search_fixture.hpp"

namespace varnholt::embedded {
namespace {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;

class CountingRecorder : public ResultRecorder {
 public:
  Value record(const Value& graph, bool passed, const Mapping& /*keywords*/) override {
    last_graph = graph;
    last_passed = passed;
    return ++records;
  }
  void record_metrics(const Mapping& record) override { metrics = record; }

  std::int64_t records = 0;
  Value last_graph;
  bool last_passed = false;
  Value metrics;
};

class EmbeddedContextTest : public ::testing::Test {
 protected:
  EmbeddedContext context(const GateThresholds& gates = {}) {
    ContextSettings settings;
    settings.jobs = 3;
    settings.max_depth = 4;
    settings.gates = gates;
    return {evaluator_, settings, stop_, recorder_};
  }
  static Mapping record_of_outcome(EmbeddedContext& context, const Value& graph) {
    return context.evaluate_for_template()({graph}).mapping().at(keys::kRecord).mapping();
  }

  static constexpr double kImpossible = 1e9;

  InterruptFlag interrupt_;
  std::shared_ptr<SearchStop> stop_ =
      std::make_shared<SearchStop>(StopLimits{.candidates = 1}, interrupt_, [] {});
  CountingRecorder recorder_;
  Evaluator evaluator_{small_universe()};
};

TEST_F(EmbeddedContextTest, APassingSignalHasNoReason) {
  EmbeddedContext tested = context({.min_abs_weight_sum_mean = 0.0,
                                    .max_turnover = kImpossible,
                                    .max_max_weight = kImpossible,
                                    .max_delta_exposure = kImpossible,
                                    .min_gross_returns_sharpe = -kImpossible,
                                    .min_sharpe = -kImpossible});
  const Mapping record = record_of_outcome(tested, ranked("close"));
  EXPECT_TRUE(record.at(keys::kPassed).boolean());
  EXPECT_TRUE(record.at(keys::kRejectionReason).is_absent());
  EXPECT_TRUE(statistics_of(record.at(keys::kStats)).has_value());
  EXPECT_TRUE(record.at(keys::kTrackingMetricKwargs).mapping().empty());
}

TEST_F(EmbeddedContextTest, AFailingSignalHasTheGatesReasonAndDetail) {
  EmbeddedContext tested = context({.max_turnover = -1.0});
  const Mapping record = record_of_outcome(tested, ranked("close"));
  EXPECT_FALSE(record.at(keys::kPassed).boolean());
  EXPECT_EQ(record.at(keys::kRejectionReason).text(), "turnover_max");
  const Value detail = record.at(keys::kTrackingMetricKwargs).mapping().at(keys::kFailureDetail);
  EXPECT_NE(detail.text().find("turnover"), std::string_view::npos);

  const Value derived = tested.derive_rejection_reason_detail()({record.at(keys::kStats)});
  EXPECT_EQ(derived.tuple().at(0).text(), "turnover_max");
  EXPECT_TRUE(derived.tuple().at(1) == detail);
}

TEST_F(EmbeddedContextTest, AGraphOutsideTheVocabularyIsRefused) {
  EmbeddedContext tested = context();
  EXPECT_THROW(tested.evaluate_for_template()({ranked("colour")}), GraphError);
  EXPECT_THROW(tested.own_graph_validator()({ranked("colour")}), genetic::ValueError);
  EXPECT_TRUE(genetic::truth(tested.own_graph_validator()({ranked("close")})));
}

TEST_F(EmbeddedContextTest, TheParentRecordsAndCounts) {
  EmbeddedContext tested = context();
  EXPECT_FALSE(stop_->is_set());
  EXPECT_EQ(tested.safe_record()({ranked("close"), true}).integer(), 1);
  EXPECT_TRUE(recorder_.last_passed);
  EXPECT_TRUE(recorder_.last_graph == ranked("close"));
  EXPECT_TRUE(stop_->is_set());
  tested.record_search_run_metrics()({}, {{keys::kSeed, 5}});
  EXPECT_EQ(recorder_.metrics.mapping().at(keys::kSeed).integer(), 5);
}

TEST_F(EmbeddedContextTest, AChildHasNoOperationsOfTheParent) {
  EmbeddedContext tested = context();
  tested.enter_child();
  EXPECT_FALSE(tested.safe_record());
  EXPECT_FALSE(tested.record_search_run_metrics());
  EXPECT_TRUE(tested.evaluate_for_template());
}

TEST_F(EmbeddedContextTest, AttributesAreThereByTheirNamesToo) {
  EmbeddedContext tested = context();
  EXPECT_EQ(tested.attribute("max_depth")->integer(), 4);
  EXPECT_EQ(tested.attribute("_n_jobs")->integer(), 3);
  EXPECT_FALSE(tested.attribute("_worker_memory_limit_bytes").has_value());
  EXPECT_FALSE(tested.attribute("no_such_attribute").has_value());
}

}  // namespace
}  // namespace varnholt::embedded
