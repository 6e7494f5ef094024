// Everything that the search asks of its host, in one bundle.
//
// Each subject is an abstract class of its own; a host derives from those that it implements. One
// object may implement several of them. What a host may leave out has a default here.
//
// All calls come from the one thread of the search, in the parent process unless the class says
// otherwise. The bundle and what it gives must outlive every use of the library.
#pragma once

#include <memory>
#include <memory_resource>

#include "search_templates/genetic/host/attempt_accounting.hpp"
#include "search_templates/genetic/host/attempt_markers.hpp"
#include "search_templates/genetic/host/backtest_timings.hpp"
#include "search_templates/genetic/host/batch_evaluator.hpp"
#include "search_templates/genetic/host/eliteness.hpp"
#include "search_templates/genetic/host/evaluation_verdicts.hpp"
#include "search_templates/genetic/host/gates.hpp"
#include "search_templates/genetic/host/generation_observer.hpp"
#include "search_templates/genetic/host/genetic_ops.hpp"
#include "search_templates/genetic/host/graph_depth.hpp"
#include "search_templates/genetic/host/json_reader.hpp"
#include "search_templates/genetic/host/logger.hpp"
#include "search_templates/genetic/host/no_signals.hpp"
#include "search_templates/genetic/host/operation_table.hpp"
#include "search_templates/genetic/host/pause.hpp"
#include "search_templates/genetic/host/pool_metrics.hpp"
#include "search_templates/genetic/host/pool_thresholds.hpp"
#include "search_templates/genetic/host/process_evaluation.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/host/random_graph_limits.hpp"
#include "search_templates/genetic/host/random_weighted.hpp"
#include "search_templates/genetic/host/reaction_planning.hpp"
#include "search_templates/genetic/host/replaceable_object.hpp"
#include "search_templates/genetic/host/runtime_readiness.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/host/search_settings.hpp"
#include "search_templates/genetic/host/secure_random.hpp"
#include "search_templates/genetic/host/submission_payloads.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {

class Host {
 public:
  Host() = default;
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  virtual ~Host() = default;

  // What every host has.
  [[nodiscard]] virtual ProcessEvaluation& process_evaluation() = 0;
  [[nodiscard]] virtual Eliteness& eliteness() = 0;
  [[nodiscard]] virtual GeneticOps& genetic_ops() = 0;
  [[nodiscard]] virtual RandomWeighted& random_weighted() = 0;
  [[nodiscard]] virtual GraphDepth& graph_depth() = 0;
  [[nodiscard]] virtual SecureRandom& secure_random() = 0;

  // What a host may leave out.
  [[nodiscard]] virtual SearchSettings& search_settings() { return default_settings_; }
  [[nodiscard]] virtual EvaluationVerdicts& evaluation_verdicts() { return default_verdicts_; }
  [[nodiscard]] virtual BacktestTimings& backtest_timings() { return any_timings_; }
  [[nodiscard]] virtual RandomGenerators& random_generators() { return twisters_; }
  [[nodiscard]] virtual Gates& gates() { return no_gates_; }
  [[nodiscard]] virtual PoolThresholds& pool_thresholds() { return no_pool_thresholds_; }
  [[nodiscard]] virtual PoolMetrics& pool_metrics() { return no_pool_metrics_; }
  [[nodiscard]] virtual SubmissionPayloads& submission_payloads() { return plain_payloads_; }
  [[nodiscard]] virtual RandomGraphLimits& random_graph_limits() { return no_rotations_; }
  [[nodiscard]] virtual ReactionPlanning& reaction_planning() { return no_reaction_planning_; }
  [[nodiscard]] virtual RuntimeReadiness& runtime_readiness() { return always_ready_; }
  [[nodiscard]] virtual JsonReader& json_reader() { return no_json_; }
  [[nodiscard]] virtual Logger& logger() { return no_log_; }
  [[nodiscard]] virtual Pause& pause() { return no_pause_; }
  [[nodiscard]] virtual AttemptMarkers& attempt_markers() { return no_markers_; }
  [[nodiscard]] virtual AttemptAccounting& attempt_accounting() { return no_accounts_; }
  // Null where the host does not want to know.
  [[nodiscard]] virtual GenerationObserver* generation_observer() { return nullptr; }
  // For what grows with every candidate and is used in the parent alone: a host that forks may give
  // memory that its children do not inherit. It must outlive the search.
  [[nodiscard]] virtual std::pmr::memory_resource& parent_memory() {
    return *std::pmr::new_delete_resource();
  }

  // Null for a host that leaves whole batches to the library, as most do. One whose language lets
  // the library's functions be replaced gives the function that stands there.
  [[nodiscard]] virtual BatchEvaluator* batch_evaluator() { return nullptr; }

  // The queues between parent and children. One whose evaluator announces no backtest has no use
  // for them.
  [[nodiscard]] virtual ProcessContexts& process_contexts() { return no_signals_; }

  // The engine as it stands now, for the guard that a child puts onto it: of all its operations the
  // one that marks attempts.
  [[nodiscard]] virtual std::shared_ptr<ReplaceableObject> engine_operations() {
    return no_operations_;
  }

 private:
  SearchSettings default_settings_;
  EvaluationVerdicts default_verdicts_;
  BacktestTimings any_timings_;
  TwisterGenerators twisters_;
  Gates no_gates_;
  PoolThresholds no_pool_thresholds_;
  NoPoolMetrics no_pool_metrics_;
  SubmissionPayloads plain_payloads_;
  RandomGraphLimits no_rotations_;
  NoReactionPlanning no_reaction_planning_;
  RuntimeReadiness always_ready_;
  JsonReader no_json_;
  AttemptMarkers no_markers_;
  AttemptAccounting no_accounts_;
  Logger no_log_;
  Pause no_pause_;
  NoSignals no_signals_;
  std::shared_ptr<ReplaceableObject> no_operations_ = std::make_shared<OperationTable>(Mapping());
};

}  // namespace varnholt::genetic
