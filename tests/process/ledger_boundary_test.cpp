// Goal: an attempt's row is there, and marked, before its child is let into the backtest; a signal
// that has an address is answered once, also when the tracker fails; evidence and signals agree.
// Method: queues without processes, whose every message is seen, and a tracker that fails at a call
// of choice.
#include <array>
#include <functional>
#include <map>
#include <stdexcept>

#include "search_templates/genetic/value/errors.hpp"
#include "tests/process/ledger_fixture.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using LedgerBoundary = LedgerTest;

template <typename Action>
std::string failure(const Action& action) {
  return error_of([&action] { return action(), 0; });
}

// What no handler of ordinary errors sees.
struct Interrupt {};

TEST_F(LedgerBoundary, ASignalMakesTheRowAndIsAnswered) {
  ledger.pre_dispatch(dispatch(1));
  signal(1, 0);
  host.log.clear();
  ledger.poll_backtest_boundaries();
  EXPECT_THAT(
      calls(),
      ElementsAre("queue-0.get", "markers.attempt_declared_data_shape",
                  "tracker.create_simulation_attempt", "tracker.mark_simulation_attempt_dispatched",
                  "tracker.mark_simulation_attempt_backtest_started", "queue-2.put"));
  EXPECT_THAT(line_of("tracker.create_simulation_attempt"), HasSubstr("graph='graph b'"));
  EXPECT_EQ(answers(1), "(1, 0, True, None, 'attempt-1')");
  EXPECT_EQ(answers(0), "");
  EXPECT_EQ(set_in(state(1, 0)), "attempt_id dispatched backtest_started");
}

TEST_F(LedgerBoundary, ASecondSignalGetsTheSameIdentity) {
  started();
  signal(0, 0);
  signal(0, 0);
  ledger.poll_backtest_boundaries();
  const std::string answer = "(0, 0, True, None, 'attempt-1')";
  EXPECT_EQ(answers(), answer + " " + answer + " " + answer);
  EXPECT_EQ(host.log.count("tracker.create_simulation_attempt"), 0U);
}

TEST_F(LedgerBoundary, AnAnswerNamesWhatWasSignalled) {
  ledger.pre_dispatch(dispatch());
  signal("0", 0.25);
  ledger.poll_backtest_boundaries();
  EXPECT_EQ(answers(), "('0', 0.25, True, None, 'attempt-1')");
}

TEST_F(LedgerBoundary, SignalsAreAnsweredInTheirOrder) {
  ledger.pre_dispatch(dispatch(0));
  ledger.pre_dispatch(dispatch(1));
  signal(1, 0);
  signal(0, 0);
  ledger.poll_backtest_boundaries();
  EXPECT_EQ(answers(1), "(1, 0, True, None, 'attempt-1')");
  EXPECT_EQ(answers(0), "(0, 0, True, None, 'attempt-2')");
}

TEST_F(LedgerBoundary, AFinalizedAttemptIsRefused) {
  ledger.pre_dispatch(dispatch());
  ledger.mark_parent_finalized(0);
  signal(0, 0);
  EXPECT_EQ(failure([&] { ledger.poll_backtest_boundaries(); }), kCrossed);
  EXPECT_EQ(answers(), std::string("(0, 0, False, '") + kCrossed + "', None)");
  EXPECT_EQ(host.log.count("tracker.create_simulation_attempt"), 0U);
}

TEST_F(LedgerBoundary, AStartedAttemptThatWasFinalizedIsLetIn) {
  started();
  ledger.finalize_all_open("over", Value());
  signal(0, 0);
  ledger.poll_backtest_boundaries();
  EXPECT_THAT(answers(), HasSubstr(") (0, 0, True, None, 'attempt-1')"));
}

TEST_F(LedgerBoundary, AnUnknownAttemptIsRefused) {
  signal(0, 3);
  EXPECT_EQ(failure([&] { ledger.poll_backtest_boundaries(); }), "KeyError: (0, 3)");
  EXPECT_EQ(answers(), "(0, 3, False, 'KeyError: (0, 3)', None)");
}

TEST_F(LedgerBoundary, ASignalWithoutAnAddressHasNoAnswer) {
  ledger.pre_dispatch(dispatch());
  const std::array<std::pair<Value, std::string>, 5> signals = {
      {{Tuple{7, 0}, "KeyError: 7"},
       {Tuple{0}, "ValueError: not enough values to unpack (expected 2, got 1)"},
       {Tuple{0, 0, 0}, "ValueError: too many values to unpack (expected 2)"},
       {5, "TypeError: cannot unpack non-iterable int object"},
       {Tuple{"x", 0}, "ValueError: invalid literal for int() with base 10: 'x'"}}};
  for (const auto& [message, error] : signals) {
    signal(message);
    EXPECT_EQ(failure([&] { ledger.poll_backtest_boundaries(); }), error);
  }
  EXPECT_EQ(answers(0) + answers(1), "");
}

TEST_F(LedgerBoundary, AFailingStartReleasesTheChildFirst) {
  const auto fail = [] { throw std::runtime_error("disk"); };
  const std::array<std::function<void()>, 4> faults = {
      [&] {
        host.attempt_markers.on_attempt_declared_data_shape = failing(std::runtime_error("disk"));
      },
      [&] { host.tracker.on_create_simulation_attempt = failing(std::runtime_error("disk")); },
      [&] { host.tracker.on_mark_simulation_attempt_dispatched = fail; },
      [&] { host.tracker.on_mark_simulation_attempt_backtest_started = fail; }};
  // Each fault comes before the one that was set earlier.
  for (std::size_t place = faults.size(); place-- > 0;) {
    faults.at(place)();
    records.states().set(Tuple{0, 0}, new_attempt_state());
    records.states().at(Tuple{0, 0}).mapping().set(keys::kDispatched, true);
    host.process_contexts.queues[1]->messages.clear();
    signal(0, 0);
    host.log.clear();
    EXPECT_EQ(failure([&] { ledger.poll_backtest_boundaries(); }), "std::exception: disk");
    EXPECT_EQ(answers(), "(0, 0, False, 'Exception: disk', None)");
    const bool has_row = place >= 2;
    EXPECT_EQ(set_in(state()), has_row ? "attempt_id dispatched" : "dispatched") << place;
    ledger.finalize_all_open("over", Value());
    EXPECT_EQ(line_of("tracker.finalize_simulation_attempt").empty(), !has_row);
    if (has_row) {
      EXPECT_THAT(line_of("tracker.finalize_simulation_attempt"), HasSubstr("'resource_blocked'"));
    }
  }
}

TEST_F(LedgerBoundary, ASecondSignalAfterAFailedMarkMakesASecondRow) {
  ledger.pre_dispatch(dispatch());
  host.tracker.on_mark_simulation_attempt_backtest_started = [] {
    throw std::runtime_error("disk");
  };
  signal(0, 0);
  EXPECT_EQ(failure([&] { ledger.poll_backtest_boundaries(); }), "std::exception: disk");
  host.tracker.on_mark_simulation_attempt_backtest_started = [] {};
  signal(0, 0);
  ledger.poll_backtest_boundaries();
  ledger.finalize_all_open("over", Value());
  // The first row is never ended: its identity is forgotten, on purpose.
  EXPECT_THAT(line_of("tracker.finalize_simulation_attempt"), HasSubstr("'attempt-2'"));
}

TEST_F(LedgerBoundary, AnInterruptLeavesTheChildWithoutAnAnswer) {
  host.tracker.on_create_simulation_attempt = failing(Interrupt());
  ledger.pre_dispatch(dispatch());
  signal(0, 0);
  EXPECT_THROW(ledger.poll_backtest_boundaries(), Interrupt);
  EXPECT_EQ(answers(), "");
}

TEST_F(LedgerBoundary, TheErrorIsShownWhileTheChildIsAnswered) {
  host.context.on_handling = logged_handling(host.log);
  host.tracker.on_create_simulation_attempt = failing(ValueError("bad"));
  ledger.pre_dispatch(dispatch());
  signal(0, 0);
  EXPECT_EQ(failure([&] { ledger.poll_backtest_boundaries(); }), "ValueError: bad");
  auto lines = host.log.lines();
  lines.erase(lines.begin(), lines.end() - 3);
  EXPECT_THAT(lines, ElementsAre("context.handling('ValueError: bad')",
                                 "queue-1.put((0, 0, False, 'ValueError: bad', None))", "handled"));
}

TEST_F(LedgerBoundary, AnAnswerThatCannotBeGivenIsTheErrorThatLeaves) {
  ledger.pre_dispatch(dispatch());
  host.process_contexts.queues[1]->on_put = [] { throw std::runtime_error("closed pipe"); };
  signal(0, 0);
  EXPECT_EQ(failure([&] { ledger.poll_backtest_boundaries(); }), "std::exception: closed pipe");
  EXPECT_EQ(set_in(state()), "attempt_id dispatched backtest_started") << "set before the answer";
  state().set(keys::kBacktestStarted, false);
  state().set(keys::kFinalized, true);
  signal(0, 0);
  EXPECT_EQ(failure([&] { ledger.poll_backtest_boundaries(); }), "std::exception: closed pipe");
}

TEST_F(LedgerBoundary, QueuesThatAreNotRead) {
  signal(0, 0);
  host.process_contexts.queues[0]->has_reader = false;
  ledger.poll_backtest_boundaries();
  EXPECT_THAT(host.log.lines(), IsEmpty());
  OwnLedgerRecords fresh(host.context, List());
  ProcessAttemptLedger other(host.bundle(), fresh);
  other.poll_backtest_boundaries();
  EXPECT_THAT(host.log.lines(), IsEmpty());
}

TEST_F(LedgerBoundary, ABoundaryQueueWithoutQueuesBack) {
  OwnLedgerRecords fresh(host.context, List());
  fresh.set_backtest_boundary_queue(host.process_contexts.queues[0]);
  ProcessAttemptLedger other(host.bundle(), fresh);
  signal(0, 0);
  EXPECT_EQ(failure([&] { other.poll_backtest_boundaries(); }),
            "TypeError: 'NoneType' object is not subscriptable");
}

TEST_F(LedgerBoundary, WhatAnswersTheChildrenFirst) {
  const std::map<std::string, std::function<void()>> draining = {
      {"pre_dispatch", [&] { ledger.pre_dispatch(Value()); }},
      {"lifecycle",
       [&] {
         ledger.lifecycle(Mapping{{keys::kEvent, "ok"}});
       }},
      {"progress", [&] { ledger.progress(Mapping()); }},
      {"poll", [&] { ledger.poll_backtest_boundaries(); }},
      {"evidence", [&] { ledger.apply_child_evidence("x", Value()); }},
      {"source", [&] { static_cast<void>(ledger.source_attempt_id(5)); }},
      {"failure", [&] { static_cast<void>(ledger.failure_evidence(5, "r", Value())); }},
      {"finalize", [&] { ledger.finalize_all_open("r", Value()); }}};
  for (const auto& [name, operation] : draining) {
    records.states().set(Tuple{0, 0}, new_attempt_state());
    host.process_contexts.queues[1]->messages.clear();
    signal(0, 0);
    static_cast<void>(failure(operation));  // Bad arguments are looked at later.
    EXPECT_THAT(answers(), HasSubstr("(0, 0, True")) << name;
    state().set(keys::kBacktestStarted, false);
    state().set(keys::kFinalized, true);
    signal(0, 0);
    EXPECT_EQ(failure(operation), kCrossed) << name;
  }
}

TEST_F(LedgerBoundary, WhatLeavesTheChildrenWaiting) {
  ledger.pre_dispatch(dispatch());
  signal(0, 0);
  ledger.prepare_for_processes();
  ledger.mark_parent_finalized(0);
  ledger.acknowledge_parent_persistence_failure(0);
  static_cast<void>(ledger.state_for_event(happened("ok")));
  EXPECT_EQ(answers(), "");
}

// Evidence.

TEST_F(LedgerBoundary, EvidenceOfAStartMakesTheRow) {
  ledger.pre_dispatch(dispatch());
  ledger.apply_child_evidence("0", Mapping{{keys::kBacktestStarted, 1}});
  EXPECT_EQ(set_in(state()), "attempt_id dispatched backtest_started");
  ledger.apply_child_evidence(
      0, Mapping{{keys::kBacktestStarted, true}, {keys::kBacktestCompleted, true}});
  EXPECT_EQ(line_of("tracker.create_simulation_attempt").empty(), false);
  EXPECT_EQ(answers(), "");
}

TEST_F(LedgerBoundary, ASignalBeforeTheEvidenceIsTakenFirst) {
  ledger.pre_dispatch(dispatch());
  signal(0, 0);
  ledger.apply_child_evidence(0, Mapping{{keys::kBacktestStarted, true}});
  EXPECT_EQ(answers(), "(0, 0, True, None, 'attempt-1')");
  EXPECT_NE(line_of("tracker.create_simulation_attempt"), "") << "once";
}

TEST_F(LedgerBoundary, EvidenceThatIsWrong) {
  const auto apply = [&](const Value& evidence) {
    return failure([&] { ledger.apply_child_evidence("no index", evidence); });
  };
  for (const Value& evidence : {Value(), Value(5), Value("x"), Value(List())})
    EXPECT_EQ(apply(evidence), "RuntimeError: process result is missing attempt evidence");
  EXPECT_EQ(apply(Mapping{{keys::kBacktestCompleted, "x"}, {keys::kBacktestStarted, 0}}),
            "RuntimeError: completed child backtest is missing backtest-start evidence");
  started();
  EXPECT_EQ(failure([&] { ledger.apply_child_evidence(0, Mapping()); }),
            "RuntimeError: child result lost backtest-start evidence after crossing the boundary");
}

TEST_F(LedgerBoundary, EvidenceOfNoStartNeedsAnAttempt) {
  ledger.pre_dispatch(dispatch());
  ledger.apply_child_evidence(0, Mapping());
  EXPECT_EQ(failure([&] { ledger.apply_child_evidence(1, Mapping()); }), "KeyError: 1");
  records.states().erase(Tuple{0, 0});
  EXPECT_EQ(failure([&] { ledger.apply_child_evidence(0, Mapping()); }), "KeyError: (0, 0)");
}

TEST_F(LedgerBoundary, TheIdentityOfTheCurrentAttempt) {
  EXPECT_TRUE(ledger.source_attempt_id(0).is_absent());
  ledger.pre_dispatch(dispatch());
  EXPECT_TRUE(ledger.source_attempt_id(0).is_absent()) << "none before its backtest";
  signal(0, 0);
  EXPECT_EQ(ledger.source_attempt_id("0"), Value("attempt-1"));
  ledger.pre_dispatch(dispatch(0, 1));
  EXPECT_TRUE(ledger.source_attempt_id(0).is_absent()) << "the new attempt has no row";
}

TEST_F(LedgerBoundary, TheEvidenceOfAFailedAttempt) {
  ledger.pre_dispatch(dispatch(0));
  started(1);
  const auto type_of = [&](const Value& index) {
    const Value evidence = ledger.failure_evidence(index, "r", "d");
    return str(evidence.mapping().at("stats_construction_blocker").mapping().at("type"));
  };
  EXPECT_EQ(type_of(5), "process_dispatch_failed");
  EXPECT_EQ(type_of("0"), "process_worker_failed_backtest_state_unknown");
  EXPECT_EQ(type_of(1), "process_backtest_execution_failed");
  host.context.on_submission_cancelled = always(true);
  EXPECT_EQ(type_of(1), "process_search_cancelled");
  EXPECT_EQ(records.states().size(), 2U) << "a fresh state is not stored";
}

}  // namespace
}  // namespace varnholt::genetic::test
