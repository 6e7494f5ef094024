// One search, from the price file to the best signals.
#pragma once

#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/search/search_options.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

// Reads the prices, opens the store, runs the genetic search until a limit or a signal ends it, and
// stores every outcome.
//
// Bad input (options, prices, an invalid store) throws before anything is written:
// std::invalid_argument, PriceFileError, StoreError, or the template's genetic::TypeError and
// genetic::ValueError. InterruptedAtOnce is thrown at the second interrupt.
[[nodiscard]] SearchSummary run_search(const SearchOptions& options, SearchObserver& observer,
                                       const InterruptFlag& interrupt);

}  // namespace varnholt::embedded
