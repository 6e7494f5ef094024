#include "hosts/embedded/host/process_side.hpp"

#include <span>

#include "hosts/embedded/system/memory_advice.hpp"
#include "search_templates/genetic/host/callable_value.hpp"
#include "search_templates/genetic/host/function_callable.hpp"

namespace varnholt::embedded {
namespace {

// Panels from this size on are worth their own memory; an expression has so many at a time at most,
// but for rare ones.
constexpr std::size_t kLargePanelBytes = std::size_t{1} << 20;
constexpr std::size_t kKeptPanels = 16;

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
              // Small panels lie in the heap as it is.
              if (panel_bytes >= kLargePanelBytes) keep_freed_memory(kKeptPanels * panel_bytes);
            }
            // Once more for each candidate: what the one before has left is not its own.
            timings.recorded().enter_process(role.identity());
          },
          isolation) {}

}  // namespace varnholt::embedded
