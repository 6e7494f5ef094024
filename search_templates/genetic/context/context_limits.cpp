#include "search_templates/genetic/context/context_limits.hpp"

#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {

Value context_max_depth(SearchContext& context) {
  // The read is guarded with the conversion: an attribute may be computed when it is read.
  const std::optional<Value> depth =
      tolerate([&context] { return to_integer(context.max_depth().value_or(0)); });
  if (!depth || less(*depth, 1)) return {};
  return *depth;
}

Callable graph_validator(SearchContext& context) {
  if (Callable own = context.own_graph_validator()) return own;
  return context.backtester_validate_graph();
}

}  // namespace varnholt::genetic
