// A candidate's statistics as a submission carries them.
#pragma once

#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/host/submission_payloads.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The mapping that the host makes of the candidate's statistics, as it is; where the host has no
// such operation, fails or makes none, a new one: `sharpe`, `annualized_returns`, `turnover`,
// `drawdown`, `quality_score` as reals, read from attributes and 0.0 where there is none, and
// `correlation` where there is one.
//
// Unlike those of a candidate's record, these conversions tolerate nothing: TypeError, ValueError
// or OverflowError for an attribute that is not a number.
[[nodiscard]] Value candidate_stats_payload(SubmissionPayloads& payloads, SearchContext& context,
                                            const Mapping& candidate);

}  // namespace varnholt::genetic
