// The canonical form: the same value on every day, said in one way, by a graph that is no larger.
// Method: a table of formulas with their forms; the values of both on panels with gaps, ties,
// zeros and constant stretches; random graphs in which the steps have much to do; and formulas that
// only look alike, which stay apart.
#include "hosts/embedded/vocabulary/canonical_form.hpp"

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;

// Columns of numbers of either sign in the place of prices: the forms hold for any panels.
MarketData numbers(unsigned seed) {
  std::mt19937_64 engine(seed);
  MarketData data = make_synthetic_universe({.instruments = 7, .days = 70, .factors = 1});
  const auto fill = [&engine](Panel& panel) {
    panel = random_panel(engine, panel.rows(), panel.cols(), 0.08);
    for (Eigen::Index column = 0; column < panel.cols(); ++column) {
      const auto first = static_cast<Eigen::Index>(engine() % 40);
      panel.col(column).segment(first, 12).setConstant(panel(first, column));  // NaN among them.
    }
    for (double& value : panel.reshaped()) {
      if (engine() % 15 == 0) value = engine() % 2 == 0 ? 0.0 : -0.0;
    }
    panel.row(20) = panel(20, 3);
  };
  for (Panel* panel : {&data.close, &data.open.value(), &data.high.value(), &data.low.value(),
                       &data.volume.value()}) {
    fill(*panel);
  }
  return with_own_columns(std::move(data));
}

// The same bits but for the sign of a zero.
testing::AssertionResult have_one_value(const Panel& form, const Panel& graph) {
  for (Eigen::Index column = 0; column < graph.cols(); ++column) {
    for (Eigen::Index day = 0; day < graph.rows(); ++day) {
      const double actual = form(day, column);
      const double expected = graph(day, column);
      if (same_bits(actual, expected) || (actual == 0.0 && expected == 0.0)) continue;
      return testing::AssertionFailure() << "day " << day << ", column " << column << ": " << actual
                                         << " where " << expected << " was";
    }
  }
  return testing::AssertionSuccess();
}

struct Form {
  const char* formula;
  const char* form;
};

class CanonicalForm : public testing::Test {
 protected:
  [[nodiscard]] Value parsed(const std::string& formula) const {
    return parse_formula(formula, vocabulary_);
  }
  [[nodiscard]] std::string form(const std::string& formula,
                                 const CanonicalOptions& options = {}) const {
    return expression_text(canonical_form(parsed(formula), vocabulary_, options));
  }
  void expect_form(const Form& expected, const CanonicalOptions& options = {}) const {
    SCOPED_TRACE(expected.formula);
    EXPECT_EQ(form(expected.formula, options), expression_text(parsed(expected.form)));
    EXPECT_EQ(form(expected.form, options), expression_text(parsed(expected.form)));
  }
  static void expect_one_value(const Value& graph, const Value& form, double least_known_share,
                               unsigned seed) {
    const Evaluator evaluator(numbers(seed), {.book = {.least_known_share = least_known_share}});
    EXPECT_TRUE(have_one_value(evaluator.signal(evaluator.compile(form)),
                               evaluator.signal(evaluator.compile(graph))));
  }

  Vocabulary vocabulary_ = everything_of(numbers(1));
};

constexpr Form kForms[] = {
    // What changes nothing.
    {"close + 0", "close"},
    {"0 + close", "close"},
    {"close - 0", "close"},
    {"close * 1", "close"},
    {"1 * close", "close"},
    {"close / 1", "close"},
    {"close ^ 1", "close"},
    {"signedpower(close, 1)", "close"},
    {"rank((close + 0) * 1)", "rank(close)"},
    // Constants and signs.
    {"close - -2", "2 + close"},
    {"close + -2", "close - 2"},
    {"-2 + close", "close - 2"},
    {"-1 * close", "-close"},
    {"close * -1", "-close"},
    {"close / -1", "-close"},
    {"0 - close", "-close"},
    {"-(-close)", "close"},
    {"-(close - open)", "open - close"},
    {"-(2 * close)", "-2 * close"},
    {"-(close / 2)", "close / -2"},
    {"-(2 / close)", "-2 / close"},
    {"-(close + 2)", "-2 - close"},
    {"-(close - 2)", "2 - close"},
    {"2 * -close", "-2 * close"},
    {"-close * 2", "-2 * close"},
    {"-close / 2", "close / -2"},
    {"2 / -close", "-2 / close"},
    // Negations of panels.
    {"close + -open", "close - open"},
    {"-close + open", "open - close"},
    {"close - -open", "close + open"},
    {"-close + -open", "-(close + open)"},
    {"-close - -open", "open - close"},
    {"-close * -open", "close * open"},
    {"-close / -open", "close / open"},
    {"covariance(-close, -open, 5)", "covariance(close, open, 5)"},
    {"ts_mean(-close, 5)", "-ts_mean(close, 5)"},
    {"-ts_mean(close - open, 5)", "ts_mean(open - close, 5)"},
    {"-ts_sum(cross_zscore(close - open), 5)", "ts_sum(cross_zscore(open - close), 5)"},
    {"-ts_delta(2 * close, 5)", "ts_delta(-2 * close, 5)"},
    {"-ts_mean(-cross_demean(close), 5)", "ts_mean(cross_demean(close), 5)"},
    {"arith_log(-close)", "-arith_log(close)"},
    {"sign(-close)", "-sign(close)"},
    {"tanh(-close)", "-tanh(close)"},
    {"cross_demean(-close)", "-cross_demean(close)"},
    {"scale(-close)", "-scale(close)"},
    {"winsorize(-close, 2)", "-winsorize(close, 2)"},
    {"zscore(-close)", "-zscore(close)"},
    {"group_demean(-close, sector)", "-group_demean(close, sector)"},
    {"group_zscore(-close, sector)", "-group_zscore(close, sector)"},
    {"decay_linear(-close, 5)", "-decay_linear(close, 5)"},
    {"delay(-close, 5)", "-delay(close, 5)"},
    {"delta(-close, 5)", "-delta(close, 5)"},
    {"ema(-close, 5)", "-ema(close, 5)"},
    {"ts_skew(-close, 5)", "-ts_skew(close, 5)"},
    {"ts_sum(-close, 5)", "-ts_sum(close, 5)"},
    {"ts_zscore(-close, 5)", "-ts_zscore(close, 5)"},
    {"ts_min(-close, 5)", "-ts_max(close, 5)"},
    {"ts_max(-close, 5)", "-ts_min(close, 5)"},
    {"ts_argmin(-close, 5)", "ts_argmax(close, 5)"},
    {"ts_argmax(-close, 5)", "ts_argmin(close, 5)"},
    {"min(-close, -open)", "-max(close, open)"},
    {"max(-close, -open)", "-min(close, open)"},
    {"abs(-close)", "abs(close)"},
    {"ts_std(-close, 5)", "ts_std(close, 5)"},
    {"ts_kurtosis(-close, 5)", "ts_kurtosis(close, 5)"},
    {"abs(open - close)", "abs(close - open)"},
    {"ts_std(open - close, 5)", "ts_std(close - open, 5)"},
    {"abs(-open - close)", "abs(-open - close)"},
    // The second time.
    {"rank(rank(close))", "rank(close)"},
    {"group_rank(group_rank(close, sector), sector)", "group_rank(close, sector)"},
    {"abs(abs(close))", "abs(close)"},
    {"sign(sign(close))", "sign(close)"},
    {"abs(ts_std(close, 5))", "ts_std(close, 5)"},
    {"abs(close > open)", "close > open"},
    {"sign(close == open)", "close == open"},
    // Extremes.
    {"min(close, close)", "close"},
    {"max(close, max(open, close))", "max(close, open)"},
    {"min(min(close, open), open)", "min(close, open)"},
    {"max(1, max(close, 2))", "max(2, close)"},
    {"min(min(1, close), 2)", "min(1, close)"},
    // Windows.
    {"ts_mean(close, 1)", "close"},
    {"ts_sum(close, 1)", "close"},
    {"ts_min(close, 1)", "close"},
    {"ts_max(close, 1)", "close"},
    {"decay_linear(close, 1)", "close"},
    {"ema(close, 1)", "close"},
    {"product(close, 1)", "close"},
    {"quantile(close, 0.3, 1)", "close"},
    {"delay(delay(close, 3), 4)", "delay(close, 7)"},
    // In order.
    {"open + close", "close + open"},
    {"open * close", "close * open"},
    {"close * 2", "2 * close"},
    {"min(open, close)", "min(close, open)"},
    {"max(open, close)", "max(close, open)"},
    {"open == close", "close == open"},
    {"open != close", "close != open"},
    {"open and close", "close and open"},
    {"open or close", "close or open"},
    {"covariance(open, close, 5)", "covariance(close, open, 5)"},
    {"correlation(open, close, 5)", "correlation(close, open, 5)"},
    {"open < close", "close > open"},
    {"open <= close", "close >= open"},
    {"ts_mean(close, 5) + ts_mean(close, 3)", "ts_mean(close, 3) + ts_mean(close, 5)"},
};

TEST_F(CanonicalForm, IsWhatTheTableSays) {
  for (const Form& expected : kForms)
    expect_form(expected);
}

TEST_F(CanonicalForm, HasTheSameValueForEveryLineOfTheTable) {
  for (const double least_known_share : {1.0, 0.8, 0.3}) {
    for (const unsigned seed : {1U, 2U, 3U}) {
      const Evaluator evaluator(numbers(seed), {.book = {.least_known_share = least_known_share}});
      for (const Form& pair : kForms) {
        SCOPED_TRACE(pair.formula);
        EXPECT_TRUE(have_one_value(evaluator.signal(evaluator.compile(parsed(pair.form))),
                                   evaluator.signal(evaluator.compile(parsed(pair.formula)))));
      }
    }
  }
}

// These would round otherwise, or are not known on the same days.
TEST_F(CanonicalForm, LeavesWhatOnlyLooksAlike) {
  for (const char* formula :
       {"1 + (2 + close)", "2 * (3 * close)", "-rank(close)", "rank(-close)", "ts_rank(-close, 5)",
        "demean(demean(close))", "zscore(zscore(close))", "scale(scale(close))",
        "ts_mean(ts_mean(close, 3), 4)", "close - close", "close / close", "0 * close",
        "close ? open : open", "close / 2", "ts_delta(close, 1)", "open / close", "open - close",
        "group_rank(group_rank(close, sector), industry)", "delay(delta(close, 3), 4)"}) {
    SCOPED_TRACE(formula);
    EXPECT_EQ(form(formula), expression_text(parsed(formula)));
  }
}

TEST_F(CanonicalForm, MergesExtremesWhereEveryDayOfTheWindowsMustBeKnown) {
  const Form maxima = {"ts_max(ts_max(close, 5), 4)", "ts_max(close, 8)"};
  const Form minima = {"ts_min(ts_min(close, 2), 3)", "ts_min(close, 4)"};
  expect_form(maxima);
  expect_form(minima);
  // Four fifths of 8 days are 7, of 2, 3 and 4 days all of them.
  EXPECT_EQ(form(maxima.formula, {.least_known_share = 0.8}),
            expression_text(parsed(maxima.formula)));
  expect_form(minima, {.least_known_share = 0.8});
  for (const unsigned seed : {1U, 2U, 3U}) {
    expect_one_value(parsed(maxima.formula), parsed(maxima.form), 1.0, seed);
    expect_one_value(parsed(minima.formula), parsed(minima.form), 1.0, seed);
    expect_one_value(parsed(minima.formula), parsed(minima.form), 0.8, seed);
  }
  // What is left apart would have another value.
  const Evaluator evaluator(numbers(1), {.book = {.least_known_share = 0.5}});
  EXPECT_FALSE(have_one_value(evaluator.signal(evaluator.compile(parsed(maxima.form))),
                              evaluator.signal(evaluator.compile(parsed(maxima.formula)))));
}

TEST_F(CanonicalForm, MakesNoWindowLongerThanTheLongest) {
  EXPECT_EQ(form("delay(delay(close, 3), 4)", {.max_window = 7}), "ts_delay(close, 7)");
  EXPECT_EQ(form("delay(delay(close, 3), 4)", {.max_window = 6}),
            "ts_delay(ts_delay(close, 3), 4)");
  EXPECT_EQ(form("ts_max(ts_max(close, 3), 4)", {.max_window = 5}), "ts_max(ts_max(close, 3), 4)");
}

TEST_F(CanonicalForm, PutsInNoFunctionThatIsSwitchedOff) {
  for (FunctionEntry& function : vocabulary_.functions) {
    for (const char* off : {"arith_neg", "arith_sub", "comparison_gt", "ts_max"}) {
      if (function.name == off) function.weight = 0.0;
    }
  }
  EXPECT_EQ(form("-1 * close"), "arith_mul(-1, close)");
  EXPECT_EQ(form("close + -2"), "arith_add(-2, close)");
  EXPECT_EQ(form("open < close"), "comparison_lt(open, close)");
  EXPECT_EQ(form("ts_min(-close, 5)"), "ts_min(arith_neg(close), 5)");
}

TEST_F(CanonicalForm, SharesNothingWithTheGraph) {
  const Value graph = parsed("open + close");
  const Value form = canonical_form(graph, vocabulary_);
  form.mapping().set(Value("node"), Value("arith_sub"));
  form.mapping().at(Value("children")).list().set(0, Value(1));
  EXPECT_EQ(expression_text(graph), "arith_add(open, close)");
}

// Graphs in which the steps have much to do.
Value tangled(genetic::TwisterGenerator& generator, const Vocabulary& vocabulary) {
  RandomGraphOptions options;
  options.max_depth = 7;
  options.max_nodes = 40;
  options.max_window = 5;
  options.constant_share = 0.3;
  return random_graph(generator, vocabulary, options);
}

TEST_F(CanonicalForm, OfRandomGraphsHasTheirValueAndIsNoLarger) {
  vocabulary_.windows = {1, 2, 3, 5};
  vocabulary_.constants = {1.0, 2.0};
  for (FunctionEntry& function : vocabulary_.functions) {
    for (const char* often :
         {"arith_neg", "arith_sub", "arith_add", "arith_mul", "arith_div", "arith_abs", "arith_max",
          "ts_delay", "ts_max", "ts_min", "ts_std", "comparison_lt"}) {
      if (function.name == often) function.weight = 8.0;
    }
  }
  genetic::TwisterGenerator generator{genetic::MersenneTwister(17)};
  const double shares[] = {1.0, 0.8, 0.4};
  std::vector<Evaluator> evaluators;
  for (const double share : shares)
    evaluators.emplace_back(numbers(4), EvaluatorOptions{.book = {.least_known_share = share}});
  int changed = 0;
  for (int i = 0; i < 900; ++i) {
    const auto which = static_cast<std::size_t>(i % 3);
    const Value graph = tangled(generator, vocabulary_);
    const CanonicalOptions options{7, shares[which]};
    const Value form = canonical_form(graph, vocabulary_, options);
    SCOPED_TRACE(expression_text(graph) + "\n" + expression_text(form));
    const GraphShape before = measure_graph(graph);
    const GraphShape after = check_graph(form, vocabulary_, {.max_window = 7});
    EXPECT_LE(after.node_count, before.node_count);
    EXPECT_LE(after.depth, before.depth);
    EXPECT_EQ(expression_text(canonical_form(form, vocabulary_, options)), expression_text(form));
    const Evaluator& evaluator = evaluators[which];
    ASSERT_TRUE(have_one_value(evaluator.signal(evaluator.compile(form)),
                               evaluator.signal(evaluator.compile(graph))));
    changed += expression_text(form) != expression_text(graph) ? 1 : 0;
  }
  EXPECT_GT(changed, 500);
}

}  // namespace
}  // namespace varnholt::embedded::test
