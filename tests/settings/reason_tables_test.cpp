// The tables of failure reasons: exactly their members, and the order where it counts.
#include "search_templates/genetic/settings/reason_tables.hpp"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace varnholt::genetic {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

std::vector<std::string> names(std::span<const Key> table) {
  std::vector<std::string> names;
  for (const Key reason : table)
    names.emplace_back(reason.view());
  return names;
}

TEST(ReasonTables, HaveTheirMembersInOrder) {
  EXPECT_THAT(
      names(REACTION_FAILURE_REASONS),
      ElementsAre("turnover_max", "turnover_exceeded", "max_weight_max", "max_weight_exceeded",
                  "delta_exposure_max", "delta_exposure_exceeded", "abs_weight_sum_mean_below_min",
                  "sharpe_min", "gross_returns_sharpe_below_min"));
  EXPECT_THAT(names(CLOSE_CONSTRAINT_REPAIR_FAILURE_REASONS),
              ElementsAre("turnover_max", "turnover_exceeded", "max_weight_max",
                          "max_weight_exceeded", "delta_exposure_max", "delta_exposure_exceeded",
                          "abs_weight_sum_mean_below_min"));
  EXPECT_THAT(names(GATE_NEAR_MISS_FAILURE_REASONS),
              ElementsAre("correlation_exceeded", "pnl_mi_below_threshold"));
}

TEST(ReasonTables, HaveTheirMembers) {
  EXPECT_THAT(names(SEARCH_TERMINAL_IMPROVEMENT_REASONS), ElementsAre("fork_unavailable"));
  EXPECT_THAT(
      names(EXHAUSTED_NEAR_MISS_IMPROVEMENT_REASONS),
      UnorderedElementsAre("duplicate", "max_improvement_candidates", "max_improvement_depth",
                           "max_improvement_rounds", "no_improvement"));
  EXPECT_THAT(names(MINIMUM_FAILURE_REASONS),
              UnorderedElementsAre("sharpe_min", "gross_returns_sharpe_below_min",
                                   "abs_weight_sum_mean_below_min", "pnl_mi_below_threshold"));
  EXPECT_THAT(names(SHARPE_REACTION_FAILURE_REASONS),
              UnorderedElementsAre("sharpe_min", "gross_returns_sharpe_below_min"));
}

TEST(IsMember, ComparesByEquality) {
  EXPECT_TRUE(is_member(SHARPE_REACTION_FAILURE_REASONS, std::string("sharpe_min")));
  EXPECT_FALSE(is_member(SHARPE_REACTION_FAILURE_REASONS, "turnover_max"));
  EXPECT_FALSE(is_member(SHARPE_REACTION_FAILURE_REASONS, Value()));
  EXPECT_FALSE(is_member(SHARPE_REACTION_FAILURE_REASONS, List{}));
}

}  // namespace
}  // namespace varnholt::genetic
