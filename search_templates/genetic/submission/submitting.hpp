// Handing passing candidates to the host's queue of submissions.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Enqueues one candidate's payload, once: the mark "_submission_enqueued" makes a second call have
// no effect. A candidate that does not pass has no payload and is not enqueued. A host that answers
// exactly false has not taken it: the candidate stays unmarked, to be tried again.
//
// RuntimeError "genetic candidate cannot enqueue before parent evaluation persistence" for a
// candidate that is not recorded, passing or not, and "genetic search requires canonical submission
// enqueue" where the context has no queue.
void submit_candidate(Host& host, SearchContext& context, const Value& candidate);

// The same for each of the passing candidates, best first (ranking.hpp).
void submit_submittable_candidates(Host& host, SearchContext& context, const Value& candidates);

}  // namespace varnholt::genetic
