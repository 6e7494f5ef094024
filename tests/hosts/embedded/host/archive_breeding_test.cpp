// Fresh graphs that are bred from the archive. Method: an archive of graphs that can be told from
// random ones, and the draws of a known seed.
#include "hosts/embedded/host/archive_breeding.hpp"

#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "hosts/embedded/host/embedded_host.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;

class ArchiveBreedingTest : public ContextTest {
 protected:
  std::shared_ptr<genetic::RandomGenerator> seeded(int seed) {
    return generators_.seeded(Value(seed));
  }
  // Signals that are like none of the others.
  void fill(int count) {
    const auto generator = seeded(99);
    for (int i = 0; i < count; ++i) {
      Eigen::ArrayXd profile = Eigen::ArrayXd::Zero(kProfileParts);
      profile(i) = 1.0;
      parents_.push_back(random_graph(*generator, evaluator_.vocabulary(), options_));
      archive_.add(parents_.back(), 5.0, {1.0, profile}, CandidateSource::Random);
    }
  }
  std::vector<std::string> offered(int seed, int count) {
    const auto generator = seeded(seed);
    std::vector<std::string> texts;
    for (int i = 0; i < count; ++i) {
      const auto graph = breeding_.offspring(generator);
      texts.push_back(graph ? genetic::json_text(*graph) : std::string());
    }
    return texts;
  }

  genetic::TwisterGenerators generators_;
  RandomGraphOptions options_;
  SignalArchive archive_;
  std::vector<Value> parents_;
  GeneticOperators operators_{evaluator_.vocabulary(),
                              {options_.max_depth, options_.max_nodes, options_.max_window},
                              GraphMaking(evaluator_.vocabulary(), {.drops_sign = true})};
  MutationMaterial material_{evaluator_.vocabulary(), options_, &archive_};
  ArchiveBreeding breeding_{archive_, lineage_, operators_, material_};
};

TEST_F(ArchiveBreedingTest, OffersGraphsWithinTheLimitsThatAreNoneOfTheArchive) {
  fill(20);
  const auto generator = seeded(4);
  int seen = 0;
  for (int i = 0; i < 300; ++i) {
    const auto graph = breeding_.offspring(generator);
    if (!graph) continue;
    ++seen;
    EXPECT_NO_THROW(static_cast<void>(
        check_graph(*graph, evaluator_.vocabulary(),
                    {options_.max_depth, options_.max_nodes, options_.max_window})));
    EXPECT_FALSE(archive_.has_met(*graph));
    EXPECT_NE(read_graph_node(*graph, GraphPlace{}).name, "arith_neg");
  }
  EXPECT_GT(seen, 100);
}

TEST_F(ArchiveBreedingTest, TheSameDrawsGiveTheSameGraphs) {
  fill(20);
  SignalArchive copy = archive_;
  const std::vector<std::string> first = offered(5, 50);
  archive_ = copy;
  EXPECT_EQ(offered(5, 50), first);
}

TEST_F(ArchiveBreedingTest, TheLineageIsThatOfABredGraph) {
  fill(20);
  const auto generator = seeded(6);
  std::set<std::string> operators;
  for (int i = 0; i < 200; ++i) {
    const auto graph = breeding_.offspring(generator);
    if (!graph) continue;
    lineage_.note_batch(genetic::List{*graph});
    const GraphOrigin origin = lineage_.origin_of(*graph);
    EXPECT_EQ(origin.origin, Origin::Bred);
    EXPECT_EQ(origin.source, CandidateSource::Archive);
    ASSERT_EQ(origin.operators.size(), 1U);
    operators.insert(origin.operators[0]);
    EXPECT_GE(origin.parents.size(), 1U);
    EXPECT_LE(origin.parents.size(), origin.operators[0] == "crossover" ? 2U : 1U);
    lineage_.next_generation();
    EXPECT_EQ(lineage_.origin_of(*graph).origin, Origin::Unknown);
  }
  EXPECT_THAT(operators,
              ::testing::UnorderedElementsAre("crossover", "point_mutation", "insert_mutation",
                                              "subtree_mutation", "hoist_mutation"));
}

}  // namespace
}  // namespace varnholt::embedded::test
