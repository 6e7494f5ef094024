#include "hosts/python/host/python_batch.hpp"
#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/host/python_ledger.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/process/batch_evaluation.hpp"
#include "search_templates/genetic/process/batch_results.hpp"

namespace varnholt::python {

void init_batch(nb::module_& module) {
  module.def("evaluate_candidate_batch", [](PythonHost& host, const Any& ctx, const Any& batch,
                                            const Any& process_timeout_seconds) {
    PythonSearchContext context(ctx);
    PythonBatchParts parts(host.globals(), ctx);
    return to_python(genetic::evaluate_candidate_batch(
        host, context, to_value(batch), opaque_value(process_timeout_seconds), parts));
  });
  module.def("candidate_result_from_process_result", [](const Any& process_result) {
    return to_python(genetic::candidate_result_from_process_result(opaque_value(process_result)));
  });
  module.def("record_completed_process_result",
             [](PythonHost& host, const Any& ctx, const Any& attempt_ledger,
                const Any& stream_submissions, const Any& streamed, const Any& process_result) {
               PythonSearchContext context(ctx);
               PythonAttemptLedger ledger(attempt_ledger);
               genetic::record_completed_process_result(
                   host, context, ledger, is_true(stream_submissions),
                   genetic::StreamedResults(to_value(streamed).list()),
                   opaque_value(process_result));
             });
}

}  // namespace varnholt::python
