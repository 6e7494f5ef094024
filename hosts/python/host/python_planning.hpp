// The host's planner of repairs behind Python's names.
#pragma once

#include "hosts/python/host/module_globals.hpp"
#include "search_templates/genetic/host/reaction_planning.hpp"

namespace varnholt::python {

// `_reaction_planning.derive_reaction_improvements`. The structural key that it hands on is the
// module's own `_structural_key`, not what the request carries.
class PythonReactionPlanning : public genetic::ReactionPlanning {
 public:
  explicit PythonReactionPlanning(const ModuleGlobals& globals) : globals_(globals) {}

  // The very object that the planner returns, whatever its type.
  [[nodiscard]] genetic::Value derive_reaction_improvements(
      const genetic::Value& result, const genetic::ReactionRequest& request) override;
  [[nodiscard]] genetic::Operation<genetic::Value(const genetic::Value&,
                                                  const genetic::ReactionRequest&)>
  required_derive_reaction_improvements() override;

 private:
  const ModuleGlobals& globals_;
};

}  // namespace varnholt::python
