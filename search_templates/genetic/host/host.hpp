// Everything that the search asks of its host, in one bundle.
//
// Each module of the host is an abstract class of its own; a host derives from them and answers
// for itself. All calls come from the one thread of the search, in the parent process unless the
// class says otherwise. The bundle and what it gives must outlive every use of the library.
#pragma once

#include "search_templates/genetic/host/attempt_accounting.hpp"
#include "search_templates/genetic/host/attempt_markers.hpp"
#include "search_templates/genetic/host/backtest_timings.hpp"
#include "search_templates/genetic/host/eliteness.hpp"
#include "search_templates/genetic/host/engine.hpp"
#include "search_templates/genetic/host/evaluation_verdicts.hpp"
#include "search_templates/genetic/host/genetic_ops.hpp"
#include "search_templates/genetic/host/json_reader.hpp"
#include "search_templates/genetic/host/message_queue.hpp"
#include "search_templates/genetic/host/pause.hpp"
#include "search_templates/genetic/host/process_evaluation.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/host/random_weighted.hpp"
#include "search_templates/genetic/host/reaction_planning.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/host/search_settings.hpp"
#include "search_templates/genetic/host/secure_random.hpp"

namespace varnholt::genetic {

class Host {
 public:
  virtual ~Host() = default;

  [[nodiscard]] virtual Engine& engine() = 0;
  [[nodiscard]] virtual ProcessEvaluation& process_evaluation() = 0;
  [[nodiscard]] virtual Eliteness& eliteness() = 0;
  [[nodiscard]] virtual GeneticOps& genetic_ops() = 0;
  [[nodiscard]] virtual RandomWeighted& random_weighted() = 0;
  [[nodiscard]] virtual SearchSettings& search_settings() = 0;
  [[nodiscard]] virtual EvaluationVerdicts& evaluation_verdicts() = 0;
  [[nodiscard]] virtual BacktestTimings& backtest_timings() = 0;
  [[nodiscard]] virtual JsonReader& json_reader() = 0;
  [[nodiscard]] virtual RandomGenerators& random_generators() = 0;
  [[nodiscard]] virtual SecureRandom& secure_random() = 0;
  [[nodiscard]] virtual Pause& pause() = 0;

  // A host without a planner of its own has no plans.
  [[nodiscard]] virtual ReactionPlanning& reaction_planning() { return no_reaction_planning_; }

  // What the ledger of attempts asks for. A host that keeps no attempts may leave these out: asking
  // it for one is a RuntimeError that names the method.
  [[nodiscard]] virtual AttemptMarkers& attempt_markers();
  [[nodiscard]] virtual AttemptAccounting& attempt_accounting();
  [[nodiscard]] virtual ProcessContexts& process_contexts();

 private:
  NoReactionPlanning no_reaction_planning_;
};

}  // namespace varnholt::genetic
