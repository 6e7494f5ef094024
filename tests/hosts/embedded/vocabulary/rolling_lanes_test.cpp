// Folds over rolling windows: every window is folded in the order of its days, the bits of a column
// depend on nothing but its own window, and values far from zero keep their digits.
// Method: a fold that knows which days it is made of, and sums and moments of panels that differ
// only in what a window must not see.
#include "hosts/embedded/vocabulary/rolling_lanes.hpp"

#include <array>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/embedded/vocabulary/moment_folds.hpp"
#include "hosts/embedded/vocabulary/rolling_folds.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using Number = Lanes<Pair>;

// Days from `first` to `last`, counted from the block in which the window ends, and how often two
// were joined that do not follow each other.
struct Days {
  Number first;
  Number last;
  Number breaks;
};

// 1 where a window is made of the days that it should be.
struct DaysFold : SingleFold<Pair> {
  using State = Days;
  double window_days;

  explicit DaysFold(Eigen::Index days) : window_days(static_cast<double>(days)) {}
  template <typename Known>
  [[nodiscard]] static Days lift(const Values& /*x*/, const Known& /*known*/, double row) {
    return {row, row, 0.0};
  }
  [[nodiscard]] static Days merge(const Days& a, const Days& b) {
    const Number breaks = choose(a.last + 1.0 == b.first, 0.0, Number(1.0));
    return {a.first, b.last, a.breaks + b.breaks + breaks};
  }
  [[nodiscard]] Number result(const Days& window, const End& end) const {
    const LaneMask<Pair> is_right = (window.last == Number(end.row)) &
                                    (window.last - window.first + 1.0 == Number(window_days)) &
                                    (window.breaks == Number(0.0));
    return choose(is_right, 1.0, Number(0.0));
  }
};

template <typename Fold>
Panel rolled_by(const Panel& x, const Window& window, const Fold& fold) {
  Panel result(x.rows(), x.cols());
  RollingLanes<Pair, Fold>({&x}, window, fold).roll(result);
  return result;
}

Panel spread(const Panel& x, const Window& window) {
  return rolled_by(x, window, DeviationFold<Pair>());
}

TEST(RollingLanes, FoldsEveryWindowInTheOrderOfItsDays) {
  for (const Eigen::Index days : {1, 2, 7, 8, 39, 40, 41, 160}) {
    for (const Eigen::Index columns : {1, 2, 3, 4, 5, 8, 9, 20, 65}) {
      for (const Eigen::Index window : {1, 2, 3, 5, 20, 40}) {
        if (window > days) continue;
        SCOPED_TRACE(std::to_string(days) + " x " + std::to_string(columns) + ", window " +
                     std::to_string(window));
        const Panel x = Panel::Constant(days, columns, 3.0);
        Panel expected = Panel::Constant(days, columns, 1.0);
        expected.topRows(window - 1).setConstant(kNan);
        EXPECT_TRUE(begins_with(expected, rolled_by(x, window, DaysFold(window))));
      }
    }
  }
}

TEST(RollingLanes, AColumnHasTheBitsThatItHasAlone) {
  std::mt19937_64 engine(3);
  for (const Eigen::Index days : {2, 3, 12}) {
    for (const Eigen::Index columns : {3, 8, 70}) {
      const Panel x = random_panel(engine, 230, columns, 0.01);
      const Panel together = spread(x, Window(days, 0.6));
      for (Eigen::Index column = 0; column < columns; ++column) {
        SCOPED_TRACE("column " + std::to_string(column) + " of " + std::to_string(columns) +
                     ", window " + std::to_string(days));
        EXPECT_TRUE(begins_with(together.col(column), spread(x.col(column), Window(days, 0.6))));
      }
    }
  }
}

TEST(RollingLanes, AGapBesideChangesNoBit) {
  std::mt19937_64 engine(4);
  for (const Eigen::Index days : {2, 3, 10}) {
    SCOPED_TRACE("window " + std::to_string(days));
    const Panel x = random_panel(engine, 200, 8, 0.0);
    Panel with_gaps = x;
    for (Eigen::Index day = 0; day < x.rows(); day += 9)
      with_gaps(day, 7) = kNan;
    const Panel whole = spread(x, Window(days, 0.5));
    const Panel beside = spread(with_gaps, Window(days, 0.5));
    EXPECT_TRUE(begins_with(whole.leftCols(7), beside.leftCols(7)));
  }
}

TEST(RollingLanes, NothingOutlivesItsWindow) {
  std::mt19937_64 engine(5);
  constexpr Eigen::Index kWindow = 10;
  const Panel x = random_panel(engine, 120, 3, 0.0);
  const Panel undisturbed = spread(x, kWindow);
  for (const double value : {kNan, 1e12, 1e300}) {
    for (Eigen::Index day = 30; day < 42; ++day) {
      SCOPED_TRACE(std::to_string(value) + " on day " + std::to_string(day));
      Panel disturbed_x = x;
      disturbed_x.row(day).setConstant(value);
      const Panel disturbed = spread(disturbed_x, kWindow);
      EXPECT_TRUE(begins_with(undisturbed.topRows(day), disturbed.topRows(day)));
      const Eigen::Index rest = x.rows() - day - kWindow;
      EXPECT_TRUE(begins_with(undisturbed.bottomRows(rest), disturbed.bottomRows(rest)));
    }
  }
}

TEST(RollingLanes, ValuesFarFromZeroKeepTheirDigits) {
  std::mt19937_64 engine(6);
  Panel x(150, 4);
  for (double& value : x.reshaped())
    value = static_cast<double>(engine() % 64) / 64.0;
  const Panel far = x + 1e9;  // Exact: these need 36 bits.
  for (const Eigen::Index window : {2, 7, 60}) {
    SCOPED_TRACE("window " + std::to_string(window));
    EXPECT_TRUE(panels_are_near(spread(far, window), spread(x, window), 1e-14));
  }
}

TEST(RollingLanes, AConstantWindowHasNoSpread) {
  Panel x = Panel::Constant(60, 2, 0.1);
  x.topRows(20).setConstant(1e9);
  const Panel result = spread(x, 5);
  EXPECT_EQ(result(10, 0), 0.0);
  EXPECT_EQ(result(24, 1), 0.0);
  EXPECT_GT(result(22, 1), 0.0);
}

}  // namespace
}  // namespace varnholt::embedded::test
