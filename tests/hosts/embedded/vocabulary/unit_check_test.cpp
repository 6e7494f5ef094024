// The units of graphs: what each function makes of those of its panels, where they are mixed, and
// that a search with units makes nothing that mixes them.
// Method: formulas with their units; the seeded counts that the documentation tells.
#include "hosts/embedded/vocabulary/unit_check.hpp"

#include <string>

#include <gtest/gtest.h>

#include "hosts/embedded/operators/genetic_operators.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/graph_making.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::List;
using genetic::Value;

class UnitCheck : public testing::Test {
 protected:
  [[nodiscard]] UnitsOfGraph units(const std::string& formula) const {
    return units_of_graph(parse_formula(formula, vocabulary_), vocabulary_);
  }

  Vocabulary vocabulary_ = rich_vocabulary();
};

TEST_F(UnitCheck, EveryFunctionHasItsUnit) {
  const std::pair<const char*, const char*> cases[] = {
      {"close", "price"},
      {"volume", "volume"},
      {"returns", "return"},
      {"range", "return"},
      {"cap", "money"},
      {"dollar_volume", "money"},
      {"close * volume", "money"},
      {"close * volume - cap", "money"},
      {"close / open", "pure number"},
      {"close / open - 1", "pure number"},
      {"delta(close, 5) / delay(close, 5)", "pure number"},
      {"rank(volume) * returns", "return"},
      {"2 * close + 1", "price"},
      {"1 / close * close", "pure number"},
      {"close ^ 2 / close", "price"},
      {"close > 10", "pure number"},
      {"returns > 0.01 ? close : open", "price"},
      {"ts_std(returns, 5)", "return"},
      {"ts_argmax(close, 5)", "pure number"},
      {"product(close, 2) / close", "price"},
      {"covariance(returns, volume, 5)", "volume"},
      {"slope(close, volume, 5) * volume", "price"},
      {"residual(close, volume, 5)", "price"},
      {"correlation(close, volume, 5)", "pure number"},
      {"group_demean(volume, sector)", "volume"},
      {"zscore(close) + rank(volume)", "pure number"},
      {"arith_clip(close, 1, open)", "price"},
      {"arith_log(volume) + tanh(close)", "pure number"},
  };
  for (const auto& [formula, unit] : cases) {
    SCOPED_TRACE(formula);
    EXPECT_EQ(unit_name(units(formula).unit), unit);
    EXPECT_EQ(units(formula).mixed_calls, 0U);
  }
}

TEST_F(UnitCheck, TellsWhatIsMixed) {
  EXPECT_EQ(units("close + returns").first_mixture, "arith_add puts a price and a return together");
  EXPECT_EQ(units("dollar_volume > volume").first_mixture,
            "comparison_gt puts money and a volume together");
  EXPECT_EQ(units("rank(close * close - volume)").first_mixture,
            "arith_sub puts a unit of its own and a volume together");
  EXPECT_EQ(units("max(close - returns, min(rank(close), volume))").mixed_calls, 3U);
  EXPECT_EQ(units("close > open ? volume : close").mixed_calls, 1U);
  EXPECT_EQ(units("arith_clip(close, 1, volume)").mixed_calls, 1U);
  EXPECT_EQ(units("returns + rank(close)").mixed_calls, 1U);
}

Vocabulary usual_vocabulary() {
  return make_vocabulary(make_synthetic_universe({.instruments = 4, .days = 20, .factors = 1}));
}

int mixed_among_fresh(const Vocabulary& vocabulary, const RandomGraphOptions& options, int graphs) {
  genetic::TwisterGenerator generator{genetic::MersenneTwister(1)};
  int mixed = 0;
  for (int i = 0; i < graphs; ++i) {
    const Value graph = random_graph(generator, vocabulary, options);
    static_cast<void>(check_graph(graph, vocabulary, {options.max_depth, options.max_nodes}));
    mixed += units_of_graph(graph, vocabulary).mixed_calls > 0 ? 1 : 0;
  }
  return mixed;
}

// The figures of docs/vocabulary.md.
TEST_F(UnitCheck, FreshGraphsMixNoUnits) {
  const Vocabulary usual = usual_vocabulary();
  EXPECT_EQ(mixed_among_fresh(usual, {}, 10'000), 2928);
  EXPECT_EQ(mixed_among_fresh(usual, {.keeps_units = true}, 10'000), 0);
  EXPECT_EQ(mixed_among_fresh(vocabulary_, {.constant_share = 0.2, .keeps_units = true}, 1000), 0);
}

TEST_F(UnitCheck, FreshGraphsOfAVocabularyThatLeavesNoChoiceMixAndEnd) {
  Vocabulary few = usual_vocabulary();
  std::erase_if(few.features, [](const FeatureEntry& entry) {
    return entry.name != "close" && entry.name != "volume";
  });
  // A price squared goes with nothing that volumes are made of.
  std::erase_if(few.functions, [](const FunctionEntry& entry) {
    return entry.name != "arith_mul" && entry.name != "arith_add";
  });
  EXPECT_LT(mixed_among_fresh(few, {.max_depth = 3, .keeps_units = true}, 300), 30);
  few.formulas.push_back({"mine", parse_formula("close + volume", few), 100.0});
  EXPECT_GT(mixed_among_fresh(few, {.keeps_units = true}, 100), 50)
      << "the user's own formulas are what they are";
}

int mixed_among_children(const Vocabulary& vocabulary, bool keeps_units) {
  GeneticOperators operators(vocabulary, {5, 25},
                             {vocabulary, {.simplifies = true, .keeps_units = keeps_units}});
  genetic::TwisterGenerators generators;
  const RandomGraphOptions options{.keeps_units = true};
  int mixed = 0;
  for (int seed = 0; seed < 1500; ++seed) {
    const auto rng = generators.seeded(seed);
    const Value elite = random_graph(*rng, vocabulary, options);
    const Value mate = random_graph(*rng, vocabulary, options);
    List others;
    for (int i = 0; i < 3; ++i)
      others.append(random_graph(*rng, vocabulary, options));
    for (const Value& child : {operators.crossover(elite, mate, rng, {}),
                               operators.point_mutation(elite, others, rng, {}),
                               operators.subtree_mutation(elite, others, rng, {})}) {
      mixed += units_of_graph(child, vocabulary).mixed_calls > 0 ? 1 : 0;
    }
  }
  return mixed;
}

TEST_F(UnitCheck, ChildrenMixNoUnits) {
  const Vocabulary usual = usual_vocabulary();
  EXPECT_GT(mixed_among_children(usual, false), 400);
  EXPECT_EQ(mixed_among_children(usual, true), 0);
}

TEST_F(UnitCheck, WhatTheUserMixedMayStay) {
  const GraphMaking making(vocabulary_, {.keeps_units = true});
  const auto parsed = [this](const char* formula) { return parse_formula(formula, vocabulary_); };
  const Value own = parsed("close + returns");
  EXPECT_TRUE(making.fits_units(parsed("rank(close + returns)"), own));
  EXPECT_TRUE(making.fits_units(parsed("open + volume"), own));
  EXPECT_FALSE(making.fits_units(parsed("(close + returns) * (open + volume)"), own));
  EXPECT_FALSE(making.fits_units(own, parsed("close")));
  EXPECT_TRUE(making.fits_units(parsed("close"), own));
  EXPECT_TRUE(GraphMaking(vocabulary_, {}).fits_units(own, parsed("close")));
}

}  // namespace
}  // namespace varnholt::embedded::test
