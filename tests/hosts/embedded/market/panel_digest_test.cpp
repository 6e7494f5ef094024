// The digest of prices says exactly whether they are the same to what computes with them. Method:
// histories that differ in one thing.
#include "hosts/embedded/market/panel_digest.hpp"

#include <functional>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace varnholt::embedded {
namespace {

MarketData history() {
  MarketData data;
  for (int day = 0; day < 4; ++day)
    data.dates.push_back(Date(std::chrono::days(15000 + day)));
  data.symbols = {"AA", "B"};
  data.close = Panel::Constant(4, 2, 10.0);
  data.close(1, 1) = std::numeric_limits<double>::quiet_NaN();
  data.high = Panel::Constant(4, 2, 11.0);
  return data;
}

TEST(PanelDigest, LaterDaysDoNotCount) {
  const std::string digest = panel_digest(history(), 3);
  EXPECT_EQ(digest, panel_digest(history().first_days(3), 3));
  MarketData tomorrow = history();
  tomorrow.close(3, 0) = 99.0;
  EXPECT_EQ(panel_digest(tomorrow, 3), digest);
  EXPECT_NE(panel_digest(tomorrow, 4), panel_digest(history(), 4));
  EXPECT_THROW(static_cast<void>(panel_digest(history(), 5)), std::out_of_range);
}

TEST(PanelDigest, EveryPriceAndNameCounts) {
  const std::vector<std::function<void(MarketData&)>> changes = {
      [](MarketData&) {},
      [](MarketData& data) { data.close(2, 1) += 1e-12; },
      [](MarketData& data) { data.close(1, 1) = 10.0; },
      [](MarketData& data) { data.high->operator()(0, 0) = 12.0; },
      [](MarketData& data) { data.high.reset(); },
      [](MarketData& data) { std::swap(data.high, data.low); },
      [](MarketData& data) {
        data.symbols = {"A", "AB"};
      },
      [](MarketData& data) { data.dates[0] -= std::chrono::days(1); },
      [](MarketData& data) { data.volume = data.close; },
      [](MarketData& data) { data.vwap = data.close; },
      [](MarketData& data) { data.cap = data.close; },
      [](MarketData& data) { data.groups.emplace("sector", GroupPanel::Constant(4, 2, 1)); },
      [](MarketData& data) { data.groups.emplace("country", GroupPanel::Constant(4, 2, 1)); },
      [](MarketData& data) { data.groups.emplace("sector", GroupPanel::Constant(4, 2, 0)); }};
  std::set<std::string> digests;
  for (const auto& change : changes) {
    MarketData data = history();
    change(data);
    digests.insert(panel_digest(data, 3));
  }
  EXPECT_EQ(digests.size(), changes.size());
}

}  // namespace
}  // namespace varnholt::embedded
