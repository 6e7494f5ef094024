// The report on a price file: counts, gaps and jumps, and the text made of them.
// Method: small files with every figure computed by hand.
#include "hosts/embedded/market/price_report.hpp"

#include <cmath>
#include <cstdio>

#include <gmock/gmock.h>

#include "hosts/embedded/market/price_file.hpp"
#include "tests/hosts/embedded/price_text.hpp"

namespace varnholt::embedded::test {
namespace {

using testing::ElementsAre;

PriceReport report_of(std::string_view text) {
  return make_price_report(read_price_text(text, "p.csv"));
}

constexpr std::string_view kWide =
    "date,AAA,BBB,CCC\n"
    "2011-01-03,100,,\n"
    "2011-01-04,101,,\n"
    "2011-01-05,,50,\n"
    "2011-01-06,,51,\n"
    "2011-01-07,102,25,\n"
    "2011-01-10,,25.5,\n"
    "2011-01-11,103,,\n";

TEST(PriceReport, SummarisesEachInstrument) {
  const PriceReport report = report_of(kWide);
  EXPECT_THAT(report.columns, ElementsAre("close"));
  EXPECT_EQ(report.day_count, 7u);
  EXPECT_EQ(date_text(report.first_date.value()), "2011-01-03");
  EXPECT_EQ(date_text(report.last_date.value()), "2011-01-11");
  ASSERT_EQ(report.instruments.size(), 3u);

  const InstrumentSummary& a = report.instruments[0];
  EXPECT_EQ(a.symbol, "AAA");
  EXPECT_EQ(a.close_count, 4u);
  EXPECT_EQ(a.gap_count, 3u);
  EXPECT_EQ(a.late_start_days, 0u);
  EXPECT_EQ(a.early_end_days, 0u);

  const InstrumentSummary& b = report.instruments[1];
  EXPECT_EQ(b.close_count, 4u);
  EXPECT_EQ(date_text(b.first_close.value()), "2011-01-05");
  EXPECT_EQ(date_text(b.last_close.value()), "2011-01-10");
  EXPECT_EQ(b.gap_count, 0u);
  EXPECT_EQ(b.late_start_days, 2u);
  EXPECT_EQ(b.early_end_days, 1u);

  const InstrumentSummary& c = report.instruments[2];
  EXPECT_EQ(c.close_count, 0u);
  EXPECT_FALSE(c.first_close.has_value());
  EXPECT_EQ(c.late_start_days, 0u);
}

TEST(PriceReport, ListsEachGapOnce) {
  const PriceReport report = report_of(kWide);
  ASSERT_EQ(report.gaps.size(), 2u);
  EXPECT_EQ(report.gaps[0].symbol, "AAA");
  EXPECT_EQ(date_text(report.gaps[0].first), "2011-01-05");
  EXPECT_EQ(date_text(report.gaps[0].last), "2011-01-06");
  EXPECT_EQ(report.gaps[0].days, 2u);
  EXPECT_EQ(date_text(report.gaps[1].first), "2011-01-10");
  EXPECT_EQ(report.gaps[1].days, 1u);
}

TEST(PriceReport, FindsAJumpAlsoOverAGap) {
  const PriceReport report = report_of(
      "date,A\n2011-01-03,100\n2011-01-04,\n2011-01-05,50\n"
      "2011-01-06,50.5\n2011-01-07,50\n2011-01-10,50.5\n");
  ASSERT_EQ(report.jumps.size(), 1u);
  EXPECT_EQ(report.jumps[0].symbol, "A");
  EXPECT_EQ(date_text(report.jumps[0].from_date), "2011-01-03");
  EXPECT_EQ(date_text(report.jumps[0].to_date), "2011-01-05");
  EXPECT_EQ(report.jumps[0].from, 100.0);
  EXPECT_EQ(report.jumps[0].to, 50.0);
  EXPECT_DOUBLE_EQ(report.jumps[0].log_return, std::log(0.5));
}

TEST(PriceReport, TheThresholdIsTheFloorOrFifteenDeviations) {
  // Quiet: the floor holds. exp(0.34) is no jump, exp(0.36) is one.
  const std::string quiet =
      "date,A\n2011-01-03,100\n2011-01-04,100\n2011-01-05,100\n2011-01-06,100\n";
  EXPECT_EQ(
      report_of(quiet + "2011-01-07," + std::to_string(100 * std::exp(0.34)) + "\n").jumps.size(),
      0u);
  const PriceReport jump =
      report_of(quiet + "2011-01-07," + std::to_string(100 * std::exp(0.36)) + "\n");
  EXPECT_EQ(jump.jumps.size(), 1u);
  EXPECT_EQ(jump.instruments[0].jump_threshold, kJumpFloor);

  // Restless: log returns 0.1, -0.1, 0.1, -0.1 and 1.0. Their median is 0.1, the deviations from
  // it are 0, 0.2, 0, 0.2 and 0.9, the median of those 0.2: the threshold is 3.
  std::string restless = "date,A\n2011-01-03,1\n";
  double level = 0.0;
  int day = 4;
  for (const double value : {0.1, -0.1, 0.1, -0.1, 1.0}) {
    level += value;
    char price[40];
    std::snprintf(price, sizeof price, "%.17g", std::exp(level));
    restless += "2011-01-0" + std::to_string(day++) + "," + price + "\n";
  }
  const PriceReport report = report_of(restless);
  EXPECT_NEAR(report.instruments[0].jump_threshold, 3.0, 1e-12);
  EXPECT_TRUE(report.jumps.empty());
}

TEST(PriceReport, WritesItAllAsText) {
  EXPECT_EQ(price_report_text(report_of(kWide)),
            "columns: close\n"
            "dates: 7, 2011-01-03 to 2011-01-11\n"
            "instruments: 3\n"
            "  AAA      4 closes, 2011-01-03 to 2011-01-11, 3 days missing inside\n"
            "  BBB      4 closes, 2011-01-05 to 2011-01-10, starts 2 days late, ends 1 day early\n"
            "  CCC      no close at all\n"
            "gaps: 2\n"
            "  AAA      2011-01-05 to 2011-01-06, 2 days\n"
            "  AAA      2011-01-10\n"
            "suspicious jumps: 1\n"
            "  BBB      2011-01-07: 51 (2011-01-06) to 25, -51.0 %\n");
}

TEST(PriceReport, CutsLongLists) {
  EXPECT_EQ(price_report_text(report_of(kWide), 1),
            "columns: close\n"
            "dates: 7, 2011-01-03 to 2011-01-11\n"
            "instruments: 3\n"
            "  AAA      4 closes, 2011-01-03 to 2011-01-11, 3 days missing inside\n"
            "  and 2 more\n"
            "gaps: 2\n"
            "  AAA      2011-01-05 to 2011-01-06, 2 days\n"
            "  and 1 more\n"
            "suspicious jumps: 1\n"
            "  BBB      2011-01-07: 51 (2011-01-06) to 25, -51.0 %\n");
}

TEST(PriceReport, NamesTheColumnsThatAreThere) {
  const PriceReport report =
      report_of("date,symbol,volume,close,open,low,high\n2011-01-03,A,1,2,2,2,2\n");
  EXPECT_THAT(report.columns, ElementsAre("open", "high", "low", "close", "volume"));
}

}  // namespace
}  // namespace varnholt::embedded::test
