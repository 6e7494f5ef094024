// A bred batch from the settings to the graphs: every draw and call in order, when the random
// stream is fetched and stored, and that the same stream gives the same batch. Method: a scripted
// host and scripted draws; for the repetition a real generator.
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/population/candidate_batch.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_config.hpp"
#include "tests/support/scripted_fresh.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::error_of;
using test::failing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

Mapping named(const std::string& node) {
  return {{"node", node}};
}
Mapping result(const std::string& id, double score) {
  return {{"graph", named(id)}, {"id", id}, {"score", score}};
}

class BreedingBatch : public ::testing::Test {
 protected:
  BreedingBatch() {
    config_.settings.batch_size = 2;
    config_.settings.elite_fraction = 0.5;
    config_.settings.diversity_weight = 0.5;
    config_.settings.parsimony_weight = 0.25;
    config_.settings.operator_rates = {{"crossover", 0.0},
                                       {"point_mutation", 1.0},
                                       {"subtree_mutation", 0.0},
                                       {"hoist_mutation", 0.0}};
    host_.search_settings.on_default_operator_rates =
        always(Value(config_.settings.operator_rates));
    host_.eliteness.on_score_candidate = [](const Value& record, const Mapping&) {
      return record.mapping().at("score");
    };
    fresh_.on_draw = [this](std::int64_t count) {
      List graphs;
      for (std::int64_t i = 0; i < count; ++i)
        graphs.append(Mapping{{"node", "fresh" + std::to_string(fresh_count_++)}});
      return Value(graphs);
    };
  }

  Value batch(const Value& prior = List{result("a", 1.0), result("b", 2.0), result("c", 3.0)}) {
    const LoadedConstants constants(host_.search_settings, host_.process_evaluation);
    const SearchEnvironment environment{host_.bundle(), constants, fresh_};
    host_.log.clear();
    return candidate_batch(environment, host_.context, config_, 3, prior, false);
  }
  // The log, with a request for a score as "score(id, diversity weight)".
  [[nodiscard]] std::vector<std::string> steps() const {
    std::vector<std::string> steps;
    for (const std::string& line : host_.log.lines()) {
      const auto part = [&line](const std::string& mark, char end) {
        const std::size_t start = line.find(mark) + mark.size();
        return line.substr(start, line.find(end, start) - start);
      };
      if (line.starts_with("eliteness.score_candidate(")) {
        EXPECT_THAT(line, ::testing::EndsWith("parsimony_weight=0.25)"));
        steps.push_back("score(" + part("'id': '", '\'') + ", " + part("diversity_weight=", ',') +
                        ")");
      } else {
        steps.push_back(line);
      }
    }
    return steps;
  }

  test::ScriptedHost host_;
  test::ScriptedConfig config_{host_.log};
  test::ScriptedFresh fresh_{host_.log};
  int fresh_count_ = 0;
};

TEST_F(BreedingBatch, GoesThroughItsStepsInOrder) {
  host_.context.on_max_depth = always(std::optional<Value>(5));
  EXPECT_EQ(repr(batch()), "[{'node': 'fresh0'}, {'node': 'c'}]");
  EXPECT_THAT(
      steps(),
      ElementsAre(
          "config.rng_for_batch()", "context.max_depth", "context.own_graph_validator",
          "context.backtester_validate_graph",
          // The order of all results, of the pool, and the pool's two passes.
          "score(a, 0.5)", "score(b, 0.5)", "score(c, 0.5)",  //
          "score(c, 0.5)", "score(b, 0.5)", "score(a, 0.5)",  //
          "score(b, 0.0)", "score(b, 0.5)", "score(a, 0.0)", "score(a, 0.5)", "score(a, 0.0)",
          "score(a, 0.5)",
          // The fresh item.
          "fresh.draw(1, 'rng')", "engine.graph_depth_for_attempt_marker({'node': 'fresh0'})",
          // The offspring: two parents to choose from.
          "context.own_graph_validator", "context.backtester_validate_graph", "score(c, 0.5)",
          "score(b, 0.5)", "rng.random()", "score(c, 0.5)", "score(b, 0.5)", "rng.random()",
          "fresh.draw(3, 'rng')", "rng.random()",
          "genetic_ops.point_mutation({'node': 'c'}, [{'node': 'fresh1'}, {'node': 'fresh2'}, "
          "{'node': 'fresh3'}], rng='rng', validator=None)",
          "engine.graph_depth_for_attempt_marker({'node': 'c'})", "config.store_rng_state('rng')"));
  EXPECT_EQ(config_.stored, fresh_.last_rng);
}

TEST_F(BreedingBatch, BreedsFirstWithoutADiversityWeight) {
  config_.settings.diversity_weight = 0.0;
  config_.settings.elite_fraction = 1.0;
  EXPECT_EQ(repr(batch()), "[{'node': 'a'}, {'node': 'fresh3'}]");
  EXPECT_THAT(
      steps(),
      ElementsAre("config.rng_for_batch()", "context.max_depth", "context.own_graph_validator",
                  "context.backtester_validate_graph", "score(a, 0.0)", "score(b, 0.0)",
                  "score(c, 0.0)", "score(c, 0.0)", "score(b, 0.0)", "score(a, 0.0)",
                  "context.own_graph_validator", "context.backtester_validate_graph",
                  "fresh.draw(3, 'rng')", "rng.random()",
                  "genetic_ops.point_mutation({'node': 'a'}, [{'node': 'fresh0'}, "
                  "{'node': 'fresh1'}, {'node': 'fresh2'}], rng='rng', validator=None)",
                  "fresh.draw(1, 'rng')", "config.store_rng_state('rng')"));
}

// A source without a graph, and a replacement that takes no generator and so cannot be called,
// cost the batch its fresh items; the stream is stored all the same.
TEST_F(BreedingBatch, DoesWithoutTheFreshItemsThatItDoesNotGet) {
  fresh_.on_draw = always(Value(List{}));
  EXPECT_EQ(repr(batch()), "[{'node': 'c'}, {'node': 'c'}]");
  fresh_.on_draw = [](std::int64_t count) -> Value {
    if (count == 1) throw TypeError("unexpected keyword argument 'rng'");
    return List{1};
  };
  EXPECT_EQ(repr(batch()), "[{'node': 'c'}, {'node': 'c'}]");
  EXPECT_EQ(host_.log.lines().back(), "config.store_rng_state('rng')");
}

TEST_F(BreedingBatch, TakesTheFirstOfASourceThatGivesTooMany) {
  fresh_.on_draw = always(Value(Tuple{Mapping{{"node", "x"}}, Mapping{{"node", "y"}}}));
  EXPECT_EQ(repr(batch()), "[{'node': 'x'}, {'node': 'c'}]");
}

TEST_F(BreedingBatch, MayComeOutShort) {
  host_.context.on_max_depth = always(std::optional<Value>(2));
  host_.engine.on_graph_depth_for_attempt_marker = test::in_turn({2, 3, 3, 3});
  config_.settings.batch_size = 4;
  EXPECT_EQ(repr(batch()), "[{'node': 'fresh0'}]");
  EXPECT_EQ(host_.log.count("config.store_rng_state"), 1U);
  host_.engine.on_graph_depth_for_attempt_marker = always(3);
  EXPECT_EQ(repr(batch()), "[]");
  EXPECT_EQ(host_.log.count("config.store_rng_state"), 1U);
}

TEST_F(BreedingBatch, ValidatesEveryItem) {
  host_.context.on_backtester_validate_graph = [this] {
    return test::scripted_callable(
        host_.log, "validator", [](std::span<const Value> arguments, const Mapping&) {
          return Value(str(arguments[0].mapping().at("node")) != "fresh0");
        });
  };
  EXPECT_EQ(repr(batch()), "[{'node': 'c'}, {'node': 'fresh4'}]");
}

TEST_F(BreedingBatch, HasNoLimitWithoutADepth) {
  for (const Value& depth : {Value(0), Value(-1), Value("deep"), Value()}) {
    host_.context.on_max_depth = always(std::optional(depth));
    EXPECT_EQ(length(batch()), 2U);
    EXPECT_EQ(host_.log.count("engine.graph_depth_for_attempt_marker"), 0U);
  }
}

TEST_F(BreedingBatch, NeedsPriorResults) {
  for (const Value& none : {Value(), Value(List()), Value(Tuple()), Value(false)}) {
    static_cast<void>(batch(none));
    EXPECT_THAT(host_.log.lines(), ElementsAre("config.rng_for_batch()", "fresh.draw(2, 'rng')",
                                               "config.store_rng_state('rng')"));
  }
  // Results without a graph are results: a bred batch without parents.
  static_cast<void>(batch(List{Mapping{{"id", "x"}, {"score", 1.0}}}));
  EXPECT_EQ(host_.log.count("fresh.draw"), 2U);
  EXPECT_EQ(host_.log.count("genetic_ops.point_mutation"), 0U);
}

TEST_F(BreedingBatch, AFailureLeavesTheStreamAsItWas) {
  host_.eliteness.on_score_candidate = failing(KeyError("no score"));
  EXPECT_EQ(error_of([&] { return batch(); }), "KeyError: no score");
  EXPECT_EQ(host_.log.count("config.rng_for_batch"), 1U);
  EXPECT_EQ(host_.log.count("config.store_rng_state"), 0U);
  host_.context.on_own_graph_validator = failing(RuntimeError("no validator"));
  EXPECT_EQ(error_of([&] { return batch(); }), "RuntimeError: no validator");
  EXPECT_EQ(host_.log.count("config.store_rng_state"), 0U);
}

// Five results and a share of 0.8: a pool of four, so three passes over the rest, and of its four
// parents three to choose from.
TEST_F(BreedingBatch, SizesThePoolByTheEliteFraction) {
  config_.settings.elite_fraction = 0.8;
  List prior;
  for (const char* const id : {"a", "b", "c", "d", "e"})
    prior.append(result(id, 1.0));
  static_cast<void>(batch(prior));
  std::size_t passes = 0;
  std::size_t last_scores = 0;
  for (const std::string& step : steps()) {
    if (step.starts_with("score(") && step.ends_with(", 0.0)")) ++passes;
    if (step.starts_with("score(")) ++last_scores;
  }
  EXPECT_EQ(passes, 4U + 3U + 2U);
  EXPECT_EQ(last_scores, 5U + 5U + 2U * passes + 2U * 3U);
}

// A restart drops its first graph before the stream is stored; the cut to the batch size follows.
TEST_F(BreedingBatch, StoresTheStreamBetweenTheDropAndTheCut) {
  class Unreadable : public HostObject {
   public:
    [[nodiscard]] std::string type_name() const override { return "graphs"; }
    [[nodiscard]] std::size_t length() const override { return 3; }
    [[nodiscard]] Value item(const Value& /*key*/) const override { throw KeyError("unreadable"); }
  };
  fresh_.on_draw = always(Value(make_object<Unreadable>()));
  const LoadedConstants constants(host_.search_settings, host_.process_evaluation);
  const SearchEnvironment environment{host_.bundle(), constants, fresh_};
  const auto started = [&](bool force_restart) {
    return error_of([&] {
      return candidate_batch(environment, host_.context, config_, 0, List(), force_restart);
    });
  };
  EXPECT_EQ(started(true), "KeyError: unreadable");
  EXPECT_EQ(host_.log.count("config.store_rng_state"), 0U);
  EXPECT_EQ(started(false), "KeyError: unreadable");
  EXPECT_EQ(host_.log.count("config.store_rng_state"), 1U);
}

TEST_F(BreedingBatch, WorksWithoutAGenerator) {
  config_.on_rng_for_batch = always(nullptr);
  EXPECT_EQ(repr(batch()), "[{'node': 'fresh0'}, {'node': 'c'}]");
  EXPECT_EQ(host_.log.lines().back(), "config.store_rng_state(None)");
  EXPECT_EQ(host_.log.count("rng.random"), 0U);
}

// The settings are read when an offspring is made.
TEST_F(BreedingBatch, ReadsTheSettingsForEveryOffspring) {
  config_.settings.batch_size = 4;
  host_.genetic_ops.on_point_mutation = [this](const auto&) {
    config_.settings.operator_rates =
        Mapping{{key<"point_mutation">(), 0.0}, {key<"hoist_mutation">(), 1.0}};
    return Value(named("p"));
  };
  static_cast<void>(batch());
  EXPECT_EQ(host_.log.count("genetic_ops.point_mutation"), 1U);
  EXPECT_EQ(host_.log.count("genetic_ops.hoist_mutation"), 1U);
}

// Real draws everywhere: the source, the choice of parents and operator, the operators themselves.
TEST_F(BreedingBatch, RepeatsItselfFromTheSameState) {
  config_.settings.batch_size = 12;
  config_.settings.operator_rates = {{"crossover", 0.4},
                                     {"point_mutation", 0.3},
                                     {"subtree_mutation", 0.2},
                                     {"hoist_mutation", 0.1}};
  fresh_.on_draw = [this](std::int64_t count) {
    List graphs;
    for (std::int64_t i = 0; i < count; ++i)
      graphs.append(Mapping{{"value", fresh_.last_rng->random()}});
    return Value(graphs);
  };
  const auto change = [](const auto& request) {
    return Value(Mapping{{"value", request.rng->random()}, {"from", request.elite}});
  };
  host_.genetic_ops.on_crossover = change;
  host_.genetic_ops.on_point_mutation = change;
  host_.genetic_ops.on_subtree_mutation = change;
  host_.genetic_ops.on_hoist_mutation = change;
  const auto from_seed = [this](std::uint64_t seed) {
    config_.on_rng_for_batch = [this, seed] {
      return std::make_shared<test::ScriptedGenerator>(host_.log, MersenneTwister(seed));
    };
    const std::string graphs = repr(batch());
    return graphs + repr(config_.stored->getstate());
  };
  EXPECT_EQ(from_seed(7), from_seed(7));
  EXPECT_NE(from_seed(7), from_seed(8));
}

}  // namespace
}  // namespace varnholt::genetic
