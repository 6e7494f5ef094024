#include "search_templates/genetic/process/attempt_ledger.hpp"

#include <exception>
#include <optional>
#include <string>

#include "search_templates/genetic/process/attempt_marker.hpp"
#include "search_templates/genetic/process/process_attempts.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr Key kStarted = key<"started">();
constexpr Key kFailed = key<"error">();
constexpr Key kSucceeded = key<"ok">();
constexpr Key kChildException = key<"process_child_exception">();
constexpr Key kAttemptRetried = key<"process_attempt_retried">();

constexpr const char* kFinalizedCrossed = "finalized process state crossed the backtest boundary";
constexpr const char* kDispatchedTwice = "process attempt was dispatched more than once";
constexpr const char* kUnknownEvent = "unknown process attempt lifecycle event: ";
constexpr const char* kUnknownReason = "unknown process attempt lifecycle failure reason: ";
constexpr const char* kConflictingReasons =
    "process attempt received conflicting lifecycle failure reasons: ";
constexpr const char* kMissingEvidence = "process result is missing attempt evidence";
constexpr const char* kCompletedUnstarted =
    "completed child backtest is missing backtest-start evidence";
constexpr const char* kLostEvidence =
    "child result lost backtest-start evidence after crossing the boundary";

Value attempt_key(const Value& candidate_index, const Value& attempt_number) {
  return Tuple{candidate_index, attempt_number};
}

// The number of the attempt before one above 0. One beyond 64 bits has none that was ever
// dispatched, and is its own stand-in: the look-up fails as it would.
Value predecessor(const Value& attempt_number) {
  return attempt_number.is_integer() ? Value(attempt_number.integer() - 1) : attempt_number;
}

// Of equal reasons the first one's detail stays, also an absent one.
void keep_first_failure(Mapping& state, const Mapping& event, const Value& failure_reason) {
  const Value existing_reason = state.at(keys::kFailureReason);
  if (existing_reason.is_absent()) {
    state.set(keys::kFailureReason, failure_reason);
    state.set(keys::kFailureDetail, event.get(keys::kError));
    return;
  }
  if (differ(existing_reason, failure_reason)) {
    const std::string existing = repr(existing_reason);
    throw RuntimeError(kConflictingReasons + existing + " then " + repr(failure_reason));
  }
}

}  // namespace

void ProcessAttemptLedger::prepare_for_processes() {
  if (records_.backtest_boundary_queue() != nullptr) return;
  const auto process_context = host_.process_contexts().fork_context();
  records_.set_backtest_boundary_queue(process_context->simple_queue());
  CandidateQueues queues;
  MappingCursor graphs(records_.graphs());
  while (const std::optional<MappingEntry> entry = graphs.next())
    queues.emplace_back(entry->key, process_context->simple_queue());
  records_.set_backtest_acknowledgement_queues(queues);
}

// Events of the pool.

void ProcessAttemptLedger::pre_dispatch(const Value& event) {
  drain_backtest_boundaries();
  const Value candidate_index = to_integer(item(event, keys::kCandidateIndex));
  const Value attempt_number = to_integer(item(event, keys::kAttempt));
  const Value key = attempt_key(candidate_index, attempt_number);
  // The attempt before this one ends first, even when this one is then refused.
  if (less(0, attempt_number)) {
    const Value previous =
        records_.states().at(attempt_key(candidate_index, predecessor(attempt_number)));
    const Value failure_reason = item(previous, keys::kFailureReason);
    finalize_state(previous, truth(failure_reason) ? failure_reason : Value(kAttemptRetried),
                   item(previous, keys::kFailureDetail));
  }

  Value state = records_.states().get(key);
  if (state.is_absent()) {
    state = new_state();
    records_.states().set(key, state);
  }
  if (truth(item(state, keys::kDispatched))) throw RuntimeError(kDispatchedTwice);
  const Value metadata = required_attribute(item(event, keys::kCandidate), keys::kMetadata.view());
  expected_record(metadata).set(keys::kProcessAttempt, attempt_number);
  expected_record(state).set(keys::kDispatched, true);
  records_.current_attempt().set(candidate_index, attempt_number);
}

void ProcessAttemptLedger::lifecycle(const Value& event) {
  drain_backtest_boundaries();
  const Mapping told = record_of(event);
  const Value event_name = told.get(keys::kEvent);
  if (event_name == kSucceeded) return;
  const bool has_started = event_name == kStarted;
  if (!has_started && !(event_name == kFailed)) {
    throw RuntimeError(kUnknownEvent + repr(event_name));
  }
  Mapping state = expected_record(state_for_event(event).second);
  if (has_started) {
    state.set(keys::kWorkerStarted, true);
    return;
  }

  keep_first_failure(state, told, known_failure_reason(told));
  if (truth(told.get(keys::kRetrying, false))) {
    finalize_state(state, state.at(keys::kFailureReason), state.at(keys::kFailureDetail));
  }
}

// A reason that is there and absent is not the default, and so not known.
Value ProcessAttemptLedger::known_failure_reason(const Mapping& event) {
  Value failure_reason = event.get(keys::kFailureReason, kChildException);
  const Value timeout = host_.process_evaluation().terminal_worker_timeout();
  if (!(failure_reason == kChildException) && !(failure_reason == timeout)) {
    throw RuntimeError(kUnknownReason + repr(failure_reason));
  }
  return failure_reason;
}

void ProcessAttemptLedger::progress(const Value& event) {
  drain_backtest_boundaries();
  const Value event_name = record_of(event).get(keys::kEvent);
  const bool has_started = event_name == kStarted;
  if (!has_started && !(event_name == kFailed) && !(event_name == kSucceeded)) return;
  const Value state = state_for_event(event).second;
  if (!has_started) {
    clear_marker(state);
    return;
  }
  // A marker that is open is overwritten, not closed.
  const Value marker_attempt_id =
      write_parent_process_evaluation_attempt_marker(host_, *records_.context(), event);
  if (!marker_attempt_id.is_absent()) {
    expected_record(state).set(keys::kMarkerAttemptId, marker_attempt_id);
  }
}

void ProcessAttemptLedger::poll_backtest_boundaries() {
  drain_backtest_boundaries();
}

// What is known of a candidate's current attempt.

void ProcessAttemptLedger::apply_child_evidence(const Value& candidate_index,
                                                const Value& evidence) {
  drain_backtest_boundaries();
  const std::optional<Mapping> told = as_mapping(evidence);
  if (!told) throw RuntimeError(kMissingEvidence);
  const bool backtest_started = truth(told->get(keys::kBacktestStarted, false));
  const bool backtest_completed = truth(told->get(keys::kBacktestCompleted, false));
  if (backtest_completed && !backtest_started) throw RuntimeError(kCompletedUnstarted);

  const Value index = to_integer(candidate_index);
  const Value attempt_number = records_.current_attempt().at(index);
  const Value state = records_.states().at(attempt_key(index, attempt_number));
  if (backtest_started) {
    start_backtest_attempt(candidate_index, attempt_number);
  } else if (truth(item(state, keys::kBacktestStarted))) {
    throw RuntimeError(kLostEvidence);
  }
}

Value ProcessAttemptLedger::source_attempt_id(const Value& candidate_index) {
  drain_backtest_boundaries();
  const Value index = to_integer(candidate_index);
  const Value attempt_number = records_.current_attempt().get(index);
  if (attempt_number.is_absent()) return {};
  return item(records_.states().at(attempt_key(index, attempt_number)), keys::kAttemptId);
}

Value ProcessAttemptLedger::failure_evidence(const Value& candidate_index, const Value& reason,
                                             const Value& detail) {
  drain_backtest_boundaries();
  const Value index = to_integer(candidate_index);
  const Value attempt_number = records_.current_attempt().get(index);
  const Value state = attempt_number.is_absent()
                          ? new_state()
                          : records_.states().at(attempt_key(index, attempt_number));
  const auto context = records_.context();
  AttemptFlags flags;
  flags.dispatched = truth(item(state, keys::kDispatched));
  flags.backtest_started = truth(item(state, keys::kBacktestStarted));
  flags.cancelled = context->submission_cancelled();
  return process_attempt_evidence(host_, *context, reason, detail, flags);
}

// Ends.

void ProcessAttemptLedger::mark_parent_finalized(const Value& candidate_index) {
  const Value index = to_integer(candidate_index);
  const Value attempt_number = records_.current_attempt().get(index);
  if (attempt_number.is_absent()) return;
  const Value state = records_.states().at(attempt_key(index, attempt_number));
  expected_record(state).set(keys::kFinalized, true);
  clear_marker(state);
}

void ProcessAttemptLedger::acknowledge_parent_persistence_failure(const Value& candidate_index) {
  mark_parent_finalized(candidate_index);
}

void ProcessAttemptLedger::finalize_all_open(const Value& reason, const Value& detail) {
  drain_backtest_boundaries();
  MappingCursor states(records_.states());
  while (const std::optional<MappingEntry> entry = states.next())
    finalize_state(entry->value, reason, detail);
}

void ProcessAttemptLedger::finalize_state(const Value& state, const Value& reason,
                                          const Value& detail) {
  if (truth(item(state, keys::kFinalized))) {
    clear_marker(state);
    return;
  }
  const Value attempt_id = item(state, keys::kAttemptId);
  if (!attempt_id.is_absent()) {
    const auto context = records_.context();
    AttemptFlags flags;
    flags.dispatched = truth(item(state, keys::kDispatched));
    flags.backtest_started = truth(item(state, keys::kBacktestStarted));
    flags.cancelled = context->submission_cancelled();
    finalize_process_failure_attempt(host_, *context, attempt_id, reason, detail, flags);
  }
  expected_record(state).set(keys::kFinalized, true);
  clear_marker(state);
}

void ProcessAttemptLedger::clear_marker(const Value& state) {
  Mapping record = record_of(state);
  const Value marker_attempt_id = record.get(keys::kMarkerAttemptId);
  if (marker_attempt_id.is_absent()) return;
  const auto clear = host_.attempt_markers().clear_evaluation_attempt_marker();
  clear(records_.context()->required_attribute(context_names::kTracker.view()), marker_attempt_id);
  record.set(keys::kMarkerAttemptId, Value());
}

// States.

Mapping new_attempt_state() {
  return {{keys::kAttemptId, Value()},     {keys::kDispatched, false},
          {keys::kWorkerStarted, false},   {keys::kBacktestStarted, false},
          {keys::kFinalized, false},       {keys::kFailureReason, Value()},
          {keys::kFailureDetail, Value()}, {keys::kMarkerAttemptId, Value()}};
}

std::pair<Value, Value> ProcessAttemptLedger::state_for_event(const Value& event) {
  const Value candidate_index = to_integer(item(event, keys::kCandidateIndex));
  const Value attempt_number = to_integer(item(event, keys::kAttempt));
  Value key = attempt_key(candidate_index, attempt_number);
  Value state = records_.states().at(key);
  return {std::move(key), std::move(state)};
}

// The boundary of the backtest.

Value ProcessAttemptLedger::start_backtest_attempt(const Value& candidate_index,
                                                   const Value& attempt_number) {
  const Value index = to_integer(candidate_index);
  Mapping state = record_of(records_.states().at(attempt_key(index, to_integer(attempt_number))));
  if (truth(state.at(keys::kBacktestStarted))) return state.at(keys::kAttemptId);
  if (truth(state.at(keys::kFinalized))) throw RuntimeError(kFinalizedCrossed);

  const auto context = records_.context();
  const Value graph = records_.graphs().at(index);
  Value attempt_id = create_process_attempt(host_, *context, candidate_index, graph);
  // Kept before the marks: a row that was made must be ended even when a mark fails.
  state.set(keys::kAttemptId, attempt_id);
  records_.context()->tracker()->mark_simulation_attempt_dispatched(attempt_id);
  records_.context()->tracker()->mark_simulation_attempt_backtest_started(attempt_id);
  state.set(keys::kBacktestStarted, true);
  return attempt_id;
}

void ProcessAttemptLedger::drain_backtest_boundaries() {
  const auto boundary_queue = records_.backtest_boundary_queue();
  if (boundary_queue == nullptr) return;
  const auto reader = boundary_queue->reader();
  if (reader == nullptr) return;
  while (reader->poll())
    answer_backtest_boundary(boundary_queue->get());
}

// A signal of another shape, or of an unknown candidate, has no answer: the child waits for the
// pool to end it. The answer names candidate and attempt as the signal did.
void ProcessAttemptLedger::answer_backtest_boundary(const Value& signal) {
  const auto [candidate_index, attempt_number] = unpack_pair(signal);
  const auto queues = records_.backtest_acknowledgement_queues();
  const Value index = to_integer(candidate_index);
  if (queues == nullptr) throw TypeError("'NoneType' object is not subscriptable");
  const auto acknowledgement_queue = queues->at(index);
  Value attempt_id;
  try {
    attempt_id = start_backtest_attempt(candidate_index, attempt_number);
  } catch (const std::exception& error) {
    const auto handled = records_.context()->handling(std::current_exception());
    const Value failure = error_object(error);
    std::string detail = type_name(failure);
    detail += ": ";
    detail += str(failure);
    acknowledgement_queue->put(Tuple{candidate_index, attempt_number, false, detail, Value()});
    throw;
  }
  acknowledgement_queue->put(Tuple{candidate_index, attempt_number, true, Value(), attempt_id});
}

}  // namespace varnholt::genetic
