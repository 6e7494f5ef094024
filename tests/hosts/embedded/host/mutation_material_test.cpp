// What lends its parts to a mutation: half of it the archive's. Method: an archive of graphs that
// are told from random ones by their text.
#include "hosts/embedded/host/mutation_material.hpp"

#include <set>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/host/twister_generators.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;

class MutationMaterialTest : public ContextTest {
 protected:
  void fill(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      Eigen::ArrayXd profile = Eigen::ArrayXd::Zero(kProfileParts);
      profile(static_cast<Eigen::Index>(i)) = 1.0;
      const Value graph = feature(("of the archive " + std::to_string(i)).c_str());
      archived_.insert(genetic::json_text(graph));
      archive_.add(graph, 1.0, {1.0, profile}, CandidateSource::Random);
    }
  }
  // Of so many graphs, how many are the archive's.
  int lent(const MutationMaterial& material, int draws) {
    const auto generator = generators_.seeded(Value(3));
    int count = 0;
    for (int i = 0; i < draws; ++i) {
      const genetic::List graphs = material.draw(*generator);
      EXPECT_EQ(graphs.size(), static_cast<std::size_t>(MutationMaterial::kGraphs));
      for (std::size_t at = 0; at < graphs.size(); ++at)
        count += archived_.contains(genetic::json_text(graphs.at(at))) ? 1 : 0;
    }
    return count;
  }

  genetic::TwisterGenerators generators_;
  SignalArchive archive_;
  std::set<std::string> archived_;
  MutationMaterial material_{evaluator_.vocabulary(), {}, &archive_};
};

TEST_F(MutationMaterialTest, HalfIsTheArchivesOnceItHasParents) {
  fill(SignalArchive::kLeastParents - 1);
  EXPECT_EQ(lent(material_, 100), 0);
  fill(20);
  EXPECT_NEAR(lent(material_, 400), 600, 70);
}

TEST_F(MutationMaterialTest, WithoutAnArchiveAllIsRandom) {
  fill(20);
  EXPECT_EQ(lent(MutationMaterial(evaluator_.vocabulary(), {}, nullptr), 100), 0);
}

}  // namespace
}  // namespace varnholt::embedded::test
