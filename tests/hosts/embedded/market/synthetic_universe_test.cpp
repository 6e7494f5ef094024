// Synthetic universes: one seed gives the same bits, and they are sound market data.
// Method: a digest of the bits of a fixed seed, and checks of every entry.
#include "tests/hosts/embedded/synthetic_universe.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include <gtest/gtest.h>

#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

// FNV-1a over the bits of the known entries and the places of the others.
std::uint64_t digest(const Panel& panel) {
  std::uint64_t hash = 14695981039346656037u;
  for (Eigen::Index column = 0; column < panel.cols(); ++column) {
    for (Eigen::Index day = 0; day < panel.rows(); ++day) {
      std::uint64_t bits = 0;
      const double value = panel(day, column);
      if (!std::isnan(value)) std::memcpy(&bits, &value, sizeof bits);
      for (int shift = 0; shift < 64; shift += 8) {
        hash = (hash ^ ((bits >> shift) & 0xff)) * 1099511628211u;
      }
    }
  }
  return hash;
}

SyntheticUniverseOptions small() {
  SyntheticUniverseOptions options;
  options.instruments = 30;
  options.days = 400;
  options.seed = 7;
  options.gap_share = 0.01;
  return options;
}

TEST(SyntheticUniverse, OneSeedGivesTheSameBitsEverywhere) {
  const MarketData data = make_synthetic_universe(small());
  EXPECT_EQ(digest(data.close), 11309932396448210351u);
  EXPECT_EQ(digest(data.volume.value()), 15790653349505871689u);
  SyntheticUniverseOptions other = small();
  other.seed = 8;
  EXPECT_NE(digest(make_synthetic_universe(other).close), digest(data.close));
}

TEST(SyntheticUniverse, IsSoundMarketData) {
  const MarketData data = make_synthetic_universe(small());
  ASSERT_EQ(data.day_count(), 400);
  ASSERT_EQ(data.instrument_count(), 30);
  EXPECT_EQ(data.symbols.front(), "SYN0001");
  EXPECT_EQ(data.symbols.back(), "SYN0030");
  EXPECT_EQ(date_text(data.dates.front()), "2000-01-03");
  EXPECT_EQ(date_text(data.dates[5]), "2000-01-10");  // A Monday; the weekend is left out.
  EXPECT_TRUE(std::is_sorted(data.symbols.begin(), data.symbols.end()));
  EXPECT_TRUE(std::is_sorted(data.dates.begin(), data.dates.end()));
  int known = 0;
  for (Eigen::Index i = 0; i < data.instrument_count(); ++i) {
    for (Eigen::Index t = 0; t < data.day_count(); ++t) {
      const double close = data.close(t, i);
      ASSERT_EQ(std::isnan(close), std::isnan((*data.volume)(t, i)));
      if (std::isnan(close)) continue;
      ++known;
      ASSERT_GT((*data.low)(t, i), 0.0);
      ASSERT_LE((*data.low)(t, i), std::min(close, (*data.open)(t, i)));
      ASSERT_GE((*data.high)(t, i), std::max(close, (*data.open)(t, i)));
      ASSERT_GE((*data.volume)(t, i), 0.0);
    }
  }
  EXPECT_GT(known, 400 * 30 * 8 / 10);
  EXPECT_LT(known, 400 * 30);
}

TEST(SyntheticUniverse, HasACommonFactor) {
  // With a market of daily volatility 0.009 and loadings near one, the mean return of all
  // instruments must move much more than that of 30 independent ones would (below 0.005).
  SyntheticUniverseOptions options = small();
  options.late_start_share = 0.0;
  options.gap_share = 0.0;
  const MarketData data = make_synthetic_universe(options);
  double squares = 0.0;
  for (Eigen::Index t = 1; t < data.day_count(); ++t) {
    const double mean = (data.close.row(t) / data.close.row(t - 1) - 1.0).mean();
    squares += mean * mean;
  }
  const double volatility = std::sqrt(squares / static_cast<double>(data.day_count() - 1));
  EXPECT_GT(volatility, 0.007);
  EXPECT_LT(volatility, 0.014);
}

TEST(SyntheticUniverse, RefusesOptionsThatMakeNoUniverse) {
  SyntheticUniverseOptions options = small();
  options.days = 0;
  EXPECT_THROW((void)make_synthetic_universe(options), std::invalid_argument);
  options = small();
  options.gap_share = 1.5;
  EXPECT_THROW((void)make_synthetic_universe(options), std::invalid_argument);
  options = small();
  options.late_start_share = std::nan("");
  EXPECT_THROW((void)make_synthetic_universe(options), std::invalid_argument);
}

}  // namespace
}  // namespace varnholt::embedded::test
