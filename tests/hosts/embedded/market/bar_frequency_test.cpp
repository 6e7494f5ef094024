// How many periods a year has, as the dates tell it.
// Method: calendars written by rule, with holidays, and the edges of what is recognised.
#include "hosts/embedded/market/bar_frequency.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

constexpr Date kFirst = std::chrono::year{2015} / 1 / 5;  // A Monday.

std::vector<Date> every(int step, int count) {
  std::vector<Date> dates;
  for (int i = 0; i < count; ++i)
    dates.push_back(kFirst + std::chrono::days(step * i));
  return dates;
}

// Mondays to Fridays without every `holiday`th of them; all of them with 0.
std::vector<Date> weekdays(int count, int holiday) {
  std::vector<Date> dates;
  for (int day = 0, number = 0; static_cast<int>(dates.size()) < count; ++day) {
    if (day % 7 >= 5) continue;
    ++number;
    if (holiday == 0 || number % holiday != 0) dates.push_back(kFirst + std::chrono::days(day));
  }
  return dates;
}

TEST(PeriodsPerYear, AreThoseOfTheUsualCalendars) {
  EXPECT_EQ(periods_per_year(weekdays(2500, 0)), 252.0);
  EXPECT_EQ(periods_per_year(weekdays(2500, 29)), 252.0);
  EXPECT_EQ(periods_per_year(weekdays(30, 0)), 252.0);
  EXPECT_EQ(periods_per_year(every(1, 700)), 365.0);
  EXPECT_EQ(periods_per_year(every(7, 200)), 52.0);
  EXPECT_EQ(periods_per_year(every(30, 60)), 12.0);
  EXPECT_EQ(periods_per_year(every(91, 20)), 4.0);
}

TEST(PeriodsPerYear, OfAnUnusualCalendarAreItsOwn) {
  EXPECT_EQ(periods_per_year(every(2, 400)), 183.0);
  EXPECT_EQ(periods_per_year(every(3, 400)), 122.0);
  EXPECT_EQ(periods_per_year(every(2000, 3)), 1.0);
}

TEST(PeriodsPerYear, OfASingleDayAreThoseOfAnExchange) {
  EXPECT_EQ(periods_per_year({}), 252.0);
  EXPECT_EQ(periods_per_year({kFirst}), 252.0);
}

}  // namespace
}  // namespace varnholt::embedded::test
