// Which plans each failure gets, in which order; and over 1,500 random graphs with random failures
// and peers: every graph is valid and within the limits, all structures differ, nothing given
// is changed or shared, and the same input gives the same plans. The seed of a failing case is
// shown.
#include "hosts/embedded/planner/repair_planner.hpp"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "tests/hosts/embedded/planner/repair_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;
using Names = std::vector<std::string>;

class RepairPlanner : public ::testing::Test {
 protected:
  [[nodiscard]] Names names(const RepairCase& failed) const {
    Names found;
    for (const PlannedRepair& repair : plan_repairs(failed, material_))
      found.emplace_back(repair.plan->name);
    return found;
  }

  const Vocabulary vocabulary_ = small_vocabulary();
  RepairMaterial material_ = material_of(
      vocabulary_, {8, 40}, {graph_of("cross_rank(volume)"), graph_of("ts_std(returns, 20)")});
};

RepairCase sharpe_case(double gross, double net) {
  RepairCase failed =
      failed_case("ts_delta(close, 5)",
                  {{"gross_returns_sharpe_below_min", gross, 0.3}, {"sharpe_min", net, 0.3}});
  failed.gross_sharpe = gross;
  failed.sharpe = net;
  return failed;
}

TEST_F(RepairPlanner, AsksFirstWhyASharpeRatioIsTooSmall) {
  EXPECT_EQ(names(sharpe_case(-0.6, -0.7)), (Names{"reverse", "reverse_slower"}));
  EXPECT_EQ(names(sharpe_case(-0.4, -0.7)),
            (Names{"reverse_slower", "reverse_smooth", "blend_with_peer"}));
  EXPECT_EQ(names(sharpe_case(0.4, -0.1)),
            (Names{"smooth_long", "blend_with_peer", "smooth_decay", "slower_windows"}));
  EXPECT_EQ(names(sharpe_case(0.2, 0.1)),
            (Names{"blend_with_peer", "blend_with_second_peer", "slower_windows", "smooth_long"}));
  EXPECT_EQ(names(sharpe_case(0.05, -0.2)),
            (Names{"smooth_long", "much_slower_windows", "blend_with_peer"}));
}

TEST_F(RepairPlanner, ChangesHowABookIsHeld) {
  const auto names_for = [this](const char* reason, double value, double threshold) {
    return names(
        failed_case("ts_delta(comparison_gt(close, open), 5)", {{reason, value, threshold}}));
  };
  for (const auto* reason : {"turnover_max", "turnover_exceeded"}) {
    EXPECT_EQ(names_for(reason, 1.2, 1.0),
              (Names{"smooth_long", "smooth_mean", "smooth_decay", "slower_windows"}));
  }
  for (const auto* reason : {"max_weight_max", "max_weight_exceeded"}) {
    EXPECT_EQ(names_for(reason, 0.9, 0.5),
              (Names{"blend_with_peer", "rank", "clip", "scale_over_time", "equal_weights"}));
  }
  for (const auto* reason : {"delta_exposure_max", "delta_exposure_exceeded"}) {
    EXPECT_EQ(names_for(reason, 0.9, 0.5),
              (Names{"demean", "hedge_with_peer", "standardise", "blend_with_peer"}));
  }
  EXPECT_EQ(
      names_for("abs_weight_sum_mean_below_min", 0.1, 0.5),
      (Names{"grade_comparisons", "blend_with_peer", "smooth_long", "rank", "quicker_windows"}));
}

TEST_F(RepairPlanner, HasAPlanForEveryGate) {
  for (const Gate& gate : gate_table()) {
    const double value = gate.sense == Sense::AtMost ? 0.6 : 0.1;
    const RepairCase failed =
        failed_case("ts_delta(close, 5)", {{std::string(gate.reason.view()), value, 0.5}});
    const auto repairs = plan_repairs(failed, material_);
    ASSERT_FALSE(repairs.empty()) << gate.reason.view();
    for (const PlannedRepair& repair : repairs)
      EXPECT_EQ(repair.reason, gate.reason.view());
  }
}

// Also where there is no peer and the graph is at both limits.
TEST_F(RepairPlanner, HasAPlanForEveryReasonInTheNarrowestCase) {
  material_.peers.clear();
  material_.limits = {3, 4};
  for (const genetic::Key reason : genetic::REACTION_FAILURE_REASONS) {
    const RepairCase failed =
        failed_case("ts_delta(arith_neg(close), 5)", {{std::string(reason.view()), 0.1, 0.05}});
    EXPECT_FALSE(plan_repairs(failed, material_).empty()) << reason.view();
  }
}

TEST_F(RepairPlanner, HasNoPlanForWhatItCannotRepair) {
  EXPECT_TRUE(names(failed_case("close", {})).empty());
  EXPECT_TRUE(names(failed_case("close", {{"pnl_mi_below_threshold", 0.1, 0.3}})).empty());
  EXPECT_TRUE(names(failed_case("close", {{"evaluate_exception", {}, {}}})).empty());
}

TEST_F(RepairPlanner, PutsConstraintsBeforeTheSharpeRatioUnlessItIsTurnedRound) {
  RepairCase failed = sharpe_case(0.2, 0.1);
  failed.failures.insert(failed.failures.begin(), {"turnover_max", 1.2, 1.0});
  // A plan that serves both is there once.
  EXPECT_EQ(names(failed), (Names{"smooth_long", "smooth_mean", "smooth_decay", "slower_windows",
                                  "blend_with_peer", "blend_with_second_peer"}));
  failed.gross_sharpe = -0.6;
  failed.sharpe = -0.7;
  EXPECT_EQ(names(failed).front(), "reverse");
}

TEST_F(RepairPlanner, RefusesAGraphThatBreaksARule) {
  RepairCase failed = sharpe_case(0.2, 0.1);
  failed.graph = genetic::Mapping{{"node", "close"}};
  EXPECT_THROW(static_cast<void>(plan_repairs(failed, material_)), GraphError);
}

RepairCase random_case(genetic::TwisterGenerator& generator, const Vocabulary& vocabulary,
                       const RandomGraphOptions& options) {
  RepairCase failed;
  failed.graph = random_graph(generator, vocabulary, options);
  for (const Gate& gate : gate_table()) {
    if (generator.random() < 0.7) continue;
    const double threshold = generator.random();
    const double missed_by = 2.0 * generator.random();
    const double value =
        gate.sense == Sense::AtMost ? threshold + missed_by : threshold - missed_by;
    failed.failures.push_back({std::string(gate.reason.view()), value, threshold});
  }
  if (generator.random() < 0.8) {
    failed.gross_sharpe = 2.0 * generator.random() - 1.0;
    failed.sharpe = *failed.gross_sharpe - 0.5 * generator.random();
  }
  return failed;
}

TEST_F(RepairPlanner, KeepsItsPromisesOverRandomGraphs) {
  std::size_t planned = 0;
  for (std::uint64_t seed = 1; seed <= 1500; ++seed) {
    genetic::TwisterGenerator generator{genetic::MersenneTwister(seed)};
    RandomGraphOptions options;
    options.max_depth = 1 + static_cast<int>(generator.random() * 7);
    options.max_nodes = 1 + static_cast<std::size_t>(generator.random() * 30);
    const RepairCase failed = random_case(generator, vocabulary_, options);
    const GraphLimits limits{options.max_depth, options.max_nodes};
    RepairMaterial material = material_of(vocabulary_, limits);
    for (int peer = 0; peer < 3; ++peer) {
      if (generator.random() < 0.5) {
        material.peers.push_back(random_graph(generator, vocabulary_));
      }
    }
    std::vector<std::string> before = {genetic::canonical_graph_string(failed.graph)};
    for (const Value& peer : material.peers)
      before.push_back(genetic::canonical_graph_string(peer));

    const std::vector<PlannedRepair> repairs = plan_repairs(failed, material);
    const std::vector<PlannedRepair> again = plan_repairs(failed, material);
    ASSERT_EQ(repairs.size(), again.size()) << seed;
    genetic::StructuralKeySet structures = {genetic::structural_key(failed.graph)};
    for (std::size_t i = 0; i < repairs.size(); ++i) {
      const PlannedRepair& repair = repairs[i];
      const std::string shown = std::to_string(seed) + " " + std::string(repair.plan->name) + ": " +
                                expression_text(failed.graph) + " -> " +
                                expression_text(repair.graph);
      EXPECT_NO_THROW(static_cast<void>(check_graph(repair.graph, vocabulary_, limits))) << shown;
      EXPECT_TRUE(structures.insert(genetic::structural_key(repair.graph)).second) << shown;
      EXPECT_NE(failed.missed(repair.reason), nullptr) << shown;
      EXPECT_EQ(again[i].plan, repair.plan) << shown;
      EXPECT_EQ(genetic::canonical_graph_string(again[i].graph),
                genetic::canonical_graph_string(repair.graph))
          << shown;
      // A graph that shared a node with another would change with it.
      repair.graph.mapping().set("node", "changed");
      if (repair.graph.mapping().contains("children")) {
        const genetic::List children = repair.graph.mapping().at("children").list();
        for (std::size_t child = 0; child < children.size(); ++child)
          children.at(child).mapping().set("node", "changed");
      }
      ++planned;
    }
    std::vector<std::string> after = {genetic::canonical_graph_string(failed.graph)};
    for (const Value& peer : material.peers)
      after.push_back(genetic::canonical_graph_string(peer));
    EXPECT_EQ(after, before) << seed;
  }
  // The cases are not all empty.
  EXPECT_GT(planned, 5000U);
}

TEST_F(RepairPlanner, MixesNoUnitsWhereTheyAreKept) {
  // Without room for the ranks a price and a volume would be left to be added.
  RepairCase failed = sharpe_case(0.4, -0.1);
  failed.graph = graph_of("arith_add(cross_rank(close), cross_rank(volume))");
  material_.limits = {3, 40};
  material_.peers.clear();
  ASSERT_TRUE(std::ranges::count(names(failed), "smooth_long"));
  material_.making = {vocabulary_, {.keeps_units = true}};
  EXPECT_FALSE(std::ranges::count(names(failed), "smooth_long"));
}

TEST_F(RepairPlanner, FinishesWhatItPlans) {
  // The reverse of a rank is its negation; -(-x), which the limits may leave, is x.
  RepairCase failed = sharpe_case(-0.6, -0.7);
  failed.graph = graph_of("arith_sub(open, ts_min(arith_neg(close), 5))");
  const std::vector<PlannedRepair> plain = plan_repairs(failed, material_);
  material_.making = {vocabulary_, {.simplifies = true}};
  const std::vector<PlannedRepair> finished = plan_repairs(failed, material_);
  ASSERT_EQ(plain.size(), finished.size());
  EXPECT_EQ(expression_text(plain.at(0).graph), "arith_sub(ts_min(arith_neg(close), 5), open)");
  EXPECT_EQ(expression_text(finished.at(0).graph), "arith_sub(arith_neg(ts_max(close, 5)), open)");
}

}  // namespace
}  // namespace varnholt::embedded::test
