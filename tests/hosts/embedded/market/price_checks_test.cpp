// Goal: each check finds what it is made for, at its threshold and not below it, and a clean file
// gives no finding.
// Method: closes of two quiet instruments over fifty days, each time with one thing wrong.
#include "hosts/embedded/market/price_checks.hpp"

#include <algorithm>
#include <functional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr Eigen::Index kDays = 50;
const Date kFirst = parse_date("2020-01-01").value();
const Date kToday = parse_date("2021-06-01").value();

// Two instruments that go up and down by a hundredth, with all columns.
MarketData clean() {
  MarketData data;
  data.symbols = {"AAA", "BBB"};
  data.close.resize(kDays, 2);
  for (Eigen::Index day = 0; day < kDays; ++day) {
    data.dates.push_back(kFirst + std::chrono::days{day});
    data.close(day, 0) = day % 2 == 0 ? 100.0 : 101.0;
    data.close(day, 1) = day % 2 == 0 ? 50.5 : 50.0;
  }
  data.high = data.close * 1.01;
  data.low = data.close * 0.99;
  data.volume = Panel::Constant(kDays, 2, 1000.0);
  return data;
}

using Change = std::function<void(MarketData&)>;

// What the check of this name finds, once the data are changed. No other check finds anything,
// unless it is named too.
std::vector<PriceFinding> found(const std::string& name, const Change& change,
                                const std::string& also = "") {
  MarketData data = clean();
  change(data);
  std::vector<PriceFinding> findings;
  for (const CheckedPrices& one : run_price_checks(data, kToday)) {
    if (one.check->name == name) {
      findings = one.findings;
    } else if (one.check->name != also) {
      EXPECT_THAT(one.findings, IsEmpty()) << one.check->name;
    }
  }
  return findings;
}

// All prices of an instrument from a day on, times a factor.
void scale(MarketData& data, Eigen::Index instrument, Eigen::Index from, double factor) {
  for (Panel* const panel : {&data.close, &*data.high, &*data.low})
    panel->col(instrument).tail(kDays - from) *= factor;
}

TEST(PriceChecks, ACleanFileIsClean) {
  const auto checked = run_price_checks(clean(), kToday);
  EXPECT_EQ(checked.size(), 8U);
  for (const CheckedPrices& one : checked)
    EXPECT_THAT(one.findings, IsEmpty()) << one.check->name;
  EXPECT_EQ(price_checks_text(run_price_checks(clean(), kToday), 20), "");
}

TEST(PriceChecks, FutureDates) {
  const auto ending = [](const char* last) {
    return [last](MarketData& data) {
      const auto shift = parse_date(last).value() - data.dates.back();
      for (Date& date : data.dates)
        date += shift;
    };
  };
  EXPECT_THAT(found("future_dates", ending("2021-06-02")), IsEmpty());
  const auto findings = found("future_dates", ending("2021-06-04"));
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(date_text(findings[0].first), "2021-06-03");
  EXPECT_EQ(findings[0].figure, 2.0);
  EXPECT_EQ(findings[0].text, "2 days in the future");
}

TEST(PriceChecks, LongBars) {
  const auto apart = [](int days) {
    return [days](MarketData& data) {
      for (std::size_t i = 0; i < data.dates.size(); ++i)
        data.dates[i] = kFirst + std::chrono::days{static_cast<int>(i) * days};
    };
  };
  EXPECT_THAT(found("long_bars", apart(3)), IsEmpty());
  const auto findings = found("long_bars", apart(7));
  ASSERT_EQ(findings.size(), 2U);
  EXPECT_EQ(findings[1].symbol, "BBB");
  EXPECT_EQ(findings[1].figure, 7.0);
  // One weekly instrument among daily ones.
  const auto weekly = found("long_bars", [](MarketData& data) {
    for (Eigen::Index day = 0; day < kDays; ++day) {
      if (day % 7 != 0) data.close(day, 1) = kNan;
    }
  });
  ASSERT_EQ(weekly.size(), 1U);
  EXPECT_EQ(weekly[0].symbol, "BBB");
}

TEST(PriceChecks, StaleCloses) {
  const auto stale = [](Eigen::Index days) {
    return [days](MarketData& data) {
      data.close.col(0).segment(20, days) = 100.0;
      data.close.col(0).segment(20, days)(days - 1) = 100.0;
      data.close(19, 0) = data.close(20 + days, 0) = 101.0;
      *data.high = data.close * 1.01;
      *data.low = data.close * 0.99;
    };
  };
  EXPECT_THAT(found("stale_closes", stale(9)), IsEmpty());
  const auto findings = found("stale_closes", stale(10));
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(findings[0].symbol, "AAA");
  EXPECT_EQ(findings[0].first, kFirst + std::chrono::days{20});
  EXPECT_EQ(findings[0].last, kFirst + std::chrono::days{29});
  EXPECT_EQ(findings[0].figure, 10.0);
}

TEST(PriceChecks, ZeroVolumes) {
  const auto findings = found("zero_volumes", [](MarketData& data) {
    (*data.volume)(3, 1) = (*data.volume)(5, 1) = 0.0;
    (*data.volume)(4, 1) = kNan;  // Not known is not zero.
  });
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(findings[0].symbol, "BBB");
  EXPECT_EQ(findings[0].figure, 2.0);
  EXPECT_EQ(findings[0].text, "a close and no volume on 2 days, 4.0 % of them");
}

TEST(PriceChecks, ClosesOutside) {
  const auto high_below = [](double share) {
    return [share](MarketData& data) { (*data.high)(7, 0) = data.close(7, 0) * (1.0 - share); };
  };
  EXPECT_THAT(found("closes_outside", high_below(0.00009)), IsEmpty());
  const auto high = found("closes_outside", high_below(0.01));
  ASSERT_EQ(high.size(), 1U);
  EXPECT_NEAR(high[0].figure, 1.0 / 0.99 - 1.0, 1e-12);
  EXPECT_EQ(high[0].first, kFirst + std::chrono::days{7});
  const auto low = found("closes_outside",
                         [](MarketData& data) { (*data.low)(7, 1) = data.close(7, 1) * 1.02; });
  ASSERT_EQ(low.size(), 1U);
  EXPECT_NEAR(low[0].figure, 0.02, 1e-12);
}

TEST(PriceChecks, UnadjustedSplits) {
  const auto split = [](double factor) {
    return [factor](MarketData& data) { scale(data, 0, 30, factor); };
  };
  const auto two = found("unadjusted_splits", split(0.5));
  ASSERT_EQ(two.size(), 1U);
  EXPECT_EQ(two[0].symbol, "AAA");
  EXPECT_EQ(two[0].last, kFirst + std::chrono::days{30});
  EXPECT_THAT(two[0].text, HasSubstr("as in a split of 2 to 1"));
  EXPECT_THAT(found("unadjusted_splits", split(10.0)).at(0).text,
              HasSubstr("as in a split of 1 to 10"));
  EXPECT_THAT(found("unadjusted_splits", split(2.0 / 3.0)).at(0).text,
              HasSubstr("as in a split of 3 to 2"));
  // A jump of no such ratio, and one that is gone the day after.
  EXPECT_THAT(found("unadjusted_splits", split(1.0 / 2.23)), IsEmpty());
  EXPECT_THAT(found("unadjusted_splits",
                    [](MarketData& data) {
                      scale(data, 0, 30, 0.5);
                      scale(data, 0, 31, 2.0);
                    }),
              IsEmpty());
}

TEST(PriceChecks, EarlyEnds) {
  const auto ending = [](Eigen::Index missing) {
    return [missing](MarketData& data) { data.close.col(1).tail(missing) = kNan; };
  };
  EXPECT_THAT(found("early_ends", ending(4)), IsEmpty());
  const auto findings = found("early_ends", ending(5));
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(findings[0].symbol, "BBB");
  EXPECT_EQ(findings[0].first, kFirst + std::chrono::days{44});
  EXPECT_EQ(findings[0].figure, 5.0);
}

TEST(PriceChecks, FewCommonDays) {
  const auto without = [](Eigen::Index days) {
    return [days](MarketData& data) { data.close.middleRows(0, days).col(0) = kNan; };
  };
  // With one of two known a day is common.
  EXPECT_THAT(found("few_common_days", without(30)), IsEmpty());
  const auto neither = [](Eigen::Index days) {
    return [days](MarketData& data) { data.close.topRows(days) = kNan; };
  };
  EXPECT_THAT(found("few_common_days", neither(10)), IsEmpty());
  const auto findings = found("few_common_days", neither(11));
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_NEAR(findings[0].figure, 0.78, 1e-12);
  EXPECT_EQ(findings[0].symbol, "");
}

TEST(PriceChecks, AreToldWithTheirRemedies) {
  MarketData data = clean();
  data.volume->row(3).setZero();
  const auto checked = run_price_checks(data, kToday);
  EXPECT_EQ(price_checks_text(checked, 1),
            "zero_volumes: 2 (a day with a close and a volume of 0)\n"
            "  AAA      2020-01-04: a close and no volume on 1 day, 2.0 % of them\n"
            "  and 1 more\n"
            "  remedy: leave the cell of the volume empty where it is not known, and that of the "
            "close too where nothing was traded\n");
}

}  // namespace
}  // namespace varnholt::embedded::test
