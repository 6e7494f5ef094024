#include "hosts/python/host/python_ledger.hpp"

#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_queues.hpp"
#include "hosts/python/values/containers.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/value/operations.hpp"

namespace varnholt::python {
namespace {

using genetic::Mapping;
using genetic::Value;

Mapping record_attribute(const nb::object& ledger, const char* name) {
  const nb::object record = attribute(ledger, name);
  const Value value = opaque_record(record);
  if (value.is_mapping()) return value.mapping();
  return Mapping(std::make_unique<ObjectMappingStorage>(record));
}

}  // namespace

std::shared_ptr<genetic::SearchContext> PythonLedgerRecords::context() {
  return std::make_shared<PythonSearchContext>(attribute(ledger_, "_ctx"));
}

Mapping PythonLedgerRecords::graphs() {
  return record_attribute(ledger_, "_graphs");
}

Mapping PythonLedgerRecords::states() {
  return record_attribute(ledger_, "_states");
}

Mapping PythonLedgerRecords::current_attempt() {
  return record_attribute(ledger_, "_current_attempt");
}

std::shared_ptr<genetic::MessageQueue> PythonLedgerRecords::backtest_boundary_queue() {
  return message_queue(attribute(ledger_, "_backtest_boundary_queue"));
}

std::shared_ptr<genetic::AcknowledgementQueues>
PythonLedgerRecords::backtest_acknowledgement_queues() {
  return acknowledgement_queues(attribute(ledger_, "_backtest_acknowledgement_queues"));
}

void PythonLedgerRecords::set_backtest_boundary_queue(
    const std::shared_ptr<genetic::MessageQueue>& queue) {
  set_attribute(ledger_, "_backtest_boundary_queue", object_of(queue));
}

void PythonLedgerRecords::set_backtest_acknowledgement_queues(
    const genetic::CandidateQueues& queues) {
  const nb::object by_candidate = checked(PyDict_New());
  for (const auto& [index, queue] : queues) {
    checked(PyDict_SetItem(by_candidate.ptr(), to_python(index).ptr(), object_of(queue).ptr()));
  }
  set_attribute(ledger_, "_backtest_acknowledgement_queues", by_candidate);
}

void PythonAttemptLedger::prepare_for_processes() {
  call_method(ledger_, "prepare_for_processes");
}

std::shared_ptr<genetic::MessageQueue> PythonAttemptLedger::backtest_boundary_queue() {
  return PythonLedgerRecords(ledger_).backtest_boundary_queue();
}

std::shared_ptr<genetic::AcknowledgementQueues>
PythonAttemptLedger::backtest_acknowledgement_queues() {
  return PythonLedgerRecords(ledger_).backtest_acknowledgement_queues();
}

void PythonAttemptLedger::pre_dispatch(const Value& event) {
  call_method(ledger_, "pre_dispatch", {to_python(event)});
}

void PythonAttemptLedger::lifecycle(const Value& event) {
  call_method(ledger_, "lifecycle", {to_python(event)});
}

void PythonAttemptLedger::progress(const Value& event) {
  call_method(ledger_, "progress", {to_python(event)});
}

void PythonAttemptLedger::poll_backtest_boundaries() {
  call_method(ledger_, "poll_backtest_boundaries");
}

void PythonAttemptLedger::apply_child_evidence(const Value& candidate_index,
                                               const Value& evidence) {
  call_method(ledger_, "apply_child_evidence", {to_python(candidate_index), to_python(evidence)});
}

Value PythonAttemptLedger::source_attempt_id(const Value& candidate_index) {
  return opaque_value(call_method(ledger_, "source_attempt_id", {to_python(candidate_index)}));
}

Value PythonAttemptLedger::failure_evidence(const Value& candidate_index, const Value& reason,
                                            const Value& detail) {
  return to_value(call_method(ledger_, "failure_evidence",
                              {to_python(candidate_index), to_python(reason), to_python(detail)}));
}

void PythonAttemptLedger::mark_parent_finalized(const Value& candidate_index) {
  call_method(ledger_, "mark_parent_finalized", {to_python(candidate_index)});
}

void PythonAttemptLedger::acknowledge_parent_persistence_failure(const Value& candidate_index) {
  call_method(ledger_, "acknowledge_parent_persistence_failure", {to_python(candidate_index)});
}

void PythonAttemptLedger::finalize_all_open(const Value& reason, const Value& detail) {
  if (detail.is_absent()) {
    call_method(ledger_, "finalize_all_open", {to_python(reason)});
  } else {
    call_method(ledger_, "finalize_all_open", {to_python(reason), to_python(detail)});
  }
}

void PythonProcessAttemptLedger::mark_parent_finalized(const Value& candidate_index) {
  call_method(ledger_, "mark_parent_finalized", {to_python(candidate_index)});
}

Value PythonProcessAttemptLedger::new_state() {
  return opaque_record(call_method(ledger_, "_new_state"));
}

std::pair<Value, Value> PythonProcessAttemptLedger::state_for_event(const Value& event) {
  const nb::object found = call_method(ledger_, "_state_for_event", {to_python(event)});
  auto [key, state] = genetic::unpack_pair(to_value(found));
  return {std::move(key), opaque_record(to_python(state))};
}

Value PythonProcessAttemptLedger::start_backtest_attempt(const Value& candidate_index,
                                                         const Value& attempt_number) {
  return opaque_value(call_method(ledger_, "_start_backtest_attempt",
                                  {to_python(candidate_index), to_python(attempt_number)}));
}

void PythonProcessAttemptLedger::drain_backtest_boundaries() {
  call_method(ledger_, "_drain_backtest_boundaries");
}

void PythonProcessAttemptLedger::finalize_state(const Value& state, const Value& reason,
                                                const Value& detail) {
  call_method(ledger_, "_finalize_state", {to_python(state), to_python(reason), to_python(detail)});
}

void PythonProcessAttemptLedger::clear_marker(const Value& state) {
  call_method(ledger_, "_clear_marker", {to_python(state)});
}

}  // namespace varnholt::python
