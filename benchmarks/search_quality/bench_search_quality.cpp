// How much a search finds: whole runs on markets with one hidden effect.
//
//   bench_search_quality run ARM[+SETTING=NUMBER...] RESULTS [SEEDS] [BACKTESTS] [EFFECT]
//
// The arms are "ours", the search as it is by default; "fresh", which draws, known formulas among
// it, and never breeds or repairs; "random", which draws without them and without simple forms; and
// ours without the archive, the known formulas or the simple forms, with expressions as they are
// written, and with units mixed. A setting that
// is added to an arm makes another arm. Each run gets equal numbers of backtests on the same
// prices. RESULTS is a CSV file to which a line is added as each run ends; runs that stand there
// already are passed over, so that the same command goes on where it was stopped. `summary.py`
// makes the tables of docs/search-quality.md of it, and `peers.py` adds the lines of other
// libraries.
//
// "Found" is the first candidate that meets the gates, has a Sharpe ratio of at least 0.5 in
// sample, and a daily PnL that correlates at least 0.6 with the oracle's, in sample. How a signal
// or the pool's book does later is told by fresh days of the same market, which no run gets to see.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "benchmarks/search_quality/market_judge.hpp"
#include "benchmarks/search_quality/planted_universe.hpp"
#include "benchmarks/search_quality/results_file.hpp"
#include "benchmarks/search_quality/search_arms.hpp"
#include "benchmarks/search_quality/whole_program.hpp"
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

double sharpe_of(const BacktestResult& result) {
  return result.statistics.sharpe;
}

void judge_book(const SearchSummary& summary, RunStore& store, const MarketJudge& judge,
                Outcome& outcome) {
  const std::vector<EvaluationOfRun> signals = submitted_evaluations(summary, store);
  outcome.submitted = signals.size();
  if (signals.empty()) return;
  const PoolBook book = make_pool_book(signals, judge.data(), BookMethod::Ridge, [] {});
  outcome.book_holdout_sharpe = sharpe_of(judge.holdout(book.weights));
  outcome.book_fresh_sharpe = sharpe_of(judge.later(book.weights));
}

Outcome outcome_of(const SearchOptions& options, const MarketJudge& judge,
                   const Panel& oracle_weights) {
  Found observer;
  const InterruptFlag interrupt;
  const SearchSummary summary = run_search(options, observer, interrupt);
  const auto store = open_run_store(options.database.string());
  const BacktestResult oracle = judge.searched(oracle_weights);
  Outcome outcome;
  outcome.backtests = summary.progress.candidates;
  outcome.oracle_sharpe = sharpe_of(oracle);
  outcome.oracle_fresh_sharpe = sharpe_of(judge.later(oracle_weights));
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
    outcome.best_fresh_sharpe = sharpe_of(judge.later(weights_of(observer.best->first)));
  }
  judge_book(summary, *store, judge, outcome);
  return outcome;
}

std::string line_of(const std::string& key, const Outcome& outcome) {
  const std::string found = outcome.found_after ? std::to_string(*outcome.found_after) : "";
  return fmt::format("{}{},{},{:.4f},{:.4f},{:.4f},{:.4f},{:.4f},{:.4f},{},{},{}", key,
                     outcome.backtests, found, outcome.best_sharpe, outcome.best_fresh_sharpe,
                     outcome.book_holdout_sharpe, outcome.book_fresh_sharpe, outcome.oracle_sharpe,
                     outcome.oracle_fresh_sharpe, outcome.submitted, outcome.structures,
                     outcome.behaviours);
}

void run_one(const std::string& arm, const Effect& effect, std::uint64_t seed,
             std::int64_t backtests, const ResultsFile& results) {
  const TemporaryFolder folder;
  const UniverseShape shape;
  SearchOptions options = options_of(arm, backtests, seed);
  const fs::path prices = folder.path() / "prices.csv";
  options.prices = prices;
  options.database = folder.path() / "runs.db";
  const BookRules rules = planted_rules(options);
  Universe universe = plant(effect, seed, shape, rules);
  const MarketJudge judge(std::move(universe.data), JudgedDays::of(shape), {.book = rules});
  write_prices(prices, judge.data(), shape.known_days());
  results.add(line_of(key_of(arm, effect.name, seed), outcome_of(options, judge, universe.oracle)));
}

int run(const std::string& arm, const fs::path& path, int seeds, std::int64_t backtests,
        const std::string& only) {
  const ResultsFile results(path, kHeader);
  for (std::uint64_t seed = 1; std::cmp_less_equal(seed, seeds); ++seed) {
    for (const Effect& effect : effects()) {
      if (!only.empty() && effect.name != only) continue;
      if (!results.has(key_of(arm, effect.name, seed))) {
        run_one(arm, effect, seed, backtests, results);
      }
    }
  }
  return 0;
}

int main_of(const std::vector<std::string>& arguments) {
  const auto argument = [&arguments](std::size_t place, const char* fallback) {
    return place < arguments.size() ? arguments[place] : std::string(fallback);
  };
  if (arguments.size() >= 3 && arguments[0] == "run") {
    return run(arguments[1], arguments[2], std::stoi(argument(3, "20")),
               std::stoll(argument(4, "2048")), argument(5, ""));
  }
  std::fprintf(stderr,
               "usage: bench_search_quality run ARM[+SETTING=NUMBER...] RESULTS.csv [SEEDS] "
               "[BACKTESTS] [EFFECT]\n"
               "ARM: %s\nSETTING: %s\n",
               arm_names().c_str(), setting_names().c_str());
  return 2;
}

}  // namespace
}  // namespace varnholt::embedded::search_quality

int main(int count, char** arguments) {
  namespace quality = varnholt::embedded::search_quality;
  return quality::run_program("bench_search_quality", quality::main_of, count, arguments);
}
