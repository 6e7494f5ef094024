#include "hosts/embedded/host/process_side.hpp"

#include <span>

#include "hosts/embedded/system/memory_advice.hpp"
#include "search_templates/genetic/host/callable_value.hpp"
#include "search_templates/genetic/host/function_callable.hpp"

namespace varnholt::embedded {
namespace {

genetic::Value no_marker() {
  return genetic::callable_value(genetic::make_callable(
      [](std::span<const genetic::Value>, const genetic::Mapping&) { return genetic::Value(); }));
}

}  // namespace

ProcessSide::ProcessSide(SystemCalls& system, double default_timeout_seconds, Isolation isolation)
    : engine_operations(std::make_shared<genetic::OperationTable>(genetic::Mapping{
          {genetic::operation_names::kWriteEvaluationAttemptMarker, no_marker()}})),
      queues(system),
      pool(
          system, queues, default_timeout_seconds,
          [this] {
            if (!role.is_child()) {
              role.enter_child();
              keep_freed_panels(panel_bytes);
            }
            // Once more for each candidate: what the one before has left is not its own.
            timings.recorded().enter_process(role.identity());
          },
          isolation) {}

}  // namespace varnholt::embedded
