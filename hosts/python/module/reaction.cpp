#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "search_templates/genetic/reaction/improvement_batch.hpp"

namespace varnholt::python {

void init_reaction(nb::module_& module) {
  module.def("annotate_candidate_results", [](const Any& results, const Any& start_index,
                                              const Any& improvement_depth,
                                              const Any& improvements) {
    static_cast<void>(genetic::annotate_candidate_results(to_value(results), to_value(start_index),
                                                          to_value(improvement_depth),
                                                          to_value(improvements)));
    // The very object that was given, whatever its type.
    return results;
  });
  module.def("elapsed_candidate_seconds", [](const Any& results) {
    return genetic::elapsed_candidate_seconds(to_value(results));
  });
}

}  // namespace varnholt::python
