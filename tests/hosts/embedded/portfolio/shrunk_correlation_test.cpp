// Goal: correlations are shrunk by as much as the formula says.
// Method: the formula with its sums written out, on random PnL of several lengths; and two cases
// whose answer is plain.
#include "hosts/embedded/portfolio/shrunk_correlation.hpp"

#include <algorithm>
#include <limits>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

using Eigen::Index;
using Eigen::MatrixXd;

// Noise with a part that all signals have in common.
MatrixXd random_pnl(std::uint64_t seed, Index days, Index signals, double common) {
  std::mt19937_64 engine(seed);
  std::normal_distribution<double> draw;
  MatrixXd pnl(days, signals);
  for (Index day = 0; day < days; ++day) {
    const double shared = draw(engine);
    for (Index i = 0; i < signals; ++i)
      pnl(day, i) = 0.01 * static_cast<double>(i + 1) * (common * shared + draw(engine)) + 0.001;
  }
  return pnl;
}

struct Naive {
  MatrixXd correlation;
  double shrinkage;
};

Naive naive(const MatrixXd& x) {
  const auto n = static_cast<double>(x.rows());
  MatrixXd s = MatrixXd::Zero(x.cols(), x.cols());
  for (Index t = 0; t < x.rows(); ++t)
    s += x.row(t).transpose() * x.row(t) / n;
  double d = 0.0;
  double b = 0.0;
  for (Index i = 0; i < x.cols(); ++i) {
    for (Index j = 0; j < x.cols(); ++j) {
      const double off = s(i, j) - (i == j ? 1.0 : 0.0);
      d += off * off;
      for (Index t = 0; t < x.rows(); ++t) {
        const double away = x(t, i) * x(t, j) - s(i, j);
        b += away * away / (n * n);
      }
    }
  }
  const double shrinkage = std::min(b, d) / d;
  return {(1.0 - shrinkage) * s + shrinkage * MatrixXd::Identity(x.cols(), x.cols()), shrinkage};
}

TEST(ShrunkCorrelation, IsThatOfTheFormula) {
  for (const Index days : {10, 60, 500}) {
    for (const double common : {0.0, 0.5, 2.0}) {
      const MatrixXd x = standardised(random_pnl(7, days, 6, common));
      const ShrunkCorrelation shrunk = shrunk_correlation(x);
      const Naive expected = naive(x);
      EXPECT_NEAR(shrunk.shrinkage, expected.shrinkage, 1e-9) << days << " " << common;
      EXPECT_LT((shrunk.correlation - expected.correlation).cwiseAbs().maxCoeff(), 1e-9);
      EXPECT_TRUE((shrunk.correlation.diagonal().array() - 1.0).abs().maxCoeff() < 1e-12);
    }
  }
}

TEST(ShrunkCorrelation, KeepsWhatManyDaysTellAndLittleOfWhatFewDo) {
  const auto shrinkage = [](Index days, double common) {
    return shrunk_correlation(standardised(random_pnl(3, days, 6, common))).shrinkage;
  };
  EXPECT_LT(shrinkage(5000, 1.0), 0.01);
  EXPECT_GT(shrinkage(20, 1.0), shrinkage(200, 1.0));
  EXPECT_GT(shrinkage(500, 0.0), 0.5) << "noise is no correlation";
}

TEST(ShrunkCorrelation, OfOneSignalIsOne) {
  const ShrunkCorrelation shrunk = shrunk_correlation(standardised(random_pnl(3, 50, 1, 0.0)));
  EXPECT_EQ(shrunk.correlation(0, 0), 1.0);
}

TEST(ShrunkCorrelation, StandardisesToNoMeanAndUnitVariance) {
  const MatrixXd x = standardised(random_pnl(5, 300, 4, 0.5));
  EXPECT_LT(x.colwise().mean().cwiseAbs().maxCoeff(), 1e-12);
  EXPECT_LT((x.colwise().squaredNorm().array() / 300.0 - 1.0).abs().maxCoeff(), 1e-12);
}

TEST(ShrunkCorrelation, RefusesWhatHasNoCorrelation) {
  EXPECT_THROW((void)standardised(MatrixXd::Ones(1, 2)), std::invalid_argument);
  MatrixXd pnl = random_pnl(5, 30, 2, 0.5);
  pnl.col(1).setConstant(0.1);
  EXPECT_THROW((void)standardised(pnl), std::invalid_argument);
  pnl(3, 1) = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW((void)standardised(pnl), std::invalid_argument);
}

}  // namespace
}  // namespace varnholt::embedded::test
