#include "hosts/embedded/search/search_setup.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/search_defaults.hpp"
#include "hosts/embedded/host/system_random.hpp"
#include "hosts/embedded/search/seed_graphs.hpp"
#include "hosts/embedded/signal_pool/pool_gates.hpp"
#include "hosts/embedded/store/store_reader.hpp"
#include "hosts/embedded/system/machine_limits.hpp"
#include "hosts/embedded/system/memory_advice.hpp"
#include "search_templates/genetic/settings/module_constants.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::embedded {

using genetic::Value;

namespace {

void require(bool holds, const std::string& what) {
  if (!holds) throw std::invalid_argument(what);
}

const SearchOptions& checked(const SearchOptions& options) {
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
  require(!options.worker_nice || (*options.worker_nice >= -20 && *options.worker_nice <= 19),
          "the nice value of the workers must be from -20 to 19");
  require(options.best_count >= 0, "the number of best signals must not be negative");
  BookRules book{options.cost_basis_points, options.delay_days, options.delisting_return,
                 options.least_known_share};
  book.periods_per_year = options.periods_per_year.value_or(book.periods_per_year);
  book.neutralize = options.neutralize.value_or(book.neutralize);
  check_book_rules(book);
  // A configuration that was not read from a file is checked by nobody else before the store.
  check_pool_thresholds(options.config.pool.thresholds());
  for (const Gate& gate : gate_table()) {
    require(!std::isnan(gate.threshold(options.config.gates, options.config.limits)),
            fmt::format("the threshold {} must be a number", gate.name.view()));
  }
  return options;
}

// The hold-out that the run's pool keeps, if there is such a pool yet.
std::optional<Date> kept_holdout(const SearchOptions& options) {
  PoolIdentity pool;
  pool.signal_pool_name = options.config.pool.name;
  pool.market_id = options.config.market_id;
  const std::optional<std::string> kept = stored_holdout_from(options.database, pool);
  if (!kept) return std::nullopt;
  const std::optional<Date> day = parse_date(*kept);
  require(day.has_value(),
          fmt::format("{}: the signal pool \"{}\" keeps a hold-out from \"{}\", which is no day; "
                      "the file is damaged: name another one, or another pool",
                      options.database.string(), options.config.pool.name, *kept));
  return day;
}

// The graphs of the file as the host makes graphs.
genetic::List finished_graphs(const genetic::List& graphs, const GraphMaking& making) {
  genetic::List finished(graphs.size());
  for (std::size_t i = 0; i < graphs.size(); ++i)
    finished.append(making.finished(graphs.at(i)));
  return finished;
}

bool is_within(const GraphLimits& limits, const Value& graph, const Vocabulary& vocabulary) {
  try {
    static_cast<void>(check_graph(graph, vocabulary, limits));
    return true;
  } catch (const GraphError&) {
    return false;
  }
}

// The candidates of a batch; 0 for what the template will refuse.
std::int64_t batch_size_of(const SearchOptions& options) {
  const Value asked = options.batch_size.value_or(SearchDefaults().default_batch_size());
  const std::optional<Value> batch = genetic::tolerant_integer(asked);
  return batch ? genetic::saturated_integer(*batch) : 0;
}

SearchBeginning beginning_of(const SearchOptions& options, const RunData& data,
                             const Vocabulary& vocabulary, const InterruptCheck& check) {
  const GraphLimits limits{options.graphs.max_depth, options.graphs.max_nodes,
                           options.graphs.max_window};
  const GraphMaking making(vocabulary, making_options(options, data.book));
  SearchBeginning beginning;
  if (options.seeds) {
    beginning.seeds =
        finished_graphs(read_seed_graphs(*options.seeds, vocabulary, limits, check), making);
  }
  if (!options.continues) return beginning;
  const std::int64_t room = batch_size_of(options);
  EarlierSearch earlier = stored_search(options.database, data.evaluation_key, room);
  beginning.structures = std::move(earlier.structures);
  for (const std::string& text : earlier.best_graphs) {
    const std::int64_t taken =
        beginning.seeds ? static_cast<std::int64_t>(beginning.seeds->size()) : 0;
    if (taken >= room) break;
    // What was recorded may have the sign of the opposite; what was tried has none.
    const Value graph = making.finished(read_json(text));
    if (!is_within(limits, graph, vocabulary)) continue;  // It was found within other limits.
    if (!beginning.seeds) beginning.seeds.emplace();
    beginning.seeds->append(graph);
    ++beginning.earlier_signals;
  }
  return beginning;
}

genetic::GeneticTemplate configured_template(genetic::RandomGenerators& generators,
                                             genetic::ProcessEvaluation& process_evaluation,
                                             const SearchOptions& options,
                                             const std::optional<genetic::List>& seeds) {
  SearchDefaults settings;
  const genetic::LoadedConstants constants(settings, process_evaluation);
  genetic::TemplateArguments arguments =
      genetic::default_template_arguments(constants, process_evaluation);
  const auto set = [](Value& argument, const std::optional<Value>& option) {
    if (option) argument = *option;
  };
  set(arguments.batch_size, options.batch_size);
  set(arguments.restart_threshold, options.restart_threshold);
  set(arguments.elite_fraction, options.elite_fraction);
  set(arguments.diversity_weight, options.diversity_weight);
  set(arguments.parsimony_weight, options.parsimony_weight);
  set(arguments.operator_rates, options.operator_rates);
  const std::int64_t batch = std::max<std::int64_t>(batch_size_of(options), 0);
  arguments.max_improvement_candidates = (batch + kCandidatesARepair - 1) / kCandidatesARepair;
  set(arguments.max_improvement_candidates, options.max_improvement_candidates);
  set(arguments.max_improvement_rounds, options.max_improvement_rounds);
  set(arguments.max_improvement_depth, options.max_improvement_depth);
  if (seeds) arguments.initial_candidates = *seeds;
  arguments.process_timeout_seconds = options.timeout_seconds;
  SystemRandom secure_random(options.seed);
  return {generators, secure_random, constants, arguments};
}

}  // namespace

GraphMakingOptions making_options(const SearchOptions& options, const BookRules& book) {
  GraphMakingOptions making;
  making.simplifies = options.config.vocabulary.simplify;
  making.keeps_units = options.config.vocabulary.units;
  making.canonical = {options.graphs.max_window, book.least_known_share};
  making.drops_sign = !options.is_as_written;
  return making;
}

SearchSetup::SearchSetup(const SearchOptions& options, const InterruptCheck& check)
    : jobs_(checked(options).jobs.value_or(read_machine_limits().busy_workers())),
      data_(options, check, kept_holdout(options)),
      evaluator_options_{.book = data_.book,
                         .vocabulary = options.config.vocabulary,
                         .judges_both_signs = !options.is_as_written},
      evaluator_(data_.whole.first_days(data_.plan.seen_days()), evaluator_options_),
      process_(system_, options.timeout_seconds, options.isolation),
      beginning_(beginning_of(options, data_, evaluator_.vocabulary(), check)),
      known_(beginning_.structures),
      config_(configured_template(generators_, process_.pool, options, beginning_.seeds)) {
  process_.panel_bytes = static_cast<std::size_t>(evaluator_.close().size()) * sizeof(double);
  // What the children read is the evaluator's; the rest of the history waits for the end.
  keep_from_children(data_.whole);
  give_back_free_memory();
}

SearchSetup::~SearchSetup() {
  give_to_children(data_.whole);
}

Evaluator SearchSetup::take_whole_history() {
  give_to_children(data_.whole);
  return Evaluator(std::move(data_.whole), evaluator_options_);
}

}  // namespace varnholt::embedded
