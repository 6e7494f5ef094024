// The archive keeps the best of each kind. Method: behaviours of which the likeness is known, and
// generators whose draws are.
#include "hosts/embedded/archive/signal_archive.hpp"

#include <cmath>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/host/twister_generators.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "tests/hosts/embedded/graph_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;
using genetic::Value;

Value graph_of(int number) {
  return feature("f" + std::to_string(number));
}

// Of one direction alone: unlike all others. Halfway to another it is like both (0.71).
Behaviour behaviour(double sharpe, int direction) {
  ArrayXd profile = ArrayXd::Zero(kProfileParts);
  profile(direction) = 1.0;
  return {sharpe, profile};
}
Behaviour between(double sharpe, int left, int right) {
  ArrayXd profile = ArrayXd::Zero(kProfileParts);
  profile(left) = profile(right) = std::sqrt(0.5);
  return {sharpe, profile};
}

class SignalArchiveTest : public ::testing::Test {
 protected:
  void add(int number, const Behaviour& behaviour,
           CandidateSource source = CandidateSource::Random) {
    archive_.add(graph_of(number), 1.0, behaviour, source);
  }
  // The graphs that parents are drawn of in many draws.
  std::set<std::string> drawn() {
    std::set<std::string> found;
    for (int i = 0; i < 2000; ++i)
      found.insert(genetic::json_text(archive_.parent(*generator_)));
    return found;
  }
  [[nodiscard]] static std::string text(int number) { return genetic::json_text(graph_of(number)); }

  SignalArchive archive_;
  genetic::TwisterGenerators generators_;
  std::shared_ptr<genetic::RandomGenerator> generator_ = generators_.seeded(Value(7));
};

TEST_F(SignalArchiveTest, OfLikeSignalsTheBetterStays) {
  add(1, behaviour(1.0, 0));
  add(2, behaviour(0.5, 0));
  EXPECT_EQ(archive_.size(), 1U);
  EXPECT_EQ(drawn(), std::set{text(1)});
  add(3, behaviour(1.5, 0));
  EXPECT_EQ(drawn(), std::set{text(3)});
  add(4, behaviour(1.5, 0));
  EXPECT_EQ(drawn(), std::set{text(3)}) << "of equal ones the earlier";
}

TEST_F(SignalArchiveTest, OneThatIsBetterThanAllThatItIsLikeTakesTheirPlaces) {
  add(1, behaviour(1.0, 0));
  add(2, behaviour(1.2, 1));
  add(3, between(1.1, 0, 1));
  EXPECT_EQ(archive_.size(), 2U) << "better than one of the two only";
  add(4, between(1.3, 0, 1));
  EXPECT_EQ(drawn(), std::set{text(4)});
}

TEST_F(SignalArchiveTest, TheOppositeIsAnotherKind) {
  add(1, behaviour(1.0, 0));
  Behaviour opposite = behaviour(0.5, 0);
  opposite.profile = -opposite.profile;
  add(2, opposite);
  EXPECT_EQ(archive_.size(), 2U);
}

TEST_F(SignalArchiveTest, NodesHaveTheirPrice) {
  // 17 nodes less are worth 0.17.
  archive_.add(graph_of(1), 20.0, behaviour(1.0, 0), CandidateSource::Random);
  archive_.add(graph_of(2), 3.0, behaviour(0.82, 0), CandidateSource::Random);
  EXPECT_EQ(drawn(), std::set{text(1)});
  archive_.add(graph_of(3), 3.0, behaviour(0.84, 0), CandidateSource::Random);
  EXPECT_EQ(drawn(), std::set{text(3)});
}

TEST_F(SignalArchiveTest, AParentIsMostlyOneOfTheBetterAndNotForEver) {
  for (int i = 0; i < 10; ++i)
    add(i, behaviour(1.0 + 0.01 * i, i));
  EXPECT_EQ(drawn().size(), 10U) << "who was chosen often gives way";
  SignalArchive one_good;
  for (int i = 0; i < 10; ++i)
    one_good.add(graph_of(i), 1.0, behaviour(i == 3 ? 100.0 : 0.0, i), CandidateSource::Random);
  int chosen = 0;
  for (int i = 0; i < 1000; ++i)
    chosen += genetic::json_text(one_good.parent(*generator_)) == text(3) ? 1 : 0;
  // It is among three of ten draws with 1 - 0.9^3.
  EXPECT_NEAR(chosen, 271, 60);
}

TEST_F(SignalArchiveTest, WhenItIsFullTheWorstGoes) {
  // More kinds than directions: pairs of them are unlike, too, below the likeness that counts.
  int number = 0;
  for (int left = 0; left < kProfileParts && archive_.size() < SignalArchive::kCapacity; ++left) {
    for (int right = left + 1; right < left + 4 && right < kProfileParts; ++right) {
      ++number;
      add(number, between(1.0 + number, left, right));
    }
  }
  ASSERT_EQ(archive_.size(), SignalArchive::kCapacity);
  add(9000, between(0.5, 0, 40));
  EXPECT_EQ(archive_.size(), SignalArchive::kCapacity);
  EXPECT_FALSE(drawn().contains(text(9000)));
  add(9001, between(5000.0, 0, 41));
  EXPECT_EQ(archive_.size(), SignalArchive::kCapacity);
  EXPECT_TRUE(drawn().contains(text(9001)));
}

TEST_F(SignalArchiveTest, WhatIsOldGivesWay) {
  add(0, behaviour(1.0, 0));
  // What comes to nothing ages the others all the same.
  for (int i = 0; i < 20000; ++i)
    archive_.add_repeat(graph_of(1), CandidateSource::Random);
  add(2, behaviour(0.0, 1));
  // The old one is behind by 1.0 now, which its score makes up for; a few children more decide.
  std::map<std::string, int> chosen;
  for (int i = 0; i < 200; ++i)
    ++chosen[genetic::json_text(archive_.parent(*generator_))];
  EXPECT_GT(chosen[text(2)], 100);
}

TEST_F(SignalArchiveTest, WhatAddsToThePoolComesFirst) {
  add(0, behaviour(1.0, 0));
  add(1, behaviour(0.8, 1));
  const auto times_chosen = [this](int number) {
    SignalArchive copy = archive_;  // Each count begins without children.
    int times = 0;
    for (int i = 0; i < 8; ++i)
      times += genetic::json_text(copy.parent(*generator_)) == text(number) ? 1 : 0;
    return times;
  };
  EXPECT_GT(times_chosen(0), 4);
  archive_.set_pool({behaviour(1.0, 0)});
  EXPECT_GT(times_chosen(1), 4) << "a half of the other is in the pool";
  archive_.set_pool({behaviour(-1.0, 0)});
  EXPECT_GT(times_chosen(0), 4) << "what loses tells nothing of what earns";
  archive_.set_pool({});
  EXPECT_GT(times_chosen(0), 4);
}

TEST_F(SignalArchiveTest, EachSourceIsCountedByWhatGotIn) {
  const double before = archive_.shares().bred();
  for (int i = 0; i < 20; ++i)
    add(i, behaviour(1.0, i), CandidateSource::Archive);
  const double entered = archive_.shares().bred();
  EXPECT_GT(entered, before);
  for (int i = 0; i < 20; ++i)
    add(100 + i, behaviour(0.5, i), CandidateSource::Archive);
  EXPECT_LT(archive_.shares().bred(), entered) << "what stays outside counts against its source";
}

TEST_F(SignalArchiveTest, ARepeatCountsAgainstItsSourceAndIsMet) {
  const double before = archive_.shares().bred();
  archive_.add_repeat(graph_of(1), CandidateSource::Archive);
  EXPECT_LT(archive_.shares().bred(), before);
  EXPECT_TRUE(archive_.has_met(graph_of(1)));
  EXPECT_EQ(archive_.size(), 0U);
}

TEST_F(SignalArchiveTest, AnyMemberLendsItsParts) {
  for (int i = 0; i < 10; ++i)
    add(i, behaviour(1.0 + i, i));
  std::map<std::string, int> lent;
  for (int i = 0; i < 2000; ++i)
    ++lent[genetic::json_text(archive_.lender(*generator_))];
  ASSERT_EQ(lent.size(), 10U);
  for (const auto& [graph, count] : lent)
    EXPECT_NEAR(count, 200, 60) << graph;
}

TEST_F(SignalArchiveTest, KnowsWhatItHasMetAlsoIfItDidNotGetIn) {
  add(1, behaviour(1.0, 0));
  add(2, behaviour(0.5, 0));
  EXPECT_TRUE(archive_.has_met(graph_of(1)));
  EXPECT_TRUE(archive_.has_met(graph_of(2)));
  EXPECT_FALSE(archive_.has_met(graph_of(3)));
}

}  // namespace
}  // namespace varnholt::embedded::test
