#include "search_templates/genetic/process/worker_capacity.hpp"

#include <optional>

#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::string_view kScope = "genetic process evaluation";
constexpr std::string_view kReductionDetail =
    "public search n_jobs remains unchanged; this cap applies only to child evaluator processes "
    "spawned for this candidate batch";

Value larger(const Value& left, const Value& right) {
  return less(left, right) ? right : left;
}
Value smaller(const Value& left, const Value& right) {
  return less(right, left) ? right : left;
}

}  // namespace

Value context_optional_int(SearchContext& context, std::string_view attribute_name,
                           const Value& fallback) {
  const Value value = context.attribute(attribute_name).value_or(fallback);
  if (value.is_absent()) return {};
  return tolerant_integer(value).value_or(Value());
}

Value context_worker_memory_limit_bytes(ProcessEvaluation& process_evaluation,
                                        SearchContext& context) {
  const Value limit = context.worker_memory_limit_bytes().value_or(Value());
  if (limit.is_absent()) return process_evaluation.default_worker_memory_limit_bytes();
  const std::optional<Value> bytes = tolerant_integer(limit);
  if (!bytes || less(*bytes, 1)) return process_evaluation.default_worker_memory_limit_bytes();
  return *bytes;
}

Value parallel_evaluation_requested_jobs(SearchContext& context) {
  const std::optional<Value> jobs =
      tolerate([&context] { return to_integer(context.n_jobs().value_or(1)); });
  if (!jobs || less(*jobs, 1)) return 1;
  return *jobs;
}

std::unique_ptr<WorkerResolution> parallel_evaluation_worker_resolution(
    ProcessEvaluation& process_evaluation, SearchContext& context, const Value& batch_size) {
  return process_evaluation.resolve_process_worker_count_details(
      [&context] { return parallel_evaluation_requested_jobs(context); }, batch_size);
}

void log_parallel_evaluation_worker_resolution(Host& host, SearchContext& context,
                                               const WorkerResolution& resolution) {
  host.process_evaluation().log_worker_count_reduction(host.logger(), resolution, kScope, context,
                                                       kReductionDetail);
}

Value parallel_evaluation_workers(Host& host, SearchContext& context, const Value& batch_size) {
  const auto resolution =
      parallel_evaluation_worker_resolution(host.process_evaluation(), context, batch_size);
  log_parallel_evaluation_worker_resolution(host, context, *resolution);
  return resolution->resolved();
}

Value parent_prefetch_chunk_size(Host& host, SearchContext& context, const Value& batch_size) {
  const auto resolution =
      parallel_evaluation_worker_resolution(host.process_evaluation(), context, batch_size);
  log_parallel_evaluation_worker_resolution(host, context, *resolution);
  // The requested jobs are read a second time here.
  if (!less(parallel_evaluation_requested_jobs(context), batch_size)) {
    return larger(1, smaller(batch_size, resolution->resolved()));
  }
  return larger(1, resolution->resolved());
}

}  // namespace varnholt::genetic
