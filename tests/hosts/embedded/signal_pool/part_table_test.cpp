// What a table of equal parts tells. Method: its definition, written plainly; pairs of known
// dependence.
#include "hosts/embedded/signal_pool/part_table.hpp"

#include <cmath>

#include <gtest/gtest.h>

#include "hosts/embedded/signal_pool/pnl_measures.hpp"
#include "tests/hosts/embedded/signal_pool/pool_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;
using Eigen::Index;

std::vector<std::uint8_t> parts_of(const PartTable& table, const NormalScores& scores) {
  std::vector<std::uint8_t> parts(static_cast<std::size_t>(scores.size()));
  table.write_parts(scores, parts);
  return parts;
}

double told(const ArrayXd& x, const ArrayXd& y) {
  const PartTable table(x.size());
  return table.information(parts_of(table, NormalScores(x)), parts_of(table, NormalScores(y)));
}

// The definition: counts of cells, rows and columns.
double slow_information(const ArrayXd& x, const ArrayXd& y, Index parts) {
  const NormalScores left(x);
  const NormalScores right(y);
  const Index days = x.size();
  Eigen::ArrayXXd cells = Eigen::ArrayXXd::Zero(parts, parts);
  for (std::size_t day = 0; day < left.place_of_day().size(); ++day)
    cells(left.place_of_day()[day] * parts / days, right.place_of_day()[day] * parts / days) += 1.0;
  const auto n = static_cast<double>(days);
  double sum = 0.0;
  for (Index row = 0; row < parts; ++row) {
    for (Index column = 0; column < parts; ++column) {
      const double count = cells(row, column);
      if (count == 0.0) continue;
      sum += count / n * std::log(count * n / (cells.row(row).sum() * cells.col(column).sum()));
    }
  }
  return sum - static_cast<double>((parts - 1) * (parts - 1)) / (2.0 * n);
}

TEST(PartTableTest, HasTenDaysACellButAtLeastTwoAndAtMostSixteenParts) {
  EXPECT_EQ(PartTable(10).parts(), 2);
  EXPECT_EQ(PartTable(250).parts(), 5);
  EXPECT_EQ(PartTable(2559).parts(), 15);
  EXPECT_EQ(PartTable(2560).parts(), 16);
  EXPECT_EQ(PartTable(100000).parts(), 16);
}

TEST(PartTableTest, PartsAreEqual) {
  const PartTable table(250);
  std::vector<int> days(5);
  for (const std::uint8_t part : parts_of(table, NormalScores(normal_series(250, 1))))
    ++days.at(part);
  EXPECT_EQ(days, std::vector<int>(5, 50));
}

TEST(PartTableTest, IsWhatTheDefinitionSays) {
  for (const Index days : {11, 60, 250, 333, 1001, 3271}) {
    for (const double rho : {0.0, 0.4, -0.95}) {
      SCOPED_TRACE(testing::Message() << days << " days, rho " << rho);
      ArrayXd x = normal_series(days, 1);
      const ArrayXd y = correlated(x, rho, 2);
      x = (x.abs() < 0.4).select(0.0, x);
      EXPECT_NEAR(told(x, y), slow_information(x, y, PartTable(days).parts()), 1e-12);
    }
  }
}

TEST(PartTableTest, TellsMostOfASmoothDependenceAndNothingOfNone) {
  const ArrayXd x = normal_series(2500, 3);
  EXPECT_NEAR(told(x, normal_series(2500, 4)), 0.0, 0.02);
  for (const double rho : {0.5, 0.8, 0.95}) {
    const ArrayXd y = correlated(x, rho, 5);
    const double information = mutual_information(x, y);
    EXPECT_GT(told(x, y), 0.8 * information) << rho;
    EXPECT_LT(told(x, y), 1.05 * information) << rho;
  }
  EXPECT_GT(told(x, x.square()), 0.9);
}

// What kDoubt stands on.
TEST(PartTableTest, TellsAFifthOfADependenceOfSomeDaysOnly) {
  for (const Index days : {500, 1000, 2500}) {
    for (std::uint64_t seed = 1; seed <= 5; ++seed) {
      const ArrayXd x = normal_series(days, seed);
      const ArrayXd y =
          (normal_series(days, seed + 10) > 0.6).select(x, normal_series(days, seed + 20));
      EXPECT_GT(told(x, y), 0.2 * mutual_information(x, y)) << days << ' ' << seed;
    }
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
