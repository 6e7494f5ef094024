// The host's planner of repairs: how a signal that nearly passed may be changed so that it does.
#pragma once

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// What a planner gets beside the result that failed.
struct ReactionRequest {
  // The words that graphs are made of: the context's vocabulary, an empty mapping without one.
  Value vocabulary;
  // Deep copies of the rotations that a repair may put into a graph: mappings with a `name`.
  List safe_rotation_specs;
  // Throws for a graph that it refuses. Empty where the host has none.
  Callable validator;
  // Gives a graph's frozen form, by which the search distinguishes structures. A planner in C++ may
  // as well use `structural_key` of graph/structural_key.hpp: its keys are equal exactly when these
  // forms are.
  Callable structural_key;
  // The depth that the improvements have: one more than the result's own.
  Value improvement_depth;
  // How many plans are wanted at most, or absent for all that there are.
  Value max_plans;
  // A sequence of graphs of other results to combine the result with, the best peers first.
  Value extra_data_graphs;
};

class ReactionPlanning {
 public:
  virtual ~ReactionPlanning() = default;

  // A sequence of improvements of one failed result, the most promising first; it may be empty.
  // Called in the parent, once for each source of a round, and only for a result with a failure
  // that a reaction can address. `failures` of the result names all of its failures, not only the
  // first that was recorded.
  //
  // An improvement is a mapping with at least `graph` (the new graph, not shared with the result),
  // `source_result` (the result itself), `reaction_plan` (whatever the host wants to know about the
  // plan: it is written into the record of the improved candidate) and `improvement_depth`. The
  // search drops what it has evaluated before and what is too deep, and takes only so many for each
  // source. Neither the result nor the request is changed. What it throws ends the run.
  [[nodiscard]] virtual Value derive_reaction_improvements(const Value& result,
                                                           const ReactionRequest& request) = 0;
  // The same operation for a caller that makes the request once it has been found. A host that
  // finds its operations by name overrides this.
  [[nodiscard]] virtual Operation<Value(const Value& result, const ReactionRequest& request)>
  required_derive_reaction_improvements() {
    return [this](const Value& result, const ReactionRequest& request) {
      return derive_reaction_improvements(result, request);
    };
  }
};

// The planner of a host that repairs nothing.
class NoReactionPlanning : public ReactionPlanning {
 public:
  [[nodiscard]] Value derive_reaction_improvements(const Value& /*result*/,
                                                   const ReactionRequest& /*request*/) override {
    return List();
  }
};

}  // namespace varnholt::genetic
