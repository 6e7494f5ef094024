// The market and the era that a submission belongs to.
//
// The context, its era configuration and the payload itself may each name them, under several
// names. Both are positive integers of any size, or absent; a value that is neither resolves to
// absent and never fails.
#pragma once

#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// An attribute of the context; absent also when it is missing.
[[nodiscard]] inline Value context_value(SearchContext& context, Key name) {
  return context.attribute(name.view()).value_or(Value());
}

// The era configuration of the context: "_era_config" unless that is absent, then "era_config".
// The thresholds of the gates ask in the opposite order (thresholds.hpp), on purpose.
[[nodiscard]] Value context_era_config(SearchContext& context);

// int(value) where that is above 0; otherwise absent. True, which is 1 as an integer, and a real
// with a fraction are absent, while the digits of a number in a text count.
[[nodiscard]] Value positive_int_or_none(const Value& value);

[[nodiscard]] Value context_market_id(SearchContext& context);
[[nodiscard]] Value context_era_number(SearchContext& context);

// Writes `market_id` and `era_number` into a payload. The payload's own entry wins over the
// context, and the context over the entries of the client's manifest. Where none of them gives a
// positive integer, the old entry stays as it is.
void ensure_payload_market_era(Mapping& payload, SearchContext& context);

}  // namespace varnholt::genetic
