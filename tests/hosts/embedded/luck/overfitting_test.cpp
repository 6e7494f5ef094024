// Backtest overfitting: trials of which it is known whether the best of one half stays the best.
#include "hosts/embedded/luck/overfitting.hpp"

#include <random>

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXXd;
using Eigen::Index;

ArrayXXd noise(Index days, Index trials, unsigned seed) {
  std::mt19937_64 generator(seed);
  std::normal_distribution<double> normal;
  ArrayXXd values(days, trials);
  for (double& value : values.reshaped())
    value = normal(generator);
  return values;
}

TEST(Overfitting, IsNoneWhereOneTrialIsBetterEverywhere) {
  ArrayXXd returns = noise(320, 10, 1);
  returns.col(4) += 3.0;
  EXPECT_EQ(overfitting_probability(returns), 0.0);
}

TEST(Overfitting, IsTheRuleWhereWhatIsGoodOnceIsBadElsewhere) {
  // Each of eight trials gains in two blocks of days only: what gained most on the one half has
  // least left for the other.
  ArrayXXd returns = 0.01 * noise(160, 8, 2);
  for (Index trial = 0; trial < 8; ++trial)
    returns.col(trial).segment(20 * trial, 20) += 1.0;
  EXPECT_GT(overfitting_probability(returns).value(), 0.9);
}

TEST(Overfitting, IsAboutAHalfOfNoise) {
  double total = 0.0;
  for (unsigned seed = 0; seed < 12; ++seed)
    total += overfitting_probability(noise(320, 20, seed)).value();
  EXPECT_NEAR(total / 12.0, 0.5, 0.15);
}

TEST(Overfitting, EqualTrialsShareTheMiddle) {
  EXPECT_EQ(overfitting_probability(ArrayXXd::Constant(64, 5, 0.5)), 1.0);
}

TEST(Overfitting, NeedsTwoTrialsAndTwoDaysABlock) {
  EXPECT_FALSE(overfitting_probability(noise(320, 1, 1)).has_value());
  EXPECT_FALSE(overfitting_probability(noise(31, 5, 1)).has_value());
  EXPECT_TRUE(overfitting_probability(noise(32, 5, 1)).has_value());
  // What does not fill a block, at the beginning, makes no difference.
  ArrayXXd longer = noise(47, 5, 1);
  const ArrayXXd shorter = longer.bottomRows(32);
  longer.topRows(15).setConstant(9.0);
  EXPECT_EQ(overfitting_probability(longer), overfitting_probability(shorter));
}

}  // namespace
}  // namespace varnholt::embedded::test
