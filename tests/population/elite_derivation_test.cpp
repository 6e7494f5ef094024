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
#include "tests/support/recording_eliteness.hpp"
#include "tests/support/scripted_fresh.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::error_of;
using test::failing;
using test::in_turn;
using test::RecordingEliteness;
using test::ScriptedHost;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kNoPositiveRate =
    "ValueError: genetic operator_rates must contain at least one positive rate";

// What is no error to the host's language either, such as an interrupt.
struct Interrupt {};

std::shared_ptr<test::ScriptedGenerator> scripted_draws(test::CallLog& log,
                                                        std::initializer_list<double> draws) {
  auto rng = std::make_shared<test::ScriptedGenerator>(log, MersenneTwister(1));
  rng->on_random = in_turn<double>(draws);
  return rng;
}

class ChooseOperator : public ::testing::Test {
 protected:
  std::string chosen(const Mapping& rates, double draw) {
    return std::string(choose_operator(rates, scripted_draws(log_, {draw}).get()).view());
  }
  static std::string first(const Mapping& rates) {
    return std::string(choose_operator(rates, nullptr).view());
  }

  test::CallLog log_;
};

const Mapping& quarters() {
  static const Mapping rates{{"hoist_mutation", 0.25},
                             {"subtree_mutation", 0.25},
                             {"point_mutation", 0.25},
                             {"crossover", 0.25}};
  return rates;
}

TEST_F(ChooseOperator, GoesThroughTheOperatorsInAFixedOrder) {
  EXPECT_EQ(chosen(quarters(), 0.1), "crossover");
  EXPECT_EQ(chosen(quarters(), 0.3), "point_mutation");
  EXPECT_EQ(chosen(quarters(), 0.6), "subtree_mutation");
  EXPECT_EQ(chosen(quarters(), 0.9), "hoist_mutation");
  EXPECT_THAT(log_.lines(),
              ElementsAre("rng.random()", "rng.random()", "rng.random()", "rng.random()"));
}

TEST_F(ChooseOperator, TakesADrawOnTheBorderAsBelowIt) {
  EXPECT_EQ(chosen(quarters(), 0.25), "crossover");
  EXPECT_EQ(chosen(quarters(), std::nextafter(0.25, 1.0)), "point_mutation");
  EXPECT_EQ(chosen(quarters(), 0.5), "point_mutation");
  EXPECT_EQ(chosen(quarters(), 0.75), "subtree_mutation");
  EXPECT_EQ(chosen(quarters(), 0.0), "crossover");
}

TEST_F(ChooseOperator, ScalesTheDrawByAllRates) {
  const Mapping rates{{"crossover", 1}, {"point_mutation", 3.0}};
  EXPECT_EQ(chosen(rates, 0.25), "crossover");
  EXPECT_EQ(chosen(rates, 0.26), "point_mutation");
}

TEST_F(ChooseOperator, NeverTakesAZeroRate) {
  EXPECT_EQ(chosen({{"crossover", 0.0}, {"point_mutation", 1.0}}, 0.0), "point_mutation");
  EXPECT_EQ(chosen({{"crossover", 0.0}, {"hoist_mutation", 1.0}}, 0.0), "hoist_mutation");
  EXPECT_EQ(chosen({{"hoist_mutation", 0.5}}, 0.0), "hoist_mutation");
  EXPECT_EQ(first({{"crossover", 0.0}, {"point_mutation", 0}, {"subtree_mutation", 0.1}}),
            "subtree_mutation");
}

TEST_F(ChooseOperator, WithoutAGeneratorTakesTheFirstPositiveRate) {
  EXPECT_EQ(first(quarters()), "crossover");
  EXPECT_EQ(first({{"hoist_mutation", 9.0}, {"point_mutation", 0.001}}), "point_mutation");
}

// Unknown names widen the range of the draw, and what falls to them goes to the first operator with
// a rate.
TEST_F(ChooseOperator, CountsUnknownNamesIntoTheTotal) {
  const Mapping rates{{"other", 1.0}, {"subtree_mutation", 1.0}, {"hoist_mutation", 2.0}};
  EXPECT_EQ(chosen(rates, 0.25), "subtree_mutation");
  EXPECT_EQ(chosen(rates, 0.5), "hoist_mutation");
  EXPECT_EQ(chosen(rates, 0.75), "hoist_mutation");
  EXPECT_EQ(chosen(rates, 0.76), "subtree_mutation");
}

TEST_F(ChooseOperator, NeedsAPositiveRate) {
  for (const Mapping& rates : {Mapping(), Mapping{{"crossover", 0.0}},
                               Mapping{{"crossover", 1.0}, {"point_mutation", -1.0}}}) {
    EXPECT_EQ(error_of([&] { return chosen(rates, 0.5); }), kNoPositiveRate);
    EXPECT_EQ(error_of([&] { return first(rates); }), kNoPositiveRate);
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
  // Unknown names alone are found out after the draw.
  EXPECT_EQ(error_of([&] { return chosen({{"other", 1.0}}, 0.5); }), kNoPositiveRate);
  EXPECT_THAT(log_.lines(), ElementsAre("rng.random()"));
}

TEST_F(ChooseOperator, AddsNumbersOnly) {
  EXPECT_EQ(error_of([&] {
              return first({{"crossover", "0.5"}});
            }),
            "TypeError: must be real number, not str");
  EXPECT_EQ(error_of([&] {
              return first({{"crossover", 0.5}, {"other", Value()}});
            }),
            "TypeError: float() argument must be a string or a real number, not 'NoneType'");
}

class WeightedParentIndex : public ::testing::Test {
 protected:
  std::int64_t index(const std::vector<Value>& scores, double draw) {
    List parents;
    for (const Value& score : scores)
      parents.append(Mapping{{"id", static_cast<std::int64_t>(parents.size())}, {"score", score}});
    return weighted_parent_index(eliteness_, parents, scripted_draws(log_, {draw}).get(), 0.5,
                                 0.25);
  }

  test::CallLog log_;
  RecordingEliteness eliteness_;
};

TEST_F(WeightedParentIndex, NeedsAParent) {
  EXPECT_EQ(error_of([&] { return index({}, 0.5); }),
            "ValueError: parent selection requires at least one parent");
  EXPECT_EQ(error_of([&] { return weighted_parent_index(eliteness_, List(), nullptr, 0.0, 0.0); }),
            "ValueError: parent selection requires at least one parent");
}

TEST_F(WeightedParentIndex, AsksNothingWhenThereIsNothingToChoose) {
  EXPECT_EQ(index({5.0}, 0.9), 0);
  EXPECT_EQ(weighted_parent_index(eliteness_, List{Mapping(), Mapping()}, nullptr, 0.5, 0.0), 0);
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(eliteness_.calls, IsEmpty());
}

TEST_F(WeightedParentIndex, ScoresEveryParentAndDrawsOnce) {
  EXPECT_EQ(index({3.0, 1.0, 2.0}, 0.1), 0);
  EXPECT_THAT(eliteness_.lines(), ElementsAre("0@0.5", "1@0.5", "2@0.5"));
  EXPECT_EQ(eliteness_.calls.at(0).parsimony_weight, 0.25);
  EXPECT_THAT(log_.lines(), ElementsAre("rng.random()"));
}

TEST_F(WeightedParentIndex, WeighsByTheScoreAboveTheWorst) {
  // Weights 2.001, 0.001 and 1.001 of 3.003.
  const std::vector<Value> scores = {3.0, 1.0, 2.0};
  EXPECT_EQ(index(scores, 0.0), 0);
  EXPECT_EQ(index(scores, 0.6663), 0);
  EXPECT_EQ(index(scores, 0.6665), 1);
  EXPECT_EQ(index(scores, 0.6667), 2);
  EXPECT_EQ(index(scores, 0.999), 2);
  EXPECT_EQ(index({-1, true, 0}, 0.5), 1);
}

TEST_F(WeightedParentIndex, IsUniformForEqualScores) {
  const std::vector<Value> scores(4, Value(7.0));
  EXPECT_EQ(index(scores, 0.2), 0);
  EXPECT_EQ(index(scores, 0.25), 0);  // On the border is below it.
  EXPECT_EQ(index(scores, 0.26), 1);
  EXPECT_EQ(index(scores, 0.74), 2);
  EXPECT_EQ(index(scores, 0.76), 3);
}

// The floor is taken off before the thousandth is added, which a large score would swallow.
TEST_F(WeightedParentIndex, KeepsTheWorstParentsChanceForLargeScores) {
  EXPECT_EQ(index({1e16, 1e16}, 0.25), 0);
  EXPECT_EQ(index({1e16, 1e16}, 0.75), 1);
}

TEST_F(WeightedParentIndex, IsTheLastWhenTheDrawGoesPastAll) {
  EXPECT_EQ(index({1.0, 2.0, 1.0}, 1.5), 2);
  EXPECT_EQ(index({1.0, std::numeric_limits<double>::quiet_NaN(), 3.0}, 0.0), 2);
}

TEST_F(WeightedParentIndex, NeedsScoresThatAreNumbers) {
  EXPECT_EQ(error_of([&] {
              return index({"0.5", "0.75"}, 0.5);
            }),
            "TypeError: must be real number, not str");
  EXPECT_EQ(error_of([&] {
              return index({1.0, "0.75"}, 0.5);
            }),
            "TypeError: must be real number, not str");
}

TEST(DataGraphChildCount, CountsFeaturesAndRotations) {
  const auto child = [](const Value& type) { return Mapping{{"node", "n"}, {"type", type}}; };
  const List children{child("feature"), child("window"),  child("rotation"), child("feature"),
                      child(Value()),   Mapping(),        "feature",         List{child("feature")},
                      child(List{}),    child("Feature"), child("rotations")};
  EXPECT_EQ(data_graph_child_count(Mapping{{"type", "feature"}, {"children", children}}), 3);
  EXPECT_EQ(data_graph_child_count(Mapping{{"children", Tuple{child("rotation")}}}), 1);
  // Children of children do not count.
  EXPECT_EQ(data_graph_child_count(
                Mapping{{"children", List{Mapping{{"children", children}, {"type", "window"}}}}}),
            0);
}

TEST(DataGraphChildCount, IsNoneForWhatIsNoGraph) {
  EXPECT_EQ(data_graph_child_count(Value()), 0);
  EXPECT_EQ(data_graph_child_count(List{Mapping{{"type", "feature"}}}), 0);
  EXPECT_EQ(data_graph_child_count("feature"), 0);
  EXPECT_EQ(data_graph_child_count(Mapping()), 0);
  EXPECT_EQ(data_graph_child_count(Mapping{{"children", "feature"}}), 0);
  EXPECT_EQ(error_of([] {
              return data_graph_child_count(Mapping{{"children", Value()}});
            }),
            "TypeError: 'NoneType' object is not iterable");
}

class RestoreEliteRootNode : public ::testing::Test {
 protected:
  using Answer = std::function<Value()>;
  // Answers its calls in turn.
  Callable validator(std::vector<Answer> answers) {
    auto next = std::make_shared<std::size_t>(0);
    return test::scripted_callable(log_, "validator",
                                   [answers, next](std::span<const Value>, const Mapping&) {
                                     return answers.at((*next)++)();
                                   });
  }
  static Answer refusal(const std::string& text) {
    return [text]() -> Value { throw ValueError(text); };
  }

  test::CallLog log_;
  const Mapping child_{{"node", "own"},
                       {"children", List{Mapping{{"type", "feature"}}, Mapping{{"type", "x"}}}}};
};

TEST_F(RestoreEliteRootNode, ChangesTheChildInPlace) {
  EXPECT_TRUE(same_object(restore_elite_root_node(child_, "elite", 1, Callable()), child_));
  EXPECT_EQ(child_.at("node"), Value("elite"));
}

TEST_F(RestoreEliteRootNode, LeavesAChildThatDoesNotFit) {
  const Callable never = validator({});
  EXPECT_EQ(restore_elite_root_node("text", "elite", 0, never), Value("text"));
  EXPECT_EQ(repr(restore_elite_root_node(List{}, "elite", 0, never)), "[]");
  for (const Value& root : {Value(), Value(""), Value(0), Value(false), Value(List{})})
    static_cast<void>(restore_elite_root_node(child_, root, 1, never));
  static_cast<void>(restore_elite_root_node(child_, "elite", 0, never));
  static_cast<void>(restore_elite_root_node(child_, "elite", 2, never));
  EXPECT_EQ(child_.at("node"), Value("own"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

// An answer is not looked at: only a failure refuses.
TEST_F(RestoreEliteRootNode, ShowsTheChildToTheValidatorOnce) {
  const Mapping child{{"node", "own"}};
  static_cast<void>(restore_elite_root_node(child, "elite", 0, validator({always(Value(false))})));
  EXPECT_EQ(repr(child), "{'node': 'elite'}");
  EXPECT_THAT(log_.lines(), ElementsAre("validator({'node': 'elite'})"));
}

TEST_F(RestoreEliteRootNode, PutsTheOwnRootBackWhenTheValidatorRefuses) {
  const Mapping child{{"node", "own"}};
  const Value result = restore_elite_root_node(child, "elite", 0,
                                               validator({refusal("root"), always(Value(false))}));
  EXPECT_TRUE(same_object(result, child));
  EXPECT_EQ(repr(child), "{'node': 'own'}");
  EXPECT_THAT(log_.lines(),
              ElementsAre("validator({'node': 'elite'})", "validator({'node': 'own'})"));
}

TEST_F(RestoreEliteRootNode, GivesAChildWithoutARootAnAbsentOne) {
  const Mapping child{{"type", "rotation"}};
  static_cast<void>(
      restore_elite_root_node(child, "elite", 0, validator({refusal("root"), always(Value())})));
  EXPECT_EQ(repr(child), "{'type': 'rotation', 'node': None}");
}

TEST_F(RestoreEliteRootNode, PassesTheSecondRefusalOn) {
  const Mapping child{{"node", "own"}};
  EXPECT_EQ(error_of([&] {
              return restore_elite_root_node(child, "elite", 0,
                                             validator({refusal("first"), refusal("second")}));
            }),
            "ValueError: second");
  EXPECT_EQ(repr(child), "{'node': 'own'}");
}

TEST_F(RestoreEliteRootNode, DoesNotTakeAnInterruptForARefusal) {
  const Mapping child{{"node", "own"}};
  const Answer interrupt = []() -> Value { throw Interrupt(); };
  EXPECT_THROW(
      static_cast<void>(restore_elite_root_node(child, "elite", 0, validator({interrupt}))),
      Interrupt);
  EXPECT_EQ(log_.lines().size(), 1U);
}

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
