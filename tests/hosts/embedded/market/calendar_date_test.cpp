// Dates: every day of the calendar goes to text and back, and nothing else is a date.
// Method: all days of four centuries against a count by hand, and a table of texts to refuse.
#include "hosts/embedded/market/calendar_date.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

TEST(CalendarDate, EveryDayOfTheCalendarGoesToTextAndBack) {
  int days = 0;
  int leap_days = 0;
  const Date first = std::chrono::year{1800} / 1 / 1;
  const Date last = std::chrono::year{2199} / 12 / 31;
  for (Date date = first; date <= last; date += std::chrono::days{1}) {
    const std::string text = date_text(date);
    ASSERT_EQ(parse_date(text), date) << text;
    ++days;
    if (text.substr(4) == "-02-29") ++leap_days;
  }
  // The Gregorian calendar repeats after 400 years, which have 97 leap years.
  EXPECT_EQ(days, 400 * 365 + 97);
  EXPECT_EQ(leap_days, 97);
}

TEST(CalendarDate, CountsDaysFrom1970) {
  EXPECT_EQ(parse_date("1970-01-01")->time_since_epoch().count(), 0);
  EXPECT_EQ(parse_date("2000-03-01")->time_since_epoch().count(), 11017);
  EXPECT_EQ(date_text(Date{std::chrono::days{11017}}), "2000-03-01");
}

TEST(CalendarDate, RefusesWhatIsNoDay) {
  for (const char* text : {"", "2011-02-29", "1900-02-29", "2011-04-31", "2011-13-01", "2011-00-10",
                           "2011-01-00", "2011-01-32", "2011-1-1", "2011/01/01", "11-01-2011",
                           "20110101", "2011-01-01 ", "2011-01-01T00:00:00", "2011-01-0a",
                           "+011-01-01", "2011-01--1", "0999-01-01", "yyyy-mm-dd"}) {
    EXPECT_EQ(parse_date(text), std::nullopt) << text;
  }
  EXPECT_TRUE(parse_date("2000-02-29").has_value());
  EXPECT_TRUE(parse_date("2012-02-29").has_value());
}

}  // namespace
}  // namespace varnholt::embedded::test
