#include "apps/genetic_search/options.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "apps/genetic_search/attempts_command.hpp"
#include "apps/genetic_search/help_page.hpp"
#include "apps/genetic_search/option_set.hpp"
#include "apps/genetic_search/price_options.hpp"
#include "apps/genetic_search/run_options.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/config/host_config.hpp"
#include "hosts/embedded/portfolio/book_shares.hpp"
#include "hosts/embedded/vocabulary/vocabulary_page.hpp"

namespace varnholt::app {
namespace {

constexpr std::int64_t kBytesPerMebibyte = 1024 * 1024;

constexpr const char* kHelpFlag = "-h,--help";
constexpr const char* kHelpText = "This text.";
constexpr const char* kOptionsGroup = "Options";

// The groups of commands on the program's page, in the order in which they stand there.
constexpr const char* kSearching = "Search";
constexpr const char* kLooking = "Look into a store";
constexpr const char* kUsing = "Use what was found";

constexpr const char* kDescription =
    "Searches daily prices for trading signals. A signal is an expression such as\n"
    "cross_rank(ts_delta(close, 5)); the search makes expressions, backtests each in\n"
    "a worker process, breeds from those that pass the gates, stores every attempt in\n"
    "an SQLite file, and submits what is new to a signal pool.";

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
    "a symbol. Dates are written yyyy-mm-dd; an empty cell is a gap. Several\n"
    "files, or a folder of them, are put together.\n\n"
    "Exit codes: 0 done, 1 failure, 2 bad usage or bad input (nothing was written),\n"
    "130 ended at once by a second Ctrl-C, 141 the reader of the output went away.";

constexpr const char* kCheckDescription =
    "Tells what price files, or a folder of them, hold: instruments, dates, gaps,\n"
    "jumps, and what makes backtests lie: stale prices, splits that were not adjusted\n"
    "for, days in the future and others, each with its remedy. The exit code is 0\n"
    "whatever is found, and 2 for a file that cannot be read.";

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
    "Price files that are not, byte for byte, those of the run are refused.\n\n"
    "Exit codes: 0 done, 1 the file could not be written, 2 bad usage or bad input.\n"
    "After 1 and 2 nothing was written.";

constexpr const char* kWeightsDescription =
    "Computes the weights of a stored signal, or of all that were submitted to a\n"
    "signal pool, on other prices than those of their run: with more days, more\n"
    "instruments, another adjustment. It tells how these prices differ from those of\n"
    "the run where both have them. The store is not changed.";

constexpr const char* kWeightsFooter =
    "The row of a day is what the signal wants to hold from its close on; with a\n"
    "delay of 1 it is traded at the close of the day after. With --pool each row\n"
    "begins with the id of its signal.\n\n"
    "Exit codes: 0 done, 1 a signal of the pool cannot be computed on these prices\n"
    "(the others are written) or the file could not be written, 2 bad usage or bad\n"
    "input.";

constexpr const char* kPortfolioDescription =
    "Makes one book of the signals of a pool. The capital is shared among them by\n"
    "what they earned in sample; what one buys and another sells is not traded. Tells\n"
    "the book's figures in sample and on the hold-out, each signal's share, and with\n"
    "--output the weights of every day. The store is not changed.";

constexpr const char* kPortfolioFooter =
    "In sample are the days that a search of any of the signals saw, hold-out those\n"
    "that none of them saw.\n\n"
    "Exit codes: 0 done, 1 a signal cannot be part of the book (it is made of the\n"
    "others) or the file could not be written, 2 bad usage or bad input.";

constexpr const char* kDoctorDescription =
    "Tells what this machine gives a search: processors, memory, limits, large pages\n"
    "and the cost of a fork, and what to change. The exit code is 0 when a search can\n"
    "run, else 1.";

constexpr const char* kAttemptsDescription =
    "Lists the attempts of runs: every candidate whose worker reached its backtest,\n"
    "with how it ended and why, the latest last, and how many ended how. The store is\n"
    "not changed. Exit codes: 0 done, also when there is none, 2 for a file that is\n"
    "no store and for a run or an end that is not in it.";

constexpr const char* kReplayDescription =
    "Evaluates the graph of one attempt again, alone, in this process, on the prices,\n"
    "days and costs of its run, and tells each figure beside the recorded one. The\n"
    "store is not changed.";

constexpr const char* kReplayFooter =
    "Price files that are not, byte for byte, those of the run are refused.\n\n"
    "Exit codes: 0 the same again, 1 other figures, 2 bad usage or bad input.";

constexpr const char* kVocabularyDescription =
    "Prints what signals are written in, as Markdown: every feature and every function\n"
    "with its formula, its rules for missing and equal values, and an example.";

constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::string sort_refusal(const std::string& name) {
  if (find_signal_figure(name) != nullptr) return {};
  return fmt::format("wants one of {}, not \"{}\"", signal_figure_names(), on_one_line(name));
}

// The parser with all that it writes into. It is built anew for each command line.
struct Parser {
  CLI::App app{kDescription, kProgramName};
  RunCommand run;
  CheckPricesCommand check;
  std::vector<std::filesystem::path> check_files;
  SignalsCommand signals;
  ShowCommand show;
  ExportCommand exported;
  WeightsCommand weights;
  PortfolioCommand portfolio;
  EvalCommand eval;
  AttemptsCommand attempts;
  ReplayCommand replay;

  // One command: its parser, the long description on its own page, and what its command line asks
  // for once it is checked.
  struct Entry {
    CLI::App* app;
    const char* page;
    Command (*checked)(Parser&);
  };
  std::vector<Entry> entries;

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
    add_eval();
    add_check();
    add_doctor();
    add_vocabulary();
    add_signals();
    add_show();
    add_attempts();
    add_replay();
    add_export();
    add_weights();
    add_portfolio();
  }

  // Adds a command to a group of the program's page; `add_options` gives it its options and tells
  // the group in which its help flag stands, behind them.
  template <typename AddOptions>
  void add_command(const char* group, const char* name, const char* description, const char* page,
                   const char* footer, Command (*checked)(Parser&), AddOptions add_options) {
    CLI::App* const command = app.add_subcommand(name, description)->group(group);
    command->footer(footer);
    command->set_help_flag();
    Options options(*command);
    const char* const help_group = add_options(options);
    command->set_help_flag(kHelpFlag, kHelpText)->group(help_group);
    entries.push_back({command, page, checked});
  }

  void add_run();
  void add_check();
  void add_signals();
  void add_show();
  void add_export();
  void add_weights();
  void add_portfolio();
  void add_eval();
  void add_doctor();
  void add_attempts();
  void add_replay();
  void add_vocabulary();

  // The command that was given; null where none was.
  [[nodiscard]] const Entry* given() const {
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [](const Entry& entry) { return entry.app->parsed(); });
    return found == entries.end() ? nullptr : &*found;
  }
  [[nodiscard]] const CLI::App* command() const {
    const Entry* const entry = given();
    return entry == nullptr ? nullptr : entry->app;
  }

  // The page of the command that was asked about.
  [[nodiscard]] std::string help() {
    // The long description belongs on the command's own page, the short one on the program's.
    if (const Entry* const entry = given()) entry->app->description(entry->page);
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
  if (!arguments.empty() && arguments.front() == kEvalName) put_blank_before_minus(reversed);
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

Command checked_run(Parser& parser) {
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

Command checked_prices(Parser& parser) {
  parser.check.prices = embedded::PriceSource(parser.check_files);
  require(!parser.check_files.empty(), "no price file is given; name it after check-prices",
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

Command checked_signals(Parser& parser) {
  require_store(parser.signals.database, parser);
  return parser.signals;
}

Command checked_show(Parser& parser) {
  require_store(parser.show.database, parser);
  require_id(parser.show.eval_id, parser);
  return parser.show;
}

Command checked_export(Parser& parser) {
  require_store(parser.exported.database, parser);
  require_id(parser.exported.eval_id, parser);
  require(!parser.exported.weights.empty(),
          "no file for the weights is given; name one with --weights FILE", parser);
  return parser.exported;
}

Command checked_weights(Parser& parser) {
  const WeightsCommand& command = parser.weights;
  require_store(command.database, parser);
  if (!command.pool) require_id(command.eval_id, parser);
  require(!command.pool || command.eval_id.empty(),
          "an id and --pool are given; leave one of them out", parser);
  require(!command.prices.empty(), "no price file is given; name one with --prices FILE", parser);
  return command;
}

Command checked_eval(Parser& parser) {
  require(!parser.eval.search.prices.empty(), "no price file is given; name one with --prices FILE",
          parser);
  require(!parser.eval.formulas.empty() || parser.eval.file.has_value(),
          "no formula is given; write one after eval, or name a file of them with --file FILE",
          parser);
  return parser.eval;
}

Command checked_portfolio(Parser& parser) {
  require_store(parser.portfolio.database, parser);
  return parser.portfolio;
}

Command checked_doctor(Parser& /*parser*/) {
  return DoctorCommand{};
}

Command checked_attempts(Parser& parser) {
  require_store(parser.attempts.database, parser);
  return parser.attempts;
}

Command checked_replay(Parser& parser) {
  require_store(parser.replay.database, parser);
  require(
      parser.replay.attempt > 0,
      fmt::format("no attempt is given; name one after the store by its number, as \"{} {} DB\" "
                  "lists them",
                  kProgramName, kAttemptsName),
      parser);
  return parser.replay;
}

Command checked_vocabulary(Parser& /*parser*/) {
  return ShowText{embedded::vocabulary_page()};
}

void Parser::add_run() {
  add_command(kSearching, kRunName, "Searches a price file for trading signals.", kRunDescription,
              kRunFooter, checked_run, [this](Options& options) {
                add_run_options(options, run);
                return "Output";
              });
}

void Parser::add_check() {
  add_command(kSearching, kCheckName, "Tells what a price file holds.", kCheckDescription, "",
              checked_prices, [this](Options& options) {
                options.group(kOptionsGroup);
                options.positional("FILE", check_files);
                add_price_options(options, check.price_format);
                options.whole(
                    "--list", "N", from(0, 1'000'000),
                    fmt::format("How many findings of each kind are listed; the rest are counted. "
                                "Default: {}.",
                                check.list_limit),
                    check.list_limit);
                options.flag("--json", "All findings as one JSON object on one line.", check.json);
                return kOptionsGroup;
              });
}

void Parser::add_signals() {
  add_command(kLooking, kSignalsName, "Lists the signals that runs submitted.", kSignalsDescription,
              "", checked_signals, [this](Options& options) {
                options.group(kOptionsGroup);
                options.positional("DB", signals.database);
                options.whole("--run", "N", from(1), "Only those of run N.", signals.run);
                options.text("--pool", "NAME", "Only those of the signal pool NAME.", signals.pool);
                options.flag("--all", "Refused and waiting ones too.", signals.all);
                options.checked_text("--sort", "FIGURE",
                                     fmt::format("The best first by one of {}. Default: in the "
                                                 "order of submission.",
                                                 signal_figure_names()),
                                     sort_refusal, signals.sort);
                options.whole("--limit", "N", from(1),
                              "The best N of those that are sorted, else the latest N.",
                              signals.limit);
                options.flag("--json", "One JSON object a line, for machines.", signals.json);
                options.group("Only signals with");
                for (const SignalFigure& figure : signal_figures()) {
                  options.real(figure.bound_option(), "X", {-kInfinity, kInfinity},
                               fmt::format("At {} X: the {}.",
                                           figure.high_is_best ? "least" : "most", figure.meaning),
                               signals.bounds[std::string(figure.name)]);
                }
                return kOptionsGroup;
              });
}

void Parser::add_show() {
  add_command(kLooking, kShowName, "Tells all that is stored of one evaluation.", kShowDescription,
              "", checked_show, [this](Options& options) {
                options.group(kOptionsGroup);
                options.positional("DB", show.database);
                options.positional("ID", show.eval_id);
                options.flag("--json", "One JSON object on one line, for machines.", show.json);
                return kOptionsGroup;
              });
}

void Parser::add_export() {
  add_command(kUsing, kExportName, "Writes the daily weights of one signal.", kExportDescription,
              kExportFooter, checked_export, [this](Options& options) {
                options.group(kOptionsGroup);
                options.positional("DB", exported.database);
                options.positional("ID", exported.eval_id);
                options.text("--weights", "FILE",
                             "The file to write, as CSV; - is standard output. Needed.",
                             exported.weights);
                add_run_prices(options, exported.prices);
                options.flag("--force", "Replaces the file when it is there.", exported.force);
                return kOptionsGroup;
              });
}

void Parser::add_weights() {
  add_command(
      kUsing, kWeightsName, "Computes the weights of signals on new prices.", kWeightsDescription,
      kWeightsFooter, checked_weights, [this](Options& options) {
        options.group(kOptionsGroup);
        options.positional("DB", weights.database);
        options.positional("ID", weights.eval_id);
        add_needed_prices(options, weights.prices);
        add_price_options(options, weights.price_format);
        options.text("--pool", "NAME", "All signals of the pool NAME in place of one ID.",
                     weights.pool);
        options.date("--since", "The first day that is written. Default: the first of the prices.",
                     weights.since);
        options.whole("--last", "N", from(1), "Only the latest N days.", weights.last);
        options.output_file("The file to write; - is standard output. Default: -.", weights.output);
        options.flag("--force", "Replaces the file when it is there.", weights.force);
        return kOptionsGroup;
      });
}

std::string method_names() {
  std::string text;
  for (const embedded::BookMethodName& row : embedded::book_methods())
    text += fmt::format("{}{}", text.empty() ? "" : ", ", row.name);
  return text;
}

std::string method_refusal(const std::string& name) {
  for (const embedded::BookMethodName& row : embedded::book_methods()) {
    if (row.name == name) return {};
  }
  return fmt::format("wants one of {}, not \"{}\"", method_names(), on_one_line(name));
}

void Parser::add_eval() {
  add_command(kSearching, kEvalName, "Evaluates formulas.", kEvalDescription, kEvalFooter,
              checked_eval, [this](Options& options) {
                add_eval_options(options, eval);
                return "Output";
              });
}

void Parser::add_portfolio() {
  portfolio.pool = embedded::PoolSettings().name;
  add_command(
      kUsing, kPortfolioName, "Makes one book of the signals of a pool.", kPortfolioDescription,
      kPortfolioFooter, checked_portfolio, [this](Options& options) {
        options.group(kOptionsGroup);
        options.positional("DB", portfolio.database);
        options.text("--pool", "NAME", fmt::format("The signal pool. Default: {}.", portfolio.pool),
                     portfolio.pool);
        std::string methods;
        for (const embedded::BookMethodName& row : embedded::book_methods())
          methods += fmt::format("{}{}: {}", methods.empty() ? "" : "; ", row.name, row.meaning);
        options.checked_text("--method", "NAME",
                             fmt::format("How the capital is shared. {}. Default: {}.", methods,
                                         embedded::book_methods().front().name),
                             method_refusal, portfolio.method);
        options.prices(
            "The prices, as CSV: a file or a folder; again for more files. Default: those of the "
            "latest run.",
            Options::Following::IsArgument, portfolio.prices);
        add_price_options(options, portfolio.price_format);
        options.output_file(
            "Where the weights of every day are written, as CSV; - is standard "
            "output, and the figures go to standard error then.",
            portfolio.output);
        options.flag("--force", "Replaces the file when it is there.", portfolio.force);
        options.flag("--json", "The figures as one JSON object on one line.", portfolio.json);
        return kOptionsGroup;
      });
}

void Parser::add_doctor() {
  add_command(kSearching, kDoctorName, "Tells whether this machine can search.", kDoctorDescription,
              "", checked_doctor, [](Options& /*options*/) { return kOptionsGroup; });
}

void Parser::add_attempts() {
  add_command(kLooking, kAttemptsName, "Lists the attempts of runs, and how they ended.",
              kAttemptsDescription, "", checked_attempts, [this](Options& options) {
                options.group(kOptionsGroup);
                options.positional("DB", attempts.database);
                options.whole("--run", "N", from(1), "Only those of run N.", attempts.run);
                options.text("--ended", "HOW",
                             "Only those that ended so: passed, rejected, backtest_failed, "
                             "resource_blocked, cancelled or abandoned; or open.",
                             attempts.disposition);
                options.whole(
                    "--limit", "N", from(1),
                    fmt::format("The latest N. Default: {}; with --json, all.", kListedAttempts),
                    attempts.limit);
                options.flag("--json", "One JSON object a line, for machines.", attempts.json);
                return kOptionsGroup;
              });
}

void Parser::add_replay() {
  add_command(kLooking, kReplayName, "Evaluates one attempt again, and compares.",
              kReplayDescription, kReplayFooter, checked_replay, [this](Options& options) {
                options.group(kOptionsGroup);
                options.positional("DB", replay.database);
                options.whole_positional("ATTEMPT", from(1), replay.attempt);
                add_run_prices(options, replay.prices);
                options.flag("--json", "One JSON object on one line, for machines.", replay.json);
                return kOptionsGroup;
              });
}

void Parser::add_vocabulary() {
  add_command(kSearching, kVocabularyName, "Prints what signals are written in.",
              kVocabularyDescription, "", checked_vocabulary,
              [](Options& /*options*/) { return kOptionsGroup; });
}

// The commands as a list in a sentence.
std::string command_list(const Parser& parser) {
  std::string text;
  for (const Parser::Entry& entry : parser.entries) {
    const bool is_last = &entry == &parser.entries.back();
    if (!text.empty()) text += is_last ? " and " : ", ";
    text += fmt::format("\"{}\"", entry.app->get_name());
  }
  return text;
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
  if (const Parser::Entry* const entry = parser.given()) return entry->checked(parser);
  throw UsageError(with_help_hint(
      fmt::format("no command is given; there are {}", command_list(parser)), parser));
}

}  // namespace varnholt::app
