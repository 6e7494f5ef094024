// The measures are right where a closed form is known, and keep their promises elsewhere. Method:
// Gaussian pairs against -ln(1 - rho^2) / 2, a slow reading of the estimator's definition, and
// series with ties, constants and curves.
#include "hosts/embedded/signal_pool/pnl_measures.hpp"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include <gtest/gtest.h>

#include "tests/hosts/embedded/signal_pool/pool_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;
using Eigen::Index;

constexpr double kEulerGamma = 0.577215664901532860606512;

TEST(PearsonCorrelation, OfSeriesWithAKnownOne) {
  const ArrayXd x{{1.0, 2.0, 3.0, 4.0}};
  EXPECT_DOUBLE_EQ(pearson_correlation(x, x), 1.0);
  EXPECT_DOUBLE_EQ(pearson_correlation(x, -3.0 * x + 7.0), -1.0);
  // By hand: 4 / sqrt(5 * 5).
  EXPECT_DOUBLE_EQ(pearson_correlation(x, ArrayXd{{1.0, 3.0, 2.0, 4.0}}), 0.8);
  EXPECT_DOUBLE_EQ(pearson_correlation(ArrayXd{{-1.0, 0.0, 1.0}}, ArrayXd{{1.0, 0.0, 1.0}}), 0.0);
}

TEST(PearsonCorrelation, OfAConstantSeriesIsNothing) {
  const ArrayXd x = normal_series(50, 1);
  for (const double constant : {0.0, 0.1, -3e300}) {
    EXPECT_EQ(pearson_correlation(x, ArrayXd::Constant(50, constant)), 0.0);
    EXPECT_EQ(pearson_correlation(ArrayXd::Constant(50, constant), x), 0.0);
  }
  EXPECT_EQ(pearson_correlation(ArrayXd(), ArrayXd()), 0.0);
}

TEST(PearsonCorrelation, IsSymmetricAndDoesNotDependOnScale) {
  const ArrayXd x = normal_series(200, 1);
  const ArrayXd y = correlated(x, 0.6, 2);
  const double rho = pearson_correlation(x, y);
  EXPECT_NEAR(rho, 0.6, 0.1);
  EXPECT_EQ(pearson_correlation(y, x), rho);
  for (const double scale : {1e-300, 1e-3, 1e300}) {
    EXPECT_NEAR(pearson_correlation(x * scale, y), rho, 1e-12) << scale;
  }
}

TEST(PearsonCorrelation, RefusesWhatCannotBeCompared) {
  ArrayXd x = normal_series(10, 1);
  EXPECT_THROW(static_cast<void>(pearson_correlation(x, normal_series(9, 1))),
               std::invalid_argument);
  x[3] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(static_cast<void>(pearson_correlation(x, normal_series(10, 1))),
               std::invalid_argument);
}

// The estimator as it is defined, with every distance looked at.
double slow_mutual_information(const NormalScores& x, const NormalScores& y, int k) {
  const Index n = x.size();
  const auto psi = [](Index m) {
    double sum = -kEulerGamma;
    for (Index j = 1; j < m; ++j)
      sum += 1.0 / static_cast<double>(j);
    return sum;
  };
  double total = 0.0;
  for (Index i = 0; i < n; ++i) {
    const ArrayXd dx = (x.by_day() - x.by_day()[i]).abs();
    const ArrayXd dy = (y.by_day() - y.by_day()[i]).abs();
    std::vector<double> distances;
    for (Index j = 0; j < n; ++j) {
      if (j != i) distances.push_back(std::max(dx[j], dy[j]));
    }
    std::sort(distances.begin(), distances.end());
    const double radius = distances[static_cast<std::size_t>(k - 1)];
    total += psi((dx < radius).count()) + psi((dy < radius).count());  // The day itself is the +1.
  }
  return psi(k) + psi(n) - total / static_cast<double>(n);
}

TEST(MutualInformation, IsWhatTheDefinitionSays) {
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    const Index days = 20 + 15 * static_cast<Index>(seed);
    const int k = 1 + static_cast<int>(seed % 7);
    ArrayXd x = normal_series(days, seed);
    ArrayXd y = correlated(x, 0.08 * static_cast<double>(seed), seed + 100);
    if (seed % 2 == 0) x = (x.abs() < 0.7).select(0.0, x);
    if (seed % 3 == 0) y = y.round();
    const NormalScores left(x);
    const NormalScores right(y);
    EXPECT_NEAR(mutual_information(left, right, k), slow_mutual_information(left, right, k), 1e-11);
  }
}

TEST(MutualInformation, IsWhatTheDefinitionSaysOfSeriesThatClusterAndOfAFewDays) {
  constexpr Index kManyDays = 700;
  for (const double rho : {0.0, -0.7, 0.97, 0.9999, 1.0}) {
    SCOPED_TRACE(rho);
    const ArrayXd x = normal_series(kManyDays, 3);
    const NormalScores left(x);
    const NormalScores right(correlated(x, rho, 4));
    EXPECT_NEAR(mutual_information(left, right), slow_mutual_information(left, right, kNeighbours),
                1e-11);
    // Two clusters in opposite corners, empty cells between them.
    const NormalScores split((x > 0.0).select(x + 50.0, x));
    EXPECT_NEAR(mutual_information(split, right),
                slow_mutual_information(split, right, kNeighbours), 1e-11);
  }
  for (Index days = 2; days <= 12; ++days) {
    SCOPED_TRACE(days);
    const NormalScores left(normal_series(days, 5));
    const NormalScores right(normal_series(days, 6));
    for (int k = 1; k < days; ++k) {
      EXPECT_NEAR(mutual_information(left, right, k), slow_mutual_information(left, right, k),
                  1e-11);
    }
  }
}

TEST(MutualInformation, OfGaussianPairsComesToTheClosedForm) {
  // By the correlation of the sample itself, the scatter of an estimate over 2,000 days is 0.01 and
  // its bias at most 0.02; the mean of four scatters half as much.
  for (const double rho : {0.0, 0.2, -0.4, 0.6, 0.8, -0.9, 0.95}) {
    double error = 0.0;
    for (std::uint64_t seed = 1; seed <= 4; ++seed) {
      const ArrayXd x = normal_series(2000, seed);
      const ArrayXd y = correlated(x, rho, seed + 50);
      const double own = pearson_correlation(x, y);
      error += (mutual_information(x, y) + 0.5 * std::log(1.0 - own * own)) / 4.0;
    }
    EXPECT_NEAR(error, 0.0, 0.035) << "rho " << rho;
  }
}

TEST(MutualInformation, OfIndependentSeriesIsNextToNothing) {
  const ArrayXd normal = normal_series(2000, 1);
  const ArrayXd other = normal_series(2000, 2);
  EXPECT_NEAR(mutual_information(normal, other), 0.0, 0.03);
  EXPECT_NEAR(mutual_information(normal, other.exp()), 0.0, 0.03);
  EXPECT_NEAR(mutual_information(normal.cube(), other.abs()), 0.0, 0.03);
}

TEST(MutualInformation, SeesACurveThatCorrelationMisses) {
  const ArrayXd x = normal_series(1500, 3);
  const ArrayXd y = x.square() + 0.3 * normal_series(1500, 4);
  EXPECT_LT(std::abs(pearson_correlation(x, y)), 0.15);
  EXPECT_GT(mutual_information(x, y), 0.8);
}

TEST(MutualInformation, DaysWithoutAPositionMakeNoLikenessOfTheirOwn) {
  // Nine days of ten are 0 in both, independently: tied days must not count as telling much.
  const ArrayXd x = (normal_series(1500, 5) > 1.28).select(normal_series(1500, 6), 0.0);
  const ArrayXd y = (normal_series(1500, 7) > 1.28).select(normal_series(1500, 8), 0.0);
  EXPECT_NEAR(mutual_information(x, y), 0.0, 0.03);
  // On the same days, though of independent size, they do tell something: who trades when.
  const ArrayXd z = (normal_series(1500, 5) > 1.28).select(normal_series(1500, 8), 0.0);
  EXPECT_GT(mutual_information(x, z), 0.1);
}

TEST(MutualInformation, IsSymmetric) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    ArrayXd x = normal_series(300, seed);
    const ArrayXd y = correlated(x, 0.5, seed + 10);
    x = (x.abs() < 0.5).select(0.0, x);
    EXPECT_EQ(mutual_information(x, y), mutual_information(y, x)) << seed;
  }
}

TEST(MutualInformation, DoesNotDependOnScale) {
  ArrayXd x = normal_series(400, 1);
  const ArrayXd y = correlated(x, 0.7, 2);
  x = (x.abs() < 0.5).select(0.0, x);
  const double value = mutual_information(x, y);
  EXPECT_EQ(mutual_information(1e-6 * x + 3.0, y), value);
  EXPECT_EQ(mutual_information(x.exp(), y.cube()), value);
  // Turned round, ties fall in another order.
  EXPECT_NEAR(mutual_information(-x, y), value, 0.03);
}

TEST(MutualInformation, OfASeriesWithItselfIsTheGreatest) {
  ArrayXd x = normal_series(1000, 1);
  const double most = std::log(1000.0) - digamma_of_integers(kNeighbours).back();
  EXPECT_NEAR(mutual_information(x, x), most, 0.3);
  x = (x.abs() < 1.0).select(0.0, x);
  EXPECT_NEAR(mutual_information(x, 2.0 * x), most, 0.3) << "ties fall alike in both";
}

TEST(MutualInformation, OfAConstantSeriesIsNothing) {
  const ArrayXd x = normal_series(100, 1);
  const ArrayXd flat = ArrayXd::Constant(100, 0.5);
  EXPECT_EQ(mutual_information(x, flat), 0.0);
  EXPECT_EQ(mutual_information(flat, x), 0.0);
  EXPECT_EQ(mutual_information(flat, flat), 0.0);
}

TEST(MutualInformation, RefusesWhatCannotBeCompared) {
  const ArrayXd x = normal_series(9, 1);
  EXPECT_NO_THROW(static_cast<void>(mutual_information(x, x)));
  EXPECT_THROW(static_cast<void>(mutual_information(x, normal_series(10, 1))),
               std::invalid_argument);
  EXPECT_THROW(static_cast<void>(mutual_information(x, x, 9)), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(mutual_information(x, x, 0)), std::invalid_argument);
  ArrayXd broken = x;
  broken[0] = std::numeric_limits<double>::infinity();
  EXPECT_THROW(static_cast<void>(mutual_information(x, broken)), std::invalid_argument);
}

TEST(MutualInformationFrom, IsTheEstimateItselfUnlessItIsSurelyLess) {
  constexpr Index kManyDays = 1200;
  int left = 0;
  for (std::uint64_t seed = 1; seed <= 24; ++seed) {
    SCOPED_TRACE(seed);
    const ArrayXd x = normal_series(kManyDays, seed);
    ArrayXd y = correlated(x, 0.04 * static_cast<double>(seed), seed + 100);
    // Alike on one day in five, and nothing in common on the others.
    if (seed % 3 == 0) y = (normal_series(kManyDays, seed + 200) > 0.84).select(x, y);
    const NormalScores scores(x);
    const NormalScores others(y);
    const double information = mutual_information(scores, others);
    // A rough density, and a guess that has nothing to do with it.
    for (const ArrayXd& guess :
         {ArrayXd(0.4 * scores.by_day() * others.by_day()), normal_series(x.size(), 99)}) {
      for (const double least : {0.05, 0.25, 0.5, 1.0}) {
        const std::optional<double> found = mutual_information_from(scores, others, least, guess);
        if (found) {
          EXPECT_EQ(*found, information) << "to the last bit";
        } else {
          EXPECT_LT(information, least);
          ++left;
        }
      }
      EXPECT_EQ(mutual_information_from(scores, others, information, guess), information);
    }
  }
  EXPECT_GT(left, 60);
}

TEST(MutualInformationFrom, LooksAtAllOfAFewDays) {
  const NormalScores x(normal_series(200, 1));
  const NormalScores y(normal_series(200, 2));
  const ArrayXd guess = ArrayXd::Zero(200);
  EXPECT_EQ(mutual_information_from(x, y, 5.0, guess), mutual_information(x, y));
  const NormalScores flat(ArrayXd::Constant(200, 0.5));
  EXPECT_EQ(mutual_information_from(x, flat, 5.0, guess), 0.0);
  EXPECT_THROW(static_cast<void>(mutual_information_from(x, y, 5.0, ArrayXd::Zero(199))),
               std::invalid_argument);
}

}  // namespace
}  // namespace varnholt::embedded::test
