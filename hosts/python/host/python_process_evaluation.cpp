#include "hosts/python/host/python_process_evaluation.hpp"

#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_engine.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::python {

using genetic::CandidateEvaluation;
using genetic::ProcessResult;
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
  if (known == nullptr) return std::nullopt;
  const nb::object exception = python_origin(*known);
  if (!exception.is_valid()) return std::nullopt;
  // As an `except` clause tests it: along the bases of the exception's type.
  const nb::object type = globals_.get("_process_evaluation", "ProcessEvaluationError");
  if (PyErr_GivenExceptionMatches(exception.ptr(), type.ptr()) == 0) return std::nullopt;
  return to_value(exception);
}

std::unique_ptr<genetic::WorkerResolution>
PythonProcessEvaluation::resolve_process_worker_count_details(const Value& requested,
                                                              const Value& candidate_count) {
  return std::make_unique<PythonWorkerResolution>(call_method(
      globals_.get("_process_evaluation"), "resolve_process_worker_count_details", {},
      {{"requested", to_python(requested)}, {"candidate_count", to_python(candidate_count)}}));
}

void PythonProcessEvaluation::log_worker_count_reduction(
    genetic::Logger& logger, const genetic::WorkerResolution& resolution, std::string_view scope,
    genetic::SearchContext& cache_owner, std::string_view detail) {
  call_method(globals_.get("_process_evaluation"), "log_worker_count_reduction",
              {dynamic_cast<PythonLogger&>(logger).object(),
               dynamic_cast<const PythonWorkerResolution&>(resolution).object()},
              {{"scope", text_object(scope)},
               {"cache_owner", object_of(cache_owner)},
               {"detail", text_object(detail)}});
}

namespace {

using Simulate = std::function<Value(const CandidateEvaluation&)>;

// What the pool runs in a child. The simulation lives as long as the call of the pool, so a host
// that keeps the function finds it empty afterwards.
struct Simulation {
  const Simulate* simulate;
};

Value run_simulation(const Simulation& simulation, nb::handle candidate) {
  if (simulation.simulate == nullptr) {
    throw genetic::RuntimeError("the batch of this simulation is over");
  }
  CandidateEvaluation evaluation;
  const nb::object index = attribute(candidate, "candidate_index");
  evaluation.candidate_index = PyLong_AsLongLong(index.ptr());
  if (PyErr_Occurred() != nullptr) throw_current_error();
  evaluation.graph = to_value(attribute(candidate, "graph"));
  return (*simulation.simulate)(evaluation);
}

// The function as long as the call lasts.
class SimulationScope {
 public:
  explicit SimulationScope(const Simulate& simulate)
      : simulation_(std::make_shared<Simulation>(Simulation{&simulate})),
        function_(nb::cpp_function([simulation = simulation_](nb::handle candidate) {
          return to_python(run_simulation(*simulation, candidate));
        })) {}
  SimulationScope(const SimulationScope&) = delete;
  SimulationScope& operator=(const SimulationScope&) = delete;
  ~SimulationScope() { simulation_->simulate = nullptr; }

  [[nodiscard]] const nb::object& function() const noexcept { return function_; }

 private:
  std::shared_ptr<Simulation> simulation_;
  nb::object function_;
};

ProcessResult process_result(nb::handle result) {
  return {to_value(attribute(result, "candidate_index")), to_value(attribute(result, "payload")),
          to_value(attribute(result, "worker_pid")),
          to_value(attribute(result, "elapsed_simulation_seconds")),
          to_value(attribute(result, "attempt"))};
}

}  // namespace

std::vector<ProcessResult> PythonProcessEvaluation::evaluate_candidate_batch(
    const std::vector<CandidateEvaluation>& candidates, const Simulate& simulate,
    const genetic::ProcessEvaluationConfig& config) {
  const nb::object module = globals_.get("_process_evaluation");
  const nb::object items = checked(PyList_New(0));
  for (const CandidateEvaluation& candidate : candidates) {
    const nb::object item = call_method(module, "CandidateEvaluation", {},
                                        {{"candidate_index", to_python(candidate.candidate_index)},
                                         {"graph", to_python(candidate.graph)}});
    checked(PyList_Append(items.ptr(), item.ptr()));
  }
  const nb::object settings =
      call_method(module, "ProcessEvaluationConfig", {},
                  {{"n_jobs", to_python(config.n_jobs)},
                   {"max_retries", to_python(config.max_retries)},
                   {"timeout_seconds", to_python(config.timeout_seconds)},
                   {"worker_memory_limit_bytes", to_python(config.worker_memory_limit_bytes)}});

  const SimulationScope simulation(simulate);
  const nb::object answer = call_method(module, "evaluate_candidate_batch",
                                        {items, simulation.function()}, {{"config", settings}});
  const nb::object iterator = checked(PyObject_GetIter(answer.ptr()));
  std::vector<ProcessResult> results;
  while (PyObject* const next = PyIter_Next(iterator.ptr())) {
    results.push_back(process_result(nb::steal(next)));
  }
  if (PyErr_Occurred() != nullptr) throw_current_error();
  return results;
}

}  // namespace varnholt::python
