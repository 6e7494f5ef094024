// What differs between two sets of prices.
// Method: small sets that differ in one thing at a time.
#include "hosts/embedded/market/price_changes.hpp"

#include <gmock/gmock.h>

#include "hosts/embedded/market/price_file.hpp"
#include "tests/hosts/embedded/price_text.hpp"

namespace varnholt::embedded::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

MarketData prices(std::string_view text) {
  return read_price_text(text, "p.csv");
}

const MarketData kBefore =
    prices("date,A,B\n2020-01-01,10,100\n2020-01-02,11,110\n2020-01-03,22,\n2020-01-04,11,120\n");

TEST(PriceChanges, OfTheSamePricesAreNone) {
  const PriceChanges changes = price_changes(kBefore, kBefore);
  EXPECT_TRUE(changes.history_is_the_same());
  EXPECT_EQ(changes.days_added, 0);
  EXPECT_THAT(changes.instruments_added, IsEmpty());
}

TEST(PriceChanges, DaysAndInstrumentsThatCome) {
  const PriceChanges changes = price_changes(
      kBefore, prices("date,A,B,C\n2020-01-01,10,100,1\n2020-01-02,11,110,1\n2020-01-03,22,,1\n"
                      "2020-01-04,11,120,1\n2020-01-05,11,120,1\n"));
  EXPECT_TRUE(changes.history_is_the_same());
  EXPECT_EQ(changes.days_added, 1);
  EXPECT_THAT(changes.instruments_added, ElementsAre("C"));
}

TEST(PriceChanges, DaysAndInstrumentsThatGo) {
  const PriceChanges changes =
      price_changes(kBefore, prices("date,A\n2020-01-01,10\n2020-01-02,11\n2020-01-04,11\n"));
  EXPECT_FALSE(changes.history_is_the_same());
  EXPECT_EQ(changes.days_gone, 1);
  EXPECT_THAT(changes.instruments_gone, ElementsAre("B"));
  // From the second to the fourth, which are neighbours now, it is the same return.
  EXPECT_FALSE(changes.largest);
}

TEST(PriceChanges, AnotherAdjustmentChangesNoReturn) {
  MarketData now = kBefore;
  now.close.col(0) *= 0.25;
  EXPECT_TRUE(price_changes(kBefore, now).history_is_the_same());
}

TEST(PriceChanges, TheReturnThatChangedMostIsTold) {
  MarketData now = kBefore;
  now.close(2, 0) = 33.0;
  const PriceChanges changes = price_changes(kBefore, now);
  ASSERT_TRUE(changes.largest);
  EXPECT_EQ(changes.largest->symbol, "A");
  EXPECT_EQ(date_text(changes.largest->date), "2020-01-03");
  EXPECT_DOUBLE_EQ(changes.largest->before, 1.0);
  EXPECT_DOUBLE_EQ(changes.largest->now, 2.0);
}

TEST(PriceChanges, GapsThatWereFilledAndMade) {
  MarketData now = kBefore;
  now.close(2, 1) = 115.0;
  now.close(0, 0) = std::numeric_limits<double>::quiet_NaN();
  const PriceChanges changes = price_changes(kBefore, now);
  EXPECT_EQ(changes.closes_added, 1);
  EXPECT_EQ(changes.closes_gone, 1);
  EXPECT_FALSE(changes.largest);
}

}  // namespace
}  // namespace varnholt::embedded::test
