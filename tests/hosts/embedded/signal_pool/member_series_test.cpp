// The members' matrix gives what the definitions give, and costs little more than the PnL. Method:
// pairs by their definitions beside the product; the memory of the process.
#include "hosts/embedded/signal_pool/member_series.hpp"

#include <cmath>
#include <fstream>
#include <numeric>

#include <gtest/gtest.h>
#include <unistd.h>

#include "hosts/embedded/signal_pool/pnl_measures.hpp"
#include "tests/hosts/embedded/signal_pool/pool_fixture.hpp"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;
using Eigen::Index;

std::vector<ArrayXd> series_of_all_kinds(Index days) {
  const ArrayXd x = normal_series(days, 1);
  return {x,
          correlated(x, -0.6, 2),
          x * 1e-300,
          x * 1e300,
          1e-5 * x + 1.0,
          1e-12 * x + 1.0,
          ArrayXd::Constant(days, 0.25),
          ArrayXd::Zero(days),
          (x.abs() < 1.5).select(0.0, x),
          x * 1e-320,
          1e-3 * normal_series(days, 3) + 7e-4};
}

TEST(MemberSeriesTest, CorrelatesAsTheDefinitionSays) {
  for (const Index days : {60, 64, 251}) {
    const std::vector<ArrayXd> all = series_of_all_kinds(days);
    MemberSeries members(days);
    for (const ArrayXd& pnl : all)
      members.append(pnl);
    ASSERT_EQ(members.size(), all.size());
    for (std::size_t i = 0; i < all.size(); ++i) {
      const ComparedSignal signal = members.compared(all[i]);
      for (const std::size_t first : {std::size_t{0}, std::size_t{3}}) {
        std::vector<std::size_t> rows(all.size() - first);
        std::iota(rows.begin(), rows.end(), first);
        const std::vector<double> found = members.correlations(signal, rows);
        ASSERT_EQ(found.size(), all.size() - first);
        for (std::size_t j = first; j < all.size(); ++j) {
          const double expected = std::abs(pearson_correlation(all[i], all[j]));
          EXPECT_NEAR(found[j - first], expected, MemberSeries::kProductError) << i << ' ' << j;
          EXPECT_EQ(members.correlation(signal, j), expected) << i << ' ' << j;
        }
      }
    }
  }
}

TEST(MemberSeriesTest, OutdoesWhatIsWorseByHalfAStandardError) {
  constexpr Index kHundredDays = 100;
  const ArrayXd x = normal_series(kHundredDays, 1);
  const ArrayXd standard = (x - x.mean()) / std::sqrt((x - x.mean()).square().sum() / 99.0);
  MemberSeries members(kHundredDays);
  members.append(standard + 0.1);
  members.append(ArrayXd::Constant(kHundredDays, 0.25));
  EXPECT_NEAR(members.daily_sharpe(0), 0.1, 1e-12);
  EXPECT_EQ(members.daily_sharpe(1), 0.0) << "a constant one has none";
  EXPECT_NEAR(MemberSeries::daily_sharpe(3.0 * standard - 0.6), -0.2, 1e-12);
  EXPECT_TRUE(members.outdoes(0.1501, 0)) << "0.5 / sqrt(100) more";
  EXPECT_FALSE(members.outdoes(0.1499, 0));
}

TEST(MemberSeriesTest, TellsTheInformationAsTheDefinitionsSay) {
  constexpr Index kManyDays = 400;
  const ArrayXd x = normal_series(kManyDays, 1);
  const std::vector<ArrayXd> all = {correlated(x, 0.7, 2), x.square(), normal_series(kManyDays, 3),
                                    ArrayXd::Constant(kManyDays, 0.5)};
  MemberSeries members(kManyDays);
  for (const ArrayXd& pnl : all)
    members.append(pnl);
  const ComparedSignal signal = members.compared(x);
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(members.neighbour_information(signal, i), mutual_information(x, all[i]));
    EXPECT_EQ(members.neighbour_information_from(signal, i, 0.0), mutual_information(x, all[i]));
    EXPECT_TRUE((members.pnl(i) == all[i]).all());
  }
  EXPECT_GT(members.table_information(signal, 1), 0.5);
  EXPECT_NEAR(members.table_information(signal, 2), 0.0, 0.05);
  EXPECT_EQ(members.table_information(signal, 3), 0.0) << "a constant tells nothing";
  EXPECT_EQ(members.table_information(members.compared(all[3]), 0), 0.0);
}

TEST(MemberSeriesTest, AMemberCostsAtMostAFifthMoreThanItsPnl) {
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
  GTEST_SKIP() << "the address sanitizer keeps what was freed";
#endif
  const auto resident_bytes = [] {
    std::ifstream statm("/proc/self/statm");
    double size = 0;
    double resident = 0;
    statm >> size >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE));
  };
  constexpr double kMostOverPnl = 1.2;
  for (const Index days : {Index{2450}, Index{20001}}) {
    const ArrayXd pnl = normal_series(days, 1);
    const double pnl_bytes = static_cast<double>(days) * sizeof(double);
    MemberSeries members(days);
    // What is freed by the work on one member serves the next.
    members.append(pnl);
    const double before = resident_bytes();
    const std::size_t more = static_cast<std::size_t>(4e7 / pnl_bytes);
    for (std::size_t i = 0; i < more; ++i)
      members.append(pnl);
    EXPECT_LE((resident_bytes() - before) / static_cast<double>(more), kMostOverPnl * pnl_bytes)
        << days;
  }
}

TEST(MemberSeriesTest, OneThatIsRemovedLeavesTheOthersAsTheyWereAndItsRoomToTheNext) {
  constexpr Index kDays = 300;
  std::vector<ArrayXd> kept;
  MemberSeries members(kDays);
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    kept.push_back(normal_series(kDays, seed));
    members.append(kept.back());
  }
  const double* const freed = members.pnl(1).data();
  members.remove(1);
  kept.erase(kept.begin() + 1);
  kept.push_back(normal_series(kDays, 6));
  members.append(kept.back());
  EXPECT_EQ(members.pnl(4).data(), freed);
  ASSERT_EQ(members.size(), kept.size());
  const ComparedSignal signal = members.compared(normal_series(kDays, 7));
  for (std::size_t row = 0; row < kept.size(); ++row) {
    EXPECT_TRUE((members.pnl(row) == kept[row]).all());
    EXPECT_EQ(members.correlation(signal, row),
              std::abs(pearson_correlation(signal.pnl, kept[row])));
    EXPECT_EQ(members.daily_sharpe(row), MemberSeries::daily_sharpe(kept[row]));
    MemberSeries alone(kDays);
    alone.append(kept[row]);
    EXPECT_EQ(members.table_information(signal, row), alone.table_information(signal, 0));
  }
}

TEST(MemberSeriesTest, RowsAreNotMoved) {
  MemberSeries members(100);
  const ArrayXd first = normal_series(100, 1);
  members.append(first);
  const double* const place = members.pnl(0).data();
  for (int i = 0; i < 5000; ++i)
    members.append(normal_series(100, 2));
  EXPECT_EQ(members.pnl(0).data(), place);
  EXPECT_TRUE((members.pnl(0) == first).all());
}

}  // namespace
}  // namespace varnholt::embedded::test
