// Crossover and mutation of graphs.
//
// Every child is a new graph that follows the rules of graph_check.hpp where its parents do, is
// within the limits, and has been accepted by the validator. A part only replaces a part of its own
// sort: a feature or rotation that of a feature or rotation or a constant, a constant that of a
// constant, a window that of a window, a function that of one with the same arguments. The parents
// stay as they are.
//
// All draws come from the generator that is given, so the same state gives the same child. An
// operator tries a few times, each try with draws of its own. Of the acceptable children the first
// that repeats nothing is taken, or else the first; where no try gives one, the child is a copy of
// the first parent.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/embedded/operators/graph_parts.hpp"
#include "hosts/embedded/operators/part_kind.hpp"
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
  // How often the part of the mate is of the kind of what it replaces, if the mate has such a part.
  static constexpr double kLikeShare = 0.75;
  // How often a window becomes the next shorter or longer one.
  static constexpr double kNeighbourShare = 0.8;

  // Whether a graph of this structure was tried before.
  using Repeats = std::function<bool(const genetic::Value& graph)>;

  // Numbers are changed by steps through the constants of the vocabulary, windows by steps through
  // its windows; it must outlive the object. Children are finished by `making`, and a try that does
  // not fit its units fails, before the validator is asked.
  GeneticOperators(const Vocabulary& vocabulary, const GraphLimits& limits,
                   const GraphMaking& making = {}, Repeats repeats = {})
      : vocabulary_(&vocabulary), limits_(limits), making_(making), repeats_(std::move(repeats)) {}

  // A uniformly drawn part of `elite` is replaced by a part of `mate`, in kLikeShare of the tries
  // by one of its kind (part_kind.hpp); three draws a try. The root of the elite stays unless it is
  // the only node.
  [[nodiscard]] genetic::Value crossover(const genetic::Value& elite, const genetic::Value& mate,
                                         const std::shared_ptr<genetic::RandomGenerator>& rng,
                                         const genetic::Callable& validator) override;

  // One node of any type gets the name of another node of its sort from the replacements, a number
  // that of the next smaller or larger constant, a window in kNeighbourShare of the tries that of
  // the next shorter or longer window and otherwise that of any other. Two draws a try, three for a
  // window, and one less where there is no other name.
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

  // A uniformly drawn part, which may be the whole graph but no constant, becomes a panel of a
  // function of a uniformly drawn replacement, in the place of one of its panels; its other panels
  // and settings come along. Four draws a try, two where the replacement has no function. The
  // search has no such operator; the host breeds with it by itself.
  [[nodiscard]] genetic::Value insert_mutation(const genetic::Value& elite,
                                               const genetic::Value& replacements,
                                               const std::shared_ptr<genetic::RandomGenerator>& rng,
                                               const genetic::Callable& validator) const;

 private:
  using Rng = std::shared_ptr<genetic::RandomGenerator>;
  using Parts = std::vector<const GraphPart*>;

  // The child of a few tries, as above.
  [[nodiscard]] genetic::Value first_accepted(
      const genetic::Value& parent, const genetic::Callable& validator,
      const std::function<std::optional<genetic::Value>()>& attempt) const;

  // Those of the parts that are of the kind of `site`, or all where none is.
  [[nodiscard]] Parts of_like_kind(const GraphPart& site, const Parts& parts) const;

  // What a point mutation may call the node.
  [[nodiscard]] std::vector<std::string> new_names(
      const GraphPart& node, const std::vector<GraphPart>& parts,
      const std::vector<std::vector<GraphPart>>& replacements, const Rng& rng) const;
  [[nodiscard]] std::vector<std::string> new_windows(const GraphPart& node, const Rng& rng) const;

  const Vocabulary* vocabulary_;
  GraphLimits limits_;
  GraphMaking making_;
  Repeats repeats_;
};

}  // namespace varnholt::embedded
