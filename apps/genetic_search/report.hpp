// The texts that a run shows at its beginning and at its end.
//
// Every text consists of ended lines. `width` is that of the terminal; without one, nothing is
// wrapped or cut.
#pragma once

#include <string>
#include <vector>

#include "apps/genetic_search/text_layout.hpp"
#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/search/search_options.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::app {

// How signals are traded, as one clause.
[[nodiscard]] std::string book_text(const embedded::BookRules& rules, bool periods_are_inferred);

// What is searched, with what, and where it is stored.
[[nodiscard]] std::string started_text(const embedded::SearchStarted& started, Width width);

// The signals of the pool that are measured on the prices of the run: while it goes on, and the
// outcome.
[[nodiscard]] std::string measuring_text(const embedded::PoolMeasuring& measuring);
[[nodiscard]] std::string measured_text(const embedded::PoolMeasuring& measuring, Width width);

// Each entry of the metrics record, in the record's order.
[[nodiscard]] std::string metrics_text(const genetic::Mapping& metrics, Width width);

// A row for each signal: its id in the store, and of the days that the search saw
//   sharpe, gross     annualised, after and before costs
//   return %          a year, after costs
//   turnover          fractions of the capital a day
//   drawdown %        the deepest fall from a peak
//   quality           what the signals are ranked by
[[nodiscard]] std::string best_signals_text(const std::vector<embedded::CandidateRecorded>& best,
                                            Width width);

// Why nothing passed: the failures by reason, the most frequent first, and what to change.
[[nodiscard]] std::string nothing_passed_text(const embedded::SearchProgress& progress,
                                              const embedded::SearchOptions& options);

// What to change for a candidate that fails for `reason`; empty for a reason without a remedy.
[[nodiscard]] std::string remedy_for(const std::string& reason,
                                     const embedded::SearchOptions& options);

// Why the run ended, in words and without a full stop.
[[nodiscard]] std::string end_in_words(const embedded::SearchSummary& summary,
                                       const embedded::SearchOptions& options);

// The whole end of a run: metrics, best signals or why there are none, the signal pool
// (pool_report.hpp), where everything is stored, why it ended.
[[nodiscard]] std::string summary_text(const embedded::SearchSummary& summary,
                                       const embedded::SearchOptions& options,
                                       const embedded::SearchStarted& started, Width width);

}  // namespace varnholt::app
