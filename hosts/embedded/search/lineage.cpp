#include "hosts/embedded/search/lineage.hpp"

namespace varnholt::embedded {

bool Lineage::is_bred(const genetic::Value& graph) {
  if (!keys_) {
    keys_.emplace();
    genetic::ListCursor cursor(offspring_);
    while (const std::optional<genetic::Value> child = cursor.next()) {
      keys_->insert(genetic::structural_key(*child));
    }
  }
  return keys_->contains(genetic::structural_key(graph));
}

void Lineage::next_generation() {
  offspring_ = genetic::List();
  keys_.reset();
}

}  // namespace varnholt::embedded
