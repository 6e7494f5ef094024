// A candidate's origin is what the search told of the graph that was evaluated.
// Method: what the search tells, told by hand.
#include "hosts/embedded/host/lineage.hpp"

#include <array>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/system/digest.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string key_of(const Value& graph) {
  return sha256_hex(genetic::canonical_graph_string(graph));
}

constexpr std::array kCrossing = {genetic::key<"crossover">()};
constexpr std::array kMutation = {genetic::key<"point_mutation">()};
constexpr std::array kBoth = {genetic::key<"hoist_mutation">(), genetic::key<"crossover">()};

TEST(Lineage, KnowsTheOffspringOfThisGenerationAlone) {
  Lineage lineage;
  const Value child = ranked("close");
  lineage.note_offspring(child, kCrossing, ranked("volume"), ranked("high"));
  EXPECT_EQ(lineage.origin_of(child).origin, Origin::Unknown) << "it may not come into the batch";
  lineage.note_batch(genetic::List{child});
  // A result comes back from another process, with a copy of its graph.
  EXPECT_NE(lineage.origin_of(ranked("returns")).origin, Origin::Bred);
  const GraphOrigin origin = lineage.origin_of(ranked("close"));
  EXPECT_EQ(origin.origin, Origin::Bred);
  EXPECT_THAT(origin.operators, ElementsAre("crossover"));
  EXPECT_THAT(origin.parents, ElementsAre(key_of(ranked("volume")), key_of(ranked("high"))));
  lineage.next_generation();
  EXPECT_EQ(lineage.origin_of(ranked("close")).origin, Origin::Unknown);
}

TEST(Lineage, ParentsAreThoseWhoHadAPartEachOnce) {
  Lineage lineage;
  const Value mutated = ranked("close");
  const Value both = ranked("returns");
  const Value with_itself = ranked("low");
  lineage.note_offspring(mutated, kMutation, ranked("volume"), ranked("high"));
  lineage.note_offspring(both, kBoth, ranked("volume"), ranked("high"));
  lineage.note_offspring(with_itself, kCrossing, ranked("high"), ranked("high"));
  lineage.note_batch(genetic::List{mutated, both, with_itself});
  EXPECT_THAT(lineage.origin_of(mutated).operators, ElementsAre("point_mutation"));
  EXPECT_THAT(lineage.origin_of(mutated).parents, ElementsAre(key_of(ranked("volume"))));
  EXPECT_THAT(lineage.origin_of(both).operators, ElementsAre("hoist_mutation", "crossover"));
  EXPECT_THAT(lineage.origin_of(both).parents,
              ElementsAre(key_of(ranked("volume")), key_of(ranked("high"))));
  EXPECT_THAT(lineage.origin_of(with_itself).parents, ElementsAre(key_of(ranked("high"))));
}

TEST(Lineage, TellsSeedsOffspringAndFreshGraphsApartByTheVeryGraphs) {
  Lineage lineage;
  const Value seed = ranked("close");
  const Value fresh = ranked("high");
  lineage.note_seed(seed);
  // An equal one was bred, and another graph of its structure is in the batch.
  lineage.note_offspring(ranked("high"), kMutation, ranked("volume"), ranked("low"));
  lineage.note_batch(genetic::List{seed, fresh});
  EXPECT_EQ(lineage.origin_of(ranked("close")).origin, Origin::Seed);
  EXPECT_EQ(lineage.origin_of(ranked("high")).origin, Origin::Fresh);
  EXPECT_THAT(lineage.origin_of(ranked("close")).parents, IsEmpty());
  EXPECT_EQ(lineage.origin_of(ranked("low")).origin, Origin::Unknown) << "it is not in the batch";
}

TEST(Lineage, KnowsTheRepairsOfThisGenerationAlone) {
  Lineage lineage;
  const RepairNote reversal{"reverse", "sharpe_min", "the opposite", 2};
  const Value bred = ranked("close");
  lineage.note_offspring(bred, kCrossing, ranked("high"), ranked("low"));
  lineage.note_batch(genetic::List{bred});
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
  GraphOrigin known{Origin::Known, {}, {}};
  known.formula = "momentum";
  EXPECT_EQ(lineage_json(known), R"({"formula":"momentum","origin":"known"})");
}

}  // namespace
}  // namespace varnholt::embedded::test
