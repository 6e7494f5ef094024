// The operators over thousands of random graphs: the child is always a valid graph within the
// limits, the parents stay as they are, the same state gives the same child, and what the validator
// refuses never comes out. The seed of a failing case is shown.
#include "hosts/embedded/operators/genetic_operators.hpp"

#include <functional>
#include <map>
#include <set>
#include <span>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "hosts/embedded/operators/graph_parts.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"
#include "tests/hosts/embedded/synthetic_universe.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Callable;
using genetic::List;
using genetic::Mapping;
using genetic::Value;
using Rng = std::shared_ptr<genetic::RandomGenerator>;

constexpr int kCases = 1500;

Vocabulary small_vocabulary() {
  SyntheticUniverseOptions options;
  options.instruments = 2;
  options.days = 20;
  options.factors = 1;
  return make_vocabulary(make_synthetic_universe(options));
}

class GeneticOperatorsTest : public ::testing::Test {
 protected:
  Rng seeded(std::int64_t seed) { return generators_.seeded(seed); }

  Value graph(genetic::RandomGenerator& rng) { return random_graph(rng, vocabulary_, options_); }

  // What the search gives as replacements.
  Value replacements(genetic::RandomGenerator& rng) {
    return List{graph(rng), graph(rng), graph(rng)};
  }

  using Operator =
      std::function<Value(const Value& elite, const Value& mate, const Value& replacements,
                          const Rng& rng, const Callable& validator)>;

  Operator crossover = [this](const Value& elite, const Value& mate, const Value&, const Rng& rng,
                              const Callable& validator) {
    return operators_.crossover(elite, mate, rng, validator);
  };
  Operator point = [this](const Value& elite, const Value&, const Value& replacements,
                          const Rng& rng, const Callable& validator) {
    return operators_.point_mutation(elite, replacements, rng, validator);
  };
  Operator subtree = [this](const Value& elite, const Value&, const Value& replacements,
                            const Rng& rng, const Callable& validator) {
    return operators_.subtree_mutation(elite, replacements, rng, validator);
  };
  Operator hoist = [this](const Value& elite, const Value&, const Value&, const Rng& rng,
                          const Callable& validator) {
    return operators_.hoist_mutation(elite, rng, validator);
  };

  Operator insert = [this](const Value& elite, const Value&, const Value& replacements,
                           const Rng& rng, const Callable& validator) {
    return operators_.insert_mutation(elite, replacements, rng, validator);
  };

  void holds_for_random_graphs(const Operator& apply) {
    int changed = 0;
    for (int seed = 0; seed < kCases; ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      const Rng material = seeded(seed);
      const Value elite = graph(*material);
      const Value mate = graph(*material);
      const Value fresh = replacements(*material);
      const std::string before = genetic::repr(List{elite, mate, fresh});

      const Value child = apply(elite, mate, fresh, seeded(seed + 1), {});
      const GraphShape shape = check_graph(child, vocabulary_);
      EXPECT_LE(shape.depth, options_.max_depth);
      EXPECT_LE(shape.node_count, options_.max_nodes);
      EXPECT_EQ(genetic::repr(List{elite, mate, fresh}), before);
      EXPECT_TRUE(apply(elite, mate, fresh, seeded(seed + 1), {}) == child);
      EXPECT_FALSE(genetic::same_object(child, elite));
      if (!(child == elite)) ++changed;
    }
    // A copy of the parent is the way out, not the rule.
    EXPECT_GT(changed, kCases / 2);
  }

  // A validator that refuses everything leaves a copy of the elite.
  void gives_way_to_the_validator(const Operator& apply) {
    int asked = 0;
    const Callable refuses =
        genetic::make_callable([&asked](std::span<const Value>, const Mapping&) -> Value {
          ++asked;
          throw std::runtime_error("refused");
        });
    const Rng material = seeded(9);
    const Value elite = deep_graph();
    const Value child = apply(elite, graph(*material), replacements(*material), seeded(1), refuses);
    EXPECT_TRUE(child == elite);
    EXPECT_FALSE(genetic::same_object(child, elite));
    EXPECT_GT(asked, 0);
    EXPECT_LE(asked, GeneticOperators::kTries);
  }

  // arith_add(ts_mean(close, 5), arith_neg(volume))
  static Value deep_graph() {
    const auto node = [](const char* name, std::string_view type, List children) {
      return make_graph_node(name, type, std::move(children));
    };
    return node("arith_add", kRotationType,
                {node("ts_mean", kRotationType,
                      {node("close", kFeatureType, List()), node("5", kWindowType, List())}),
                 node("arith_neg", kRotationType, {node("volume", kFeatureType, List())})});
  }

  Vocabulary vocabulary_ = small_vocabulary();
  RandomGraphOptions options_;
  GeneticOperators operators_{vocabulary_, {options_.max_depth, options_.max_nodes}};
  genetic::TwisterGenerators generators_;
};

TEST_F(GeneticOperatorsTest, CrossoverHolds) {
  holds_for_random_graphs(crossover);
}
TEST_F(GeneticOperatorsTest, PointMutationHolds) {
  holds_for_random_graphs(point);
}
TEST_F(GeneticOperatorsTest, SubtreeMutationHolds) {
  holds_for_random_graphs(subtree);
}
TEST_F(GeneticOperatorsTest, HoistMutationHolds) {
  holds_for_random_graphs(hoist);
}
TEST_F(GeneticOperatorsTest, InsertMutationHolds) {
  holds_for_random_graphs(insert);
}

// Constants, groups, numbers and functions of every kind.
class RichGeneticOperatorsTest : public GeneticOperatorsTest {
 protected:
  RichGeneticOperatorsTest() {
    vocabulary_ = rich_vocabulary();
    options_ = rich_options();
    operators_ = GeneticOperators(vocabulary_, {options_.max_depth, options_.max_nodes});
  }
};

TEST_F(RichGeneticOperatorsTest, CrossoverHolds) {
  holds_for_random_graphs(crossover);
}
TEST_F(RichGeneticOperatorsTest, PointMutationHolds) {
  holds_for_random_graphs(point);
}
TEST_F(RichGeneticOperatorsTest, SubtreeMutationHolds) {
  holds_for_random_graphs(subtree);
}
TEST_F(RichGeneticOperatorsTest, HoistMutationHolds) {
  holds_for_random_graphs(hoist);
}
TEST_F(RichGeneticOperatorsTest, InsertMutationHolds) {
  holds_for_random_graphs(insert);
}

TEST_F(RichGeneticOperatorsTest, NumbersChangeByStepsThroughTheConstants) {
  const auto reached = [this](const char* formula, std::size_t node) {
    const Value elite = parse_formula(formula, vocabulary_);
    std::set<std::string> names;
    for (int seed = 0; seed < 300; ++seed) {
      const Value child = operators_.point_mutation(elite, List(), seeded(seed), {});
      names.insert(graph_parts(child)[node].name);
    }
    return names;
  };
  using Names = std::set<std::string>;
  EXPECT_EQ(reached("close * 2", 2), (Names{"1", "2", "5"}));
  EXPECT_EQ(reached("close * 3", 2), (Names{"2", "3", "5"}));
  EXPECT_EQ(reached("close * -0.7", 2), (Names{"-0.5", "-0.7", "-1"}));
  EXPECT_EQ(reached("close * 0", 2), (Names{"-0.01", "0", "0.01"}));
  EXPECT_EQ(reached("close * 100", 2), (Names{"100", "50"}));
  EXPECT_EQ(reached("close * 1000", 2), (Names{"100", "1000"}));
  EXPECT_EQ(reached("close * 0.01", 2), (Names{"0.01", "0.02"}));
  // Beyond 1 there is no quantile.
  EXPECT_EQ(reached("quantile(close, 1, 7)", 2), (Names{"0.5", "1"}));
}

TEST_F(GeneticOperatorsTest, AWindowMostlyGoesToItsNeighbours) {
  const auto counted = [this](const char* formula, const GeneticOperators& of) {
    GeneticOperators operators = of;
    const Value elite = parse_formula(formula, vocabulary_);
    std::map<std::string, int> windows;
    for (int seed = 0; seed < 2000; ++seed) {
      const Value child = operators.point_mutation(elite, List(), seeded(seed), {});
      ++windows[graph_parts(child)[2].name];
    }
    return windows;
  };
  // Features and functions have no other name here, so that what comes is a window's, or the elite
  // after eight tries without one.
  auto windows = counted("ts_mean(close, 20)", operators_);
  EXPECT_LT(windows["20"], 100);
  // Half of four fifths, and half of what goes anywhere: two of the other eight.
  constexpr double kNeighbours = GeneticOperators::kNeighbourShare;
  EXPECT_NEAR(windows["15"] + windows["40"], 2000 * (kNeighbours + 0.25 * (1 - kNeighbours)), 80);
  EXPECT_NEAR(windows["15"], windows["40"], 130);
  EXPECT_GT(windows["2"], 10);
  EXPECT_EQ(windows.size(), usual_windows().size());
  // What is no window of the vocabulary lies between two of them, and the ends have one neighbour.
  windows = counted("ts_mean(close, 17)", operators_);
  EXPECT_GT(windows["15"] + windows["20"], 1500);
  windows = counted("ts_mean(close, 120)", operators_);
  EXPECT_GT(windows["60"], 1500);
  windows = counted("ts_mean(close, 20)", GeneticOperators(vocabulary_, {5, 25, 20}));
  EXPECT_GT(windows["15"], 1500);
  EXPECT_EQ(windows.count("40"), 0U) << "longer than any window may be";
}

TEST_F(GeneticOperatorsTest, CrossoverPutsLikeInThePlaceOfLike) {
  const GeneticOperators::Repeats none;
  GeneticOperators kept(vocabulary_, {5, 25}, {vocabulary_, {.keeps_units = true}}, none);
  // A price where a price was: the mate's others are a return, a volume, a rank and a condition.
  const Value elite = parse_formula("cross_rank(ts_mean(close, 5))", vocabulary_);
  const Value mate = parse_formula(
      "ts_std(returns, 3) * ts_max(volume, 3) * cross_rank(open) * (low > high)", vocabulary_);
  std::map<std::string, int> taken;
  for (int seed = 0; seed < 4000; ++seed) {
    const auto child = graph_parts(kept.crossover(elite, mate, seeded(seed), {}));
    if (child[1].name == "ts_mean") ++taken[child[2].name];
  }
  const int prices = taken["open"] + taken["low"] + taken["high"];
  int all = 0;
  for (const auto& [name, count] : taken)
    all += count;
  // Three of the mate's eleven parts are prices, in the quarter of the tries that take any.
  constexpr double kLike = GeneticOperators::kLikeShare;
  EXPECT_GT(prices, all * (kLike + 0.1 * (1 - kLike)));
  EXPECT_LT(prices, all * (kLike + 0.5 * (1 - kLike)));
  EXPECT_GT(taken["volume"], 0);
}

TEST_F(GeneticOperatorsTest, AMateWithoutALikePartGivesAnyPart) {
  const Value elite = parse_formula("ts_mean(close > open, 5)", vocabulary_);
  const Value mate = parse_formula("volume", vocabulary_);
  std::set<std::string> children;
  for (int seed = 0; seed < 100; ++seed)
    children.insert(expression_text(operators_.crossover(elite, mate, seeded(seed), {})));
  EXPECT_TRUE(children.contains("ts_mean(volume, 5)"));
}

TEST_F(GeneticOperatorsTest, WhatRepeatsIsTakenWhereNothingElseComes) {
  const Value elite = parse_formula("ts_mean(close, 20)", vocabulary_);
  const auto children = [&](const GeneticOperators::Repeats& repeats) {
    GeneticOperators operators(vocabulary_, {5, 25}, {}, repeats);
    std::map<std::string, int> texts;
    for (int seed = 0; seed < 500; ++seed)
      ++texts[expression_text(operators.point_mutation(elite, List(), seeded(seed), {}))];
    return texts;
  };
  auto some =
      children([](const Value& graph) { return expression_text(graph) == "ts_mean(close, 15)"; });
  EXPECT_LT(some["ts_mean(close, 15)"], 120) << "another try mostly gives the other neighbour";
  EXPECT_GT(some["ts_mean(close, 40)"], 300);
  auto all = children([](const Value&) { return true; });
  EXPECT_GT(all["ts_mean(close, 15)"], 150) << "the first try, not a copy of the parent";
}

TEST_F(GeneticOperatorsTest, EachGivesWayToTheValidator) {
  gives_way_to_the_validator(crossover);
  gives_way_to_the_validator(point);
  gives_way_to_the_validator(subtree);
  gives_way_to_the_validator(hoist);
  gives_way_to_the_validator(insert);
}

TEST_F(GeneticOperatorsTest, TheValidatorsOwnCopyIsNotTheChild) {
  const Callable spoils =
      genetic::make_callable([](std::span<const Value> positional, const Mapping&) {
        positional[0].mapping().set("node", "spoilt");
        return Value(true);
      });
  const Value child = operators_.hoist_mutation(deep_graph(), seeded(3), spoils);
  EXPECT_EQ(expression_text(child).find("spoilt"), std::string::npos);
}

TEST_F(GeneticOperatorsTest, CrossoverKeepsTheElitesRoot) {
  const Value elite = deep_graph();
  for (int seed = 0; seed < 50; ++seed) {
    const Rng material = seeded(seed);
    const Value child = operators_.crossover(elite, graph(*material), material, {});
    EXPECT_EQ(graph_parts(child)[0].name, "arith_add");
  }
}

TEST_F(GeneticOperatorsTest, APointMutationChangesOneName) {
  const Value elite = deep_graph();
  for (int seed = 0; seed < 200; ++seed) {
    const Rng material = seeded(seed);
    const auto child =
        graph_parts(operators_.point_mutation(elite, replacements(*material), material, {}));
    const auto parent = graph_parts(elite);
    ASSERT_EQ(child.size(), parent.size());
    int differences = 0;
    for (std::size_t i = 0; i < child.size(); ++i) {
      EXPECT_EQ(child[i].type, parent[i].type);
      if (child[i].name != parent[i].name) ++differences;
    }
    EXPECT_LE(differences, 1);
  }
}

TEST_F(GeneticOperatorsTest, AHoistedGraphIsAPartOfTheElite) {
  std::set<std::string> hoisted;
  for (int seed = 0; seed < 50; ++seed) {
    hoisted.insert(expression_text(operators_.hoist_mutation(deep_graph(), seeded(seed), {})));
  }
  EXPECT_EQ(hoisted, (std::set<std::string>{"ts_mean(close, 5)", "arith_neg(volume)"}));
}

TEST_F(GeneticOperatorsTest, AnInsertedFunctionTakesAPartAsItsPanel) {
  const Value elite = parse_formula("cross_rank(close)", vocabulary_);
  const Value material = List{parse_formula("ts_mean(volume, 5) - open", vocabulary_)};
  std::set<std::string> children;
  for (int seed = 0; seed < 200; ++seed)
    children.insert(expression_text(operators_.insert_mutation(elite, material, seeded(seed), {})));
  EXPECT_EQ(children,
            (std::set<std::string>{"ts_mean(cross_rank(close), 5)", "cross_rank(ts_mean(close, 5))",
                                   "arith_sub(cross_rank(close), open)",
                                   "arith_sub(ts_mean(volume, 5), cross_rank(close))",
                                   "cross_rank(arith_sub(close, open))",
                                   "cross_rank(arith_sub(ts_mean(volume, 5), close))"}));
}

TEST_F(GeneticOperatorsTest, AConstantIsInsertedNowhere) {
  const Value elite = parse_formula("close * 2", vocabulary_);
  const Value material = List{parse_formula("cross_rank(close)", vocabulary_)};
  for (int seed = 0; seed < 100; ++seed) {
    const Value child = operators_.insert_mutation(elite, material, seeded(seed), {});
    EXPECT_EQ(expression_text(child).find("cross_rank(2"), std::string::npos);
  }
}

TEST_F(GeneticOperatorsTest, ALoneFeatureIsReplacedAsAWhole) {
  const Value lone = make_graph_node("close", kFeatureType, List());
  const Value child = operators_.crossover(lone, deep_graph(), seeded(4), {});
  EXPECT_NO_THROW(static_cast<void>(check_graph(child, vocabulary_)));
  EXPECT_TRUE(operators_.hoist_mutation(lone, seeded(4), {}) == lone);
}

TEST_F(GeneticOperatorsTest, PartsBeyondTheLimitsAreNotTaken) {
  GeneticOperators tight(vocabulary_, GraphLimits{3, 6});
  const Value elite = deep_graph();  // Depth 3, 6 nodes: only parts as small as their place fit.
  for (int seed = 0; seed < 100; ++seed) {
    const Rng material = seeded(seed);
    const GraphShape shape =
        check_graph(tight.crossover(elite, graph(*material), material, {}), vocabulary_);
    EXPECT_LE(shape.depth, 3);
    EXPECT_LE(shape.node_count, 6U);
    EXPECT_TRUE(tight.insert_mutation(elite, replacements(*material), material, {}) == elite)
        << "every function adds a node";
  }
}

TEST_F(GeneticOperatorsTest, WithoutMaterialOrGeneratorTheyStillGiveAGraph) {
  const Value elite = deep_graph();
  EXPECT_TRUE(operators_.subtree_mutation(elite, List(), seeded(1), {}) == elite);
  EXPECT_TRUE(operators_.insert_mutation(elite, List(), seeded(1), {}) == elite);
  const Value without_window = parse_formula("close + volume", vocabulary_);
  EXPECT_TRUE(operators_.point_mutation(without_window, List(), seeded(1), {}) == without_window);
  EXPECT_NO_THROW(
      static_cast<void>(check_graph(operators_.crossover(elite, elite, nullptr, {}), vocabulary_)));
}

TEST_F(GeneticOperatorsTest, ChildrenAreFinishedBeforeTheValidatorIsAsked) {
  GeneticOperators operators(vocabulary_, {options_.max_depth, options_.max_nodes},
                             {vocabulary_, {.simplifies = true}});
  const Value elite = parse_formula("arith_neg(ts_mean(close, 5))", vocabulary_);
  const Value mate = parse_formula("close - open", vocabulary_);
  std::set<std::string> asked;
  const Callable validator =
      genetic::make_callable([&asked](std::span<const Value> arguments, const Mapping&) {
        asked.insert(expression_text(arguments[0]));
        return Value(true);
      });
  std::set<std::string> children;
  for (int seed = 0; seed < 200; ++seed)
    children.insert(expression_text(operators.crossover(elite, mate, seeded(seed), validator)));
  EXPECT_EQ(children, asked);
  EXPECT_TRUE(children.contains("ts_mean(arith_sub(open, close), 5)"));
  EXPECT_FALSE(children.contains("arith_neg(ts_mean(arith_sub(close, open), 5))"));
}

}  // namespace
}  // namespace varnholt::embedded::test
