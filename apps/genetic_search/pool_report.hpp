// A run's final report on the signal pool: the signals that joined it, beside the market.
#pragma once

#include <string>

#include "apps/genetic_search/text_layout.hpp"
#include "hosts/embedded/host/search_events.hpp"

namespace varnholt::app {

// A row for each signal that the run submitted, in the order in which they joined the pool, and one
// for the equal-weight market over the same days:
//   in sample, hold-out   Sharpe ratio after costs, annualised, on the days that the search saw and
//                         on those that it never saw
//   novelty, correlation  against the signal pool as it was when the signal joined it
// Then which days those are, what became of all submissions, and the command that shows more of a
// signal. Every line is ended.
[[nodiscard]] std::string pool_text(const embedded::SearchSummary& summary,
                                    const embedded::SearchStarted& started, Width width);

// "In sample are the 2451 days from 2000-03-01 to 2009-11-27, which the search saw; ..."
[[nodiscard]] std::string sample_days_text(const embedded::SearchStarted& started);

// "3 submitted, 5 refused (correlation_exceeded 4, pnl_mi_below_threshold 1), 0 waiting"
[[nodiscard]] std::string submission_counts_text(const embedded::SubmissionCounts& counts);

}  // namespace varnholt::app
