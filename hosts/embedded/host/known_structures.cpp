#include "hosts/embedded/host/known_structures.hpp"

#include "hosts/embedded/system/digest.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"

namespace varnholt::embedded {

bool KnownStructures::leaves_out(const genetic::Value& graph) {
  if (keys_.empty()) return false;
  const std::string key = sha256_hex(genetic::canonical_graph_string(graph));
  if (!keys_.contains(key)) return false;
  left_out_.insert(key);
  return true;
}

}  // namespace varnholt::embedded
