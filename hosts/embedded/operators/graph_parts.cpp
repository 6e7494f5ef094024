#include "hosts/embedded/operators/graph_parts.hpp"

#include <algorithm>
#include <utility>

#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::embedded {

using genetic::Mapping;
using genetic::Value;
namespace keys = genetic::keys;

namespace {

class PartCollector {
 public:
  explicit PartCollector(const GraphLimits& limits) : limits_(limits) {}

  // Returns the place of the part among the parts.
  std::size_t collect(const Value& node, const GraphPlace& place) {
    count_node(total_, place, limits_);
    const GraphNode read = read_graph_node(node, place);
    const std::size_t index = parts_.size();
    GraphPart part;
    part.path = path_;
    part.node = node;
    part.name = read.name;
    part.type = read.type;
    part.shape = {1, 1};
    parts_.push_back(std::move(part));
    for (std::size_t child = 0; child < read.children.size(); ++child) {
      path_.push_back(child);
      const std::size_t below = collect(read.children.at(child), place.of_child(child));
      path_.pop_back();
      GraphPart& whole = parts_[index];
      whole.shape.node_count += parts_[below].shape.node_count;
      whole.shape.depth = std::max(whole.shape.depth, parts_[below].shape.depth + 1);
      if (parts_[below].is_data()) {
        ++whole.data_children;
      } else {
        whole.settings.append(parts_[below].type).append(",");
      }
    }
    return index;
  }

  [[nodiscard]] std::vector<GraphPart> take() { return std::move(parts_); }

 private:
  const GraphLimits& limits_;
  GraphShape total_;
  std::vector<std::size_t> path_;
  std::vector<GraphPart> parts_;
};

Mapping node_at(const Value& graph, const std::vector<std::size_t>& path) {
  Mapping node = graph.mapping();
  for (const std::size_t child : path) {
    node = node.at(keys::kChildren).list().at(child).mapping();
  }
  return node;
}

}  // namespace

bool GraphPart::is_data() const {
  return type == kFeatureType || type == kRotationType || type == kConstantType;
}

bool GraphPart::is_constant() const {
  return type == kConstantType;
}

std::vector<GraphPart> graph_parts(const Value& graph, const GraphLimits& limits) {
  PartCollector collector(limits);
  static_cast<void>(collector.collect(graph, GraphPlace{}));
  return collector.take();
}

Value with_part(const Value& graph, const std::vector<std::size_t>& path, const Value& part) {
  if (path.empty()) return genetic::deep_copy(part);
  Value copy = genetic::deep_copy(graph);
  const std::vector<std::size_t> above(path.begin(), path.end() - 1);
  node_at(copy, above).at(keys::kChildren).list().set(path.back(), genetic::deep_copy(part));
  return copy;
}

Value with_name(const Value& graph, const std::vector<std::size_t>& path, const std::string& name) {
  Value copy = genetic::deep_copy(graph);
  node_at(copy, path).set(keys::kNode, name);
  return copy;
}

}  // namespace varnholt::embedded
