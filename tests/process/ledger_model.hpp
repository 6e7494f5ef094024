// What a ledger of attempts does, once more, as one plain table: for two candidates with two
// attempts each. It shares nothing with the library.
//
// A row of the table is found by what happens to an attempt and by the attempt's state; the first
// row that fits counts. Its steps ask the host, set a field, or fail. Any step that asks the host
// may be told to fail there.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace varnholt::genetic::test {

// The state of one attempt. `row` is what the ledger knows of the tracker's row.
struct ModelAttempt {
  enum Row : std::uint8_t { kNoRow, kIdentityKept, kBacktestStarted };
  enum Reason : std::uint8_t { kNoReason, kChildException, kTimeout };

  std::uint8_t exists = 0;
  std::uint8_t row = kNoRow;
  std::uint8_t finalized = 0;
  std::uint8_t reason = kNoReason;
  std::uint8_t marker = 0;

  friend bool operator==(const ModelAttempt&, const ModelAttempt&) = default;
};

// An attempt's place: 2 * candidate + number of the attempt.
using Slot = std::uint8_t;
inline constexpr Slot kSlots = 4;
using ModelState = std::array<ModelAttempt, kSlots>;

// What the host is asked, in order.
enum class Asked : std::uint8_t {
  kShape,
  kCreate,
  kMarkDispatched,
  kMarkStarted,
  kCancelled,
  kVerdict,
  kInventory,
  kJson,
  kEnd,
  kOpenMarker,
  kCloseMarker,
  kAccept,
  kReject
};

inline bool is_tracker_call(Asked asked) {
  return asked == Asked::kCreate || asked == Asked::kMarkDispatched ||
         asked == Asked::kMarkStarted || asked == Asked::kEnd;
}

enum class Failed : std::uint8_t {
  kNot,
  kHost,         // An operation of the host failed.
  kMissing,      // A look-up of an attempt that is not there.
  kTwice,        // Dispatched more than once.
  kCrossed,      // Finalized, and then at the boundary.
  kConflict,     // Another reason than the first.
  kLostEvidence  // A backtest that started, by evidence that denies it.
};

enum class Reason : std::uint8_t { kStopped, kChildException, kTimeout, kRetried, kOver };
enum class Disposition : std::uint8_t { kNone, kCancelled, kBacktestFailed, kResourceBlocked };

// One call: of which row or attempt, and for an end how it ended. The rows of before the step go by
// the slot of their attempt, new ones by 4 and 5 in the order of their creation.
struct Call {
  Asked asked = Asked::kShape;
  std::uint8_t of = 0;
  Disposition disposition = Disposition::kNone;
  Reason reason = Reason::kStopped;
  Reason gate_reason = Reason::kStopped;

  friend bool operator==(const Call&, const Call&) = default;
};

struct Outcome {
  Failed failed = Failed::kNot;
  std::vector<Call> calls;
};

// What goes on around a step: the signals that have come, whether the run is cancelled, and which
// of the host's calls fails, if any.
struct Circumstances {
  std::vector<Slot> signals;
  bool cancelled = false;
  int failing_call = -1;
};

struct Operation {
  enum Kind : std::uint8_t {
    kPoll,
    kDispatch,
    kWorkerStarted,
    kWorkerFailed,
    kBegan,
    kEnded,
    kEvidence,
    kSource,
    kParentFinalized,
    kFinalizeAll
  };
  Kind kind = kPoll;
  Slot slot = 0;       // Of events; the others are for a candidate.
  bool flag = false;   // A time-out; an evidence of a start.
  bool retry = false;  // Of a failure.
};

class LedgerModel {
 public:
  explicit LedgerModel(ModelState state) : state_(state) {}

  [[nodiscard]] const ModelState& state() const { return state_; }

  // `order` has the slots that exist, in the order of dispatch.
  Outcome run(const Operation& operation, const Circumstances& around,
              const std::vector<Slot>& order) {
    around_ = &around;
    outcome_ = {};
    created_ = 0;
    row_names_ = {0, 1, 2, 3};
    // The recorder's word is taken without looking at the children.
    const bool drains = operation.kind != Operation::kParentFinalized;
    if (!drains || drain()) static_cast<void>(act(operation, order));
    return outcome_;
  }

 private:
  enum class Trigger : std::uint8_t {
    kCross,
    kEnd,
    kClose,
    kDispatch,
    kWorkerStarted,
    kFailedInChild,
    kTimedOut,
    kBegan,
    kEvidenceOfNoStart,
    kParentFinalized
  };
  enum class Do : std::uint8_t {
    kStop,
    kShape,
    kCreate,
    kMarkDispatched,
    kMarkStarted,
    kCancelled,
    kVerdict,
    kInventory,
    kJson,
    kEnd,
    kOpenMarker,
    kCloseMarker,
    kSetIdentity,
    kSetStarted,
    kSetFinalized,
    kSetExists,
    kSetChildException,
    kSetTimeout,
    kSetMarker,
    kForgetMarker,
    kCloseNow,
    kFailMissing,
    kFailTwice,
    kFailCrossed,
    kFailConflict,
    kFailLostEvidence
  };
  static constexpr std::int8_t kAny = -1;
  struct When {
    std::int8_t exists = kAny;
    std::int8_t row = kAny;
    std::int8_t finalized = kAny;
    std::int8_t reason = kAny;
    std::int8_t marker = kAny;
  };
  struct Row {
    Trigger trigger;
    When when;
    std::array<Do, 8> steps;
  };

  static const std::vector<Row>& table() {
    using T = Trigger;
    using D = Do;
    constexpr When kMissing{.exists = 0};
    constexpr When kElse{};
    static const std::vector<Row> rows = {
        {T::kCross, kMissing, {D::kFailMissing}},
        {T::kCross, {.row = ModelAttempt::kBacktestStarted}, {}},
        {T::kCross, {.finalized = 1}, {D::kFailCrossed}},
        {T::kCross,
         kElse,
         {D::kShape, D::kCreate, D::kSetIdentity, D::kMarkDispatched, D::kMarkStarted,
          D::kSetStarted}},
        {T::kEnd, {.finalized = 1}, {D::kCloseNow}},
        {T::kEnd, {.row = ModelAttempt::kNoRow}, {D::kSetFinalized, D::kCloseNow}},
        {T::kEnd,
         kElse,
         {D::kCancelled, D::kVerdict, D::kInventory, D::kJson, D::kEnd, D::kSetFinalized,
          D::kCloseNow}},
        {T::kClose, {.marker = 1}, {D::kCloseMarker, D::kForgetMarker}},
        {T::kClose, kElse, {}},
        {T::kDispatch, kMissing, {D::kSetExists}},
        {T::kDispatch, kElse, {D::kFailTwice}},
        {T::kWorkerStarted, kMissing, {D::kFailMissing}},
        {T::kWorkerStarted, kElse, {}},
        {T::kFailedInChild, {.reason = ModelAttempt::kNoReason}, {D::kSetChildException}},
        {T::kFailedInChild, {.reason = ModelAttempt::kTimeout}, {D::kFailConflict}},
        {T::kFailedInChild, kElse, {}},
        {T::kTimedOut, {.reason = ModelAttempt::kNoReason}, {D::kSetTimeout}},
        {T::kTimedOut, {.reason = ModelAttempt::kChildException}, {D::kFailConflict}},
        {T::kTimedOut, kElse, {}},
        {T::kBegan, kMissing, {D::kFailMissing}},
        {T::kBegan, kElse, {D::kOpenMarker, D::kSetMarker}},
        {T::kEvidenceOfNoStart, {.row = ModelAttempt::kBacktestStarted}, {D::kFailLostEvidence}},
        {T::kEvidenceOfNoStart, kElse, {}},
        {T::kParentFinalized, kElse, {D::kSetFinalized, D::kCloseNow}},
    };
    return rows;
  }

  static bool fits(const When& when, const ModelAttempt& attempt) {
    const auto is = [](std::int8_t wanted, std::uint8_t found) {
      return wanted == kAny || wanted == static_cast<std::int8_t>(found);
    };
    return is(when.exists, attempt.exists) && is(when.row, attempt.row) &&
           is(when.finalized, attempt.finalized) && is(when.reason, attempt.reason) &&
           is(when.marker, attempt.marker);
  }

  bool fail(Failed failed) {
    outcome_.failed = failed;
    return false;
  }

  bool ask(Call call) {
    const bool fails = around_->failing_call == static_cast<int>(outcome_.calls.size());
    outcome_.calls.push_back(call);
    return fails ? fail(Failed::kHost) : true;
  }

  // The first row that fits, step by step; false when a step failed.
  bool happen(Trigger trigger, Slot slot, Reason reason = Reason::kOver) {
    for (const Row& row : table()) {
      if (row.trigger != trigger || !fits(row.when, state_[slot])) continue;
      for (const Do step : row.steps)
        if (!take(step, slot, reason)) return false;
      return true;
    }
    return true;
  }

  Call end_call(Slot slot, Reason reason) const {
    Call call{.asked = Asked::kEnd, .of = row_names_[slot]};
    call.disposition = around_->cancelled ? Disposition::kCancelled
                       : state_[slot].row == ModelAttempt::kBacktestStarted
                           ? Disposition::kBacktestFailed
                           : Disposition::kResourceBlocked;
    call.reason = around_->cancelled ? Reason::kStopped : reason;
    call.gate_reason = reason;
    return call;
  }

  bool take(Do step, Slot slot, Reason reason) {
    ModelAttempt& attempt = state_[slot];
    const auto candidate = static_cast<std::uint8_t>(slot / 2);
    switch (step) {
      case Do::kStop:
        return true;
      case Do::kShape:
        return ask({.asked = Asked::kShape});
      case Do::kCreate:
        return ask({.asked = Asked::kCreate, .of = candidate});
      case Do::kMarkDispatched:
        return ask({.asked = Asked::kMarkDispatched, .of = row_names_[slot]});
      case Do::kMarkStarted:
        return ask({.asked = Asked::kMarkStarted, .of = row_names_[slot]});
      case Do::kCancelled:
        return ask({.asked = Asked::kCancelled});
      case Do::kVerdict:
        return ask({.asked = Asked::kVerdict});
      case Do::kInventory:
        return ask({.asked = Asked::kInventory});
      case Do::kJson:
        return ask({.asked = Asked::kJson});
      case Do::kEnd:
        return ask(end_call(slot, reason));
      case Do::kOpenMarker:
        return ask({.asked = Asked::kOpenMarker, .of = candidate});
      case Do::kCloseMarker:
        return ask({.asked = Asked::kCloseMarker, .of = slot});
      case Do::kSetIdentity:
        row_names_[slot] = static_cast<std::uint8_t>(kSlots + created_++);
        attempt.row = ModelAttempt::kIdentityKept;
        return true;
      case Do::kSetStarted:
        attempt.row = ModelAttempt::kBacktestStarted;
        return true;
      case Do::kSetFinalized:
        attempt.finalized = 1;
        return true;
      case Do::kSetExists:
        attempt.exists = 1;
        return true;
      case Do::kSetChildException:
        attempt.reason = ModelAttempt::kChildException;
        return true;
      case Do::kSetTimeout:
        attempt.reason = ModelAttempt::kTimeout;
        return true;
      case Do::kSetMarker:
        attempt.marker = 1;
        return true;
      case Do::kForgetMarker:
        attempt.marker = 0;
        return true;
      case Do::kCloseNow:
        return happen(Trigger::kClose, slot);
      case Do::kFailMissing:
        return fail(Failed::kMissing);
      case Do::kFailTwice:
        return fail(Failed::kTwice);
      case Do::kFailCrossed:
        return fail(Failed::kCrossed);
      case Do::kFailConflict:
        return fail(Failed::kConflict);
      case Do::kFailLostEvidence:
        return fail(Failed::kLostEvidence);
    }
    return true;
  }

  // Every signal is answered; a refusal ends the operation.
  bool drain() {
    for (const Slot slot : around_->signals) {
      if (happen(Trigger::kCross, slot)) {
        if (!ask({.asked = Asked::kAccept, .of = slot})) return false;
        continue;
      }
      const Failed failed = outcome_.failed;
      if (ask({.asked = Asked::kReject, .of = slot})) outcome_.failed = failed;
      return false;
    }
    return true;
  }

  [[nodiscard]] std::optional<Slot> current(Slot slot) const {
    const auto first = static_cast<Slot>(slot / 2 * 2);
    if (state_[first + 1U].exists != 0) return static_cast<Slot>(first + 1);
    if (state_[first].exists != 0) return first;
    return std::nullopt;
  }

  static Reason reason_of(const ModelAttempt& attempt, Reason otherwise) {
    if (attempt.reason == ModelAttempt::kChildException) return Reason::kChildException;
    if (attempt.reason == ModelAttempt::kTimeout) return Reason::kTimeout;
    return otherwise;
  }

  bool dispatch(Slot slot) {
    if (slot % 2 == 1) {
      const auto before = static_cast<Slot>(slot - 1);
      if (state_[before].exists == 0) return fail(Failed::kMissing);
      if (!happen(Trigger::kEnd, before, reason_of(state_[before], Reason::kRetried))) return false;
    }
    return happen(Trigger::kDispatch, slot);
  }

  bool worker_failed(const Operation& operation) {
    if (state_[operation.slot].exists == 0) return fail(Failed::kMissing);
    const Trigger trigger = operation.flag ? Trigger::kTimedOut : Trigger::kFailedInChild;
    if (!happen(trigger, operation.slot)) return false;
    if (!operation.retry) return true;
    return happen(Trigger::kEnd, operation.slot,
                  reason_of(state_[operation.slot], Reason::kRetried));
  }

  bool act(const Operation& operation, const std::vector<Slot>& order) {
    const std::optional<Slot> now = current(operation.slot);
    switch (operation.kind) {
      case Operation::kPoll:
      case Operation::kSource:
        return true;
      case Operation::kDispatch:
        return dispatch(operation.slot);
      case Operation::kWorkerStarted:
        return happen(Trigger::kWorkerStarted, operation.slot);
      case Operation::kWorkerFailed:
        return worker_failed(operation);
      case Operation::kBegan:
        return happen(Trigger::kBegan, operation.slot);
      case Operation::kEnded:
        return state_[operation.slot].exists == 0 ? fail(Failed::kMissing)
                                                  : happen(Trigger::kClose, operation.slot);
      case Operation::kEvidence:
        if (!now) return fail(Failed::kMissing);
        return happen(operation.flag ? Trigger::kCross : Trigger::kEvidenceOfNoStart, *now);
      case Operation::kParentFinalized:
        return !now || happen(Trigger::kParentFinalized, *now);
      case Operation::kFinalizeAll:
        for (const Slot slot : order)
          if (!happen(Trigger::kEnd, slot)) return false;
        return true;
    }
    return true;
  }

  ModelState state_;
  const Circumstances* around_ = nullptr;
  Outcome outcome_;
  int created_ = 0;
  std::array<std::uint8_t, kSlots> row_names_{};
};

}  // namespace varnholt::genetic::test
