// The embedded host's planner of repairs, as the search asks for it.
#pragma once

#include "hosts/embedded/host/known_behaviours.hpp"
#include "hosts/embedded/host/lineage.hpp"
#include "hosts/embedded/planner/repair_plans.hpp"
#include "hosts/embedded/system/interrupt.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/host/json_reader.hpp"
#include "search_templates/genetic/host/reaction_planning.hpp"

namespace varnholt::embedded {

class EmbeddedPlanning : public genetic::ReactionPlanning {
 public:
  // The repaired graphs are within the limits of `graphs`, as those that operators make. All but
  // the options must outlive the object.
  EmbeddedPlanning(const Vocabulary& vocabulary, const RandomGraphOptions& graphs,
                   genetic::JsonReader& json_reader, Lineage& lineage,
                   StopQuestion is_stopping = {}, const GraphMaking& making = {},
                   KnownBehaviours* behaviours = nullptr);

  // The plans of repair_planner.hpp, made of the safe rotations and the peers that are given, and
  // accepted by the validator; none in a search that is being stopped. `reaction_plan` is a mapping
  // with the texts "name", "reason" and "explanation". A graph that is not of the vocabulary, such
  // as a foreign seed, has no plans as a result and is left out as a peer. Notes the lineage of
  // every plan. What was recorded before counts as known from here on.
  [[nodiscard]] genetic::Value derive_reaction_improvements(
      const genetic::Value& result, const genetic::ReactionRequest& request) override;

 private:
  [[nodiscard]] RepairCase case_of(const genetic::Mapping& result) const;
  // As the search tried them, at most kPeersUsed.
  [[nodiscard]] std::vector<genetic::Value> peers_of(const genetic::ReactionRequest& request) const;
  // Of a signal that was judged as its opposite, the opposite is repaired and lends itself.
  [[nodiscard]] RepairMaterial material_of(const genetic::ReactionRequest& request,
                                           const std::vector<genetic::Value>& peers) const;
  [[nodiscard]] bool is_valid(const genetic::Value& graph) const;

  const Vocabulary& vocabulary_;
  RandomGraphOptions graphs_;
  genetic::JsonReader& json_reader_;
  Lineage& lineage_;
  StopQuestion is_stopping_;
  GraphMaking making_;
  KnownBehaviours* behaviours_;
};

}  // namespace varnholt::embedded
