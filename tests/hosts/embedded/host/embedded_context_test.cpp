// The embedded context: what the evaluator makes of a graph, with which evidence, what the search
// reads of it by name, and what is there in the parent and in a child.
// Method: a small universe; the child is a real one.
#include "hosts/embedded/host/embedded_context.hpp"

#include <functional>
#include <new>
#include <span>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/host/backtester_object.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/timing/backtest_timing.hpp"
#include "search_templates/genetic/context/market_era.hpp"
#include "search_templates/genetic/host/callable_value.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;
using ::testing::ElementsAre;

class CountingRecorder : public ResultRecorder {
 public:
  Value record(const Value& graph, bool passed, const Mapping& /*keywords*/,
               const ActiveAttempt& attempt) override {
    last_attempt = attempt;
    last_graph = graph;
    last_passed = passed;
    return ++records;
  }
  void record_metrics(const Mapping& record) override { metrics = record; }
  void tick() override { ++ticks; }

  std::int64_t records = 0;
  int ticks = 0;
  Value last_graph;
  ActiveAttempt last_attempt;
  bool last_passed = false;
  Value metrics;
};

class EmbeddedContextTest : public ContextTest {
 protected:
  EmbeddedContext context(const GateThresholds& gates = {}, KnownBehaviours* behaviours = nullptr) {
    ContextSettings settings;
    settings.jobs = 3;
    settings.max_depth = 4;
    settings.gates = gates;
    settings.behaviours = behaviours;
    settings.pool = pool_identity_;
    settings.first_date = "2000-01-03";
    settings.last_date = "2000-07-01";
    return {evaluator_, settings, stop_, recorder_, submission_, process_};
  }
  static Mapping record_of_outcome(EmbeddedContext& context, const Value& graph) {
    return context.evaluate_for_template()({graph}).mapping().at(keys::kRecord).mapping();
  }

  CountingRecorder recorder_;
};

TEST_F(EmbeddedContextTest, APassingSignalHasNoReason) {
  EmbeddedContext tested = context(open_gates());
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

TEST_F(EmbeddedContextTest, ARepeatIsToldOnceTheEarlierOneIsSettled) {
  KnownBehaviours behaviours;
  EmbeddedContext tested = context(open_gates(), &behaviours);
  const Mapping first = record_of_outcome(tested, ranked("close"));
  ASSERT_TRUE(first.at(keys::kPassed).boolean());
  static_cast<void>(
      tested.safe_record()({ranked("close"), true},
                           {{keys::kTrackingMetricKwargs, first.at(keys::kTrackingMetricKwargs)}}));
  // A rank of the rank is the rank.
  const Value again = make_graph_node("cross_rank", kRotationType, genetic::List{ranked("close")});
  EXPECT_TRUE(record_of_outcome(tested, again).at(keys::kPassed).boolean())
      << "other workers may know of the first, or not";
  behaviours.settle();
  const Mapping outcome = tested.evaluate_for_template()({again}).mapping();
  const Mapping record = outcome.at(keys::kRecord).mapping();
  EXPECT_FALSE(record.at(keys::kPassed).boolean());
  EXPECT_EQ(record.at(keys::kRejectionReason).text(), "behaviour_repeated");
  EXPECT_TRUE(record.at(keys::kStats).is_absent());
  const Value detail = record.at(keys::kTrackingMetricKwargs).mapping().at(keys::kFailureDetail);
  EXPECT_EQ(detail.text(), "it wants to hold every day what candidate 1 does");
  const Mapping evidence = outcome.at(keys::kAttemptEvidence).mapping();
  EXPECT_TRUE(evidence.at(keys::kBacktestStarted).boolean());
  EXPECT_FALSE(evidence.at(keys::kBacktestCompleted).boolean());
  EXPECT_TRUE(record_of_outcome(tested, ranked("volume")).at(keys::kPassed).boolean());
}

TEST_F(EmbeddedContextTest, AGraphOutsideTheVocabularyIsRefused) {
  EmbeddedContext tested = context();
  EXPECT_THROW(tested.evaluate_for_template()({ranked("colour")}), GraphError);
  EXPECT_THROW(tested.own_graph_validator()({ranked("colour")}), genetic::ValueError);
  EXPECT_TRUE(genetic::truth(tested.own_graph_validator()({ranked("close")})));
}

TEST_F(EmbeddedContextTest, NoGraphIsTakenIntoTheBatchOfASearchThatIsBeingStopped) {
  EmbeddedContext tested = context();
  interrupt_.requests = 1;
  EXPECT_FALSE(genetic::truth(tested.own_graph_validator()({ranked("close")})));
  process_.role.enter_child();
  EXPECT_TRUE(genetic::truth(tested.own_graph_validator()({ranked("close")})));
}

TEST_F(EmbeddedContextTest, TheParentRecordsAndCounts) {
  stop_ = std::make_shared<SearchStop>(StopLimits{.candidates = 1}, interrupt_);
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
  process_.role.enter_child();
  EXPECT_FALSE(tested.safe_record());
  EXPECT_THROW(static_cast<void>(tested.required_safe_record()), genetic::AttributeError);
  EXPECT_FALSE(tested.enqueue_deferred_submission_payload());
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

TEST_F(EmbeddedContextTest, TellsWhatASignalIsSubmittedTo) {
  EmbeddedContext tested = context();
  EXPECT_EQ(genetic::context_market_id(tested).integer(), 7);
  EXPECT_EQ(genetic::context_era_number(tested).integer(), 3);
  EXPECT_EQ(tested.attribute("_signal_pool_name")->text(), "alpha");
  EXPECT_EQ(genetic::repr(genetic::context_era_config(tested)),
            "{'id': 3, 'era_number': 3, 'market_id': 7, 'first_date': '2000-01-03', "
            "'last_date': '2000-07-01'}");
  EXPECT_EQ(tested.attribute("_named_universe")->text(), "all");
  EXPECT_EQ(genetic::repr(*tested.attribute("_metaparameters")), "{'cost_basis_points': 5.0}");
  EXPECT_FALSE(tested.attribute("_sync_mgr").has_value());
  EXPECT_FALSE(tested.attribute("_submission_owner").has_value());
  EXPECT_FALSE(tested.search_context_thresholds());
}

TEST_F(EmbeddedContextTest, TheThresholdsAreThoseOfItsGates) {
  EmbeddedContext tested = context({.max_turnover = 0.75, .min_sharpe = 1.5});
  const Mapping thresholds = tested.attribute("thresholds")->mapping();
  EXPECT_EQ(thresholds.size(), gate_table().size());
  EXPECT_EQ(thresholds.at("sharpe_min").real(), 1.5);
  EXPECT_EQ(thresholds.at("turnover_max").real(), 0.75);
  EXPECT_EQ(thresholds.at("turnover_limit").real(), kMostTurnover);
}

TEST_F(EmbeddedContextTest, TheBacktesterRunsABacktestWithItsPnl) {
  EmbeddedContext tested = context();
  const Value backtester = *tested.attribute("_backtester");
  const auto operation = genetic::attribute(backtester, "run_backtest");
  ASSERT_TRUE(operation.has_value());
  EXPECT_TRUE(operation->object().is_callable());
  EXPECT_FALSE(genetic::attribute(backtester, "close").has_value());
  const Value stats = backtest_with_pnl(backtester, ranked("close"));
  const BacktestResult expected = evaluator_.evaluate(ranked("close")).backtest;
  EXPECT_EQ(genetic::attribute(stats, "sharpe")->real(), expected.statistics.sharpe);
  EXPECT_TRUE((required_pnl(stats) == expected.net_returns).all());
  EXPECT_THROW(static_cast<void>(backtest_with_pnl(stats, ranked("close"))), genetic::TypeError);
  EXPECT_THROW(static_cast<void>(backtest_with_pnl(7, ranked("close"))), genetic::TypeError);
}

TEST_F(EmbeddedContextTest, AnEvaluationLeavesItsTimingAsEvidence) {
  EmbeddedContext tested = context();
  EXPECT_TRUE(tested.current_attempt_evidence().is_absent());
  const Value outcome = tested.evaluate_for_template()({ranked("close")});
  const Value evidence = tested.current_attempt_evidence();
  EXPECT_TRUE(outcome.mapping().at(keys::kAttemptEvidence) == evidence);
  EXPECT_TRUE(evidence.mapping().at(keys::kBacktestCompleted).boolean());
  const Value timing = evidence.mapping().at(keys::kBacktestTiming);
  // Of this graph and this process, and of no other graph.
  EXPECT_TRUE(Value(validate_process_backtest_timing_payload(ranked("close"), timing)) == timing);
  EXPECT_EQ(timing.mapping().at("process_id").integer(), getpid());
  EXPECT_THROW(static_cast<void>(validate_graph_backtest_timing_payload(ranked("returns"), timing)),
               genetic::ValueError);
  // The same waits for whoever asks for the timing of the graph.
  EXPECT_TRUE(process_.timings.recorded().consume(ranked("close"), true) == timing);
}

TEST_F(EmbeddedContextTest, AnEvaluationThatFailsLeavesNoTiming) {
  EmbeddedContext tested = context();
  static_cast<void>(tested.evaluate_for_template()({ranked("close")}));
  EXPECT_THROW(tested.evaluate_for_template()({ranked("colour")}), GraphError);
  EXPECT_EQ(genetic::repr(tested.current_attempt_evidence()),
            "{'backtest_started': False, 'backtest_completed': False}");
}

// Puts a stand-in where a child has its guard.
class AnnouncementTest : public EmbeddedContextTest {
 protected:
  void on_announcement(std::function<void(const Value& phase)> function) {
    process_.engine_operations->set_attribute(
        genetic::operation_names::kWriteEvaluationAttemptMarker.view(),
        genetic::callable_value(
            genetic::make_callable([function](std::span<const Value> positional, const Mapping&) {
              function(positional[0]);
              return Value();
            })));
  }
};

TEST_F(AnnouncementTest, ABacktestIsAnnouncedBeforeItBegins) {
  EmbeddedContext tested = context();
  std::vector<std::string> seen;
  on_announcement([&](const Value& phase) {
    seen.push_back(genetic::str(phase) + " " + genetic::repr(tested.current_attempt_evidence()));
  });
  static_cast<void>(tested.evaluate_for_template()({ranked("close")}));
  EXPECT_THAT(seen, ElementsAre("run_backtest {'backtest_started': False, "
                                "'backtest_completed': False}"));
  EXPECT_TRUE(tested.current_attempt_evidence().mapping().at(keys::kBacktestStarted).boolean());
  // What is no signal has no backtest to announce.
  EXPECT_THROW(tested.evaluate_for_template()({ranked("colour")}), GraphError);
  EXPECT_EQ(seen.size(), 1U);
}

TEST_F(AnnouncementTest, ARefusedBacktestDoesNotRun) {
  EmbeddedContext tested = context();
  on_announcement([](const Value&) { throw genetic::RuntimeError("no attempt"); });
  EXPECT_THROW(tested.evaluate_for_template()({ranked("close")}), genetic::RuntimeError);
  EXPECT_EQ(genetic::repr(tested.current_attempt_evidence()),
            "{'backtest_started': False, 'backtest_completed': False}");
  EXPECT_EQ(process_.timings.recorded().size(), 0U);
}

TEST_F(AnnouncementTest, AChildsMemoryLimitIsNoFaultOfTheGraph) {
  EmbeddedContext tested = context();
  on_announcement([](const Value&) { throw std::bad_alloc(); });
  EXPECT_THROW(tested.evaluate_for_template()({ranked("close")}), std::bad_alloc);
  process_.role.enter_child();
  EXPECT_THROW(tested.evaluate_for_template()({ranked("close")}), OutOfMemory);
}

TEST_F(EmbeddedContextTest, ThePriorityOfTheWorkersIsThereWhereOneIsAskedFor) {
  EXPECT_FALSE(context().attribute("_process_priority").has_value());
  ContextSettings settings;
  settings.worker_nice = 5;
  EmbeddedContext tested(evaluator_, settings, stop_, recorder_, submission_, process_);
  EXPECT_EQ(tested.attribute("_process_priority")->integer(), 5);
}

TEST_F(EmbeddedContextTest, AskingWhetherTheSearchIsCancelledShowsTheProgress) {
  EmbeddedContext tested = context();
  EXPECT_FALSE(tested.submission_cancelled());
  interrupt_.requests = 1;
  EXPECT_TRUE(tested.submission_cancelled());
  EXPECT_EQ(recorder_.ticks, 2);
}

TEST_F(EmbeddedContextTest, AnAttemptOfAChildBecomesTheCurrentOne) {
  EmbeddedContext tested = context();
  tested.activate_existing_attempt(5, Mapping{{keys::kBacktestCompleted, true}});
  EXPECT_EQ(genetic::repr(tested.current_attempt_evidence()), "{'backtest_completed': True}");
}

TEST_F(EmbeddedContextTest, TheEvidenceOfOneCandidateIsNotThatOfTheNext) {
  EmbeddedContext tested = context();
  tested.activate_existing_attempt(5, Mapping{{keys::kBacktestCompleted, true}});
  static_cast<void>(tested.safe_record()({ranked("close"), false}));
  EXPECT_TRUE(tested.current_attempt_evidence().is_absent());
}

TEST_F(EmbeddedContextTest, AChildTimesInItsOwnName) {
  EmbeddedContext tested = context();
  static_cast<void>(tested.evaluate_for_template()({ranked("close")}));
  const pid_t parent = getpid();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    process_.role.enter_child();
    process_.timings.recorded().enter_process(process_.role.identity());
    // What the parent measured is not the child's.
    bool good = process_.timings.recorded().consume(ranked("close"), true).is_absent();
    const Value outcome = tested.evaluate_for_template()({ranked("close")});
    const Mapping evidence = outcome.mapping().at(keys::kAttemptEvidence).mapping();
    const Mapping timing = evidence.at(keys::kBacktestTiming).mapping();
    good = good && timing.at("process_id").integer() == getpid() && getpid() != parent;
    good = good && timing.at("process_started").integer() == own_identity().started_ticks;
    _exit(good ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
}  // namespace varnholt::embedded::test
