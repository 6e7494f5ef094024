// What a search context allows.
#pragma once

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The context's depth limit for graphs as an integer of at least 1, or absent. Missing, below 1 and
// not convertible are all absent: 0 means no limit here, unlike the limit of improvement depth.
[[nodiscard]] Value context_max_depth(SearchContext& context);

// What validates one graph: the context's own operation, or else the backtester's. Either may be
// missing or not callable; then the Callable is empty.
[[nodiscard]] Callable graph_validator(SearchContext& context);

}  // namespace varnholt::genetic
