#include "search_templates/genetic/submission/submitting.hpp"

#include <optional>

#include "search_templates/genetic/submission/ranking.hpp"
#include "search_templates/genetic/submission/submission_payload.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr const char* kNotRecorded =
    "genetic candidate cannot enqueue before parent evaluation persistence";
constexpr const char* kEnqueueRequired = "genetic search requires canonical submission enqueue";

}  // namespace

void submit_candidate(Host& host, SearchContext& context, const Value& candidate) {
  Mapping record = record_of(candidate);
  if (truth(record.get(keys::kSubmissionEnqueued))) return;
  if (!truth(record.get(keys::kParentRecorded))) throw RuntimeError(kNotRecorded);
  const Value payload = ensure_candidate_submission_payload(host, context, record);
  if (!truth(payload)) return;

  const Callable enqueue = context.enqueue_deferred_submission_payload();
  if (!enqueue) throw RuntimeError(kEnqueueRequired);
  const Value result = enqueue({payload});
  // Only false itself, not what is false in a truth test.
  if (result.is_boolean() && !result.boolean()) return;
  record.set(keys::kSubmissionEnqueued, true);
}

void submit_submittable_candidates(Host& host, SearchContext& context, const Value& candidates) {
  ListCursor cursor(rank_submittable_candidates(host.eliteness(), candidates));
  while (const std::optional<Value> candidate = cursor.next())
    submit_candidate(host, context, *candidate);
}

}  // namespace varnholt::genetic
