// What a signal does, in a few numbers: enough to tell whether two signals are alike.
#pragma once

#include <optional>

#include <Eigen/Core>

namespace varnholt::embedded {

// So many parts do the days fall into. The correlation of two profiles estimates that of the daily
// PnL with a standard error of about 1 / sqrt(64) for independent days.
inline constexpr Eigen::Index kProfileParts = 64;

struct Behaviour {
  // What the signal adds beside the market: the annualised Sharpe ratio of net(t) - beta market(t),
  // with beta the covariance of the two over the variance of the market.
  double residual_sharpe = 0.0;
  // The sums of these residuals over the parts of the days, all but the last of equal length, with
  // their mean taken off and of length one: the product of two profiles is their correlation.
  Eigen::ArrayXd profile;

  [[nodiscard]] double likeness(const Behaviour& other) const {
    return (profile * other.profile).sum();
  }
};

// Of daily net returns beside those of the market. Nothing where the two have not as many days, or
// fewer than there are parts, and where nothing is left beside the market.
[[nodiscard]] std::optional<Behaviour> behaviour_of(const Eigen::ArrayXd& net_returns,
                                                    const Eigen::ArrayXd& market_returns,
                                                    double periods_per_year);

}  // namespace varnholt::embedded
