// A graph that was checked against a vocabulary, ready to be evaluated.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "hosts/embedded/vocabulary/graph_shape.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// A feature, a function applied to earlier steps, or a constant.
struct ExpressionStep {
  const FeatureEntry* feature = nullptr;    // These point into the vocabulary that the graph was
  const FunctionEntry* function = nullptr;  // checked against. A constant has neither of the two.
  const std::string* group = nullptr;       // Where the function takes one.
  std::array<std::size_t, 3> inputs{};      // As many as the function has data children.
  int window = 0;                           // In days, where the function needs one.
  double number = 0.0;                      // Of a constant, and where the function takes one.

  [[nodiscard]] bool is_constant() const { return feature == nullptr && function == nullptr; }

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
