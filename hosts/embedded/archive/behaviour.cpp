#include "hosts/embedded/archive/behaviour.hpp"

#include <cmath>

#include "hosts/embedded/backtest/return_series.hpp"

namespace varnholt::embedded {

using Eigen::ArrayXd;
using Eigen::Index;

namespace {

ArrayXd beside_market(const ArrayXd& returns, const ArrayXd& market_returns) {
  const ArrayXd market = market_returns - mean_of(market_returns);
  const double variance = ordered_sum(market.square());
  if (variance == 0.0) return returns;
  const double beta = ordered_sum(market * (returns - mean_of(returns))) / variance;
  return returns - beta * market_returns;
}

ArrayXd sums_of_parts(const ArrayXd& values) {
  const Index days = values.size() / kProfileParts;
  ArrayXd sums(kProfileParts);
  for (Index part = 0; part < kProfileParts; ++part) {
    const Index first = part * days;
    const Index count = part + 1 == kProfileParts ? values.size() - first : days;
    sums(part) = ordered_sum(values.segment(first, count));
  }
  return sums;
}

}  // namespace

std::optional<Behaviour> behaviour_of(const ArrayXd& returns, const ArrayXd& market_returns,
                                      double periods_per_year) {
  const bool is_comparable = returns.size() == market_returns.size();
  if (!is_comparable || returns.size() < kProfileParts) return std::nullopt;
  const ArrayXd residual = beside_market(returns, market_returns);
  const double deviation = sample_deviation(residual);
  ArrayXd profile = sums_of_parts(residual);
  profile -= mean_of(profile);
  const double length = std::sqrt(ordered_sum(profile.square()));
  if (deviation == 0.0 || length == 0.0) return std::nullopt;
  return Behaviour{std::sqrt(periods_per_year) * mean_of(residual) / deviation, profile / length};
}

ArrayXd returns_as_material(const BacktestResult& backtest) {
  const ArrayXd costs = backtest.gross_returns - backtest.net_returns;
  return backtest.gross_returns - kCostsOfMaterial * costs;
}

}  // namespace varnholt::embedded
