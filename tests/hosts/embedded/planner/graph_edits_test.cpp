// The edits as a table of expressions before and after, and over random graphs: the result is a
// valid graph, what came in is not changed, and a reversed signal is the negative one to the last
// digits on synthetic prices.
#include "hosts/embedded/planner/graph_edits.hpp"

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "tests/hosts/embedded/planner/repair_helpers.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;

struct Edit {
  std::string before;
  std::string after;
};

class GraphEdits : public ::testing::Test {
 protected:
  const Vocabulary vocabulary_ = small_vocabulary();
  const RepairMaterial material_ = material_of(vocabulary_);
};

TEST_F(GraphEdits, ReverseInTheFlattestWay) {
  const std::vector<Edit> edits = {
      {"close", "arith_neg(close)"},
      {"arith_neg(close)", "close"},
      {"arith_sub(close, open)", "arith_sub(open, close)"},
      {"ts_mean(arith_sub(close, open), 5)", "ts_mean(arith_sub(open, close), 5)"},
      {"cross_rank(close)", "arith_neg(cross_rank(close))"},
      {"ts_rank(close, 5)", "arith_neg(ts_rank(close, 5))"},
      {"ts_delta(ts_delta(returns, 5), 5)", "arith_neg(ts_delta(ts_delta(returns, 5), 5))"},
      {"ts_delta(arith_neg(cross_rank(close)), 5)", "ts_delta(cross_rank(close), 5)"},
      {"arith_mul(cross_rank(close), arith_sub(high, low))",
       "arith_mul(cross_rank(close), arith_sub(low, high))"},
      {"arith_mul(ts_mean(ts_mean(returns, 5), 5), range)",
       "arith_mul(ts_mean(ts_mean(returns, 5), 5), arith_neg(range))"},
      {"ts_correlation(returns, arith_sub(high, low), 20)",
       "ts_correlation(returns, arith_sub(low, high), 20)"},
      {"arith_add(arith_sub(high, low), arith_neg(close))",
       "arith_add(arith_sub(low, high), close)"},
      {"arith_min(arith_neg(high), arith_neg(low))", "arith_max(high, low)"},
      {"ts_min(arith_sub(high, low), 5)", "ts_max(arith_sub(low, high), 5)"},
      // Whether it holds or not, a comparison turned round is not its opposite.
      {"comparison_gt(close, open)", "arith_neg(comparison_gt(close, open))"},
  };
  for (const Edit& edit : edits) {
    const auto after = reversed(graph_of(edit.before), material_.functions);
    ASSERT_TRUE(after) << edit.before;
    EXPECT_EQ(expression_text(*after), edit.after) << edit.before;
  }
}

TEST_F(GraphEdits, ReverseOnlyWithTheFunctionsThatAreAllowed) {
  EXPECT_FALSE(reversed(graph_of("cross_rank(close)"), {}));
  EXPECT_EQ(expression_text(reversed(graph_of("arith_sub(close, open)"), {}).value()),
            "arith_sub(open, close)");
  EXPECT_EQ(
      expression_text(reversed(graph_of("ts_min(arith_sub(high, low), 5)"), {"arith_neg"}).value()),
      "arith_neg(ts_min(arith_sub(high, low), 5))");
}

TEST_F(GraphEdits, AReversedSignalIsTheNegativeOne) {
  SyntheticUniverseOptions options;
  options.instruments = 5;
  options.days = 200;
  const Evaluator evaluator(with_own_columns(make_synthetic_universe(options)));
  const RepairMaterial material = material_of(evaluator.vocabulary());
  const Vocabulary everything = everything_of(with_own_columns(make_synthetic_universe(options)));
  RandomGraphOptions shape;
  shape.max_window = 20;
  for (std::uint64_t seed = 1; seed <= 300; ++seed) {
    genetic::TwisterGenerator generator{genetic::MersenneTwister(seed)};
    shape.constant_share = seed % 2 == 0 ? 0.3 : 0.0;
    const Value graph =
        random_graph(generator, seed % 2 == 0 ? everything : evaluator.vocabulary(), shape);
    const auto opposite = reversed(graph, material.functions);
    ASSERT_TRUE(opposite) << seed;
    const auto signal = [&evaluator](const Value& of) {
      return evaluator.signal(compile_expression(of, evaluator.vocabulary()));
    };
    const Panel before = signal(graph);
    const Panel after = signal(*opposite);
    // Where sums cancel, what is left is rounding, and a sign or a quotient of it anything: such
    // entries are few.
    Eigen::Index unlike = 0;
    for (Eigen::Index i = 0; i < before.size(); ++i) {
      const double x = before.data()[i];
      const double y = after.data()[i];
      if (std::isnan(x) && std::isnan(y)) continue;
      if (!(std::abs(x + y) <= 1e-9 * std::max(1.0, std::abs(x)))) ++unlike;
    }
    EXPECT_LE(unlike, before.size() / 50)
        << seed << ": " << expression_text(graph) << " and " << expression_text(*opposite);
  }
}

TEST_F(GraphEdits, MoveWindowsAlongTheirList) {
  const auto moved = [this](const char* before, int steps) {
    return expression_text(with_other_windows(graph_of(before), vocabulary_.windows, steps));
  };
  EXPECT_EQ(moved("ts_mean(ts_delta(close, 2), 20)", 2), "ts_mean(ts_delta(close, 5), 60)");
  EXPECT_EQ(moved("ts_mean(ts_delta(close, 60), 120)", 2), "ts_mean(ts_delta(close, 120), 120)");
  EXPECT_EQ(moved("ts_mean(ts_delta(close, 3), 20)", -2), "ts_mean(ts_delta(close, 2), 10)");
  EXPECT_EQ(moved("ts_mean(close, 7)", 2), "ts_mean(close, 16)");
  EXPECT_EQ(moved("ts_mean(close, 7)", -2), "ts_mean(close, 3)");
  EXPECT_EQ(moved("ts_mean(close, 1)", -2), "ts_mean(close, 1)");
  EXPECT_EQ(moved("ts_mean(close, 100)", 2), "ts_mean(close, 120)");
  EXPECT_EQ(moved("ts_mean(close, 250)", 2), "ts_mean(close, 250)");
  EXPECT_EQ(moved("cross_rank(close)", 2), "cross_rank(close)");
}

TEST_F(GraphEdits, CutWhatIsInnermost) {
  const auto cut = [](const char* before, int depth) {
    return expression_text(cut_to_depth(graph_of(before), depth));
  };
  const char* graph = "cross_rank(arith_sub(ts_mean(ts_delta(close, 5), 20), open))";
  EXPECT_EQ(cut(graph, 5), graph);
  EXPECT_EQ(cut(graph, 4), "cross_rank(arith_sub(ts_mean(close, 20), open))");
  EXPECT_EQ(cut(graph, 3), "cross_rank(arith_sub(close, open))");
  EXPECT_EQ(cut(graph, 2), "cross_rank(close)");
  EXPECT_EQ(cut(graph, 1), "close");
}

TEST_F(GraphEdits, GoAroundConstants) {
  const Vocabulary rich = rich_vocabulary();
  const auto graph = [&rich](const char* formula) { return parse_formula(formula, rich); };
  EXPECT_EQ(expression_text(cut_to_depth(graph("2 * ts_mean(close, 5)"), 1)), "close");
  EXPECT_EQ(expression_text(cut_to_depth(graph("rank(2 * ts_mean(close, 5))"), 3)),
            "cross_rank(arith_mul(2, close))");
  EXPECT_EQ(expression_text(reversed(graph("2 * rank(close)"), {"arith_neg"}).value()),
            "arith_mul(-2, cross_rank(close))");
}

TEST_F(GraphEdits, TurnComparisonsIntoDifferences) {
  EXPECT_EQ(expression_text(with_differences(
                graph_of("ts_mean(comparison_gt(close, comparison_lt(high, low)), 5)"))),
            "ts_mean(arith_sub(close, arith_sub(low, high)), 5)");
}

TEST_F(GraphEdits, TellWhatIsAtOneScale) {
  EXPECT_TRUE(is_scaled(graph_of("cross_rank(close)")));
  EXPECT_TRUE(is_scaled(graph_of("cross_zscore(close)")));
  EXPECT_TRUE(is_scaled(graph_of("cross_scale(close)")));
  EXPECT_FALSE(is_scaled(graph_of("cross_demean(close)")));
  EXPECT_FALSE(is_scaled(graph_of("close")));
}

TEST_F(GraphEdits, KeepTheRulesAndWhatCameIn) {
  const Vocabulary rich = rich_vocabulary();
  for (std::uint64_t seed = 1; seed <= 1500; ++seed) {
    genetic::TwisterGenerator generator{genetic::MersenneTwister(seed)};
    // Every third one with constants, groups, numbers and functions of every kind.
    const bool is_rich = seed % 3 == 0;
    const Value graph = is_rich ? random_graph(generator, rich, rich_options())
                                : random_graph(generator, vocabulary_);
    const std::string before = genetic::canonical_graph_string(graph);
    std::vector<Value> edited = {with_other_windows(graph, vocabulary_.windows, 2),
                                 with_differences(graph)};
    for (int depth = 1; depth <= 5; ++depth) {
      edited.push_back(cut_to_depth(graph, depth));
      EXPECT_LE(measure_graph(edited.back()).depth, depth) << seed;
    }
    edited.push_back(reversed(graph, material_.functions).value());
    for (const Value& after : edited)
      EXPECT_NO_THROW(static_cast<void>(check_graph(after, rich))) << seed;
    EXPECT_EQ(genetic::canonical_graph_string(graph), before) << seed;
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
