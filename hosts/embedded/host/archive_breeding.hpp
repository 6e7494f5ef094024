// Graphs bred from the archive, which the host offers among the random ones.
#pragma once

#include <memory>
#include <optional>

#include "hosts/embedded/archive/signal_archive.hpp"
#include "hosts/embedded/host/lineage.hpp"
#include "hosts/embedded/operators/genetic_operators.hpp"
#include "hosts/embedded/vocabulary/graph_making.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class ArchiveBreeding {
 public:
  // What repeats is bred again, but not for ever.
  static constexpr int kTries = 8;
  // So many random graphs lend their parts to a mutation.
  static constexpr int kReplacements = 3;

  // All but the options must outlive the object.
  ArchiveBreeding(SignalArchive& archive, Lineage& lineage, const Vocabulary& vocabulary,
                  const RandomGraphOptions& options, const GraphMaking& making = {})
      : archive_(archive),
        lineage_(lineage),
        vocabulary_(vocabulary),
        options_(options),
        operators_({options.max_depth, options.max_nodes, options.max_window}, vocabulary.constants,
                   making) {}

  // An offspring of archived signals, of a structure that was not evaluated in this run, or
  // nothing: where there are too few parents, where the draw falls to a random graph, and where
  // every try repeats. Draws, in this order: for whether, with the archive's share; then for each
  // try the operator, by the rates of the search's own, the parents, the replacements and what the
  // operator itself draws. Notes the lineage.
  [[nodiscard]] std::optional<genetic::Value> next(
      const std::shared_ptr<genetic::RandomGenerator>& generator);

 private:
  [[nodiscard]] std::optional<genetic::Value> bred(
      const std::shared_ptr<genetic::RandomGenerator>& generator);
  [[nodiscard]] genetic::Value replacements(genetic::RandomGenerator& generator) const;

  SignalArchive& archive_;
  Lineage& lineage_;
  const Vocabulary& vocabulary_;
  RandomGraphOptions options_;
  GeneticOperators operators_;
};

}  // namespace varnholt::embedded
