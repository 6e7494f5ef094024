// Price files that are in order: both forms, any order of columns and rows, gaps.
// Method: small files with the panels written out.
#include "hosts/embedded/market/price_file.hpp"

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>

#include "tests/hosts/embedded/panel_helpers.hpp"
#include "tests/hosts/embedded/price_text.hpp"

namespace varnholt::embedded::test {
namespace {

using testing::ElementsAre;

std::vector<std::string> date_texts(const MarketData& data) {
  std::vector<std::string> texts;
  for (const Date date : data.dates)
    texts.push_back(date_text(date));
  return texts;
}

TEST(PriceFile, ReadsTheLongForm) {
  const MarketData data = read_price_text(
      "date,symbol,open,high,low,close,volume\n"
      "2011-01-03,AAA,10,12,9,11,100\n"
      "2011-01-03,BBB,20,22,19,21,200\n"
      "2011-01-04,AAA,11,13,10,12,0\n"
      "2011-01-04,BBB,21,23,20,22.5,1e3\n",
      "p.csv");
  EXPECT_THAT(date_texts(data), ElementsAre("2011-01-03", "2011-01-04"));
  EXPECT_THAT(data.symbols, ElementsAre("AAA", "BBB"));
  EXPECT_EQ(data.day_count(), 2);
  EXPECT_EQ(data.instrument_count(), 2);
  EXPECT_TRUE(panels_are_near(data.close, panel({{11, 21}, {12, 22.5}}), 0.0));
  EXPECT_TRUE(panels_are_near(data.open.value(), panel({{10, 20}, {11, 21}}), 0.0));
  EXPECT_TRUE(panels_are_near(data.high.value(), panel({{12, 22}, {13, 23}}), 0.0));
  EXPECT_TRUE(panels_are_near(data.low.value(), panel({{9, 19}, {10, 20}}), 0.0));
  EXPECT_TRUE(panels_are_near(data.volume.value(), panel({{100, 200}, {0, 1000}}), 0.0));
}

TEST(PriceFile, TakesColumnsAndRowsInAnyOrder) {
  const MarketData data = read_price_text(
      "Close,SYMBOL,Date\n"
      "22,BBB,2011-01-04\n"
      "11,AAA,2011-01-03\n"
      "12,AAA,2011-01-04\n"
      "21,BBB,2011-01-03\n",
      "p.csv");
  EXPECT_THAT(date_texts(data), ElementsAre("2011-01-03", "2011-01-04"));
  EXPECT_TRUE(panels_are_near(data.close, panel({{11, 21}, {12, 22}}), 0.0));
  EXPECT_FALSE(data.open.has_value());
  EXPECT_FALSE(data.high.has_value());
  EXPECT_FALSE(data.low.has_value());
  EXPECT_FALSE(data.volume.has_value());
}

TEST(PriceFile, GapsOfTheLongFormAreNan) {
  // BBB has no row on the first day, AAA an empty close on the second; the third is all gaps.
  const MarketData data = read_price_text(
      "date,symbol,close,volume\n"
      "2011-01-03,AAA,11,\n"
      "2011-01-04,AAA,,7\n"
      "2011-01-04,BBB,22,8\n"
      "2011-01-05,AAA, ,\n",
      "p.csv");
  EXPECT_TRUE(panels_are_near(data.close, panel({{11, kNan}, {kNan, 22}, {kNan, kNan}}), 0.0));
  EXPECT_TRUE(
      panels_are_near(data.volume.value(), panel({{kNan, kNan}, {7, 8}, {kNan, kNan}}), 0.0));
}

TEST(PriceFile, ReadsOwnColumnsAndGroups) {
  // BBB has no row on the first day, and no sector on the second; AAA moves to another sector.
  const MarketData data = read_price_text(
      "date,symbol,close,Sector,vwap,cap,country\n"
      "2011-01-03,AAA,11,Oil & Gas,10.5,1e6,\n"
      "2011-01-04,AAA,12,\"Tech, other\",11.5,2e6,\n"
      "2011-01-04,BBB,22,,21,,\n"
      "2011-01-05,BBB,23,Oil & Gas,22,3e6,\n",
      "p.csv");
  EXPECT_TRUE(panels_are_near(data.vwap.value(), panel({{10.5, kNan}, {11.5, 21}, {kNan, 22}}), 0));
  EXPECT_TRUE(
      panels_are_near(data.cap.value(), panel({{1e6, kNan}, {2e6, kNan}, {kNan, 3e6}}), 0.0));
  ASSERT_EQ(data.groups.size(), 2U);
  const GroupPanel& sector = data.groups.at("sector");
  ASSERT_EQ(sector.rows(), 3);
  ASSERT_EQ(sector.cols(), 2);
  EXPECT_NE(sector(0, 0), kNoGroup);
  EXPECT_NE(sector(1, 0), kNoGroup);
  EXPECT_NE(sector(0, 0), sector(1, 0));
  EXPECT_EQ(sector(2, 1), sector(0, 0));
  for (const int none : {sector(0, 1), sector(1, 1), sector(2, 0)})
    EXPECT_EQ(none, kNoGroup);
  EXPECT_TRUE((data.groups.at("country") == kNoGroup).all());
  const MarketData head = data.first_days(2);
  EXPECT_TRUE((head.groups.at("sector") == sector.topRows(2)).all());
  EXPECT_EQ(head.cap.value().rows(), 2);
}

TEST(PriceFile, ReadsTheWideForm) {
  // LOW and OPEN are tickers; in a wide file no name is one of the long form but the date's.
  const MarketData data = read_price_text(
      "OPEN,Date,LOW,aaa\n"
      "3,2011-01-05,30,\n"
      "1,2011-01-03,,100\n"
      "\n"
      "2,2011-01-04,20,200\n",
      "p.csv");
  EXPECT_THAT(date_texts(data), ElementsAre("2011-01-03", "2011-01-04", "2011-01-05"));
  EXPECT_THAT(data.symbols, ElementsAre("LOW", "OPEN", "aaa"));
  EXPECT_TRUE(
      panels_are_near(data.close, panel({{kNan, 1, 100}, {20, 2, 200}, {30, 3, kNan}}), 0.0));
  EXPECT_FALSE(data.volume.has_value());
}

TEST(PriceFile, AHighMayEqualItsLow) {
  const MarketData data =
      read_price_text("date,symbol,high,low,close\n2011-01-03,AAA,5,5,5\n", "p.csv");
  EXPECT_EQ(data.high.value()(0, 0), 5.0);
}

TEST(PriceFile, PricesKeepAllTheirDigits) {
  const MarketData data =
      read_price_text("date,A\n2011-01-03,0.1\n2011-01-04,123456.789012345\n", "p.csv");
  EXPECT_EQ(data.close(0, 0), 0.1);
  EXPECT_EQ(data.close(1, 0), 123456.789012345);
}

TEST(PriceFile, ReadsFromDisk) {
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / "varnholt_price_file_test.csv";
  std::ofstream(path) << "date,A\n2011-01-03,1.5\n";
  const MarketData data = read_price_file(path);
  std::filesystem::remove(path);
  EXPECT_EQ(data.close(0, 0), 1.5);
}

TEST(MarketDataFirstDays, KeepsTheInstrumentsAndCutsTheDays) {
  const MarketData data = read_price_text(
      "date,symbol,close,volume\n2011-01-03,A,1,4\n2011-01-04,A,2,5\n2011-01-05,B,3,6\n", "p.csv");
  const MarketData head = data.first_days(2);
  EXPECT_THAT(date_texts(head), ElementsAre("2011-01-03", "2011-01-04"));
  EXPECT_THAT(head.symbols, ElementsAre("A", "B"));
  EXPECT_TRUE(panels_are_near(head.close, panel({{1, kNan}, {2, kNan}}), 0.0));
  EXPECT_TRUE(panels_are_near(head.volume.value(), panel({{4, kNan}, {5, kNan}}), 0.0));
  EXPECT_FALSE(head.open.has_value());
  EXPECT_EQ(data.first_days(0).day_count(), 0);
  EXPECT_THROW((void)data.first_days(4), std::out_of_range);
  EXPECT_THROW((void)data.first_days(-1), std::out_of_range);
}

}  // namespace
}  // namespace varnholt::embedded::test
