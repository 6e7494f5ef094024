// Graphs bred from the archive, which the host offers among the random ones.
#pragma once

#include <memory>
#include <optional>

#include "hosts/embedded/archive/signal_archive.hpp"
#include "hosts/embedded/host/lineage.hpp"
#include "hosts/embedded/host/mutation_material.hpp"
#include "hosts/embedded/operators/genetic_operators.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class ArchiveBreeding {
 public:
  // What repeats is bred again, but not for ever.
  static constexpr int kTries = 8;

  // All must outlive the object.
  ArchiveBreeding(SignalArchive& archive, Lineage& lineage, GeneticOperators& operators,
                  const MutationMaterial& material)
      : archive_(archive), lineage_(lineage), operators_(operators), material_(material) {}

  // An offspring of archived signals, of a structure that was not evaluated in this run, or
  // nothing where every try repeats. The archive must have parents. Draws, for each try: the
  // operator, the parents, the material and what the operator
  // itself draws. Notes the lineage.
  [[nodiscard]] std::optional<genetic::Value> offspring(
      const std::shared_ptr<genetic::RandomGenerator>& generator);

 private:
  [[nodiscard]] std::optional<genetic::Value> bred(
      const std::shared_ptr<genetic::RandomGenerator>& generator);

  SignalArchive& archive_;
  Lineage& lineage_;
  GeneticOperators& operators_;
  const MutationMaterial& material_;
};

}  // namespace varnholt::embedded
