// The hand-made planner of repairs. See scripted_host.hpp for how it is scripted.
#pragma once

#include <functional>

#include "search_templates/genetic/host/reaction_planning.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {

class ScriptedReactionPlanning : public ReactionPlanning {
 public:
  explicit ScriptedReactionPlanning(CallLog& log) : log_(log) {}

  // No plans, unless a test has some.
  std::function<Value(const Value&, const ReactionRequest&)> on_derive_reaction_improvements =
      always(Value(List{}));

  // The two operations stand in the log as names, or as None where they are missing.
  [[nodiscard]] Value derive_reaction_improvements(const Value& result,
                                                   const ReactionRequest& request) override {
    log_.add("reaction_planning.derive_reaction_improvements", {result},
             {{"vocabulary", request.vocabulary},
              {"safe_rotation_specs", request.safe_rotation_specs},
              {"validator", request.validator ? Value("validator") : Value()},
              {"structural_key", request.structural_key ? Value("structural_key") : Value()},
              {"improvement_depth", request.improvement_depth},
              {"max_plans", request.max_plans},
              {"extra_data_graphs", request.extra_data_graphs}});
    return on_derive_reaction_improvements(result, request);
  }

 private:
  CallLog& log_;
};

}  // namespace varnholt::genetic::test
