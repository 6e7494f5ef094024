// The small modules of the embedded host: score, depth, log texts, random graphs, defaults.
#include "hosts/embedded/host/embedded_host.hpp"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "search_templates/genetic/driver/genetic.hpp"
#include "search_templates/genetic/population/safe_rotations.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
using genetic::List;
using genetic::Mapping;
using genetic::Value;

class EmbeddedHostTest : public ContextTest {
 protected:
  HostSettings settings() {
    HostSettings settings;
    settings.log = [this](LogLevel level, std::string_view text) {
      logs_.push_back((level == LogLevel::Error ? "error " : "warning ") + std::string(text));
    };
    settings.seed = 5;
    return settings;
  }

  std::vector<std::string> logs_;
  NoRecorder recorder_;
  const Vocabulary& vocabulary_ = evaluator_.vocabulary();
  EmbeddedHost host_{process_, vocabulary_, lineage_, submission_, settings()};
};

TEST_F(EmbeddedHostTest, TheScoreFollowsItsFormula) {
  const Mapping candidate{{keys::kGraph, ranked("close")}, {keys::kQualityScore, 1.5}};
  const Mapping weights{{keys::kPoolCorrelation, -0.5},
                        {keys::kDiversityWeight, 2.0},
                        {keys::kParsimonyWeight, 0.25}};
  // 1.5 - 2.0 * |-0.5| - 0.25 * 2 nodes
  EXPECT_DOUBLE_EQ(host_.eliteness().score_candidate(candidate, weights).real(), 0.0);
  const Mapping no_correlation{{keys::kPoolCorrelation, Value()},
                               {keys::kDiversityWeight, 2.0},
                               {keys::kParsimonyWeight, 0.25}};
  EXPECT_DOUBLE_EQ(host_.eliteness().score_candidate(candidate, no_correlation).real(), 1.0);
  // Without weights the settings' defaults stand: 0.5 and 0.005.
  EXPECT_DOUBLE_EQ(host_.eliteness().score_candidate(candidate, Mapping()).real(), 1.49);
}

TEST_F(EmbeddedHostTest, DepthCountsNodesOnTheLongestWayDown) {
  EXPECT_EQ(host_.graph_depth().graph_depth_for_attempt_marker(feature("close")).integer(), 1);
  EXPECT_EQ(host_.graph_depth().graph_depth_for_attempt_marker(ranked("close")).integer(), 2);
  EXPECT_THROW(static_cast<void>(host_.graph_depth().graph_depth_for_attempt_marker(7)),
               genetic::ValueError);
}

TEST_F(EmbeddedHostTest, LogTextsAreFilledIn) {
  host_.logger().error("%s of %s; 100%% of %s", {1, "two", 3.5});
  host_.logger().warning("plain", {});
  host_.logger().warning_with_error("recording failed",
                                    std::make_exception_ptr(genetic::ValueError("no room")));
  EXPECT_EQ(logs_, (std::vector<std::string>{"error 1 of two; 100%% of 3.5", "warning plain",
                                             "warning recording failed: no room"}));
}

TEST_F(EmbeddedHostTest, RandomGraphsAreValidAndOneStreamGivesOneSequence) {
  EmbeddedContext context(evaluator_, {}, stop_, recorder_, submission_, process_);
  const RandomGraphOptions options;
  const auto draw = [&](std::int64_t seed) {
    EmbeddedRandomGraphs source(vocabulary_, options);
    const auto rng = host_.random_generators().seeded(seed);
    const auto walk = source.random_weighted_graphs(context, rng, Mapping(), "genetic");
    std::vector<std::string> graphs;
    for (int i = 0; i < 50; ++i) {
      const Value graph = *walk->next();
      EXPECT_LE(check_graph(graph, vocabulary_).depth, options.max_depth);
      graphs.push_back(genetic::repr(graph));
    }
    return graphs;
  };
  EXPECT_EQ(draw(3), draw(3));
  EXPECT_NE(draw(3), draw(4));
}

// What a large batch is composed of ends at once, so that nothing waits for its end.
TEST_F(EmbeddedHostTest, FreshGraphsAreFinishedAfterTheyAreDrawn) {
  EmbeddedContext context(evaluator_, {}, stop_, recorder_, submission_, process_);
  const RandomGraphOptions options;
  const auto graphs = [&](const GraphMaking& making) {
    EmbeddedRandomGraphs source(vocabulary_, options, {}, nullptr, making);
    const auto iterator = source.random_weighted_graphs(
        context, host_.random_generators().seeded(5), Mapping(), "genetic");
    List drawn;
    for (int i = 0; i < 200; ++i)
      drawn.append(iterator->next().value());
    return drawn;
  };
  const List drawn = graphs({});
  const List finished = graphs({vocabulary_, {.simplifies = true}});
  int changed = 0;
  for (std::size_t i = 0; i < drawn.size(); ++i) {
    const std::string text = expression_text(finished.at(i));
    EXPECT_EQ(text, expression_text(canonical_form(drawn.at(i), vocabulary_)));
    changed += text != expression_text(drawn.at(i)) ? 1 : 0;
  }
  EXPECT_GT(changed, 30) << "the draws are the same, the graphs are not";
}

TEST_F(EmbeddedHostTest, NothingIsComposedForASearchThatIsBeingStopped) {
  HostSettings stopping = settings();
  bool is_stopping = false;
  stopping.is_stopping = [&is_stopping] { return is_stopping; };
  EmbeddedHost host(process_, vocabulary_, lineage_, submission_, stopping);
  EmbeddedContext context(evaluator_, {}, stop_, recorder_, submission_, process_);
  const auto walk = host.random_weighted().random_weighted_graphs(
      context, host.random_generators().seeded(3), Mapping(), "genetic");
  const Mapping candidate{{keys::kGraph, ranked("close")}, {keys::kQualityScore, 1.5}};
  EXPECT_TRUE(walk->next().has_value());
  EXPECT_NE(host.eliteness().score_candidate(candidate, Mapping()).real(), 0.0);
  is_stopping = true;
  EXPECT_FALSE(walk->next().has_value());
  EXPECT_EQ(host.eliteness().score_candidate(candidate, Mapping()).real(), 0.0);
}

TEST_F(EmbeddedHostTest, SafeRotationsAreThoseThatFitTheNodeLimit) {
  EmbeddedContext context(evaluator_, {}, stop_, recorder_, submission_, process_);
  EXPECT_EQ(host_.random_graph_limits().random_weighted_window_limit(context, 5).integer(), 120);
  EXPECT_EQ(host_.random_graph_limits().random_weighted_node_limit(context).integer(), 25);
  EXPECT_TRUE(host_.random_graph_limits().random_weighted_runtime_registry(context).is_absent());

  const auto safe = [&](EmbeddedHost& host) {
    return genetic::safe_reaction_rotation_names(host.random_graph_limits(), context);
  };
  const std::set<std::string> all = safe(host_);
  const std::vector<FunctionEntry>& functions = evaluator_.vocabulary().functions;
  EXPECT_EQ(all.size(), static_cast<std::size_t>(std::count_if(
                            functions.begin(), functions.end(),
                            [](const FunctionEntry& entry) { return entry.weight > 0.0; })));
  EXPECT_TRUE(all.contains("ts_correlation"));  // Four nodes at the least.
  HostSettings small = settings();
  small.graphs.max_nodes = 3;
  EmbeddedHost tight(process_, vocabulary_, lineage_, submission_, small);
  EXPECT_FALSE(safe(tight).contains("ts_correlation"));
  EXPECT_TRUE(safe(tight).contains("ts_mean"));
  EXPECT_TRUE(safe(tight).contains("arith_add"));
}

TEST_F(EmbeddedHostTest, AModuleOverItHasAFixedSeed) {
  const genetic::Module module(host_);
  EXPECT_EQ(module.with_config(module.default_arguments()).seed().integer(), 5);
  EXPECT_EQ(module.with_config(module.default_arguments()).batch_size().integer(), 32);
}

}  // namespace
}  // namespace varnholt::embedded::test
