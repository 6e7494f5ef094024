// Where the candidates of a generation come from: bred from parents, or fresh.
//
// The search hands graphs on without their origin. The host knows it all the same, because every
// offspring is made by its operators: a candidate is bred when an operator made its graph since the
// generation began.
#pragma once

#include <memory>
#include <optional>

#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/host/genetic_ops.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class Lineage {
 public:
  // The search may still change the offspring's root after this.
  void note_offspring(const genetic::Value& graph) { offspring_.append(graph); }
  // Asked when the generation's graphs are made and changed no more.
  [[nodiscard]] bool is_bred(const genetic::Value& graph);
  void next_generation();

 private:
  genetic::List offspring_;
  std::optional<genetic::StructuralKeySet> keys_;  // Of the offspring, once it is asked for.
};

// Passes every call on, and notes what comes back.
class ObservedOperators : public genetic::GeneticOps {
 public:
  // Both must outlive the object.
  ObservedOperators(genetic::GeneticOps& operators, Lineage& lineage)
      : operators_(operators), lineage_(lineage) {}

  [[nodiscard]] genetic::Value crossover(const genetic::Value& elite, const genetic::Value& mate,
                                         const std::shared_ptr<genetic::RandomGenerator>& rng,
                                         const genetic::Callable& validator) override {
    return noted(operators_.crossover(elite, mate, rng, validator));
  }
  [[nodiscard]] genetic::Value point_mutation(const genetic::Value& elite,
                                              const genetic::Value& replacements,
                                              const std::shared_ptr<genetic::RandomGenerator>& rng,
                                              const genetic::Callable& validator) override {
    return noted(operators_.point_mutation(elite, replacements, rng, validator));
  }
  [[nodiscard]] genetic::Value subtree_mutation(
      const genetic::Value& elite, const genetic::Value& replacements,
      const std::shared_ptr<genetic::RandomGenerator>& rng,
      const genetic::Callable& validator) override {
    return noted(operators_.subtree_mutation(elite, replacements, rng, validator));
  }
  [[nodiscard]] genetic::Value hoist_mutation(const genetic::Value& elite,
                                              const std::shared_ptr<genetic::RandomGenerator>& rng,
                                              const genetic::Callable& validator) override {
    return noted(operators_.hoist_mutation(elite, rng, validator));
  }

 private:
  [[nodiscard]] genetic::Value noted(genetic::Value child) {
    lineage_.note_offspring(child);
    return child;
  }

  genetic::GeneticOps& operators_;
  Lineage& lineage_;
};

}  // namespace varnholt::embedded
