// Every panel function against values computed by hand. Method: panels of a few days, each with
// ties, a gap, or whatever else the function decides on.
#include "hosts/embedded/vocabulary/panel_functions.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include <gtest/gtest.h>

#include "hosts/embedded/vocabulary/mapped.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using enum ElementFunction;

constexpr double kExact = 0.0;
constexpr double kClose = 1e-14;

TEST(CrossSection, RankSharesThePlacesOfTies) {
  EXPECT_TRUE(panels_are_near(cross_rank(panel({{30, 10, 20, 20, kNan},
                                                {5, 5, 5, kNan, 5},
                                                {kNan, 7, kNan, kNan, kNan},
                                                {kNan, kNan, kNan, kNan, kNan},
                                                {-0.0, 0.0, 1, -1, kNan}})),
                              panel({{1, 0, 0.5, 0.5, kNan},
                                     {0.5, 0.5, 0.5, kNan, 0.5},
                                     {kNan, 0.5, kNan, kNan, kNan},
                                     {kNan, kNan, kNan, kNan, kNan},
                                     {0.5, 0.5, 1, 0, kNan}}),
                              kExact));
}

TEST(CrossSection, ZscoreUsesTheSampleDeviation) {
  // 1, 2, 3 have mean 2 and sample deviation 1; 2 and 6 have mean 4 and deviation sqrt(8).
  const double r = 2.0 / std::sqrt(8.0);
  EXPECT_TRUE(panels_are_near(cross_zscore(panel({{1, 2, 3, kNan},
                                                  {2, kNan, 6, kNan},
                                                  {5, kNan, kNan, kNan},
                                                  {0.1, 0.1, 0.1, kNan},
                                                  {0, 0, 0, 0}})),
                              panel({{-1, 0, 1, kNan},
                                     {-r, kNan, r, kNan},
                                     {kNan, kNan, kNan, kNan},
                                     {kNan, kNan, kNan, kNan},
                                     {kNan, kNan, kNan, kNan}}),
                              kClose));
}

TEST(CrossSection, DemeanTakesTheMeanOfTheKnown) {
  EXPECT_TRUE(panels_are_near(cross_demean(panel({{1, 2, 6, kNan}, {4, kNan, kNan, kNan}})),
                              panel({{-2, -1, 3, kNan}, {0, kNan, kNan, kNan}}), kExact));
}

TEST(CrossSection, ScaleGivesUnitGross) {
  EXPECT_TRUE(panels_are_near(
      cross_scale(panel({{1, -3, kNan}, {0, 0, kNan}, {kNan, -5, kNan}, {1e308, 1e308, 1e308}})),
      panel({{0.25, -0.75, kNan}, {0, 0, kNan}, {kNan, -1, kNan}, {kNan, kNan, kNan}}), kExact));
}

TEST(TimeSeries, MeanAndSumNeedAFullWindow) {
  const Panel x = series({1, 2, 6, kNan, 3, 5, 7, 9});
  EXPECT_TRUE(
      panels_are_near(ts_sum(x, 3), series({kNan, kNan, 9, kNan, kNan, kNan, 15, 21}), kExact));
  EXPECT_TRUE(
      panels_are_near(ts_mean(x, 3), series({kNan, kNan, 3, kNan, kNan, kNan, 5, 7}), kExact));
  EXPECT_TRUE(panels_are_near(ts_mean(x, 1), x, kExact));
}

TEST(TimeSeries, AMissingDayCostsAValueAndNotTheWindow) {
  const Panel x = series({kNan, 1, 2, kNan, 6, 8, kNan, kNan, 4});
  const Window half(4, 0.5);
  EXPECT_EQ(half.least_known, 2);
  // The first known day is the second, so that the first window ends on the fifth; there is none on
  // days that are missing, and the last has two known days of four.
  EXPECT_TRUE(panels_are_near(ts_sum(x, half),
                              series({kNan, kNan, kNan, kNan, 9, 16, kNan, kNan, 12}), kExact));
  EXPECT_TRUE(panels_are_near(
      ts_mean(x, half), series({kNan, kNan, kNan, kNan, 3, 16.0 / 3.0, kNan, kNan, 6}), kExact));
  EXPECT_TRUE(panels_are_near(ts_rank(x, half),
                              series({kNan, kNan, kNan, kNan, 1, 1, kNan, kNan, 0}), kExact));
  // 1 * 1 + 2 * 2 + 4 * 6 over 1 + 2 + 4.
  EXPECT_NEAR(ts_decay(x, half)(4, 0), 29.0 / 7.0, 1e-15);
  EXPECT_TRUE(std::isnan(ts_sum(x, Window(4, 0.75))(8, 0)));
}

TEST(TimeSeries, AShareOfAWindowIsRoundedUpToDays) {
  EXPECT_EQ(Window(5, 0.8).least_known, 4);
  EXPECT_EQ(Window(3, 0.8).least_known, 3);
  EXPECT_EQ(Window(20, 0.55).least_known, 11);
  EXPECT_EQ(Window(10, 0.001).least_known, 1);
  EXPECT_EQ(Window(10, 1.0).least_known, 10);
}

TEST(TimeSeries, AWindowLongerThanTheHistoryKnowsNothing) {
  const Panel x = series({1, 2, 3});
  const Panel unknown = series({kNan, kNan, kNan});
  EXPECT_TRUE(panels_are_near(ts_mean(x, 4), unknown, kExact));
  EXPECT_TRUE(panels_are_near(ts_rank(x, 4), unknown, kExact));
  EXPECT_TRUE(panels_are_near(ts_delta(x, 3), unknown, kExact));
  EXPECT_TRUE(panels_are_near(ts_correlation(x, x, 4), unknown, kExact));
  EXPECT_TRUE(panels_are_near(ts_mean(series({}), 4), series({}), kExact));
}

TEST(TimeSeries, MinAndMax) {
  const Panel x = series({3, 1, 2, 5, kNan, 4, -1, -2});
  EXPECT_TRUE(panels_are_near(ts_min(x, 2), series({kNan, 1, 1, 2, kNan, kNan, -1, -2}), kExact));
  EXPECT_TRUE(panels_are_near(ts_max(x, 2), series({kNan, 3, 2, 5, kNan, kNan, 4, -1}), kExact));
}

TEST(TimeSeries, StdAndZscore) {
  // 2, 4, 6: mean 4, deviation 2.  4, 6, 14: mean 8, deviation sqrt(28).
  const Panel x = series({2, 4, 6, 14});
  EXPECT_TRUE(panels_are_near(ts_std(x, 3), series({kNan, kNan, 2, std::sqrt(28.0)}), kClose));
  EXPECT_TRUE(
      panels_are_near(ts_zscore(x, 3), series({kNan, kNan, 1, 6.0 / std::sqrt(28.0)}), kClose));
}

TEST(TimeSeries, AConstantWindowHasNoSpread) {
  const Panel x = series({0.1, 0.1, 0.1, 0.1, 0.3});
  EXPECT_TRUE(
      panels_are_near(ts_std(x, 3), series({kNan, kNan, 0, 0, std::sqrt(0.04 / 3.0)}), kClose));
  EXPECT_EQ(ts_std(x, 3)(3, 0), 0.0);
  EXPECT_TRUE(panels_are_near(ts_zscore(x, 3),
                              series({kNan, kNan, kNan, kNan, 2.0 / std::sqrt(3.0)}), kClose));
  EXPECT_TRUE(panels_are_near(ts_zscore(series({0, 0, 0}), 2), series({kNan, kNan, kNan}), kExact));
  // A spread of the last bit is rounding.
  const Panel noise = series({1.0, 1.0 + 0x1p-52, 1.0});
  EXPECT_TRUE(panels_are_near(ts_std(noise, 3), series({kNan, kNan, 0}), kExact));
}

TEST(TimeSeries, OneDayHasNoSampleDeviation) {
  const Panel x = series({1, 2});
  const Panel unknown = series({kNan, kNan});
  EXPECT_TRUE(panels_are_near(ts_std(x, 1), unknown, kExact));
  EXPECT_TRUE(panels_are_near(ts_zscore(x, 1), unknown, kExact));
  EXPECT_TRUE(panels_are_near(ts_covariance(x, x, 1), unknown, kExact));
  EXPECT_TRUE(panels_are_near(ts_correlation(x, x, 1), unknown, kExact));
}

TEST(TimeSeries, RankIsThePlaceOfToday) {
  const Panel x = series({1, 3, 2, 2, 0, kNan, 5, 6, 7});
  EXPECT_TRUE(panels_are_near(ts_rank(x, 3),
                              series({kNan, kNan, 0.5, 0.25, 0, kNan, kNan, kNan, 1}), kExact));
  EXPECT_TRUE(panels_are_near(ts_rank(series({4, kNan}), 1), series({0.5, kNan}), kExact));
}

TEST(TimeSeries, DeltaNeedsItsTwoEndsOnly) {
  EXPECT_TRUE(panels_are_near(ts_delta(series({1, kNan, 4, 8, 9}), 2),
                              series({kNan, kNan, 3, kNan, 5}), kExact));
}

TEST(TimeSeries, DecayWeighsTodayMost) {
  // (1*3 + 2*6 + 3*12) / 6 = 8.5 and (1*6 + 2*12 + 3*0) / 6 = 5.
  EXPECT_TRUE(panels_are_near(ts_decay(series({3, 6, 12, 0, kNan, 1}), 3),
                              series({kNan, kNan, 8.5, 5, kNan, kNan}), kClose));
}

TEST(TimeSeries, CovarianceAndCorrelation) {
  // Means 2 and 4: (-1)(-2) + 0*(-1) + 1*3 = 5, over 2. Deviations: 2 and 14.
  const Panel x = series({1, 2, 3, kNan, 1, 1, 1});
  const Panel y = series({2, 3, 7, 1, 2, 3, 4});
  EXPECT_TRUE(panels_are_near(ts_covariance(x, y, 3),
                              series({kNan, kNan, 2.5, kNan, kNan, kNan, 0}), kClose));
  EXPECT_TRUE(panels_are_near(ts_correlation(x, y, 3),
                              series({kNan, kNan, 5.0 / std::sqrt(28.0), kNan, kNan, kNan, kNan}),
                              kClose));
  EXPECT_TRUE(panels_are_near(ts_correlation(y, mapped(Neg, y), 3),
                              series({kNan, kNan, -1, -1, -1, -1, -1}), kClose));
}

TEST(TimeSeries, CorrelationStaysWithinOne) {
  std::mt19937_64 engine(3);
  const Panel x = random_panel(engine, 400, 10, 0.0);
  const Panel correlation = ts_correlation(x, mapped(Mul, x, Panel::Constant(400, 10, 0.1)), 7);
  for (Eigen::Index i = 0; i < correlation.size(); ++i) {
    EXPECT_FALSE(correlation.data()[i] > 1.0) << i;
  }
}

TEST(TimeSeries, NothingOutlivesItsWindow) {
  // A running sum that adds and subtracts would keep the rounding of 1e16 for ever.
  Panel x = Panel::Constant(200, 1, 0.5);
  x(20, 0) = 1e16;
  x(40, 0) = kNan;
  const Panel sums = ts_sum(x, 10);
  for (Eigen::Index day = 50; day < 200; ++day)
    ASSERT_EQ(sums(day, 0), 5.0) << day;
  EXPECT_EQ(sums(30, 0), 5.0);
  EXPECT_EQ(ts_std(x, 10)(30, 0), 0.0);
}

TEST(TimeSeries, ASmallSpreadOnALargeLevelIsSeen) {
  // Squares of the values would swallow the spread: 1e8 squared is 1e16.
  const Panel x = series({1e8 + 1, 1e8 + 2, 1e8 + 3, 1e8 + 4});
  EXPECT_TRUE(panels_are_near(ts_std(x, 3), series({kNan, kNan, 1, 1}), 1e-9));
}

TEST(Arithmetic, WorksEntryByEntry) {
  const Panel x = series({6, -2, 0, kNan, 1});
  const Panel y = series({3, 4, -5, 1, kNan});
  EXPECT_TRUE(panels_are_near(mapped(Add, x, y), series({9, 2, -5, kNan, kNan}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Sub, x, y), series({3, -6, 5, kNan, kNan}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Mul, x, y), series({18, -8, 0, kNan, kNan}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Div, x, y), series({2, -0.5, 0, kNan, kNan}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Min, x, y), series({3, -2, -5, kNan, kNan}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Max, x, y), series({6, 4, 0, kNan, kNan}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Greater, x, y), series({1, 0, 1, kNan, kNan}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Less, x, y), series({0, 1, 0, kNan, kNan}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Greater, x, x), series({0, 0, 0, kNan, 0}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Less, x, x), series({0, 0, 0, kNan, 0}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Neg, x), series({-6, 2, 0, kNan, -1}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Abs, x), series({6, 2, 0, kNan, 1}), kExact));
  EXPECT_TRUE(panels_are_near(mapped(Sign, x), series({1, -1, 0, kNan, 1}), kExact));
  EXPECT_TRUE(panels_are_near(
      mapped(Log, x), series({std::log(7.0), -std::log(3.0), 0, kNan, std::log(2.0)}), kClose));
  EXPECT_TRUE(panels_are_near(
      mapped(Tanh, x), series({std::tanh(6.0), -std::tanh(2.0), 0, kNan, std::tanh(1.0)}), kClose));
}

// Numbers of both signs whose sizes go from the smallest to the largest of a range, evenly by their
// logarithms.
Panel numbers_of_all_sizes(double least_log, double greatest_log) {
  constexpr int kCount = 200'000;
  Panel x(kCount, 1);
  for (int i = 0; i < kCount; ++i) {
    const double log = least_log + (greatest_log - least_log) * i / (kCount - 1);
    x(i, 0) = (i % 2 == 0 ? 1.0 : -1.0) * std::exp(log);
  }
  return x;
}

// By how many units of the last digit the furthest entry is off.
double furthest_off(const Panel& result, const Panel& x, long double (*exact)(long double)) {
  double worst = 0.0;
  for (Eigen::Index i = 0; i < x.size(); ++i) {
    const long double expected = exact(static_cast<long double>(x(i, 0)));
    const double size = std::abs(static_cast<double>(expected));
    const double digit = std::nextafter(size, 1e300) - size;
    const double off =
        static_cast<double>(std::abs(static_cast<long double>(result(i, 0)) - expected));
    worst = std::isnan(off) ? off : std::max(worst, off / digit);
    if (std::isnan(worst)) break;
  }
  return worst;
}

constexpr double kLeast = std::numeric_limits<double>::denorm_min();
constexpr double kInfinite = std::numeric_limits<double>::infinity();

TEST(Arithmetic, TanhIsRightToTheLastDigits) {
  const Panel x = numbers_of_all_sizes(-60.0, 4.0);  // To beyond where it is 1.
  EXPECT_LE(furthest_off(mapped(Tanh, x), x, [](long double a) { return std::tanh(a); }), 3.0);
  EXPECT_TRUE(
      begins_with(mapped(Tanh, series({0, -0.0, kLeast, -kLeast, 1e300, kInfinite, -kInfinite})),
                  series({0, -0.0, kLeast, -kLeast, 1, 1, -1})));
}

TEST(Arithmetic, LogarithmsAreRightToTheLastDigits) {
  const auto log = [](long double a) { return std::copysign(std::log1p(std::abs(a)), a); };
  for (const Panel& x : {numbers_of_all_sizes(-60.0, 5.0), numbers_of_all_sizes(-700.0, 700.0)}) {
    EXPECT_LE(furthest_off(mapped(Log, x), x, log), 2.0);
    const Panel size = x.abs();
    EXPECT_LE(furthest_off(mapped(Ln, size), size, [](long double a) { return std::log(a); }), 2.0);
  }
  EXPECT_TRUE(begins_with(mapped(Log, series({0, -0.0, kLeast, -kLeast, kInfinite, -kInfinite})),
                          series({0, -0.0, kLeast, -kLeast, kNan, kNan})));
  EXPECT_TRUE(panels_are_near(
      mapped(Ln, series({0, -0.0, -1, 1, kLeast, 1e-310, kInfinite, kNan})),
      series({kNan, kNan, kNan, 0, std::log(kLeast), std::log(1e-310), kNan, kNan}), 1e-15));
}

TEST(Arithmetic, DivisionByNextToNothingIsUnknown) {
  EXPECT_TRUE(panels_are_near(
      mapped(Div, series({1, 1, 1, 1, 0}), series({0, 0.9e-12, -0.9e-12, 1e-12, -0.0})),
      series({kNan, kNan, kNan, 1e12, kNan}), 1e-9));
}

TEST(Arithmetic, WhatIsNotFiniteIsUnknown) {
  const Panel huge = series({1e308, -1e308});
  const Panel unknown = series({kNan, kNan});
  EXPECT_TRUE(panels_are_near(mapped(Mul, huge, huge), unknown, kExact));
  EXPECT_TRUE(panels_are_near(mapped(Add, huge, huge), unknown, kExact));
  EXPECT_TRUE(panels_are_near(mapped(Div, huge, series({1e-10, 1e-10})), unknown, kExact));
  EXPECT_TRUE(panels_are_near(ts_sum(series({1e308, 1e308}), 2), unknown, kExact));
  EXPECT_TRUE(panels_are_near(ts_delta(series({-1e308, 1e308}), 1), unknown, kExact));
  EXPECT_TRUE(panels_are_near(ts_zscore(series({-1e308, 1e308}), 2), unknown, kExact));
}

TEST(PanelFunctions, RefuseTwoShapesAndEmptyWindows) {
  const Panel x = series({1, 2});
  const Panel y = series({1, 2, 3});
  EXPECT_THROW((void)mapped(Add, x, y), std::invalid_argument);
  EXPECT_THROW((void)ts_covariance(x, y, 2), std::invalid_argument);
  EXPECT_THROW((void)ts_mean(x, 0), std::invalid_argument);
  EXPECT_THROW((void)ts_rank(x, 0), std::invalid_argument);
  EXPECT_THROW((void)ts_delta(x, -1), std::invalid_argument);
  EXPECT_THROW((void)ts_correlation(x, x, 0), std::invalid_argument);
}

}  // namespace
}  // namespace varnholt::embedded::test
