#include "search_templates/genetic/graph/graph_filters.hpp"

#include <exception>
#include <optional>

#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {

bool graph_within_max_depth(GraphDepth& graph_depth, const Value& graph, const Value& max_depth) {
  if (max_depth.is_absent()) return true;
  if (!as_mapping(graph)) return false;
  return tolerate([&] {
           const Value depth = to_integer(graph_depth.graph_depth_for_attempt_marker(graph));
           return !less(to_integer(max_depth), depth);
         })
      .value_or(false);
}

bool candidate_item_within_max_depth(GraphDepth& graph_depth, const Value& item,
                                     const Value& max_depth) {
  const std::optional<Mapping> mapping = as_mapping(item);
  return mapping && graph_within_max_depth(graph_depth, mapping->get(keys::kGraph), max_depth);
}

bool reaction_improvement_within_graph_max_depth(GraphDepth& graph_depth, const Value& improvement,
                                                 const Value& max_depth) {
  return candidate_item_within_max_depth(graph_depth, improvement, max_depth);
}

bool graph_passes_validator(const Value& graph, const Callable& validator) {
  if (!validator) return true;
  if (!as_mapping(graph)) return false;
  try {
    return truth(validator({deep_copy(graph)}));
  } catch (const std::exception&) {
    return false;  // The validator's failure is its answer.
  }
}

bool candidate_item_passes_validator(const Value& item, const Callable& validator) {
  const std::optional<Mapping> mapping = as_mapping(item);
  return mapping && graph_passes_validator(mapping->get(keys::kGraph), validator);
}

Value lineage_candidate_item(GraphDepth& graph_depth, const std::function<Value()>& factory,
                             const Value& lineage, const Value& max_depth,
                             const Callable& validator) {
  std::optional<Mapping> item;
  try {
    item = new_mapping(factory());
  } catch (const std::exception&) {
    return {};  // A factory that fails costs the batch this one item.
  }
  item->set(keys::kLineage, lineage);
  if (!candidate_item_within_max_depth(graph_depth, *item, max_depth)) return {};
  if (!candidate_item_passes_validator(*item, validator)) return {};
  return *item;
}

}  // namespace varnholt::genetic
