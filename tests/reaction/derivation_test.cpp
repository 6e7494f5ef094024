// Goal: the planner is asked as the rules say, with everything that it may use, and what it gives
// is handed on as it is. Method: a scripted planner, and the log of what else the host is asked.
#include "search_templates/genetic/reaction/derivation.hpp"

#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/graph/plain_graph.hpp"
#include "tests/reaction/improvement_harness.hpp"
#include "tests/support/error_of.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class Derivation : public ImprovementTest {
 protected:
  void plans(const Value& improvements) {
    host.reaction_planning.on_derive_reaction_improvements = always(improvements);
  }
};

TEST_F(Derivation, ReturnsWhatThePlannerReturns) {
  const Value improvements = Tuple{"one", "two"};
  plans(improvements);
  EXPECT_TRUE(
      same_object(derive_reaction_improvements(environment, turnover_miss("a")), improvements));
  EXPECT_EQ(derive_reaction_improvement(environment, turnover_miss("a")), "one");
}

TEST_F(Derivation, FirstOfNothingIsAbsent) {
  for (const Value& nothing : {Value(List{}), Value(Tuple()), Value()}) {
    plans(nothing);
    EXPECT_TRUE(derive_reaction_improvement(environment, turnover_miss("a")).is_absent());
  }
}

TEST_F(Derivation, ResultWithoutReactionFailureAsksNobody) {
  plans(List{"one"});
  Mapping passing = turnover_miss("a");
  passing.set("passes", true);
  const Mapping gate_miss = failed_result("b", {{"correlation_exceeded", missed_by(0.5)}});
  for (const Mapping& result : {passing, gate_miss, Mapping()}) {
    EXPECT_EQ(derive_reaction_improvements(environment, result), Value(List{}));
    EXPECT_TRUE(derive_reaction_improvement(environment, result).is_absent());
  }
  EXPECT_EQ(host.log.count("reaction_planning.derive_reaction_improvements"), 0U);
  EXPECT_EQ(host.log.count("context.vocabulary"), 0U);
}

TEST_F(Derivation, WorksOutTheKeywordsInTheirOrder) {
  host.context.on_vocabulary = always(Value(Mapping{{"words", 1}}));
  host.engine.on_signal_generation_safe_rotations = always(Value(List{Mapping{{"name", "sma"}}}));
  host.context.on_own_graph_validator =
      always(scripted_callable(host.log, "validate", always(Value())));
  Mapping result = turnover_miss("a");
  result.set("improvement_depth", "2");
  ReactionRequest asked;
  host.reaction_planning.on_derive_reaction_improvements =
      [&](const Value&, const ReactionRequest& request) -> Value {
    asked = request;
    return List{};
  };
  static_cast<void>(derive_reaction_improvements(environment, result, 3, Tuple{"peer"}));
  const std::vector<std::string> names = host.log.names();
  // The gates judge the result first.
  const auto start = std::find(names.begin(), names.end(), "context.vocabulary");
  EXPECT_THAT(
      std::vector<std::string>(start, names.end()),
      ElementsAre("context.vocabulary", "context.vocabulary", "engine.function_entries_for_kind",
                  "context.max_depth", "engine.random_weighted_window_limit",
                  "engine.random_weighted_node_limit", "engine.random_weighted_runtime_registry",
                  "engine.signal_generation_safe_rotations", "context.own_graph_validator",
                  "reaction_planning.derive_reaction_improvements"));
  EXPECT_THAT(host.log.lines().back(),
              HasSubstr("vocabulary={'words': 1}, safe_rotation_specs=[{'name': 'sma'}], "
                        "validator='validator', structural_key='structural_key', "
                        "improvement_depth=3, max_plans=3, extra_data_graphs=('peer',)"));
  EXPECT_EQ(asked.structural_key({graph_named("b")}), freeze_graph_data(graph_named("b")));
}

TEST_F(Derivation, LeavesOutWhatThereIsNot) {
  static_cast<void>(derive_reaction_improvements(environment, turnover_miss("a")));
  EXPECT_THAT(host.log.lines().back(),
              HasSubstr("vocabulary={}, safe_rotation_specs=[], validator=None, "
                        "structural_key='structural_key', improvement_depth=1, max_plans=None, "
                        "extra_data_graphs=()"));
}

TEST_F(Derivation, DepthIsCountedOnWhateverItsSize) {
  const auto asked_depth = [&](const Value& depth) {
    Mapping result = turnover_miss("a");
    result.set("improvement_depth", depth);
    static_cast<void>(derive_reaction_improvements(environment, result));
    return host.log.lines().back();
  };
  EXPECT_THAT(asked_depth(-3), HasSubstr("improvement_depth=-2,"));
  EXPECT_THAT(asked_depth("x"), HasSubstr("improvement_depth=1,"));
  EXPECT_THAT(asked_depth(std::numeric_limits<std::int64_t>::max()),
              HasSubstr("improvement_depth=9223372036854775808,"));
}

TEST_F(Derivation, PlannerSeesTheEnlargedResult) {
  host.engine.on_stats_gate_threshold_set = always(Value("set"));
  host.engine.on_evaluate_threshold_gates =
      always(scripted_object({{"failures", List{scripted_object(Mapping())}}}));
  const Mapping result = failed_result("a", {{"other", Mapping()}});
  static_cast<void>(derive_reaction_improvements(environment, result));
  // By default every gate's failure is one of sharpe.
  EXPECT_THAT(host.log.lines().back(), HasSubstr("'other': {}, 'sharpe_min': {"));
  EXPECT_EQ(result.at("failures"), Value(Mapping{{"other", Mapping()}}));
}

TEST_F(Derivation, WithoutAContextNothingIsJudgedAgain) {
  const ReactionEnvironment without = {host.bundle(), constants, host.context, false};
  static_cast<void>(derive_reaction_improvements(without, turnover_miss("a")));
  EXPECT_THAT(host.log.names(), Not(Contains("engine.stats_gate_threshold_set")));
  EXPECT_EQ(host.log.count("reaction_planning.derive_reaction_improvements"), 1U);
}

TEST_F(Derivation, WhatThePlannerThrowsPasses) {
  host.reaction_planning.on_derive_reaction_improvements = failing(RuntimeError("no plan"));
  EXPECT_EQ(error_of([&] { return derive_reaction_improvements(environment, turnover_miss("a")); }),
            "RuntimeError: no plan");
}

TEST_F(Derivation, HostWithoutAPlannerHasNoPlans) {
  NoReactionPlanning none;
  EXPECT_EQ(none.derive_reaction_improvements(turnover_miss("a"), ReactionRequest()),
            Value(List{}));
}

TEST_F(Derivation, StructuralKeyTakesOneGraph) {
  Callable structural_key;
  host.reaction_planning.on_derive_reaction_improvements =
      [&](const Value&, const ReactionRequest& request) -> Value {
    structural_key = request.structural_key;
    return List{};
  };
  static_cast<void>(derive_reaction_improvements(environment, turnover_miss("a")));
  EXPECT_EQ(error_of([&] { return structural_key(std::initializer_list<Value>()); }),
            "TypeError: the structural key takes one argument, a graph");
  ASSERT_TRUE(structural_key.signature());
  EXPECT_EQ(structural_key.signature()->size(), 1U);
}

}  // namespace
}  // namespace varnholt::genetic::test
