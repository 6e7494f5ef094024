// How often the verdict "better than luck" is right: whole searches on universes without any
// effect, and on universes with one that is planted.
//
//   bench_luck noise 100        bench_luck planted 100       each with [CANDIDATES] [FIRST-SEED]
//
// A universe has 20 instruments over 3,000 weekdays: daily returns of a market and of each
// instrument, all normal and without drift. In a planted one each return has besides
//
//   0.00055 times the cross-sectional z-score of the mean return of the 20 days that end two days
//   before: what a signal of that day, traded a day later, can earn.
//
// Its oracle is that signal; a seed whose oracle has a Sharpe ratio, after costs and over the whole
// history, outside of 1.5 to 2.5 is left out. Each search evaluates 300 candidates, unless another
// number is given, with the settings that the program has by default, but for weights that are not
// neutralized and expressions that are not simplified and may mix units. A line is written for each
// universe, and the rates at the end; docs/luck.md has the table. "Spread" is the confidence that
// the verdict would have if chance were given the spread of the trials.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <random>
#include <string>

#include <unistd.h>

#include "benchmarks/silent_observer.hpp"
#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/search/search_run.hpp"
#include "hosts/embedded/signal_pool/pnl_measures.hpp"
#include "hosts/embedded/store/run_store.hpp"

namespace varnholt::embedded {
namespace {

namespace fs = std::filesystem;
using Eigen::ArrayXd;
using Eigen::Index;

constexpr Index kInstruments = 20;
constexpr Index kDays = 3000;
constexpr Index kWindow = 20;
constexpr double kEffect = 0.00055;
constexpr double kLeastOracle = 1.5;
constexpr double kGreatestOracle = 2.5;
// Of the daily PnL, beside the oracle's: then the best signal is the effect.
constexpr double kFound = 0.5;

// The z-scores over the instruments of the mean returns of the days before and with `day`.
ArrayXd told_by(const Panel& returns, Index day) {
  const ArrayXd means = returns.middleRows(day - kWindow + 1, kWindow).colwise().mean();
  return (means - means.mean()) / std::sqrt((means - means.mean()).square().mean());
}

struct Universe {
  Panel close;
  Panel signal;  // Of the oracle.
};

Universe make_universe(std::uint64_t seed, double effect) {
  std::mt19937_64 generator(seed);
  std::normal_distribution<double> normal;
  Panel returns = Panel::Zero(kDays, kInstruments);
  Universe universe{Panel::Constant(kDays, kInstruments, 100.0), Panel::Zero(kDays, kInstruments)};
  for (Index day = 1; day < kDays; ++day) {
    const double market = 0.008 * normal(generator);
    for (Index i = 0; i < kInstruments; ++i)
      returns(day, i) = market + 0.015 * normal(generator);
    if (day >= kWindow + 2) returns.row(day) += effect * universe.signal.row(day - 2);
    if (day >= kWindow) universe.signal.row(day) = told_by(returns, day).transpose();
    universe.close.row(day) = universe.close.row(day - 1) * returns.row(day).exp();
  }
  return universe;
}

void write_prices(const fs::path& path, const Panel& close) {
  std::ofstream file(path);
  file.precision(17);
  file << "date";
  for (Index i = 0; i < close.cols(); ++i)
    file << ",S" << 100 + i;
  Date date = *parse_date("2010-01-04");
  for (Index day = 0; day < close.rows(); ++day) {
    file << '\n' << date_text(date);
    for (Index i = 0; i < close.cols(); ++i)
      file << ',' << close(day, i);
    date += std::chrono::days(std::chrono::weekday(date) == std::chrono::Friday ? 3 : 1);
  }
  file << '\n';
}

// The correlation of the daily PnL of an evaluation with that of the oracle.
double likeness(const SearchOptions& options, const std::string& eval_id,
                const BacktestResult& oracle, const BookRules& book) {
  const auto found = open_run_store(options.database.string())->find_evaluation(eval_id);
  const Evaluator evaluator(read_price_file(options.prices), {.book = book});
  const Evaluation evaluation = evaluator.evaluate(read_json(found->evaluation.graph_json));
  return pearson_correlation(evaluation.backtest.net_returns, oracle.net_returns);
}

// With the spread of the trials in place of that of chance.
double confidence_by_spread(const RunLuck& luck) {
  if (!luck.best || luck.best->deflated_z == 0.0) return 0.0;
  const double year = std::sqrt(BookRules().periods_per_year);
  const double sharpe = luck.best->in_sample_sharpe / year;
  const double error = (sharpe - expected_maximum_sharpe(luck.spread)) / luck.best->deflated_z;
  const double z = (sharpe - expected_maximum_sharpe(luck.drawn)) / error;
  return normal_share((z + luck.best->holdout_z) / std::numbers::sqrt2);
}

struct Rates {
  int universes = 0;
  int better = 0;
  int deflated = 0;  // In sample alone.
  int by_spread = 0;
  int found = 0;
};

void search(const fs::path& folder, const Universe& universe, std::uint64_t seed,
            std::int64_t candidates, bool planted, Rates& rates) {
  BookRules book;
  book.delay_days = SearchOptions().delay_days;
  const BacktestResult oracle =
      backtest_weights(signal_weights(universe.signal), universe.close, book);
  const double sharpe = oracle.statistics.sharpe;
  if (planted && (sharpe < kLeastOracle || sharpe > kGreatestOracle)) return;
  SearchOptions options;
  options.prices = folder / "prices.csv";
  options.database = folder / ("runs-" + std::to_string(seed) + ".db");
  options.candidates = candidates;
  options.jobs = 1;
  options.seed = seed;
  options.periods_per_year = book.periods_per_year;
  options.neutralize = book.neutralize;
  options.config.vocabulary.simplify = false;
  options.config.vocabulary.units = false;
  write_prices(options.prices.named().front(), universe.close);
  SilentObserver observer;
  const InterruptFlag interrupt;
  const RunLuck luck = run_search(options, observer, interrupt).luck;
  const bool has_best = luck.best.has_value();
  const double alike =
      planted && has_best ? likeness(options, luck.best->eval_id, oracle, book) : 0.0;
  ++rates.universes;
  rates.better += luck.better_than_luck ? 1 : 0;
  rates.deflated += has_best && luck.deflated_sharpe >= kBetterThanLuck ? 1 : 0;
  const double by_spread = confidence_by_spread(luck);
  rates.by_spread += by_spread >= kBetterThanLuck ? 1 : 0;
  rates.found += alike >= kFound ? 1 : 0;
  std::printf(
      "seed %llu trials %lld as %.0f chance %.2f best %.2f holdout %.2f deflated %.3f confidence "
      "%.3f spread %.3f overfitting %.2f oracle %.2f alike %.2f %s\n",
      static_cast<unsigned long long>(seed), static_cast<long long>(luck.spread.trials),
      luck.spread.independent, luck.expected_maximum_sharpe,
      has_best ? luck.best->in_sample_sharpe : 0.0, has_best ? luck.best->holdout_sharpe : 0.0,
      luck.deflated_sharpe, luck.confidence, by_spread, luck.overfitting_probability.value_or(-1.0),
      sharpe, alike, luck.better_than_luck ? "better than luck" : "luck");
  std::fflush(stdout);
  fs::remove(options.database);
}

int run(bool planted, int universes, std::int64_t candidates, std::uint64_t first_seed) {
  const fs::path folder = fs::temp_directory_path() / ("bench-luck-" + std::to_string(::getpid()));
  fs::create_directories(folder);
  Rates rates;
  for (std::uint64_t seed = first_seed; rates.universes < universes; ++seed)
    search(folder, make_universe(seed, planted ? kEffect : 0.0), seed, candidates, planted, rates);
  fs::remove_all(folder);
  std::printf(
      "%d %s universes: better than luck %d, deflated in sample alone %d, by spread %d, "
      "effect found %d\n",
      rates.universes, planted ? "planted" : "noise", rates.better, rates.deflated, rates.by_spread,
      rates.found);
  return 0;
}

}  // namespace
}  // namespace varnholt::embedded

int main(int count, char** arguments) {
  const std::string kind = count > 1 ? arguments[1] : "";
  if (count < 3 || (kind != "noise" && kind != "planted")) {
    std::fputs("usage: bench_luck noise|planted UNIVERSES [CANDIDATES] [FIRST-SEED]\n", stderr);
    return 2;
  }
  try {
    return varnholt::embedded::run(kind == "planted", std::atoi(arguments[2]),
                                   count > 3 ? std::atoll(arguments[3]) : 300,
                                   count > 4 ? std::strtoull(arguments[4], nullptr, 10) : 1);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_luck: %s\n", error.what());
    return 1;
  }
}
