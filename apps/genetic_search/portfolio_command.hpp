// "genetic-search portfolio": the signals of a pool as one book.
#pragma once

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/run_observer.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::app {

// Tells the book's figures, and writes its weights where they are asked for: on standard output
// they displace the figures to standard error. False when a signal cannot be part of the book,
// which is made of the others. Until a file is whole, an interrupt ends it with InterruptedAtOnce
// and without a file. Throws StoreError, UsageError for a pool without signals, PoolBookError,
// ExportError, PriceFileError, std::system_error when the file cannot be written, and OutputError.
[[nodiscard]] bool portfolio_command(const PortfolioCommand& command, const RunOutputs& outputs,
                                     const embedded::InterruptFlag& interrupt, Width width);

}  // namespace varnholt::app
