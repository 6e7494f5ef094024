// One candidate in its child process: evaluated under guards, and stopped at the start of its
// backtest until the parent has answered.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/process/child_stand_ins.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The candidate result record of the work item `candidate`, whose metadata says the number of the
// attempt. KeyError when the parent has not written it.
//
// The guards stand from before the evaluation until after it, however it ends, and are taken off in
// the reverse order; then the evaluation state has its earlier values again. A guard that cannot be
// installed leaves those that are there in place: the child ends then.
[[nodiscard]] Mapping process_simulate_candidate(Host& host, SearchContext& context,
                                                 const Value& candidate, ChildStandIns& stand_ins);

}  // namespace varnholt::genetic
