// One offspring: which parents, which operator, whose root, and every draw and call in order.
// Method: a scripted generator whose draws a test writes down, and a host that logs every call.
#include "search_templates/genetic/population/elite_derivation.hpp"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_fresh.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::error_of;
using test::failing;
using test::scripted_draws;
using test::ScriptedHost;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A parent's graph is its id, so that a line of the log shows who it was.
Mapping parent(const std::string& id, double score) {
  return {{"id", id}, {"score", score}, {"graph", Mapping{{"node", id}}}};
}

class EliteDerivedGraph : public ::testing::Test {
 protected:
  EliteDerivedGraph() {
    host_.search_settings.on_default_operator_rates =
        always(Value(Mapping{{"crossover", 0.0},
                             {"point_mutation", 0.0},
                             {"subtree_mutation", 0.0},
                             {"hoist_mutation", 0.0}}));
    host_.eliteness.on_score_candidate = [](const Value& candidate, const Mapping&) {
      return candidate.mapping().at("score");
    };
    host_.context.on_own_graph_validator = [this] { return validator_; };
    // The source draws a number of its own.
    fresh_.on_draw = [this](std::int64_t) {
      if (fresh_.last_rng != nullptr) static_cast<void>(fresh_.last_rng->random());
      return Value(List{"r1", "r2", "r3"});
    };
    settings_.elite_fraction = 0.5;
    settings_.diversity_weight = 0.5;
    settings_.parsimony_weight = 0.25;
  }

  void accept_all() {
    validator_ = test::scripted_callable(
        host_.log, "validator", [](std::span<const Value>, const Mapping&) { return Value(true); });
  }
  void rate(const Mapping& rates) { settings_.operator_rates = rates; }

  // The offspring of `parents` by these draws; an empty generator without any.
  Value derive(const List& parents, const std::shared_ptr<RandomGenerator>& rng) {
    const LoadedConstants constants(host_.search_settings, host_.process_evaluation);
    const SearchEnvironment environment{host_.bundle(), constants, fresh_};
    host_.log.clear();
    return elite_derived_graph(environment, host_.context, parents, rng, settings_);
  }
  Value derive(const List& parents, std::initializer_list<double> draws) {
    return derive(parents, scripted_draws(host_.log, draws));
  }

  // The log, with a request for a score as "score(id)".
  [[nodiscard]] std::vector<std::string> steps() const {
    std::vector<std::string> steps;
    for (const std::string& line : host_.log.lines()) {
      if (!line.starts_with("eliteness.score_candidate(")) {
        steps.push_back(line);
        continue;
      }
      const std::string mark = "'id': '";
      const std::size_t start = line.find(mark) + mark.size();
      EXPECT_THAT(line, ::testing::EndsWith("sibling_correlations=(), pool_correlation=None, "
                                            "diversity_weight=0.5, parsimony_weight=0.25)"));
      steps.push_back("score(" + line.substr(start, line.find('\'', start) - start) + ")");
    }
    return steps;
  }

  ScriptedHost host_;
  test::ScriptedFresh fresh_{host_.log};
  Callable validator_;
  DerivationSettings settings_;
  // Weights 1.001 and 0.001: a draw below 0.999 is the first.
  const List four_{parent("a", 2.0), parent("b", 1.0), parent("c", 0.5), parent("d", 0.0)};
};

TEST_F(EliteDerivedGraph, NeedsAParent) {
  EXPECT_EQ(error_of([&] { return derive(List(), {}); }),
            "ValueError: elite-derived graph requires at least one parent");
  EXPECT_THAT(host_.log.lines(), IsEmpty());
}

TEST_F(EliteDerivedGraph, ByCrossover) {
  rate({{"crossover", 1.0}});
  accept_all();
  EXPECT_EQ(repr(derive(four_, {0.1, 0.9995, 0.7, 0.3})), "{'node': 'a'}");
  EXPECT_THAT(steps(), ElementsAre("context.own_graph_validator", "score(a)", "score(b)",
                                   "rng.random()", "score(a)", "score(b)", "rng.random()",
                                   "fresh.draw(3, 'rng')", "rng.random()", "rng.random()",
                                   "genetic_ops.crossover({'node': 'a'}, {'node': 'b'}, rng='rng', "
                                   "validator='validator')",
                                   "validator({'node': 'a'})"));
}

TEST_F(EliteDerivedGraph, ByPointMutation) {
  rate({{"point_mutation", 1.0}});
  accept_all();
  EXPECT_EQ(repr(derive(four_, {0.9995, 0.1, 0.7, 0.3})), "{'node': 'b'}");
  EXPECT_THAT(steps(), ElementsAre("context.own_graph_validator", "score(a)", "score(b)",
                                   "rng.random()", "score(a)", "score(b)", "rng.random()",
                                   "fresh.draw(3, 'rng')", "rng.random()", "rng.random()",
                                   "genetic_ops.point_mutation({'node': 'b'}, ['r1', 'r2', 'r3'], "
                                   "rng='rng', validator='validator')",
                                   "validator({'node': 'b'})"));
}

TEST_F(EliteDerivedGraph, BySubtreeMutation) {
  rate({{"subtree_mutation", 1.0}});
  EXPECT_EQ(repr(derive(four_, {0.1, 0.1, 0.7, 0.3})), "{'node': 'a'}");
  EXPECT_THAT(steps(),
              ElementsAre("context.own_graph_validator", "context.backtester_validate_graph",
                          "score(a)", "score(b)", "rng.random()", "score(a)", "score(b)",
                          "rng.random()", "fresh.draw(3, 'rng')", "rng.random()", "rng.random()",
                          "genetic_ops.subtree_mutation({'node': 'a'}, ['r1', 'r2', 'r3'], "
                          "rng='rng', validator=None)"));
}

// Only here the child is validated before its root is.
TEST_F(EliteDerivedGraph, ByHoisting) {
  rate({{"hoist_mutation", 1.0}});
  accept_all();
  EXPECT_EQ(repr(derive(four_, {0.1, 0.1, 0.7, 0.3})), "{'node': 'a'}");
  EXPECT_THAT(steps(), ElementsAre("context.own_graph_validator", "score(a)", "score(b)",
                                   "rng.random()", "score(a)", "score(b)", "rng.random()",
                                   "fresh.draw(3, 'rng')", "rng.random()", "rng.random()",
                                   "genetic_ops.hoist_mutation({'node': 'a'}, rng='rng', "
                                   "validator='validator')",
                                   "validator({'node': 'hoisted'})", "validator({'node': 'a'})"));
}

TEST_F(EliteDerivedGraph, ByAMutationWithoutReplacements) {
  accept_all();
  for (const char* const name : {"point_mutation", "subtree_mutation"}) {
    for (const Value& none : {Value(List{}), Value(Tuple()), Value()}) {
      SCOPED_TRACE(name);
      rate({{name, 1.0}});
      fresh_.on_draw = always(none);
      const Value child = derive(four_, {0.1, 0.1, 0.3});
      EXPECT_EQ(child, four_.at(0).mapping().at("graph"));
      EXPECT_FALSE(same_object(child, four_.at(0).mapping().at("graph")));
      EXPECT_THAT(steps(), ElementsAre("context.own_graph_validator", "score(a)", "score(b)",
                                       "rng.random()", "score(a)", "score(b)", "rng.random()",
                                       "fresh.draw(3, 'rng')", "rng.random()",
                                       "validator({'node': 'a'})", "validator({'node': 'a'})"));
    }
  }
}

// Whether there are replacements is asked only by the operators that use them.
TEST_F(EliteDerivedGraph, AsksForReplacementsOnlyWhenAMutationUsesThem) {
  class Ambiguous : public HostObject {
   public:
    [[nodiscard]] std::string type_name() const override { return "ndarray"; }
    [[nodiscard]] bool truth() const override { throw ValueError("ambiguous"); }
  };
  fresh_.on_draw = always(Value(make_object<Ambiguous>()));
  rate({{"crossover", 1.0}});
  EXPECT_EQ(repr(derive(four_, {0.1, 0.1, 0.3})), "{'node': 'a'}");
  rate({{"hoist_mutation", 1.0}});
  EXPECT_EQ(repr(derive(four_, {0.1, 0.1, 0.3})), "{'node': 'a'}");
  rate({{"point_mutation", 1.0}});
  EXPECT_EQ(error_of([&] { return derive(four_, {0.1, 0.1, 0.3}); }), "ValueError: ambiguous");
}

TEST_F(EliteDerivedGraph, CrossesAMutantWithTheMate) {
  rate({{"crossover", 0.5}, {"hoist_mutation", 0.5}});
  accept_all();
  EXPECT_EQ(repr(derive(four_, {0.1, 0.9995, 0.0, 0.9, 0.4999})), "{'node': 'a'}");
  EXPECT_THAT(steps(), ElementsAre("context.own_graph_validator", "score(a)", "score(b)",
                                   "rng.random()", "score(a)", "score(b)", "rng.random()",
                                   "fresh.draw(3, 'rng')", "rng.random()", "rng.random()",
                                   "genetic_ops.hoist_mutation({'node': 'a'}, rng='rng', "
                                   "validator='validator')",
                                   "validator({'node': 'hoisted'})", "validator({'node': 'a'})",
                                   "rng.random()",
                                   "genetic_ops.crossover({'node': 'a'}, {'node': 'b'}, rng='rng', "
                                   "validator='validator')",
                                   "validator({'node': 'a'})"));
}

TEST_F(EliteDerivedGraph, CrossesAMutantOnlyForADrawBelowTheRate) {
  rate({{"crossover", 0.5}, {"point_mutation", 0.5}});
  const auto crossed = [&](double draw) {
    static_cast<void>(derive(four_, {0.1, 0.1, 0.0, 0.9, draw}));
    EXPECT_EQ(host_.log.count("rng.random"), 5U);
    return host_.log.count("genetic_ops.crossover") == 1;
  };
  EXPECT_TRUE(crossed(0.0));
  EXPECT_TRUE(crossed(std::nextafter(0.5, 0.0)));
  EXPECT_FALSE(crossed(0.5));
  EXPECT_FALSE(crossed(0.9));
  // A rate beyond 1.0 always does.
  rate({{"crossover", 2.0}, {"point_mutation", 98.0}});
  EXPECT_TRUE(crossed(std::nextafter(1.0, 0.0)));
  // An elite that stayed as it is may be crossed as well.
  fresh_.on_draw = always(Value(List{}));
  static_cast<void>(derive(four_, {0.1, 0.1, 0.9, 0.4}));
  EXPECT_EQ(host_.log.count("genetic_ops.crossover"), 1U);
}

TEST_F(EliteDerivedGraph, MakesNoFollowingDrawWithoutARateOrAfterACrossover) {
  rate({{"crossover", 0.0}, {"point_mutation", 1.0}});
  static_cast<void>(derive(four_, {0.1, 0.1, 0.0, 0.9}));
  EXPECT_EQ(host_.log.count("genetic_ops.crossover"), 0U);
  rate({{"crossover", 1.0}});
  static_cast<void>(derive(four_, {0.1, 0.1, 0.0, 0.9}));
  EXPECT_EQ(host_.log.count("genetic_ops.crossover"), 1U);
}

TEST_F(EliteDerivedGraph, OfAllParentsIsByTheLastWithTheFirst) {
  rate({{"crossover", 1.0}});
  for (const double fraction : {1.0, 1.5, 1e300}) {
    settings_.elite_fraction = fraction;
    static_cast<void>(derive(four_, {0.0, 0.3}));
    EXPECT_THAT(steps(),
                ElementsAre("context.own_graph_validator", "context.backtester_validate_graph",
                            "fresh.draw(3, 'rng')", "rng.random()", "rng.random()",
                            "genetic_ops.crossover({'node': 'd'}, {'node': 'a'}, rng='rng', "
                            "validator=None)"));
  }
}

TEST_F(EliteDerivedGraph, OfOneParentDrawsNoParent) {
  rate({{"crossover", 1.0}});
  settings_.elite_fraction = 1.0;
  static_cast<void>(derive(List{parent("a", 1.0)}, {0.0, 0.3}));
  EXPECT_THAT(steps(),
              ElementsAre("context.own_graph_validator", "context.backtester_validate_graph",
                          "fresh.draw(3, 'rng')", "rng.random()", "rng.random()",
                          "genetic_ops.crossover({'node': 'a'}, {'node': 'a'}, rng='rng', "
                          "validator=None)"));
}

TEST_F(EliteDerivedGraph, HasARoundedShareOfTheParentsToChooseFrom) {
  rate({{"crossover", 1.0}});
  const auto eligible = [&](std::size_t count, double fraction) {
    List parents;
    for (std::size_t i = 0; i < count; ++i)
      parents.append(parent(std::string(1, static_cast<char>('a' + i)), 1.0));
    settings_.elite_fraction = fraction;
    static_cast<void>(derive(parents, scripted_draws(host_.log, {0.5, 0.5, 0.5, 0.5})));
    // One alone is not scored; the others are scored twice.
    const std::size_t scored = host_.log.count("eliteness.score_candidate");
    return scored == 0 ? 1 : scored / 2;
  };
  EXPECT_EQ(eligible(5, 0.5), 2U);
  EXPECT_EQ(eligible(3, 0.5), 2U);
  EXPECT_EQ(eligible(7, 0.5), 4U);
  EXPECT_EQ(eligible(4, 0.0), 1U);
  EXPECT_EQ(eligible(4, -3.0), 1U);
  EXPECT_EQ(eligible(4, 0.99), 4U);
  EXPECT_EQ(error_of([&] {
              settings_.elite_fraction = std::numeric_limits<double>::quiet_NaN();
              return derive(four_, {});
            }),
            "ValueError: cannot convert float NaN to integer");
}

TEST_F(EliteDerivedGraph, WithoutAGeneratorTakesTheFirstOfAll) {
  rate({{"crossover", 0.5}, {"point_mutation", 0.0}, {"hoist_mutation", 0.5}});
  static_cast<void>(derive(four_, nullptr));
  EXPECT_THAT(steps(), ElementsAre("context.own_graph_validator",
                                   "context.backtester_validate_graph", "fresh.draw(3, None)",
                                   "genetic_ops.crossover({'node': 'a'}, {'node': 'a'}, rng=None, "
                                   "validator=None)"));
  // Nor is a mutant crossed.
  rate({{"crossover", 0.0}, {"hoist_mutation", 0.5}});
  static_cast<void>(derive(four_, nullptr));
  EXPECT_EQ(host_.log.count("genetic_ops.crossover"), 0U);
}

// A replacement of the source that takes no generator still works.
TEST_F(EliteDerivedGraph, AsksAReplacedSourceAsItCanBeAsked) {
  rate({{"subtree_mutation", 1.0}});
  fresh_.on_replacement_signature =
      always(std::optional(std::vector<Parameter>{{"ctx", ParameterKind::kPositionalOrKeyword}}));
  static_cast<void>(derive(four_, {0.1, 0.1, 0.3}));
  EXPECT_EQ(host_.log.count("fresh.draw_without_rng"), 1U);
}

TEST_F(EliteDerivedGraph, CompletesTheRatesByTheModulesOwn) {
  host_.search_settings.on_default_operator_rates =
      always(Value(Mapping{{"crossover", 0.0}, {"hoist_mutation", 1.0}}));
  static_cast<void>(derive(four_, {0.1, 0.1, 0.3, 0.5}));
  EXPECT_EQ(host_.log.count("genetic_ops.hoist_mutation"), 1U);
  // Half of the range is the default's.
  rate({{"crossover", 1.0}});
  static_cast<void>(derive(four_, {0.1, 0.1, 0.0, 0.6, 0.999}));
  EXPECT_EQ(host_.log.count("genetic_ops.hoist_mutation"), 1U);
  rate({{"swap", 1.0}});
  EXPECT_EQ(error_of([&] { return derive(four_, {}); }),
            "ValueError: genetic operator_rates has unknown keys: swap");
  // Found out after the validator was looked up, before anything is drawn or scored.
  EXPECT_THAT(steps(),
              ElementsAre("context.own_graph_validator", "context.backtester_validate_graph"));
}

TEST_F(EliteDerivedGraph, NeedsTheGraphsOfItsParents) {
  rate({{"crossover", 1.0}});
  EXPECT_EQ(error_of([&] { return derive(List{Mapping{{"id", "a"}}}, {}); }), "KeyError: 'graph'");
  EXPECT_EQ(host_.log.count("fresh.draw"), 0U);
  EXPECT_EQ(error_of([&] { return derive(List{3}, {}); }),
            "TypeError: 'int' object is not subscriptable");
  // The elite, here the last, is read before its mate.
  settings_.elite_fraction = 1.0;
  EXPECT_EQ(error_of([&] { return derive(List{3, Mapping()}, {}); }), "KeyError: 'graph'");
  EXPECT_EQ(error_of([&] {
              return derive(List{Mapping(), 3}, {});
            }),
            "TypeError: 'int' object is not subscriptable");
  // An absent graph is one: the operators may make something of it.
  static_cast<void>(derive(List{Mapping{{"graph", Value()}}}, {0.0, 0.3}));
  EXPECT_EQ(host_.log.lines().back(),
            "genetic_ops.crossover(None, None, rng='rng', validator=None)");
}

TEST_F(EliteDerivedGraph, KeepsTheChildsRootWhenItHasOtherDataChildren) {
  rate({{"crossover", 1.0}});
  host_.genetic_ops.on_crossover =
      always(Value(Mapping{{"node", "crossed"}, {"children", List{Mapping{{"type", "feature"}}}}}));
  EXPECT_EQ(str(derive(four_, {0.1, 0.1, 0.0, 0.3}).mapping().at("node")), "crossed");
  // As many as the elite has are as good as none.
  const Value elite = Mapping{{"node", "a"}, {"children", List{Mapping{{"type", "rotation"}}}}};
  EXPECT_EQ(str(derive(List{Mapping{{"graph", elite}}}, {0.0, 0.3}).mapping().at("node")), "a");
}

// The mate's data children say nothing about the elite's root.
TEST_F(EliteDerivedGraph, CountsTheElitesDataChildrenAlone) {
  rate({{"crossover", 1.0}});
  settings_.elite_fraction = 1.0;
  const Value mate = Mapping{{"node", "m"}, {"children", List{Mapping{{"type", "feature"}}}}};
  const List parents{Mapping{{"graph", mate}}, parent("a", 1.0)};
  EXPECT_EQ(repr(derive(parents, {0.0, 0.3})), "{'node': 'a'}");
}

TEST_F(EliteDerivedGraph, KeepsTheChildsRootWhenTheEliteHasNone) {
  rate({{"crossover", 1.0}});
  EXPECT_EQ(repr(derive(List{Mapping{{"graph", Mapping()}}}, {0.0, 0.3})), "{'node': 'crossed'}");
  EXPECT_EQ(repr(derive(List{Mapping{{"graph", "text"}}}, {0.0, 0.3})), "{'node': 'crossed'}");
}

// The root is put on the object that the operator returned, whoever else holds it.
TEST_F(EliteDerivedGraph, ChangesWhatTheOperatorReturned) {
  rate({{"crossover", 1.0}});
  host_.genetic_ops.on_crossover = [](const auto& request) { return request.others; };
  const List parents{parent("a", 2.0), parent("b", 1.0)};
  settings_.elite_fraction = 1.0;
  const Value child = derive(parents, {0.0, 0.3});
  EXPECT_TRUE(same_object(child, parents.at(0).mapping().at("graph")));
  EXPECT_EQ(repr(child), "{'node': 'b'}");
}

// What is hoisted is copied, however deep it lies in the elite.
TEST_F(EliteDerivedGraph, LeavesTheEliteAsItIsWhenHoisting) {
  rate({{"hoist_mutation", 1.0}});
  host_.genetic_ops.on_hoist_mutation = [](const auto& request) {
    return request.elite.mapping().at("children").list().at(0);
  };
  const Value inner = Mapping{{"node", "inner"}, {"children", List{}}};
  const Value elite = Mapping{{"node", "outer"}, {"children", List{inner}}};
  const Value child = derive(List{Mapping{{"graph", elite}}}, {0.0, 0.3});
  EXPECT_EQ(repr(child), "{'node': 'outer', 'children': []}");
  EXPECT_EQ(repr(inner), "{'node': 'inner', 'children': []}");
  EXPECT_FALSE(same_object(child.mapping().at("children"), inner.mapping().at("children")));
}

TEST_F(EliteDerivedGraph, PassesARefusalOfTheHoistedChildOn) {
  validator_ = test::scripted_callable(
      host_.log, "validator",
      [](std::span<const Value>, const Mapping&) -> Value { throw ValueError("refused"); });
  rate({{"hoist_mutation", 1.0}});
  EXPECT_EQ(error_of([&] { return derive(four_, {0.1, 0.1, 0.0, 0.3}); }), "ValueError: refused");
  EXPECT_EQ(host_.log.count("validator"), 1U);
  // The other operators have the validator themselves; here the root is refused, then the child.
  rate({{"crossover", 1.0}});
  EXPECT_EQ(error_of([&] { return derive(four_, {0.1, 0.1, 0.0, 0.3}); }), "ValueError: refused");
  EXPECT_EQ(host_.log.count("validator"), 2U);
}

TEST_F(EliteDerivedGraph, PassesTheOperatorsFailureOn) {
  rate({{"crossover", 1.0}});
  host_.genetic_ops.on_crossover = failing(RuntimeError("no child"));
  EXPECT_EQ(error_of([&] {
              return derive(four_, {0.1, 0.1, 0.0, 0.3});
            }),
            "RuntimeError: no child");
}

TEST_F(EliteDerivedGraph, HandsTheSameGeneratorToAll) {
  rate({{"crossover", 0.5}, {"point_mutation", 0.5}});
  std::vector<std::shared_ptr<RandomGenerator>> met;
  host_.genetic_ops.on_point_mutation = [&](const auto& request) {
    met.push_back(request.rng);
    static_cast<void>(request.rng->random());
    return Value(Mapping());
  };
  host_.genetic_ops.on_crossover = [&](const auto& request) {
    met.push_back(request.rng);
    return Value(Mapping());
  };
  const auto rng = scripted_draws(host_.log, {0.1, 0.1, 0.0, 0.9, 0.5, 0.1});
  static_cast<void>(derive(four_, rng));
  met.push_back(fresh_.last_rng);
  EXPECT_THAT(met, ElementsAre(rng, rng, rng));
}

}  // namespace
}  // namespace varnholt::genetic
