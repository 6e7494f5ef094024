// "genetic-search weights": what stored signals want to hold on other prices than their run's.
#pragma once

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/run_observer.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::app {

// Writes the weights, and tells how the prices differ from those of the run: beside a file on
// standard output, otherwise on standard error. False when a signal of the pool could not be
// computed on these prices; the others are written. Until a file is whole, an interrupt ends it
// with InterruptedAtOnce and without a file. Throws StoreError, UsageError for what the store does
// not have and for days that the prices do not have, ExportError, PriceFileError, GraphError for
// one signal that cannot be computed, std::system_error when the file cannot be written, and
// OutputError.
[[nodiscard]] bool weights_command(const WeightsCommand& command, const RunOutputs& outputs,
                                   const embedded::InterruptFlag& interrupt);

}  // namespace varnholt::app
