#include "hosts/embedded/host/archive_breeding.hpp"

#include <array>

#include "search_templates/genetic/value/key.hpp"

namespace varnholt::embedded {

using genetic::Key;
using genetic::RandomGenerator;
using genetic::Value;

namespace {

struct Rate {
  Key name;
  double share;
};
// Those of the search's own operators; the last takes what is left.
constexpr Key kCrossover = genetic::key<"crossover">();
constexpr Key kPointMutation = genetic::key<"point_mutation">();
constexpr Key kHoistMutation = genetic::key<"hoist_mutation">();
constexpr auto kRates = std::to_array<Rate>({{kCrossover, 0.4},
                                             {kPointMutation, 0.3},
                                             {genetic::key<"subtree_mutation">(), 0.2},
                                             {kHoistMutation, 0.1}});

Key drawn_operator(RandomGenerator& generator) {
  double left = generator.random();
  for (const Rate& rate : kRates) {
    left -= rate.share;
    if (left < 0.0) return rate.name;
  }
  return kRates.back().name;
}

}  // namespace

std::optional<Value> ArchiveBreeding::offspring(const std::shared_ptr<RandomGenerator>& generator) {
  for (int attempt = 0; attempt < kTries; ++attempt) {
    if (std::optional<Value> graph = bred(generator)) return graph;
  }
  return std::nullopt;
}

std::optional<Value> ArchiveBreeding::bred(const std::shared_ptr<RandomGenerator>& generator) {
  const Key operation = drawn_operator(*generator);
  const Value elite = archive_.parent(*generator);
  const bool has_mate = operation.view() == kCrossover.view();
  const Value mate = has_mate ? archive_.parent(*generator) : Value();
  Value graph;
  if (has_mate) {
    graph = operators_.crossover(elite, mate, generator, {});
  } else if (operation.view() == kHoistMutation.view()) {
    graph = operators_.hoist_mutation(elite, generator, {});
  } else {
    const Value material = material_.draw(*generator);
    graph = operation.view() == kPointMutation.view()
                ? operators_.point_mutation(elite, material, generator, {})
                : operators_.subtree_mutation(elite, material, generator, {});
  }
  if (archive_.has_met(graph)) return std::nullopt;
  lineage_.note_archive_offspring(graph, operation, elite, mate);
  return graph;
}

}  // namespace varnholt::embedded
