// What of the embedded host has to do with processes. It needs neither prices nor a store.
#pragma once

#include <cstddef>
#include <memory>

#include "hosts/embedded/host/embedded_pool.hpp"
#include "hosts/embedded/host/embedded_timings.hpp"
#include "hosts/embedded/host/fork_queues.hpp"
#include "hosts/embedded/host/isolation.hpp"
#include "hosts/embedded/host/process_role.hpp"
#include "hosts/embedded/pool/system_calls.hpp"
#include "search_templates/genetic/host/operation_table.hpp"

namespace varnholt::embedded {

struct ProcessSide {
  // `system` must outlive the object.
  ProcessSide(SystemCalls& system, double default_timeout_seconds,
              Isolation isolation = Isolation::Candidate);
  ProcessSide(const ProcessSide&) = delete;
  ProcessSide& operator=(const ProcessSide&) = delete;
  ~ProcessSide() = default;

  // Of one panel that the children compute with; 0 where they compute with none.
  std::size_t panel_bytes = 0;
  ProcessRole role;
  // Measured in this process.
  EmbeddedTimings timings;
  // Where the evaluator announces the phases of an evaluation. Nobody looks on at them but the
  // guard that stands here in a child.
  std::shared_ptr<genetic::OperationTable> engine_operations;
  ForkQueues queues;
  // Its children enter their role before they work on a candidate.
  EmbeddedPool pool;
};

}  // namespace varnholt::embedded
