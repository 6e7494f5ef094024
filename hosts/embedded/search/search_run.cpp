#include "hosts/embedded/search/search_run.hpp"

#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

#include <fmt/format.h>
#include <sched.h>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/host/embedded_context.hpp"
#include "hosts/embedded/host/embedded_host.hpp"
#include "hosts/embedded/host/search_stop.hpp"
#include "hosts/embedded/host/signal_submission.hpp"
#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/run_recorder.hpp"
#include "hosts/embedded/search/seed_graphs.hpp"
#include "hosts/embedded/search/signal_report.hpp"
#include "hosts/embedded/signal_pool/pool_gates.hpp"
#include "hosts/embedded/store/run_store.hpp"
#include "hosts/embedded/system/memory_advice.hpp"
#include "search_templates/genetic/driver/genetic.hpp"

namespace varnholt::embedded {

using genetic::Value;

namespace {

// The terminal reasons of runs that did not come to a metrics record of their own.
constexpr const char* kFailed = "failed";

void require(bool holds, const std::string& what) {
  if (!holds) throw std::invalid_argument(what);
}

void check_options(const SearchOptions& options) {
  require(!options.jobs || *options.jobs >= 1, "the number of jobs must be at least 1");
  require(!options.generations || *options.generations >= 1,
          "the number of generations must be at least 1");
  require(!options.candidates || *options.candidates >= 1,
          "the number of candidates must be at least 1");
  require(!options.seconds || (std::isfinite(*options.seconds) && *options.seconds > 0.0),
          "the limit in seconds must be a finite number above 0");
  require(!options.seed ||
              *options.seed <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()),
          "the seed must be an integer from 0 to 9223372036854775807");
  require(!options.worker_memory_limit_bytes || *options.worker_memory_limit_bytes >= 1,
          "the memory limit of a worker must be at least 1 byte");
  require(options.best_count >= 0, "the number of best signals must not be negative");
  require(options.cost_basis_points >= 0.0 && options.cost_basis_points <= kLargestCosts,
          fmt::format("the costs must be from 0 to {} basis points", kLargestCosts));
  // A configuration that was not read from a file is checked by nobody else before the store.
  check_pool_thresholds({options.config.pool.novelty_min, options.config.pool.correlation_max});
  for (const Gate& gate : gate_table()) {
    require(!std::isnan(gate.threshold(options.config.gates, options.config.limits)),
            fmt::format("the threshold {} must be a number", gate.name.view()));
  }
}

// The processors that this process may run on.
int available_processors() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) != 0) return 1;
  return CPU_COUNT(&set);
}

genetic::GeneticTemplate configured_template(const genetic::Module& module,
                                             const SearchOptions& options,
                                             const Vocabulary& vocabulary) {
  genetic::TemplateArguments arguments = module.default_arguments();
  const auto set = [](Value& argument, const std::optional<Value>& option) {
    if (option) argument = *option;
  };
  set(arguments.batch_size, options.batch_size);
  set(arguments.restart_threshold, options.restart_threshold);
  set(arguments.elite_fraction, options.elite_fraction);
  set(arguments.diversity_weight, options.diversity_weight);
  set(arguments.parsimony_weight, options.parsimony_weight);
  set(arguments.operator_rates, options.operator_rates);
  set(arguments.max_improvement_candidates, options.max_improvement_candidates);
  set(arguments.max_improvement_rounds, options.max_improvement_rounds);
  set(arguments.max_improvement_depth, options.max_improvement_depth);
  if (options.seeds) {
    arguments.initial_candidates = read_seed_graphs(
        *options.seeds, vocabulary, {options.graphs.max_depth, options.graphs.max_nodes});
  }
  arguments.process_timeout_seconds = options.timeout_seconds;
  return module.with_config(arguments);
}

HostSettings host_settings(const SearchOptions& options, SearchObserver& observer) {
  HostSettings settings;
  settings.graphs = options.graphs;
  settings.gates = options.config.gates;
  settings.limits = options.config.limits;
  settings.timeout_seconds = options.timeout_seconds;
  settings.seed = options.seed;
  settings.log = [&observer](LogLevel level, std::string_view text) {
    observer.on_log(level, text);
  };
  return settings;
}

ContextSettings context_settings(const SearchOptions& options, const RunData& data,
                                 const PoolIdentity& pool, int jobs) {
  ContextSettings settings;
  settings.jobs = jobs;
  settings.max_depth = options.graphs.max_depth;
  settings.gates = options.config.gates;
  settings.limits = options.config.limits;
  settings.worker_memory_limit_bytes = options.worker_memory_limit_bytes;
  settings.pool = pool;
  settings.first_date = date_text(data.whole.dates.front());
  settings.last_date = date_text(data.plan.searched().last_date);
  return settings;
}

// Runs the search and closes the run in the store, whatever ends it.
void run_to_its_end(genetic::Module& module, EmbeddedContext& context,
                    genetic::SearchConfig& config, RunRecorder& recorder) {
  try {
    module.run(context, config);
  } catch (const InterruptedAtOnce&) {
    recorder.end(kInterrupted);
    throw;
  } catch (...) {
    recorder.end(kFailed);
    throw;
  }
  const Value& metrics = recorder.metrics();
  recorder.end(genetic::str(metrics.mapping().at(genetic::keys::kTerminalReason)));
}

}  // namespace

SearchSummary run_search(const SearchOptions& options, SearchObserver& observer,
                         const InterruptFlag& interrupt) {
  check_options(options);
  const int jobs = options.jobs.value_or(available_processors());
  EvaluatorOptions evaluator_options;
  evaluator_options.cost_basis_points = options.cost_basis_points;
  const RunData data(options);
  const Evaluator evaluator(data.whole.first_days(data.plan.seen_days()), evaluator_options);
  // What the children read is the evaluator's; the rest of the history waits for the end.
  keep_from_children(data.whole);
  give_back_free_memory();

  // The recorder needs the store, and the store must not be made before the settings are known to
  // be good: so the host reaches the recorder through this pointer.
  RunRecorder* recorder = nullptr;
  HostSettings settings = host_settings(options, observer);
  settings.on_tick = [&recorder](std::int64_t evaluated) { recorder->tick(evaluated); };
  std::function<void()> on_generation_end;
  settings.on_generation_end = [&on_generation_end] { on_generation_end(); };
  RealSystemCalls system;
  EmbeddedHost host(system, evaluator.vocabulary(), settings);
  genetic::Module module(host);
  genetic::GeneticTemplate config = configured_template(module, options, evaluator.vocabulary());

  const std::unique_ptr<RunStore> opened = open_run_store(options.database.string());
  RunStore& store = *opened;
  const PoolIdentity pool = pool_identity(options, data);
  RunRecorder run_recorder(store, observer, host.lineage(),
                           {options.best_count, options.config.gates, options.config.limits, pool});
  recorder = &run_recorder;
  SignalSubmission submission(store, evaluator, pool, options.config.pool);
  SearchSummary summary;
  summary.run_id = run_recorder.begin(run_start(options, data, config, jobs));
  host.embedded_engine().set_submission(submission, client_manifest(data, summary.run_id));
  observer.on_started(started_event(options, data, config, store, summary.run_id, jobs));

  const auto stop = std::make_shared<SearchStop>(
      StopLimits{options.generations, options.candidates, options.seconds}, interrupt);
  on_generation_end = [&run_recorder, &submission, &stop] {
    stop->count_generation();
    run_recorder.settled(submission.sync());
    run_recorder.generation_done();
  };
  run_recorder.set_clock([&stop] { return stop->elapsed_seconds(); });
  EmbeddedContext context(evaluator, context_settings(options, data, pool, jobs), stop,
                          run_recorder, submission, host.timings().recorded());
  host.pool().set_context(context);

  // What a run that died left in the queue is settled before anything is measured.
  run_recorder.settled(submission.sync());
  run_to_its_end(module, context, config, run_recorder);
  run_recorder.settled(submission.sync());
  summary.stop_cause = stop->cause();
  summary.progress = run_recorder.progress();
  summary.metrics = run_recorder.metrics();
  summary.best = run_recorder.best();
  const Evaluator whole(data.whole, evaluator_options);
  summary.submitted = report_submitted_signals(store, summary.run_id, whole, data.plan);
  summary.market = market_statistics(whole, data.plan);
  summary.submissions = run_recorder.submissions();
  return summary;
}

}  // namespace varnholt::embedded
