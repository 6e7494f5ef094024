// How much a search finds: whole runs on markets with one hidden effect.
//
//   bench_search_quality run ARM[+SETTING=NUMBER...] RESULTS [SEEDS] [BACKTESTS] [EFFECT]
//   bench_search_quality export EFFECT SEED FOLDER
//
// The arms are "ours", the search as it is by default; "fresh", which draws and never breeds or
// repairs; and ours without the archive, with expressions as they are written, and with units
// mixed. A setting that is added to an arm makes another arm. Each run gets equal numbers of
// backtests on the same prices. RESULTS is a CSV file to which a line is added as each run ends;
// runs that stand there already are passed over, so that the same command goes on where it was
// stopped. `summary.py` makes the tables of docs/search-quality.md of it, and `peers.py` adds the
// lines of other libraries, for which `export` writes what they need.
//
// "Found" is the first candidate that meets the gates, has a Sharpe ratio of at least 0.5 in
// sample, and a daily PnL that correlates at least 0.6 with the oracle's, in sample. How a signal
// or the pool's book does later is told by fresh days of the same market, which no run gets to see.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <unistd.h>

#include "benchmarks/search_quality/planted_universe.hpp"
#include "benchmarks/silent_observer.hpp"
#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/search/pool_book.hpp"
#include "hosts/embedded/search/search_run.hpp"
#include "hosts/embedded/signal_pool/pnl_measures.hpp"
#include "hosts/embedded/store/run_store.hpp"

namespace varnholt::embedded::search_quality {
namespace {

namespace fs = std::filesystem;
using Eigen::ArrayXd;
using Eigen::Index;

constexpr double kLeastSharpe = 0.5;
constexpr double kLeastLikeness = 0.6;

constexpr const char* kHeader =
    "arm,effect,seed,backtests,found_after,best_sharpe,best_fresh_sharpe,book_holdout_sharpe,"
    "book_fresh_sharpe,oracle_sharpe,oracle_fresh_sharpe,submitted,structures,behaviours";

struct Outcome {
  std::int64_t backtests = 0;
  std::optional<std::int64_t> found_after;
  double best_sharpe = 0.0;
  double best_fresh_sharpe = 0.0;
  double book_holdout_sharpe = 0.0;
  double book_fresh_sharpe = 0.0;
  double oracle_sharpe = 0.0;
  double oracle_fresh_sharpe = 0.0;
  std::size_t submitted = 0;
  std::size_t structures = 0;
  std::size_t behaviours = 0;
};

class Found : public SilentObserver {
 public:
  void on_recorded(const CandidateRecorded& candidate) override {
    if (!candidate.statistics) return;
    const BacktestStatistics& figures = *candidate.statistics;
    structures.insert(candidate.expression);
    behaviours.insert({figures.sharpe, figures.turnover});
    if (!candidate.passed) return;
    if (!best || figures.sharpe > best->second) best.emplace(candidate.eval_id, figures.sharpe);
    if (figures.sharpe >= kLeastSharpe) strong.push_back(candidate);
  }

  std::set<std::string> structures;
  std::set<std::pair<double, double>> behaviours;
  std::vector<CandidateRecorded> strong;  // In the order of their evaluation.
  std::optional<std::pair<std::string, double>> best;
};

// What the run is held to, beside its own options.
class Judge {
 public:
  Judge(Universe universe, const UniverseShape& shape, const BookRules& rules)
      : shape_(shape),
        oracle_(std::move(universe.oracle)),
        data_(std::move(universe.data)),
        evaluator_(data_, {.book = rules}) {}

  [[nodiscard]] const MarketData& data() const { return data_; }
  [[nodiscard]] const Panel& oracle() const { return oracle_; }

  [[nodiscard]] BacktestResult searched(const Panel& weights) const {
    return held(weights, 0, shape_.searched_days - 1);
  }
  [[nodiscard]] BacktestResult holdout(const Panel& weights) const {
    return held(weights, shape_.searched_days - 1, shape_.holdout_days);
  }
  [[nodiscard]] BacktestResult fresh(const Panel& weights) const {
    return held(weights, shape_.known_days() - 1, shape_.fresh_days);
  }
  [[nodiscard]] Panel weights_of(const std::string& graph_json) const {
    return evaluator_.evaluate(read_json(graph_json)).weights;
  }

 private:
  [[nodiscard]] BacktestResult held(const Panel& weights, Index first, Index days) const {
    return backtest_holding_days(weights, evaluator_.close(), evaluator_.options().book, first,
                                 days);
  }

  UniverseShape shape_;
  Panel oracle_;
  MarketData data_;
  Evaluator evaluator_;
};

void write_prices(const fs::path& path, const MarketData& data, Index days) {
  std::ofstream file(path);
  file << "date,symbol,open,high,low,close,volume\n";
  for (Index day = 0; day < days; ++day) {
    const std::string date = date_text(data.dates[static_cast<std::size_t>(day)]);
    for (Index i = 0; i < data.instrument_count(); ++i) {
      file << fmt::format("{},{},{},{},{},{},{}\n", date, data.symbols[static_cast<std::size_t>(i)],
                          (*data.open)(day, i), (*data.high)(day, i), (*data.low)(day, i),
                          data.close(day, i), (*data.volume)(day, i));
    }
  }
  file.flush();
  if (!file) throw std::runtime_error("cannot write " + path.string());
}

// A search that differs from the default one in what is looked at.
struct Arm {
  std::string_view name;
  void (*change)(SearchOptions& options);
};
constexpr auto kArms = std::to_array<Arm>({
    {"ours", [](SearchOptions& /*options*/) {}},
    // The first batch is drawn and never bred.
    {"fresh",
     [](SearchOptions& options) {
       options.batch_size = *options.candidates;
       options.max_improvement_candidates = 0;
     }},
    {"no-archive", [](SearchOptions& options) { options.has_no_archive = true; }},
    {"no-known", [](SearchOptions& options) { options.has_no_known_formulas = true; }},
    {"as-written", [](SearchOptions& options) { options.is_as_written = true; }},
    {"mixed-units", [](SearchOptions& options) { options.config.vocabulary.units = false; }},
});

template <typename Rows>
std::string names_of(const Rows& rows) {
  std::string names;
  for (const auto& row : rows)
    names += (names.empty() ? "" : "|") + std::string(row.name);
  return names;
}

genetic::Value whole(double value) {
  return static_cast<std::int64_t>(value);
}

// What can be set beside an arm: "ours+batch_size=256+repairs=0".
struct Setting {
  std::string_view name;
  void (*set)(SearchOptions& options, double value);
};
constexpr auto kSettings = std::to_array<Setting>({
    {"batch_size", [](SearchOptions& options, double value) { options.batch_size = whole(value); }},
    {"deflated_sharpe_min",
     [](SearchOptions& options, double value) { options.config.pool.deflated_sharpe_min = value; }},
    {"elite_fraction",
     [](SearchOptions& options, double value) { options.elite_fraction = value; }},
    {"repairs", [](SearchOptions& options,
                   double value) { options.max_improvement_candidates = whole(value); }},
    {"replaces_weaker", [](SearchOptions& options,
                           double value) { options.config.pool.replaces_weaker = value != 0.0; }},
    {"restart_threshold",
     [](SearchOptions& options, double value) { options.restart_threshold = whole(value); }},
    {"sharpe_min",
     [](SearchOptions& options, double value) { options.config.gates.min_sharpe = value; }},
});

// The row of that name, or a complaint that names the others.
template <typename Row, std::size_t Count>
const Row& row_of(const std::array<Row, Count>& rows, std::string_view what,
                  std::string_view name) {
  const auto row =
      std::find_if(rows.begin(), rows.end(), [&](const Row& one) { return one.name == name; });
  if (row != rows.end()) return *row;
  throw std::invalid_argument(
      fmt::format("there is no {} {}, only {}", what, name, names_of(rows)));
}

void change(SearchOptions& options, const std::string& setting) {
  const std::size_t equals = setting.find('=');
  if (equals == std::string::npos) {
    throw std::invalid_argument(setting + " is no setting; write NAME=NUMBER");
  }
  row_of(kSettings, "setting", setting.substr(0, equals))
      .set(options, std::stod(setting.substr(equals + 1)));
}

SearchOptions options_of(const std::string& arm, std::int64_t backtests, std::uint64_t seed) {
  SearchOptions options;
  options.jobs = 1;
  options.seed = seed;
  options.candidates = backtests;
  options.periods_per_year = BookRules().periods_per_year;
  std::istringstream parts(arm);
  std::string part;
  std::getline(parts, part, '+');
  row_of(kArms, "arm", part).change(options);
  while (std::getline(parts, part, '+'))
    change(options, part);
  return options;
}

// The rules by which a signal is judged: those of a run.
BookRules rules_of(const SearchOptions& options) {
  BookRules rules;
  rules.delay_days = options.delay_days;
  rules.cost_basis_points = options.cost_basis_points;
  rules.least_known_share = options.least_known_share;
  rules.neutralize = kNeutralizeMarket;  // The default of so many instruments.
  return rules;
}

double sharpe_of(const BacktestResult& result) {
  return result.statistics.sharpe;
}

void judge_book(const SearchSummary& summary, RunStore& store, const Judge& judge,
                Outcome& outcome) {
  std::vector<EvaluationOfRun> signals;
  for (const SubmittedSignal& signal : summary.submitted) {
    if (auto found = store.find_evaluation(signal.eval_id)) signals.push_back(*std::move(found));
  }
  outcome.submitted = signals.size();
  if (signals.empty()) return;
  const PoolBook book = make_pool_book(signals, judge.data(), BookMethod::Ridge, [] {});
  outcome.book_holdout_sharpe = sharpe_of(judge.holdout(book.weights));
  outcome.book_fresh_sharpe = sharpe_of(judge.fresh(book.weights));
}

Outcome outcome_of(const SearchOptions& options, const Judge& judge) {
  Found observer;
  const InterruptFlag interrupt;
  const SearchSummary summary = run_search(options, observer, interrupt);
  const auto store = open_run_store(options.database.string());
  const BacktestResult oracle = judge.searched(judge.oracle());
  Outcome outcome;
  outcome.backtests = summary.progress.candidates;
  outcome.oracle_sharpe = sharpe_of(oracle);
  outcome.oracle_fresh_sharpe = sharpe_of(judge.fresh(judge.oracle()));
  outcome.structures = observer.structures.size();
  outcome.behaviours = observer.behaviours.size();
  const auto weights_of = [&](const std::string& eval_id) {
    return judge.weights_of(store->find_evaluation(eval_id)->evaluation.graph_json);
  };
  for (const CandidateRecorded& candidate : observer.strong) {
    const ArrayXd pnl = judge.searched(weights_of(candidate.eval_id)).net_returns;
    if (pearson_correlation(pnl, oracle.net_returns) < kLeastLikeness) continue;
    outcome.found_after = candidate.candidate_number;
    break;
  }
  if (observer.best) {
    outcome.best_sharpe = observer.best->second;
    outcome.best_fresh_sharpe = sharpe_of(judge.fresh(weights_of(observer.best->first)));
  }
  judge_book(summary, *store, judge, outcome);
  return outcome;
}

std::string key_of(const std::string& arm, std::string_view effect, std::uint64_t seed) {
  return fmt::format("{},{},{},", arm, effect, seed);
}

// The beginnings of the lines that the results have.
std::set<std::string> keys_in(const fs::path& results) {
  std::set<std::string> keys;
  std::ifstream file(results);
  for (std::string line; std::getline(file, line);) {
    std::size_t end = 0;
    for (int column = 0; column < 3 && end != std::string::npos; ++column)
      end = line.find(',', end + 1);
    if (end != std::string::npos) keys.insert(line.substr(0, end + 1));
  }
  return keys;
}

void add_line(const fs::path& results, const std::string& line) {
  const bool is_new = !fs::exists(results);
  std::ofstream file(results, std::ios::app);
  if (is_new) file << kHeader << '\n';
  file << line << '\n';
  file.flush();
  if (!file) throw std::runtime_error("cannot write " + results.string());
}

std::string line_of(const std::string& key, const Outcome& outcome) {
  const std::string found = outcome.found_after ? std::to_string(*outcome.found_after) : "";
  return fmt::format("{}{},{},{:.4f},{:.4f},{:.4f},{:.4f},{:.4f},{:.4f},{},{},{}", key,
                     outcome.backtests, found, outcome.best_sharpe, outcome.best_fresh_sharpe,
                     outcome.book_holdout_sharpe, outcome.book_fresh_sharpe, outcome.oracle_sharpe,
                     outcome.oracle_fresh_sharpe, outcome.submitted, outcome.structures,
                     outcome.behaviours);
}

// Gone with the program, whatever ends it in order.
class TemporaryFolder {
 public:
  TemporaryFolder()
      : path_(fs::temp_directory_path() / ("bench-search-quality-" + std::to_string(::getpid()))) {
    fs::create_directories(path_);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  [[nodiscard]] const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

void run_one(const std::string& arm, const Effect& effect, std::uint64_t seed,
             std::int64_t backtests, const fs::path& results) {
  const TemporaryFolder folder;
  const UniverseShape shape;
  SearchOptions options = options_of(arm, backtests, seed);
  const fs::path prices = folder.path() / "prices.csv";
  options.prices = prices;
  options.database = folder.path() / "runs.db";
  const BookRules rules = rules_of(options);
  const Judge judge(plant(effect, seed, shape, rules), shape, rules);
  write_prices(prices, judge.data(), shape.known_days());
  const std::string line = line_of(key_of(arm, effect.name, seed), outcome_of(options, judge));
  add_line(results, line);
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

int run(const std::string& arm, const fs::path& results, int seeds, std::int64_t backtests,
        const std::string& only) {
  const std::set<std::string> done = keys_in(results);
  for (std::uint64_t seed = 1; std::cmp_less_equal(seed, seeds); ++seed) {
    for (const Effect& effect : effects()) {
      if (!only.empty() && effect.name != only) continue;
      if (!done.contains(key_of(arm, effect.name, seed))) {
        run_one(arm, effect, seed, backtests, results);
      }
    }
  }
  return 0;
}

// The prices that a run sees, all prices, and the oracle's daily PnL in sample.
int export_universe(const std::string& name, std::uint64_t seed, const fs::path& folder) {
  const auto effect = std::find_if(effects().begin(), effects().end(),
                                   [&name](const Effect& known) { return known.name == name; });
  if (effect == effects().end()) throw std::invalid_argument("there is no effect " + name);
  const UniverseShape shape;
  const BookRules rules = rules_of(SearchOptions());
  const Judge judge(plant(*effect, seed, shape, rules), shape, rules);
  fs::create_directories(folder);
  write_prices(folder / "prices.csv", judge.data(), shape.known_days());
  write_prices(folder / "all_prices.csv", judge.data(), shape.days());
  std::ofstream oracle(folder / "oracle.csv");
  oracle.precision(17);
  for (const double pnl : judge.searched(judge.oracle()).net_returns)
    oracle << pnl << '\n';
  std::printf("%.4f,%.4f\n", sharpe_of(judge.searched(judge.oracle())),
              sharpe_of(judge.fresh(judge.oracle())));
  return oracle.flush() ? 0 : 1;
}

int main_of(const std::vector<std::string>& arguments) {
  const auto argument = [&arguments](std::size_t place, const char* fallback) {
    return place < arguments.size() ? arguments[place] : std::string(fallback);
  };
  if (arguments.size() >= 3 && arguments[0] == "run") {
    return run(arguments[1], arguments[2], std::stoi(argument(3, "20")),
               std::stoll(argument(4, "2048")), argument(5, ""));
  }
  if (arguments.size() == 4 && arguments[0] == "export") {
    return export_universe(arguments[1], std::stoull(arguments[2]), arguments[3]);
  }
  std::fprintf(stderr,
               "usage: bench_search_quality run ARM[+SETTING=NUMBER...] RESULTS.csv [SEEDS] "
               "[BACKTESTS] [EFFECT]\n"
               "       bench_search_quality export EFFECT SEED FOLDER\n"
               "ARM: %s\nSETTING: %s\n",
               names_of(kArms).c_str(), names_of(kSettings).c_str());
  return 2;
}

}  // namespace
}  // namespace varnholt::embedded::search_quality

int main(int count, char** arguments) {
  try {
    return varnholt::embedded::search_quality::main_of({arguments + 1, arguments + count});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_search_quality: %s\n", error.what());
    return 1;
  }
}
