// Goal: whatever the generation and whatever the planner, an accepted improvement has never been
// seen before, no limit is exceeded, depth grows by one along each lineage, orders are total, and
// nothing that came in is changed.
//
// Method: chains of rounds over random generations with a random planner; the seed is shown.
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/population/seen_graph_keys.hpp"
#include "search_templates/genetic/reaction/improvement_batch.hpp"
#include "search_templates/genetic/reaction/lineage.hpp"
#include "search_templates/genetic/reaction/near_misses.hpp"
#include "search_templates/genetic/reaction/peers.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "tests/reaction/improvement_harness.hpp"
#include "tests/support/random_results.hpp"

namespace varnholt::genetic::test {
namespace {

// What is compared of a value to tell whether it was changed.
std::vector<std::string> texts_of(const std::vector<Value>& values) {
  std::vector<std::string> texts;
  for (const Value& value : values)
    texts.push_back(repr(value));
  return texts;
}

List list_of_values(const std::vector<Value>& values) {
  List list;
  for (const Value& value : values)
    list.append(value);
  return list;
}

class ImprovementProperties : public ImprovementTest, public testing::WithParamInterface<int> {
 protected:
  ImprovementProperties() : random(static_cast<std::uint64_t>(GetParam())) {
    host.engine.on_stats_gate_metrics = RandomResults::metrics_of;
    host.eliteness.on_score_candidate = RandomResults::score_of;
    host.engine.on_graph_depth_for_attempt_marker = [](const Value& graph) -> Value {
      return static_cast<std::int64_t>(repr(graph).size() / 100);
    };
    host.context.on_max_depth = always(Value(static_cast<std::int64_t>(random.below(6))));
    host.reaction_planning.on_derive_reaction_improvements =
        [this](const Value& result, const ReactionRequest& request) -> Value {
      List plans;
      for (std::size_t left = random.below(12); left > 0; --left)
        plans.append(plan_for(result, random.graph(), request.improvement_depth));
      return plans;
    };
  }

  // The improvements, evaluated at random and with their lineage.
  std::vector<Value> evaluated_results(const List& improvements, std::int64_t depth) {
    List results;
    for (std::size_t i = 0; i < improvements.size(); ++i) {
      const Value result = random.result();
      result.mapping().set("graph", improvements.at(i).mapping().at("graph"));
      results.append(result);
    }
    static_cast<void>(annotate_candidate_results(results, 100, depth, improvements));
    std::vector<Value> values;
    for (std::size_t i = 0; i < results.size(); ++i)
      values.push_back(results.at(i));
    return values;
  }

  RandomResults random;
};

TEST_P(ImprovementProperties, RoundsKeepTheLimitsAndTheLineage) {
  SeenGraphKeys evaluated;
  std::set<std::string> known;
  std::vector<Value> generation = random.results(random.below(40));
  for (const Value& result : generation) {
    const Value graph = result.mapping().at("graph");
    result.mapping().set("improvement_depth", 0);
    evaluated.add(graph, structural_key(graph));
    known.insert(repr(graph));
  }
  const auto max_depth = static_cast<std::int64_t>(random.below(4));
  std::vector<Value> current = generation;
  for (std::int64_t round = 1; round < 6; ++round) {
    const auto remaining = static_cast<std::int64_t>(random.below(30));
    const auto plan_limit = static_cast<std::int64_t>(1 + random.below(5));
    const List sources = improvement_source_pool(environment, list_of_values(generation),
                                                 list_of_values(current), 3);
    const ImprovementBatch batch = derive_improvement_batch(environment, sources, evaluated,
                                                            {max_depth, remaining, plan_limit});

    ASSERT_LE(static_cast<std::int64_t>(batch.improvements.size()), remaining);
    ASSERT_LE(batch.eligible_count, static_cast<std::int64_t>(sources.size()));
    ASSERT_LE(batch.improvements.size(),
              static_cast<std::size_t>(plan_limit * batch.eligible_count));
    if (batch.candidate_limit_reached) {
      ASSERT_EQ(static_cast<std::int64_t>(batch.improvements.size()), remaining);
    }
    std::map<std::string, std::int64_t> plans_of_source;
    for (std::size_t i = 0; i < batch.improvements.size(); ++i) {
      const Mapping improvement = batch.improvements.at(i).mapping();
      ASSERT_TRUE(known.insert(repr(improvement.at("graph"))).second) << "seen before";
      const Mapping source = improvement.at("source_result").mapping();
      ASSERT_LE(++plans_of_source[repr(source.at("graph"))], plan_limit);
      ASSERT_LT(source.at("improvement_depth").integer(), max_depth);
      ASSERT_EQ(improvement.at("improvement_depth").integer(),
                source.at("improvement_depth").integer() + 1);
    }
    ASSERT_EQ(evaluated.size(), known.size());

    current = evaluated_results(batch.improvements, round);
    for (std::size_t i = 0; i < current.size(); ++i) {
      const Mapping source = batch.improvements.at(i).mapping().at("source_result").mapping();
      const Mapping child = current[i].mapping();
      ASSERT_EQ(child.at("improvement_depth").integer(),
                source.at("improvement_depth").integer() + 1);
      ASSERT_TRUE(same_object(child.at("source_graph"), source.at("graph")));
      ASSERT_EQ(child.contains("rescued"), truth(child.at("passes")));
    }
    generation.insert(generation.end(), current.begin(), current.end());
  }
}

TEST_P(ImprovementProperties, NothingThatCameInIsChanged) {
  const std::vector<Value> results = random.results(random.below(40));
  const std::vector<std::string> before = texts_of(results);
  SeenGraphKeys evaluated;
  const List list = list_of_values(results);
  static_cast<void>(improvement_source_pool(environment, list, list, 2));
  static_cast<void>(derive_improvement_batch(environment, list, evaluated, {}));
  EXPECT_EQ(texts_of(results), before);
  EXPECT_EQ(list.size(), results.size());
}

TEST_P(ImprovementProperties, OrderOfThePeersIsTotal) {
  // Whatever the order of the results, equal but for their places, the same peers come first.
  std::vector<Value> results = random.results(2 + random.below(30));
  std::int64_t index = 0;
  for (const Value& result : results)
    result.mapping().set("candidate_index", index++);
  std::set<std::string> structures;
  std::vector<Value> unique;
  for (const Value& result : results) {
    if (structures.insert(repr(result.mapping().at("graph"))).second) unique.push_back(result);
  }
  const Value source = unique.front();
  const auto names = [&](const std::vector<Value>& ordered) {
    std::vector<std::string> texts;
    const List graphs = PeerRanking(host.bundle(), ordered).graphs_for(source);
    for (std::size_t i = 0; i < graphs.size(); ++i)
      texts.push_back(repr(graphs.at(i)));
    return texts;
  };
  const std::vector<std::string> expected = names(unique);
  std::vector<Value> shuffled = unique;
  std::shuffle(shuffled.begin(), shuffled.end(),
               std::mt19937_64(static_cast<std::uint64_t>(GetParam())));
  EXPECT_EQ(names(shuffled), expected);
  EXPECT_EQ(expected.size(), unique.size() - 1);
}

TEST_P(ImprovementProperties, ChosenNearMissesAreDistinctNearMissesWithinTheLimit) {
  const std::vector<Value> results = random.results(random.below(80));
  const auto batch_size = static_cast<std::int64_t>(1 + random.below(5));
  const List chosen =
      select_actionable_near_miss_parents(environment, list_of_values(results), batch_size);
  EXPECT_LE(chosen.size(), static_cast<std::size_t>(std::max<std::int64_t>(8, 4 * batch_size)));
  std::set<std::string> structures;
  for (std::size_t i = 0; i < chosen.size(); ++i) {
    EXPECT_TRUE(structures.insert(repr(chosen.at(i).mapping().at("graph"))).second);
    EXPECT_TRUE(has_actionable_near_miss_failure(chosen.at(i)));
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, ImprovementProperties, testing::Range(0, 100));

}  // namespace
}  // namespace varnholt::genetic::test
