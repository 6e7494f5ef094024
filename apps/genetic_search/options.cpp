#include "apps/genetic_search/options.hpp"

#include <cstdint>
#include <memory>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "apps/genetic_search/help_page.hpp"
#include "apps/genetic_search/option_set.hpp"
#include "apps/genetic_search/run_options.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "apps/genetic_search/usage_error.hpp"

namespace varnholt::app {
namespace {

constexpr std::int64_t kBytesPerMebibyte = 1024 * 1024;

constexpr const char* kHelpFlag = "-h,--help";
constexpr const char* kHelpText = "This text.";
constexpr const char* kOptionsGroup = "Options";

constexpr const char* kDescription =
    "Searches daily prices for trading signals. A signal is an expression such as\n"
    "cross_rank(ts_delta(close, 5)); the search makes expressions, backtests each in\n"
    "a worker process, breeds from those that pass the gates, stores every attempt in\n"
    "an SQLite file, and submits what is new to a pool of signals.";

constexpr const char* kFooter =
    "Begin with:\n"
    "  genetic-search check-prices prices.csv\n"
    "  genetic-search run --prices prices.csv --generations 10\n\n"
    "Then look into the store, genetic-search.db:\n"
    "  genetic-search signals genetic-search.db\n"
    "  genetic-search show genetic-search.db 1-17\n"
    "  genetic-search export genetic-search.db 1-17 --weights weights.csv\n\n"
    "genetic-search COMMAND --help tells the options of a command.";

constexpr const char* kRunDescription =
    "Searches a price file for trading signals and stores every attempt. The last\n"
    "days are held out: the search never sees them. Signals that are unlike those of\n"
    "the pool are submitted to it, and told at the end with their Sharpe ratios in\n"
    "sample and on the hold-out. A run ends at the first limit that it reaches, or at\n"
    "Ctrl-C, which keeps all results; a second Ctrl-C ends it at once.";

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

constexpr const char* kSignalsDescription =
    "Lists the signals that the runs in a store submitted, in the order of\n"
    "submission, with their Sharpe ratios in sample and on the hold-out. The store is\n"
    "not changed. Exit codes: 0 done, also when there is none, 2 for a file that is\n"
    "no store and for a run that is not in it.";

constexpr const char* kShowDescription =
    "Tells all that is stored of one evaluation: expression, run, submission,\n"
    "statistics, failures, lineage and graph. An id such as 3-17 is candidate 17 of\n"
    "run 3. The store is not changed. Exit codes: 0 done, 2 for a file that is no\n"
    "store and for an id that is not in it.";

constexpr const char* kExportDescription =
    "Writes the weights of one signal on every day of the price history, the hold-out\n"
    "among them: a CSV file with the columns date,SYMBOL,... and all digits. The\n"
    "store is not changed.";

constexpr const char* kExportFooter =
    "The weights of a day are taken at its close, and earn the return to the next.\n"
    "A price file that is not, byte for byte, the one of the run is refused.\n\n"
    "Exit codes: 0 done, 1 the file could not be written, 2 bad usage or bad input.\n"
    "After 1 and 2 nothing was written.";

// The parser with all that it writes into. It is built anew for each command line.
struct Parser {
  CLI::App app{kDescription, kProgramName};
  RunCommand run;
  CheckPricesCommand check;
  SignalsCommand signals;
  ShowCommand show;
  ExportCommand exported;
  CLI::App* run_app = nullptr;
  CLI::App* check_app = nullptr;
  CLI::App* signals_app = nullptr;
  CLI::App* show_app = nullptr;
  CLI::App* export_app = nullptr;

  Parser() {
    run.search.database = kDefaultDatabase;
    run.search.best_count = kDefaultBestCount;
    app.formatter(std::make_shared<HelpPage>());
    app.footer(kFooter);
    app.set_help_flag(kHelpFlag, kHelpText);
    app.set_version_flag("--version", fmt::format("{} {}\n", kProgramName, VARNHOLT_VERSION),
                         "The program's version.");
    app.require_subcommand(0, 1);
    add_run();
    add_check();
    add_signals();
    add_show();
    add_export();
  }

  // A command without options yet; its help flag is to stand behind them.
  CLI::App* add_command(const char* name, const char* description, const char* footer) {
    CLI::App* const command = app.add_subcommand(name, description);
    command->footer(footer);
    command->set_help_flag();
    return command;
  }

  void add_run() {
    run_app = add_command(kRunName, "Searches a price file for trading signals.", kRunFooter);
    Options options(*run_app);
    add_run_options(options, run);
    run_app->set_help_flag(kHelpFlag, kHelpText)->group("Output");
  }

  void add_check() {
    check_app = add_command(kCheckName, "Tells what a price file holds.", "");
    Options options(*check_app);
    options.group(kOptionsGroup);
    options.positional("FILE", check.prices);
    options.whole("--list", "N", from(0, 1'000'000),
                  fmt::format("How many findings of each kind are listed; the rest are counted. "
                              "Default: {}.",
                              check.list_limit),
                  check.list_limit);
    check_app->set_help_flag(kHelpFlag, kHelpText)->group(kOptionsGroup);
  }

  void add_signals() {
    signals_app = add_command(kSignalsName, "Lists the signals that runs submitted.", "");
    Options options(*signals_app);
    options.group(kOptionsGroup);
    options.positional("DB", signals.database);
    options.whole("--run", "N", from(1), "Only those of run N.", signals.run);
    options.text("--pool", "NAME", "Only those of the pool NAME.", signals.pool);
    options.flag("--all", "Refused and waiting ones too.", signals.all);
    options.flag("--json", "One JSON object a line, for machines.", signals.json);
    signals_app->set_help_flag(kHelpFlag, kHelpText)->group(kOptionsGroup);
  }

  void add_show() {
    show_app = add_command(kShowName, "Tells all that is stored of one evaluation.", "");
    Options options(*show_app);
    options.group(kOptionsGroup);
    options.positional("DB", show.database);
    options.positional("ID", show.eval_id);
    options.flag("--json", "One JSON object on one line, for machines.", show.json);
    show_app->set_help_flag(kHelpFlag, kHelpText)->group(kOptionsGroup);
  }

  void add_export() {
    export_app = add_command(kExportName, "Writes the daily weights of one signal.", kExportFooter);
    Options options(*export_app);
    options.group(kOptionsGroup);
    options.positional("DB", exported.database);
    options.positional("ID", exported.eval_id);
    options.text("--weights", "FILE", "The file to write, as CSV. Needed.", exported.weights);
    options.optional_text("--prices", "FILE",
                          "The price file of the run. Default: where it was when the run began.",
                          exported.prices);
    options.flag("--force", "Replaces the file when it is there.", exported.force);
    export_app->set_help_flag(kHelpFlag, kHelpText)->group(kOptionsGroup);
  }

  // The command that was given; none where there is none.
  [[nodiscard]] const CLI::App* command() const {
    for (const CLI::App* const command : {run_app, check_app, signals_app, show_app, export_app}) {
      if (command->parsed()) return command;
    }
    return nullptr;
  }

  // The page of the command that was asked about.
  [[nodiscard]] std::string help() {
    // The long description belongs on the command's own page, the short one on the program's.
    if (run_app->parsed()) run_app->description(kRunDescription);
    if (check_app->parsed()) check_app->description(kCheckDescription);
    if (signals_app->parsed()) signals_app->description(kSignalsDescription);
    if (show_app->parsed()) show_app->description(kShowDescription);
    if (export_app->parsed()) export_app->description(kExportDescription);
    return app.help();
  }
};

// Where a text about the command line ends: with the page that tells more.
std::string with_help_hint(const std::string& problem, const Parser& parser) {
  const CLI::App* const command = parser.command();
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

void require(bool is_given, const std::string& problem, const Parser& parser) {
  if (!is_given) throw UsageError(with_help_hint(problem, parser));
}

RunCommand checked_run(Parser& parser) {
  RunCommand& run = parser.run;
  require(!run.search.prices.empty(),
          "no price file is given; name one with --prices FILE, a CSV with the columns "
          "date,symbol,close or with date and one column of closes a symbol",
          parser);
  if (run.worker_memory_mebibytes) {
    run.search.worker_memory_limit_bytes = *run.worker_memory_mebibytes * kBytesPerMebibyte;
  }
  return run;
}

CheckPricesCommand checked_prices(const Parser& parser) {
  require(!parser.check.prices.empty(), "no price file is given; name it after check-prices",
          parser);
  return parser.check;
}

void require_store(const std::filesystem::path& database, const Parser& parser) {
  require(!database.empty(),
          fmt::format("no store is given; name the file of --db after {}",
                      parser.command()->get_name()),
          parser);
}

void require_id(const std::string& eval_id, const Parser& parser) {
  require(!eval_id.empty(),
          "no id is given; name an evaluation after the store, such as 3-17: run 3, candidate 17",
          parser);
}

SignalsCommand checked_signals(const Parser& parser) {
  require_store(parser.signals.database, parser);
  return parser.signals;
}

ShowCommand checked_show(const Parser& parser) {
  require_store(parser.show.database, parser);
  require_id(parser.show.eval_id, parser);
  return parser.show;
}

ExportCommand checked_export(const Parser& parser) {
  require_store(parser.exported.database, parser);
  require_id(parser.exported.eval_id, parser);
  require(!parser.exported.weights.empty(),
          "no file for the weights is given; name one with --weights FILE", parser);
  return parser.exported;
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
  if (parser.run_app->parsed()) return checked_run(parser);
  if (parser.check_app->parsed()) return checked_prices(parser);
  if (parser.signals_app->parsed()) return checked_signals(parser);
  if (parser.show_app->parsed()) return checked_show(parser);
  if (parser.export_app->parsed()) return checked_export(parser);
  throw UsageError(with_help_hint(
      "no command is given; there are \"run\", \"signals\", \"show\", \"export\" and "
      "\"check-prices\"",
      parser));
}

}  // namespace varnholt::app
