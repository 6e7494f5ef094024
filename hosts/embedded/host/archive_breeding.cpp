#include "hosts/embedded/host/archive_breeding.hpp"

#include <array>

#include "hosts/embedded/host/offspring_operators.hpp"

namespace varnholt::embedded {

using genetic::RandomGenerator;
using genetic::Value;

namespace {

// More steps and fewer crossovers than the search has by default: a good signal is mostly a step
// from a better one (docs/search-quality.md).
constexpr auto kShares = std::to_array<OperatorShare>({{OffspringOperator::Crossover, 0.25},
                                                       {OffspringOperator::Point, 0.35},
                                                       {OffspringOperator::Insert, 0.15},
                                                       {OffspringOperator::Subtree, 0.15},
                                                       {OffspringOperator::Hoist, 0.1}});

}  // namespace

std::optional<Value> ArchiveBreeding::offspring(const std::shared_ptr<RandomGenerator>& generator) {
  for (int attempt = 0; attempt < kTries; ++attempt) {
    if (std::optional<Value> graph = bred(generator)) return graph;
  }
  return std::nullopt;
}

std::optional<Value> ArchiveBreeding::bred(const std::shared_ptr<RandomGenerator>& generator) {
  const OffspringOperator operation = drawn_operator(kShares, *generator);
  const Value elite = archive_.parent(*generator);
  Value mate;
  Value graph;
  if (operation == OffspringOperator::Crossover) {
    mate = archive_.parent(*generator);
    graph = operators_.crossover(elite, mate, generator, {});
  } else {
    const bool needs_material = operation != OffspringOperator::Hoist;
    const Value material = needs_material ? Value(material_.draw(*generator)) : Value();
    graph = mutated(operators_, operation, elite, material, generator);
  }
  if (archive_.has_met(graph)) return std::nullopt;
  lineage_.note_archive_offspring(graph, name_of(operation), elite, mate);
  return graph;
}

}  // namespace varnholt::embedded
