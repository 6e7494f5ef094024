// The thresholds that a context's candidates must meet.
#pragma once

#include "search_templates/genetic/host/gates.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The host's threshold set of the context's merged thresholds: the attribute "thresholds", then
// "_thresholds", then what the operation `search_context_thresholds` gives; a later entry replaces
// an earlier one. Anything that is empty or not a mapping adds nothing, and an ordinary failure of
// that one operation counts as nothing; every other failure propagates.
//
// The era configuration is "era_config" unless that is absent, then "_era_config": the opposite of
// `context_era_config`, on purpose.
[[nodiscard]] Value context_thresholds(SearchContext& context, Gates& gates);

}  // namespace varnholt::genetic
