#include "hosts/embedded/luck/verdict.hpp"

#include <numbers>

#include "hosts/embedded/backtest/return_series.hpp"

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXd;

constexpr std::size_t kLeastSignals = 3;

std::optional<double> correlation(const ArrayXd& left, const ArrayXd& right) {
  const double spreads = sample_deviation(left) * sample_deviation(right);
  if (!(spreads > 0.0)) return std::nullopt;
  return ordered_sum((left - mean_of(left)) * (right - mean_of(right))) /
         static_cast<double>(left.size() - 1) / spreads;
}

}  // namespace

RunLuck judged(RunLuck luck, const std::vector<JudgedSignal>& signals) {
  luck.signals = static_cast<std::int64_t>(signals.size());
  if (signals.empty()) return luck;
  ArrayXd in_sample(luck.signals);
  ArrayXd holdout(luck.signals);
  for (std::size_t i = 0; i < signals.size(); ++i) {
    in_sample(static_cast<Eigen::Index>(i)) = signals[i].in_sample_sharpe;
    holdout(static_cast<Eigen::Index>(i)) = signals[i].holdout_sharpe;
    // Of equal ones the earlier.
    if (!luck.best || signals[i].in_sample_sharpe > luck.best->in_sample_sharpe)
      luck.best = signals[i];
  }
  luck.mean_in_sample_sharpe = mean_of(in_sample);
  luck.mean_holdout_sharpe = mean_of(holdout);
  if (signals.size() >= kLeastSignals) luck.sample_correlation = correlation(in_sample, holdout);
  luck.deflated_sharpe = normal_share(luck.best->deflated_z);
  luck.confidence =
      normal_share((luck.best->deflated_z + luck.best->holdout_z) / std::numbers::sqrt2);
  luck.better_than_luck = luck.confidence >= kBetterThanLuck;
  return luck;
}

}  // namespace varnholt::embedded
