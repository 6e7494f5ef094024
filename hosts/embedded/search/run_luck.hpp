// What a run found beside what chance alone would have found in as many trials.
#pragma once

#include <cstdint>
#include <vector>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/luck/verdict.hpp"
#include "hosts/embedded/search/report_workers.hpp"
#include "hosts/embedded/store/run_store.hpp"

namespace varnholt::embedded {

// So many trials are backtested once more for their daily PnL, evenly spread over all of them in
// the order in which they were first evaluated: the PnL of a candidate is not kept, since its graph
// gives it again.
inline constexpr std::size_t kSampledTrials = 128;

// How many trials an expression counts as: two where the better one of it and its opposite is kept.
[[nodiscard]] std::int64_t sides_judged(const Evaluator& evaluator);

// The trials are those that the store has of these prices, the ones of earlier runs included.
// `evaluator` is over the days in sample. The verdict is stored, with the deflated Sharpe ratio of
// each signal whose hold-out was evaluated. The workers do the backtests; where they are cut short,
// fewer trials are sampled; without any, all count as independent.
[[nodiscard]] RunLuck measure_luck(RunStore& store, std::int64_t run, const Evaluator& evaluator,
                                   const std::vector<SubmittedSignal>& signals,
                                   ReportWorkers& workers);

}  // namespace varnholt::embedded
