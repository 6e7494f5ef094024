// How many child processes one batch of candidates may use.
//
// The context's settings are read defensively: a bad one never fails here, it falls back. What the
// host's two operations throw propagates. The public number of jobs is never changed; a cap holds
// only for the child processes of one batch.
#pragma once

#include <memory>
#include <string_view>

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// int(attribute), or absent: when it is absent, whatever `fallback` is, and when it cannot be
// converted. `fallback` replaces a missing attribute alone.
[[nodiscard]] Value context_optional_int(SearchContext& context, std::string_view attribute_name,
                                         const Value& fallback = Value());

// The limit of a worker's memory in bytes: the host's default for an absent, bad or too small one.
[[nodiscard]] Value context_worker_memory_limit_bytes(ProcessEvaluation& process_evaluation,
                                                      SearchContext& context);

// The jobs asked for, at least 1.
[[nodiscard]] Value parallel_evaluation_requested_jobs(SearchContext& context);

// The host's answer for a batch of that size.
[[nodiscard]] std::unique_ptr<WorkerResolution> parallel_evaluation_worker_resolution(
    ProcessEvaluation& process_evaluation, SearchContext& context, const Value& batch_size);

// Lets the host log a reduction. The context owns the memory of what has been logged.
void log_parallel_evaluation_worker_resolution(Host& host, SearchContext& context,
                                               const WorkerResolution& resolution);

// The number of worker processes for batches of that size, logged.
[[nodiscard]] Value parallel_evaluation_workers(Host& host, SearchContext& context,
                                                const Value& batch_size);

// How many candidates the parent prefetches at a time, at least 1, so that a batch always proceeds.
[[nodiscard]] Value parent_prefetch_chunk_size(Host& host, SearchContext& context,
                                               const Value& batch_size);

}  // namespace varnholt::genetic
