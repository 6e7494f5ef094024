#include "hosts/python/host/python_attempts.hpp"

#include <string_view>

#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"

namespace varnholt::python {
namespace {

using genetic::AttemptEnd;
using genetic::NewAttempt;
using genetic::Value;

Value create(const nb::object& operation, const NewAttempt& attempt) {
  return opaque_value(call(operation, {},
                           {{"product_run_id", to_python(attempt.product_run_id)},
                            {"source_path", to_python(attempt.source_path)},
                            {"graph", to_python(attempt.graph)},
                            {"algorithm", to_python(attempt.algorithm)},
                            {"rotation_identifier", text_object(attempt.rotation_identifier)},
                            {"era_number", to_python(attempt.era_number)},
                            {"market_id", to_python(attempt.market_id)},
                            {"data_shape", to_python(attempt.data_shape)},
                            {"expected_columns", to_python(attempt.expected_columns)},
                            {"eval_type", to_python(attempt.eval_type)}}));
}

void finalize(const nb::object& operation, const Value& attempt_id, const AttemptEnd& end) {
  call(operation, {to_python(attempt_id)},
       {{"terminal_disposition", to_python(end.terminal_disposition)},
        {"backtest_completed", to_python(end.backtest_completed)},
        {"generated_stats", to_python(end.generated_stats)},
        {"candidate_stats", to_python(end.candidate_stats)},
        {"stats_construction_blocker", to_python(end.stats_construction_blocker)},
        {"expected_columns", to_python(end.expected_columns)},
        {"per_column_inventory", to_python(end.per_column_inventory)},
        {"threshold_gate", to_python(end.threshold_gate)},
        {"failure_category", to_python(end.failure_category)},
        {"failure_reason", to_python(end.failure_reason)},
        {"failure_detail", to_python(end.failure_detail)},
        {"classification_source", to_python(end.classification_source)}});
}

nb::object accounting_operation(const char* name) {
  return import_name("varnholt.simulation.attempt_accounting", name);
}

}  // namespace

PythonAttemptTracker::Create PythonAttemptTracker::create_simulation_attempt() {
  return [operation = attribute(tracker_, "create_simulation_attempt")](const NewAttempt& attempt) {
    return create(operation, attempt);
  };
}

PythonAttemptTracker::Finalize PythonAttemptTracker::finalize_simulation_attempt() {
  return
      [operation = attribute(tracker_, "finalize_simulation_attempt")](
          const Value& attempt_id, const AttemptEnd& end) { finalize(operation, attempt_id, end); };
}

void PythonAttemptTracker::mark_simulation_attempt_dispatched(const Value& attempt_id) {
  call_method(tracker_, "mark_simulation_attempt_dispatched", {to_python(attempt_id)});
}

void PythonAttemptTracker::mark_simulation_attempt_backtest_started(const Value& attempt_id) {
  call_method(tracker_, "mark_simulation_attempt_backtest_started", {to_python(attempt_id)});
}

PythonAttemptMarkers::Write PythonAttemptMarkers::write_evaluation_attempt_marker() {
  return [operation = globals_.get("_engine", "_write_evaluation_attempt_marker")](
             const Value& tracker, const Value& graph, const Value& named_universe,
             const Value& metaparameters, std::string_view phase) {
    return opaque_value(
        call(operation, {to_python(tracker), to_python(graph), to_python(named_universe),
                         to_python(metaparameters), text_object(phase)}));
  };
}

PythonAttemptMarkers::Clear PythonAttemptMarkers::clear_evaluation_attempt_marker() {
  return [operation = globals_.get("_engine", "_clear_evaluation_attempt_marker")](
             const Value& tracker, const Value& marker_attempt_id) {
    call(operation, {to_python(tracker), to_python(marker_attempt_id)});
  };
}

PythonAttemptMarkers::DataShape PythonAttemptMarkers::attempt_declared_data_shape() {
  return [operation = globals_.get("_engine", "_attempt_declared_data_shape")](
             const Value& expected_columns) {
    return opaque_value(call(operation, {to_python(expected_columns)}));
  };
}

Value PythonAttemptAccounting::build_column_inventory(const Value& expected_columns,
                                                      const Value& per_column_stats) {
  return opaque_value(call(accounting_operation("build_column_inventory"),
                           {to_python(expected_columns), to_python(per_column_stats)}));
}

Value PythonAttemptAccounting::json_ready(const Value& value) {
  return opaque_value(call(accounting_operation("json_ready"), {to_python(value)}));
}

}  // namespace varnholt::python
