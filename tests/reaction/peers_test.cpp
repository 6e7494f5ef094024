// Goal: a source's peers are all other structures of the generation, once each, in the order of
// their form, and the host is asked for no more metrics than the form needs.
//
// Method: small generations with the expected order written down; random generations against the
// plain version of the rules; graphs that count how often they are walked.
#include "search_templates/genetic/reaction/peers.hpp"

#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/reaction/improvement_harness.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/plain_improvement.hpp"
#include "tests/support/random_results.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Peers : public ImprovementTest {
 protected:
  std::vector<std::string> peers(const List& ordered, const Value& source) {
    return names_of(reaction_peer_graphs(host.bundle(), ordered, source));
  }
  static Mapping with_graph(const Value& graph, double quality = 1.0) {
    return {{"graph", graph}, {"quality_score", quality}};
  }
  static Mapping failing_by(const char* reason) {
    return {{"graph", graph_over("source", {"close"})}, {"failures", Mapping{{reason, Mapping()}}}};
  }
  // The host's metrics by the name of a result's graph.
  void metrics(const char* metric, const Mapping& by_name) {
    host.engine.on_stats_gate_metrics = [metric, by_name](const Value& result) -> Value {
      return Mapping{{metric, by_name.get(Value(name_of(result.mapping().at("graph"))))}};
    };
  }
};

TEST_F(Peers, OfNothingOrOfTheSourceAloneAreNone) {
  const Mapping source = with_graph(graph_named("a"));
  EXPECT_THAT(peers(List{}, source), IsEmpty());
  EXPECT_THAT(peers(List{Value(source)}, source), IsEmpty());
  EXPECT_THAT(peers(List{source, source}, source), IsEmpty());
}

TEST_F(Peers, AreSkippedByIdentityThenByStructure) {
  const Mapping source = with_graph(graph_named("a"));
  EXPECT_THAT(
      peers(List{source, with_graph(graph_named("a")), with_graph(graph_named("b"))}, source),
      ElementsAre("b"));
  // A source that is none of the results is told by its structure alone.
  EXPECT_THAT(peers(List{with_graph(graph_named("a")), with_graph(graph_named("b"))}, source),
              ElementsAre("b"));
}

TEST_F(Peers, OfASourceWithoutGraphAreAllOthers) {
  const Mapping source = {{"graph", "text"}};
  EXPECT_THAT(
      peers(List{with_graph(graph_named("a")), source, with_graph(graph_named("b"))}, source),
      ElementsAre("a", "b"));
}

TEST_F(Peers, WithoutAGraphAreLeftOut) {
  EXPECT_THAT(peers(List{Mapping(), Mapping{{"graph", List{}}}, with_graph(graph_named("b"))},
                    with_graph(graph_named("a"))),
              ElementsAre("b"));
}

TEST_F(Peers, FirstResultOfAStructureCountsWithItsPriority) {
  EXPECT_THAT(peers(List{with_graph(graph_named("b"), 0.0), with_graph(graph_named("c"), 1.0),
                         with_graph(graph_named("b"), 9.0)},
                    with_graph(graph_named("a"))),
              ElementsAre("c", "b"));
}

TEST_F(Peers, GraphsAreTheVeryObjects) {
  const Value graph = graph_named("b");
  const List found = reaction_peer_graphs(host.bundle(), List{Value(with_graph(graph))},
                                          with_graph(graph_named("a")));
  EXPECT_TRUE(same_object(found.at(0), graph));
}

TEST_F(Peers, OfAnyOtherSourceStandByFeaturesThenPriorityThenPlace) {
  const Mapping source = {{"graph", graph_over("source", {"close", "open"})}};
  EXPECT_THAT(peers(List{with_graph(graph_over("same", {"open", "close"}), 9.0),
                         with_graph(graph_over("half", {"close", "open", "high", "low"}), 9.0),
                         with_graph(graph_over("third", {"close", "high"}), 1.0),
                         with_graph(graph_over("none", {"low"}), 0.0),
                         with_graph(graph_over("better", {"open", "high"}), 2.0),
                         with_graph(graph_over("later", {"close", "low"}), 1.0)},
                    source),
              ElementsAre("none", "better", "third", "later", "half", "same"));
  EXPECT_THAT(host.log.lines(), IsEmpty());  // No metrics are asked for.
}

TEST_F(Peers, ShallowerThenEarlierDecidesBetweenEqualQualities) {
  const auto result = [](const char* name, int depth, int index) {
    return Mapping{
        {"graph", graph_named(name)}, {"improvement_depth", depth}, {"candidate_index", index}};
  };
  EXPECT_THAT(
      peers(List{result("b", 1, 0), result("c", 0, 2), result("d", 0, 1), result("e", 0, 2)},
            with_graph(graph_named("a"))),
      ElementsAre("d", "c", "e", "b"));
}

TEST_F(Peers, OfADeltaRepairAreNumericThenCleanThenSmall) {
  metrics("delta_exposure", {{"small", 0.1}, {"large", -0.5}, {"comparison_gt", 0.0}});
  Mapping failed = with_graph(graph_named("failed"));
  failed.set("failures", Mapping{{"delta_exposure_exceeded", Mapping{{"value", 0.0}}}});
  EXPECT_THAT(peers(List{with_graph(graph_named("comparison_gt"), 9.0), failed,
                         with_graph(graph_named("large")), with_graph(graph_named("unknown")),
                         with_graph(graph_named("small"), 0.0)},
                    failing_by("delta_exposure_max")),
              ElementsAre("small", "large", "unknown", "failed", "comparison_gt"));
}

TEST_F(Peers, OfAWeightRepairLookAtTheWeight) {
  metrics("max_weight", {{"small", 0.1}, {"large", 0.5}});
  EXPECT_THAT(peers(List{with_graph(graph_named("large"), 9.0), with_graph(graph_named("small"))},
                    failing_by("max_weight_exceeded")),
              ElementsAre("small", "large"));
}

TEST_F(Peers, OfASourceThatFailedByBothLookAtTheDeltaExposure) {
  metrics("delta_exposure", {{"b", 0.5}, {"c", 0.1}});
  const Mapping source = {
      {"graph", graph_named("a")},
      {"failures", Mapping{{"max_weight_max", Mapping()}, {"delta_exposure_max", Mapping()}}}};
  EXPECT_THAT(peers(List{with_graph(graph_named("b")), with_graph(graph_named("c"))}, source),
              ElementsAre("c", "b"));
}

TEST_F(Peers, FamilyMakesNoDifferenceToOtherRepairs) {
  EXPECT_THAT(
      peers(List{with_graph(graph_named("comparison_gt"), 2.0), with_graph(graph_named("b"), 1.0)},
            failing_by("turnover_max")),
      ElementsAre("comparison_gt", "b"));
}

TEST_F(Peers, MetricsAreAskedOnceForEachPeerInTheOrderOfTheResults) {
  const auto result = [](const char* name) {
    return Mapping{{"graph", graph_named(name)}, {"stats", name}};
  };
  const Mapping source = failing_by("delta_exposure_max");
  static_cast<void>(peers(List{result("b"), source, result("c"), result("b"), Mapping()}, source));
  EXPECT_THAT(host.log.lines(),
              ElementsAre("engine.stats_gate_metrics('b')", "engine.stats_gate_metrics('c')"));
}

TEST_F(Peers, GraphThatIsNoPlainDataFailsTheWholeCall) {
  EXPECT_EQ(
      error_of([&] {
        return peers(List{with_graph(Mapping{{"node", Tuple{}}})}, with_graph(graph_named("a")));
      }),
      "TypeError: genetic initial candidates must contain only plain graph data");
  EXPECT_EQ(error_of([&] { return peers(List{5}, with_graph(graph_named("a"))); }),
            "AttributeError: 'int' object has no attribute 'get'");
}

TEST_F(Peers, TooDeepAGraphIsAnOrdinaryError) {
  Value deep = graph_named("leaf");
  for (int i = 0; i < 100'000; ++i)
    deep = Mapping{{"node", "n"}, {"children", List{deep}}};
  EXPECT_EQ(error_of([&] { return peers(List{with_graph(deep)}, with_graph(graph_named("a"))); }),
            "RecursionError: maximum recursion depth exceeded");
}

TEST_F(Peers, AgreeWithThePlainVersionSourceAfterSource) {
  for (std::uint64_t seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    RandomResults random(seed);
    const std::vector<Value> ordered = random.results(1 + seed % 40);
    host.engine.on_stats_gate_metrics = RandomResults::metrics_of;
    PlainImprovement plain(environment);
    PeerRanking ranking(host.bundle(), ordered);
    for (const Value& source : ordered) {
      host.log.clear();
      const List found = ranking.graphs_for(source);
      const std::vector<std::string> asked = host.log.lines();
      host.log.clear();
      const std::vector<Value> expected = plain.peers(ordered, source);
      ASSERT_EQ(asked, host.log.lines());
      ASSERT_EQ(found.size(), expected.size());
      for (std::size_t i = 0; i < expected.size(); ++i)
        ASSERT_TRUE(same_object(found.at(i), expected[i]));
    }
  }
}

TEST_F(Peers, GraphsAreWalkedForTheFirstSourcesAndForNoFurtherOne) {
  auto host_children = std::make_shared<HostList>();
  host_children->items = {Mapping{{"node", "close"}, {"type", "feature"}}};
  std::vector<Value> results;
  for (int i = 0; i < 20; ++i) {
    results.push_back(with_graph(
        Mapping{{"node", "n" + std::to_string(i)}, {"children", list_of(host_children)}}));
  }
  PeerRanking ranking(host.bundle(), results);
  static_cast<void>(ranking.graphs_for(results[0]));
  const int reads_for_all = host_children->reads;
  EXPECT_GT(reads_for_all, 0);
  for (const Value& source : results)
    static_cast<void>(ranking.graphs_for(source));
  EXPECT_EQ(host_children->reads, reads_for_all);
}

}  // namespace
}  // namespace varnholt::genetic::test
