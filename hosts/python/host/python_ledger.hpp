// A ledger of attempts that is a Python object.
//
// What a `_ProcessAttemptLedger` keeps are its plain attributes, which whoever holds it may read
// and set; and each of its operations is looked up on it at each use, so that a subclass, or a
// function put in the place of one, counts.
#pragma once

#include <memory>
#include <utility>

#include <nanobind/nanobind.h>

#include "search_templates/genetic/process/attempt_ledger.hpp"
#include "search_templates/genetic/process/ledger_records.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// The attributes of the ledger. States, graphs and current attempts come with the very objects that
// stand in them.
class PythonLedgerRecords : public genetic::LedgerRecords {
 public:
  explicit PythonLedgerRecords(nb::object ledger) : ledger_(std::move(ledger)) {}

  [[nodiscard]] std::shared_ptr<genetic::SearchContext> context() override;
  [[nodiscard]] genetic::Mapping graphs() override;
  [[nodiscard]] genetic::Mapping states() override;
  [[nodiscard]] genetic::Mapping current_attempt() override;
  [[nodiscard]] std::shared_ptr<genetic::MessageQueue> backtest_boundary_queue() override;
  [[nodiscard]] std::shared_ptr<genetic::AcknowledgementQueues> backtest_acknowledgement_queues()
      override;
  void set_backtest_boundary_queue(const std::shared_ptr<genetic::MessageQueue>& queue) override;
  // A new dict.
  void set_backtest_acknowledgement_queues(const genetic::CandidateQueues& queues) override;

 private:
  nb::object ledger_;
};

// Any object with the operations of a ledger: each call goes to it.
class PythonAttemptLedger : public genetic::AttemptLedger {
 public:
  explicit PythonAttemptLedger(nb::object ledger) : ledger_(std::move(ledger)) {}

  [[nodiscard]] const nb::object& object() const noexcept { return ledger_; }

  void prepare_for_processes() override;
  [[nodiscard]] std::shared_ptr<genetic::MessageQueue> backtest_boundary_queue() override;
  [[nodiscard]] std::shared_ptr<genetic::AcknowledgementQueues> backtest_acknowledgement_queues()
      override;
  void pre_dispatch(const genetic::Value& event) override;
  void lifecycle(const genetic::Value& event) override;
  void progress(const genetic::Value& event) override;
  void poll_backtest_boundaries() override;
  void apply_child_evidence(const genetic::Value& candidate_index,
                            const genetic::Value& evidence) override;
  [[nodiscard]] genetic::Value source_attempt_id(const genetic::Value& candidate_index) override;
  [[nodiscard]] genetic::Value failure_evidence(const genetic::Value& candidate_index,
                                                const genetic::Value& reason,
                                                const genetic::Value& detail) override;
  void mark_parent_finalized(const genetic::Value& candidate_index) override;
  void acknowledge_parent_persistence_failure(const genetic::Value& candidate_index) override;
  // With one argument where there is no detail.
  void finalize_all_open(const genetic::Value& reason, const genetic::Value& detail) override;

 private:
  nb::object ledger_;
};

// The library's ledger behind the methods of a `_ProcessAttemptLedger`. Made anew for each call of
// a method. What the operations are made of is asked of the Python object.
class PythonProcessAttemptLedger : public genetic::ProcessAttemptLedger {
 public:
  PythonProcessAttemptLedger(genetic::Host& host, genetic::LedgerRecords& records,
                             nb::object ledger)
      : ProcessAttemptLedger(host, records), ledger_(std::move(ledger)) {}

  void mark_parent_finalized(const genetic::Value& candidate_index) override;
  [[nodiscard]] genetic::Value new_state() override;
  [[nodiscard]] std::pair<genetic::Value, genetic::Value> state_for_event(
      const genetic::Value& event) override;
  genetic::Value start_backtest_attempt(const genetic::Value& candidate_index,
                                        const genetic::Value& attempt_number) override;
  void drain_backtest_boundaries() override;
  void finalize_state(const genetic::Value& state, const genetic::Value& reason,
                      const genetic::Value& detail) override;
  void clear_marker(const genetic::Value& state) override;

 private:
  nb::object ledger_;
};

}  // namespace varnholt::python
