// What the search gets of the planner: improvements with the very result, the plans that rotations,
// peers, validator and limit leave, and their lineage. Failures are given in every form in which a
// record may hold them.
#include "hosts/embedded/host/embedded_planning.hpp"

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/backtest/statistics.hpp"
#include "hosts/embedded/host/embedded_host.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::ReactionRequest;
using genetic::Value;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Texts = std::vector<std::string>;

class EmbeddedPlanningTest : public ::testing::Test {
 protected:
  // Everything is allowed, nothing is refused, and there are no peers.
  [[nodiscard]] ReactionRequest request(const Value& max_plans = {}) const {
    ReactionRequest made;
    made.vocabulary = Mapping();
    for (const FunctionEntry& function : vocabulary_.functions)
      made.safe_rotation_specs.append(Mapping{{"name", function.name}});
    made.improvement_depth = 1;
    made.max_plans = max_plans;
    made.extra_data_graphs = List();
    return made;
  }

  [[nodiscard]] Texts plans(const Value& result, const ReactionRequest& asked) {
    Texts names;
    const Value improvements = planning_.derive_reaction_improvements(result, asked);
    for (std::size_t i = 0; i < improvements.list().size(); ++i) {
      const Value plan = improvements.list().at(i).mapping().at("reaction_plan");
      names.push_back(genetic::str(plan.mapping().at("name")));
    }
    return names;
  }

  const Vocabulary vocabulary_ = make_vocabulary(small_universe());
  EmbeddedJsonReader json_reader_;
  Lineage lineage_;
  EmbeddedPlanning planning_{vocabulary_, RandomGraphOptions{}, json_reader_, lineage_};
};

Value failed_result(const Mapping& failures, const Value& stats = {}) {
  return Mapping{
      {"graph", ranked("returns")}, {"passes", false}, {"failures", failures}, {"stats", stats}};
}

Mapping sharpe_missed(double value) {
  return {{"sharpe_min", Mapping{{"value", value}, {"threshold", 0.3}}}};
}

TEST_F(EmbeddedPlanningTest, GivesImprovementsOfTheVeryResult) {
  const Value result = failed_result(sharpe_missed(-0.6));
  const std::string before = genetic::repr(result);
  ReactionRequest asked = request();
  asked.improvement_depth = 3;
  const Value improvements = planning_.derive_reaction_improvements(result, asked);
  ASSERT_GE(improvements.list().size(), 1U);
  const Mapping first = improvements.list().at(0).mapping();
  EXPECT_EQ(expression_text(first.at("graph")), "arith_neg(cross_rank(returns))");
  EXPECT_TRUE(genetic::same_object(first.at("source_result"), result));
  EXPECT_EQ(first.at("improvement_depth").integer(), 3);
  const Mapping plan = first.at("reaction_plan").mapping();
  EXPECT_EQ(plan.at("name"), Value("reverse"));
  EXPECT_EQ(plan.at("reason"), Value("sharpe_min"));
  EXPECT_FALSE(genetic::str(plan.at("explanation")).empty());
  EXPECT_EQ(genetic::repr(result), before);
  // The repaired graph is nobody else's.
  first.at("graph").mapping().at("children").list().at(0).mapping().set("node", "changed");
  EXPECT_EQ(genetic::repr(result), before);
}

TEST_F(EmbeddedPlanningTest, ReadsAFailureInEveryForm) {
  const Mapping figures{{"value", -0.6}, {"threshold", 0.3}};
  for (const Value& failure :
       {Value(figures), Value(Mapping{{"reason", "sharpe_min"}, {"detail", figures}}),
        Value(Mapping{{"detail", R"({"value": -0.6, "threshold": 0.3})"}}),
        Value(Mapping{{"value", "-0.6"}, {"threshold", "0.3"}})}) {
    const Mapping failures{{"sharpe_min", failure}};
    EXPECT_THAT(plans(failed_result(failures), request()), ElementsAre("reverse"))
        << genetic::repr(failure);
  }
  // Without figures nothing is known of it.
  for (const Value& failure : {Value(), Value("low"), Value(Mapping{{"detail", "no JSON"}}),
                               Value(Mapping{{"value", std::nan("")}, {"threshold", Mapping()}})}) {
    const Mapping failures{{"sharpe_min", failure}};
    EXPECT_THAT(plans(failed_result(failures), request()), ElementsAre("smooth_long"))
        << genetic::repr(failure);
  }
}

TEST_F(EmbeddedPlanningTest, TrustsTheStatisticsWhereThereAreSome) {
  BacktestStatistics statistics;
  statistics.sharpe = -0.2;
  statistics.gross_returns_sharpe = 0.4;
  const Value stats = genetic::make_object<StatisticsObject>(statistics);
  EXPECT_THAT(plans(failed_result(sharpe_missed(-0.2), stats), request()),
              ElementsAre("smooth_long", "smooth_decay"));
}

TEST_F(EmbeddedPlanningTest, GivesNoMoreThanAreWanted) {
  const Value result = failed_result({{"max_weight_max", Mapping{{"value", 0.9}}}});
  const Texts all = plans(result, request());
  EXPECT_THAT(all, ElementsAre("clip", "scale_over_time", "equal_weights"));
  EXPECT_THAT(plans(result, request(2)), ElementsAre("clip", "scale_over_time"));
  EXPECT_THAT(plans(result, request(7)), all);
  EXPECT_THAT(plans(result, request(0)), IsEmpty());
  EXPECT_THAT(plans(result, request(-1)), IsEmpty());
  EXPECT_THROW(static_cast<void>(plans(result, request(List()))), genetic::TypeError);
}

TEST_F(EmbeddedPlanningTest, PlansNothingForASearchThatIsBeingStopped) {
  bool is_stopping = false;
  EmbeddedJsonReader reader;
  EmbeddedPlanning planning(vocabulary_, RandomGraphOptions(), reader, lineage_,
                            [&is_stopping] { return is_stopping; });
  const auto planned = [&] {
    return planning.derive_reaction_improvements(failed_result(sharpe_missed(0.2)), request())
        .list()
        .size();
  };
  EXPECT_GT(planned(), 0U);
  is_stopping = true;
  EXPECT_EQ(planned(), 0U);
}

TEST_F(EmbeddedPlanningTest, UsesOnlySafeRotations) {
  const Value result = failed_result({{"turnover_max", Mapping{{"value", 1.5}, {"threshold", 1}}}});
  ReactionRequest asked = request();
  asked.safe_rotation_specs = List{Value(Mapping{{"name", "ts_decay"}})};
  EXPECT_THAT(plans(result, asked), ElementsAre("smooth_decay"));
}

TEST_F(EmbeddedPlanningTest, UsesTheFirstPeersThatAreGraphs) {
  const Value result = failed_result(sharpe_missed(0.2));
  ReactionRequest asked = request();
  asked.extra_data_graphs = genetic::Tuple{Mapping{{"node", "foreign"}}, ranked("close"),
                                           ranked("volume"), ranked("high")};
  const Value improvements = planning_.derive_reaction_improvements(result, asked);
  ASSERT_GE(improvements.list().size(), 2U);
  const auto text = [&](std::size_t i) {
    return expression_text(improvements.list().at(i).mapping().at("graph"));
  };
  EXPECT_EQ(text(0), "arith_add(cross_rank(returns), cross_rank(close))");
  EXPECT_EQ(text(1), "arith_add(cross_rank(returns), cross_rank(volume))");
}

TEST_F(EmbeddedPlanningTest, LeavesOutWhatTheValidatorRefuses) {
  const Value result = failed_result({{"max_weight_max", Mapping{{"value", 0.9}}}});
  ReactionRequest asked = request();
  asked.validator = genetic::make_callable(
      [](std::span<const Value> positional, const Mapping& /*keywords*/) -> Value {
        if (expression_text(positional[0]).starts_with("arith_tanh")) {
          throw std::runtime_error("refused");
        }
        return true;
      });
  EXPECT_THAT(plans(result, asked), ElementsAre("scale_over_time", "equal_weights"));
}

TEST_F(EmbeddedPlanningTest, HasNothingForAForeignGraph) {
  const Value result =
      Mapping{{"graph", Mapping{{"node", "foreign"}}}, {"failures", sharpe_missed(-0.6)}};
  EXPECT_THAT(plans(result, request()), IsEmpty());
}

TEST_F(EmbeddedPlanningTest, KeepsToTheLimitsOfTheSearch) {
  RandomGraphOptions narrow;
  narrow.max_window = 10;
  narrow.max_depth = 2;
  EmbeddedPlanning planning(vocabulary_, narrow, json_reader_, lineage_);
  const Value improvements = planning.derive_reaction_improvements(
      failed_result({{"turnover_max", Mapping{{"value", 1.5}, {"threshold", 1}}}}), request());
  ASSERT_GE(improvements.list().size(), 1U);
  EXPECT_EQ(expression_text(improvements.list().at(0).mapping().at("graph")),
            "ts_mean(returns, 10)");
}

TEST_F(EmbeddedPlanningTest, NotesTheLineageOfEveryPlan) {
  const auto key_of = [](const Value& graph) {
    return sha256_hex(genetic::canonical_graph_string(graph));
  };
  ReactionRequest asked = request();
  asked.improvement_depth = 2;
  asked.extra_data_graphs = List{ranked("close")};
  EXPECT_FALSE(lineage_.has_new_repairs());
  const Value improvements =
      planning_.derive_reaction_improvements(failed_result(sharpe_missed(0.2)), asked);
  EXPECT_TRUE(lineage_.has_new_repairs());
  for (std::size_t i = 0; i < improvements.list().size(); ++i) {
    const Mapping improvement = improvements.list().at(i).mapping();
    const GraphOrigin origin = lineage_.origin_of(genetic::deep_copy(improvement.at("graph")));
    EXPECT_EQ(origin.origin, Origin::Repaired);
    ASSERT_TRUE(origin.repair);
    const Mapping plan = improvement.at("reaction_plan").mapping();
    EXPECT_EQ(Value(origin.repair->plan), plan.at("name"));
    EXPECT_EQ(Value(origin.repair->reason), plan.at("reason"));
    EXPECT_EQ(Value(origin.repair->explanation), plan.at("explanation"));
    EXPECT_EQ(origin.repair->depth, 2);
    if (origin.repair->plan == "blend_with_peer") {
      EXPECT_THAT(origin.parents, ElementsAre(key_of(ranked("returns")), key_of(ranked("close"))));
    } else {
      EXPECT_THAT(origin.parents, ElementsAre(key_of(ranked("returns"))));
    }
  }
  EXPECT_FALSE(lineage_.has_new_repairs());
}

}  // namespace
}  // namespace varnholt::embedded::test
