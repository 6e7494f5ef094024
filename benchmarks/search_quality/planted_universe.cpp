#include "benchmarks/search_quality/planted_universe.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <random>
#include <stdexcept>
#include <string>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"

namespace varnholt::embedded::search_quality {
namespace {

using Eigen::ArrayXd;
using Eigen::Index;

constexpr Index kSectors = 4;
constexpr double kDegrees = 5.0;
// How often the effect is measured on the prices that it has changed, and set anew.
constexpr int kRounds = 6;

constexpr std::array kEffects = std::to_array<Effect>({
    {"reversal", "-1 * cross_zscore(ts_mean(returns, 5))", true},
    {"momentum", "cross_zscore(ts_mean(returns, 60))", true},
    {"low_volatility", "-1 * cross_zscore(ts_std(returns, 20))", true},
    {"attention", "cross_zscore(volume / ts_mean(volume, 20))", true},
    {"close_in_range", "-1 * cross_demean(ts_mean((close - low) / (high - low), 3))", true},
    {"price_with_volume", "-1 * cross_zscore(ts_correlation(close, volume, 10))", true},
    {"overnight", "cross_rank(ts_mean((open - close) / close, 5)) - 0.5", true},
    {"scaled_reversal", "-1 * cross_zscore(ts_delta(close, 5) / ts_std(close, 20))", true},
    // No known formula is close to this one.
    {"volume_with_range", "cross_zscore(ts_correlation(range, volume, 15))", true},
    {"own_trend", "ts_zscore(close, 20)", false},
    {"own_reversal", "-1 * tanh(ts_zscore(returns, 10))", false},
});

// What chance gives, before any effect.
struct Noise {
  Panel returns;
  Panel overnight;  // The share of the return that is made before the open.
  Panel range;      // Beyond open and close, as a share of the price.
  Panel volume;     // Logarithms.
};

Noise make_noise(std::uint64_t seed, const UniverseShape& shape) {
  std::mt19937_64 generator(seed);
  std::student_t_distribution<double> heavy(kDegrees);
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> uniform;
  const double unit = std::sqrt((kDegrees - 2.0) / kDegrees);  // A standard deviation of one.
  const Index days = shape.days();
  const Index count = shape.instruments;
  Noise noise{Panel::Zero(days, count), Panel::Zero(days, count), Panel::Zero(days, count),
              Panel::Zero(days, count)};
  ArrayXd volatility(count);
  ArrayXd memory = ArrayXd::Zero(count);
  for (double& own : volatility)
    own = 0.010 + 0.015 * uniform(generator);
  for (Index day = 0; day < days; ++day) {
    const double market = 0.0003 + 0.008 * unit * heavy(generator);
    ArrayXd sectors(kSectors);
    for (double& sector : sectors)
      sector = 0.005 * unit * heavy(generator);
    for (Index i = 0; i < count; ++i) {
      const double own = volatility(i) * unit * heavy(generator);
      noise.returns(day, i) = market + sectors(i % kSectors) + own;
      noise.overnight(day, i) = 0.3 + 0.2 * normal(generator);
      noise.range(day, i) = volatility(i) * 0.5 * std::abs(normal(generator));
      memory(i) = 0.8 * memory(i) + 0.25 * normal(generator);
      noise.volume(day, i) = 14.0 + memory(i) + 8.0 * std::abs(own);
    }
  }
  return noise;
}

MarketData market_of(const Noise& noise, const Panel& returns) {
  const Index days = returns.rows();
  const Index count = returns.cols();
  MarketData data;
  Date date = *parse_date("2000-01-03");
  for (Index day = 0; day < days; ++day) {
    data.dates.push_back(date);
    date += std::chrono::days(std::chrono::weekday(date) == std::chrono::Friday ? 3 : 1);
  }
  for (Index i = 0; i < count; ++i)
    data.symbols.push_back("S" + std::to_string(100 + i));
  data.close.resize(days, count);
  Panel open(days, count);
  ArrayXd last = ArrayXd::Constant(count, 100.0);
  for (Index day = 0; day < days; ++day) {
    const ArrayXd returned = returns.row(day).transpose();
    const ArrayXd early = noise.overnight.row(day).transpose();
    open.row(day) = (last * (early * returned).exp()).transpose();
    last *= returned.exp();
    data.close.row(day) = last.transpose();
  }
  data.high = open.max(data.close) * (1.0 + noise.range);
  data.low = open.min(data.close) * (1.0 - 0.9 * noise.range.min(0.5));
  data.volume = noise.volume.exp().round();
  data.open = std::move(open);
  return data;
}

// Each day's mean square is one, so that the size of an effect is that of a day's return.
Panel scaled(const Panel& signal) {
  Panel values = signal.isFinite().select(signal, 0.0);
  for (Index day = 0; day < values.rows(); ++day) {
    const double size = std::sqrt(values.row(day).square().mean());
    if (size > 0.0) values.row(day) /= size;
  }
  return values;
}

}  // namespace

std::span<const Effect> effects() {
  return kEffects;
}

const Effect& effect_of(std::string_view name) {
  const auto effect = std::find_if(effects().begin(), effects().end(),
                                   [&name](const Effect& known) { return known.name == name; });
  if (effect != effects().end()) return *effect;
  throw std::invalid_argument("there is no effect " + std::string(name));
}

Universe plant(const Effect& effect, std::uint64_t seed, const UniverseShape& shape,
               const BookRules& rules) {
  std::mt19937_64 generator(seed ^ 0x9e3779b97f4a7c15U);
  const double wanted = 1.6 + 0.8 * std::uniform_real_distribution<double>()(generator);
  const Noise noise = make_noise(seed, shape);
  double size = 0.0005;
  Universe universe;
  Panel moves = Panel::Zero(shape.days(), shape.instruments);
  // The effect is told by prices that it has moved itself. Its moves are small beside the noise, so
  // that a few rounds settle both the signal and its size.
  for (int round = 0;; ++round) {
    universe.data = market_of(noise, noise.returns + moves);
    const Evaluator evaluator(universe.data, {.book = rules});
    const Panel signal =
        evaluator.signal(evaluator.compile(parse_formula(effect.formula, evaluator.vocabulary())));
    universe.oracle = evaluator.weights(signal);
    if (round == kRounds) return universe;
    if (round > 0) {
      const double sharpe =
          backtest_weights(universe.oracle, evaluator.close(), rules).statistics.sharpe;
      const double before =
          backtest_weights(universe.oracle, market_of(noise, noise.returns).close, rules)
              .statistics.sharpe;
      if (sharpe > before) size *= std::max(0.2, (wanted - before) / (sharpe - before));
    }
    const Index told = shape.days() - 2;
    moves.bottomRows(told) = size * scaled(signal).topRows(told);
  }
}

}  // namespace varnholt::embedded::search_quality
