// The marker of a candidate that is under way.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Opens the host's marker for a candidate that was started, in the parent, and returns its
// identity. Absent, without a call, for another event, for anything but a mapping, and for a
// candidate without a graph.
[[nodiscard]] Value write_parent_process_evaluation_attempt_marker(Host& host,
                                                                   SearchContext& context,
                                                                   const Value& event);

}  // namespace varnholt::genetic
