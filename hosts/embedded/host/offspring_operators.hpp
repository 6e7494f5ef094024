// The operators that the host breeds with by itself: those of the search, and one that the search
// does not have.
#pragma once

#include <memory>
#include <span>

#include "hosts/embedded/operators/genetic_operators.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/key.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

enum class OffspringOperator { Crossover, Point, Insert, Subtree, Hoist };

// As lineages tell it: "point_mutation".
[[nodiscard]] genetic::Key name_of(OffspringOperator operation);

// A row of a table of operators; the shares of a table are 1 together.
struct OperatorShare {
  OffspringOperator operation;
  double share;
};

// The operator that one draw falls to.
[[nodiscard]] OffspringOperator drawn_operator(std::span<const OperatorShare> shares,
                                               genetic::RandomGenerator& generator);

// A child of one parent; the material is for those that need it. Not for a crossover.
[[nodiscard]] genetic::Value mutated(GeneticOperators& operators, OffspringOperator operation,
                                     const genetic::Value& elite, const genetic::Value& material,
                                     const std::shared_ptr<genetic::RandomGenerator>& generator);

}  // namespace varnholt::embedded
