// A mapping of the host that can walk the graph in it by itself, faster than by its single entries.
//
// Each walk gives what the library's own walk gives, or gives up where the graph is not plain
// throughout, so that the library finds out what to make of it or to complain of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "search_templates/genetic/value/storage.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// What is told the parts of a graph in their order: a mapping is followed by its entries, each a
// key and a value, a list by its items. A text is valid as long as the call lasts.
class PlainParts {
 public:
  virtual ~PlainParts() = default;

  virtual void on_mapping(std::size_t count) = 0;
  virtual void on_list(std::size_t count) = 0;
  virtual void on_text(std::string_view text) = 0;  // A key as well.
  virtual void on_absent() = 0;
  virtual void on_integer(std::int64_t integer) = 0;  // A boolean as well.
  // False for a number that cannot be taken as this: the walk gives up.
  [[nodiscard]] virtual bool on_real(double real) = 0;
};

// Which of a graph's names are asked for.
enum class NamedNodes { kAll, kFeatures };

// Mixed into the storage of a mapping.
class HostGraph {
 public:
  virtual ~HostGraph() = default;

  // What plain_graph_data() gives, of containers of the host.
  [[nodiscard]] virtual std::optional<Value> plain_copy() const = 0;
  // What canonical_graph_string() gives.
  [[nodiscard]] virtual std::optional<std::string> canonical_text() const = 0;
  // Tells the parts of the plain graph. False when it gave up: what was told then means nothing.
  [[nodiscard]] virtual bool tell(PlainParts& parts) const = 0;
  // Tells the names of the nodes, each as often as it occurs; false as above.
  [[nodiscard]] virtual bool tell_names(
      NamedNodes which, const std::function<void(std::string_view)>& take) const = 0;
};

// The value as such a mapping, or null.
[[nodiscard]] inline const HostGraph* host_graph(const Value& value) {
  if (!value.is_mapping()) return nullptr;
  return dynamic_cast<const HostGraph*>(value.mapping().storage());
}

}  // namespace varnholt::genetic
