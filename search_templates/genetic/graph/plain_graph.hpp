// Graphs as plain data.
//
// Plain graph data is a tree of mappings with text keys, lists and scalars, each of the exact type:
// nothing that a worker process or a copy could not carry. Its frozen form is made of pairs of a
// kind and a payload, which no caller can change:
//
//   ("dict", ((key, frozen value), ...))   in the mapping's order, which counts
//   ("list", (frozen item, ...))
//   ("scalar", value)
//
// All walks throw RecursionError for a graph nested deeper than kMaximumNesting.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// A deep copy in plain form, with new mappings and lists; scalars are returned as they are.
// TypeError "genetic initial candidate graph keys must be strings" for another key, before its
// value is looked at; TypeError "genetic initial candidates must contain only plain graph data" for
// anything that is not plain.
[[nodiscard]] Value plain_graph_data(const Value& value);

// The frozen form. Fails as plain_graph_data does.
[[nodiscard]] Value freeze_graph_data(const Value& value);

// A new plain value from a frozen form. TypeError "invalid frozen genetic graph data" for another
// kind.
[[nodiscard]] Value thaw_graph_data(const Value& frozen);

// Absent for absent; otherwise a tuple of the frozen candidates, in order.
// TypeError "genetic initial_candidates must be a list of graph dictionaries" for anything but a
// list of the exact type.
[[nodiscard]] Value plain_initial_candidates(const Value& initial_candidates);

}  // namespace varnholt::genetic
