#include "hosts/embedded/host/known_formula_offers.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "hosts/embedded/host/drawn_formula.hpp"
#include "hosts/embedded/host/offspring_operators.hpp"
#include "hosts/embedded/vocabulary/known_formulas.hpp"
#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::RandomGenerator;
using genetic::Value;

namespace {

// Steps mostly: a formula that is known for good is near to what it is good for.
constexpr auto kShares = std::to_array<OperatorShare>({{OffspringOperator::Point, 0.45},
                                                       {OffspringOperator::Insert, 0.3},
                                                       {OffspringOperator::Subtree, 0.25}});

}  // namespace

std::vector<KnownGraph> known_graphs(const Vocabulary& vocabulary, const GraphLimits& limits,
                                     const GraphMaking& making) {
  std::vector<KnownGraph> graphs;
  genetic::StructuralKeySet structures;
  for (const KnownFormula& formula : known_formulas()) {
    std::optional<Value> graph = drawn_formula(formula.formula, vocabulary, limits, making);
    if (!graph || !structures.insert(genetic::structural_key(*graph)).second) continue;
    graphs.push_back({std::string(formula.name), *std::move(graph)});
  }
  return graphs;
}

KnownFormulaOffers::KnownFormulaOffers(std::vector<KnownGraph> formulas,
                                       const SignalArchive& archive, Lineage& lineage,
                                       GeneticOperators& operators,
                                       const MutationMaterial& material)
    : formulas_(std::move(formulas)),
      offered_in_(formulas_.size(), -1),
      archive_(archive),
      lineage_(lineage),
      operators_(operators),
      material_(material) {}

std::optional<Value> KnownFormulaOffers::next(const std::shared_ptr<RandomGenerator>& generator) {
  if (std::optional<Value> graph = as_it_is(*generator)) return graph;
  for (int attempt = 0; attempt < kTries; ++attempt) {
    if (std::optional<Value> graph = mutated(generator)) return graph;
  }
  return std::nullopt;
}

bool KnownFormulaOffers::has_untried() const {
  return std::any_of(formulas_.begin(), formulas_.end(), [this](const KnownGraph& formula) {
    return !lineage_.has_tried_formula(formula.name);
  });
}

std::optional<Value> KnownFormulaOffers::as_it_is(RandomGenerator& generator) {
  std::vector<std::size_t> left;
  for (std::size_t i = 0; i < formulas_.size(); ++i) {
    const bool is_offered = offered_in_[i] == lineage_.batches();
    if (!is_offered && !lineage_.has_tried_formula(formulas_[i].name)) left.push_back(i);
  }
  if (left.empty()) return std::nullopt;
  const std::size_t chosen = left[genetic::random_below(generator, left.size())];
  offered_in_[chosen] = lineage_.batches();
  lineage_.note_formula(formulas_[chosen].graph, formulas_[chosen].name);
  return formulas_[chosen].graph;
}

std::optional<Value> KnownFormulaOffers::mutated(
    const std::shared_ptr<RandomGenerator>& generator) {
  const auto& [name, elite] = formulas_[genetic::random_below(*generator, formulas_.size())];
  const OffspringOperator operation = drawn_operator(kShares, *generator);
  const Value material = material_.draw(*generator);
  const Value graph = embedded::mutated(operators_, operation, elite, material, generator);
  // A mutation that comes to nothing is the formula, which may wait for its batch.
  if (archive_.has_met(graph) || graph == elite) return std::nullopt;
  lineage_.note_formula_offspring(graph, name_of(operation), elite, name);
  return graph;
}

}  // namespace varnholt::embedded
