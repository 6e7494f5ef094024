// What a table of equal parts tells. Method: its definition, written plainly; pairs of known
// dependence.
#include "hosts/embedded/signal_pool/part_table.hpp"

#include <cmath>

#include <gtest/gtest.h>

#include "hosts/embedded/signal_pool/comparison.hpp"
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

Eigen::ArrayXXd cells_of(const ArrayXd& x, const ArrayXd& y, Index parts) {
  const NormalScores left(x);
  const NormalScores right(y);
  const Index days = x.size();
  Eigen::ArrayXXd cells = Eigen::ArrayXXd::Zero(parts, parts);
  for (std::size_t day = 0; day < left.place_of_day().size(); ++day)
    cells(left.place_of_day()[day] * parts / days, right.place_of_day()[day] * parts / days) += 1.0;
  return cells;
}

double finely_told(const ArrayXd& x, const ArrayXd& y) {
  const PartTable table(x.size());
  return table.finer_information(parts_of(table, NormalScores(x)),
                                 parts_of(table, NormalScores(y)));
}

// The definition, by the digamma function of n and half of n: G(n) = psi(n) + (-1)^n / 2 times
// psi((n + 1) / 2) - psi(n / 2).
double slow_finer_information(const ArrayXd& x, const ArrayXd& y, Index parts) {
  const auto psi = [](double z) {
    double before = 0.0;
    for (; z < 30.0; z += 1.0)
      before += 1.0 / z;
    return std::log(z) - 1.0 / (2.0 * z) - 1.0 / (12.0 * z * z) + 1.0 / (120.0 * std::pow(z, 4)) -
           before;
  };
  const auto n = static_cast<double>(x.size());
  const Eigen::ArrayXXd cells = cells_of(x, y, parts);
  const ArrayXd rows = cells.rowwise().sum();
  double known = 0.0;
  for (const double count : cells.reshaped()) {
    if (count == 0.0) continue;
    const double sign = std::fmod(count, 2.0) == 0.0 ? 0.5 : -0.5;
    known += count / n * (psi(count) + sign * (psi((count + 1.0) / 2.0) - psi(count / 2.0)));
  }
  double lines = 0.0;
  for (const double days : rows)
    lines += days > 0.0 ? 2.0 * days / n * std::log(days / n) : 0.0;
  return known - std::log(n) - lines;
}

// The definition: counts of cells, rows and columns.
double slow_information(const ArrayXd& x, const ArrayXd& y, Index parts) {
  const Eigen::ArrayXXd cells = cells_of(x, y, parts);
  const auto n = static_cast<double>(x.size());
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

TEST(PartTableTest, TheFinerTableHasAboutOneDayACell) {
  EXPECT_EQ(PartTable(250).finer_parts(), 15);
  EXPECT_EQ(PartTable(2450).finer_parts(), 45);
  EXPECT_EQ(PartTable(8313).finer_parts(), 96);
  EXPECT_EQ(PartTable(100000).finer_parts(), 256);
}

TEST(PartTableTest, PartsAreEqual) {
  const PartTable table(250);
  std::vector<int> days(5);
  for (const std::uint8_t part : parts_of(table, NormalScores(normal_series(250, 1))))
    ++days.at(part >> 4);
  EXPECT_EQ(days, std::vector<int>(5, 50));
}

TEST(PartTableTest, IsWhatTheDefinitionSays) {
  for (const Index days : {11, 60, 250, 333, 1001, 3271}) {
    for (const double rho : {0.0, 0.4, -0.95}) {
      SCOPED_TRACE(testing::Message() << days << " days, rho " << rho);
      ArrayXd x = normal_series(days, 1);
      const ArrayXd y = correlated(x, rho, 2);
      x = (x.abs() < 0.4).select(0.0, x);
      const PartTable table(days);
      EXPECT_NEAR(told(x, y), slow_information(x, y, table.parts()), 1e-12);
      EXPECT_NEAR(finely_told(x, y), slow_finer_information(x, y, table.finer_parts()), 1e-9);
    }
  }
}

TEST(PartTableTest, WhatItTellsIsTheMeanOfTheDaysLessWhatChanceGives) {
  for (const Index days : {60, 1001, 3271}) {
    const ArrayXd x = normal_series(days, 1);
    const ArrayXd y = correlated(x, 0.7, 2);
    const PartTable table(days);
    const ArrayXd of_days = table.information_of_days(parts_of(table, NormalScores(x)),
                                                      parts_of(table, NormalScores(y)));
    ASSERT_EQ(of_days.size(), days);
    const auto freedom = static_cast<double>((table.parts() - 1) * (table.parts() - 1));
    EXPECT_NEAR(of_days.mean() - freedom / (2.0 * static_cast<double>(days)), told(x, y), 1e-12);
    // Where both are far above their means there are more days than chance gives.
    const ArrayXd both = (x > 1.0 && y > 1.0).select(of_days, 0.0);
    EXPECT_GE(both.minCoeff(), 0.0) << days;
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

// What kFinerDoubt stands on: pairs that are alike on some days, on quiet days or in a part of the
// history, and more or less dependent on the others.
TEST(PartTableTest, TheFinerTableTellsMostOfADependenceOfSomeDaysOnly) {
  constexpr double kEnough = 0.51;
  int pairs = 0;
  for (const Index days : {500, 1250, 2451}) {
    for (std::uint64_t seed = 1; seed <= 90; ++seed) {
      SCOPED_TRACE(testing::Message() << days << " days, seed " << seed);
      const double share = 0.1 + 0.01 * static_cast<double>(seed % 15);
      const ArrayXd x = normal_series(days, seed);
      const ArrayXd other = correlated(x, 0.1 * static_cast<double>(seed % 5), seed + 1000);
      const ArrayXd day = ArrayXd::LinSpaced(days, 0.0, 1.0);
      const ArrayXd chance = (1.0 + (-1.702 * normal_series(days, seed + 2000)).exp()).inverse();
      const ArrayXd which = seed % 3 == 0 ? chance : (seed % 3 == 1 ? day : ArrayXd(x.abs()));
      const ArrayXd y = (which < share).select(-x, other);
      const double information = mutual_information(x, y);
      if (information < kEnough || information > 1.2 * kEnough) continue;
      ++pairs;
      EXPECT_GT(finely_told(x, y), kFinerDoubt * kEnough) << information;
    }
  }
  EXPECT_GT(pairs, 20);
}

TEST(PartTableTest, TheFinerTableIsNotFooledByChance) {
  for (const Index days : {500, 1250, 2451, 8313}) {
    const ArrayXd x = normal_series(days, 3);
    EXPECT_NEAR(finely_told(x, normal_series(days, 4)), 0.0, 0.1) << days;
    EXPECT_NEAR(finely_told(x, correlated(x, 0.5, 5)), 0.144, 0.1) << days;
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
