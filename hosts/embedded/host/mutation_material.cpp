#include "hosts/embedded/host/mutation_material.hpp"

namespace varnholt::embedded {

genetic::List MutationMaterial::draw(genetic::RandomGenerator& generator) const {
  const bool has_archive = archive_ != nullptr && archive_->has_parents();
  genetic::List graphs(kGraphs);
  for (int i = 0; i < kGraphs; ++i) {
    const bool is_lent = has_archive && generator.random() < kArchiveShare;
    graphs.append(is_lent ? archive_->lender(generator)
                          : random_graph(generator, vocabulary_, options_));
  }
  return graphs;
}

}  // namespace varnholt::embedded
