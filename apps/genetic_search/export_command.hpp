// "genetic-search export": the daily weights of one signal, as a file.
#pragma once

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/run_observer.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::app {

// Writes the file and reports what is in it; where the weights go to standard output, the report
// goes to standard error. Until the file is whole, an interrupt ends it with
// InterruptedAtOnce and without a file. Throws StoreError, UsageError for an id that the store does
// not have, ExportError and PriceFileError for prices or a file that cannot be used,
// std::system_error when the file cannot be written, and OutputError.
void export_command(const ExportCommand& command, const RunOutputs& outputs,
                    const embedded::InterruptFlag& interrupt);

}  // namespace varnholt::app
