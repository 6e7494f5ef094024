// Information coefficients: which signal meets which return, and what counts nowhere. Method: a few
// days of a few instruments, written out; the same figures are compared with another library in
// tests/apps/test_figures.py.
#include "hosts/embedded/backtest/information.hpp"

#include <cmath>
#include <limits>
#include <stdexcept>

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// Closes of which each day's changes are those of the row, in per cent, for four instruments.
Panel closes(const Panel& changes) {
  Panel close = Panel::Constant(changes.rows() + 1, changes.cols(), 100.0);
  for (Eigen::Index day = 0; day < changes.rows(); ++day)
    close.row(day + 1) = close.row(day) * (1.0 + changes.row(day) / 100.0);
  return close;
}

Panel rows(std::initializer_list<std::initializer_list<double>> values) {
  Panel panel(static_cast<Eigen::Index>(values.size()),
              static_cast<Eigen::Index>(values.begin()->size()));
  Eigen::Index row = 0;
  for (const auto& line : values) {
    Eigen::Index column = 0;
    for (const double value : line)
      panel(row, column++) = value;
    ++row;
  }
  return panel;
}

TEST(Information, ASignalMeetsTheReturnThatItsPositionEarns) {
  const Panel changes = rows({{1, 2, 3, 4}, {4, 3, 2, 1}, {1, 2, 3, 4}, {4, 1, 2, 3}});
  // The signal of a day tells the change of the day after the next one.
  Panel signal = Panel::Zero(5, 4);
  for (Eigen::Index day = 0; day + 1 < 4; ++day)
    signal.row(day) = changes.row(day + 1);
  const InformationFigures late = information_figures(signal, closes(changes), 1, 0, 4);
  EXPECT_NEAR(late.pearson.mean, 1.0, 1e-9);
  EXPECT_EQ(late.pearson.days, 3) << "the first holding day has no signal yet";
  // Without a delay it is the second lag that tells it.
  const InformationFigures at_once = information_figures(signal, closes(changes), 0, 0, 4);
  EXPECT_NEAR(at_once.by_lag[1], 1.0, 1e-9);
  EXPECT_LT(at_once.by_lag[0], 0.0);
  EXPECT_TRUE(std::isnan(at_once.by_lag[19]));
}

TEST(Information, TheMeanHasItsStandardError) {
  // Coefficients of 1, 1 and -1.
  const Panel changes = rows({{1, 2, 3}, {1, 2, 3}, {3, 2, 1}});
  Panel signal = Panel::Zero(4, 3);
  for (Eigen::Index day = 0; day < 3; ++day)
    signal.row(day) << 1.0, 2.0, 3.0;
  const InformationFigures figures = information_figures(signal, closes(changes), 0, 0, 3);
  EXPECT_NEAR(figures.pearson.mean, 1.0 / 3.0, 1e-9);
  EXPECT_NEAR(figures.pearson.t_value, (1.0 / 3.0) / (std::sqrt(4.0 / 3.0) / std::sqrt(3.0)), 1e-9);
}

TEST(Information, RanksShareTheirMeanAndForgetDistances) {
  const Panel changes = rows({{1, 2, 30, 4}});
  const Panel steep = rows({{1, 2, 1000, 3}, {0, 0, 0, 0}});
  const InformationFigures figures = information_figures(steep, closes(changes), 0, 0, 1);
  EXPECT_NEAR(figures.rank.mean, 1.0, 1e-12);
  EXPECT_LT(figures.pearson.mean, 0.9999);
  // Ranks 1.5, 1.5, 4, 3 beside 1, 2, 4, 3: the covariance is 4.5 / 3, the variances 4.5 and 5.
  const Panel tied = rows({{1, 1, 9, 3}, {0, 0, 0, 0}});
  EXPECT_NEAR(information_figures(tied, closes(changes), 0, 0, 1).rank.mean,
              4.5 / std::sqrt(4.5 * 5.0), 1e-12);
}

TEST(Information, ADayNeedsThreeInstrumentsAndASpread) {
  const Panel changes = rows({{1, 2, 3}, {1, 2, 3}, {1, 1, 1}});
  Panel close = closes(changes);
  const Panel signal = rows({{1, 2, kNan}, {5, 5, 5}, {1, 2, 3}, {0, 0, 0}});
  const InformationFigures none = information_figures(signal, close, 0, 0, 3);
  EXPECT_EQ(none.pearson.days, 0);
  EXPECT_TRUE(std::isnan(none.pearson.mean));
  EXPECT_TRUE(std::isnan(none.rank.t_value));
}

TEST(Information, NothingOutsideOfTheHoldingDaysCounts) {
  const Panel changes = rows({{1, 2, 3}, {1, 3, 2}, {3, 2, 1}, {2, 2, 9}});
  Panel close = closes(changes);
  const Panel signal = rows({{1, 2, 3}, {1, 2, 3}, {1, 2, 3}, {1, 2, 3}, {1, 2, 3}});
  const InformationFigures before = information_figures(signal, close, 0, 1, 2);
  EXPECT_EQ(before.pearson.days, 2);
  close.row(0).setConstant(kNan);
  close.row(4).setConstant(kNan);
  const InformationFigures after = information_figures(signal, close, 0, 1, 2);
  EXPECT_EQ(before.pearson.mean, after.pearson.mean);
  EXPECT_EQ(before.by_lag[1], after.by_lag[1]);
  EXPECT_THROW((void)information_figures(signal, close, 0, 1, 4), std::invalid_argument);
}

}  // namespace
}  // namespace varnholt::embedded::test
