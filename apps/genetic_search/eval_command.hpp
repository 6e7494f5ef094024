// "genetic-search eval": what formulas would have earned.
#pragma once

#include "apps/genetic_search/commands.hpp"
#include "apps/genetic_search/run_observer.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::app {

// Tells of each formula its statistics in sample and on the hold-out, how near it is to each gate,
// and what it has in common with the members of a pool; writes its values and weights where files
// are named for them. Nothing is stored. False where a formula cannot be read on these prices; it
// is told on standard error, and the others are evaluated. An interrupt ends it with
// InterruptedAtOnce. Throws UsageError where there is no formula, and PriceFileError,
// HostConfigError, StoreError, ExportError, std::system_error and OutputError.
[[nodiscard]] bool eval_command(const EvalCommand& command, const RunOutputs& outputs,
                                const embedded::InterruptFlag& interrupt, Width width);

}  // namespace varnholt::app
