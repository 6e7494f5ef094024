// Goal: the ledger is right in every state that two candidates with two attempts each can come into
// within nine steps, whatever happens next: each event of the pool, signals, evidence, retries,
// cancellation, and any call of the host failing, before it took effect or after. Method: the
// states are walked from the first one, breadth first; in each the real ledger takes every step,
// and state, calls and error are compared with a model that is a plain table. Besides, whatever the
// model says: an end comes after a row and once, a child is let in after its row is marked, and
// nothing that was set is unset.
//
// The ledger treats both candidates alike, so of two states that only have them exchanged one is
// walked, with the candidates exchanged in turn. The order of dispatch matters to one operation
// alone, which is taken in all orders. Signals that come with another operation than polling, and
// faults, are taken in a share of the states, in another one for each operation. With
// VARNHOLT_LEDGER_EVERYTHING set to 1 they are taken in all states, to whatever depth.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/process/ledger_model.hpp"
#include "tests/process/ledger_world.hpp"

namespace varnholt::genetic::test {
namespace {

// The sanitizers make each step ten times as long.
#ifndef __has_feature
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
constexpr int kDepth = 6;
constexpr std::uint64_t kLeastStates = 3'000;
#else
constexpr int kDepth = 9;
constexpr std::uint64_t kLeastStates = 60'000;
#endif

constexpr std::uint32_t kCodes = 37;  // Of one attempt: none, or 3 rows, 2, 3 reasons, 2.

std::uint32_t code_of(const ModelAttempt& attempt) {
  if (attempt.exists == 0) return 0;
  return 1U + attempt.row + 3U * (attempt.finalized + 2U * (attempt.reason + 3U * attempt.marker));
}

ModelAttempt attempt_of(std::uint32_t code) {
  ModelAttempt attempt;
  if (code-- == 0) return attempt;
  attempt.exists = 1;
  attempt.row = static_cast<std::uint8_t>(code % 3);
  attempt.finalized = static_cast<std::uint8_t>(code / 3 % 2);
  attempt.reason = static_cast<std::uint8_t>(code / 6 % 3);
  attempt.marker = static_cast<std::uint8_t>(code / 18);
  return attempt;
}

// One number for a state and for the same with its candidates exchanged.
std::uint32_t code_of(const ModelState& state) {
  const std::uint32_t first = code_of(state[0]) + kCodes * code_of(state[1]);
  const std::uint32_t second = code_of(state[2]) + kCodes * code_of(state[3]);
  return std::min(first, second) * kCodes * kCodes + std::max(first, second);
}

ModelState state_of(std::uint32_t code, bool exchanged) {
  std::uint32_t first = code / (kCodes * kCodes);
  std::uint32_t second = code % (kCodes * kCodes);
  if (exchanged) std::swap(first, second);
  return {attempt_of(first % kCodes), attempt_of(first / kCodes), attempt_of(second % kCodes),
          attempt_of(second / kCodes)};
}

// All orders in which the attempts of the state can have been dispatched: of one candidate the
// first attempt before the second.
std::vector<std::vector<Slot>> orders_of(const ModelState& state) {
  std::vector<std::vector<Slot>> orders = {{}};
  const auto add = [&](Slot slot) {
    if (state[slot].exists == 0) return;
    for (auto& order : orders)
      order.push_back(slot);
  };
  add(0);
  add(1);
  for (const Slot slot : {Slot{2}, Slot{3}}) {
    if (state[slot].exists == 0) continue;
    std::vector<std::vector<Slot>> longer;
    for (const auto& order : orders) {
      for (std::size_t place = 0; place <= order.size(); ++place) {
        const auto before = static_cast<std::ptrdiff_t>(place);
        if (slot == 3 &&
            std::find(order.begin(), order.begin() + before, Slot{2}) == order.begin() + before) {
          continue;
        }
        auto with = order;
        with.insert(with.begin() + before, slot);
        longer.push_back(with);
      }
    }
    orders = longer;
  }
  return orders;
}

std::vector<Operation> operations() {
  std::vector<Operation> all;
  for (Slot slot = 0; slot < kSlots; ++slot) {
    all.push_back({Operation::kDispatch, slot});
    all.push_back({Operation::kWorkerStarted, slot});
    for (const bool timeout : {false, true})
      for (const bool retry : {false, true})
        all.push_back({Operation::kWorkerFailed, slot, timeout, retry});
    all.push_back({Operation::kBegan, slot});
    all.push_back({Operation::kEnded, slot});
    if (slot % 2 != 0) continue;
    all.push_back({Operation::kEvidence, slot, true});
    all.push_back({Operation::kEvidence, slot, false});
    all.push_back({Operation::kSource, slot});
    all.push_back({Operation::kParentFinalized, slot});
  }
  return all;
}

std::string text_of(const ModelState& state) {
  std::string text;
  for (const ModelAttempt& attempt : state) {
    text += text.empty() ? "" : " | ";
    text += attempt.exists == 0
                ? "none"
                : "row " + std::to_string(attempt.row) + " finalized " +
                      std::to_string(attempt.finalized) + " reason " +
                      std::to_string(attempt.reason) + " marker " + std::to_string(attempt.marker);
  }
  return text;
}

std::string text_of(const std::vector<Call>& calls) {
  std::string text;
  for (const Call& call : calls) {
    text += " " + std::to_string(static_cast<int>(call.asked)) + "(" + std::to_string(call.of) +
            "," + std::to_string(static_cast<int>(call.disposition)) + "," +
            std::to_string(static_cast<int>(call.reason)) + ")";
  }
  return text;
}

class LedgerExhaustive : public testing::Test {
 protected:
  // What holds whatever the model says.
  std::string broken_promise(const ModelState& before, const ModelState& after,
                             const Operation& operation, Failed failed) {
    for (Slot slot = 0; slot < kSlots; ++slot) {
      const ModelAttempt& was = before[slot];
      const ModelAttempt& is = after[slot];
      if (was.exists > is.exists || was.finalized > is.finalized) return "an end was taken back";
      if (was.row == ModelAttempt::kBacktestStarted && is.row != was.row) return "a start was lost";
      if (was.reason != ModelAttempt::kNoReason && is.reason != was.reason) return "a new reason";
      if (was.finalized != 0 && world.rows[slot].ends != 0) return "a second end";
      if (operation.kind == Operation::kFinalizeAll && failed == Failed::kNot && is.exists != 0 &&
          (is.finalized == 0 || is.marker != 0)) {
        return "something is left open";
      }
      if (is.row == ModelAttempt::kBacktestStarted && was.row != is.row &&
          is.finalized > was.finalized && operation.kind == Operation::kPoll) {
        return "a start and an end at once";
      }
    }
    for (const TrackedRow& row : world.rows)
      if (row.ends > 1 || (row.started && !row.dispatched)) return "a row went astray";
    for (const Call& call : world.script.calls) {
      if (call.asked != Asked::kEnd) continue;
      const bool started = world.rows[call.of].started;
      if (call.disposition == Disposition::kBacktestFailed && !started)
        return "an end before a start";
    }
    return "";
  }

  void visit(std::uint32_t code) {
    if (visited[code]) return;
    visited[code] = true;
    ++visited_count;
    next.push_back(code);
  }

  // Takes the step on both sides; false when they differ.
  bool step(const ModelState& state, const std::vector<Slot>& order, const Operation& operation,
            const Circumstances& around) {
    ++steps;
    LedgerModel model(state);
    const Outcome expected = model.run(operation, around, order);
    world.load(state, order, steps % 2 == 0);
    const Failed failed = world.run(operation, around);
    const std::optional<ModelState> after = world.read();
    const std::string broken =
        after ? broken_promise(state, *after, operation, failed) : "a state of no kind";
    calls = static_cast<int>(expected.calls.size());
    if (broken.empty() && failed == expected.failed && *after == model.state() &&
        world.script.calls == expected.calls) {
      visit(code_of(*after));
      return true;
    }
    ADD_FAILURE() << "from " << text_of(state) << "\noperation " << int{operation.kind} << " slot "
                  << int{operation.slot} << " flags " << operation.flag << operation.retry
                  << ", signals " << testing::PrintToString(around.signals) << ", cancelled "
                  << around.cancelled << ", failing call " << around.failing_call
                  << "\nbroken: " << broken << "\nledger " << int(failed) << ":"
                  << text_of(world.script.calls) << " -> " << (after ? text_of(*after) : "")
                  << "\nmodel  " << int(expected.failed) << ":" << text_of(expected.calls) << " -> "
                  << text_of(model.state());
    return false;
  }

  // The step by itself, while the run is cancelled, and with each call of the host failing.
  bool steps_with_faults(const ModelState& state, const std::vector<Slot>& order,
                         const Operation& operation, Circumstances around, std::uint32_t share) {
    if (!step(state, order, operation, around)) return false;
    const int all_calls = calls;
    if (all_calls == 0) return true;
    around.cancelled = true;
    if (!step(state, order, operation, around)) return false;
    if (!everything && share % 4 != 0) return true;
    for (around.failing_call = 0; around.failing_call < all_calls; ++around.failing_call) {
      for (const bool takes_effect : {false, true}) {
        if (!everything && takes_effect == (share / 4 % 2 == 0)) continue;
        world.script.takes_effect = takes_effect;
        around.cancelled = share / 8 % 2 == 0;
        if (!step(state, order, operation, around)) return false;
      }
    }
    return true;
  }

  bool every_step_from(std::uint32_t code) {
    // A number that goes through all shares as the states go by.
    const std::uint32_t share = code * 2654435761U >> 16U;
    const ModelState state = state_of(code, share / 16 % 2 == 0);
    const auto orders = orders_of(state);
    const auto& order = orders[share % orders.size()];
    std::uint32_t turn = share;
    const auto taken = [&](const Operation& operation, const std::vector<Slot>& signals) {
      return steps_with_faults(state, order, operation, {.signals = signals}, turn++);
    };
    for (Slot first = 0; first < kSlots; ++first) {
      if (!taken({}, {first})) return false;
      for (Slot second = 0; second < kSlots; ++second)
        if ((everything || (turn + second) % 4 == 0) && !taken({}, {first, second})) return false;
    }
    for (const Operation& operation : all_operations) {
      if (!taken(operation, {})) return false;
      if (operation.kind == Operation::kParentFinalized) continue;  // It leaves signals waiting.
      for (Slot slot = 0; slot < kSlots; ++slot)
        if ((everything || (turn + 5U * slot) % 32 == 0) && !taken(operation, {slot})) return false;
    }
    for (const auto& one : orders) {
      ++ordered_states;
      if (!steps_with_faults(state, one, {Operation::kFinalizeAll}, {}, turn++)) return false;
    }
    return true;
  }

  LedgerWorld world;
  const std::vector<Operation> all_operations = operations();
  const bool everything = std::getenv("VARNHOLT_LEDGER_EVERYTHING") != nullptr;
  std::vector<bool> visited = std::vector<bool>(std::size_t{kCodes} * kCodes * kCodes * kCodes);
  std::uint64_t visited_count = 0;
  std::vector<std::uint32_t> next;
  std::uint64_t steps = 0;
  std::uint64_t ordered_states = 0;
  int calls = 0;
};

TEST_F(LedgerExhaustive, EveryStepFromEveryState) {
  visit(0);
  int depth = 0;
  while (!next.empty() && (everything || depth < kDepth)) {
    const std::vector<std::uint32_t> level = std::move(next);
    next.clear();
    for (const std::uint32_t code : level)
      if (!every_step_from(code)) return;
    ++depth;
  }
  std::cout << "states " << visited_count << " up to the candidates' names, " << ordered_states
            << " with the order of dispatch; depth " << depth << "; steps " << steps << '\n';
  EXPECT_GT(visited_count, kLeastStates) << "the walk did not get around";
  EXPECT_GT(steps, 10 * kLeastStates);
}

}  // namespace
}  // namespace varnholt::genetic::test
