#include <utility>

#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_host.hpp"
#include "hosts/python/host/python_ledger.hpp"
#include "hosts/python/module/init.hpp"
#include "hosts/python/values/containers.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "search_templates/genetic/process/attempt_marker.hpp"
#include "search_templates/genetic/process/attempt_recording.hpp"
#include "search_templates/genetic/process/process_attempts.hpp"

namespace varnholt::python {
namespace {

using genetic::AttemptFlags;
using Library = genetic::ProcessAttemptLedger;

// The library's ledger behind the Python object `self`.
class Ledger {
 public:
  Ledger(PythonHost& host, const Any& self) : records_(self), ledger_(host, records_, self) {}

  PythonProcessAttemptLedger* operator->() { return &ledger_; }

 private:
  PythonLedgerRecords records_;
  PythonProcessAttemptLedger ledger_;
};

AttemptFlags flags_of(const Any& dispatched, const Any& backtest_started, const Any& cancelled) {
  AttemptFlags flags;
  flags.dispatched = is_true(dispatched);
  flags.backtest_started = is_true(backtest_started);
  flags.cancelled = is_true(cancelled);
  return flags;
}

void init_attempts(nb::module_& module) {
  module.def("create_process_attempt",
             [](PythonHost& host, const Any& ctx, const Any& candidate_index, const Any& graph) {
               PythonSearchContext context(ctx);
               return to_python(genetic::create_process_attempt(
                   host, context, to_value(candidate_index), opaque_value(graph)));
             });
  module.def("finalize_process_failure_attempt",
             [](PythonHost& host, const Any& ctx, const Any& attempt_id, const Any& reason,
                const Any& detail, const Any& dispatched, const Any& backtest_started,
                const Any& cancelled) {
               PythonSearchContext context(ctx);
               genetic::finalize_process_failure_attempt(
                   host, context, opaque_value(attempt_id), opaque_value(reason),
                   opaque_value(detail), flags_of(dispatched, backtest_started, cancelled));
             });
  module.def(
      "process_attempt_blocker", [](const Any& reason, const Any& detail, const Any& dispatched,
                                    const Any& backtest_started, const Any& cancelled) {
        return to_python(
            genetic::process_attempt_blocker(opaque_value(reason), opaque_value(detail),
                                             flags_of(dispatched, backtest_started, cancelled)));
      });
  module.def("process_attempt_evidence",
             [](PythonHost& host, const Any& ctx, const Any& reason, const Any& detail,
                const Any& dispatched, const Any& backtest_started, const Any& cancelled) {
               PythonSearchContext context(ctx);
               return to_python(genetic::process_attempt_evidence(
                   host, context, opaque_value(reason), opaque_value(detail),
                   flags_of(dispatched, backtest_started, cancelled)));
             });
  module.def("build_attempt_column_inventory",
             [](PythonHost& host, const Any& expected_columns, const Any& per_column_stats) {
               return to_python(host.attempt_accounting().build_column_inventory(
                   opaque_value(expected_columns), opaque_value(per_column_stats)));
             });
  module.def("attempt_json_ready", [](PythonHost& host, const Any& value) {
    return to_python(host.attempt_accounting().json_ready(opaque_value(value)));
  });
}

void init_recording(nb::module_& module) {
  module.def("write_parent_process_evaluation_attempt_marker",
             [](PythonHost& host, const Any& ctx, const Any& event) {
               PythonSearchContext context(ctx);
               return to_python(genetic::write_parent_process_evaluation_attempt_marker(
                   host, context, opaque_record(event)));
             });
  module.def("record_process_candidate_result_in_parent",
             [](PythonHost& host, const Any& ctx, const Any& attempt_ledger,
                const Any& candidate_index, const Any& candidate_result) {
               PythonSearchContext context(ctx);
               PythonAttemptLedger ledger(attempt_ledger);
               genetic::record_process_candidate_result_in_parent(
                   host, context, ledger, to_value(candidate_index), to_value(candidate_result));
             });
}

void init_ledger_events(nb::module_& module) {
  module.def("ledger_graphs", [](const Any& indexed_batch) {
    return to_python(genetic::graphs_by_index(to_value(indexed_batch)));
  });
  module.def("ledger_prepare_for_processes", [](PythonHost& host, const Any& self) {
    Ledger(host, self)->prepare_for_processes();
  });
  module.def("ledger_pre_dispatch", [](PythonHost& host, const Any& self, const Any& event) {
    Ledger(host, self)->pre_dispatch(opaque_record(event));
  });
  module.def("ledger_lifecycle", [](PythonHost& host, const Any& self, const Any& event) {
    Ledger(host, self)->lifecycle(opaque_record(event));
  });
  module.def("ledger_progress", [](PythonHost& host, const Any& self, const Any& event) {
    Ledger(host, self)->progress(opaque_record(event));
  });
  module.def("ledger_poll_backtest_boundaries", [](PythonHost& host, const Any& self) {
    Ledger(host, self)->poll_backtest_boundaries();
  });
}

void init_ledger_answers(nb::module_& module) {
  module.def("ledger_apply_child_evidence", [](PythonHost& host, const Any& self,
                                               const Any& candidate_index, const Any& evidence) {
    Ledger(host, self)->apply_child_evidence(to_value(candidate_index), opaque_record(evidence));
  });
  module.def("ledger_source_attempt_id",
             [](PythonHost& host, const Any& self, const Any& candidate_index) {
               return to_python(Ledger(host, self)->source_attempt_id(to_value(candidate_index)));
             });
  module.def("ledger_failure_evidence",
             [](PythonHost& host, const Any& self, const Any& candidate_index, const Any& reason,
                const Any& detail) {
               return to_python(Ledger(host, self)
                                    ->failure_evidence(to_value(candidate_index),
                                                       opaque_value(reason), opaque_value(detail)));
             });
  module.def("ledger_mark_parent_finalized",
             [](PythonHost& host, const Any& self, const Any& candidate_index) {
               Ledger(host, self)->Library::mark_parent_finalized(to_value(candidate_index));
             });
  module.def("ledger_acknowledge_parent_persistence_failure", [](PythonHost& host, const Any& self,
                                                                 const Any& candidate_index) {
    Ledger(host, self)->acknowledge_parent_persistence_failure(to_value(candidate_index));
  });
  module.def("ledger_finalize_all_open",
             [](PythonHost& host, const Any& self, const Any& reason, const Any& detail) {
               Ledger(host, self)->finalize_all_open(opaque_value(reason), opaque_value(detail));
             });
}

// What the operations are made of: the library's own form of each, whatever the object says.
void init_ledger_parts(nb::module_& module) {
  module.def("new_attempt_state", [] { return to_python(genetic::new_attempt_state()); });
  module.def("ledger_state_for_event", [](PythonHost& host, const Any& self, const Any& event) {
    auto [key, state] = Ledger(host, self)->Library::state_for_event(opaque_record(event));
    return to_python(genetic::Tuple{key, state});
  });
  module.def(
      "ledger_start_backtest_attempt",
      [](PythonHost& host, const Any& self, const Any& candidate_index, const Any& attempt_number) {
        return to_python(Ledger(host, self)
                             ->Library::start_backtest_attempt(to_value(candidate_index),
                                                               to_value(attempt_number)));
      });
  module.def("ledger_drain_backtest_boundaries", [](PythonHost& host, const Any& self) {
    Ledger(host, self)->Library::drain_backtest_boundaries();
  });
  module.def("ledger_finalize_state", [](PythonHost& host, const Any& self, const Any& state,
                                         const Any& reason, const Any& detail) {
    Ledger(host, self)
        ->Library::finalize_state(opaque_record(state), opaque_value(reason), opaque_value(detail));
  });
  module.def("ledger_clear_marker", [](PythonHost& host, const Any& self, const Any& state) {
    Ledger(host, self)->Library::clear_marker(opaque_record(state));
  });
}

}  // namespace

void init_process_attempts(nb::module_& module) {
  init_attempts(module);
  init_recording(module);
  init_ledger_events(module);
  init_ledger_answers(module);
  init_ledger_parts(module);
}

}  // namespace varnholt::python
