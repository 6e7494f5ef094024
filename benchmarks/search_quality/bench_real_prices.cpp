// What a search finds in real prices: whole runs over one price file, with many seeds.
//
//   bench_real_prices ARM[+SETTING=NUMBER...] NAME PRICES RESULTS [SEEDS] [BACKTESTS]
//
// NAME stands for the prices in RESULTS, a CSV file to which a line is added as each run ends; runs
// that stand there are passed over. A line has the best signal that passed, by its Sharpe ratio in
// sample, the same signal's in the hold-out, the book of the pool by `--method ridge` in both, and
// the market, the same weight in every instrument, in both. Nothing but the hold-out, which no
// search gets to see, says what is worth anything; and it is one history, whatever the seed.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "benchmarks/search_quality/results_file.hpp"
#include "benchmarks/search_quality/search_arms.hpp"
#include "benchmarks/search_quality/whole_program.hpp"
#include "benchmarks/silent_observer.hpp"
#include "hosts/embedded/market/price_source.hpp"
#include "hosts/embedded/search/pool_book.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/search_run.hpp"
#include "hosts/embedded/store/run_store.hpp"

namespace varnholt::embedded::search_quality {
namespace {

constexpr const char* kHeader =
    "arm,universe,seed,backtests,passed,submitted,best_sharpe,best_holdout_sharpe,book_sharpe,"
    "book_holdout_sharpe,market_sharpe,market_holdout_sharpe";

const SubmittedSignal* best_of(const std::vector<SubmittedSignal>& signals) {
  const SubmittedSignal* best = nullptr;
  for (const SubmittedSignal& signal : signals) {
    const double sharpe = signal.statistics.in_sample.sharpe;
    if (best == nullptr || sharpe > best->statistics.in_sample.sharpe) best = &signal;
  }
  return best;
}

// Without a signal nothing is held, and nothing earned.
SampleStatistics book_of(const SearchOptions& options, const SearchSummary& summary) {
  const auto store = open_run_store(options.database.string());
  const std::vector<EvaluationOfRun> signals = submitted_evaluations(summary, *store);
  if (signals.empty()) return {};
  const MarketData whole = RunData(options).whole;
  return make_pool_book(signals, whole, BookMethod::Ridge, [] {}).statistics;
}

std::string line_of(const std::string& key, const SearchOptions& options,
                    const SearchSummary& summary) {
  const SubmittedSignal* const best = best_of(summary.submitted);
  const SampleStatistics of_best = best != nullptr ? best->statistics : SampleStatistics{};
  const SampleStatistics book = book_of(options, summary);
  return fmt::format("{}{},{},{},{:.4f},{:.4f},{:.4f},{:.4f},{:.4f},{:.4f}", key,
                     summary.progress.candidates, summary.progress.passing,
                     summary.submitted.size(), of_best.in_sample.sharpe, of_best.holdout.sharpe,
                     book.in_sample.sharpe, book.holdout.sharpe, summary.market.in_sample.sharpe,
                     summary.market.holdout.sharpe);
}

int main_of(const std::vector<std::string>& arguments) {
  if (arguments.size() < 4 || arguments.size() > 6) {
    std::fprintf(stderr,
                 "usage: bench_real_prices ARM[+SETTING=NUMBER...] NAME PRICES RESULTS.csv [SEEDS] "
                 "[BACKTESTS]\nARM: %s\nSETTING: %s\n",
                 arm_names().c_str(), setting_names().c_str());
    return 2;
  }
  const std::string& arm = arguments[0];
  const std::string& name = arguments[1];
  const ResultsFile results(arguments[3], kHeader);
  const int seeds = arguments.size() > 4 ? std::stoi(arguments[4]) : 20;
  const std::int64_t backtests = arguments.size() > 5 ? std::stoll(arguments[5]) : 2048;
  for (std::uint64_t seed = 1; std::cmp_less_equal(seed, seeds); ++seed) {
    const std::string key = key_of(arm, name, seed);
    if (results.has(key)) continue;
    const TemporaryFolder folder;
    SearchOptions options = options_of(arm, backtests, seed);
    options.periods_per_year.reset();
    options.prices = std::filesystem::path(arguments[2]);
    options.database = folder.path() / "runs.db";
    SilentObserver observer;
    const InterruptFlag interrupt;
    results.add(line_of(key, options, run_search(options, observer, interrupt)));
  }
  return 0;
}

}  // namespace
}  // namespace varnholt::embedded::search_quality

int main(int count, char** arguments) {
  namespace quality = varnholt::embedded::search_quality;
  return quality::run_program("bench_real_prices", quality::main_of, count, arguments);
}
