// What chance reaches in many trials: the formulas on numbers worked out by hand, and on draws of
// which the answer is known.
#include "hosts/embedded/luck/deflated_sharpe.hpp"

#include <cmath>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;
using Eigen::ArrayXXd;

ArrayXXd independent_columns(Eigen::Index days, Eigen::Index trials) {
  std::mt19937_64 generator(3);
  std::normal_distribution<double> normal;
  ArrayXXd values(days, trials);
  for (double& value : values.reshaped())
    value = normal(generator);
  return values;
}

TEST(NormalDistribution, HasItsKnownShares) {
  EXPECT_NEAR(normal_share(0.0), 0.5, 1e-15);
  EXPECT_NEAR(normal_share(1.959963984540054), 0.975, 1e-14);
  EXPECT_NEAR(normal_share(-6.361340902404056), 1e-10, 1e-15);
}

TEST(DeflatedSharpe, TheLargestOfManyIsThatOfDraws) {
  TrialSpread spread;
  spread.deviation = 1.0;
  spread.independent = 100.0;
  // The mean of the largest of 100 normal numbers is 2.508, that of 1,000 is 3.241.
  EXPECT_NEAR(expected_maximum_sharpe(spread), 2.508, 0.03);
  spread.independent = 1000.0;
  EXPECT_NEAR(expected_maximum_sharpe(spread), 3.241, 0.03);
  spread.mean = 0.5;
  spread.deviation = 2.0;
  EXPECT_NEAR(expected_maximum_sharpe(spread), 0.5 + 2.0 * 3.241, 0.06);
  spread.independent = 1.0;
  EXPECT_EQ(expected_maximum_sharpe(spread), 0.5) << "one trial has nothing to choose from";
  spread.independent = 0.0;
  EXPECT_EQ(expected_maximum_sharpe(spread), 0.5);
}

TEST(DeflatedSharpe, TheSpreadIsThatOfTheMiddleHalf) {
  // 100 values, a tenth of them far above: the quartiles stay where they were.
  std::vector<double> sharpes;
  for (int i = 0; i < 100; ++i)
    sharpes.push_back(i < 90 ? 0.01 * (i - 45) : 50.0);
  const TrialSpread spread = spread_of_drawn(sharpes);
  EXPECT_NEAR(spread.mean, 0.045, 1e-12);
  EXPECT_NEAR(spread.deviation, 0.495 / 1.3489795, 1e-6);
  const TrialSpread few = spread_of_drawn({-0.2, 0.2});
  EXPECT_EQ(few.mean, 0.0) << "too few to tell";
  EXPECT_EQ(few.deviation, 0.0);
}

TEST(DeflatedSharpe, WithoutSkillThereIsTheStandardError) {
  EXPECT_EQ(spread_without_skill(101).mean, 0.0);
  EXPECT_NEAR(spread_without_skill(101).deviation, 0.1, 1e-15);
  EXPECT_TRUE(std::isfinite(spread_without_skill(0).deviation));
}

TEST(DeflatedSharpe, TrialsCountByHowUnlikeTheyAre) {
  const ArrayXXd unlike = independent_columns(2000, 20);
  EXPECT_NEAR(independent_trials(unlike, 1000), 1000.0, 25.0);
  ArrayXXd alike(50, 3);
  alike.col(0) = unlike.col(0).head(50);
  alike.col(1) = 2.0 * alike.col(0);
  alike.col(2) = -alike.col(0);  // The opposite of a signal is the same trial.
  EXPECT_NEAR(independent_trials(alike, 1000), 1.0, 1e-6);
  // One of three pairs is alike; the column without any spread does not count.
  ArrayXXd mixed(4, 4);
  mixed << 1, 1, 1, 0,  //
      -1, -1, 1, 0,     //
      1, 1, -1, 0,      //
      -1, -1, -1, 0;
  EXPECT_NEAR(independent_trials(mixed, 10), 1.0 / 3.0 + 2.0 / 3.0 * 10.0, 1e-9);
  EXPECT_EQ(independent_trials(ArrayXXd::Zero(50, 1), 7), 7.0);
  EXPECT_EQ(independent_trials(ArrayXXd(50, 0), 7), 7.0);
}

TEST(DeflatedSharpe, TheErrorKnowsSkewAndTails) {
  // Of 1, 1, 1, -1: the mean is 0.5, the deviation 1, g3 = -0.75, g4 = 1.3125.
  ArrayXd returns(4);
  returns << 1, 1, 1, -1;
  const SharpeEstimate estimate = sharpe_estimate(returns);
  EXPECT_NEAR(estimate.sharpe, 0.5, 1e-12);
  const double variance = 1.0 + 0.75 * 0.5 + 0.3125 / 4.0 * 0.25;
  EXPECT_NEAR(estimate.error, std::sqrt(variance / 3.0), 1e-12);
  EXPECT_NEAR(estimate.z_value(0.25), 0.25 / estimate.error, 1e-12);
  EXPECT_EQ(sharpe_estimate(ArrayXd::Zero(10)).z_value(0.0), 0.0);
  EXPECT_EQ(sharpe_estimate(ArrayXd::Zero(0)).error, 0.0);
}

TEST(DeflatedSharpe, IsRightOfTheExampleOfItsAuthors) {
  // Five years of daily returns, 2.5 a year with skewness -3 and kurtosis 10, chosen among 100
  // trials whose yearly Sharpe ratios have a variance of 1/2: the paper tells a benchmark of 0.1132
  // a day and a deflated Sharpe ratio of 0.9004.
  TrialSpread spread;
  spread.independent = 100.0;
  spread.deviation = std::sqrt(0.5 / 250.0);
  const double benchmark = expected_maximum_sharpe(spread);
  EXPECT_NEAR(benchmark, 0.1132, 1e-4);
  const double sharpe = 2.5 / std::sqrt(250.0);
  const double variance = 1.0 + 3.0 * sharpe + (10.0 - 1.0) / 4.0 * sharpe * sharpe;
  const SharpeEstimate estimate{sharpe, std::sqrt(variance / 1249.0)};
  EXPECT_NEAR(normal_share(estimate.z_value(benchmark)), 0.9004, 1e-3);
}

}  // namespace
}  // namespace varnholt::embedded::test
