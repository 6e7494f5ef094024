#include "hosts/embedded/vocabulary/graph_node.hpp"

#include <utility>
#include <vector>

#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {
namespace {

using genetic::Value;

constexpr const char* kNodeMend =
    "a node is a mapping with the texts \"node\" and \"type\" and the list \"children\"";

std::string read_text(const genetic::Mapping& node, genetic::Key key, std::string_view name,
                      const GraphPlace& place) {
  const std::optional<Value> entry = node.find(key);
  std::string shown = "\"";
  shown.append(name).append("\"");
  if (!entry) throw GraphError(place.text(), "the node has no " + shown, kNodeMend);
  if (!entry->is_text()) {
    throw GraphError(place.text(),
                     "its " + shown + " is no text but of the type " + genetic::type_name(*entry),
                     kNodeMend);
  }
  return std::string(entry->text());
}

}  // namespace

std::string shown_name(std::string_view name) {
  constexpr std::size_t kShown = 40;
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string shown;
  for (const char character : name.substr(0, kShown)) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= 0x20U && byte != 0x7fU) {
      shown += character;
    } else {
      shown.append("\\x").append({kDigits[byte >> 4U], kDigits[byte & 0xfU]});
    }
  }
  return name.size() > kShown ? shown + "..." : shown;
}

GraphError::GraphError(const std::string& place, const std::string& problem,
                       const std::string& remedy)
    : ValueError("graph, " + place + ": " + problem + "; " + remedy) {}

std::string GraphPlace::text() const {
  if (parent == nullptr) return "root";
  std::vector<std::size_t> path;
  for (const GraphPlace* place = this; place->parent != nullptr; place = place->parent) {
    path.push_back(place->child);
  }
  std::string result;
  for (auto step = path.rbegin(); step != path.rend(); ++step) {
    if (!result.empty()) result += '.';
    result.append("children[").append(std::to_string(*step)).append("]");
  }
  return result;
}

GraphNode read_graph_node(const Value& node, const GraphPlace& place) {
  if (!node.is_mapping()) {
    throw GraphError(place.text(),
                     "there is no node but a value of the type " + genetic::type_name(node),
                     kNodeMend);
  }
  const genetic::Mapping mapping = node.mapping();
  GraphNode result;
  result.name = read_text(mapping, genetic::keys::kNode, "node", place);
  result.type = read_text(mapping, genetic::keys::kType, "type", place);
  std::size_t known_keys = 2;
  if (const std::optional<Value> children = mapping.find(genetic::keys::kChildren)) {
    if (!children->is_list()) {
      throw GraphError(
          place.text(),
          "its \"children\" is no list but of the type " + genetic::type_name(*children),
          kNodeMend);
    }
    result.children = children->list();
    ++known_keys;
  }
  // An entry that nobody reads would make two graphs of one signal.
  if (mapping.size() != known_keys) {
    throw GraphError(place.text(),
                     "the node has entries beside \"node\", \"type\" and \"children\"",
                     "remove them");
  }
  return result;
}

Value make_graph_node(std::string_view name, std::string_view type, genetic::List children) {
  genetic::Mapping node(3);
  node.set(genetic::keys::kNode, Value(name));
  node.set(genetic::keys::kType, Value(type));
  node.set(genetic::keys::kChildren, Value(std::move(children)));
  return node;
}

}  // namespace varnholt::embedded
