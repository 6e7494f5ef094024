#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/conversion.hpp"
#include "search_templates/genetic/process/worker_capacity.hpp"

namespace varnholt::python {
namespace {

void init_context_settings(nb::module_& module) {
  module.def(
      "context_optional_int", [](const Any& ctx, const Any& attribute_name, const Any& fallback) {
        PythonSearchContext context(ctx);
        return to_python(
            genetic::context_optional_int(context, str_of(attribute_name), to_value(fallback)));
      });
  module.def("context_worker_memory_limit_bytes", [](PythonHost& host, const Any& ctx) {
    PythonSearchContext context(ctx);
    return to_python(
        genetic::context_worker_memory_limit_bytes(host.process_evaluation(), context));
  });
  module.def("parallel_evaluation_requested_jobs", [](const Any& ctx) {
    PythonSearchContext context(ctx);
    return to_python(genetic::parallel_evaluation_requested_jobs(context));
  });
}

}  // namespace

void init_process(nb::module_& module) {
  init_context_settings(module);
  module.def("parallel_evaluation_worker_resolution",
             [](PythonHost& host, const Any& ctx, const Any& batch_size) {
               PythonSearchContext context(ctx);
               const auto resolution = genetic::parallel_evaluation_worker_resolution(
                   host.process_evaluation(), context, to_value(batch_size));
               return dynamic_cast<const PythonWorkerResolution&>(*resolution).object();
             });
  module.def("log_parallel_evaluation_worker_resolution",
             [](PythonHost& host, const Any& ctx, const Any& resolution) {
               PythonSearchContext context(ctx);
               genetic::log_parallel_evaluation_worker_resolution(
                   host, context, PythonWorkerResolution(resolution));
             });
  module.def(
      "parallel_evaluation_workers", [](PythonHost& host, const Any& ctx, const Any& batch_size) {
        PythonSearchContext context(ctx);
        return to_python(genetic::parallel_evaluation_workers(host, context, to_value(batch_size)));
      });
  module.def(
      "parent_prefetch_chunk_size", [](PythonHost& host, const Any& ctx, const Any& batch_size) {
        PythonSearchContext context(ctx);
        return to_python(genetic::parent_prefetch_chunk_size(host, context, to_value(batch_size)));
      });
}

}  // namespace varnholt::python
