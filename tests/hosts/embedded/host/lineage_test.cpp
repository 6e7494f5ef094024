// A candidate's origin is what made its structure since the generation began. Method: notes made by
// hand, and the library's own derivation of offspring over the observed operators.
#include "hosts/embedded/host/lineage.hpp"

#include <map>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/host/embedded_host.hpp"
#include "hosts/embedded/operators/genetic_operators.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/population/elite_derivation.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"
#include "tests/support/scripted_fresh.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::embedded {
namespace {

using genetic::Value;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string key_of(const Value& graph) {
  return sha256_hex(genetic::canonical_graph_string(graph));
}

TEST(Lineage, KnowsTheOffspringOfThisGenerationAlone) {
  Lineage lineage;
  EXPECT_FALSE(lineage.is_bred(ranked("close")));
  lineage.next_generation();
  lineage.note_offspring("crossover", ranked("close"), {ranked("volume"), ranked("high")});
  EXPECT_TRUE(lineage.is_bred(ranked("close")));
  EXPECT_FALSE(lineage.is_bred(ranked("returns")));
  const GraphOrigin origin = lineage.origin_of(ranked("close"));
  EXPECT_EQ(origin.origin, Origin::Bred);
  EXPECT_THAT(origin.operators, ElementsAre("crossover"));
  EXPECT_THAT(origin.parents, ElementsAre(key_of(ranked("volume")), key_of(ranked("high"))));
  lineage.next_generation();
  EXPECT_FALSE(lineage.is_bred(ranked("close")));
  EXPECT_EQ(lineage.origin_of(ranked("close")).origin, Origin::Unknown);
}

TEST(Lineage, SeesARootThatIsChangedAfterTheOperator) {
  Lineage lineage;
  Value child = ranked("close");
  lineage.note_offspring("point_mutation", child, {ranked("volume")});
  child.mapping().set(genetic::keys::kNode, "cross_zscore");
  EXPECT_TRUE(lineage.is_bred(child));
  EXPECT_FALSE(lineage.is_bred(ranked("close")));
}

// The search takes a copy of what a hoist gave, and puts the elite's root on that.
TEST(Lineage, SeesARootThatIsPutOnTheCopyOfAHoist) {
  Lineage lineage;
  const Value elite = make_graph_node("cross_zscore", kRotationType, genetic::List{ranked("high")});
  lineage.note_offspring("hoist_mutation", ranked("high"), {elite});
  const Value with_root =
      make_graph_node("cross_zscore", kRotationType, genetic::List{feature("high")});
  EXPECT_TRUE(lineage.is_bred(ranked("high")));
  EXPECT_TRUE(lineage.is_bred(with_root));
  EXPECT_THAT(lineage.origin_of(with_root).operators, ElementsAre("hoist_mutation"));
  EXPECT_FALSE(lineage.is_bred(elite));
}

TEST(Lineage, ACrossoverOfAMutatedChildIsItsSecondStep) {
  Lineage lineage;
  const Value child = ranked("close");
  lineage.note_offspring("point_mutation", child, {ranked("volume")});
  lineage.note_offspring("crossover", ranked("returns"), {child, ranked("high")});
  const GraphOrigin origin = lineage.origin_of(ranked("returns"));
  EXPECT_THAT(origin.operators, ElementsAre("point_mutation", "crossover"));
  EXPECT_THAT(origin.parents, ElementsAre(key_of(ranked("volume")), key_of(ranked("high"))));
  EXPECT_FALSE(lineage.is_bred(ranked("close"))) << "the first step is no candidate";
}

TEST(Lineage, ACrossoverOfACopyOfAHoistIsItsSecondStep) {
  Lineage lineage;
  const Value elite = make_graph_node("cross_zscore", kRotationType, genetic::List{ranked("high")});
  lineage.note_offspring("hoist_mutation", ranked("high"), {elite});
  Value copy = genetic::deep_copy(ranked("high"));
  copy.mapping().set(genetic::keys::kNode, "cross_zscore");
  lineage.note_offspring("crossover", ranked("returns"), {copy, ranked("low")});
  const GraphOrigin origin = lineage.origin_of(ranked("returns"));
  EXPECT_THAT(origin.operators, ElementsAre("hoist_mutation", "crossover"));
  EXPECT_THAT(origin.parents, ElementsAre(key_of(elite), key_of(ranked("low"))));
}

TEST(Lineage, ACrossoverOfAnEqualGraphIsABreedingOfItsOwn) {
  Lineage lineage;
  const Value elite = ranked("close");
  // Nothing fitted, and the operators gave copies of the elite.
  lineage.note_offspring("point_mutation", genetic::deep_copy(elite), {elite});
  lineage.note_offspring("crossover", ranked("returns"), {elite, ranked("high")});
  EXPECT_THAT(lineage.origin_of(ranked("returns")).operators, ElementsAre("crossover"));
  lineage.next_generation();
  lineage.note_offspring("hoist_mutation", genetic::deep_copy(elite), {elite});
  lineage.note_offspring("crossover", ranked("returns"), {elite, ranked("high")});
  EXPECT_THAT(lineage.origin_of(ranked("returns")).operators, ElementsAre("crossover"));
  EXPECT_TRUE(lineage.is_bred(elite));
  // A candidate that was asked about is made for good; what is bred of it later is another.
  lineage.next_generation();
  const Value candidate = ranked("close");
  lineage.note_offspring("point_mutation", candidate, {ranked("volume")});
  EXPECT_TRUE(lineage.is_bred(candidate));
  lineage.note_offspring("crossover", ranked("returns"), {candidate, ranked("high")});
  EXPECT_THAT(lineage.origin_of(ranked("returns")).parents,
              ElementsAre(key_of(candidate), key_of(ranked("high"))));
  EXPECT_TRUE(lineage.is_bred(candidate));
}

TEST(Lineage, TheFirstOfTwoBreedingsCounts) {
  Lineage lineage;
  lineage.note_offspring("point_mutation", ranked("close"), {ranked("high")});
  lineage.note_offspring("crossover", ranked("close"), {ranked("low"), ranked("low")});
  EXPECT_THAT(lineage.origin_of(ranked("close")).operators, ElementsAre("point_mutation"));
  lineage.note_offspring("crossover", ranked("volume"), {ranked("low"), ranked("low")});
  EXPECT_THAT(lineage.origin_of(ranked("volume")).parents, ElementsAre(key_of(ranked("low"))))
      << "a graph crossed with itself has one parent; and a note after a question is seen";
}

TEST(Lineage, TellsSeedsFreshGraphsAndOthersApart) {
  Lineage lineage;
  lineage.note_seed(ranked("close"));
  lineage.note_fresh(ranked("close"));
  lineage.note_fresh(ranked("high"));
  EXPECT_EQ(lineage.origin_of(ranked("close")).origin, Origin::Seed);
  EXPECT_EQ(lineage.origin_of(ranked("high")).origin, Origin::Fresh);
  EXPECT_EQ(lineage.origin_of(ranked("low")).origin, Origin::Unknown);
  lineage.note_fresh(ranked("low"));
  EXPECT_EQ(lineage.origin_of(ranked("low")).origin, Origin::Fresh);
  lineage.note_offspring("hoist_mutation", ranked("close"), {ranked("volume")});
  EXPECT_EQ(lineage.origin_of(ranked("close")).origin, Origin::Bred);
  lineage.next_generation();
  EXPECT_EQ(lineage.origin_of(ranked("close")).origin, Origin::Seed) << "for the whole run";
  EXPECT_EQ(lineage.origin_of(ranked("high")).origin, Origin::Unknown);
  EXPECT_THAT(lineage.origin_of(ranked("close")).parents, IsEmpty());
}

TEST(Lineage, KnowsTheRepairsOfThisGenerationAlone) {
  Lineage lineage;
  const RepairNote reversal{"reverse", "sharpe_min", "the opposite", 2};
  lineage.note_offspring("crossover", ranked("close"), {ranked("high"), ranked("low")});
  lineage.note_repair(ranked("close"), {ranked("volume"), ranked("volume")}, reversal);
  lineage.note_repair(ranked("close"), {ranked("returns")}, {"rank", "max_weight_max", "ranks", 1});
  EXPECT_TRUE(lineage.has_new_repairs());
  const GraphOrigin origin = lineage.origin_of(ranked("close"));
  EXPECT_EQ(origin.origin, Origin::Repaired) << "the bred one was evaluated before the rounds";
  EXPECT_THAT(origin.parents, ElementsAre(key_of(ranked("volume"))));
  EXPECT_THAT(origin.operators, IsEmpty());
  ASSERT_TRUE(origin.repair);
  EXPECT_EQ(origin.repair->plan, "reverse") << "the first of two plans counts";
  EXPECT_EQ(origin.repair->depth, 2);
  EXPECT_FALSE(lineage.has_new_repairs());
  lineage.note_repair(ranked("high"), {ranked("volume")}, reversal);
  EXPECT_EQ(lineage.origin_of(ranked("volume")).origin, Origin::Unknown);
  EXPECT_TRUE(lineage.has_new_repairs()) << "only a question about a repair makes them old";
  lineage.next_generation();
  EXPECT_EQ(lineage.origin_of(ranked("close")).origin, Origin::Unknown);
  EXPECT_FALSE(lineage.has_new_repairs());
}

TEST(LineageJson, IsWhatTheStoreKeeps) {
  const RepairNote note{"reverse", "sharpe_min", "the opposite", 2};
  EXPECT_EQ(lineage_json({Origin::Repaired, {}, {"ab"}, note}),
            R"({"depth":2,"explanation":"the opposite","origin":"repaired","parents":["ab"],)"
            R"("plan":"reverse","reason":"sharpe_min"})");
  EXPECT_EQ(
      lineage_json({Origin::Bred, {"hoist_mutation", "crossover"}, {"ab", "cd"}}),
      R"({"operators":["hoist_mutation","crossover"],"origin":"bred","parents":["ab","cd"]})");
  EXPECT_EQ(lineage_json({Origin::Seed, {}, {}}), R"({"origin":"seed"})");
  EXPECT_EQ(lineage_json({Origin::Fresh, {}, {}}), R"({"origin":"fresh"})");
  EXPECT_EQ(lineage_json({}), R"({"origin":"unknown"})");
}

TEST(ObservedOperators, PassEveryOperatorOnAndNoteItsChild) {
  GeneticOperators operators(GraphLimits{});
  const Value elite = ranked("close");
  const Value mate = ranked("returns");
  const genetic::List replacements{ranked("returns")};
  const auto noted = [&](const char* name, std::size_t parents, auto apply) {
    Lineage lineage;
    ObservedOperators observed(operators, lineage);
    const Value child = apply(observed);
    EXPECT_TRUE(child == apply(operators));
    const GraphOrigin origin = lineage.origin_of(child);
    EXPECT_THAT(origin.operators, ElementsAre(name));
    ASSERT_EQ(origin.parents.size(), parents);
    EXPECT_EQ(origin.parents.front(), key_of(elite));
    EXPECT_EQ(origin.parents.back(), key_of(parents == 2 ? mate : elite));
  };
  noted("crossover", 2,
        [&](genetic::GeneticOps& ops) { return ops.crossover(elite, mate, nullptr, {}); });
  noted("point_mutation", 1, [&](genetic::GeneticOps& ops) {
    return ops.point_mutation(elite, replacements, nullptr, {});
  });
  noted("subtree_mutation", 1, [&](genetic::GeneticOps& ops) {
    return ops.subtree_mutation(elite, replacements, nullptr, {});
  });
  noted("hoist_mutation", 1,
        [&](genetic::GeneticOps& ops) { return ops.hoist_mutation(elite, nullptr, {}); });
}

TEST(ObservedRandomGraphsTest, PassTheWalkOnAndNoteItsGraphs) {
  genetic::test::ScriptedHost host;
  const Vocabulary vocabulary = make_vocabulary(small_universe());
  EmbeddedRandomGraphs source(vocabulary, {});
  TwisterGenerators generators;
  Lineage lineage;
  ObservedRandomGraphs observed(source, lineage);
  const auto walk = observed.random_weighted_graphs(host.context, generators.seeded(3),
                                                    genetic::Mapping(), "genetic");
  const auto plain = source.random_weighted_graphs(host.context, generators.seeded(3),
                                                   genetic::Mapping(), "genetic");
  for (int i = 0; i < 20; ++i) {
    const std::optional<Value> graph = walk->next();
    ASSERT_TRUE(graph.has_value());
    EXPECT_TRUE(*graph == *plain->next());
    EXPECT_EQ(lineage.origin_of(*graph).origin, Origin::Fresh);
  }
}

// Whatever the library does with what an operator gives, its offspring is known with its parents.
TEST(Lineage, KnowsEveryOffspringThatTheSearchDerives) {
  RealSystemCalls system;
  const Vocabulary vocabulary = make_vocabulary(small_universe());
  HostSettings settings;
  settings.log = [](LogLevel, std::string_view) {};
  settings.on_tick = [](std::int64_t) {};
  EmbeddedHost host(system, vocabulary, settings);
  genetic::test::ScriptedHost scripted;
  genetic::test::ScriptedFresh fresh(scripted.log);
  const genetic::LoadedConstants constants(host.search_settings(), host.process_evaluation());
  const genetic::SearchEnvironment environment{host, constants, fresh};
  const auto rng = TwisterGenerators().seeded(11);
  const auto random_graphs = [&](std::int64_t count) {
    genetic::List graphs;
    for (std::int64_t i = 0; i < count; ++i)
      graphs.append(random_graph(*rng, vocabulary, settings.graphs));
    return Value(graphs);
  };
  fresh.on_draw = random_graphs;
  genetic::DerivationSettings derivation;
  derivation.operator_rates = genetic::Mapping{{"crossover", 0.25},
                                               {"point_mutation", 0.25},
                                               {"subtree_mutation", 0.25},
                                               {"hoist_mutation", 0.25}};
  derivation.elite_fraction = 0.99;

  std::map<std::string, int> steps;
  for (int round = 0; round < 400; ++round) {
    SCOPED_TRACE(round);
    // One parent, which is its own mate, or several.
    const genetic::List graphs = random_graphs(round % 2 == 0 ? 1 : 4).list();
    genetic::List pool;
    std::set<std::string> keys;
    genetic::ListCursor cursor(graphs);
    while (const std::optional<Value> graph = cursor.next()) {
      pool.append(
          genetic::Mapping{{genetic::keys::kGraph, *graph}, {genetic::keys::kQualityScore, 1.0}});
      keys.insert(key_of(*graph));
    }
    host.lineage().next_generation();
    const Value child =
        genetic::elite_derived_graph(environment, scripted.context, pool, rng, derivation);
    // The search hands copies on.
    const GraphOrigin origin = host.lineage().origin_of(genetic::deep_copy(child));
    ASSERT_EQ(origin.origin, Origin::Bred);
    std::string name;
    for (const std::string& operation : origin.operators)
      name += operation + ' ';
    ++steps[name];
    ASSERT_FALSE(origin.parents.empty());
    for (const std::string& parent : origin.parents)
      EXPECT_TRUE(keys.contains(parent)) << name;
  }
  for (const char* expected :
       {"crossover ", "point_mutation ", "subtree_mutation ", "hoist_mutation ",
        "point_mutation crossover ", "subtree_mutation crossover ", "hoist_mutation crossover "}) {
    EXPECT_GT(steps[expected], 5) << expected;
  }
  EXPECT_EQ(steps.size(), 7U);
}

}  // namespace
}  // namespace varnholt::embedded
