// Goal: shares solve what their method asks for, whatever the scale of a signal.
// Method: the conditions of the optimum on random PnL; two signals whose shares are known.
#include "hosts/embedded/portfolio/book_shares.hpp"

#include <cmath>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>

#include "hosts/embedded/portfolio/shrunk_correlation.hpp"

namespace varnholt::embedded::test {
namespace {

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

// Signals that share a factor, of which the i-th is i times as loud; all earn something.
MatrixXd random_pnl(std::uint64_t seed, Index days, Index signals) {
  std::mt19937_64 engine(seed);
  std::normal_distribution<double> draw;
  MatrixXd pnl(days, signals);
  for (Index day = 0; day < days; ++day) {
    const double shared = draw(engine);
    for (Index i = 0; i < signals; ++i) {
      const double loudness = 0.001 * static_cast<double>(i + 1);
      pnl(day, i) = loudness * (0.05 + 0.2 * static_cast<double>(i) * shared + draw(engine));
    }
  }
  return pnl;
}

VectorXd deviations_of(const MatrixXd& pnl) {
  return ((pnl.rowwise() - pnl.colwise().mean()).colwise().squaredNorm() /
          static_cast<double>(pnl.rows()))
      .cwiseSqrt();
}

TEST(BookShares, AddUpToTheCapital) {
  for (const BookMethodName& row : book_methods()) {
    const BookShares book = book_shares(random_pnl(1, 700, 8), row.method);
    EXPECT_NEAR(book.shares.sum(), 1.0, 1e-12) << row.name;
    EXPECT_NEAR(book.risks.sum(), 1.0, 1e-12) << row.name;
    EXPECT_GE(book.shares.minCoeff(), 0.0) << row.name;
    EXPECT_EQ(&name_of(row.method), &row);
  }
}

TEST(BookShares, EqualRiskGivesEachTheSameRisk) {
  const BookShares book = book_shares(random_pnl(2, 700, 8), BookMethod::EqualRisk);
  EXPECT_LT((book.risks.array() - 1.0 / 8.0).abs().maxCoeff(), 1e-9);
  EXPECT_GT(book.shares(0), 3.0 * book.shares(7)) << "a loud signal gets little capital";
  // Of two signals the shares are as their deviations the other way round.
  const MatrixXd two = random_pnl(3, 300, 2);
  const VectorXd deviations = deviations_of(two);
  const BookShares pair = book_shares(two, BookMethod::EqualRisk);
  EXPECT_NEAR(pair.shares(0) / pair.shares(1), deviations(1) / deviations(0), 1e-9);
}

TEST(BookShares, EqualGivesEachTheSameCapital) {
  const BookShares book = book_shares(random_pnl(2, 700, 4), BookMethod::Equal);
  EXPECT_LT((book.shares.array() - 0.25).abs().maxCoeff(), 1e-15);
  EXPECT_GT(book.risks(3), 0.4) << "and a loud one most of the risk";
}

TEST(BookShares, RidgeIsTheOptimumOfItsFormula) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    MatrixXd pnl = random_pnl(seed, 400, 8);
    pnl.col(2).array() -= 0.002;  // One that loses.
    const VectorXd deviations = deviations_of(pnl);
    VectorXd means = pnl.colwise().mean().transpose().cwiseQuotient(deviations);
    means.array() -= luck_in(means, pnl.rows());
    MatrixXd a = shrunk_correlation(standardised(pnl)).correlation;
    a.diagonal().array() += 4.0;
    const BookShares book = book_shares(pnl, BookMethod::Ridge);
    VectorXd y = book.shares.cwiseProduct(deviations);
    // The shares say y up to its scale, which the optimum has where m'y = y'A y.
    y *= means.dot(y) / y.dot(a * y);
    const VectorXd gradient = means - a * y;
    for (Index i = 0; i < y.size(); ++i) {
      if (y(i) > 0.0) {
        EXPECT_NEAR(gradient(i), 0.0, 1e-9);
      } else {
        EXPECT_LE(gradient(i), 1e-9);
      }
    }
    EXPECT_EQ(book.shares(2), 0.0);
  }
}

TEST(BookShares, LuckIsTwoStandardErrorsAndNeverAllOfTheBest) {
  EXPECT_DOUBLE_EQ(luck_in(VectorXd::Constant(2, 0.4), 900), 2.0 / 30.0);
  EXPECT_DOUBLE_EQ(luck_in(VectorXd{{0.02, 0.08}}, 900), 0.06);
  EXPECT_EQ(luck_in(VectorXd{{-0.1, -0.2}}, 900), 0.0);
}

TEST(BookShares, RidgeHoldsNothingOfWhatLuckExplainsBesideWhatItDoesNot) {
  MatrixXd pnl = standardised(random_pnl(9, 900, 2));
  pnl.col(0).array() += 0.2;   // Six standard errors,
  pnl.col(1).array() += 0.06;  // and less than two.
  const BookShares book = book_shares(pnl, BookMethod::Ridge);
  EXPECT_EQ(book.shares(1), 0.0);
  EXPECT_DOUBLE_EQ(book.shares(0), 1.0);
}

TEST(BookShares, RidgeRefusesSignalsOfWhichNoneHasEarnedAnything) {
  const MatrixXd pnl = -random_pnl(4, 4000, 3);
  EXPECT_THROW((void)book_shares(pnl, BookMethod::Ridge), std::invalid_argument);
}

TEST(BookShares, TellTheMeanCorrelationOfAllPairs) {
  MatrixXd pnl = random_pnl(6, 500, 2);
  EXPECT_NEAR(book_shares(pnl, BookMethod::Equal).mean_correlation,
              standardised(pnl).col(0).dot(standardised(pnl).col(1)) / 500.0, 1e-12);
  pnl.col(1) = 3.0 * pnl.col(0);
  EXPECT_NEAR(book_shares(pnl, BookMethod::EqualRisk).mean_correlation, 1.0, 1e-12);
  EXPECT_EQ(book_shares(pnl.leftCols(1), BookMethod::EqualRisk).mean_correlation, 0.0);
}

}  // namespace
}  // namespace varnholt::embedded::test
