// Neutralized weights: what the market, or a group, has in common is taken out before scaling.
// Method: days computed by hand; values that rounding, overflow or a lone instrument could spoil.
#include "hosts/embedded/backtest/neutral_signal.hpp"

#include <random>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "tests/hosts/embedded/graph_helpers.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"
#include "tests/hosts/embedded/price_text.hpp"

namespace varnholt::embedded::test {
namespace {

using testing::HasSubstr;

GroupPanel groups_of(int days, std::initializer_list<int> row) {
  GroupPanel groups(days, static_cast<Eigen::Index>(row.size()));
  Eigen::Index column = 0;
  for (const int group : row)
    groups.col(column++) = group;
  return groups;
}

TEST(NeutralSignal, TheMeanOfWhatIsKnownIsTakenOut) {
  // Divided by 6: 1, 0.5, -0.5 with the mean 1/3. Divided by 4: the mean is 0.
  EXPECT_TRUE(panels_are_near(
      neutral_signal(panel({{6, 3, kNan, -3}, {4, 1, -4, -1}, {0, 0, kNan, 0}})),
      panel({{2.0 / 3, 1.0 / 6, kNan, -5.0 / 6}, {1, 0.25, -1, -0.25}, {0, 0, kNan, 0}}), 1e-15));
}

TEST(NeutralSignal, EachGroupHasItsOwnMeanAndWhatHasNoGroupIsNotKnown) {
  const GroupPanel groups = groups_of(1, {0, 0, 2, 2, 2, kNoGroup});
  EXPECT_TRUE(panels_are_near(neutral_signal(panel({{4, 2, 1, kNan, 5, 8}}), &groups),
                              panel({{0.125, -0.125, -0.25, kNan, 0.25, kNan}}), 1e-15));
}

TEST(NeutralSignal, GroupsMayChangeFromDayToDay) {
  GroupPanel groups = groups_of(2, {0, 0, 1});
  groups(1, 1) = 1;
  EXPECT_TRUE(panels_are_near(neutral_signal(panel({{4, 2, 1}, {4, 2, 1}}), &groups),
                              panel({{0.25, -0.25, 0}, {0, 0.125, -0.125}}), 1e-15));
}

TEST(NeutralSignal, AloneAndAmongEqualsNothingIsLeft) {
  const GroupPanel groups = groups_of(1, {0, 1, 1, 1, 2, 2, 2});
  // The mean of three times 0.1 is not 0.1; what rounding leaves must not become a book.
  const Panel equal = panel({{7.7, 0.1, 0.1, 0.1, 1.3, 1.3, 1.3}});
  EXPECT_TRUE(panels_are_near(neutral_signal(equal, &groups), Panel::Zero(1, 7), 0.0));
  EXPECT_TRUE(
      panels_are_near(neutral_signal(panel({{kNan, 3, kNan}})), panel({{kNan, 0, kNan}}), 0.0));
  EXPECT_TRUE(
      panels_are_near(signal_weights(neutral_signal(equal, &groups)), Panel::Zero(1, 7), 0.0));
}

TEST(NeutralSignal, LargeAndSmallValuesLoseNothing) {
  EXPECT_TRUE(
      panels_are_near(neutral_signal(panel({{1.6e308, 1.6e308, -1.6e308}, {4e-320, 0, -4e-320}})),
                      panel({{2.0 / 3, 2.0 / 3, -4.0 / 3}, {1, 0, -1}}), 1e-15));
}

TEST(NeutralSignal, LaterDaysChangeNothing) {
  std::mt19937_64 engine(11);
  const Panel whole = random_panel(engine, 60, 9, 0.2);
  GroupPanel groups(60, 9);
  for (int& group : groups.reshaped())
    group = static_cast<int>(engine() % 5) - 1;
  for (const Eigen::Index days : {1, 7, 59}) {
    const GroupPanel seen = groups.topRows(days);
    EXPECT_TRUE(begins_with(neutral_signal(whole), neutral_signal(whole.topRows(days))));
    EXPECT_TRUE(
        begins_with(neutral_signal(whole, &groups), neutral_signal(whole.topRows(days), &seen)));
  }
}

TEST(NeutralSignal, WeighedTileByTileItIsTheSameToTheLastBit) {
  std::mt19937_64 engine(11);
  // More days than a tile has.
  const Panel signal = random_panel(engine, 200, 7, 0.2);
  GroupPanel groups = groups_of(200, {0, 0, 1, 1, 1, kNoGroup, 2});
  groups(150, 0) = 1;
  for (const GroupPanel* of : {static_cast<const GroupPanel*>(nullptr), &std::as_const(groups)}) {
    const Panel together = neutral_signal(signal, of, weigh_tile);
    EXPECT_TRUE(begins_with(together, signal_weights(neutral_signal(signal, of))));
    EXPECT_TRUE((together != 0.0).any());
  }
}

TEST(NeutralSignal, GroupsOfAnotherShapeAreRefused) {
  const GroupPanel groups = groups_of(2, {0, 0});
  EXPECT_THROW(static_cast<void>(neutral_signal(Panel::Zero(1, 2), &groups)),
               std::invalid_argument);
}

// --- the evaluator -----------------------------------------------------------------------------

MarketData with_sectors() {
  return read_price_text(
      "date,symbol,close,sector\n"
      "2011-01-03,A,10,Tech\n2011-01-03,B,20,Tech\n2011-01-03,C,40,Oil\n2011-01-03,D,70,Oil\n"
      "2011-01-04,A,11,Tech\n2011-01-04,B,21,Tech\n2011-01-04,C,41,Oil\n2011-01-04,D,71,Oil\n",
      "p.csv");
}

Panel weights_by(const std::string& rule) {
  const Evaluator evaluator(with_sectors(), {.book = {.neutralize = rule}});
  return evaluator.evaluate(feature("close")).weights.topRows(1);
}

TEST(NeutralSignal, TheEvaluatorScalesWhatIsLeft) {
  // The mean is 35: -25, -15, 5, 35 of 80. In the groups -5, 5 and -15, 15 of 40.
  EXPECT_TRUE(panels_are_near(weights_by("none"),
                              panel({{10.0 / 140, 20.0 / 140, 40.0 / 140, 70.0 / 140}}), 1e-12));
  EXPECT_TRUE(panels_are_near(weights_by("market"),
                              panel({{-25.0 / 80, -15.0 / 80, 5.0 / 80, 35.0 / 80}}), 1e-12));
  EXPECT_TRUE(panels_are_near(weights_by("sector"),
                              panel({{-5.0 / 40, 5.0 / 40, -15.0 / 40, 15.0 / 40}}), 1e-12));
}

std::string refusal(MarketData data, const std::string& rule) {
  try {
    const Evaluator evaluator(std::move(data), {.book = {.neutralize = rule}});
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return {};
}

TEST(NeutralSignal, AGroupThatThePricesLackIsRefusedWithTheOthers) {
  EXPECT_EQ(
      refusal(with_sectors(), "country"),
      "the prices have no column \"country\" whose groups weights can be neutralized by; give "
      "prices that have it, or neutralize by none, market or sector");
  MarketData without = with_sectors();
  without.groups.clear();
  EXPECT_THAT(refusal(without, "sector"), HasSubstr("or neutralize by none or market"));
}

}  // namespace
}  // namespace varnholt::embedded::test
