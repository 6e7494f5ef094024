// Which failures are worth repairing, and how far a failed result is from passing.
//
// A candidate that failed narrowly, for a reason that a planned reaction can address, becomes the
// source of repairs. A result stops at its first failed gate, so its recorded failures may be fewer
// than it has: `with_expanded_reaction_failures` judges all gates again. Nothing of that is cached:
// each call on a failed result is one more evaluation of the gates by the host.
//
// A result is a candidate result record; anything but a mapping is read through its own operation
// `get`, AttributeError where it has none.
#pragma once

#include <span>
#include <utility>

#include "search_templates/genetic/host/gates.hpp"
#include "search_templates/genetic/host/json_reader.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Whether a result that does not pass has a failure that a reaction can address, one of a gate
// of the signal pool, or either. `failures` may be anything that can be asked for a member.
[[nodiscard]] bool has_reaction_failure(const Value& result);
[[nodiscard]] bool has_gate_near_miss_failure(const Value& result);
[[nodiscard]] bool has_actionable_near_miss_failure(const Value& result);

// Whether a result, passing or not, has one of these failures. False for anything but a mapping,
// and for `failures` that are not.
[[nodiscard]] bool has_failure_reason(const Value& result, std::span<const Key> reason_names);
[[nodiscard]] bool has_failure_reason(const Value& result, const Value& reason_names);

// The host's metrics of a result's statistics, or of the result itself where it has none.
[[nodiscard]] Value stats_gate_metrics_for_result(Gates& gates, const Value& result);

// Every reaction failure that the gates find in a result that does not pass, by reason: mappings of
// `reason` and `detail`. Empty when there are no thresholds, and when the metrics or the gates fail
// with an ordinary error. What thresholds and the operations for single failures throw propagates.
[[nodiscard]] Mapping expanded_threshold_failures(SearchContext& context, Gates& gates,
                                                  const Value& result);

// The result with these failures beside its own. One that carries a value or a threshold is never
// replaced. The result itself when nothing changes, otherwise a shallow copy: recorded results are
// shared, and so never changed here. A null context changes nothing.
[[nodiscard]] Value with_expanded_reaction_failures(SearchContext* context, Gates& gates,
                                                    JsonReader& json_reader, const Value& result);

// A metric's value and threshold, each or both absent, as they stand and not converted.
struct MetricPair {
  Value value;
  Value threshold;
};

// Those of a failure: its own entries unless both are absent, then those of its detail, which is a
// mapping or a JSON text of one. A text that is not JSON counts as no detail.
[[nodiscard]] MetricPair failure_metric_pair(JsonReader& json_reader, const Value& failure);

// A result's sharpe with the threshold that it missed, as reals: the sharpe of the record, or of
// the host's metrics, or of a failure; the threshold of the first sharpe failure that has one.
[[nodiscard]] MetricPair sharpe_reaction_metric_pair(Gates& gates, JsonReader& json_reader,
                                                     const Value& result);
[[nodiscard]] Value sharpe_reaction_value(Gates& gates, JsonReader& json_reader,
                                          const Value& result);

// Whether a result failed on sharpe, but is so strongly negative that its reversal would pass:
// value < 0 and |value| >= threshold >= 0.
[[nodiscard]] bool is_negative_sharpe_reaction_candidate(Gates& gates, JsonReader& json_reader,
                                                         const Value& result);

}  // namespace varnholt::genetic
