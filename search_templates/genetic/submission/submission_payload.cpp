#include "search_templates/genetic/submission/submission_payload.hpp"

#include <optional>
#include <string>

#include "search_templates/genetic/context/market_era.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/submission/backtest_timing.hpp"
#include "search_templates/genetic/submission/pool_metric_refresh.hpp"
#include "search_templates/genetic/submission/statistics_payload.hpp"
#include "search_templates/genetic/value/digest.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::size_t kGraphIdDigits = 16;

void write_source_attempt(Mapping& payload, const Mapping& candidate) {
  const Value source_attempt_id = candidate.get(keys::kSourceAttemptId);
  if (!source_attempt_id.is_absent()) {
    payload.set(keys::kPayloadSourceAttemptId, source_attempt_id);
  }
}

// The order of the keys is the order in which the context and the host are asked.
Mapping new_payload(Host& host, SearchContext& context, const Mapping& candidate,
                    const Value& timing) {
  Mapping payload;
  payload.set(keys::kEvalId, candidate_eval_id(candidate));
  payload.set(keys::kSubmissionType, "signal");
  payload.set(keys::kGraph, candidate.get(keys::kGraph));
  // An attribute that is there and absent stays absent; only a missing one has the default.
  payload.set(keys::kNamedUniverse,
              context.attribute(context_names::kNamedUniverse.view()).value_or(""));
  payload.set(keys::kSignalPoolName, context_value(context, context_names::kSignalPoolName));
  payload.set(keys::kIsStats,
              candidate_stats_payload(host.submission_payloads(), context, candidate));
  payload.set(keys::kMetaparameters,
              context.attribute(context_names::kMetaparameters.view()).value_or(Mapping()));
  payload.set(keys::kSearchState, Mapping());
  payload.set(keys::kExpressionElapsedSeconds, candidate.get(keys::kElapsedSimulationSeconds));
  payload.set(keys::kBacktestTiming, timing);

  ensure_payload_market_era(payload, context);
  const auto annotate = host.submission_payloads().required_annotate_submission_client_manifest();
  annotate(payload, context_value(context, context_names::kSyncManager));
  // Again, on purpose: the manifest may have written a market and an era of its own.
  ensure_payload_market_era(payload, context);

  const Value owner = context_value(context, context_names::kSubmissionOwner);
  if (!owner.is_absent()) payload.set(keys::kSubmissionOwner, owner);
  write_source_attempt(payload, candidate);
  return payload;
}

// No manifest, no owner and no new statistics: an existing payload is only completed.
void complete_payload(Mapping& payload, SearchContext& context, const Mapping& candidate,
                      const Value& timing) {
  const Value eval_id = candidate.get(keys::kEvalId);
  if (payload.get(keys::kEvalId).is_absent() && !eval_id.is_absent()) {
    payload.set(keys::kEvalId, eval_id);
  }
  write_source_attempt(payload, candidate);
  ensure_payload_market_era(payload, context);
  payload.set(keys::kBacktestTiming, timing);
}

}  // namespace

Value candidate_eval_id(const Mapping& candidate) {
  Value eval_id = candidate.get(keys::kEvalId);
  if (!eval_id.is_absent()) return eval_id;
  const Value candidate_index = candidate.get(keys::kCandidateIndex);
  if (!candidate_index.is_absent()) return "genetic-candidate-" + str(candidate_index);
  const std::string digest = sha256_hex(canonical_graph_string(candidate.get(keys::kGraph)));
  return "genetic-graph-" + digest.substr(0, kGraphIdDigits);
}

Value ensure_candidate_submission_payload(Host& host, SearchContext& context, Mapping& candidate,
                                          const Value& refresh_pool_metrics) {
  if (!truth(candidate.get(keys::kPasses))) return {};

  const Value timing = candidate_backtest_timing_payload(host.backtest_timings(), candidate);
  candidate.set(keys::kBacktestTiming, timing);
  Value payload = candidate.get(keys::kSubmissionPayload);
  std::optional<Mapping> record = as_mapping(payload);
  if (record) {
    complete_payload(*record, context, candidate, timing);
  } else {
    record = new_payload(host, context, candidate, timing);
    payload = *record;
    candidate.set(keys::kSubmissionPayload, payload);
  }
  if (truth(refresh_pool_metrics)) {
    refresh_candidate_submission_pool_metrics(host, context, candidate, *record);
  }
  return truth(candidate.get(keys::kPasses)) ? payload : Value();
}

}  // namespace varnholt::genetic
