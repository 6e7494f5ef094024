// The results of a run's signals: those that joined the signal pool, on the days that the search
// saw and on those that it never saw, beside the market that they have to beat.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/backtest/out_of_sample.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/market/eras.hpp"
#include "hosts/embedded/store/run_store.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

// The signals that the run submitted, in the order in which they were queued. `evaluator` is
// over the whole history that `plan` splits. The hold-out's statistics are written into the store.
// Where the report is cut short, the signals left have the statistics in sample that are stored,
// and none of the hold-out.
[[nodiscard]] std::vector<SubmittedSignal> report_submitted_signals(
    RunStore& store, std::int64_t run, const Evaluator& evaluator, const EraPlan& plan,
    const StopQuestion& is_cut = {});

// The equal-weight market over the same days, at the same costs.
[[nodiscard]] SampleStatistics market_statistics(const Evaluator& evaluator, const EraPlan& plan);

}  // namespace varnholt::embedded
