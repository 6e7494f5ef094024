// Random graphs: always sound and within their limits, one stream gives one sequence, chances
// follow the weights, and the draws are made as the header says.
// Method: seeded loops over many graphs, and a scripted generator.
#include "hosts/embedded/vocabulary/random_graphs.hpp"

#include <algorithm>
#include <cmath>
#include <deque>
#include <map>
#include <set>
#include <stdexcept>

#include <gmock/gmock.h>

#include "hosts/embedded/operators/graph_parts.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "tests/hosts/embedded/graph_helpers.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"
#include "tests/hosts/embedded/synthetic_universe.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;

Vocabulary vocabulary_of(Eigen::Index instruments) {
  return make_vocabulary(
      make_synthetic_universe({.instruments = instruments, .days = 1, .factors = 1}));
}

Vocabulary full_vocabulary() {
  return vocabulary_of(2);
}

// Answers from lists and keeps count of what it was asked.
class ScriptedGenerator : public genetic::RandomGenerator {
 public:
  ScriptedGenerator(std::deque<double> reals, std::deque<std::uint64_t> bits)
      : reals_(std::move(reals)), bits_(std::move(bits)) {}

  double random() override { return take(reals_, "random"); }
  std::uint64_t getrandbits(int count) override {
    return take(bits_, ("getrandbits " + std::to_string(count)).c_str());
  }
  Value getstate() const override { return {}; }

  std::vector<std::string> calls;
  [[nodiscard]] bool is_used_up() const { return reals_.empty() && bits_.empty(); }

 private:
  template <typename T>
  T take(std::deque<T>& answers, const char* call) {
    calls.emplace_back(call);
    if (answers.empty()) throw std::logic_error("the script is at its end");
    const T answer = answers.front();
    answers.pop_front();
    return answer;
  }

  std::deque<double> reals_;
  std::deque<std::uint64_t> bits_;
};

TEST(RandomGraphs, AreSoundAndWithinTheirLimits) {
  const Vocabulary vocabulary = full_vocabulary();
  for (std::uint64_t seed = 1; seed <= 3000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    genetic::TwisterGenerator generator{genetic::MersenneTwister(seed)};
    RandomGraphOptions options;
    options.max_depth = static_cast<int>(1 + seed % 8);
    options.max_nodes = 1 + seed % 31;
    options.leaf_share = static_cast<double>(seed % 5) / 8.0;
    const Value graph = random_graph(generator, vocabulary, options);
    const GraphLimits limits{options.max_depth, options.max_nodes};
    ASSERT_NO_THROW((void)check_graph(graph, vocabulary, limits)) << expression_text(graph);
  }
}

TEST(RandomGraphs, OfEverythingAreSoundAndHaveEverything) {
  Vocabulary vocabulary = rich_vocabulary();
  vocabulary.formulas.push_back(
      {"reversal", parse_formula("-delta(close, 5) / std(returns, 7)", vocabulary), 4.0});
  std::set<std::string> types;
  std::set<std::string> functions;
  int formulas = 0;
  for (std::uint64_t seed = 1; seed <= 3000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    genetic::TwisterGenerator generator{genetic::MersenneTwister(seed)};
    RandomGraphOptions options = rich_options();
    options.max_depth = static_cast<int>(1 + seed % 8);
    options.max_nodes = 1 + seed % 41;
    const Value graph = random_graph(generator, vocabulary, options);
    const GraphLimits limits{options.max_depth, options.max_nodes};
    ASSERT_NO_THROW((void)check_graph(graph, vocabulary, limits)) << expression_text(graph);
    for (const GraphPart& part : graph_parts(graph)) {
      types.insert(part.type);
      if (part.type == kRotationType) functions.insert(part.name);
    }
    const std::string text = expression_text(graph);
    formulas += text.find("arith_neg(ts_delta(close, 5))") != std::string::npos;
  }
  EXPECT_THAT(types,
              testing::ElementsAre("constant", "feature", "group", "number", "rotation", "window"));
  EXPECT_EQ(functions.size(), vocabulary.functions.size());
  EXPECT_GT(formulas, 100);
}

TEST(RandomGraphs, ConstantsAreDrawnOnlyWhenTheyAreAskedFor) {
  const Vocabulary vocabulary = full_vocabulary();
  genetic::TwisterGenerator generator{genetic::MersenneTwister(12)};
  int constants = 0;
  for (const double share : {0.0, 0.5}) {
    for (int i = 0; i < 500; ++i) {
      const Value graph = random_graph(generator, vocabulary, {.constant_share = share});
      for (const GraphPart& part : graph_parts(graph))
        constants += part.is_constant() ? 1 : 0;
    }
    if (share == 0.0) {
      EXPECT_EQ(constants, 0);
    }
  }
  EXPECT_GT(constants, 100);
  EXPECT_THROW((void)random_graph(generator, vocabulary, {.constant_share = 1.5}),
               std::invalid_argument);
}

TEST(RandomGraphs, ReachTheirLimits) {
  const Vocabulary vocabulary = full_vocabulary();
  genetic::TwisterGenerator generator{genetic::MersenneTwister(5)};
  RandomGraphOptions options;
  options.max_depth = 4;
  options.max_nodes = 12;
  options.leaf_share = 0.1;
  int deepest = 0;
  std::size_t largest = 0;
  for (int i = 0; i < 2000; ++i) {
    const GraphShape shape = measure_graph(random_graph(generator, vocabulary, options));
    deepest = std::max(deepest, shape.depth);
    largest = std::max(largest, shape.node_count);
  }
  EXPECT_EQ(deepest, 4);
  EXPECT_EQ(largest, 12u);
}

TEST(RandomGraphs, TheRootIsARotationWhereOneFits) {
  const Vocabulary vocabulary = full_vocabulary();
  genetic::TwisterGenerator generator{genetic::MersenneTwister(9)};
  RandomGraphOptions options;
  options.leaf_share = 1.0;
  for (int i = 0; i < 200; ++i) {
    const GraphShape shape = measure_graph(random_graph(generator, vocabulary, options));
    EXPECT_EQ(shape.depth, 2);
  }
  options.max_depth = 1;
  EXPECT_EQ(measure_graph(random_graph(generator, vocabulary, options)).node_count, 1u);
}

TEST(RandomGraphs, OneStreamGivesOneSequence) {
  const Vocabulary vocabulary = full_vocabulary();
  genetic::TwisterGenerator first{genetic::MersenneTwister(77)};
  genetic::TwisterGenerator second{genetic::MersenneTwister(77)};
  genetic::TwisterGenerator other{genetic::MersenneTwister(78)};
  int differing = 0;
  for (int i = 0; i < 200; ++i) {
    const std::string text = expression_text(random_graph(first, vocabulary));
    ASSERT_EQ(text, expression_text(random_graph(second, vocabulary)));
    differing += text != expression_text(random_graph(other, vocabulary));
  }
  EXPECT_GT(differing, 150);
}

TEST(RandomGraphs, TheSequenceOfASeedIsFixed) {
  const Vocabulary vocabulary = full_vocabulary();
  genetic::TwisterGenerator generator{genetic::MersenneTwister(1)};
  std::vector<std::string> texts;
  for (int i = 0; i < 3; ++i)
    texts.push_back(expression_text(random_graph(generator, vocabulary)));
  EXPECT_THAT(texts, testing::ElementsAre(
                         "cross_zscore(arith_mul(log_returns, ts_covariance(cross_zscore(close), "
                         "ts_min(volume, 2), 60)))",
                         "ts_std(ts_decay(returns, 2), 2)",
                         "ts_covariance(range, comparison_gt(ts_sum(arith_min(open, returns), 10), "
                         "arith_max(ts_rank(range, 3), dollar_volume)), 15)"));
}

TEST(RandomGraphs, DrawsInTheOrderOfTheNodes) {
  Vocabulary vocabulary = make_vocabulary(MarketData{});
  vocabulary.features = {{"close", 1.0}, {"returns", 3.0}};
  std::erase_if(vocabulary.functions, [](const FunctionEntry& entry) {
    return entry.name != "ts_mean" && entry.name != "ts_correlation";
  });
  vocabulary.functions[0].weight = 1.0;  // ts_mean
  vocabulary.functions[1].weight = 1.0;  // ts_correlation
  vocabulary.windows = {5, 10, 20};
  ScriptedGenerator generator(
      {
          0.75,       // The root: ts_correlation.
          0.9, 0.25,  // Its first child: a rotation (0.9 >= leaf_share), ts_mean.
          0.24,       // The child of that, at the depth limit: close.
          0.1, 0.26,  // The second child: a feature by choice, returns.
      },
      {
          1,     // The window of ts_mean.
          3, 2,  // That of the root: 3 is drawn again.
      });
  const Value graph = random_graph(generator, vocabulary, {.max_depth = 3});
  EXPECT_EQ(expression_text(graph), "ts_correlation(ts_mean(close, 10), returns, 20)");
  EXPECT_TRUE(generator.is_used_up());
  EXPECT_THAT(generator.calls,
              testing::ElementsAre("random", "random", "random", "random", "getrandbits 2",
                                   "random", "random", "getrandbits 2", "getrandbits 2"));
}

// How often each name occurs at the root, or at the first leaf below it.
std::map<std::string, int> root_counts(const Vocabulary& vocabulary,
                                       const RandomGraphOptions& options, int graphs) {
  std::map<std::string, int> counts;
  genetic::TwisterGenerator generator{genetic::MersenneTwister(4)};
  for (int i = 0; i < graphs; ++i) {
    const Value graph = random_graph(generator, vocabulary, options);
    ++counts[std::string(graph.mapping().at(genetic::keys::kNode).text())];
  }
  return counts;
}

TEST(RandomGraphs, ChancesFollowTheWeights) {
  const Vocabulary vocabulary = full_vocabulary();
  constexpr int kGraphs = 20000;
  double total = 0.0;
  for (const FunctionEntry& entry : vocabulary.functions)
    total += entry.weight;
  const auto functions = root_counts(vocabulary, {}, kGraphs);
  for (const FunctionEntry& entry : vocabulary.functions) {
    if (entry.weight == 0.0) {
      EXPECT_FALSE(functions.contains(std::string(entry.name))) << entry.name;
      continue;
    }
    const double expected = kGraphs * entry.weight / total;
    // Five standard deviations of a binomial count.
    EXPECT_NEAR(functions.at(std::string(entry.name)), expected, 5.0 * std::sqrt(expected))
        << entry.name;
  }
  total = 0.0;
  for (const FeatureEntry& entry : vocabulary.features)
    total += entry.weight;
  const auto features = root_counts(vocabulary, {.max_depth = 1}, kGraphs);
  for (const FeatureEntry& entry : vocabulary.features) {
    const double expected = kGraphs * entry.weight / total;
    EXPECT_NEAR(features.at(std::string(entry.name)), expected, 5.0 * std::sqrt(expected))
        << entry.name;
  }
}

TEST(RandomGraphs, LongWindowsCanBeLeftOut) {
  const Vocabulary vocabulary = full_vocabulary();
  genetic::TwisterGenerator generator{genetic::MersenneTwister(6)};
  for (int i = 0; i < 300; ++i) {
    const std::string text =
        expression_text(random_graph(generator, vocabulary, {.max_window = 3}));
    for (const char* days : {" 5)", "10)", "20)", "40)", "60)", "120)", "15)"}) {
      ASSERT_EQ(text.find(days), std::string::npos) << text;
    }
  }
  // Without any window, functions that need one are left out as well.
  for (int i = 0; i < 300; ++i) {
    const std::string text =
        expression_text(random_graph(generator, vocabulary, {.max_window = 1}));
    ASSERT_EQ(text.find("ts_"), std::string::npos) << text;
  }
}

TEST(RandomGraphs, RefuseOptionsThatAllowNoGraph) {
  const Vocabulary vocabulary = full_vocabulary();
  genetic::TwisterGenerator generator{genetic::MersenneTwister(1)};
  EXPECT_THROW((void)random_graph(generator, vocabulary, {.max_depth = 0}), std::invalid_argument);
  EXPECT_THROW((void)random_graph(generator, vocabulary, {.max_nodes = 0}), std::invalid_argument);
  EXPECT_THROW((void)random_graph(generator, vocabulary, {.leaf_share = -0.1}),
               std::invalid_argument);
  EXPECT_THROW((void)random_graph(generator, Vocabulary{}), std::invalid_argument);
}

TEST(RandomGraphs, OfOneInstrumentHaveNoFunctionsAcrossInstruments) {
  const Vocabulary vocabulary = vocabulary_of(1);
  genetic::TwisterGenerator generator{genetic::MersenneTwister(11)};
  for (int i = 0; i < 500; ++i) {
    const std::string text = expression_text(random_graph(generator, vocabulary, {}));
    EXPECT_EQ(text.find("cross_"), std::string::npos) << text;
  }
  // A graph that has one is still understood.
  EXPECT_NE(vocabulary.find_function("cross_rank"), nullptr);
}

}  // namespace
}  // namespace varnholt::embedded::test
