// Series as normal scores. Method: closed forms, series whose order is known, and for series with
// ties, zeros of both signs and numbers of all sizes a plain sort.
#include "hosts/embedded/signal_pool/normal_scores.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>

#include <gtest/gtest.h>

#include "tests/hosts/embedded/signal_pool/pool_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;
using Eigen::Index;

constexpr double kEulerGamma = 0.577215664901532860606512;

TEST(Digamma, OfIntegers) {
  const std::vector<double> psi = digamma_of_integers(1000);
  ASSERT_EQ(psi.size(), 1000U);
  EXPECT_DOUBLE_EQ(psi[0], -kEulerGamma);
  EXPECT_DOUBLE_EQ(psi[1], 1.0 - kEulerGamma);
  EXPECT_NEAR(psi[9], 2.251752589066721, 1e-14);
  // The asymptotic series: ln n - 1/(2n) - 1/(12 n^2).
  EXPECT_NEAR(psi[999], std::log(1000.0) - 1.0 / 2000.0 - 1.0 / 12e6, 1e-12);
  EXPECT_TRUE(digamma_of_integers(0).empty());
}

TEST(NormalQuantile, UndoesTheDistributionFunction) {
  EXPECT_NEAR(normal_quantile(0.975), 1.959963984540054, 1e-14);
  EXPECT_NEAR(normal_quantile(1e-10), -6.361340902404056, 1e-12);
  EXPECT_NEAR(normal_quantile(0.5), 0.0, 1e-16);
  for (double p = 0.0005; p < 1.0; p += 0.0005) {
    const double x = normal_quantile(p);
    EXPECT_NEAR(0.5 * std::erfc(-x / std::sqrt(2.0)), p, 1e-14);
    EXPECT_NEAR(normal_quantile(1.0 - p), -x, 1e-11);
  }
}

TEST(NormalScoresTest, FollowTheOrderOfTheValues) {
  const ArrayXd series{{0.3, -7.0, 0.3, 5.0, 0.1}};
  const NormalScores scores(series);
  ASSERT_EQ(scores.size(), 5);
  EXPECT_FALSE(scores.is_constant());
  EXPECT_DOUBLE_EQ(scores.by_day()[1], normal_quantile(0.1));
  EXPECT_DOUBLE_EQ(scores.by_day()[4], normal_quantile(0.3));
  EXPECT_DOUBLE_EQ(scores.by_day()[3], normal_quantile(0.9));
  // The two that are tied share the two middle scores in one order or the other.
  EXPECT_DOUBLE_EQ(std::min(scores.by_day()[0], scores.by_day()[2]), normal_quantile(0.5));
  EXPECT_DOUBLE_EQ(std::max(scores.by_day()[0], scores.by_day()[2]), normal_quantile(0.7));
  for (std::size_t day = 0; day < 5; ++day) {
    const auto place = static_cast<std::size_t>(scores.place_of_day()[day]);
    EXPECT_EQ(scores.in_order()[place], scores.by_day()[static_cast<Index>(day)]);
  }
  EXPECT_TRUE(NormalScores(ArrayXd::Constant(5, 0.25)).is_constant());
}

TEST(NormalScoresTest, AreInTheOrderThatASortGives) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    SCOPED_TRACE(seed);
    ArrayXd series = normal_series(300, seed);
    series = series.sign() * (40.0 * series.abs()).exp();
    series.head(5) << 0.0, -0.0, 1e-300, 1e308, -1e308;
    if (seed % 2 == 0) series = (series.abs() < 1e12).select(0.0, series);
    const NormalScores scores(series);
    std::vector<Index> days(static_cast<std::size_t>(series.size()));
    for (Index day = 0; day < series.size(); ++day)
      days[static_cast<std::size_t>(scores.place_of_day()[static_cast<std::size_t>(day)])] = day;
    double before = -kInfinity;
    for (const Index day : days) {
      EXPECT_LE(before, series[day]);
      before = series[day];
    }
    // Scaled, the same order to the last tie.
    EXPECT_EQ(NormalScores(series / 4.0).place_of_day(), scores.place_of_day());
  }
}

TEST(NormalScoresTest, TellApartWhatDiffersInTheLastDigits) {
  ArrayXd series(300);
  for (Index day = 0; day < series.size(); ++day) {
    const Index place = (day * 7) % series.size();
    series[day] = 1.0 + static_cast<double>(place) * std::numeric_limits<double>::epsilon();
  }
  const NormalScores scores(series);
  for (Index day = 0; day < series.size(); ++day)
    EXPECT_EQ(scores.place_of_day()[static_cast<std::size_t>(day)], (day * 7) % series.size());
}

TEST(NormalScoresTest, TheLikelyPlaceOfAScoreIsNearItsPlace) {
  EXPECT_EQ(DayTables(1).likely_place(3.0), 0);
  for (const Index days : {2, 9, 250, 2451}) {
    const DayTables tables(days);
    const auto place_of = [&](double score) {
      return std::lower_bound(tables.scores.begin(), tables.scores.end(), score) -
             tables.scores.begin();
    };
    Index farthest = 0;
    for (double score = -6.0; score <= 6.0; score += 0.001) {
      const Index likely = tables.likely_place(score);
      EXPECT_GE(likely, 0);
      EXPECT_LE(likely, days);
      farthest = std::max(farthest, std::abs(likely - place_of(score)));
    }
    constexpr Index kFewSteps = 3;
    EXPECT_LE(farthest, kFewSteps) << days;
  }
}

TEST(NormalScoresTest, ShareTheTablesOfAsManyDays) {
  const ArrayXd series = normal_series(40, 1);
  const auto tables = std::make_shared<const DayTables>(40);
  const NormalScores shared(series, tables);
  EXPECT_EQ(shared.place_of_day(), NormalScores(series).place_of_day());
  EXPECT_TRUE((shared.by_day() == NormalScores(series).by_day()).all());
  EXPECT_EQ(&shared.tables(), tables.get());
  EXPECT_THROW(NormalScores(normal_series(41, 1), tables), std::invalid_argument);
}

TEST(NormalScoresTest, RefuseWhatIsNoNumber) {
  ArrayXd series = normal_series(10, 1);
  series[4] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(NormalScores{series}, std::invalid_argument);
}

}  // namespace
}  // namespace varnholt::embedded::test
