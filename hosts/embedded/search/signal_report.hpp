// The results of a run's signals: those that joined the signal pool, on the days that the search
// saw and on those that it never saw, beside the market that they have to beat.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/backtest/sample_figures.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/search/report_workers.hpp"
#include "hosts/embedded/store/run_store.hpp"

namespace varnholt::embedded {

// The signals that the run submitted, in the order in which they were queued. `evaluator` is
// over the whole history, and so is `taker`. The figures of both samples are made by the workers
// and written into the store. Where the report is cut short, the signals left have the statistics
// in sample that are stored, and none of the hold-out.
[[nodiscard]] std::vector<SubmittedSignal> report_submitted_signals(RunStore& store,
                                                                    std::int64_t run,
                                                                    const Evaluator& evaluator,
                                                                    const FigureTaker& taker,
                                                                    ReportWorkers& workers);

// The figures of the signals that earlier runs submitted to the pool on the very days of this one,
// and that have none of the hold-out yet, because those runs were interrupted: made now, as above,
// until the workers are cut short. Returns the ids of those that have them now.
[[nodiscard]] std::vector<std::string> complete_holdouts(RunStore& store, const PoolIdentity& pool,
                                                         const Evaluator& evaluator,
                                                         const FigureTaker& taker,
                                                         ReportWorkers& workers);

}  // namespace varnholt::embedded
