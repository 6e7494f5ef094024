#include "hosts/embedded/host/offspring_operators.hpp"

#include <stdexcept>

namespace varnholt::embedded {

using genetic::Key;
using genetic::RandomGenerator;
using genetic::Value;

Key name_of(OffspringOperator operation) {
  switch (operation) {
    case OffspringOperator::Crossover:
      return genetic::key<"crossover">();
    case OffspringOperator::Point:
      return genetic::key<"point_mutation">();
    case OffspringOperator::Insert:
      return genetic::key<"insert_mutation">();
    case OffspringOperator::Subtree:
      return genetic::key<"subtree_mutation">();
    case OffspringOperator::Hoist:
      return genetic::key<"hoist_mutation">();
  }
  throw std::logic_error("an operator has no name");
}

OffspringOperator drawn_operator(std::span<const OperatorShare> shares,
                                 RandomGenerator& generator) {
  double left = generator.random();
  for (const auto& [operation, share] : shares) {
    left -= share;
    if (left < 0.0) return operation;
  }
  return shares.back().operation;  // Rounding may leave the draw behind the last.
}

Value mutated(GeneticOperators& operators, OffspringOperator operation, const Value& elite,
              const Value& material, const std::shared_ptr<RandomGenerator>& generator) {
  switch (operation) {
    case OffspringOperator::Point:
      return operators.point_mutation(elite, material, generator, {});
    case OffspringOperator::Insert:
      return operators.insert_mutation(elite, material, generator, {});
    case OffspringOperator::Subtree:
      return operators.subtree_mutation(elite, material, generator, {});
    case OffspringOperator::Hoist:
      return operators.hoist_mutation(elite, generator, {});
    case OffspringOperator::Crossover:
      break;
  }
  throw std::logic_error("a crossover needs two parents");
}

}  // namespace varnholt::embedded
