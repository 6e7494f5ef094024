#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/population/candidate_batch.hpp"
#include "search_templates/genetic/population/deduplication.hpp"
#include "search_templates/genetic/population/fresh_candidates.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::python {
namespace {

namespace keys = genetic::keys;

nb::object run_deduplicated_batch(PythonHost& host, const Any& ctx, const Any& config,
                                  const Any& graphs, const Any& seen_graph_keys) {
  PythonSearchContext context(ctx);
  PythonSearchConfig search_config(config);
  PythonSeenGraphs seen(seen_graph_keys);
  const genetic::DeduplicatedBatch batch = genetic::run_deduplicated_batch(
      context, search_config, host.fresh_candidates(), to_value(graphs), seen);
  return to_python(genetic::Mapping{{keys::kGraphs, batch.graphs},
                                    {keys::kGeneratedCount, batch.generated_count},
                                    {keys::kDuplicateCount, batch.duplicate_count}});
}

}  // namespace

void init_population(nb::module_& module) {
  module.def("deduplicate_graphs", [](const Any& graphs) {
    return to_python(genetic::deduplicate_graphs(to_value(graphs)));
  });
  module.def("run_deduplicated_batch", &run_deduplicated_batch);
  module.def("fresh_random_candidates",
             [](PythonHost& host, const Any& ctx, const Any& batch_size, const Any& rng) {
               PythonSearchContext context(ctx);
               return to_python(genetic::fresh_random_candidates(
                   host.random_weighted(), context, to_value(batch_size), generator_or_null(rng)));
             });
  module.def("fresh_random_candidates_for_rng",
             [](PythonHost& host, const Any& ctx, const Any& batch_size, const Any& rng) {
               PythonSearchContext context(ctx);
               const genetic::Value count = to_value(checked(PyNumber_Index(batch_size.ptr())));
               return to_python(genetic::fresh_random_candidates_for_rng(
                   host.fresh_candidates(), context, genetic::saturated_integer(count),
                   generator_or_null(rng)));
             });
  module.def("candidate_batch", [](PythonHost& host, const Any& ctx, const Any& config,
                                   const Any& batch_index, const Any& prior_results,
                                   const Any& force_restart) {
    PythonSearchContext context(ctx);
    PythonSearchConfig search_config(config);
    // Of the index only one thing is asked: whether it equals 0.
    const std::int64_t index = to_value(batch_index) == genetic::Value(0) ? 0 : 1;
    return to_python(genetic::candidate_batch(host.environment(), context, search_config, index,
                                              to_value(prior_results), is_true(force_restart)));
  });
}

}  // namespace varnholt::python
