// What a signal does beside the market. Method: returns made of the market and of known residuals.
#include "hosts/embedded/archive/behaviour.hpp"

#include <cmath>
#include <random>

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;

ArrayXd normal_series(Eigen::Index days, unsigned seed) {
  std::mt19937_64 generator(seed);
  std::normal_distribution<double> normal;
  ArrayXd values(days);
  for (double& value : values)
    value = normal(generator);
  return values;
}

const ArrayXd kMarket = 0.01 * normal_series(1000, 1);
const ArrayXd kOwn = 0.01 * normal_series(1000, 2) + 0.001;

TEST(Behaviour, TheMarketCountsNothing) {
  const auto alone = behaviour_of(kOwn, kMarket, 252.0);
  const auto with_market = behaviour_of(kOwn + 3.0 * kMarket, kMarket, 252.0);
  ASSERT_TRUE(alone && with_market);
  EXPECT_NEAR(alone->residual_sharpe, with_market->residual_sharpe, 1e-9);
  EXPECT_NEAR(alone->likeness(*with_market), 1.0, 1e-9);
  EXPECT_FALSE(behaviour_of(2.0 * kMarket, kMarket, 252.0)) << "nothing is left";
}

TEST(Behaviour, TheSharpeRatioIsThatOfTheResidual) {
  const ArrayXd nothing = ArrayXd::Zero(1000);
  const double deviation = std::sqrt((kOwn - kOwn.mean()).square().sum() / 999.0);
  EXPECT_NEAR(behaviour_of(kOwn, nothing, 252.0)->residual_sharpe,
              std::sqrt(252.0) * kOwn.mean() / deviation, 1e-9);
}

TEST(Behaviour, LikenessIsTheCorrelationOfTheParts) {
  const auto own = behaviour_of(kOwn, kMarket, 252.0);
  EXPECT_NEAR(own->likeness(*own), 1.0, 1e-12);
  EXPECT_NEAR(own->likeness(*behaviour_of(-kOwn, kMarket, 252.0)), -1.0, 1e-12);
  const auto other = behaviour_of(0.01 * normal_series(1000, 3), kMarket, 252.0);
  EXPECT_LT(std::abs(own->likeness(*other)), 0.4);
  // Half of the variance in common.
  const auto related = behaviour_of(kOwn + 0.01 * normal_series(1000, 4), kMarket, 252.0);
  EXPECT_NEAR(own->likeness(*related), std::sqrt(0.5), 0.2);
}

TEST(Behaviour, AsMaterialASignalBearsAQuarterOfItsCosts) {
  BacktestResult backtest;
  backtest.gross_returns = kOwn;
  backtest.net_returns = kOwn - 0.004;
  EXPECT_TRUE(returns_as_material(backtest).isApprox(kOwn - 0.001, 1e-12));
}

TEST(Behaviour, NeedsDaysToCompare) {
  EXPECT_FALSE(behaviour_of(kOwn.head(kProfileParts - 1), kMarket.head(kProfileParts - 1), 252.0));
  EXPECT_TRUE(behaviour_of(kOwn.head(kProfileParts + 1), kMarket.head(kProfileParts + 1), 252.0));
  EXPECT_FALSE(behaviour_of(kOwn, kMarket.head(999), 252.0));
  EXPECT_FALSE(behaviour_of(ArrayXd::Zero(1000), kMarket, 252.0));
}

}  // namespace
}  // namespace varnholt::embedded::test
