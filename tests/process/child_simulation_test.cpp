// Goal: in a child the evaluator meets a guard wherever it looks, and finds everything as it was
// when it is through. Method: an evaluator that looks around on a scripted host, and failures at
// every step, with each guard that goes on and comes off in the log.
#include "search_templates/genetic/process/child_simulation.hpp"

#include <gmock/gmock.h>

#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/process/child_record.hpp"
#include "search_templates/genetic/process/found_pnl_files.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// No ordinary error.
struct Interrupt {};

class ChildSimulation : public testing::Test {
 protected:
  using Evaluate = std::function<Value(const Value&)>;

  ChildSimulation() {
    dynamic_cast<CandidateEvaluation&>(item.object()).metadata().set("process_attempt", 1);
    child().state->set_attempt_id("earlier");
    child().state->set_parent_owned_attempt("before");
    on_evaluate([](const Value& /*graph*/) { return Value(Mapping()); });
    host.log.clear();
  }

  ScriptedChild& child() { return host.context.in_child; }
  void on_evaluate(const Evaluate& evaluate) {
    host.context.on_evaluate_for_template = always(scripted_callable(
        host.log, "evaluate", [evaluate](std::span<const Value> positional, const Mapping&) {
          return evaluate(positional[0]);
        }));
  }
  Mapping simulate() {
    OwnChildStandIns stand_ins(host.context, item, Tuple{"a.pnl"}, channel);
    return process_simulate_candidate(host.bundle(), host.context, item, stand_ins);
  }
  // Whether everything is as it was before the evaluation.
  void expect_untouched() {
    for (const char* const name :
         {"_sync_mgr", "_safe_record", "_enqueue_deferred_submission_payload",
          "record_search_run_metrics"}) {
      EXPECT_FALSE(child().context_operations->instance_value(name).has_value()) << name;
    }
    EXPECT_FALSE(
        host.engine_operations->instance_value("_write_evaluation_attempt_marker").has_value());
    EXPECT_EQ(*child().state->attempt_id(), "earlier");
    EXPECT_EQ(*child().state->parent_owned_attempt(), "before");
  }

  ScriptedHost host;
  Value item = make_object<CandidateEvaluation>(4, Mapping{{"node", "g"}});
  std::shared_ptr<ScriptedQueue> boundary = std::make_shared<ScriptedQueue>(host.log, "boundary");
  std::shared_ptr<ScriptedQueue> answers = std::make_shared<ScriptedQueue>(host.log, "answers");
  BoundaryChannel channel{
      boundary, std::make_shared<ScriptedAcknowledgementQueues>(CandidateQueues{{4, answers}})};
};

TEST_F(ChildSimulation, GuardsGoOnInOrderAndComeOffInTheReverse) {
  static_cast<void>(simulate());
  std::vector<std::string> guards;
  for (const std::string& line : host.log.lines()) {
    if (line.find("operations.") != std::string::npos || line.find("state.") == 0)
      guards.push_back(line);
  }
  EXPECT_THAT(
      guards,
      ElementsAre("state.attempt_id(None)", "state.parent_owned_attempt(True)",
                  "engine_operations.set('_write_evaluation_attempt_marker')",
                  "context_operations.set('_sync_mgr')", "context_operations.set('_safe_record')",
                  "context_operations.set('_enqueue_deferred_submission_payload')",
                  "context_operations.set('record_search_run_metrics')",
                  "context_operations.delete('record_search_run_metrics')",
                  "context_operations.delete('_enqueue_deferred_submission_payload')",
                  "context_operations.delete('_safe_record')",
                  "context_operations.delete('_sync_mgr')",
                  "engine_operations.delete('_write_evaluation_attempt_marker')",
                  "state.attempt_id('earlier')", "state.parent_owned_attempt('before')"));
}

TEST_F(ChildSimulation, TheEvaluatorMeetsTheGuards) {
  answers->messages.push_back(Tuple{4, 1, true, Value(), "identity"});
  on_evaluate([this](const Value& graph) {
    ScriptedOperations& context = *child().context_operations;
    EXPECT_TRUE(child().state->attempt_id()->is_absent());
    EXPECT_EQ(error_of([&] { return context.operation("record_search_run_metrics")({}); }),
              "RuntimeError: child process cannot call parent-only operation "
              "record_search_run_metrics");
    EXPECT_EQ(error_of([&] {
                return context.operation("_enqueue_deferred_submission_payload")({graph});
              }),
              "RuntimeError: child process cannot call parent-only operation "
              "_enqueue_deferred_submission_payload");
    const Value snapshot = context.required_attribute("_sync_mgr");
    EXPECT_EQ(repr(callable_of(*attribute(snapshot, "request_for_sync"))({})), "('a.pnl',)");
    EXPECT_TRUE(callable_of(*attribute(snapshot, "get_manifest"))({}).is_absent());
    EXPECT_EQ(*attribute(snapshot, "_sync_mgr"), "the parent's");

    const Callable marker = host.engine_operations->operation("_write_evaluation_attempt_marker");
    marker({graph, "build"});
    marker({graph, "run_backtest"});
    EXPECT_EQ(*child().state->attempt_id(), "identity");
    context.operation("_safe_record")({graph, 1}, Mapping{{"stats", 7}, {"backtest_timing", 3}});
    EXPECT_TRUE(child().state->attempt_id()->is_absent());
    return Value(Mapping());
  });
  const Mapping result = simulate();
  EXPECT_EQ(repr(result.at("graph")), "{'node': 'g'}");
  EXPECT_EQ(boundary->messages.size(), 1U);
  EXPECT_THAT(host.log.lines(),
              Contains("context.assign_last_evaluation_record({'graph': {'node': 'g'}, 'passed': "
                       "True, 'stats': 7, 'rejection_reason': None, 'per_column_stats': None, "
                       "'expression_elapsed_seconds': None, 'tracking_metric_kwargs': {}})"));
  expect_untouched();
}

TEST_F(ChildSimulation, WhateverLeavesTakesTheGuardsOff) {
  on_evaluate([](const Value&) -> Value { throw Interrupt(); });
  EXPECT_THROW(static_cast<void>(simulate()), Interrupt);
  expect_untouched();
  host.context.on_evaluate_for_template = always(Callable());
  EXPECT_THROW(static_cast<void>(simulate()), RuntimeError);
  expect_untouched();
}

TEST_F(ChildSimulation, ARejectionIsTheCandidatesFailure) {
  answers->messages.push_back(Tuple{4, 1, false, "OSError: disk", Value()});
  on_evaluate([this](const Value&) {
    return host.engine_operations->operation("_write_evaluation_attempt_marker")({"run_backtest"});
  });
  const Mapping result = simulate();
  EXPECT_THAT(repr(result.at("failures")),
              testing::HasSubstr("genetic parent failed to persist the backtest attempt: OSError"));
  expect_untouched();
}

TEST_F(ChildSimulation, ACandidateWithoutItsAttemptChangesTheStateAlone) {
  item = make_object<CandidateEvaluation>(4, Mapping());
  EXPECT_THROW(static_cast<void>(simulate()), KeyError);
  EXPECT_THAT(host.log.lines(),
              ElementsAre("state.attempt_id(None)", "state.parent_owned_attempt(True)"));
}

TEST_F(ChildSimulation, AGuardThatFailsLeavesThoseBeforeIt) {
  child().context_operations->on_set = [](std::string_view name) {
    if (name == "_safe_record") throw AttributeError("frozen");
  };
  EXPECT_EQ(error_of([this] { return simulate(); }),
            "RuntimeError: cannot disable parent-only operation _safe_record in child process");
  EXPECT_TRUE(child().context_operations->instance_value("_sync_mgr").has_value());
  EXPECT_FALSE(child()
                   .context_operations->instance_value("_enqueue_deferred_submission_payload")
                   .has_value());
  EXPECT_EQ(host.log.count("evaluate"), 0U);
}

TEST_F(ChildSimulation, ARestoreThatFailsLeavesTheLaterOnesUndone) {
  child().context_operations->on_delete = [](std::string_view name) {
    if (name == "_safe_record") throw ValueError("stuck");
  };
  EXPECT_EQ(error_of([this] { return simulate(); }), "ValueError: stuck");
  EXPECT_FALSE(child()
                   .context_operations->instance_value("_enqueue_deferred_submission_payload")
                   .has_value());
  EXPECT_TRUE(child().context_operations->instance_value("_sync_mgr").has_value());
  EXPECT_EQ(*child().state->parent_owned_attempt(), true);
}

TEST_F(ChildSimulation, ARestoreThatFailsTakesThePlaceOfWhatWasOnItsWay) {
  child().context_operations->on_delete = [](std::string_view) { throw ValueError("stuck"); };
  on_evaluate([](const Value&) -> Value { throw Interrupt(); });
  EXPECT_EQ(error_of([this] { return simulate(); }), "ValueError: stuck");
}

TEST_F(ChildSimulation, AHostWithoutOperationsIsEvaluatedAllTheSame) {
  class Bare : public SearchContext {
   public:
    explicit Bare(Callable evaluate) : evaluate_(std::move(evaluate)) {}
    [[nodiscard]] std::shared_ptr<StopEvent> stop_event() override { return nullptr; }
    [[nodiscard]] std::optional<Value> attribute(std::string_view) override { return std::nullopt; }
    [[nodiscard]] Callable evaluate_for_template() override { return evaluate_; }
    [[nodiscard]] Callable safe_record() override { return {}; }
    [[nodiscard]] Callable enqueue_deferred_submission_payload() override { return {}; }

   private:
    Callable evaluate_;
  };
  Bare context(host.context.on_evaluate_for_template());
  host.log.clear();
  OwnChildStandIns stand_ins(context, item, Value(), {});
  const Mapping result = process_simulate_candidate(host.bundle(), context, item, stand_ins);
  EXPECT_EQ(result.at("passes"), false);
}

// The recorder, and the list of files.

TEST_F(ChildSimulation, TheRecorderPrefersTheSetter) {
  child().on_set_last_evaluation_record =
      always(scripted_callable(host.log, "set_record", always(Value())));
  ChildEvaluation evaluation;
  evaluation.graph = "g";
  evaluation.passed_thresholds = false;
  evaluation.tracking_metric_kwargs = Mapping{{"a", 1}};
  child_safe_record(host.context, evaluation);
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre("state.attempt_id(None)", "context.set_last_evaluation_record()",
                  "set_record({'graph': 'g', 'passed': False, 'stats': None, "
                  "'rejection_reason': None, 'per_column_stats': None, "
                  "'expression_elapsed_seconds': None, 'tracking_metric_kwargs': {'a': 1}})"));
}

TEST_F(ChildSimulation, TheRecorderNeedsAGraphAndAVerdict) {
  on_evaluate([this](const Value& graph) {
    return child().context_operations->operation("_safe_record")({graph});
  });
  EXPECT_THAT(repr(simulate().at("failures")), testing::HasSubstr("passed_thresholds"));
}

Value manager_with(CallLog& log, const char* name, const ScriptedCallable::Function& function) {
  return scripted_object(Mapping{{name, callable_value(scripted_callable(log, name, function))}});
}

TEST_F(ChildSimulation, TheFoundFilesAreATuple) {
  const auto files = [this](const Value& answer) {
    host.context.on_attribute = always(std::optional(manager_with(
        host.log, "request_for_sync", [answer](const auto&, const Mapping&) { return answer; })));
    return repr(prefetch_found_pnl_files(host.bundle(), host.context));
  };
  EXPECT_EQ(files(List{"a", "b"}), "('a', 'b')");
  EXPECT_EQ(files(Tuple{"a"}), "('a',)");
  EXPECT_EQ(files(Value()), "()");
  EXPECT_EQ(files(0), "()");
  host.context.on_attribute = always(std::nullopt);
  EXPECT_EQ(repr(prefetch_found_pnl_files(host.bundle(), host.context)), "()");
}

TEST_F(ChildSimulation, AListThatCannotBeHadIsLogged) {
  host.context.on_attribute = always(std::optional(
      manager_with(host.log, "request_for_sync",
                   [](const auto&, const Mapping&) -> Value { throw ValueError("no disk"); })));
  host.log.clear();
  EXPECT_EQ(repr(prefetch_found_pnl_files(host.bundle(), host.context)), "()");
  EXPECT_THAT(host.log.lines(),
              Contains("logger.warning('Failed to request sync files: %s', ValueError(no disk))"));
  host.context.on_attribute = always(
      std::optional(manager_with(host.log, "request_for_sync",
                                 [](const auto&, const Mapping&) -> Value { throw Interrupt(); })));
  EXPECT_THROW(static_cast<void>(prefetch_found_pnl_files(host.bundle(), host.context)), Interrupt);
}

TEST_F(ChildSimulation, TheSnapshotAsksTheManagerForTheManifest) {
  const Value manager = manager_with(host.log, "get_manifest", always(Value("manifest")));
  const Value snapshot = child_sync_snapshot(manager, List{"p"});
  EXPECT_EQ(callable_of(*attribute(snapshot, "get_manifest"))({}), "manifest");
  EXPECT_EQ(repr(*attribute(snapshot, "_found_pnl_paths")), "('p',)");
  EXPECT_FALSE(attribute(snapshot, "other").has_value());
  EXPECT_EQ(type_name(snapshot), "_ChildSyncSnapshot");
}

}  // namespace
}  // namespace varnholt::genetic::test
