// Crossover and mutation of graphs.
//
// Every child is a new graph that follows the rules of graph_check.hpp where its parents do, is
// within the limits, and has been accepted by the validator. A part only replaces a part of its own
// kind: a feature or rotation that of a feature or rotation or a constant, a constant that of a
// constant, a window that of a window, a function that of one with the same arguments. The parents
// stay as they are.
//
// All draws come from the generator that is given, so the same state gives the same child. An
// operator tries a few times, each try with draws of its own; where none gives an acceptable child,
// the child is a copy of the first parent.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/embedded/operators/graph_parts.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "hosts/embedded/vocabulary/graph_making.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/genetic_ops.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class GeneticOperators : public genetic::GeneticOps {
 public:
  // How often an operator tries.
  static constexpr int kTries = 8;

  // Numbers are changed by steps through `constants`, which are positive and ascend. Children are
  // finished by `making`, and a try that does not fit its units fails, before the validator is
  // asked.
  explicit GeneticOperators(const GraphLimits& limits,
                            std::vector<double> constants = usual_constants(),
                            const GraphMaking& making = {})
      : limits_(limits), constants_(std::move(constants)), making_(making) {}

  // A uniformly drawn part of `elite` is replaced by a uniformly drawn part of `mate`; two draws a
  // try. The root of the elite stays unless it is the only node.
  [[nodiscard]] genetic::Value crossover(const genetic::Value& elite, const genetic::Value& mate,
                                         const std::shared_ptr<genetic::RandomGenerator>& rng,
                                         const genetic::Callable& validator) override;

  // One node of any type gets the name of another node of its kind from the replacements, a number
  // that of the next smaller or larger constant; two draws a try, or one where there is no other
  // name.
  [[nodiscard]] genetic::Value point_mutation(const genetic::Value& elite,
                                              const genetic::Value& replacements,
                                              const std::shared_ptr<genetic::RandomGenerator>& rng,
                                              const genetic::Callable& validator) override;

  // A uniformly drawn part below the root is replaced by a part of a uniformly drawn replacement;
  // three draws a try.
  [[nodiscard]] genetic::Value subtree_mutation(
      const genetic::Value& elite, const genetic::Value& replacements,
      const std::shared_ptr<genetic::RandomGenerator>& rng,
      const genetic::Callable& validator) override;

  // A rotation below the root becomes the whole graph; one draw a try. A graph without one is
  // copied.
  [[nodiscard]] genetic::Value hoist_mutation(const genetic::Value& elite,
                                              const std::shared_ptr<genetic::RandomGenerator>& rng,
                                              const genetic::Callable& validator) override;

 private:
  // The first acceptable child of a few tries, or a copy of the parent.
  [[nodiscard]] genetic::Value first_accepted(
      const genetic::Value& parent, const genetic::Callable& validator,
      const std::function<std::optional<genetic::Value>()>& attempt) const;

  // What a point mutation may call the node.
  [[nodiscard]] std::vector<std::string> new_names(
      const GraphPart& node, const std::vector<GraphPart>& parts,
      const std::vector<std::vector<GraphPart>>& replacements) const;

  GraphLimits limits_;
  std::vector<double> constants_;
  GraphMaking making_;
};

}  // namespace varnholt::embedded
