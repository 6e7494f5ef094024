#include "apps/genetic_search/options.hpp"

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "apps/genetic_search/help_page.hpp"
#include "apps/genetic_search/option_values.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/backtest/statistics.hpp"
#include "hosts/embedded/search/embedded_host.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::app {
namespace {

constexpr std::int64_t kNoMost = std::numeric_limits<std::int64_t>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::int64_t kBytesPerMebibyte = 1024 * 1024;

constexpr const char* kHelpFlag = "-h,--help";
constexpr const char* kHelpText = "This text.";

constexpr const char* kDescription =
    "Searches daily prices for trading signals. A signal is an expression such as\n"
    "cross_rank(ts_delta(close, 5)); the search makes expressions, backtests each in\n"
    "a worker process, breeds from those that pass the gates, and stores every\n"
    "attempt in an SQLite file.";

constexpr const char* kFooter =
    "Begin with:\n"
    "  genetic-search check-prices prices.csv\n"
    "  genetic-search run --prices prices.csv --generations 10\n\n"
    "genetic-search run --help tells the options of a search.";

constexpr const char* kRunDescription =
    "Searches a price file for trading signals and stores every attempt. A run ends\n"
    "at the first limit that it reaches, or at Ctrl-C, which keeps all results; a\n"
    "second Ctrl-C ends it at once.";

constexpr const char* kRunFooter =
    "A price file is long, with the columns date,symbol,open,high,low,close,volume\n"
    "(date, symbol and close are needed), or wide, with date and one column of closes\n"
    "a symbol. Dates are written yyyy-mm-dd; an empty cell is a gap.\n\n"
    "Exit codes: 0 done, 1 failure, 2 bad usage or bad input (nothing was written),\n"
    "130 ended at once by a second Ctrl-C, 141 the reader of the output went away.";

constexpr const char* kCheckDescription =
    "Tells what a price file holds: instruments, dates, gaps, and jumps that look\n"
    "like a split or a wrong digit. The exit code is 0 whatever is found, and 2 for a\n"
    "file that cannot be read.";

// What an option's target holds when it holds something.
template <typename Target>
struct Held {
  using Type = Target;
};
template <typename Target>
struct Held<std::optional<Target>> {
  using Type = Target;
};

// The options of one command, each with its description wrapped for the help.
class Options {
 public:
  explicit Options(CLI::App& command) : command_(command) {}

  // Options from here on stand under this heading.
  void group(std::string heading) { group_ = std::move(heading); }

  void text(const std::string& name, const char* unit, const std::string& description,
            std::filesystem::path& target) {
    add(name, unit, description, [name, &target](const std::string& value) {
      if (value.empty()) throw UsageError(name + " wants the name of a file, not an empty text");
      target = value;
    });
  }

  void optional_text(const std::string& name, const char* unit, const std::string& description,
                     std::optional<std::filesystem::path>& target) {
    add(name, unit, description, [name, &target](const std::string& value) {
      if (value.empty()) throw UsageError(name + " wants the name of a file, not an empty text");
      target = value;
    });
  }

  // A setting of the search template, which reads and judges the text itself.
  void setting(const std::string& name, const char* unit, const std::string& description,
               std::optional<genetic::Value>& target) {
    add(name, unit, description, [&target](const std::string& value) { target = value; });
  }

  void rates(const std::string& name, const char* unit, const std::string& description,
             std::optional<genetic::Value>& target) {
    add(name, unit, description,
        [name, &target](const std::string& value) { target = rate_list(name, value); });
  }

  template <typename Target>
  void whole(const std::string& name, const char* unit, WholeRange range,
             const std::string& description, Target& target) {
    add(name, unit, description, [name, range, &target](const std::string& value) {
      target = static_cast<typename Held<Target>::Type>(whole_number(name, value, range));
    });
  }

  template <typename Target>
  void real(const std::string& name, const char* unit, RealRange range,
            const std::string& description, Target& target) {
    add(name, unit, description, [name, range, &target](const std::string& value) {
      target = real_number(name, value, range);
    });
  }

  void flag(const std::string& name, const std::string& description, bool& target) {
    command_.add_flag(name, target, wrapped(description))->group(group_)->disable_flag_override();
  }

 private:
  static std::string wrapped(const std::string& description) {
    std::string text;
    for (const std::string& line : wrap_text(description, kHelpWidth - kDescriptionColumn)) {
      text.append(text.empty() ? "" : "\n").append(line);
    }
    return text;
  }

  void add(const std::string& name, const char* unit, const std::string& description,
           const std::function<void(const std::string&)>& read) {
    command_.add_option_function<std::string>(name, read, wrapped(description))
        ->type_name(unit)
        ->group(group_)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  }

  CLI::App& command_;
  std::string group_;
};

constexpr WholeRange from(std::int64_t least, std::int64_t most = kNoMost) {
  return {least, most};
}

void add_breeding_options(Options& options, embedded::SearchOptions& search) {
  embedded::EmbeddedSettings defaults;
  options.setting(
      "--elite-fraction", "X",
      fmt::format("The share of the candidates that are parents, above 0 and at most 1. "
                  "Default: {}.",
                  genetic::str(defaults.default_elite_fraction())),
      search.elite_fraction);
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
                        "A JSON list of graphs, with which the first generation begins.",
                        search.seeds);
}

void add_search_options(Options& options, embedded::SearchOptions& search) {
  options.group("Data");
  options.text("--prices", "FILE", "Daily prices, as CSV (see below). Needed.", search.prices);
  options.text("--db", "FILE",
               fmt::format("The store: an SQLite file, made when it is not there, to which the "
                           "run is added. Default: {} in the current folder.",
                           kDefaultDatabase),
               search.database);

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
                            genetic::str(embedded::EmbeddedSettings().default_batch_size())),
                search.batch_size);
  options.whole("--seed", "N", from(0),
                "Repeats a run: the same seed, prices and settings give the same candidates. "
                "Default: drawn anew, and told.",
                search.seed);

  options.group("Breeding");
  add_breeding_options(options, search);

  options.group("Expressions");
  options.whole("--max-depth", "N", from(1, 100),
                fmt::format("Nodes on the longest way down an expression. Default: {}.",
                            search.graphs.max_depth),
                search.graphs.max_depth);
  options.whole("--max-nodes", "N", from(1, 10'000),
                fmt::format("Nodes of an expression: features, functions and windows. Default: {}.",
                            search.graphs.max_nodes),
                search.graphs.max_nodes);
  options.whole("--max-window", "DAYS", from(1, 100'000),
                fmt::format("The longest look back of a function, in trading days. Default: {}.",
                            search.graphs.max_window),
                search.graphs.max_window);
}

void add_judging_options(Options& options, embedded::SearchOptions& search) {
  embedded::GateThresholds& gates = search.gates;
  options.group("Backtest");
  options.real("--cost-bps", "BP", {0.0, embedded::kLargestCosts},
               fmt::format("Costs in basis points (1/10,000) of what is traded. Default: {}.",
                           search.cost_basis_points),
               search.cost_basis_points);

  options.group("Gates (what a signal needs to pass)");
  options.real("--min-sharpe", "X", {-kInfinity, kInfinity},
               fmt::format("Annualised Sharpe ratio after costs. Default: {}.", gates.min_sharpe),
               gates.min_sharpe);
  options.real("--min-gross-sharpe", "X", {-kInfinity, kInfinity},
               fmt::format("Annualised Sharpe ratio before costs. Default: {}.",
                           gates.min_gross_returns_sharpe),
               gates.min_gross_returns_sharpe);
  options.real("--max-turnover", "X", {0.0, kInfinity},
               fmt::format("Mean fraction of the capital traded a day; 2 turns the whole book "
                           "round. Default: {}.",
                           gates.max_turnover),
               gates.max_turnover);
  options.real("--max-weight", "X", {0.0, kInfinity},
               fmt::format("Largest weight of one instrument on any day; 1 is all of the capital. "
                           "Default: {}.",
                           gates.max_max_weight),
               gates.max_max_weight);
  options.real("--max-net-exposure", "X", {0.0, kInfinity},
               fmt::format("Mean absolute net exposure; 0 is market neutral, 1 all on one side. "
                           "Default: {}.",
                           gates.max_delta_exposure),
               gates.max_delta_exposure);
  options.real("--min-gross-exposure", "X", {0.0, kInfinity},
               fmt::format("Mean gross exposure; 1 is a position on every day. Default: {}.",
                           gates.min_abs_weight_sum_mean),
               gates.min_abs_weight_sum_mean);
}

void add_worker_options(Options& options, RunCommand& run, std::int64_t& memory_mebibytes) {
  options.group("Workers");
  options.whole("--jobs", "N", from(1, 4096), "Worker processes at once. Default: one a processor.",
                run.search.jobs);
  options.real(
      "--timeout", "S", {0.0, kInfinity, true},
      fmt::format("Seconds that one evaluation may take. Default: {}.", run.search.timeout_seconds),
      run.search.timeout_seconds);
  options.whole("--worker-memory", "MIB", from(1, 1 << 30),
                "Memory that one worker may use, in MiB. Default: no limit.", memory_mebibytes);

  options.group("Output");
  options.whole("--best", "N", from(0, 100'000),
                fmt::format("How many of the best signals are shown at the end. Default: {}.",
                            run.search.best_count),
                run.search.best_count);
  options.flag("--json", "One JSON object a line, for machines; the last is the metrics record.",
               run.json);
  options.flag("--quiet", "No progress: only warnings, errors and the end.", run.quiet);
}

// The parser with all that it writes into. It is built anew for each command line.
struct Parser {
  CLI::App app{kDescription, kProgramName};
  RunCommand run;
  CheckPricesCommand check;
  std::int64_t memory_mebibytes = 0;
  CLI::App* run_app = nullptr;
  CLI::App* check_app = nullptr;

  Parser() {
    run.search.database = kDefaultDatabase;
    app.formatter(std::make_shared<HelpPage>());
    app.footer(kFooter);
    app.set_help_flag(kHelpFlag, kHelpText);
    app.set_version_flag("--version", fmt::format("{} {}\n", kProgramName, VARNHOLT_VERSION),
                         "The program's version.");
    app.require_subcommand(0, 1);
    add_run();
    add_check();
  }

  void add_run() {
    run_app = app.add_subcommand(kRunName, "Searches a price file for trading signals.");
    run_app->footer(kRunFooter);
    run_app->set_help_flag();  // It is to stand behind the other options.
    Options options(*run_app);
    add_search_options(options, run.search);
    add_judging_options(options, run.search);
    add_worker_options(options, run, memory_mebibytes);
    run_app->set_help_flag(kHelpFlag, kHelpText)->group("Output");
  }

  void add_check() {
    check_app = app.add_subcommand(kCheckName, "Tells what a price file holds.");
    check_app->add_option("FILE", check.prices, "The price file, as CSV.");
    check_app->set_help_flag();
    check_app->footer("");
    Options options(*check_app);
    options.group("Options");
    options.whole("--list", "N", from(0, 1'000'000),
                  fmt::format("How many findings of each kind are listed; the rest are counted. "
                              "Default: {}.",
                              check.list_limit),
                  check.list_limit);
    check_app->set_help_flag(kHelpFlag, kHelpText)->group("Options");
  }

  // The page of the command that was asked about.
  [[nodiscard]] std::string help() {
    // The long description belongs on the command's own page, the short one on the program's.
    if (run_app->parsed()) run_app->description(kRunDescription);
    if (check_app->parsed()) check_app->description(kCheckDescription);
    return app.help();
  }
};

// Where a text about the command line ends: with the page that tells more.
std::string with_help_hint(const std::string& problem, const Parser& parser) {
  const CLI::App* command = parser.run_app->parsed()     ? parser.run_app
                            : parser.check_app->parsed() ? parser.check_app
                                                         : nullptr;
  return fmt::format("{}; see \"{}{}{} --help\"", problem, kProgramName,
                     command != nullptr ? " " : "", command != nullptr ? command->get_name() : "");
}

void parse(Parser& parser, const std::vector<std::string>& arguments) {
  // The parser takes its arguments from the back.
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  try {
    parser.app.parse(std::move(reversed));
  } catch (const CLI::Success&) {
    throw;
  } catch (const CLI::ExtrasError&) {
    const std::vector<std::string> strangers = parser.app.remaining(true);
    throw UsageError(with_help_hint(
        fmt::format("unknown argument \"{}\"",
                    on_one_line(strangers.empty() ? std::string() : strangers.front())),
        parser));
  } catch (const CLI::ParseError& error) {
    throw UsageError(with_help_hint(error.what(), parser));
  } catch (const UsageError& error) {
    throw UsageError(with_help_hint(error.what(), parser));
  }
}

RunCommand checked(Parser& parser) {
  RunCommand& run = parser.run;
  if (run.search.prices.empty()) {
    throw UsageError(with_help_hint(
        "no price file is given; name one with --prices FILE, a CSV with the columns "
        "date,symbol,close or with date and one column of closes a symbol",
        parser));
  }
  if (parser.memory_mebibytes > 0) {
    run.search.worker_memory_limit_bytes = parser.memory_mebibytes * kBytesPerMebibyte;
  }
  return run;
}

CheckPricesCommand checked_prices(const Parser& parser) {
  if (parser.check.prices.empty()) {
    throw UsageError(with_help_hint("no price file is given; name it after check-prices", parser));
  }
  return parser.check;
}

}  // namespace

Command parse_command_line(const std::vector<std::string>& arguments) {
  Parser parser;
  try {
    parse(parser, arguments);
  } catch (const CLI::CallForVersion& version) {
    return ShowText{version.what()};
  } catch (const CLI::Success&) {
    return ShowText{parser.help()};
  }
  if (parser.run_app->parsed()) return checked(parser);
  if (parser.check_app->parsed()) return checked_prices(parser);
  throw UsageError(
      with_help_hint("no command is given; there are \"run\" and \"check-prices\"", parser));
}

}  // namespace varnholt::app
