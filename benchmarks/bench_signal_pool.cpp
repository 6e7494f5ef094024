// What it costs to compare a signal with its signal pool, by the number of members.
//
// - Independent: noise. Alike: members share the volatility of their market and a part of its
//   moves, as signals over the same prices do.
// - New: a signal that passes, so that each member is asked. Refused: it is nearly one of the
//   members.
// - From scratch: each pair by its definition, until one is enough; what the pool did before it
//   kept its members in one matrix.
//
// The members of a pool of 1,000 begin with those of the pool of 10. The goal is at most three
// times the cost of 10. Processor time; the sizes are run in turns, so that a busy machine slows
// all alike.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <Eigen/Core>
#include <benchmark/benchmark.h>

#include "hosts/embedded/signal_pool/comparison.hpp"
#include "hosts/embedded/signal_pool/pnl_measures.hpp"

namespace {

using Eigen::ArrayXd;
using varnholt::embedded::kDefaultMinNovelty;
using varnholt::embedded::MemberComparison;
using varnholt::embedded::MemberSeries;
using varnholt::embedded::PoolComparison;
using varnholt::embedded::PoolMeasure;

constexpr Eigen::Index kDays = 2450;
constexpr std::size_t kFew = 10;
constexpr std::size_t kMany = 1000;
constexpr std::size_t kSignals = 8;
constexpr double kNanosecond = 1e-9;
constexpr double kInMilliseconds = 1e3;

double processor_seconds() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * kNanosecond;
}

ArrayXd noise(std::mt19937_64& generator) {
  std::normal_distribution<double> draw;
  ArrayXd series(kDays);
  for (double& value : series)
    value = draw(generator);
  return series;
}

struct Market {
  ArrayXd volatility = ArrayXd::Ones(kDays);
  ArrayXd moves = ArrayXd::Zero(kDays);
  double share = 0.0;

  [[nodiscard]] ArrayXd signal(std::mt19937_64& generator) const {
    std::uniform_real_distribution<double> part(-share, share);
    const double own = part(generator);
    return 0.01 * volatility * (own * moves + std::sqrt(1.0 - own * own) * noise(generator));
  }
};

Market market_of(bool alike, std::mt19937_64& generator) {
  if (!alike) return {};
  constexpr double kVolatilityScatter = 0.6;
  constexpr double kMostOfMarket = 0.7;
  return {(kVolatilityScatter * noise(generator)).exp(), noise(generator), kMostOfMarket};
}

struct World {
  std::vector<ArrayXd> members;
  MemberSeries few{kDays};
  MemberSeries many{kDays};
  std::vector<ArrayXd> signals;
};

World world_of(bool alike, bool refused) {
  std::mt19937_64 generator(1);
  const Market market = market_of(alike, generator);
  World world;
  for (std::size_t i = 0; i < kMany; ++i) {
    world.members.push_back(market.signal(generator));
    world.many.append(world.members.back());
    if (i < kFew) world.few.append(world.members.back());
  }
  for (std::size_t i = 0; i < kSignals; ++i) {
    ArrayXd signal = market.signal(generator);
    if (refused) signal = world.members[i % kFew] + 0.2 * signal;
    world.signals.push_back(std::move(signal));
  }
  return world;
}

PoolMeasure compared(const MemberSeries& members, const ArrayXd& signal) {
  const std::string name = "1-1";
  PoolComparison comparison;
  std::vector<std::size_t> rows(members.size());
  std::iota(rows.begin(), rows.end(), std::size_t{0});
  MemberComparison(members, [&](std::size_t) -> const std::string& {
    return name;
  }).add(signal, rows, kDefaultMinNovelty, comparison);
  return comparison.measure;
}

double novelty_from_scratch(const std::vector<ArrayXd>& members, std::size_t count,
                            const ArrayXd& signal) {
  std::vector<std::pair<double, std::size_t>> order;
  for (std::size_t i = 0; i < count; ++i)
    order.emplace_back(-std::abs(varnholt::embedded::pearson_correlation(signal, members[i])), i);
  std::sort(order.begin(), order.end());
  double novelty = 1.0;
  for (const auto& [opposite_correlation, i] : order) {
    novelty = std::min(novelty, varnholt::embedded::novelty_of(
                                    varnholt::embedded::mutual_information(signal, members[i])));
    if (novelty < kDefaultMinNovelty) break;
  }
  return novelty;
}

template <typename Work>
double seconds_of(const Work& work) {
  const double start = processor_seconds();
  work();
  return processor_seconds() - start;
}

void compare_sizes(benchmark::State& state) {
  const World world = world_of(state.range(0) != 0, state.range(1) != 0);
  double few = 0.0;
  double many = 0.0;
  double passing = 0.0;
  double comparisons = 0.0;
  std::size_t turn = 0;
  for (auto _ : state) {
    const ArrayXd& signal = world.signals[turn++ % kSignals];
    few += seconds_of([&] { benchmark::DoNotOptimize(compared(world.few, signal)); });
    many += seconds_of(
        [&] { passing += compared(world.many, signal).novelty >= kDefaultMinNovelty ? 1.0 : 0.0; });
    ++comparisons;
  }
  state.counters["ms_10"] = few / comparisons * kInMilliseconds;
  state.counters["ms_1000"] = many / comparisons * kInMilliseconds;
  state.counters["ratio"] = many / few;
  state.counters["passing"] = passing / comparisons;
  // A quarter of the members, since one such comparison takes a second.
  constexpr std::size_t kSome = kMany / 4;
  state.counters["scratch_ms_10"] =
      seconds_of([&] { novelty_from_scratch(world.members, kFew, world.signals[0]); }) *
      kInMilliseconds;
  state.counters["scratch_ms_250"] =
      seconds_of([&] { novelty_from_scratch(world.members, kSome, world.signals[0]); }) *
      kInMilliseconds;
}

BENCHMARK(compare_sizes)
    ->ArgNames({"alike", "refused"})
    ->Args({0, 0})
    ->Args({0, 1})
    ->Args({1, 0})
    ->Args({1, 1})
    ->Iterations(2 * kSignals)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
