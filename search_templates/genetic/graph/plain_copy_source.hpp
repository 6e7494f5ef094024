// A container of the host that can copy a graph by itself, faster than by its single entries.
#pragma once

#include <optional>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Mixed into the storage of a list or mapping.
class PlainCopySource {
 public:
  virtual ~PlainCopySource() = default;

  // What plain_graph_data() gives for the container, of containers of the host; nothing where the
  // graph is not plain, so that the library finds out what to complain of.
  [[nodiscard]] virtual std::optional<Value> plain_copy() const = 0;
};

}  // namespace varnholt::genetic
