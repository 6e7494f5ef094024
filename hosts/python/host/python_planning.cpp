#include "hosts/python/host/python_planning.hpp"

#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"

namespace varnholt::python {

genetic::Value PythonReactionPlanning::derive_reaction_improvements(
    const genetic::Value& result, const genetic::ReactionRequest& request) {
  return required_derive_reaction_improvements()(result, request);
}

genetic::Operation<genetic::Value(const genetic::Value&, const genetic::ReactionRequest&)>
PythonReactionPlanning::required_derive_reaction_improvements() {
  return [operation = globals_.get("_reaction_planning", "derive_reaction_improvements"),
          structural_key = globals_.get("_structural_key")](
             const genetic::Value& result, const genetic::ReactionRequest& request) {
    return opaque_value(call(operation, {to_python(result)},
                             {{"vocabulary", to_python(request.vocabulary)},
                              {"safe_rotation_specs", to_python(request.safe_rotation_specs)},
                              {"validator", object_of(request.validator)},
                              {"structural_key", structural_key},
                              {"improvement_depth", to_python(request.improvement_depth)},
                              {"max_plans", to_python(request.max_plans)},
                              {"extra_data_graphs", to_python(request.extra_data_graphs)}}));
  };
}

}  // namespace varnholt::python
