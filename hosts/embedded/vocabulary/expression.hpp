// A graph that was checked against a vocabulary, ready to be evaluated.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "hosts/embedded/vocabulary/graph_shape.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// A feature or a function applied to earlier steps.
struct ExpressionStep {
  const FeatureEntry* feature = nullptr;    // One of the two is set, and points into the
  const FunctionEntry* function = nullptr;  // vocabulary that the graph was checked against.
  std::array<std::size_t, 2> inputs{};      // As many as the function has data children.
  int window = 0;                           // In days, where the function needs one.

  friend bool operator==(const ExpressionStep&, const ExpressionStep&) = default;
};

// The steps of a signal, each after its inputs; the last one is the signal itself. Equal subtrees
// are one step.
struct Expression {
  std::vector<ExpressionStep> steps;
  GraphShape shape;
};

// Throws GraphError where the graph breaks a rule of graph_check.hpp.
[[nodiscard]] Expression compile_expression(const genetic::Value& graph,
                                            const Vocabulary& vocabulary,
                                            const GraphLimits& limits = {});

}  // namespace varnholt::embedded
