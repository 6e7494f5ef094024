// The real ledger in a world that can be put into any state of the model and read back: two
// candidates, two attempts each, and a host that fails at a call of choice.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/process/attempt_ledger.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/process/ledger_model.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {

// Counts the host's calls, keeps them, and fails at one: before it takes effect or after.
class CallScript {
 public:
  struct Fault : std::exception {};

  std::vector<Call> calls;
  int failing_call = -1;
  bool takes_effect = false;

  template <typename Effect>
  auto call(Call made, const Effect& effect) {
    const bool fails = failing_call == static_cast<int>(calls.size());
    calls.push_back(made);
    if (fails && !takes_effect) throw Fault();
    if constexpr (std::is_void_v<decltype(effect())>) {
      effect();
      if (fails) throw Fault();
    } else {
      auto result = effect();
      if (fails) throw Fault();
      return result;
    }
  }
  void call(Call made) {
    call(made, [] {});
  }
};

// The tracker's rows, as far as a step sees them.
struct TrackedRow {
  bool dispatched = false;
  bool started = false;
  int ends = 0;
};

class LedgerWorld : private AttemptTracker, private AttemptMarkers, private AttemptAccounting {
 public:
  static constexpr int kRows = 8;

  LedgerWorld() {
    for (Slot slot = 0; slot < kSlots; ++slot) {
      const auto at = static_cast<std::size_t>(slot);
      keys_[at] = Tuple{slot / 2, slot % 2};
      Mapping dispatched = event_of(slot, "started");
      dispatched.set(keys::kCandidate, make_object<CandidateEvaluation>(slot / 2, slot / 2));
      began_[at] = dispatched;
      ended_[at] = event_of(slot, slot % 2 == 0 ? "ok" : "error");
      for (const bool timeout : {false, true}) {
        for (const bool retry : {false, true}) {
          Mapping failed = event_of(slot, "error");
          if (timeout) failed.set(keys::kFailureReason, "worker_timeout");
          failed.set(keys::kRetrying, retry);
          failed_[at][timeout ? 1 : 0][retry ? 1 : 0] = failed;
        }
      }
    }
  }

  CallScript script;
  bool cancelled = false;
  std::array<TrackedRow, kRows> rows;

  // Puts the ledger into the state, with its attempts dispatched in this order. Nothing reads
  // `worker_started`: it holds whatever is given.
  void load(const ModelState& state, const std::vector<Slot>& order, bool worker_started) {
    records_.states_ = Mapping(kSlots);
    records_.current_ = Mapping(2);
    rows = {};
    created_ = 0;
    for (const Slot slot : order) {
      const ModelAttempt& attempt = state[slot];
      const bool has_row = attempt.row != ModelAttempt::kNoRow;
      const bool started = attempt.row == ModelAttempt::kBacktestStarted;
      Mapping& record = loaded_[slot];
      record.set(keys::kAttemptId, has_row ? Value(static_cast<std::int64_t>(slot)) : Value());
      record.set(keys::kDispatched, true);
      record.set(keys::kWorkerStarted, worker_started);
      record.set(keys::kBacktestStarted, started);
      record.set(keys::kFinalized, attempt.finalized != 0);
      record.set(keys::kFailureReason, reason_value(attempt.reason));
      record.set(keys::kMarkerAttemptId,
                 attempt.marker != 0 ? Value(static_cast<std::int64_t>(slot)) : Value());
      records_.states_.set(keys_[slot], record);
      records_.current_.set(slot / 2, slot % 2);
      rows[slot] = {has_row, started, 0};
    }
  }

  // The state that the ledger is in; nothing when it is none of the model's.
  [[nodiscard]] std::optional<ModelState> read() const {
    ModelState state;
    for (Slot slot = 0; slot < kSlots; ++slot) {
      const std::optional<Value> found = records_.states_.find(keys_[slot]);
      if (!found) continue;
      const Mapping record = found->mapping();
      ModelAttempt& attempt = state[slot];
      attempt.exists = 1;
      if (!record.at(keys::kDispatched).boolean()) {
        // A record that was made for a dispatch that failed is as good as none.
        return std::nullopt;
      }
      const bool started = record.at(keys::kBacktestStarted).boolean();
      const bool has_row = !record.at(keys::kAttemptId).is_absent();
      if (started && !has_row) return std::nullopt;
      attempt.row = started   ? ModelAttempt::kBacktestStarted
                    : has_row ? ModelAttempt::kIdentityKept
                              : ModelAttempt::kNoRow;
      attempt.finalized = record.at(keys::kFinalized).boolean() ? 1 : 0;
      attempt.marker = record.at(keys::kMarkerAttemptId).is_absent() ? 0 : 1;
      const Value reason = record.at(keys::kFailureReason);
      attempt.reason = reason.is_absent() ? ModelAttempt::kNoReason
                       : reason == kChild ? ModelAttempt::kChildException
                                          : ModelAttempt::kTimeout;
    }
    return state;
  }

  // Runs the operation and tells what came of it.
  Failed run(const Operation& operation, const Circumstances& around) {
    script.calls.clear();
    script.failing_call = around.failing_call;
    cancelled = around.cancelled;
    boundary_.waiting.assign(around.signals.rbegin(), around.signals.rend());
    host_.scripted.log.clear();
    try {
      act(operation);
      return Failed::kNot;
    } catch (const CallScript::Fault&) {
      return Failed::kHost;
    } catch (const KeyError&) {
      return Failed::kMissing;
    } catch (const RuntimeError& error) {
      return failed_by(error.text());
    }
  }

  // What `source_attempt_id` said last.
  [[nodiscard]] const Value& source() const { return source_; }

 private:
  static constexpr Key kChild = key<"process_child_exception">();
  static constexpr Key kLate = key<"worker_timeout">();

  class Context : public SearchContext {
   public:
    explicit Context(LedgerWorld& world) : world_(world) {}
    [[nodiscard]] Callable evaluate_for_template() override { return {}; }
    [[nodiscard]] Callable safe_record() override { return {}; }
    [[nodiscard]] Callable enqueue_deferred_submission_payload() override { return {}; }
    [[nodiscard]] std::optional<Value> attribute(std::string_view /*name*/) override { return 1; }
    [[nodiscard]] std::shared_ptr<AttemptTracker> tracker() override {
      return {std::shared_ptr<void>(), &world_};
    }
    [[nodiscard]] bool submission_cancelled() override {
      world_.script.call({.asked = Asked::kCancelled});
      return world_.cancelled;
    }

   private:
    LedgerWorld& world_;
  };

  class BoundaryQueue : public MessageQueue, private QueueReader {
   public:
    std::vector<Slot> waiting;  // The last one comes first.

    void put(const Value& /*message*/) override { throw std::logic_error("children put here"); }
    [[nodiscard]] Value get() override {
      const Slot slot = waiting.back();
      waiting.pop_back();
      return Tuple{slot / 2, slot % 2};
    }
    [[nodiscard]] std::shared_ptr<QueueReader> reader() override {
      return {std::shared_ptr<void>(), static_cast<QueueReader*>(this)};
    }

   private:
    [[nodiscard]] bool poll() override { return !waiting.empty(); }
  };

  // One for all: an answer says for which attempt it is.
  class Answers : public AcknowledgementQueues, private MessageQueue {
   public:
    explicit Answers(LedgerWorld& world) : world_(world) {}
    [[nodiscard]] std::shared_ptr<MessageQueue> at(const Value& /*candidate_index*/) override {
      return {std::shared_ptr<void>(), static_cast<MessageQueue*>(this)};
    }
    [[nodiscard]] std::shared_ptr<MessageQueue> find(const Value& /*index*/) override {
      throw std::logic_error("children look here");
    }

   private:
    void put(const Value& message) override { world_.answered(message.tuple()); }
    [[nodiscard]] Value get() override { throw std::logic_error("children get here"); }
    [[nodiscard]] std::shared_ptr<QueueReader> reader() override { return nullptr; }

    LedgerWorld& world_;
  };

  class Records : public LedgerRecords {
   public:
    explicit Records(LedgerWorld& world) : world_(world) {}
    [[nodiscard]] std::shared_ptr<SearchContext> context() override {
      return {std::shared_ptr<void>(), &world_.context_};
    }
    [[nodiscard]] Mapping graphs() override { return graphs_; }
    [[nodiscard]] Mapping states() override { return states_; }
    [[nodiscard]] Mapping current_attempt() override { return current_; }
    [[nodiscard]] std::shared_ptr<MessageQueue> backtest_boundary_queue() override {
      return {std::shared_ptr<void>(), &world_.boundary_};
    }
    [[nodiscard]] std::shared_ptr<AcknowledgementQueues> backtest_acknowledgement_queues()
        override {
      return {std::shared_ptr<void>(), &world_.answers_};
    }
    void set_backtest_boundary_queue(const std::shared_ptr<MessageQueue>& /*queue*/) override {}
    void set_backtest_acknowledgement_queues(const CandidateQueues& /*queues*/) override {}

    Mapping graphs_{{0, 0}, {1, 1}};
    Mapping states_;
    Mapping current_;

   private:
    LedgerWorld& world_;
  };

  class WorldHost : public Host {
   public:
    explicit WorldHost(LedgerWorld& world) : world_(world) {}
    ScriptedHost scripted;

    [[nodiscard]] ProcessEvaluation& process_evaluation() override {
      return scripted.process_evaluation;
    }
    [[nodiscard]] Eliteness& eliteness() override { return scripted.eliteness; }
    [[nodiscard]] GeneticOps& genetic_ops() override { return scripted.genetic_ops; }
    [[nodiscard]] RandomWeighted& random_weighted() override { return scripted.random_weighted; }
    [[nodiscard]] GraphDepth& graph_depth() override { return scripted.engine; }
    [[nodiscard]] BacktestTimings& backtest_timings() override { return scripted.backtest_timings; }
    [[nodiscard]] RandomGenerators& random_generators() override {
      return scripted.random_generators;
    }
    [[nodiscard]] SecureRandom& secure_random() override { return scripted.secure_random; }
    [[nodiscard]] EvaluationVerdicts& evaluation_verdicts() override { return verdicts_; }
    [[nodiscard]] AttemptMarkers& attempt_markers() override { return world_; }
    [[nodiscard]] AttemptAccounting& attempt_accounting() override { return world_; }

   private:
    class Verdicts : public EvaluationVerdicts {
     public:
      explicit Verdicts(LedgerWorld& world) : world_(world) {}
      [[nodiscard]] Value not_evaluated_verdict() override {
        world_.script.call({.asked = Asked::kVerdict});
        return Mapping();
      }

     private:
      LedgerWorld& world_;
    };

    LedgerWorld& world_;
    Verdicts verdicts_{world_};
  };

  static Mapping event_of(Slot slot, const char* name) {
    return {{keys::kEvent, name}, {keys::kCandidateIndex, slot / 2}, {keys::kAttempt, slot % 2}};
  }

  static Value reason_value(std::uint8_t reason) {
    if (reason == ModelAttempt::kNoReason) return {};
    return reason == ModelAttempt::kChildException ? kChild : kLate;
  }

  static Reason reason_of(std::string_view text) {
    if (text == "search_stopped") return Reason::kStopped;
    if (text == kChild.view()) return Reason::kChildException;
    if (text == kLate.view()) return Reason::kTimeout;
    if (text == "process_attempt_retried") return Reason::kRetried;
    if (text == "over") return Reason::kOver;
    throw std::logic_error("unknown reason");
  }

  static Failed failed_by(std::string_view text) {
    if (text.starts_with("process attempt was dispatched")) return Failed::kTwice;
    if (text.starts_with("finalized process state")) return Failed::kCrossed;
    if (text.starts_with("process attempt received conflicting")) return Failed::kConflict;
    if (text.starts_with("child result lost")) return Failed::kLostEvidence;
    throw std::logic_error("unknown error");
  }

  void act(const Operation& operation) {
    const Value candidate = operation.slot / 2;
    switch (operation.kind) {
      case Operation::kPoll:
        return ledger_.poll_backtest_boundaries();
      case Operation::kDispatch:
        return ledger_.pre_dispatch(began_[operation.slot]);
      case Operation::kWorkerStarted:
        return ledger_.lifecycle(began_[operation.slot]);
      case Operation::kWorkerFailed:
        return ledger_.lifecycle(
            failed_[operation.slot][operation.flag ? 1 : 0][operation.retry ? 1 : 0]);
      case Operation::kBegan:
        return ledger_.progress(began_[operation.slot]);
      case Operation::kEnded:
        return ledger_.progress(ended_[operation.slot]);
      case Operation::kEvidence:
        return ledger_.apply_child_evidence(candidate, operation.flag ? started_ : not_started_);
      case Operation::kSource:
        source_ = ledger_.source_attempt_id(candidate);
        return;
      case Operation::kParentFinalized:
        return ledger_.mark_parent_finalized(candidate);
      case Operation::kFinalizeAll:
        return ledger_.finalize_all_open("over", Value());
    }
  }

  TrackedRow& row(const Value& attempt_id) {
    return rows.at(static_cast<std::size_t>(attempt_id.integer()));
  }
  static std::uint8_t name(const Value& identity) {
    return static_cast<std::uint8_t>(identity.integer());
  }

  // The tracker, the markers, the accounts.
  [[nodiscard]] Create create_simulation_attempt() override {
    return [this](const NewAttempt& attempt) {
      return script.call({.asked = Asked::kCreate, .of = name(attempt.graph)},
                         [this] { return Value(std::int64_t{kSlots} + created_++); });
    };
  }
  [[nodiscard]] Finalize finalize_simulation_attempt() override {
    return [this](const Value& attempt_id, const AttemptEnd& end) {
      Call made{.asked = Asked::kEnd, .of = name(attempt_id)};
      const std::string_view disposition = end.terminal_disposition.view();
      made.disposition = disposition == "cancelled"         ? Disposition::kCancelled
                         : disposition == "backtest_failed" ? Disposition::kBacktestFailed
                                                            : Disposition::kResourceBlocked;
      made.reason = reason_of(end.failure_reason.text());
      made.gate_reason = reason_of(end.threshold_gate.at(keys::kReason).text());
      script.call(made, [&] { ++row(attempt_id).ends; });
    };
  }
  void mark_simulation_attempt_dispatched(const Value& attempt_id) override {
    script.call({.asked = Asked::kMarkDispatched, .of = name(attempt_id)},
                [&] { row(attempt_id).dispatched = true; });
  }
  void mark_simulation_attempt_backtest_started(const Value& attempt_id) override {
    script.call({.asked = Asked::kMarkStarted, .of = name(attempt_id)},
                [&] { row(attempt_id).started = true; });
  }
  [[nodiscard]] Write write_evaluation_attempt_marker() override {
    return [this](const Value&, const Value& graph, const Value&, const Value&, std::string_view) {
      return script.call({.asked = Asked::kOpenMarker, .of = name(graph)},
                         [] { return Value(-1); });
    };
  }
  [[nodiscard]] Clear clear_evaluation_attempt_marker() override {
    return [this](const Value&, const Value& marker) {
      script.call({.asked = Asked::kCloseMarker, .of = name(marker)});
    };
  }
  [[nodiscard]] DataShape attempt_declared_data_shape() override {
    return [this](const Value&) {
      script.call({.asked = Asked::kShape});
      return Value();
    };
  }
  [[nodiscard]] Value build_column_inventory(const Value&, const Value&) override {
    script.call({.asked = Asked::kInventory});
    return {};
  }
  [[nodiscard]] Value json_ready(const Value& value) override {
    script.call({.asked = Asked::kJson});
    return value;
  }

  void answered(const Tuple& answer) {
    const auto slot =
        static_cast<std::uint8_t>(2 * answer.at(0).integer() + answer.at(1).integer());
    const bool accepted = answer.at(2).boolean();
    // The row that a child is let in with has been marked, and is the attempt's own.
    if (accepted &&
        (!row(answer.at(4)).dispatched || !row(answer.at(4)).started ||
         !(records_.states_.at(keys_[slot]).mapping().at(keys::kAttemptId) == answer.at(4)))) {
      throw std::logic_error("a child was let in before its row was there");
    }
    script.call({.asked = accepted ? Asked::kAccept : Asked::kReject, .of = slot});
  }

  std::int64_t created_ = 0;
  Context context_{*this};
  BoundaryQueue boundary_;
  Answers answers_{*this};
  Records records_{*this};
  WorldHost host_{*this};
  ProcessAttemptLedger ledger_{host_, records_};
  std::array<Value, kSlots> keys_;
  std::array<Mapping, kSlots> loaded_{new_attempt_state(), new_attempt_state(), new_attempt_state(),
                                      new_attempt_state()};
  std::array<Value, kSlots> began_;
  std::array<Value, kSlots> ended_;
  std::array<std::array<std::array<Value, 2>, 2>, kSlots> failed_;
  Value started_ = Mapping{{keys::kBacktestStarted, true}};
  Value not_started_ = Mapping();
  Value source_;
};

}  // namespace varnholt::genetic::test
