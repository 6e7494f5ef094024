// How the attempt of a recorded candidate ends, and what is announced of one that passed.
#pragma once

#include <string>

#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/host/embedded_context.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/store/attempt_table.hpp"
#include "hosts/embedded/store/store_records.hpp"
#include "hosts/embedded/store/submission_table.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The dispositions of attempts whose result reached the recorder. Those of the others are the
// search's own: "backtest_failed", "resource_blocked", "cancelled"; and the store's: "abandoned".
inline constexpr const char* kPassed = "passed";
inline constexpr const char* kRejected = "rejected";

// The end of a candidate's attempt. What its evidence says of itself goes first. Otherwise
//
//   disposition      category           source
//   passed           none               parent_recorder
//   rejected         that of the gate   parent_recorder     the backtest was completed
//   rejected         novelty            parent_recorder     it was left out: the signal repeats
//                                                           another, behaviour_repeated
//   backtest_failed  execution          parent_recorder     it was not, and the child said so
//   backtest_failed  execution          process_evaluation  the worker was lost: no attempt is
//                                                           active, and no statistics came
//
// with the reason and the detail of the record. `keywords` are those of the recorder.
[[nodiscard]] AttemptEndRow attempt_end(const CandidateRecorded& candidate,
                                        const genetic::Mapping& keywords,
                                        const ActiveAttempt& attempt, const GateThresholds& gates,
                                        const HardLimits& limits);

// The payload with which a later run enqueues the signal should this one die before it does: what
// the search's own has, as far as the record tells it.
[[nodiscard]] std::string announced_payload(const EvaluationRecord& record,
                                            const PoolIdentity& pool,
                                            const genetic::Mapping& keywords);

}  // namespace varnholt::embedded
