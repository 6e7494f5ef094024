// The shares of fresh graphs: the known formulas, the archive's offspring, the simple forms and
// chance. Method: an archive that is filled by hand, formulas that were in a batch or not, and many
// draws, whose lineage and structure tell where each came from.
#include "hosts/embedded/host/fresh_sources.hpp"

#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/embedded/host/simple_forms.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;

class FreshSourcesTest : public ContextTest {
 protected:
  // Signals that are like none of the others.
  void fill(int count, CandidateSource source = CandidateSource::Random) {
    const auto generator = seeded(99);
    for (int i = 0; i < count; ++i) {
      Eigen::ArrayXd profile = Eigen::ArrayXd::Zero(kProfileParts);
      profile(i) = 1.0;
      archive_.add(random_graph(*generator, evaluator_.vocabulary(), options_), 5.0, {1.0, profile},
                   source);
    }
  }
  std::shared_ptr<genetic::RandomGenerator> seeded(int seed) {
    return generators_.seeded(Value(seed));
  }
  FreshSources sources(const FreshSettings& settings) {
    return {archive_, lineage_, evaluator_.vocabulary(), options_, making_, settings};
  }
  // Each known formula has been in a batch.
  void try_all_formulas() {
    const GraphLimits limits{options_.max_depth, options_.max_nodes, options_.max_window};
    genetic::List batch;
    for (const KnownGraph& known : known_graphs(evaluator_.vocabulary(), limits, making_)) {
      lineage_.note_formula(known.graph, known.name);
      batch.append(known.graph);
    }
    lineage_.note_batch(batch);
    lineage_.next_generation();
  }
  std::set<std::string> simple_texts() {
    std::set<std::string> texts;
    const GraphLimits limits{options_.max_depth, options_.max_nodes, options_.max_window};
    for (const Value& graph : simple_forms(evaluator_.vocabulary(), limits, making_))
      texts.insert(genetic::json_text(graph));
    return texts;
  }
  struct Counts {
    int known = 0;
    int bred = 0;
    int simple = 0;
    int random = 0;
  };
  static constexpr int kDraws = 600;
  Counts counted(const FreshSettings& settings) {
    FreshSources of = sources(settings);
    const std::set<std::string> simple = simple_texts();
    const auto generator = seeded(3);
    Counts counts;
    for (int i = 0; i < kDraws; ++i) {
      const auto graph = of.next(generator);
      if (!graph) {
        ++counts.random;
        continue;
      }
      lineage_.note_batch(genetic::List{*graph});
      const GraphOrigin origin = lineage_.origin_of(*graph);
      if (origin.source == CandidateSource::Known) {
        ++counts.known;
      } else if (origin.source == CandidateSource::Archive) {
        ++counts.bred;
      } else {
        EXPECT_TRUE(simple.contains(genetic::json_text(*graph)));
        ++counts.simple;
      }
      lineage_.next_generation();
    }
    return counts;
  }

  genetic::TwisterGenerators generators_;
  RandomGraphOptions options_;
  SignalArchive archive_;
  GraphMaking making_{evaluator_.vocabulary(), {.simplifies = true, .drops_sign = true}};
};

TEST_F(FreshSourcesTest, EachGivesItsShare) {
  fill(20);
  try_all_formulas();
  const double known = archive_.shares().known();
  const double bred = (1.0 - known) * archive_.shares().bred();
  EXPECT_LT(archive_.shares().bred(), 0.4) << "all that was random got in";
  const Counts counts = counted({});
  EXPECT_NEAR(counts.known, kDraws * known, 45);
  EXPECT_NEAR(counts.bred, kDraws * bred, 45);
  EXPECT_NEAR(counts.simple, kDraws * (1.0 - known - bred) * FreshSources::kSimpleShare, 45);
}

TEST_F(FreshSourcesTest, WithTooFewParentsThereAreFormulasAndChance) {
  fill(static_cast<int>(SignalArchive::kLeastParents) - 1);
  try_all_formulas();
  const Counts counts = counted({});
  EXPECT_EQ(counts.bred, 0);
  EXPECT_NEAR(counts.known, kDraws * archive_.shares().known(), 45);
}

TEST_F(FreshSourcesTest, WhatIsKnownIsTriedFirst) {
  FreshSources of = sources({true, true, false});
  const auto generator = seeded(4);
  int known = 0;
  for (int i = 0; i < kDraws; ++i)
    known += of.next(generator).has_value() ? 1 : 0;  // None is in a batch, and none has parents.
  EXPECT_NEAR(known, kDraws * FreshSources::kUntriedShare, 45);
}

TEST_F(FreshSourcesTest, EachCanBeLeftOut) {
  fill(20);
  const Counts without_known = counted({true, false, true});
  EXPECT_EQ(without_known.known, 0);
  EXPECT_NEAR(without_known.bred, kDraws * archive_.shares().bred(), 45);
  EXPECT_EQ(counted({false, true, true}).bred, 0);
  EXPECT_EQ(counted({true, true, false}).simple, 0);
  EXPECT_EQ(counted({false, false, false}).random, kDraws);
}

TEST_F(FreshSourcesTest, WhereThereIsNothingToChooseNothingIsDrawn) {
  const auto generator = seeded(1);
  EXPECT_FALSE(sources({true, false, false}).next(generator)) << "no parents yet";
  EXPECT_EQ(generator->random(), seeded(1)->random());
  EXPECT_FALSE(sources({}).next(nullptr));
}

TEST_F(FreshSourcesTest, TheSameDrawsGiveTheSameGraphs) {
  fill(20);
  const SignalArchive copy = archive_;
  const auto drawn = [this] {
    FreshSources of = sources({});
    const auto generator = seeded(5);
    std::vector<std::string> texts;
    for (int i = 0; i < 50; ++i) {
      const auto graph = of.next(generator);
      texts.push_back(graph ? genetic::json_text(*graph) : std::string());
    }
    return texts;
  };
  const auto first = drawn();
  archive_ = copy;
  EXPECT_EQ(drawn(), first);
}

}  // namespace
}  // namespace varnholt::embedded::test
