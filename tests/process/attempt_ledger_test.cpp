// Goal: the pool's events become exactly the changes of an attempt's state, and the calls of the
// host, that they stand for; each attempt with a row ends once. Method: good, odd and bad events
// one by one, with the states and the host's log beside them.
#include "search_templates/genetic/process/attempt_ledger.hpp"

#include <array>
#include <stdexcept>

#include "search_templates/genetic/value/errors.hpp"
#include "tests/process/ledger_fixture.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using AttemptLedgerTest = LedgerTest;

template <typename Action>
std::string failure(const Action& action) {
  return error_of([&action] { return action(), 0; });
}

// States.

TEST(NewAttemptState, HasTheseKeysInThisOrder) {
  EXPECT_EQ(repr(new_attempt_state()),
            "{'attempt_id': None, 'dispatched': False, 'worker_started': False, "
            "'backtest_started': False, 'finalized': False, 'failure_reason': None, "
            "'failure_detail': None, 'marker_attempt_id': None}");
  EXPECT_FALSE(same_object(new_attempt_state(), new_attempt_state()));
}

TEST_F(AttemptLedgerTest, QueuesAreMadeOnce) {
  EXPECT_EQ(host.process_contexts.queues.size(), 3U);
  ledger.prepare_for_processes();
  EXPECT_THAT(host.log.lines(), IsEmpty());
  EXPECT_EQ(ledger.backtest_boundary_queue(), host.process_contexts.queues[0]);
  EXPECT_EQ(ledger.backtest_acknowledgement_queues()->at(1), host.process_contexts.queues[2]);
}

TEST_F(AttemptLedgerTest, AQueueThatCannotBeMadeLeavesTheFirst) {
  OwnLedgerRecords fresh(host.context, List{Value(Tuple{0, "graph"})});
  ProcessAttemptLedger other(host.bundle(), fresh);
  EXPECT_EQ(other.backtest_boundary_queue(), nullptr);
  host.process_contexts.on_simple_queue = [count = 0]() mutable {
    if (++count == 2) throw std::runtime_error("no descriptor");
  };
  EXPECT_EQ(failure([&] { other.prepare_for_processes(); }), "std::exception: no descriptor");
  EXPECT_NE(other.backtest_boundary_queue(), nullptr);
  EXPECT_EQ(other.backtest_acknowledgement_queues(), nullptr);
}

// Dispatching.

TEST_F(AttemptLedgerTest, ADispatchIsTakenDown) {
  const Mapping event = dispatch("1", 0.5);
  ledger.pre_dispatch(event);
  EXPECT_EQ(set_in(state(1, 0)), "dispatched");
  EXPECT_EQ(records.current_attempt(), (Mapping{{1, 0}}));
  EXPECT_EQ(*attribute(event.at(keys::kCandidate), "metadata"),
            Value(Mapping{{"process_attempt", 0}}));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(AttemptLedgerTest, ASecondDispatchFails) {
  ledger.pre_dispatch(dispatch());
  const Mapping event = dispatch();
  EXPECT_EQ(failure([&] { ledger.pre_dispatch(event); }),
            "RuntimeError: process attempt was dispatched more than once");
  EXPECT_EQ(*attribute(event.at(keys::kCandidate), "metadata"), Value(Mapping()));
}

TEST_F(AttemptLedgerTest, TheAttemptBeforeEndsWithItsFailure) {
  started();
  Mapping failed = happened("error");
  failed.set(keys::kFailureReason, "worker_timeout");
  failed.set(keys::kError, "late");
  ledger.lifecycle(failed);
  ledger.pre_dispatch(dispatch(0, 1));
  EXPECT_THAT(calls(), ElementsAre("context.submission_cancelled",
                                   "evaluation_verdicts.not_evaluated_verdict",
                                   "accounting.build_column_inventory", "accounting.json_ready",
                                   "tracker.finalize_simulation_attempt"));
  EXPECT_THAT(host.log.lines().back(),
              HasSubstr("failure_reason='worker_timeout', failure_detail='late'"));
  EXPECT_EQ(records.current_attempt(), (Mapping{{0, 1}}));
  EXPECT_TRUE(truth(state(0, 0).at(keys::kFinalized)));
}

TEST_F(AttemptLedgerTest, TheAttemptBeforeThatNeverFailedWasRetried) {
  for (const Value& none : {Value(), Value(""), Value(0)}) {
    Mapping before = new_attempt_state();
    before.set(keys::kAttemptId, "id");
    before.set(keys::kFailureReason, none);
    records.states().set(Tuple{0, 0}, before);
    records.states().erase(Tuple{0, 1});
    ledger.pre_dispatch(dispatch(0, 1));
    EXPECT_THAT(host.log.lines().back(),
                HasSubstr("failure_reason='process_attempt_retried', failure_detail=None"));
  }
}

TEST_F(AttemptLedgerTest, TheAttemptBeforeEndsEvenWhenThisOneIsRefused) {
  started();
  Mapping next = new_attempt_state();
  next.set(keys::kDispatched, true);
  records.states().set(Tuple{0, 1}, next);
  EXPECT_THAT(failure([&] { ledger.pre_dispatch(dispatch(0, 1)); }), HasSubstr("more than once"));
  EXPECT_TRUE(truth(state().at(keys::kFinalized)));
}

TEST_F(AttemptLedgerTest, AnAttemptNeedsTheOneBeforeIt) {
  EXPECT_EQ(failure([&] { ledger.pre_dispatch(dispatch(0, 2)); }), "KeyError: (0, 1)");
  EXPECT_TRUE(records.states().empty());
  ledger.pre_dispatch(dispatch(0, -1));
  ledger.pre_dispatch(dispatch(0, 0));
  EXPECT_EQ(set_in(state(0, -1)), "dispatched") << "0 has no predecessor";
}

TEST_F(AttemptLedgerTest, AnAttemptBeyond64BitsHasNoPredecessor) {
  const Value huge = to_integer("36893488147419103232");
  EXPECT_THAT(failure([&] { ledger.pre_dispatch(dispatch(0, huge)); }), HasSubstr("KeyError"));
}

TEST_F(AttemptLedgerTest, ADispatchNeedsAllItsKeys) {
  for (const Key name : {keys::kCandidateIndex, keys::kAttempt, keys::kCandidate}) {
    Mapping event = dispatch();
    event.erase(name);
    EXPECT_EQ(failure([&] { ledger.pre_dispatch(event); }),
              "KeyError: '" + std::string(name.view()) + "'");
  }
  EXPECT_EQ(set_in(state()), "");
  EXPECT_TRUE(records.current_attempt().empty());
  EXPECT_EQ(failure([&] { ledger.pre_dispatch(Value()); }),
            "TypeError: 'NoneType' object is not subscriptable");
}

TEST_F(AttemptLedgerTest, AnItemWithoutMetadata) {
  Mapping event = dispatch();
  event.set(keys::kCandidate, scripted_object(Mapping(), nullptr, "Item"));
  EXPECT_EQ(failure([&] { ledger.pre_dispatch(event); }),
            "AttributeError: 'Item' object has no attribute 'metadata'");
  EXPECT_EQ(set_in(state()), "");
  event.set(keys::kCandidate, scripted_object(Mapping{{"metadata", 5}}));
  EXPECT_EQ(failure([&] { ledger.pre_dispatch(event); }),
            "TypeError: 'int' object does not support item assignment");
}

// Lifecycle.

TEST_F(AttemptLedgerTest, AWorkerThatStarted) {
  ledger.pre_dispatch(dispatch());
  ledger.lifecycle(happened("started", "0", 0.0));
  EXPECT_EQ(set_in(state()), "dispatched worker_started");
  ledger.lifecycle(Mapping{{keys::kEvent, "ok"}});  // Needs no attempt.
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(AttemptLedgerTest, AnUnknownEventFailsInOneAndIsIgnoredInTheOther) {
  for (const Value& name : {Value(), Value("queued"), Value("OK"), Value(5)}) {
    EXPECT_EQ(failure([&] {
                ledger.lifecycle(Mapping{{keys::kEvent, name}});
              }),
              "RuntimeError: unknown process attempt lifecycle event: " + repr(name));
    ledger.progress(Mapping{{keys::kEvent, name}});
  }
  EXPECT_EQ(failure([&] { ledger.lifecycle(Mapping()); }),
            "RuntimeError: unknown process attempt lifecycle event: None");
  EXPECT_EQ(failure([&] { ledger.lifecycle(Value()); }),
            "AttributeError: 'NoneType' object has no attribute 'get'");
}

TEST_F(AttemptLedgerTest, AnEventOfAnUnknownAttemptIsALookupFailure) {
  EXPECT_EQ(failure([&] { ledger.lifecycle(happened("error", 1, 5)); }), "KeyError: (1, 5)");
  EXPECT_EQ(failure([&] { ledger.progress(happened("ok", 1, 5)); }), "KeyError: (1, 5)");
  EXPECT_EQ(failure([&] {
              ledger.progress(Mapping{{keys::kEvent, "ok"}});
            }),
            "KeyError: 'candidate_index'");
}

TEST_F(AttemptLedgerTest, TheFirstFailureIsKept) {
  Mapping attempt = started();
  Mapping failed = happened("error");
  failed.set(keys::kError, "first");
  ledger.lifecycle(failed);
  EXPECT_EQ(attempt.at(keys::kFailureReason), Value("process_child_exception"));
  failed.set(keys::kError, "second");
  ledger.lifecycle(failed);
  EXPECT_EQ(attempt.at(keys::kFailureDetail), Value("first"));
  failed.set(keys::kFailureReason, "worker_timeout");
  EXPECT_EQ(failure([&] { ledger.lifecycle(failed); }),
            "RuntimeError: process attempt received conflicting lifecycle failure reasons: "
            "'process_child_exception' then 'worker_timeout'");
  EXPECT_FALSE(truth(attempt.at(keys::kFinalized)));
}

TEST_F(AttemptLedgerTest, AnAbsentFirstDetailStaysAbsent) {
  const Mapping attempt = started();
  ledger.lifecycle(happened("error"));
  Mapping failed = happened("error");
  failed.set(keys::kError, "second");
  ledger.lifecycle(failed);
  EXPECT_TRUE(attempt.at(keys::kFailureDetail).is_absent());
}

TEST_F(AttemptLedgerTest, AnUnknownReasonFails) {
  const Mapping attempt = started();
  for (const Value& reason : {Value(), Value(""), Value("worker_failed"), Value(5)}) {
    Mapping failed = happened("error");
    failed.set(keys::kFailureReason, reason);
    EXPECT_EQ(failure([&] { ledger.lifecycle(failed); }),
              "RuntimeError: unknown process attempt lifecycle failure reason: " + repr(reason));
  }
  EXPECT_TRUE(attempt.at(keys::kFailureReason).is_absent());
  // The host's own word for a time-out counts.
  host.process_evaluation.on_terminal_worker_timeout = always("late");
  Mapping failed = happened("error");
  failed.set(keys::kFailureReason, "worker_timeout");
  EXPECT_THAT(failure([&] { ledger.lifecycle(failed); }), HasSubstr("unknown"));
  failed.set(keys::kFailureReason, "late");
  ledger.lifecycle(failed);
  EXPECT_EQ(attempt.at(keys::kFailureReason), Value("late"));
}

TEST_F(AttemptLedgerTest, ARetriedAttemptEnds) {
  const Mapping attempt = started();
  Mapping failed = happened("error");
  failed.set(keys::kError, "why");
  failed.set(keys::kRetrying, 1);
  ledger.lifecycle(failed);
  EXPECT_TRUE(truth(attempt.at(keys::kFinalized)));
  const std::string end = line_of("tracker.finalize_simulation_attempt");
  EXPECT_THAT(end, HasSubstr("('attempt-1', terminal_disposition='backtest_failed'"));
  EXPECT_THAT(end, HasSubstr("failure_reason='process_child_exception', failure_detail='why'"));
  host.log.clear();
  ledger.pre_dispatch(dispatch(0, 1));
  ledger.finalize_all_open("late", Value());
  EXPECT_THAT(calls(), IsEmpty()) << "nothing is ended twice";
}

TEST_F(AttemptLedgerTest, AnAttemptThatIsNotRetriedStaysOpen) {
  const Mapping attempt = started();
  for (const Value& retrying : {Value(), Value(false), Value(0)}) {
    Mapping failed = happened("error");
    failed.set(keys::kRetrying, retrying);
    ledger.lifecycle(failed);
    EXPECT_FALSE(truth(attempt.at(keys::kFinalized)));
  }
  ledger.finalize_all_open("batch_over", "detail");
  EXPECT_THAT(line_of("tracker.finalize_simulation_attempt"),
              HasSubstr("failure_reason='batch_over', failure_detail='detail'"));
}

// Markers.

TEST_F(AttemptLedgerTest, AMarkerIsOpenedAndClosed) {
  ledger.pre_dispatch(dispatch());
  Mapping began = happened("started");
  began.set(keys::kCandidate, work_item("shown"));
  ledger.progress(began);
  EXPECT_EQ(line_of("markers.write_evaluation_attempt_marker"),
            "markers.write_evaluation_attempt_marker('the tracker', 'shown', 'universe', "
            "{'m': 1}, 'evaluate_expression')");
  EXPECT_EQ(state().at(keys::kMarkerAttemptId), Value("marker-1"));
  host.log.clear();
  ledger.progress(happened("ok"));
  EXPECT_THAT(host.log.lines(),
              ElementsAre("queue-0.poll()", "markers.clear_evaluation_attempt_marker",
                          "context.attribute('_tracker')",
                          "markers.clear_evaluation_attempt_marker('the tracker', 'marker-1')"));
  EXPECT_TRUE(state().at(keys::kMarkerAttemptId).is_absent());
  host.log.clear();
  ledger.progress(happened("error"));
  EXPECT_THAT(calls(), IsEmpty()) << "a closed marker is not closed again";
}

TEST_F(AttemptLedgerTest, ASecondStartOverwritesAnOpenMarker) {
  ledger.pre_dispatch(dispatch());
  Mapping began = happened("started");
  began.set(keys::kCandidate, work_item());
  ledger.progress(began);
  ledger.progress(began);
  EXPECT_EQ(state().at(keys::kMarkerAttemptId), Value("marker-2"));
  EXPECT_THAT(calls(), ElementsAre("markers.write_evaluation_attempt_marker",
                                   "markers.write_evaluation_attempt_marker"));
  host.attempt_markers.on_write_evaluation_attempt_marker = always(Value());
  ledger.progress(began);
  EXPECT_EQ(state().at(keys::kMarkerAttemptId), Value("marker-2")) << "none leaves the one before";
}

TEST_F(AttemptLedgerTest, AMarkerWhoseClosingFailedStaysOpen) {
  Mapping attempt = started();
  attempt.set(keys::kMarkerAttemptId, 0);  // A false identity is one.
  host.attempt_markers.on_clear_evaluation_attempt_marker = [] {
    throw std::runtime_error("busy");
  };
  EXPECT_EQ(failure([&] { ledger.finalize_all_open("over", Value()); }), "std::exception: busy");
  EXPECT_EQ(attempt.at(keys::kMarkerAttemptId), Value(0));
  EXPECT_TRUE(truth(attempt.at(keys::kFinalized))) << "the attempt has its end";
  host.attempt_markers.on_clear_evaluation_attempt_marker = [] {};
  host.log.clear();
  ledger.finalize_all_open("again", Value());
  EXPECT_THAT(calls(), ElementsAre("markers.clear_evaluation_attempt_marker"));
  EXPECT_TRUE(attempt.at(keys::kMarkerAttemptId).is_absent());
}

// Ends.

TEST_F(AttemptLedgerTest, TheRecorderHasEndedTheAttempt) {
  const Mapping first = started(0);
  Mapping second = started(1);
  second.set(keys::kMarkerAttemptId, "m");
  ledger.mark_parent_finalized("0");
  EXPECT_THAT(host.log.lines(), IsEmpty()) << "the children are not answered here";
  ledger.acknowledge_parent_persistence_failure(1);
  EXPECT_THAT(calls(), ElementsAre("markers.clear_evaluation_attempt_marker"));
  EXPECT_TRUE(truth(first.at(keys::kFinalized)) && truth(second.at(keys::kFinalized)));
  host.log.clear();
  ledger.finalize_all_open("over", Value());
  EXPECT_THAT(calls(), IsEmpty());
  ledger.mark_parent_finalized(5);  // A candidate without an attempt.
}

TEST_F(AttemptLedgerTest, AllOpenAttemptsEndInTheOrderOfDispatch) {
  started(1);
  ledger.pre_dispatch(dispatch(0));  // No row: its end is no call.
  started(1, 1);
  started(0, 1);
  ledger.finalize_all_open("over", Value());
  std::vector<std::string> ended;
  for (const std::string& line : host.log.lines())
    if (line.starts_with("tracker.finalize_simulation_attempt("))
      ended.push_back(line.substr(line.find('\''), 11));
  EXPECT_THAT(ended, ElementsAre("'attempt-2'", "'attempt-3'"));
  // Asked once for each open attempt with a row, and for no other.
  EXPECT_EQ(host.log.count("context.submission_cancelled"), 2U);
  for (const auto& [index, attempt] : {std::pair(1, 0), {0, 0}, {1, 1}, {0, 1}})
    EXPECT_TRUE(truth(state(index, attempt).at(keys::kFinalized)));
}

TEST_F(AttemptLedgerTest, ALedgerWithoutAttemptsHasNothingToEnd) {
  ledger.finalize_all_open("over", Value());
  EXPECT_THAT(host.log.lines(), ElementsAre("queue-0.poll()"));
}

TEST_F(AttemptLedgerTest, ACancelledRunSaysSo) {
  started();
  host.context.on_submission_cancelled = always(true);
  ledger.finalize_all_open("process_result_missing", Value());
  const std::string end = line_of("tracker.finalize_simulation_attempt");
  EXPECT_THAT(end, HasSubstr("terminal_disposition='cancelled'"));
  EXPECT_THAT(end, HasSubstr("failure_reason='search_stopped'"));
  EXPECT_THAT(end, HasSubstr("'reason': 'process_result_missing'"));
}

TEST_F(AttemptLedgerTest, AnEndThatFailedIsAskedForAgain) {
  const Mapping attempt = started();
  host.tracker.on_finalize_simulation_attempt = failing(std::runtime_error("disk"));
  EXPECT_EQ(failure([&] { ledger.finalize_all_open("over", Value()); }), "std::exception: disk");
  EXPECT_FALSE(truth(attempt.at(keys::kFinalized)));
  host.tracker.on_finalize_simulation_attempt = [](const Value&, const AttemptEnd&) {};
  host.log.clear();
  ledger.finalize_all_open("again", Value());
  EXPECT_THAT(line_of("tracker.finalize_simulation_attempt"), HasSubstr("'again'"));
  EXPECT_TRUE(truth(attempt.at(keys::kFinalized)));
}

TEST_F(AttemptLedgerTest, StatesThatGrowUnderTheWalk) {
  started();
  host.tracker.on_finalize_simulation_attempt = [this](const Value&, const AttemptEnd&) {
    records.states().set(Tuple{9, 9}, new_attempt_state());
  };
  EXPECT_EQ(failure([&] { ledger.finalize_all_open("over", Value()); }),
            "RuntimeError: dictionary changed size during iteration");
}

// A part that a host has put its own in the place of counts for all operations.
class NotingLedger : public ProcessAttemptLedger {
 public:
  using ProcessAttemptLedger::ProcessAttemptLedger;

  std::string notes;

  void drain_backtest_boundaries() override { notes += " drain"; }
  void clear_marker(const Value& /*state*/) override { notes += " clear"; }
  void mark_parent_finalized(const Value& candidate_index) override {
    notes += " mark";
    ProcessAttemptLedger::mark_parent_finalized(candidate_index);
  }
  Value start_backtest_attempt(const Value& candidate_index, const Value& attempt_number) override {
    notes += " start(" + repr(candidate_index) + ", " + repr(attempt_number) + ")";
    return {};
  }
  void finalize_state(const Value& state, const Value& reason, const Value& detail) override {
    notes += " finalize(" + repr(reason) + ", " + repr(detail) + ")";
    ProcessAttemptLedger::finalize_state(state, reason, detail);
  }
};

TEST_F(AttemptLedgerTest, EveryPartCanBeReplaced) {
  NotingLedger noting(host.bundle(), records);
  noting.pre_dispatch(dispatch());
  noting.apply_child_evidence("0", Mapping{{keys::kBacktestStarted, true}});
  noting.acknowledge_parent_persistence_failure(0);
  noting.finalize_all_open("over", "d");
  EXPECT_EQ(noting.notes,
            " drain drain start('0', 0) mark clear drain finalize('over', 'd') clear");
  EXPECT_THAT(host.log.names(), Not(testing::Contains("tracker.create_simulation_attempt")));
}

}  // namespace
}  // namespace varnholt::genetic::test
