// The graph of a formula in the making: every step is checked where it is made, so that the error
// names the place of it.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "hosts/embedded/vocabulary/formula_tokens.hpp"
#include "hosts/embedded/vocabulary/graph_shape.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// What a part of a formula comes to: a number, or a graph.
struct FormulaPart {
  genetic::Value graph;  // Absent for a number.
  double number = 0.0;
  GraphShape shape{1, 1};
  std::size_t offset = 0;  // Where it stands.

  [[nodiscard]] bool is_number() const { return graph.is_absent(); }
};

class FormulaBuilder {
 public:
  // All of them must outlive it; errors are those of the tokens.
  FormulaBuilder(const Vocabulary& vocabulary, const GraphLimits& limits,
                 const FormulaTokens& tokens)
      : vocabulary_(vocabulary), limits_(limits), tokens_(tokens) {}

  [[nodiscard]] FormulaPart feature(const FeatureEntry& feature, std::size_t offset) const;
  // A whole graph that is there already.
  [[nodiscard]] FormulaPart copy_of(const genetic::Value& graph, std::size_t offset) const;
  [[nodiscard]] FormulaPart number(double number, std::size_t offset) const;

  // The function of the vocabulary of that name applied to panels, which is done at once where all
  // of them are numbers and the function is arithmetic.
  [[nodiscard]] FormulaPart operation(std::string_view name, const std::vector<FormulaPart>& panels,
                                      std::size_t offset) const;

  // The function applied to all of its arguments; those that are no panels are nodes already.
  struct Argument {
    FormulaPart part;
    genetic::Value setting;  // Absent for a panel.
  };
  [[nodiscard]] FormulaPart call(const FunctionEntry& function, std::vector<Argument> arguments,
                                 std::size_t offset) const;

  // The nodes for the arguments that are no panels.
  [[nodiscard]] genetic::Value window(const FormulaPart& part) const;
  [[nodiscard]] genetic::Value number_setting(const FormulaPart& part,
                                              const FunctionEntry& function) const;

 private:
  void check_shape(const GraphShape& shape, std::size_t offset) const;

  const Vocabulary& vocabulary_;
  const GraphLimits& limits_;
  const FormulaTokens& tokens_;
};

}  // namespace varnholt::embedded
