#include "search_templates/genetic/context/thresholds.hpp"

#include <exception>
#include <optional>

#include "search_templates/genetic/context/market_era.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

void merge(Mapping& thresholds, const Value& source) {
  const std::optional<Mapping> mapping = as_mapping(source);
  if (mapping && truth(source)) thresholds.update(*mapping);
}

Value searched_thresholds(const Callable& search_context_thresholds) {
  try {
    return search_context_thresholds({});
  } catch (const std::exception&) {
    return {};  // The attributes' thresholds are enough to go on with.
  }
}

Value gates_era_config(SearchContext& context) {
  Value era_config = context_value(context, context_names::kEraConfig);
  if (!era_config.is_absent()) return era_config;
  return context_value(context, context_names::kOwnEraConfig);
}

}  // namespace

Value context_thresholds(SearchContext& context, Gates& gates) {
  Mapping thresholds;
  merge(thresholds, context_value(context, context_names::kThresholds));
  merge(thresholds, context_value(context, context_names::kOwnThresholds));
  if (const Callable operation = context.search_context_thresholds()) {
    merge(thresholds, searched_thresholds(operation));
  }
  const Value era_config = gates_era_config(context);
  return gates.stats_gate_threshold_set(thresholds, era_config);
}

}  // namespace varnholt::genetic
