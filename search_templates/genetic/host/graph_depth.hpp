// The depth of a graph, as the host counts it.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class GraphDepth {
 public:
  virtual ~GraphDepth() = default;

  // Asked in the parent while a batch is composed, for a graph that is a mapping, and only where
  // the context has a depth limit. Returns a number. TypeError, ValueError and OverflowError keep
  // the graph out of the batch; any other failure propagates.
  [[nodiscard]] virtual Value graph_depth_for_attempt_marker(const Value& graph) = 0;
};

}  // namespace varnholt::genetic
