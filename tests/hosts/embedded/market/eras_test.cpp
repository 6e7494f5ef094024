// Eras: the days of a history fall into train eras and a hold-out, each exactly once; a history too
// short for that is refused with the remedy.
// Method: boundaries written out; random settings against the rules of the header.
#include "hosts/embedded/market/eras.hpp"

#include <limits>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/market/calendar_date.hpp"

namespace varnholt::embedded::test {
namespace {

// Consecutive days from 2011-01-01 on.
std::vector<Date> dates(int count) {
  std::vector<Date> result;
  const Date first = parse_date("2011-01-01").value();
  for (int day = 0; day < count; ++day)
    result.push_back(first + std::chrono::days(day));
  return result;
}

std::string refusal(int days, const EraSettings& settings) {
  try {
    static_cast<void>(split_eras(dates(days), settings));
  } catch (const EraError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(Eras, SplitAHistoryByTheDefaults) {
  const EraPlan plan = split_eras(dates(1000), {});
  ASSERT_EQ(plan.train.size(), 3U);
  EXPECT_EQ(plan.train[0].first_day, 0);
  EXPECT_EQ(plan.train[0].end_day, 250);
  EXPECT_EQ(plan.train[1].first_day, 250);
  EXPECT_EQ(plan.train[1].end_day, 500);
  EXPECT_EQ(plan.train[2].end_day, 750);
  EXPECT_EQ(plan.holdout.first_day, 750);
  EXPECT_EQ(plan.holdout.end_day, 1000);
  EXPECT_EQ(plan.train_days(), 750);
  EXPECT_EQ(plan.era, 3);
  EXPECT_EQ(plan.seen_days(), 750);
}

TEST(Eras, CarryTheDatesOfTheirFirstAndLastDay) {
  const EraPlan plan = split_eras(dates(100), {.train = 2, .holdout = 0.4});
  EXPECT_EQ(date_text(plan.train[0].first_date), "2011-01-01");
  EXPECT_EQ(date_text(plan.train[0].last_date), "2011-01-30");
  EXPECT_EQ(date_text(plan.train[1].first_date), "2011-01-31");
  EXPECT_EQ(date_text(plan.train[1].last_date), "2011-03-01");
  EXPECT_EQ(date_text(plan.holdout.first_date), "2011-03-02");
  EXPECT_EQ(date_text(plan.holdout.last_date), "2011-04-10");
}

TEST(Eras, AnEarlierEraSeesLess) {
  EXPECT_EQ(split_eras(dates(1000), {.era = 1}).seen_days(), 250);
  EXPECT_EQ(split_eras(dates(1000), {.era = 2}).seen_days(), 500);
  EXPECT_EQ(split_eras(dates(1000), {.era = 3}).seen_days(), 750);
}

TEST(Eras, RoundTheHoldOutToWholeDays) {
  EXPECT_EQ(split_eras(dates(101), {.train = 1, .holdout = 0.25}).holdout.day_count(), 25);
  EXPECT_EQ(split_eras(dates(102), {.train = 1, .holdout = 0.25}).holdout.day_count(), 26);
  EXPECT_EQ(split_eras(dates(103), {.train = 1, .holdout = 0.25}).holdout.day_count(), 26);
}

TEST(Eras, CoverEveryDayOnceInErasOfNearlyOneLength) {
  for (std::uint64_t seed = 1; seed <= 300; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 engine(seed);
    const EraSettings settings{.train = 1 + static_cast<int>(engine() % 12),
                               .holdout = 0.1 + 0.6 * static_cast<double>(engine() >> 11) * 0x1p-53,
                               .era = 1};
    const int days = 2000 + static_cast<int>(engine() % 3000);
    const EraPlan plan = split_eras(dates(days), settings);
    ASSERT_EQ(plan.train.size(), static_cast<std::size_t>(settings.train));
    Eigen::Index next = 0, shortest = days, longest = 0;
    for (const DaySpan& era : plan.train) {
      ASSERT_EQ(era.first_day, next);
      next = era.end_day;
      shortest = std::min(shortest, era.day_count());
      longest = std::max(longest, era.day_count());
      ASSERT_EQ(era.first_date, dates(days)[static_cast<std::size_t>(era.first_day)]);
      ASSERT_EQ(era.last_date, dates(days)[static_cast<std::size_t>(era.end_day - 1)]);
    }
    EXPECT_LE(longest - shortest, 1);
    EXPECT_GE(shortest, kMinimumEraDays);
    EXPECT_EQ(plan.holdout.first_day, next);
    EXPECT_EQ(plan.holdout.end_day, days);
    EXPECT_NEAR(static_cast<double>(plan.holdout.day_count()), settings.holdout * days, 0.5001);
    EXPECT_EQ(plan.seen_days(), plan.train.front().end_day);
  }
}

TEST(Eras, RefuseAHistoryThatIsTooShort) {
  EXPECT_EQ(refusal(80, {}), "accepted");
  EXPECT_EQ(refusal(77, {}),
            "of a history of 77 days (train eras: 3, hold-out: 0.25 of the days) the hold-out has "
            "19 days, and 20 are needed; give a longer history or a larger hold-out");
  EXPECT_EQ(refusal(100, {.train = 4}),
            "of a history of 100 days (train eras: 4, hold-out: 0.25 of the days) a train era has "
            "18 days, and 20 are needed; give a longer history, fewer train eras or a smaller "
            "hold-out");
  EXPECT_EQ(refusal(40, {.train = 1, .holdout = 0.6}),
            "of a history of 40 days (train eras: 1, hold-out: 0.6 of the days) a train era has 16 "
            "days, and 20 are needed; give a longer history or a smaller hold-out");
  EXPECT_EQ(refusal(0, {}).substr(0, 24), "of a history of 0 days (");
}

TEST(Eras, TheShortestHistoryHasTheFewestDaysEverywhere) {
  const EraPlan plan = split_eras(dates(40), {.train = 1, .holdout = 0.5});
  EXPECT_EQ(plan.train.front().day_count(), kMinimumEraDays);
  EXPECT_EQ(plan.holdout.day_count(), kMinimumEraDays);
  EXPECT_NE(refusal(39, {.train = 1, .holdout = 0.5}), "accepted");
}

TEST(Eras, RefuseSettingsOutOfRange) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(refusal(1000, {.train = 0}), "0 train eras; ask for 1 to 1000");
  EXPECT_EQ(refusal(1000, {.train = 1001}), "1001 train eras; ask for 1 to 1000");
  EXPECT_EQ(refusal(1000, {.holdout = 0.0}),
            "a hold-out of 0 of the days; give a share above 0 and below 1");
  EXPECT_NE(refusal(1000, {.holdout = 1.0}), "accepted");
  EXPECT_NE(refusal(1000, {.holdout = nan}), "accepted");
  EXPECT_EQ(refusal(1000, {.era = 4}), "era 4 of 3 train eras; ask for one of 1 to 3");
  EXPECT_NE(refusal(1000, {.era = 0}), "accepted");
}

TEST(Eras, TheHoldOutBeginsOnItsDay) {
  const std::vector<Date> days = dates(100);
  const EraPlan plan = split_eras(days, {.train = 2, .holdout_from = days[60]});
  EXPECT_EQ(plan.holdout.first_day, 60);
  EXPECT_EQ(plan.holdout.first_date, days[60]);
  EXPECT_EQ(plan.train[0].end_day, 30);
  // Days that are added belong to it, and move nothing.
  const EraPlan longer = split_eras(dates(150), {.train = 2, .holdout_from = days[60]});
  EXPECT_EQ(longer.seen_days(), plan.seen_days());
  EXPECT_EQ(longer.train[0].end_day, plan.train[0].end_day);
  EXPECT_EQ(longer.holdout.day_count(), 90);
  EXPECT_EQ(refusal(100, {.train = 1, .holdout_from = days[85]}),
            "of a history of 100 days (train eras: 1, hold-out: from " + date_text(days[85]) +
                ") the hold-out has 15 days, and 20 are needed; give a longer history or a "
                "hold-out that begins earlier");
  EXPECT_THAT(refusal(100, {.train = 4, .holdout_from = days[60]}),
              ::testing::HasSubstr("fewer train eras or a hold-out that begins later"));
}

TEST(Eras, ADayThatIsNotInTheHistoryStandsForTheNextOne) {
  std::vector<Date> days = dates(100);
  const Date gone = days[60];
  days.erase(days.begin() + 60);
  EXPECT_EQ(split_eras(days, {.holdout_from = gone}).holdout.first_day, 60);
}

}  // namespace
}  // namespace varnholt::embedded::test
