#include "apps/genetic_search/run_options.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

#include <fmt/format.h>

#include "apps/genetic_search/price_options.hpp"
#include "hosts/embedded/backtest/statistics.hpp"
#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/host/embedded_host.hpp"
#include "hosts/embedded/host/search_defaults.hpp"
#include "hosts/embedded/vocabulary/graph_shape.hpp"
#include "search_templates/genetic/settings/constants.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::app {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

void add_breeding_options(Options& options, embedded::SearchOptions& search) {
  embedded::SearchDefaults defaults;
  options.flag(
      "--as-written",
      "Judges expressions as they are written. Otherwise one backtest judges an expression "
      "and its opposite, and the one that earns is recorded.",
      search.is_as_written);
  options.setting(
      "--elite-fraction", "X",
      fmt::format("The share of the candidates that are parents, above 0 and at most 1. "
                  "The search takes it twice: of the candidates for parents, and of these, the "
                  "best first, for each offspring. Default: {}.",
                  genetic::str(defaults.default_elite_fraction())),
      search.elite_fraction);
  options.flag("--no-archive",
               "Breeds no fresh expressions from the best of each kind that was evaluated.",
               search.has_no_archive);
  options.flag("--no-known-formulas",
               "Offers no known formulas of the field, nor mutations of them, among the fresh "
               "expressions.",
               search.has_no_known_formulas);
  options.flag(
      "--no-simple-forms",
      "Offers no signals of one feature or two and one window among the fresh expressions.",
      search.has_no_simple_forms);
  options.setting("--diversity-weight", "X",
                  fmt::format("What a parent's score loses for repeating another. Default: {}.",
                              genetic::str(defaults.default_diversity_weight())),
                  search.diversity_weight);
  options.setting("--parsimony-weight", "X",
                  fmt::format("What a score loses for each node of its expression. Default: {}.",
                              genetic::str(defaults.default_parsimony_weight())),
                  search.parsimony_weight);
  options.whole("--restart-threshold", "N", from(1),
                fmt::format("Generations without a better score before a restart. Default: {}.",
                            genetic::str(defaults.default_restart_threshold())),
                search.restart_threshold);
  options.rates(
      "--operator-rates", "NAME=X,...",
      "Rates of crossover, point_mutation, subtree_mutation and hoist_mutation; those left "
      "out keep their default.",
      search.operator_rates);
  options.optional_text("--seeds", "FILE",
                        "Formulas, one a line, or a JSON list of graphs, with which the first "
                        "generation begins.",
                        search.seeds);
}

void add_repair_options(Options& options, embedded::SearchOptions& search) {
  options.whole("--repairs", "N", from(0),
                fmt::format("Repairs of near misses that a generation tries; 0 for none. Default: "
                            "one for {} candidates of a batch.",
                            embedded::kCandidatesARepair),
                search.max_improvement_candidates);
  options.whole("--repair-rounds", "N", from(0),
                fmt::format("Rounds in which they are tried, each repairing what the one before "
                            "left. Default: {}.",
                            genetic::DEFAULT_MAX_IMPROVEMENT_ROUNDS),
                search.max_improvement_rounds);
  options.whole("--repair-depth", "N", from(0),
                fmt::format("Repairs that may follow one another in a lineage. Default: {}.",
                            genetic::DEFAULT_MAX_IMPROVEMENT_DEPTH),
                search.max_improvement_depth);
}

void add_search_options(Options& options, embedded::SearchOptions& search,
                        ConfigOverrides& overrides) {
  options.group("Data");
  options.prices(
      "Daily prices, as CSV (see below): a file, several files, or a folder of them. Needed.",
      Options::Following::IsPrices, search.prices);
  add_price_options(options, search.price_format);
  options.text("--db", "FILE",
               fmt::format("The store: an SQLite file, made when it is not there, to which the "
                           "run is added. Default: {} in the current folder.",
                           kDefaultDatabase),
               search.database);

  options.flag("--continue",
               "Goes on with what the store holds: what was evaluated on these days, by these "
               "rules and gates and for this pool is not evaluated again, and the best of it "
               "begins the search.",
               search.continues);

  options.group("When the run ends (without a limit: at Ctrl-C)");
  options.whole("--generations", "N", from(1), "After N generations.", search.generations);
  options.whole("--candidates", "N", from(1),
                "After N evaluated candidates; the batch under way is completed.",
                search.candidates);
  options.real("--seconds", "S", {0.0, kInfinity, true},
               "After S seconds; evaluations under way are given up.", search.seconds);

  options.group("Search");
  options.whole("--batch-size", "N", from(1, 1'000'000),
                fmt::format("Candidates a generation. Default: {}.",
                            genetic::str(embedded::SearchDefaults().default_batch_size())),
                search.batch_size);
  options.whole("--seed", "N", from(0),
                "Repeats a run: the same seed, prices and settings give the same candidates. "
                "Default: drawn anew, and told.",
                search.seed);

  options.group("Breeding");
  add_breeding_options(options, search);

  options.group("Repairs");
  add_repair_options(options, search);

  options.group("Expressions");
  const embedded::GraphLimits largest;  // What an evaluator takes.
  options.whole("--max-depth", "N", from(1, largest.max_depth),
                fmt::format("Nodes on the longest way down an expression. Default: {}.",
                            search.graphs.max_depth),
                search.graphs.max_depth);
  options.whole("--max-nodes", "N", from(1, static_cast<std::int64_t>(largest.max_nodes)),
                fmt::format("Nodes of an expression: features, functions and windows. Default: {}.",
                            search.graphs.max_nodes),
                search.graphs.max_nodes);
  options.whole("--max-window", "DAYS", from(1, 100'000),
                fmt::format("The longest look back of a function, in trading days. Default: {}.",
                            search.graphs.max_window),
                search.graphs.max_window);
  options.on_or_off("--units",
                    "Whether fresh expressions and children add and compare only what is of one "
                    "unit: prices with prices, returns with returns. Default: on.",
                    overrides.units);
}

std::string pool_name_refusal(const std::string& name) {
  // The rule of the configuration's key.
  constexpr std::size_t kLongest = 100;
  const auto is_printable = [](char character) { return character >= 0x20 && character < 0x7f; };
  const bool is_good = !name.empty() && name.size() <= kLongest &&
                       std::all_of(name.begin(), name.end(), is_printable);
  return is_good ? std::string() : "wants 1 to 100 printable ASCII characters, such as signals";
}

void add_config_options(Options& options, std::optional<std::filesystem::path>& file,
                        ConfigOverrides& overrides) {
  const embedded::HostConfig defaults;
  options.group("Configuration");
  options.optional_text(
      "--config", "FILE",
      "A TOML file with gates, limits, signal pool, eras, market and vocabulary. The gates below, "
      "--era, --pool and --holdout-from override what it says.",
      file);
  options.whole("--era", "N", from(1, embedded::kLargestEraCount),
                "The era that is searched: the search sees the days up to its end. Default: the "
                "last before the hold-out.",
                overrides.era);
  options.checked_text(
      "--pool", "NAME",
      fmt::format("The signal pool that signals are compared with and submitted to. "
                  "Default: {}.",
                  defaults.pool.name),
      pool_name_refusal, overrides.pool_name);
  options.date("--holdout-from",
               "The first day of the hold-out, which no search on the pool ever sees. The pool "
               "keeps that of its first run. Default: a quarter of the days of that.",
               overrides.holdout_from);
}

void add_judging_options(Options& options, embedded::SearchOptions& search,
                         ConfigOverrides& overrides) {
  options.group("Backtest");
  options.real("--cost-bps", "BP", {0.0, embedded::kLargestCosts},
               fmt::format("Costs in basis points (1/10,000) of what is traded. Default: {}.",
                           search.cost_basis_points),
               search.cost_basis_points);
  options.whole(
      "--delay", "N", {0, embedded::kLongestDelayDays},
      fmt::format("Days from a signal to its trade; 0 trades at the close that the signal "
                  "is made of. Default: {}.",
                  search.delay_days),
      search.delay_days);
  options.real("--delisting-return", "X",
               {embedded::kLeastDelistingReturn, embedded::kLargestDelistingReturn},
               fmt::format("What a position earns on the last price of an instrument that has no "
                           "prices any more: -1 loses all of it. Default: {}, the last price.",
                           search.delisting_return),
               search.delisting_return);
  options.real("--min-known", "X", {0.0, 1.0, true},
               fmt::format("The share of a window's days that must be known, today included; 1 is "
                           "all of them. Default: {}.",
                           search.least_known_share),
               search.least_known_share);
  options.text("--neutralize", "none|market|GROUP",
               fmt::format("What is taken out of the weights of a day before they are scaled: "
                           "nothing, the mean of the market, or that of each group, such as "
                           "sector. Default: market from {} instruments on, else none.",
                           embedded::kLeastNeutralInstruments),
               search.neutralize);
  options.real("--periods-per-year", "N", {0.0, embedded::kMostPeriodsPerYear, true},
               "Days of prices in a year, by which figures become annual ones. Default: as the "
               "dates tell (252, 365, 52, 12, 4, ...).",
               search.periods_per_year);

  options.group("Gates (what a signal needs to pass; defaults where --config says nothing)");
  for (const embedded::Gate* const gate : embedded::gates_as_told(false)) {
    options.real(std::string(gate->option), "X", {gate->low, kInfinity},
                 fmt::format("{} Default: {}.", gate->help, gate->default_text()),
                 overrides.thresholds[gate->option]);
  }
}

void add_worker_options(Options& options, RunCommand& run) {
  options.group("Workers");
  options.whole("--jobs", "N", from(1, 4096), "Worker processes at once. Default: one a processor.",
                run.search.jobs);
  using embedded::Isolation;
  const auto word = [](Isolation isolation) { return std::string(to_text(isolation)); };
  options.either("--isolation", {word(Isolation::Candidate), word(Isolation::Chunk)},
                 fmt::format("Whether each evaluation has a process of its own, or {} share one, "
                             "which costs less. The results are the same. Default: {}.",
                             embedded::kChunkCandidates, to_text(run.search.isolation)),
                 [&run](bool is_first) {
                   run.search.isolation = is_first ? Isolation::Candidate : Isolation::Chunk;
                 });
  options.real(
      "--timeout", "S", {0.0, kInfinity, true},
      fmt::format("Seconds that one evaluation may take. Default: {}.", run.search.timeout_seconds),
      run.search.timeout_seconds);
  options.whole("--worker-memory", "MIB", from(1, 1 << 30),
                "Memory that one worker may use, in MiB. Default: no limit.",
                run.worker_memory_mebibytes);
  options.whole("--nice", "N", {-20, 19},
                "Nice value of the workers: 19 gives way to all other programs. Default: that of "
                "the search.",
                run.search.worker_nice);

  options.group("Output");
  options.whole("--best", "N", from(0, 100'000),
                fmt::format("How many of the best signals are shown at the end. Default: {}.",
                            run.search.best_count),
                run.search.best_count);
  options.flag("--json", "One JSON object a line, for machines; the last is the metrics record.",
               run.json);
  options.flag("--quiet", "No progress: only warnings, errors and the end.", run.quiet);
}

}  // namespace

void add_run_options(Options& options, RunCommand& run) {
  add_search_options(options, run.search, run.overrides);
  add_config_options(options, run.config_file, run.overrides);
  add_judging_options(options, run.search, run.overrides);
  add_worker_options(options, run);
}

void add_eval_options(Options& options, EvalCommand& eval) {
  options.group("Data");
  options.positional("FORMULA", eval.formulas);
  add_needed_prices(options, eval.search.prices);
  add_price_options(options, eval.search.price_format);
  options.optional_text("--file", "FILE",
                        "Formulas, one a line, beside those of the command line; - is standard "
                        "input.",
                        eval.file);
  options.optional_text("--db", "FILE",
                        "A store: the formulas are compared with the signals of its pool. It is "
                        "not changed.",
                        eval.database);
  add_config_options(options, eval.config_file, eval.overrides);
  add_judging_options(options, eval.search, eval.overrides);
  options.group("Output");
  options.optional_text("--values", "FILE",
                        "Where what the formulas give on every day is written, as CSV.",
                        eval.values);
  options.optional_text("--weights", "FILE", "Where the weights of every day are written, as CSV.",
                        eval.weights);
  options.flag("--force", "Replaces these files when they are there.", eval.force);
  options.flag("--json", "One JSON object a formula on a line of its own, for machines.",
               eval.json);
}

}  // namespace varnholt::app
