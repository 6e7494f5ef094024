// Fresh random graphs from the host's generator: asked with fixed keywords, advanced no further
// than wanted, released before the graphs are used. Method: a scripted generator that logs each
// step.
#include "search_templates/genetic/population/fresh_candidates.hpp"

#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::in_turn;
using test::ScriptedHost;
using ::testing::ElementsAre;

using Graph = std::optional<Value>;

constexpr const char* kAsked =
    "random_weighted.random_weighted_graphs(rng='rng', log_context={'template': 'genetic', "
    "'stage': 'fresh_candidates', 'generator': 'random_weighted_graphs'}, "
    "template_name='genetic')";

class FreshRandomCandidates : public ::testing::Test {
 protected:
  [[nodiscard]] Value drawn(std::int64_t count) {
    return fresh_random_candidates(host_.random_weighted, host_.context, count, rng_);
  }

  ScriptedHost host_;
  std::shared_ptr<RandomGenerator> rng_ =
      std::make_shared<test::ScriptedGenerator>(host_.log, MersenneTwister(1));
};

TEST_F(FreshRandomCandidates, AdvanceTheGeneratorNoFurtherThanAsked) {
  host_.random_weighted.on_next = in_turn<Graph>({1, 2, 3});
  EXPECT_EQ(repr(drawn(2)), "[1, 2]");
  EXPECT_THAT(host_.log.lines(), ElementsAre(kAsked, "random_graphs.next()", "random_graphs.next()",
                                             "random_graphs.release()"));
}

TEST_F(FreshRandomCandidates, AreFewerWhenTheGeneratorEnds) {
  host_.random_weighted.on_next = in_turn<Graph>({1, std::nullopt});
  EXPECT_EQ(repr(drawn(5)), "[1]");
  EXPECT_EQ(host_.log.count("random_graphs.next"), 2U);
}

TEST_F(FreshRandomCandidates, AreNoneWithoutAGenerator) {
  host_.random_weighted.on_random_weighted_graphs = always(false);
  EXPECT_EQ(repr(drawn(3)), "[]");
  EXPECT_THAT(host_.log.lines(), ElementsAre(kAsked));
}

TEST_F(FreshRandomCandidates, OfNoneMakeTheGeneratorAllTheSame) {
  EXPECT_EQ(repr(drawn(0)), "[]");
  EXPECT_EQ(repr(drawn(-1)), "[]");
  EXPECT_THAT(host_.log.names(),
              ElementsAre("random_weighted.random_weighted_graphs", "random_graphs.release",
                          "random_weighted.random_weighted_graphs", "random_graphs.release"));
}

TEST_F(FreshRandomCandidates, DrawFromTheGeneratorThatTheyAreGiven) {
  host_.random_weighted.on_next = [](RandomGenerator* rng) { return Value(rng->random()); };
  MersenneTwister same(1);
  const Value first = drawn(2);
  EXPECT_EQ(first.list().at(0).real(), same.random());
  EXPECT_EQ(first.list().at(1).real(), same.random());
  // The next request goes on where this one ended.
  EXPECT_EQ(drawn(1).list().at(0).real(), same.random());
}

TEST_F(FreshRandomCandidates, ReleaseTheGeneratorWhenItFails) {
  host_.random_weighted.on_next = test::failing(ValueError("no graph"));
  EXPECT_EQ(test::error_of([&] { return drawn(2); }), "ValueError: no graph");
  EXPECT_EQ(host_.log.lines().back(), "random_graphs.release()");
}

TEST_F(FreshRandomCandidates, AreTheModulesDefaultSource) {
  host_.random_weighted.on_next = always(Graph(7));
  HostFreshCandidates source(host_.random_weighted);
  EXPECT_EQ(repr(source.draw(host_.context, 2, rng_)), "[7, 7]");
  EXPECT_EQ(host_.log.lines().front(), kAsked);
}

TEST_F(FreshRandomCandidates, MayComeWithoutAGeneratorOfNumbers) {
  rng_ = nullptr;
  static_cast<void>(drawn(0));
  EXPECT_THAT(host_.log.lines().front(), ::testing::HasSubstr("(rng=None, "));
}

}  // namespace
}  // namespace varnholt::genetic
