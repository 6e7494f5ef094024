// Every plan of the catalogue as a table of expressions: a small graph, a graph at the limits, and
// what a plan does without the functions, windows or peers that it needs.
#include "hosts/embedded/planner/repair_plans.hpp"

#include <map>
#include <set>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "tests/hosts/embedded/planner/repair_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

std::string text_of(const std::optional<genetic::Value>& graph) {
  return graph ? expression_text(*graph) : "nothing";
}

class RepairPlans : public ::testing::Test {
 protected:
  std::string repaired(std::string_view plan, std::string_view graph) {
    return text_of(repair_plan(plan).graph(failed_case(graph, failures_), material_));
  }

  const Vocabulary vocabulary_ = small_vocabulary();
  std::vector<MissedGate> failures_;
  RepairMaterial material_ = material_of(
      vocabulary_, {8, 40}, {graph_of("cross_rank(volume)"), graph_of("ts_std(returns, 20)")});
};

TEST_F(RepairPlans, SayWhatTheyMean) {
  constexpr std::string_view kGraph = "ts_delta(comparison_gt(close, open), 5)";
  const std::map<std::string_view, std::string> expected = {
      {"reverse", "arith_neg(ts_delta(comparison_gt(close, open), 5))"},
      {"reverse_slower", "arith_neg(ts_delta(comparison_gt(close, open), 15))"},
      {"reverse_smooth", "arith_neg(ts_mean(ts_delta(comparison_gt(close, open), 5), 60))"},
      {"smooth_mean", "ts_mean(ts_delta(comparison_gt(close, open), 5), 5)"},
      {"smooth_long", "ts_mean(ts_delta(comparison_gt(close, open), 5), 60)"},
      {"smooth_decay", "ts_decay(ts_delta(comparison_gt(close, open), 5), 40)"},
      {"slower_windows", "ts_delta(comparison_gt(close, open), 15)"},
      {"much_slower_windows", "ts_delta(comparison_gt(close, open), 20)"},
      {"quicker_windows", "ts_delta(comparison_gt(close, open), 2)"},
      {"blend_with_peer",
       "arith_add(cross_scale(ts_delta(comparison_gt(close, open), 5)), cross_rank(volume))"},
      {"blend_with_second_peer",
       "arith_add(cross_scale(ts_delta(comparison_gt(close, open), 5)), "
       "cross_scale(ts_std(returns, 20)))"},
      {"hedge_with_peer",
       "arith_sub(cross_scale(ts_delta(comparison_gt(close, open), 5)), cross_rank(volume))"},
      {"demean", "cross_demean(ts_delta(comparison_gt(close, open), 5))"},
      {"standardise", "cross_zscore(ts_delta(comparison_gt(close, open), 5))"},
      {"rank", "cross_rank(ts_delta(comparison_gt(close, open), 5))"},
      {"clip", "arith_tanh(cross_zscore(ts_delta(comparison_gt(close, open), 5)))"},
      {"scale_over_time", "ts_zscore(ts_delta(comparison_gt(close, open), 5), 60)"},
      {"equal_weights", "arith_sign(cross_demean(ts_delta(comparison_gt(close, open), 5)))"},
      {"grade_comparisons", "ts_delta(arith_sub(close, open), 5)"},
  };
  for (const RepairPlan& plan : repair_plans()) {
    ASSERT_TRUE(expected.contains(plan.name)) << plan.name << " stands in no row of this table";
    EXPECT_EQ(repaired(plan.name, kGraph), expected.at(plan.name)) << plan.name;
  }
  EXPECT_EQ(repair_plans().size(), expected.size());
}

TEST_F(RepairPlans, MakeRoomWithinTheLimits) {
  constexpr std::string_view kFullDepth =
      "cross_rank(arith_sub(ts_mean(ts_delta(comparison_gt(close, open), 5), 20), volume))";
  material_.limits = {6, 40};
  const std::map<std::string_view, std::string> expected = {
      {"reverse", "arith_neg(cross_rank(arith_sub(ts_mean(ts_delta(close, 5), 20), volume)))"},
      {"smooth_long",
       "ts_mean(cross_rank(arith_sub(ts_mean(ts_delta(close, 5), 20), volume)), 60)"},
      {"slower_windows",
       "cross_rank(arith_sub(ts_mean(ts_delta(comparison_gt(close, open), 15), 60), volume))"},
      {"demean", "cross_demean(cross_rank(arith_sub(ts_mean(ts_delta(close, 5), 20), volume)))"},
      {"clip", "arith_tanh(cross_zscore(cross_rank(arith_sub(ts_mean(close, 20), volume))))"},
      // The graph is ranked already, and a rank is at one scale.
      {"rank", "nothing"},
      {"blend_with_peer",
       "arith_add(cross_rank(arith_sub(ts_mean(ts_delta(close, 5), 20), volume)), "
       "cross_rank(volume))"},
  };
  for (const auto& [plan, after] : expected)
    EXPECT_EQ(repaired(plan, kFullDepth), after) << plan;
}

TEST_F(RepairPlans, MakeRoomForTheirNodesToo) {
  material_.limits = {8, 7};
  EXPECT_EQ(repaired("smooth_long", "arith_sub(ts_mean(close, 5), ts_mean(open, 5))"),
            "ts_mean(arith_sub(close, open), 60)");
  // Four of the six nodes beside the sum are the signal's, two the peer's.
  EXPECT_EQ(repaired("blend_with_peer", "arith_sub(ts_mean(close, 5), ts_mean(open, 5))"),
            "arith_add(cross_scale(arith_sub(close, open)), cross_rank(volume))");
  material_.limits = {8, 2};
  EXPECT_EQ(repaired("smooth_long", "close"), "nothing");
  EXPECT_EQ(repaired("blend_with_peer", "close"), "nothing");
  material_.limits = {1, 40};
  EXPECT_EQ(repaired("demean", "close"), "nothing");
}

TEST_F(RepairPlans, SmoothOverAsManyDaysAsTheTurnoverAsksFor) {
  const auto smoothed = [this](double value, double threshold) {
    failures_ = {{"turnover_max", value, threshold}};
    return repaired("smooth_mean", "returns");
  };
  EXPECT_EQ(smoothed(1.1, 1.0), "ts_mean(returns, 5)");
  EXPECT_EQ(smoothed(1.0, 0.4), "ts_mean(returns, 15)");  // 2 * 2.5^2 = 12.5
  EXPECT_EQ(smoothed(1.5, 0.2), "ts_mean(returns, 120)");
  EXPECT_EQ(smoothed(1.5, 0.01), "ts_mean(returns, 120)");
  EXPECT_EQ(smoothed(1.5, 0.0), "ts_mean(returns, 5)");
  failures_ = {{"turnover_max", 1.1, 1.0}, {"turnover_exceeded", 1.0, 0.4}};
  EXPECT_EQ(repaired("smooth_mean", "returns"), "ts_mean(returns, 15)");
  failures_ = {{"turnover_max", {}, 0.1}};
  EXPECT_EQ(repaired("smooth_mean", "returns"), "ts_mean(returns, 5)");
}

TEST_F(RepairPlans, KeepToTheWindowsThatThereAre) {
  material_.windows = {2, 3};
  EXPECT_EQ(repaired("smooth_long", "returns"), "ts_mean(returns, 3)");
  material_.windows = {120};
  EXPECT_EQ(repaired("smooth_long", "returns"), "ts_mean(returns, 120)");
  material_.windows.clear();
  EXPECT_EQ(repaired("smooth_long", "returns"), "nothing");
  EXPECT_EQ(repaired("smooth_mean", "returns"), "nothing");
}

TEST_F(RepairPlans, DoNothingWithoutWhatTheyNeed) {
  material_.peers.clear();
  for (const auto* plan : {"blend_with_peer", "blend_with_second_peer", "hedge_with_peer"})
    EXPECT_EQ(repaired(plan, "close"), "nothing") << plan;
  material_.functions.clear();
  material_.peers = {graph_of("close")};
  for (const RepairPlan& plan : repair_plans()) {
    const std::string after = repaired(plan.name, "ts_rank(close, 5)");
    // What is left needs no new function.
    EXPECT_TRUE(after == "nothing" || after.starts_with("ts_rank(close, ")) << plan.name << after;
  }
}

TEST_F(RepairPlans, HaveStableNamesAndOneLineEach) {
  std::set<std::string_view> names;
  for (const RepairPlan& plan : repair_plans()) {
    EXPECT_TRUE(names.insert(plan.name).second) << plan.name;
    EXPECT_EQ(plan.name.find_first_not_of("abcdefghijklmnopqrstuvwxyz_"), std::string_view::npos);
    EXPECT_FALSE(plan.explanation.empty()) << plan.name;
    EXPECT_EQ(plan.explanation.find('\n'), std::string_view::npos) << plan.name;
    EXPECT_EQ(repair_plan(plan.name).name, plan.name);
  }
  EXPECT_THROW(static_cast<void>(repair_plan("no_such_plan")), std::out_of_range);
}

}  // namespace
}  // namespace varnholt::embedded::test
