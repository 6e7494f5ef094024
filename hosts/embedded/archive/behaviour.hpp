// What a signal does, in a few numbers: enough to tell whether two signals are alike.
#pragma once

#include <optional>

#include <Eigen/Core>

#include "hosts/embedded/backtest/statistics.hpp"

namespace varnholt::embedded {

// So many parts do the days fall into. The correlation of two profiles estimates that of the daily
// PnL with a standard error of about 1 / sqrt(64) for independent days.
inline constexpr Eigen::Index kProfileParts = 64;

struct Behaviour {
  // What the returns add beside the market: the annualised Sharpe ratio of r(t) - beta market(t),
  // with beta the covariance of the two over the variance of the market.
  double residual_sharpe = 0.0;
  // The sums of these residuals over the parts of the days, all but the last of equal length, with
  // their mean taken off and of length one: the product of two profiles is their correlation.
  Eigen::ArrayXd profile;

  [[nodiscard]] double likeness(const Behaviour& other) const {
    return (profile * other.profile).sum();
  }
};

// Of daily returns beside those of the market. Nothing where the two have not as many days, or
// fewer than there are parts, and where nothing is left beside the market.
[[nodiscard]] std::optional<Behaviour> behaviour_of(const Eigen::ArrayXd& returns,
                                                    const Eigen::ArrayXd& market_returns,
                                                    double periods_per_year);

// The returns by which a signal is judged as something to breed from, with this share of its costs
// taken off. What it tells counts for more than what trading it costs: averaged over a few days, a
// signal that turns over too fast keeps most of the one and loses most of the other.
inline constexpr double kCostsOfMaterial = 0.25;
[[nodiscard]] Eigen::ArrayXd returns_as_material(const BacktestResult& backtest);

}  // namespace varnholt::embedded
