// The filters that keep an item out of a batch when its graph is too deep or its validator refuses
// it. They never fail on bad data: the result is then false, or absent.
#pragma once

#include <functional>
#include <string_view>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/graph_depth.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Whether the host counts the graph's depth as at most `max_depth`. An absent limit accepts
// anything as a graph; otherwise anything but a mapping is refused, and so is a graph whose depth
// the host cannot count.
[[nodiscard]] bool graph_within_max_depth(GraphDepth& graph_depth, const Value& graph,
                                          const Value& max_depth);

// The same for the entry "graph" of an item. False when the item is not a mapping.
[[nodiscard]] bool candidate_item_within_max_depth(GraphDepth& graph_depth, const Value& item,
                                                   const Value& max_depth);
[[nodiscard]] bool reaction_improvement_within_graph_max_depth(GraphDepth& graph_depth,
                                                               const Value& improvement,
                                                               const Value& max_depth);

// Whether the validator accepts a deep copy of the graph: it never sees the caller's own. A missing
// validator accepts anything; an ordinary error of the validator is a refusal.
[[nodiscard]] bool graph_passes_validator(const Value& graph, const Callable& validator);

// The same for the entry "graph" of an item. False when the item is not a mapping.
[[nodiscard]] bool candidate_item_passes_validator(const Value& item, const Callable& validator);

// A copy of what `factory` makes, with the entry "lineage", when its graph is within the depth
// limit and accepted by the validator; absent otherwise, and when the factory fails.
[[nodiscard]] Value lineage_candidate_item(GraphDepth& graph_depth,
                                           const std::function<Value()>& factory,
                                           const Value& lineage, const Value& max_depth,
                                           const Callable& validator);

}  // namespace varnholt::genetic
