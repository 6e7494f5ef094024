// The timing of a candidate's backtest.
//
// Every completed backtest carries a timing, a mapping whose fields are the host's. The same timing
// can reach the parent in three places: on the candidate, in the attempt's evidence, in the
// submission payload. It is validated, bound to its graph by a key, and must be the same in all of
// them. A disagreement means that results were mixed up and is not the candidate's fault, so every
// error here is a RuntimeError, and nothing has changed when one is thrown.
//
// A timing that the host's operations reject with a TypeError, ValueError or OverflowError becomes
// RuntimeError "genetic candidate has invalid backtest timing: ..." with the host's error as its
// cause; any other failure of the host propagates.
#pragma once

#include "search_templates/genetic/host/backtest_timings.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The host's normalised timing.
[[nodiscard]] Value validated_process_backtest_timing(BacktestTimings& timings,
                                                      const Value& timing);

// The same, checked against the graph; the first requires the process identity as well.
[[nodiscard]] Value validated_graph_process_backtest_timing(BacktestTimings& timings,
                                                            const Value& graph,
                                                            const Value& timing);
[[nodiscard]] Value validated_graph_backtest_timing(BacktestTimings& timings, const Value& graph,
                                                    const Value& timing);

// The timing checked against the graph, with the graph's key written into the very mapping that the
// host's validator returned.
[[nodiscard]] Value graph_bound_process_backtest_timing(BacktestTimings& timings,
                                                        const Value& graph, const Value& timing);

// The timing that the host recorded in this process for the graph. A payload that has the key
// "backtest_timing" has its value handed on, even an absent one.
[[nodiscard]] Value consumed_process_backtest_timing(BacktestTimings& timings, const Value& graph,
                                                     const Value& payload);

// The timing for a candidate's record: the evidence's, which must agree with the payload's where
// that has the key, or else the consumed one. RuntimeError "genetic candidate attempt evidence
// backtest timing disagrees with submission payload backtest timing".
[[nodiscard]] Value process_backtest_timing(BacktestTimings& timings, const Value& graph,
                                            const Value& attempt_evidence, const Value& payload);

// The one timing of a candidate. An absent timing counts as missing, wherever it stands.
// RuntimeError "genetic candidate is missing serialized backtest timing" without one, and "genetic
// candidate backtest timing disagrees with attempt evidence backtest timing" (or "submission
// payload"). The truth of `require_process_identity` is read only when all of them agree.
[[nodiscard]] Value candidate_backtest_timing_payload(
    BacktestTimings& timings, const Mapping& candidate,
    const Value& require_process_identity = false);

}  // namespace varnholt::genetic
