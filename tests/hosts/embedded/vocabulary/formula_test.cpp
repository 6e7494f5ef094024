// Formulas: each operator, name and rule of precedence, every error with its place and remedy, and
// whatever is printed is read as the same graph.
// Method: formulas against the calls that they stand for; errors against their whole text; a
// seeded loop over random graphs of everything.
#include "hosts/embedded/vocabulary/formula.hpp"

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/formula_words.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;
using testing::ElementsAre;
using testing::HasSubstr;

class Formula : public testing::Test {
 protected:
  // The graph as calls.
  std::string read(std::string_view formula) const {
    return expression_text(parse_formula(formula, vocabulary_));
  }

  std::string refusal(std::string_view formula, const GraphLimits& limits = {}) const {
    try {
      (void)parse_formula(formula, vocabulary_, limits);
    } catch (const FormulaError& error) {
      return error.text();
    }
    return "accepted";
  }

  Vocabulary vocabulary_ = rich_vocabulary();
};

TEST_F(Formula, IsWhatAQuantWrites) {
  EXPECT_EQ(read("-1 * cross_rank(ts_delta(close, 5)) / ts_std(returns, 20)"),
            "arith_div(arith_mul(-1, cross_rank(ts_delta(close, 5))), ts_std(returns, 20))");
  EXPECT_EQ(read("-1*RANK( Delta(Close,5) )\n\t/ stddev(returns, 20)"),
            "arith_div(arith_mul(-1, cross_rank(ts_delta(close, 5))), ts_std(returns, 20))");
  EXPECT_EQ(read("close"), "close");
}

TEST_F(Formula, BindsItsOperatorsAsInArithmetic) {
  EXPECT_EQ(read("open - high - low"), "arith_sub(arith_sub(open, high), low)");
  EXPECT_EQ(read("open + high * low"), "arith_add(open, arith_mul(high, low))");
  EXPECT_EQ(read("(open + high) * low"), "arith_mul(arith_add(open, high), low)");
  EXPECT_EQ(read("open / high / low"), "arith_div(arith_div(open, high), low)");
  EXPECT_EQ(read("-open * high"), "arith_mul(arith_neg(open), high)");
  EXPECT_EQ(read("-open ^ 2"), "arith_neg(arith_power(open, 2))");
  EXPECT_EQ(read("open ^ high ^ low"), "arith_power(open, arith_power(high, low))");
  EXPECT_EQ(read("open ** -high"), "arith_power(open, arith_neg(high))");
  EXPECT_EQ(read("+open"), "open");
  EXPECT_EQ(read("open + 1 < high * 2"), "comparison_lt(arith_add(open, 1), arith_mul(high, 2))");
  EXPECT_EQ(read("open < high && low > close || open == close"),
            "logic_or(logic_and(comparison_lt(open, high), comparison_gt(low, close)), "
            "comparison_eq(open, close))");
  EXPECT_EQ(read("open <= high and not (low >= close) or open != close"),
            "logic_or(logic_and(comparison_le(open, high), logic_not(comparison_ge(low, close))), "
            "comparison_ne(open, close))");
  EXPECT_EQ(read("!open"), "logic_not(open)");
  EXPECT_EQ(read("open > 1 ? high : low > 2 ? close : -1"),
            "arith_if(comparison_gt(open, 1), high, arith_if(comparison_gt(low, 2), close, -1))");
}

TEST_F(Formula, DoesArithmeticOnNumbersAtOnce) {
  EXPECT_EQ(read("(1 - 0.25) * close"), "arith_mul(0.75, close)");
  EXPECT_EQ(read("close * 2 ^ 3 ^ 2"), "arith_mul(close, 512)");
  EXPECT_EQ(read("close * -(-2)"), "arith_mul(close, 2)");
  EXPECT_EQ(read("ts_mean(close, 2 * 10)"), "ts_mean(close, 20)");
  EXPECT_EQ(read("close * 1e-3 + .5"), "arith_add(arith_mul(close, 0.001), 0.5)");
  EXPECT_EQ(read("close + -0"), "arith_add(close, 0)");
}

TEST_F(Formula, KnowsOtherNamesAndAbbreviations) {
  EXPECT_EQ(read("Ts_ArgMax(SignedPower(close, 2), 5)"),
            "ts_argmax(arith_signed_power(close, 2), 5)");
  EXPECT_EQ(read("IndNeutralize(close, IndClass.Sector)"), "group_demean(close, sector)");
  EXPECT_EQ(read("group_rank(close, industry)"), "group_rank(close, industry)");
  EXPECT_EQ(read("scale(close)"), "cross_scale(close)");
  EXPECT_EQ(read("scale(close, 2)"), "arith_mul(2, cross_scale(close))");
  EXPECT_EQ(read("adv20"), "ts_mean(dollar_volume, 20)");
  EXPECT_EQ(read("adv(7)"), "ts_mean(dollar_volume, 7)");
  EXPECT_EQ(read("median(close, 9)"), "ts_quantile(close, 0.5, 9)");
  EXPECT_EQ(read("sqrt(volume)"), "arith_power(volume, 0.5)");
  EXPECT_EQ(read("winsorize(close, 3)"), "cross_winsorize(close, 3)");
  // The column, and where there is none the typical price.
  EXPECT_EQ(read("vwap"), "vwap");
  std::erase_if(vocabulary_.features,
                [](const FeatureEntry& entry) { return entry.name == "vwap"; });
  EXPECT_EQ(read("VWAP"), "arith_div(arith_add(arith_add(high, low), close), 3)");
}

TEST_F(Formula, EveryOtherNameIsOneOfSomethingElse) {
  for (const WordAlias& alias : word_aliases()) {
    EXPECT_EQ(alias.alias, in_lower_case(alias.alias));
    EXPECT_EQ(vocabulary_.find_function(alias.alias), nullptr) << alias.alias;
    EXPECT_EQ(vocabulary_.find_feature(alias.alias), nullptr) << alias.alias;
    EXPECT_TRUE(vocabulary_.find_function(alias.name) != nullptr ||
                vocabulary_.find_feature(alias.name) != nullptr)
        << alias.name;
  }
}

TEST_F(Formula, UsesTheFormulasOfTheUsersOwn) {
  vocabulary_.formulas.push_back({"reversal", parse_formula("-delta(close, 5)", vocabulary_), 1.0});
  const Value graph = parse_formula("reversal / rank(reversal)", vocabulary_);
  EXPECT_EQ(expression_text(graph),
            "arith_div(arith_neg(ts_delta(close, 5)), cross_rank(arith_neg(ts_delta(close, 5))))");
}

TEST_F(Formula, TellsThePlaceOfAMistake) {
  EXPECT_EQ(refusal("-1 * ts_meen(close, 5)"),
            "line 1, column 6: \"ts_meen\" is no function of this vocabulary; did you mean "
            "\"ts_mean\"?\n"
            "  -1 * ts_meen(close, 5)\n"
            "       ^");
  EXPECT_EQ(refusal("rank(close)\n  * (open -\n  )"),
            "line 3, column 3: \")\" stands where a value is expected; write a number, a feature, "
            "a function or a part in parentheses\n"
            "    )\n"
            "    ^");
  const std::string far = refusal(std::string(200, ' ') + "close @ open" + std::string(200, ' '));
  EXPECT_THAT(far, HasSubstr("line 1, column 207: \"@\" has no meaning here; write names"));
  EXPECT_THAT(far, HasSubstr("close @ open"));
  EXPECT_LT(far.size(), 400U);
}

TEST_F(Formula, TellsWhatIsWrongAndWhatToDo) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"", "column 1: there is no formula; write one, such as rank(close)"},
      {"2 + 3", "column 3: the formula is nothing but a number; write a feature"},
      {"clse", "column 1: \"clse\" is no feature of these market data; did you mean \"close\"?"},
      {"weight", "use one of close, returns"},
      {"rank", "\"rank\" is a function, and has no arguments here; write cross_rank(x)"},
      {"sector", "\"sector\" is a group, and stands where data are expected; use it as the last"},
      {"close(5)", "\"close\" is a feature, and takes no arguments; write an operator before"},
      {"rank(close", "column 5: the parenthesis is never closed; close it with )"},
      {"(close", "column 1: the parenthesis is never closed"},
      {"close)", "column 6: the parenthesis was never opened; remove it"},
      {"close open", "column 7: \"open\" does not follow from what stands before it; write an op"},
      {"close +", "column 8: the formula ends where a value is expected"},
      {"ts_mean(close)",
       "column 1: ts_mean takes 2 arguments, and some are missing; write "
       "ts_mean(x, n)"},
      {"ts_mean(close, 5, 6)", "column 17: ts_mean takes 2 arguments, and here is one more"},
      {"ts_mean(close, open)", "column 16: data stand where a window is expected; write a whole"},
      {"ts_mean(close, 2.5)", "column 16: 2.5 is no whole number of days; write 2"},
      {"ts_mean(close, 0)", "0 days are no window; write a whole number of days from 1 to 100000"},
      {"ts_mean(close, -1)", "-1 days are no window"},
      {"ts_mean(close, 1e9)", "1000000000 days are no window"},
      {"ts_mean(3, 5)", "column 1: ts_mean is given nothing but numbers; write the number that"},
      {"2 < 3", "comparison_lt is given nothing but numbers"},
      {"close / (1 / 0)", "column 12: the arithmetic on numbers has no finite result"},
      {"quantile(close, 2, 5)",
       "column 17: 2 is out of range; give ts_quantile a number from 0 "
       "to 1"},
      {"quantile(close, open, 5)", "data stand where a number is expected"},
      {"group_rank(close, size)",
       "column 19: \"size\" is no group of these market data; use one "
       "of industry, sector"},
      {"group_rank(close, 3)", "\"3\" is no group of these market data"},
      {"scale(close, 2, 3)", "\"scale\" is given 3 arguments; write scale(x, a)"},
      {"open < high < low", "column 13: two comparisons stand in a row; join them with &&"},
      {"open > 1 ? high", "column 16: a choice has no second half; write it as condition ? x : y"},
      {"close 2", "\"2\" does not follow"},
      {"2close", "column 2: the number ends here and something else begins; write an operator"},
      {"1e999 * close", "column 1: \"1e999\" is too large or too small"},
      {"close = open", "column 7: \"=\" has no meaning here"},
      {"cl\xc3\xb6se", "column 3: \""},
  };
  for (const auto& [formula, told] : cases)
    EXPECT_THAT(refusal(formula), HasSubstr(told));
  std::erase_if(vocabulary_.features, [](const FeatureEntry& entry) {
    return entry.name == "vwap" || entry.name == "high";
  });
  EXPECT_THAT(
      refusal("1 + vwap"),
      HasSubstr("column 5: \"vwap\" stands for (high + low + close) / 3, and \"high\" is no "
                "feature of these market data; use one of"));
  vocabulary_.groups.clear();
  EXPECT_THAT(refusal("group_rank(close, sector)"), HasSubstr("they have none; a column sector"));
}

TEST_F(Formula, KeepsToItsLimits) {
  const GraphLimits limits{3, 5, 20};
  EXPECT_EQ(refusal("rank(ts_mean(close, 20))", limits), "accepted");
  EXPECT_THAT(refusal("rank(rank(ts_mean(close, 20)))", limits),
              HasSubstr("column 1: the graph is deeper than 3 nodes; use fewer levels"));
  EXPECT_THAT(refusal("ts_mean(close, 20) + ts_mean(open, 5)", limits),
              HasSubstr("column 20: the graph has more than 5 nodes; use fewer nodes"));
  EXPECT_THAT(refusal("ts_mean(close, 21)", limits),
              HasSubstr("column 16: a window of 21 days is beyond the limit of 20 days"));
}

TEST_F(Formula, OfAnyLengthAndDepthEndsWell) {
  const auto repeated = [](const char* text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i)
      all += text;
    return all;
  };
  EXPECT_THAT(refusal(repeated("(", 100'000)), HasSubstr("nested deeper than 200 levels"));
  EXPECT_THAT(refusal(repeated("-", 100'000)), HasSubstr("nested deeper than 200 levels"));
  EXPECT_THAT(refusal(repeated("rank(", 100'000)), HasSubstr("nested deeper than 200 levels"));
  EXPECT_THAT(refusal(repeated("close^", 100'000)), HasSubstr("nested deeper than 200 levels"));
  EXPECT_THAT(refusal(repeated("close?1:", 100'000)), HasSubstr("nested deeper than 200 levels"));
  EXPECT_THAT(refusal(repeated("close+", 100'000)), HasSubstr("deeper than 100 nodes"));
  EXPECT_THAT(refusal(std::string(100'000, 'x')), HasSubstr("xxx...\" is no feature"));
}

TEST_F(Formula, WhatIsPrintedIsReadAsTheSameGraph) {
  for (std::uint64_t seed = 1; seed <= 3000; ++seed) {
    genetic::TwisterGenerator generator{genetic::MersenneTwister(seed)};
    const Value graph = random_graph(generator, vocabulary_, rich_options());
    const std::string text = expression_text(graph);
    ASSERT_EQ(genetic::canonical_graph_string(parse_formula(text, vocabulary_)),
              genetic::canonical_graph_string(graph))
        << "seed " << seed << ": " << text;
  }
}

TEST(FormulaLines, BeginAtTheLeftAndGoOnBelow) {
  const std::vector<FormulaLine> lines = formula_lines(
      "# a comment\n"
      "rank(close)   # and one more\n"
      "\n"
      "reversal = -1 *\n"
      "  delta(close, 5)\n"
      "# between\n"
      "  / open\n"
      "close == open\r\n");
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].name, "");
  EXPECT_EQ(lines[0].text, "rank(close)");
  EXPECT_EQ(lines[0].first_line, 2U);
  EXPECT_EQ(lines[1].name, "reversal");
  EXPECT_EQ(lines[1].text, "           -1 *\n  delta(close, 5)\n\n  / open");
  EXPECT_EQ(lines[1].first_line, 4U);
  EXPECT_EQ(lines[2].name, "");
  EXPECT_EQ(lines[2].text, "close == open");
  EXPECT_TRUE(formula_lines("").empty());
  EXPECT_TRUE(formula_lines("\n# nothing\n  \n").empty());
  // The place of a mistake is that of the file.
  try {
    (void)parse_formula("           -1 *\n  delta(close, x)\n", rich_vocabulary(), {}, 4);
    FAIL();
  } catch (const FormulaError& error) {
    EXPECT_THAT(error.text(), testing::StartsWith("line 5, column 16: "));
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
