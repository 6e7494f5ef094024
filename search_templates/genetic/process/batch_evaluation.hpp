// A whole batch through the host's process pool.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The result record of a process result: a copy of its payload with the worker's identity.
[[nodiscard]] Mapping candidate_result_from_process_result(const Value& process_result);

// Every graph is evaluated in a child process, also with one job. Returns the result records in the
// order of the batch, without those that have no result. An absent `process_timeout_seconds` is the
// host's default, and only an absent one: 0 stays 0. An empty batch asks the host nothing.
[[nodiscard]] List evaluate_candidate_batch(Host& host, SearchContext& context, const Value& batch,
                                            const Value& process_timeout_seconds);

}  // namespace varnholt::genetic
