#include "search_templates/genetic/submission/statistics_payload.hpp"

#include <exception>

#include "search_templates/genetic/context/market_era.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

// What the host makes of the statistics; absent when it fails. The read of the era configuration
// belongs to what is guarded.
Value built_payload(const StatsPayloadOperation& build, SearchContext& context,
                    const Value& stats) {
  try {
    return unpack_pair(build(stats, context_era_config(context))).first;
  } catch (const std::exception&) {
    return {};
  }
}

Value statistic(const Value& stats, Key name, const Value& fallback = 0.0) {
  return float_of(attribute(stats, name.view()).value_or(fallback));
}

}  // namespace

Value candidate_stats_payload(SubmissionPayloads& payloads, SearchContext& context,
                              const Mapping& candidate) {
  const Value stats = candidate.get(keys::kStats);
  if (const StatsPayloadOperation build = payloads.find_submitted_stats_payload_from_backtest()) {
    Value built = built_payload(build, context, stats);
    if (as_mapping(built)) return built;
  }

  Mapping payload;
  for (const Key name :
       {keys::kSharpe, keys::kAnnualizedReturns, keys::kTurnover, keys::kDrawdown}) {
    payload.set(name, statistic(stats, name));
  }
  // The fallback is read first, also when there is a quality score.
  const Value sharpe = attribute(stats, keys::kSharpe.view()).value_or(0.0);
  payload.set(keys::kQualityScore, statistic(stats, keys::kQualityScore, sharpe));
  const Value correlation =
      optional_correlation(attribute(stats, keys::kCorrelation.view()).value_or(Value()));
  if (!correlation.is_absent()) payload.set(keys::kCorrelation, correlation);
  return payload;
}

}  // namespace varnholt::genetic
