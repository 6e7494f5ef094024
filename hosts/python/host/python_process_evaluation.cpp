#include "hosts/python/host/python_process_evaluation.hpp"

#include "hosts/python/errors/outgoing.hpp"
#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_engine.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::python {

using genetic::Value;

Value PythonWorkerResolution::resolved() const {
  return to_value(attribute(resolution_, "resolved"));
}

Value PythonProcessEvaluation::constant(const char* name) const {
  return to_value(globals_.get("_process_evaluation", name));
}

Value PythonProcessEvaluation::default_search_template_timeout_seconds() {
  return constant("DEFAULT_SEARCH_TEMPLATE_TIMEOUT_SECONDS");
}
Value PythonProcessEvaluation::default_worker_memory_limit_bytes() {
  return constant("DEFAULT_WORKER_MEMORY_LIMIT_BYTES");
}
Value PythonProcessEvaluation::terminal_worker_failed() {
  return constant("TERMINAL_WORKER_FAILED");
}
Value PythonProcessEvaluation::terminal_worker_timeout() {
  return constant("TERMINAL_WORKER_TIMEOUT");
}
Value PythonProcessEvaluation::terminal_process_priority_failed() {
  return constant("TERMINAL_PROCESS_PRIORITY_FAILED");
}
Value PythonProcessEvaluation::terminal_memory_budget_exceeded() {
  return constant("TERMINAL_MEMORY_BUDGET_EXCEEDED");
}

std::optional<Value> PythonProcessEvaluation::as_error(const std::exception& error) {
  const auto* const known = dynamic_cast<const genetic::Error*>(&error);
  const nb::object exception = known == nullptr ? nb::object() : python_origin(*known);
  return exception.is_valid() ? matching(exception) : std::nullopt;
}

std::optional<Value> PythonProcessEvaluation::as_caught_error(const std::exception_ptr& error) {
  const nb::object exception = python_exception(error);
  return exception.is_valid() ? matching(exception) : std::nullopt;
}

// As an `except` clause tests it: along the bases of the exception's type.
std::optional<Value> PythonProcessEvaluation::matching(const nb::object& exception) const {
  const nb::object type = globals_.get("_process_evaluation", "ProcessEvaluationError");
  if (PyErr_GivenExceptionMatches(exception.ptr(), type.ptr()) == 0) return std::nullopt;
  return to_value(exception);
}

// An operation is found before its arguments are read, as Python does it.
std::unique_ptr<genetic::WorkerResolution>
PythonProcessEvaluation::resolve_process_worker_count_details(
    const std::function<Value()>& requested, const Value& candidate_count) {
  const nb::object resolve =
      globals_.get("_process_evaluation", "resolve_process_worker_count_details");
  return std::make_unique<PythonWorkerResolution>(call(
      resolve, {},
      {{"requested", to_python(requested())}, {"candidate_count", to_python(candidate_count)}}));
}

void PythonProcessEvaluation::log_worker_count_reduction(
    genetic::Logger& logger, const genetic::WorkerResolution& resolution, std::string_view scope,
    genetic::SearchContext& cache_owner, std::string_view detail) {
  const nb::object log = globals_.get("_process_evaluation", "log_worker_count_reduction");
  call(log,
       {dynamic_cast<PythonLogger&>(logger).object(),
        dynamic_cast<const PythonWorkerResolution&>(resolution).object()},
       {{"scope", text_object(scope)},
        {"cache_owner", object_of(cache_owner)},
        {"detail", text_object(detail)}});
}

namespace {

class PythonConfiguredPool : public genetic::ConfiguredPool {
 public:
  PythonConfiguredPool(const ModuleGlobals& globals, nb::object config)
      : globals_(globals), config_(std::move(config)) {}

  [[nodiscard]] Value evaluate_candidate_batch(const genetic::List& candidates,
                                               const genetic::Callable& simulate) override {
    return to_value(call_method(globals_.get("_process_evaluation"), "evaluate_candidate_batch",
                                {to_python(candidates), object_of(simulate)},
                                {{"config", config_}}));
  }

 private:
  const ModuleGlobals& globals_;
  nb::object config_;
};

}  // namespace

void PythonProcessEvaluation::prefetch_candidate_features(genetic::SearchContext& context,
                                                          const genetic::List& graphs) {
  call_method(globals_.get("_process_evaluation"), "prefetch_candidate_features",
              {object_of(context), to_python(graphs)});
}

Value PythonProcessEvaluation::candidate_evaluation(const Value& candidate_index,
                                                    const Value& graph) {
  return opaque_value(
      call_method(globals_.get("_process_evaluation"), "CandidateEvaluation", {},
                  {{"candidate_index", to_python(candidate_index)}, {"graph", to_python(graph)}}));
}

std::unique_ptr<genetic::ConfiguredPool> PythonProcessEvaluation::configure(
    const std::function<genetic::ProcessEvaluationConfig()>& read_config) {
  const nb::object type = globals_.get("_process_evaluation", "ProcessEvaluationConfig");
  const genetic::ProcessEvaluationConfig config = read_config();
  nb::object made =
      call(type, {},
           {{"n_jobs", to_python(config.n_jobs)},
            {"max_retries", to_python(config.max_retries)},
            {"timeout_seconds", to_python(config.timeout_seconds)},
            {"process_priority", to_python(config.process_priority)},
            {"worker_memory_limit_bytes", to_python(config.worker_memory_limit_bytes)},
            {"worker_processes", to_python(config.worker_processes)},
            {"pre_dispatch_callback", object_of(config.pre_dispatch_callback)},
            {"lifecycle_callback", object_of(config.lifecycle_callback)},
            {"progress_callback", object_of(config.progress_callback)},
            {"completed_result_callback", object_of(config.completed_result_callback)},
            {"parent_poll_callback", object_of(config.parent_poll_callback)},
            {"stop_requested", object_of(config.stop_requested)},
            {"drain_terminal_timeouts", to_python(config.drain_terminal_timeouts)}});
  return std::make_unique<PythonConfiguredPool>(globals_, std::move(made));
}

}  // namespace varnholt::python
