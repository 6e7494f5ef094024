// The host behind the Python module: every class of the library's `host/` over Python objects.
//
// Made once, over the dict of the module, which it shares with the collector: the module holds the
// host, and the host holds the module's names.
#pragma once

#include <memory>
#include <utility>

#include <nanobind/nanobind.h>

#include "hosts/python/host/module_globals.hpp"
#include "hosts/python/host/python_attempts.hpp"
#include "hosts/python/host/python_batch.hpp"
#include "hosts/python/host/python_child.hpp"
#include "hosts/python/host/python_engine.hpp"
#include "hosts/python/host/python_planning.hpp"
#include "hosts/python/host/python_population.hpp"
#include "hosts/python/host/python_process_evaluation.hpp"
#include "hosts/python/host/python_queues.hpp"
#include "hosts/python/host/python_random.hpp"
#include "hosts/python/host/python_settings.hpp"
#include "hosts/python/host/python_timings.hpp"
#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/population/search_environment.hpp"

namespace varnholt::python {

namespace nb = nanobind;

class PythonHost : public genetic::Host {
 public:
  explicit PythonHost(nb::object globals)
      : globals_(std::move(globals)),
        logger_(globals_),
        engine_(globals_),
        process_evaluation_(globals_),
        eliteness_(globals_),
        genetic_ops_(globals_),
        random_weighted_(globals_),
        reaction_planning_(globals_),
        search_settings_(globals_),
        attempt_markers_(globals_),
        process_contexts_(globals_),
        batch_evaluator_(globals_),
        constants_(globals_),
        fresh_candidates_(globals_) {}
  PythonHost(const PythonHost&) = delete;
  PythonHost& operator=(const PythonHost&) = delete;
  ~PythonHost() override = default;

  [[nodiscard]] genetic::Gates& gates() override { return engine_; }
  [[nodiscard]] genetic::PoolThresholds& pool_thresholds() override { return engine_; }
  [[nodiscard]] genetic::PoolMetrics& pool_metrics() override { return engine_; }
  [[nodiscard]] genetic::SubmissionPayloads& submission_payloads() override { return engine_; }
  [[nodiscard]] genetic::RandomGraphLimits& random_graph_limits() override { return engine_; }
  [[nodiscard]] genetic::RuntimeReadiness& runtime_readiness() override { return engine_; }
  [[nodiscard]] genetic::GraphDepth& graph_depth() override { return engine_; }
  [[nodiscard]] genetic::Logger& logger() override { return logger_; }
  [[nodiscard]] genetic::ProcessEvaluation& process_evaluation() override {
    return process_evaluation_;
  }
  [[nodiscard]] genetic::Eliteness& eliteness() override { return eliteness_; }
  [[nodiscard]] genetic::GeneticOps& genetic_ops() override { return genetic_ops_; }
  [[nodiscard]] genetic::RandomWeighted& random_weighted() override { return random_weighted_; }
  [[nodiscard]] genetic::ReactionPlanning& reaction_planning() override {
    return reaction_planning_;
  }
  [[nodiscard]] genetic::SearchSettings& search_settings() override { return search_settings_; }
  [[nodiscard]] genetic::EvaluationVerdicts& evaluation_verdicts() override { return verdicts_; }
  [[nodiscard]] genetic::BacktestTimings& backtest_timings() override { return timings_; }
  [[nodiscard]] genetic::JsonReader& json_reader() override { return json_reader_; }
  [[nodiscard]] genetic::RandomGenerators& random_generators() override { return generators_; }
  [[nodiscard]] genetic::SecureRandom& secure_random() override { return secure_random_; }
  [[nodiscard]] genetic::Pause& pause() override { return pause_; }
  [[nodiscard]] genetic::AttemptMarkers& attempt_markers() override { return attempt_markers_; }
  [[nodiscard]] genetic::AttemptAccounting& attempt_accounting() override {
    return attempt_accounting_;
  }
  [[nodiscard]] genetic::ProcessContexts& process_contexts() override { return process_contexts_; }
  [[nodiscard]] genetic::BatchEvaluator* batch_evaluator() override { return &batch_evaluator_; }
  [[nodiscard]] std::shared_ptr<genetic::ReplaceableObject> engine_operations() override {
    return std::make_shared<PythonReplaceableObject>(globals_.get("_engine"));
  }

  [[nodiscard]] const PythonModuleConstants& constants() const { return constants_; }
  [[nodiscard]] ModuleFreshCandidates& fresh_candidates() { return fresh_candidates_; }
  [[nodiscard]] genetic::SearchEnvironment environment() {
    return {*this, constants_, fresh_candidates_};
  }

  // For the collector.
  [[nodiscard]] ModuleGlobals& globals() { return globals_; }

 private:
  ModuleGlobals globals_;
  PythonLogger logger_;
  PythonEngine engine_;
  PythonProcessEvaluation process_evaluation_;
  PythonEliteness eliteness_;
  PythonGeneticOps genetic_ops_;
  PythonRandomWeighted random_weighted_;
  PythonReactionPlanning reaction_planning_;
  PythonSearchSettings search_settings_;
  PythonEvaluationVerdicts verdicts_;
  PythonBacktestTimings timings_;
  PythonJsonReader json_reader_;
  PythonRandomGenerators generators_;
  PythonSecureRandom secure_random_;
  PythonPause pause_;
  PythonAttemptMarkers attempt_markers_;
  PythonAttemptAccounting attempt_accounting_;
  PythonProcessContexts process_contexts_;
  PythonBatchEvaluator batch_evaluator_;
  PythonModuleConstants constants_;
  ModuleFreshCandidates fresh_candidates_;
};

}  // namespace varnholt::python
