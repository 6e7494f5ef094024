// Where fresh graphs come from beside chance: the archive, the known formulas, the simple forms.
#pragma once

#include <memory>
#include <optional>

#include "hosts/embedded/archive/signal_archive.hpp"
#include "hosts/embedded/host/archive_breeding.hpp"
#include "hosts/embedded/host/known_formula_offers.hpp"
#include "hosts/embedded/host/lineage.hpp"
#include "hosts/embedded/host/mutation_material.hpp"
#include "hosts/embedded/host/simple_form_offers.hpp"
#include "hosts/embedded/operators/genetic_operators.hpp"
#include "hosts/embedded/vocabulary/graph_making.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// Which of the sources there are, beside chance.
struct FreshSettings {
  bool breeds_from_archive = true;
  bool offers_known_formulas = true;
  bool offers_simple_forms = true;
};

class FreshSources {
 public:
  // The share of the known formulas until each was in a batch: what is known to work somewhere is
  // the first thing to try, and the archive then has it to breed from.
  static constexpr double kUntriedShare = 0.75;
  // Of what the known formulas and the archive leave, the share of the simple forms until each was
  // evaluated. What is simple finds sooner, and there are few of it.
  static constexpr double kSimpleShare = 0.5;

  // The archive, the lineage and the vocabulary must outlive the object.
  FreshSources(SignalArchive& archive, Lineage& lineage, const Vocabulary& vocabulary,
               const RandomGraphOptions& options, const GraphMaking& making,
               const FreshSettings& settings = {});
  FreshSources(const FreshSources&) = delete;
  FreshSources& operator=(const FreshSources&) = delete;
  ~FreshSources() = default;

  // A graph of one of the sources, or nothing: where there is none yet, where the draw falls to a
  // random graph, and where all that the source tries repeats. One draw decides, with the shares
  // of the archive once all formulas were tried; then the source draws.
  [[nodiscard]] std::optional<genetic::Value> next(
      const std::shared_ptr<genetic::RandomGenerator>& generator);

 private:
  [[nodiscard]] double known_share() const;

  SignalArchive& archive_;
  bool breeds_;
  GeneticOperators operators_;
  MutationMaterial material_;
  ArchiveBreeding breeding_;
  KnownFormulaOffers known_;
  SimpleFormOffers simple_;
};

}  // namespace varnholt::embedded
