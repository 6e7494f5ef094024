// The single decisions of a derivation: the operator by its rate, a parent by its score, and whose
// root the child has. Method: scripted draws on and beside every border, and a validator that logs
// what it is shown.
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/population/elite_derivation.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/recording_eliteness.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::error_of;
using test::RecordingEliteness;
using test::scripted_draws;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kNoPositiveRate =
    "ValueError: genetic operator_rates must contain at least one positive rate";

// What is no error to the host's language either, such as an interrupt.
struct Interrupt {};

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
            "TypeError: unsupported operand type(s) for +: 'int' and 'str'");
  EXPECT_EQ(error_of([&] {
              return first({{"crossover", 0.5}, {"other", Value()}});
            }),
            "TypeError: unsupported operand type(s) for +: 'float' and 'NoneType'");
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
            "TypeError: unsupported operand type(s) for -: 'str' and 'str'");
  EXPECT_EQ(eliteness_.calls.size(), 2U);  // All are scored before a score is used.
  EXPECT_EQ(error_of([&] {
              return index({1.0, "0.75"}, 0.5);
            }),
            "TypeError: '<' not supported between instances of 'str' and 'float'");
}

TEST_F(WeightedParentIndex, TellsLargeIntegersApartThatAreOneReal) {
  constexpr std::int64_t kLarge = std::int64_t{1} << 53;
  // The weights are 0.001 and 1.001, and not 0.001 each.
  EXPECT_EQ(index({kLarge, kLarge + 1}, 0.25), 1);
  EXPECT_EQ(index({kLarge + 1, kLarge}, 0.25), 0);
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

}  // namespace
}  // namespace varnholt::genetic
