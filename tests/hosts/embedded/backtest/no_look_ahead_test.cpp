// No look-ahead: with the price history cut off at any day, every weight up to that day is, to the
// last bit, what it is with the whole history.
// Method: random graphs over a synthetic universe with gaps and late starts, among them graphs with
// each function at the root, evaluated on the whole history and on cuts at random days.
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "tests/hosts/embedded/graph_helpers.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"
#include "tests/hosts/embedded/synthetic_universe.hpp"

namespace varnholt::embedded::test {
namespace {

constexpr std::uint64_t kSeed = 20240611;

MarketData universe() {
  return with_own_columns(make_synthetic_universe({.instruments = 9,
                                                   .days = 310,
                                                   .factors = 3,
                                                   .seed = kSeed,
                                                   .late_start_share = 0.3,
                                                   .gap_share = 0.004}));
}

// `function` at the root, over random subtrees.
genetic::Value graph_with_root(const FunctionEntry& function, const Vocabulary& vocabulary,
                               genetic::TwisterGenerator& generator) {
  genetic::List children;
  for (std::size_t i = 0; i < function.data_children(); ++i) {
    children.append(
        random_graph(generator, vocabulary, {.max_depth = 3, .max_nodes = 10, .max_window = 20}));
  }
  for (const ArgumentKind kind : function.arguments()) {
    if (kind == ArgumentKind::Group) {
      children.append(make_graph_node("industry", kGroupType, genetic::List()));
    } else if (kind == ArgumentKind::Number) {
      children.append(make_graph_node("0.75", kNumberType, genetic::List()));
    } else if (kind == ArgumentKind::Days) {
      const auto& windows = vocabulary.windows;
      children.append(
          window(std::to_string(windows[genetic::random_below(generator, windows.size())])));
    }
  }
  return make_graph_node(function.name, kRotationType, children);
}

class NoLookAhead : public testing::Test {
 protected:
  // The cuts are the same for all graphs, so that their features are computed once.
  NoLookAhead() : whole_(universe()) {
    const MarketData history = universe();
    std::mt19937_64 engine(kSeed);
    for (int i = 0; i < 7; ++i) {
      const auto days = static_cast<Eigen::Index>(
          2 + engine() % static_cast<std::uint64_t>(history.day_count() - 2));
      cuts_.emplace_back(history.first_days(days));
    }
  }

  void expect_none(const genetic::Value& graph) {
    SCOPED_TRACE(expression_text(graph));
    const Evaluation all = whole_.evaluate(graph);
    for (const Evaluator& cut : cuts_) {
      const Evaluation head = cut.evaluate(graph);
      EXPECT_TRUE(begins_with(all.weights, head.weights));
      // And so what was earned until then.
      const Eigen::Index days = head.backtest.net_returns.size();
      EXPECT_TRUE(
          begins_with(all.backtest.net_returns.matrix(), head.backtest.net_returns.matrix()))
          << days;
    }
    if (all.backtest.statistics.active_days > 0) ++active_graphs_;
  }

  Evaluator whole_;
  std::vector<Evaluator> cuts_;
  int active_graphs_ = 0;
};

TEST_F(NoLookAhead, OfAnyFunction) {
  genetic::TwisterGenerator generator{genetic::MersenneTwister(kSeed)};
  std::map<std::string_view, int> active;
  for (const FunctionEntry& function : whole_.vocabulary().functions) {
    // Two panels of noise are seldom equal: the comparison of that takes a few more graphs.
    for (int i = 0; i < 4 || (i < 60 && active[function.name] == 0); ++i) {
      active_graphs_ = 0;
      expect_none(graph_with_root(function, whole_.vocabulary(), generator));
      active[function.name] += active_graphs_;
    }
    // A signal without a position on any day would show nothing.
    EXPECT_GT(active[function.name], 0) << function.name;
  }
}

TEST_F(NoLookAhead, OfRandomGraphsOfEverything) {
  const Vocabulary everything = everything_of(universe());
  genetic::TwisterGenerator generator{genetic::MersenneTwister(kSeed + 2)};
  for (int i = 0; i < 80; ++i)
    expect_none(random_graph(generator, everything, rich_options()));
  EXPECT_GT(active_graphs_, 30);
}

TEST_F(NoLookAhead, OfRandomGraphs) {
  genetic::TwisterGenerator generator{genetic::MersenneTwister(kSeed + 1)};
  for (int i = 0; i < 80; ++i) {
    expect_none(random_graph(generator, whole_.vocabulary(), {.max_depth = 6, .max_nodes = 30}));
  }
  EXPECT_GT(active_graphs_, 50);
}

}  // namespace
}  // namespace varnholt::embedded::test
