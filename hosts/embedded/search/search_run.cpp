#include "hosts/embedded/search/search_run.hpp"

#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

#include <sched.h>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/digest/digest.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/search/embedded_context.hpp"
#include "hosts/embedded/search/embedded_host.hpp"
#include "hosts/embedded/search/run_recorder.hpp"
#include "hosts/embedded/search/search_stop.hpp"
#include "hosts/embedded/search/seed_graphs.hpp"
#include "hosts/embedded/store/run_store.hpp"
#include "search_templates/genetic/driver/genetic.hpp"
#include "search_templates/genetic/value/json_text.hpp"

namespace varnholt::embedded {

using genetic::Mapping;
using genetic::Value;

namespace {

constexpr const char* kHostVersion = "0.1.0";

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
}

// The processors that this process may run on.
int available_processors() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) != 0) return 1;
  return CPU_COUNT(&set);
}

Value optional_value(const auto& value) {
  return value ? Value(*value) : Value();
}

// What makes a run repeatable, beside its prices.
std::string settings_json(const SearchOptions& options, const genetic::SearchConfig& config,
                          int jobs) {
  const GateThresholds& gates = options.gates;
  return genetic::json_text(
      Mapping{{"batch_size", config.batch_size()},
              {"jobs", jobs},
              {"generations", optional_value(options.generations)},
              {"candidates", optional_value(options.candidates)},
              {"seconds", optional_value(options.seconds)},
              {"max_depth", options.graphs.max_depth},
              {"max_nodes", static_cast<std::int64_t>(options.graphs.max_nodes)},
              {"max_window", options.graphs.max_window},
              {"leaf_share", options.graphs.leaf_share},
              {"cost_basis_points", options.cost_basis_points},
              {"timeout_seconds", options.timeout_seconds},
              {"worker_memory_limit_bytes", optional_value(options.worker_memory_limit_bytes)},
              {"gates", Mapping{{"min_abs_weight_sum_mean", gates.min_abs_weight_sum_mean},
                                {"max_turnover", gates.max_turnover},
                                {"max_max_weight", gates.max_max_weight},
                                {"max_delta_exposure", gates.max_delta_exposure},
                                {"min_gross_returns_sharpe", gates.min_gross_returns_sharpe},
                                {"min_sharpe", gates.min_sharpe}}}});
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
  if (options.seeds) {
    arguments.initial_candidates = read_seed_graphs(
        *options.seeds, vocabulary, {options.graphs.max_depth, options.graphs.max_nodes});
  }
  arguments.process_timeout_seconds = options.timeout_seconds;
  return module.with_config(arguments);
}

SearchStarted started_event(const SearchOptions& options, const MarketData& data,
                            const genetic::SearchConfig& config, const RunStore& store,
                            std::int64_t run_id, int jobs) {
  SearchStarted started;
  started.run_id = run_id;
  started.prices = options.prices;
  started.database = store.path();
  started.instruments = data.instrument_count();
  started.days = data.day_count();
  started.first_date = date_text(data.dates.front());
  started.last_date = date_text(data.dates.back());
  started.jobs = jobs;
  started.batch_size = genetic::saturated_integer(config.batch_size());
  started.seed = genetic::saturated_integer(config.seed());
  return started;
}

RunStart run_start(const SearchOptions& options, const genetic::SearchConfig& config, int jobs) {
  RunStart start;
  start.started_at =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  start.seed = genetic::saturated_integer(config.seed());
  start.settings_json = settings_json(options, config, jobs);
  start.price_file = options.prices.filename().string();
  start.price_digest = file_sha256_hex(options.prices);
  start.host_version = kHostVersion;
  return start;
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
  const Evaluator evaluator(read_price_file(options.prices), evaluator_options);

  // The recorder needs the store, and the store must not be made before the settings are known to
  // be good: so the host reaches the recorder through this pointer.
  RunRecorder* recorder = nullptr;
  HostSettings settings;
  settings.graphs = options.graphs;
  settings.timeout_seconds = options.timeout_seconds;
  settings.seed = options.seed;
  settings.log = [&observer](LogLevel level, std::string_view text) {
    observer.on_log(level, text);
  };
  settings.on_tick = [&recorder](std::int64_t evaluated) { recorder->tick(evaluated); };
  RealSystemCalls system;
  EmbeddedHost host(system, evaluator.vocabulary(), settings);
  genetic::Module module(host);
  genetic::GeneticTemplate config = configured_template(module, options, evaluator.vocabulary());

  RunStore store(options.database.string());
  RunRecorder run_recorder(store, observer, host.lineage(), options.best_count);
  recorder = &run_recorder;
  SearchSummary summary;
  summary.run_id = run_recorder.begin(run_start(options, config, jobs));
  observer.on_started(
      started_event(options, evaluator.data(), config, store, summary.run_id, jobs));

  const auto stop = std::make_shared<SearchStop>(
      StopLimits{options.generations, options.candidates, options.seconds}, interrupt,
      [&run_recorder] { run_recorder.generation_done(); });
  run_recorder.set_clock([&stop] { return stop->elapsed_seconds(); });
  ContextSettings context_settings;
  context_settings.jobs = jobs;
  context_settings.max_depth = options.graphs.max_depth;
  context_settings.gates = options.gates;
  context_settings.worker_memory_limit_bytes = options.worker_memory_limit_bytes;
  EmbeddedContext context(evaluator, context_settings, stop, run_recorder);
  host.pool().set_context(context);

  run_to_its_end(module, context, config, run_recorder);
  summary.stop_cause = stop->cause();
  summary.progress = run_recorder.progress();
  summary.metrics = run_recorder.metrics();
  summary.best = run_recorder.best();
  return summary;
}

}  // namespace varnholt::embedded
