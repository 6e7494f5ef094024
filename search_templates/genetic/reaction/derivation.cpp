#include "search_templates/genetic/reaction/derivation.hpp"

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "search_templates/genetic/context/context_limits.hpp"
#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/population/safe_rotations.hpp"
#include "search_templates/genetic/reaction/priority.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// A graph's structural key in the form that every host can hold.
class FrozenForm : public CallableBody {
 public:
  Value call(std::span<const Value> positional, const Mapping& keywords) override {
    if (positional.size() != 1 || !keywords.empty()) {
      throw TypeError("the structural key takes one argument, a graph");
    }
    return freeze_graph_data(positional[0]);
  }
  [[nodiscard]] std::optional<std::vector<Parameter>> signature() const override {
    return std::vector<Parameter>{{"graph", ParameterKind::kPositionalOrKeyword}};
  }
};

}  // namespace

Value derive_reaction_improvements(const ReactionEnvironment& environment, const Value& result,
                                   const Value& max_plans, const Value& extra_data_graphs) {
  const Value prepared = environment.expanded(result);
  if (!has_reaction_failure(prepared)) return List();
  const auto derive = environment.host.reaction_planning().required_derive_reaction_improvements();
  SearchContext& context = environment.context;
  ReactionRequest request;
  request.vocabulary = context.vocabulary().value_or(Value(Mapping()));
  request.safe_rotation_specs =
      safe_reaction_rotations(environment.host.random_graph_limits(), context);
  request.validator = graph_validator(context);
  request.structural_key = Callable(std::make_shared<FrozenForm>());
  request.improvement_depth = integer_sum(improvement_depth(prepared), 1);
  request.max_plans = max_plans;
  request.extra_data_graphs = extra_data_graphs;
  return derive(prepared, request);
}

Value derive_reaction_improvement(const ReactionEnvironment& environment, const Value& result) {
  const Value improvements = derive_reaction_improvements(environment, result);
  return truth(improvements) ? item(improvements, 0) : Value();
}

}  // namespace varnholt::genetic
