// The known formulas of the field, as the host offers them among the random graphs.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/archive/signal_archive.hpp"
#include "hosts/embedded/host/lineage.hpp"
#include "hosts/embedded/host/mutation_material.hpp"
#include "hosts/embedded/operators/genetic_operators.hpp"
#include "hosts/embedded/vocabulary/graph_making.hpp"
#include "hosts/embedded/vocabulary/graph_shape.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

struct KnownGraph {
  std::string name;
  genetic::Value graph;
};

// The known formulas that the vocabulary has the words for, finished by `making` and within the
// limits, each graph once. A window is the nearest that the vocabulary draws; what needs a
// function, a feature or a window that is not drawn is left out.
[[nodiscard]] std::vector<KnownGraph> known_graphs(const Vocabulary& vocabulary,
                                                   const GraphLimits& limits,
                                                   const GraphMaking& making);

class KnownFormulaOffers {
 public:
  // What repeats is mutated again, but not for ever.
  static constexpr int kTries = 8;

  // What is given by reference must outlive the object.
  KnownFormulaOffers(std::vector<KnownGraph> formulas, const SignalArchive& archive,
                     Lineage& lineage, GeneticOperators& operators,
                     const MutationMaterial& material);

  [[nodiscard]] bool is_empty() const { return formulas_.empty(); }
  // Whether there is a formula that was in no batch yet.
  [[nodiscard]] bool has_untried() const;

  // A formula as it is, until each has been in a batch; most of what is offered only lends its
  // parts, so that each is offered once a batch until then. After that mutations of formulas, of a
  // structure that was not evaluated in this run, or nothing where every try repeats. Not to be
  // asked where there are none. Draws the formula, and for each mutation the formula, the operator,
  // the material and what the operator itself draws. Notes the lineage.
  [[nodiscard]] std::optional<genetic::Value> next(
      const std::shared_ptr<genetic::RandomGenerator>& generator);

 private:
  [[nodiscard]] std::optional<genetic::Value> as_it_is(genetic::RandomGenerator& generator);
  [[nodiscard]] std::optional<genetic::Value> mutated(
      const std::shared_ptr<genetic::RandomGenerator>& generator);

  std::vector<KnownGraph> formulas_;
  std::vector<std::int64_t> offered_in_;  // The batch that each was offered for last.
  const SignalArchive& archive_;
  Lineage& lineage_;
  GeneticOperators& operators_;
  const MutationMaterial& material_;
};

}  // namespace varnholt::embedded
