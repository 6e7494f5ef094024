// Goal: every exit of a batch closes what is open with its own reason and leaves as what came, and
// each result and each failure is recorded once, before anything is submitted.
// Method: a table of the exits, a ledger that writes down what it is told, and a scripted pool that
// calls the callbacks as a real one does.
#include "search_templates/genetic/process/batch_evaluation.hpp"

#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/process/batch_results.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/process/attempt_fixture.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// No ordinary error; told from others by its number.
struct Interrupt {
  int number = 0;
};

// The library's parts with a ledger that writes its ends into the log.
class LoggedLedger : public AttemptLedger {
 public:
  LoggedLedger(CallLog& log, std::shared_ptr<AttemptLedger> ledger)
      : log_(log), ledger_(std::move(ledger)) {}

  void prepare_for_processes() override { ledger_->prepare_for_processes(); }
  [[nodiscard]] std::shared_ptr<MessageQueue> backtest_boundary_queue() override {
    return ledger_->backtest_boundary_queue();
  }
  [[nodiscard]] std::shared_ptr<AcknowledgementQueues> backtest_acknowledgement_queues() override {
    return ledger_->backtest_acknowledgement_queues();
  }
  void pre_dispatch(const Value& event) override { ledger_->pre_dispatch(event); }
  void lifecycle(const Value& event) override { ledger_->lifecycle(event); }
  void progress(const Value& event) override { ledger_->progress(event); }
  void poll_backtest_boundaries() override { ledger_->poll_backtest_boundaries(); }
  void apply_child_evidence(const Value& index, const Value& evidence) override {
    ledger_->apply_child_evidence(index, evidence);
  }
  [[nodiscard]] Value source_attempt_id(const Value& index) override {
    return ledger_->source_attempt_id(index);
  }
  [[nodiscard]] Value failure_evidence(const Value& index, const Value& reason,
                                       const Value& detail) override {
    return ledger_->failure_evidence(index, reason, detail);
  }
  void mark_parent_finalized(const Value& index) override { ledger_->mark_parent_finalized(index); }
  void acknowledge_parent_persistence_failure(const Value& index) override {
    ledger_->acknowledge_parent_persistence_failure(index);
  }
  void finalize_all_open(const Value& reason, const Value& detail) override {
    log_.add("ledger.finalize_all_open", {reason, detail});
    ledger_->finalize_all_open(reason, detail);
  }

 private:
  CallLog& log_;
  std::shared_ptr<AttemptLedger> ledger_;
};

class LoggedParts : public OwnBatchParts {
 public:
  LoggedParts(ScriptedHost& host) : OwnBatchParts(host.bundle(), host.context), host_(host) {}

 protected:
  [[nodiscard]] std::shared_ptr<AttemptLedger> make_ledger(const List& indexed_batch) override {
    return std::make_shared<LoggedLedger>(host_.log, OwnBatchParts::make_ledger(indexed_batch));
  }

 private:
  ScriptedHost& host_;
};

// One pass of the pool.
struct Pass {
  const std::vector<ScriptedCandidate>& candidates;
  const ScriptedProcessEvaluation::Simulate& simulate;
  const ProcessEvaluationConfig& config;

  [[nodiscard]] const ScriptedCandidate& candidate(std::int64_t index) const {
    for (const ScriptedCandidate& one : candidates)
      if (one.candidate_index == index) return one;
    throw std::logic_error("the pass has no such candidate");
  }
  [[nodiscard]] Mapping event(const char* name, std::int64_t index,
                              std::int64_t attempt = 0) const {
    return {{"event", name},
            {"candidate_index", index},
            {"attempt", attempt},
            {"candidate", candidate(index).item}};
  }
  void dispatch(std::int64_t index, std::int64_t attempt = 0) const {
    config.pre_dispatch_callback({event("", index, attempt)});
    config.lifecycle_callback({event("started", index, attempt)});
    config.progress_callback({event("started", index, attempt)});
  }
  // A candidate that fails a gate after its backtest.
  [[nodiscard]] ScriptedResult result(std::int64_t index, std::int64_t attempt = 0) const {
    const Mapping record{{"graph", candidate(index).graph},
                         {"passes", false},
                         {"failures", Mapping{{"low", Mapping{{"reason", "low"}}}}},
                         {"attempt_evidence", Mapping{{"backtest_started", true}}}};
    return {index, record, 4321, 0.5, attempt};
  }
  ScriptedResult complete(std::int64_t index) const {
    dispatch(index);
    const ScriptedResult completed = result(index);
    config.completed_result_callback({completed.object()});
    return completed;
  }
};

class BatchTest : public AttemptTest {
 protected:
  using Play = std::function<std::vector<ScriptedResult>(const Pass&)>;

  BatchTest() {
    host.context.on_n_jobs = always(Value(2));
    host.process_evaluation.on_resolve_process_worker_count_details = always(2);
    host.context.on_required_safe_record = always(scripted_callable(
        host.log, "safe_record", [this](std::span<const Value> positional, const Mapping&) {
          recorded.push_back(str(positional[0].mapping().at("node")));
          return is_recording ? Value("eval") : Value();
        }));
    host.context.on_enqueue_deferred_submission_payload =
        always(scripted_callable(host.log, "enqueue", always(Value())));
    host.process_contexts.is_quiet = true;
  }

  // The passes of the pool, one after the other; a pass too many is an error of the test.
  void on_passes(std::vector<Play> plays) {
    host.process_evaluation.on_evaluate_candidate_batch =
        [plays = std::move(plays), next = std::size_t{0}](
            const auto& candidates, const auto& simulate, const auto& config) mutable {
          return plays.at(next++)(Pass{candidates, simulate, config});
        };
  }
  List evaluate(const std::vector<std::string>& names = {"a", "b"}, const Value& timeout = 60.0) {
    List graphs;
    for (const std::string& name : names)
      graphs.append(Mapping{{"node", name}});
    LoggedParts parts(host);
    return evaluate_candidate_batch(host.bundle(), host.context, graphs, timeout, parts);
  }
  // The reasons that the ledger was given at the end, with their details.
  std::vector<std::string> ends() {
    std::vector<std::string> found;
    for (const std::string& line : host.log.lines())
      if (line.find("ledger.finalize_all_open") == 0) found.push_back(line.substr(24));
    return found;
  }
  static std::string names_of(const List& results) {
    std::string names;
    for (const Value& result : results.native_items())
      names += str(result.mapping().at("graph").mapping().at("node"));
    return names;
  }
  static std::string failures_of(const List& results) {
    std::string failures;
    for (const Value& result : results.native_items()) {
      failures += failures.empty() ? "" : " ";
      failures += str(result.mapping().at("failures").mapping().native_entries()[0].key);
    }
    return failures;
  }

  std::vector<std::string> recorded;
  bool is_recording = true;
};

constexpr const char* kResultMissing = "('process_result_missing', None)";

Mapping lost(const Value& index, const char* reason = "worker_failed") {
  return {{"candidate_index", index}, {"terminal_reason", reason}};
}
// The pool's error with the errors that it names.
ScriptedProcessError pool_error(const std::vector<Mapping>& named) {
  List errors;
  for (const Mapping& attributes : named)
    errors.append(error_object(ScriptedProcessError("named", attributes)));
  Mapping attributes = lost(0);
  attributes.set("terminal_errors", errors);
  return ScriptedProcessError("the pool", attributes);
}

// Exits ------------------------------------------------------------------------------------------

TEST_F(BatchTest, EmptyBatchAsksTheHostNothing) {
  EXPECT_TRUE(evaluate({}).empty());
  EXPECT_THAT(host.log.lines(), IsEmpty());
}

TEST_F(BatchTest, ASearchThatIsCalledOffBeginsNothing) {
  host.context.on_submission_cancelled = always(true);
  EXPECT_TRUE(evaluate().empty());
  EXPECT_THAT(host.log.lines(),
              ElementsAre("context.submission_cancelled()",
                          "ledger.finalize_all_open('process_evaluation_cancelled', None)"));
}

// Makes one step of the batch fail.
using Break = std::function<void(ScriptedHost&, const std::function<void()>&)>;
struct GuardedStep {
  const char* reason;
  Break break_step;
};

const GuardedStep kGuardedSteps[] = {
    {"found_pnl_prefetch_failed",
     [](ScriptedHost& host, const std::function<void()>& fail) {
       host.context.on_attribute = [fail](std::string_view name) -> std::optional<Value> {
         if (name == "_sync_mgr") fail();
         return std::nullopt;
       };
     }},
    {"process_capacity_resolution_failed",
     [](ScriptedHost& host, const std::function<void()>& fail) {
       host.process_evaluation.on_resolve_process_worker_count_details = [fail](const Value&,
                                                                                const Value&) {
         fail();
         return Value(1);
       };
     }},
    {"candidate_feature_prefetch_failed",
     [](ScriptedHost& host, const std::function<void()>& fail) {
       host.process_evaluation.on_prefetch_candidate_features = [fail](const List&) { fail(); };
     }},
    {"process_evaluation_aborted", [](ScriptedHost& host, const std::function<void()>& fail) {
       host.process_evaluation.on_evaluate_candidate_batch = [fail](const auto&, const auto&,
                                                                    const auto&) {
         fail();
         return std::vector<ScriptedResult>();
       };
     }}};

TEST_F(BatchTest, AGuardedStepClosesAndLeavesAsWhatCame) {
  for (const GuardedStep& step : kGuardedSteps) {
    host.log.clear();
    step.break_step(host, [] { throw ValueError("odd"); });
    EXPECT_EQ(error_of([this] { return evaluate(); }), "ValueError: odd") << step.reason;
    EXPECT_THAT(ends(), ElementsAre("('" + std::string(step.reason) + "', ValueError(odd))"));

    host.log.clear();
    step.break_step(host, [] { throw Interrupt{7}; });
    try {
      evaluate();
      FAIL() << "the interrupt must leave the batch";
    } catch (const Interrupt& interrupt) {
      EXPECT_EQ(interrupt.number, 7);
    }
    EXPECT_THAT(ends(),
                ElementsAre("('" + std::string(step.reason) + "', BaseException(interrupted))"));
    host.process_evaluation.on_resolve_process_worker_count_details = always(2);
    host.process_evaluation.on_prefetch_candidate_features = [](const List&) {};
    host.context.on_attribute = always(std::nullopt);
  }
}

TEST_F(BatchTest, WhatIsNotGuardedLeavesAsItStands) {
  host.process_contexts.on_simple_queue = [] { throw ValueError("no pipes"); };
  EXPECT_THROW(evaluate(), ValueError);
  host.process_contexts.on_simple_queue = [] {};
  host.search_settings.on_default_process_priority = failing(ValueError("no priority"));
  EXPECT_THROW(evaluate(), ValueError);
  EXPECT_THAT(ends(), IsEmpty());
}

struct PoolFailure {
  const char* reason;
  std::vector<Mapping> named;
  std::string detail;
  const char* recorded;
};

TEST_F(BatchTest, AnErrorOfThePoolThatIsNoCandidatesOwnLeaves) {
  const PoolFailure failures[] = {{"unsupported_process_evaluation_failure",
                                   {lost(0), lost(1, "odd")},
                                   "ProcessEvaluationError(named)",
                                   "a"},
                                  {"unmatched_process_evaluation_failure",
                                   {lost(0), lost(9)},
                                   "ProcessEvaluationError(named)",
                                   "a"},
                                  {"unmatched_process_evaluation_failure",
                                   {lost(Value())},
                                   "ProcessEvaluationError(named)",
                                   ""}};
  for (const PoolFailure& failure : failures) {
    host.log.clear();
    recorded.clear();
    on_passes({[&failure](const Pass& pass) -> std::vector<ScriptedResult> {
      pass.dispatch(0);
      throw pool_error(failure.named);
    }});
    EXPECT_THROW(evaluate(), ScriptedProcessError);
    EXPECT_THAT(ends(),
                ElementsAre("('" + std::string(failure.reason) + "', " + failure.detail + ")"));
    EXPECT_EQ(recorded, *failure.recorded == '\0' ? std::vector<std::string>()
                                                  : std::vector<std::string>{failure.recorded});
  }
}

TEST_F(BatchTest, AFatalErrorLeavesWhateverItNames) {
  for (const Mapping& named :
       {Mapping{{"terminal_reason", "process_priority_failed"}, {"candidate_index", 0}},
        Mapping{{"terminal_reason", "memory_budget_exceeded"}, {"candidate_index", 0}},
        Mapping{{"terminal_reason", "worker_failed"}}}) {
    host.log.clear();
    host.process_evaluation.on_evaluate_candidate_batch =
        failing(ScriptedProcessError("fatal", named));
    EXPECT_EQ(error_of([this] { return evaluate(); }), "ProcessEvaluationError: fatal");
    EXPECT_THAT(ends(),
                ElementsAre("('fatal_process_evaluation_failure', ProcessEvaluationError(fatal))"));
  }
}

TEST_F(BatchTest, WhatFailsInTheFailureProcedureLeavesTheRestOpen) {
  is_recording = false;
  on_passes({[](const Pass& pass) -> std::vector<ScriptedResult> {
    pass.dispatch(0);
    throw pool_error({lost(0)});
  }});
  EXPECT_EQ(error_of([this] { return evaluate(); }),
            "RuntimeError: genetic candidate parent evaluation persistence failed: "
            "candidate_index=0");
  EXPECT_THAT(ends(), IsEmpty());
}

// Results ----------------------------------------------------------------------------------------

TEST_F(BatchTest, ResultsAreRecordedAsTheyCompleteAndStandInOrder) {
  on_passes({[](const Pass& pass) {
    return std::vector<ScriptedResult>{pass.complete(1), pass.complete(0)};
  }});
  const List results = evaluate();
  EXPECT_EQ(names_of(results), "ab");
  EXPECT_THAT(recorded, ElementsAre("b", "a"));
  const Mapping first = results.at(0).mapping();
  EXPECT_EQ(first.at("source_attempt_id"), "attempt-2");
  EXPECT_EQ(first.at("_parent_recorded"), true);
  EXPECT_EQ(first.at("worker_pid"), 4321);
  EXPECT_THAT(ends(), ElementsAre(kResultMissing));
  EXPECT_EQ(host.log.count("tracker.finalize_simulation_attempt"), 0U);
}

TEST_F(BatchTest, AResultWithoutTheCallbackIsReturnedUnrecorded) {
  on_passes({[](const Pass& pass) {
               pass.dispatch(0);
               return std::vector<ScriptedResult>{pass.result(0)};
             },
             [](const Pass&) { return std::vector<ScriptedResult>(); }});
  const List results = evaluate();
  EXPECT_EQ(names_of(results), "a");
  EXPECT_FALSE(results.at(0).mapping().contains("_parent_recorded"));
  EXPECT_THAT(recorded, IsEmpty());
}

TEST_F(BatchTest, TheAttemptsOfAMissingResultAreClosed) {
  host.process_contexts.is_quiet = false;  // Its queues are to be had.
  on_passes({[this](const Pass& pass) {
    pass.dispatch(0);
    host.process_contexts.queues.at(0)->messages.push_back(Tuple{0, 0});
    host.process_contexts.queues.at(0)->has_reader = true;
    return std::vector<ScriptedResult>();
  }});
  EXPECT_TRUE(evaluate().empty());
  EXPECT_THAT(line_of("tracker.finalize_simulation_attempt("),
              AllOf(HasSubstr("'attempt-1'"), HasSubstr("failure_reason='process_result_missing'"),
                    HasSubstr("terminal_disposition='backtest_failed'")));
}

TEST_F(BatchTest, WhatIsLeftGoesIntoTheNextPass) {
  on_passes({[](const Pass& pass) { return std::vector<ScriptedResult>{pass.complete(1)}; },
             [](const Pass& pass) {
               EXPECT_EQ(pass.candidates.size(), 1U);
               return std::vector<ScriptedResult>{pass.complete(0)};
             }});
  EXPECT_EQ(names_of(evaluate()), "ab");
}

TEST_F(BatchTest, AnEmptyAnswerEndsTheBatchAndLeavesNoGap) {
  on_passes({[](const Pass& pass) { return std::vector<ScriptedResult>{pass.complete(1)}; },
             [](const Pass&) { return std::vector<ScriptedResult>(); }});
  EXPECT_EQ(names_of(evaluate()), "b");
}

TEST_F(BatchTest, TheLastResultOfAnIndexCountsAndAStrayOneIsDropped) {
  host.process_evaluation.on_resolve_process_worker_count_details = always(4);
  const auto unstreamed = [](const Value& index, const char* name) {
    return ScriptedResult{index, Mapping{{"graph", Mapping{{"node", name}}}}, 1, 0.0, 1};
  };
  on_passes({[&unstreamed](const Pass&) {
               return std::vector<ScriptedResult>{unstreamed(3, "d"), unstreamed(0, "a"),
                                                  unstreamed(7, "stray"), unstreamed(1, "b"),
                                                  unstreamed(1.0, "B")};
             },
             [](const Pass&) { return std::vector<ScriptedResult>(); }});
  EXPECT_EQ(names_of(evaluate({"a", "b", "c", "d"})), "aBd");
}

TEST_F(BatchTest, ASearchCalledOffBetweenPassesKeepsWhatThereIs) {
  on_passes({[this](const Pass& pass) {
    host.context.on_submission_cancelled = always(true);
    return std::vector<ScriptedResult>{pass.complete(0)};
  }});
  EXPECT_EQ(names_of(evaluate()), "a");
  EXPECT_THAT(ends(), ElementsAre(kResultMissing));
}

TEST_F(BatchTest, ChunksAreNoLargerThanTheWorkers) {
  std::vector<std::size_t> sizes;
  const Play play = [&sizes](const Pass& pass) {
    sizes.push_back(pass.candidates.size());
    std::vector<ScriptedResult> results;
    for (const ScriptedCandidate& candidate : pass.candidates)
      results.push_back(pass.complete(candidate.candidate_index));
    return results;
  };
  on_passes({play, play, play});
  EXPECT_EQ(names_of(evaluate({"a", "b", "c", "d", "e"})), "abcde");
  EXPECT_THAT(sizes, ElementsAre(2U, 2U, 1U));
  EXPECT_THAT(host.log.lines(),
              Contains("process_evaluation.prefetch_candidate_features([{'node': 'e'}])"));
}

// What the pool is given -------------------------------------------------------------------------

TEST_F(BatchTest, TheConfigurationIsReadInOrder) {
  attributes.set("_process_priority", 3);
  attributes.set("_worker_processes", "two");
  on_passes({[](const Pass& pass) {
    const ProcessEvaluationConfig& config = pass.config;
    EXPECT_EQ(config.n_jobs, 2);
    EXPECT_EQ(config.max_retries, 1);
    EXPECT_EQ(config.timeout_seconds, 0);
    EXPECT_EQ(config.process_priority, 3);
    EXPECT_EQ(config.worker_memory_limit_bytes, 1 << 30);
    EXPECT_EQ(config.worker_processes, "two");
    EXPECT_TRUE(config.drain_terminal_timeouts);
    EXPECT_EQ(config.stop_requested({}), false);
    config.parent_poll_callback({});
    return std::vector<ScriptedResult>();
  }});
  evaluate({"a", "b"}, 0);
  EXPECT_EQ(host.log.count("process_evaluation.default_search_template_timeout_seconds"), 0U);
  EXPECT_EQ(host.log.count("search_settings.default_process_priority"), 1U);
}

TEST_F(BatchTest, OnlyAnAbsentTimeOutIsTheHostsDefault) {
  on_passes({[](const Pass& pass) {
    EXPECT_EQ(pass.config.timeout_seconds, 600.0);
    return std::vector<ScriptedResult>();
  }});
  evaluate({"a"}, Value());
}

TEST_F(BatchTest, TheSimulationRunsUnderGuards) {
  host.context.on_evaluate_for_template = always(scripted_callable(
      host.log, "evaluate", [](const auto&, const Mapping&) { return Value(Mapping()); }));
  on_passes({[](const Pass& pass) {
    pass.dispatch(0);
    EXPECT_EQ(repr(pass.simulate(pass.candidates[0]).mapping().at("graph")), "{'node': 'a'}");
    return std::vector<ScriptedResult>();
  }});
  evaluate({"a"});
  EXPECT_THAT(host.log.lines(), Contains("context_operations.set('_safe_record')"));
  EXPECT_THAT(host.log.lines(), Contains("context_operations.delete('_safe_record')"));
}

TEST_F(BatchTest, SubmissionIsStreamedForOneCandidateOrManyJobs) {
  const auto jobs_read = [this](std::size_t size, const Value& jobs) {
    host.log.clear();
    host.context.on_n_jobs = always(jobs);
    on_passes({[](const Pass&) { return std::vector<ScriptedResult>(); }});
    evaluate(std::vector<std::string>(size, "a"));
    return host.log.count("context.n_jobs");
  };
  // A batch of one does not ask for the jobs to tell.
  EXPECT_EQ(jobs_read(2, 2), jobs_read(1, 2) + 1);
  EXPECT_EQ(jobs_read(2, 1), jobs_read(1, 1) + 1);
}

// Isolated failures ------------------------------------------------------------------------------

TEST_F(BatchTest, ALostWorkerIsItsCandidatesFailure) {
  on_passes({[](const Pass& pass) -> std::vector<ScriptedResult> {
               pass.dispatch(0);
               static_cast<void>(pass.complete(1));
               throw pool_error({lost(0)});
             },
             [](const Pass& pass) { return std::vector<ScriptedResult>{pass.complete(2)}; }});
  const List results = evaluate({"a", "b", "c"});
  EXPECT_EQ(failures_of(results), "worker_failed low low");
  EXPECT_THAT(recorded, ElementsAre("b", "a", "c"));
  const Mapping failed = results.at(0).mapping();
  EXPECT_FALSE(failed.contains("source_attempt_id"));
  EXPECT_THAT(repr(failed.at("attempt_evidence")),
              HasSubstr("'terminal_disposition_override': 'resource_blocked'"));
  EXPECT_THAT(host.log.names(), Not(Contains("enqueue")));
}

TEST_F(BatchTest, AnErrorWithoutOthersStandsForItself) {
  host.process_evaluation.on_evaluate_candidate_batch =
      [calls = 0](const auto&, const auto&, const auto&) mutable -> std::vector<ScriptedResult> {
    if (++calls == 1) throw ScriptedProcessError("alone", lost(1, "worker_timeout"));
    return {};
  };
  const List results = evaluate();
  EXPECT_EQ(failures_of(results), "worker_timeout");
  EXPECT_EQ(names_of(results), "b");
}

// Every candidate of three has come through or not and is named once, twice or not at all: whatever
// the mix, each is recorded once, a failure only for one that has not come through.
TEST_F(BatchTest, EveryMixOfResultsAndErrorsRecordsEachCandidateOnce) {
  constexpr int kFates = 6;  // Streamed or not, named 0, 1 or 2 times.
  for (int mix = 0; mix < kFates * kFates * kFates; ++mix) {
    const int fates[] = {mix % kFates, mix / kFates % kFates, mix / kFates / kFates};
    const auto is_streamed = [&fates](std::int64_t index) { return fates[index] % 2 == 1; };
    std::vector<Mapping> named;
    for (int round = 0; round < 2; ++round)
      for (std::int64_t index = 2; index >= 0; --index)
        if (fates[index] / 2 > round) named.push_back(lost(index));
    if (named.empty()) continue;

    host.log.clear();
    recorded.clear();
    host.process_evaluation.on_resolve_process_worker_count_details = always(3);
    on_passes({[&](const Pass& pass) -> std::vector<ScriptedResult> {
                 for (std::int64_t index = 0; index < 3; ++index) {
                   if (is_streamed(index)) {
                     static_cast<void>(pass.complete(index));
                   } else {
                     pass.dispatch(index);
                   }
                 }
                 throw pool_error(named);
               },
               [](const Pass&) { return std::vector<ScriptedResult>(); }});
    const List results = evaluate({"a", "b", "c"});
    std::string expected;
    for (std::int64_t index = 0; index < 3; ++index) {
      const bool has_failed = !is_streamed(index) && fates[index] >= 2;
      if (is_streamed(index) || has_failed) {
        expected +=
            (expected.empty() ? "" : " ") + std::string(has_failed ? "worker_failed" : "low");
      }
    }
    EXPECT_EQ(failures_of(results), expected) << "mix " << mix;
    EXPECT_EQ(recorded.size(), results.size()) << "mix " << mix;
    EXPECT_THAT(ends(), ElementsAre(kResultMissing)) << "mix " << mix;
  }
}

// The record of a process result ------------------------------------------------------------------

}  // namespace
}  // namespace varnholt::genetic::test
