#include "hosts/python/host/python_engine.hpp"

#include <array>
#include <vector>

#include "hosts/python/errors/outgoing.hpp"
#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_random.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"
#include "hosts/python/values/python_error.hpp"
#include "hosts/python/values/python_object.hpp"
#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::python {

using genetic::Mapping;
using genetic::Value;

void PythonLogger::error(std::string_view format, std::initializer_list<Value> values) {
  log("error", format, values);
}

void PythonLogger::warning(std::string_view format, std::initializer_list<Value> values) {
  log("warning", format, values);
}

void PythonLogger::warning_with_error(std::string_view text, const std::exception_ptr& error) {
  const HandledException handled(error);
  call_method(object(), "warning", {text_object(text)}, {{"exc_info", nb::handle(Py_True)}});
}

void PythonLogger::log(const char* level, std::string_view format,
                       std::initializer_list<Value> values) {
  std::vector<Value> arguments{Value(format)};
  arguments.insert(arguments.end(), values.begin(), values.end());
  PythonCallable(attribute(object(), level)).call(arguments, Mapping());
}

Value PythonEngine::graph_depth_for_attempt_marker(const Value& graph) {
  return to_value(
      call_method(globals_.get("_engine"), "_graph_depth_for_attempt_marker", {to_python(graph)}));
}

Value PythonEngine::function_entries_for_kind(const Value& vocabulary, std::string_view kind) {
  return to_value(call_method(globals_.get("_engine"), "_function_entries_for_kind",
                              {to_python(vocabulary), text_object(kind)}));
}

Value PythonEngine::random_weighted_window_limit(genetic::SearchContext& context,
                                                 const Value& max_depth) {
  return opaque_value(call_method(globals_.get("_engine"), "_random_weighted_window_limit",
                                  {object_of(context), to_python(max_depth)}));
}

Value PythonEngine::random_weighted_node_limit(genetic::SearchContext& context) {
  return opaque_value(
      call_method(globals_.get("_engine"), "_random_weighted_node_limit", {object_of(context)}));
}

Value PythonEngine::random_weighted_runtime_registry(genetic::SearchContext& context) {
  return opaque_value(call_method(globals_.get("_engine"), "_random_weighted_runtime_registry",
                                  {object_of(context)}));
}

Value PythonEngine::signal_generation_safe_rotations(const genetic::SafeRotationsRequest& request) {
  // The module's own log context, which a host may have replaced.
  const Mapping keywords{
      {genetic::keys::kLogContext, to_value(globals_.get("_GENETIC_REACTION_LOG_CONTEXT"))},
      {genetic::keys::kTemplateName, request.template_name},
      {genetic::keys::kStage, request.stage},
      {genetic::keys::kGenerator, request.generator}};
  const std::array<Value, 4> arguments = {request.functions, request.window_limit,
                                          request.node_limit, request.registry};
  return PythonCallable(globals_.get("_engine", "_signal_generation_safe_rotations"))
      .call(arguments, keywords);
}

bool PythonEngine::is_sdk_runtime_not_ready_error(const Value& error) {
  return is_instance(to_python(error), globals_.get("_engine", "SdkRuntimeNotReadyError"));
}

Value PythonEngine::sdk_runtime_not_ready_rejection_detail() {
  return to_value(globals_.get("_engine", "_SDK_RUNTIME_NOT_READY_REJECTION_DETAIL"));
}

Value PythonEngine::infrastructure_failure_threshold() {
  return to_value(globals_.get("_engine", "_INFRASTRUCTURE_FAILURE_THRESHOLD"));
}

void PythonEngine::raise_background_infrastructure_error(const std::string& detail) {
  throw_exception(
      call(globals_.get("_engine", "BackgroundInfrastructureError"), {text_object(detail)}));
}

Value PythonEliteness::score_candidate(const Value& candidate, const Mapping& keywords) {
  return PythonCallable(globals_.get("score_candidate")).call({&candidate, 1}, keywords);
}

Value PythonGeneticOps::crossover(const Value& elite, const Value& mate,
                                  const std::shared_ptr<genetic::RandomGenerator>& rng,
                                  const genetic::Callable& validator) {
  return to_value(call(globals_.get("crossover"), {to_python(elite), to_python(mate)},
                       {{"rng", object_of(rng)}, {"validator", object_of(validator)}}));
}

Value PythonGeneticOps::point_mutation(const Value& elite, const Value& replacements,
                                       const std::shared_ptr<genetic::RandomGenerator>& rng,
                                       const genetic::Callable& validator) {
  return to_value(call(globals_.get("point_mutation"), {to_python(elite), to_python(replacements)},
                       {{"rng", object_of(rng)}, {"validator", object_of(validator)}}));
}

Value PythonGeneticOps::subtree_mutation(const Value& elite, const Value& replacements,
                                         const std::shared_ptr<genetic::RandomGenerator>& rng,
                                         const genetic::Callable& validator) {
  return to_value(call(globals_.get("subtree_mutation"),
                       {to_python(elite), to_python(replacements)},
                       {{"rng", object_of(rng)}, {"validator", object_of(validator)}}));
}

Value PythonGeneticOps::hoist_mutation(const Value& elite,
                                       const std::shared_ptr<genetic::RandomGenerator>& rng,
                                       const genetic::Callable& validator) {
  return to_value(call(globals_.get("hoist_mutation"), {to_python(elite)},
                       {{"rng", object_of(rng)}, {"validator", object_of(validator)}}));
}

std::unique_ptr<genetic::ValueIterator> PythonRandomWeighted::random_weighted_graphs(
    genetic::SearchContext& context, const std::shared_ptr<genetic::RandomGenerator>& rng,
    const Mapping& /*log_context*/, std::string_view template_name) {
  nb::object graphs = call(globals_.get("_random_weighted_graphs"), {object_of(context)},
                           {{"rng", object_of(rng)},
                            {"log_context", globals_.get("_GENETIC_RANDOM_WEIGHTED_LOG_CONTEXT")},
                            {"template_name", text_object(template_name)}});
  if (graphs.is_none()) return nullptr;
  return std::make_unique<PythonIterator>(std::move(graphs));
}

Value PythonEvaluationVerdicts::not_evaluated_verdict() {
  return to_value(
      call(import_name("varnholt.simulation.evaluation_verdicts", "not_evaluated_verdict")));
}

}  // namespace varnholt::python
