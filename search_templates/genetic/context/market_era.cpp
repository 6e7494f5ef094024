#include "search_templates/genetic/context/market_era.hpp"

#include <array>
#include <cmath>
#include <optional>
#include <span>

#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

// The names in the order in which they are read. The repeats are meant: each is a read of the
// host's attribute.
constexpr auto kContextMarketNames =
    std::to_array({context_names::kOwnMarketId, context_names::kMarketId});
constexpr auto kConfigMarketNames = std::to_array({keys::kMarketId, keys::kMarket});
constexpr auto kContextEraNames =
    std::to_array({context_names::kOwnEraNumber, context_names::kEraNumber,
                   context_names::kOwnEraNumber, context_names::kEraNumber});
constexpr auto kConfigEraNames = std::to_array({keys::kEraNumber, keys::kEraNumber, keys::kId});

bool has_fraction(const Value& value) {
  if (!is_instance_of(value, Kind::kReal)) return false;
  if (value.is_object()) return !value.object().is_whole();
  return !std::isfinite(value.real()) || std::trunc(value.real()) != value.real();
}

Value first_positive(SearchContext& context, std::span<const Key> context_names,
                     std::span<const Key> config_names) {
  for (const Key name : context_names) {
    Value found = positive_int_or_none(context_value(context, name));
    if (!found.is_absent()) return found;
  }
  const Value era_config = context_era_config(context);
  for (const Key name : config_names) {
    Value found = positive_int_or_none(field_value(era_config, name));
    if (!found.is_absent()) return found;
  }
  return {};
}

}  // namespace

Value context_era_config(SearchContext& context) {
  Value era_config = context_value(context, context_names::kOwnEraConfig);
  if (!era_config.is_absent()) return era_config;
  return context_value(context, context_names::kEraConfig);
}

Value positive_int_or_none(const Value& value) {
  if (value.is_absent() || value.is_boolean() || has_fraction(value)) return {};
  const std::optional<Value> integer = tolerant_integer(value);
  if (!integer || !less(0, *integer)) return {};
  return *integer;
}

Value context_market_id(SearchContext& context) {
  return first_positive(context, kContextMarketNames, kConfigMarketNames);
}

Value context_era_number(SearchContext& context) {
  return first_positive(context, kContextEraNames, kConfigEraNames);
}

void ensure_payload_market_era(Mapping& payload, SearchContext& context) {
  Value market_id = positive_int_or_none(payload.get(keys::kMarketId));
  if (market_id.is_absent()) market_id = context_market_id(context);
  if (market_id.is_absent()) {
    market_id = positive_int_or_none(payload.get(keys::kClientManifestMarketId));
  }
  Value era_number = positive_int_or_none(payload.get(keys::kEraNumber));
  if (era_number.is_absent()) era_number = context_era_number(context);
  if (era_number.is_absent()) {
    era_number = positive_int_or_none(payload.get(keys::kClientManifestEraNumber));
  }
  if (!market_id.is_absent()) payload.set(keys::kMarketId, market_id);
  if (!era_number.is_absent()) payload.set(keys::kEraNumber, era_number);
}

}  // namespace varnholt::genetic
