// What the user settles about the vocabulary: weights, windows, constants, complexity, formulas.
// Method: each setting against the vocabulary that comes of it, and graphs that are drawn from it.
#include "hosts/embedded/vocabulary/vocabulary_settings.hpp"

#include <string>

#include <gmock/gmock.h>

#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"

namespace varnholt::embedded::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

MarketData market(Eigen::Index instruments = 3) {
  return with_own_columns(
      make_synthetic_universe({.instruments = instruments, .days = 30, .factors = 1}));
}

double weight(const Vocabulary& vocabulary, std::string_view function) {
  return vocabulary.find_function(function)->weight;
}

TEST(VocabularySettings, ThatSayNothingChangeNothing) {
  const Vocabulary usual = make_vocabulary(market());
  const Vocabulary settled = make_vocabulary(market(), VocabularySettings());
  for (const FunctionEntry& function : usual.functions)
    EXPECT_EQ(weight(settled, function.name), function.weight) << function.name;
  EXPECT_EQ(settled.windows, usual.windows);
  EXPECT_EQ(settled.constants, usual.constants);
  EXPECT_TRUE(settled.formulas.empty());
  EXPECT_EQ(settings_mapping({}).size(), 0U);
}

TEST(VocabularySettings, SwitchAndWeighFunctionsFamiliesAndFeatures) {
  VocabularySettings settings;
  settings.families = {{"group", true}, {"comparison", false}, {"ts", 2.0}};
  settings.functions = {
      {"ts_mean", 7.0}, {"ts_sum", false}, {"comparison_gt", true}, {"arith_power", true}};
  settings.features = {{"volume", false}, {"close", 4.0}};
  const Vocabulary settled = make_vocabulary(market(), settings);
  EXPECT_EQ(weight(settled, "group_rank"), 1.0);
  EXPECT_EQ(weight(settled, "comparison_lt"), 0.0);
  EXPECT_EQ(weight(settled, "comparison_gt"), 0.5);
  EXPECT_EQ(weight(settled, "ts_mean"), 7.0);
  EXPECT_EQ(weight(settled, "ts_sum"), 0.0);
  EXPECT_EQ(weight(settled, "ts_std"), 2.0);
  EXPECT_EQ(weight(settled, "ts_delay"), 2.0);  // On by its family.
  EXPECT_EQ(weight(settled, "arith_power"), 0.5);
  EXPECT_EQ(weight(settled, "arith_ln"), 0.0);
  EXPECT_EQ(weight(settled, "cross_rank"), 2.0);
  EXPECT_EQ(settled.find_feature("volume")->weight, 0.0);
  EXPECT_EQ(settled.find_feature("close")->weight, 4.0);
  // What is off is still understood.
  EXPECT_NO_THROW((void)parse_formula("ts_sum(volume, 5)", settled));
}

// Prices with a column of numbers and one of names that are the owner's own.
MarketData owned_market() {
  MarketData data = market();
  data.features.emplace("short_interest", data.close * 0.01);
  data.groups.emplace("exchange", GroupPanel::Zero(data.close.rows(), data.close.cols()));
  return data;
}

TEST(VocabularySettings, OwnColumnsAreThereAndDrawnOnceTheyAreSwitchedOn) {
  const Vocabulary usual = make_vocabulary(owned_market(), VocabularySettings());
  ASSERT_NE(usual.find_feature("short_interest"), nullptr);
  EXPECT_EQ(usual.find_feature("short_interest")->weight, 0.0);
  EXPECT_NE(usual.find_group("exchange"), nullptr);
  VocabularySettings settings;
  settings.features = {{"short_interest", true}};
  EXPECT_EQ(make_vocabulary(owned_market(), settings).find_feature("short_interest")->weight,
            kOwnFeatureWeight);
  settings.features = {{"short_interest", 3.0}};
  EXPECT_EQ(make_vocabulary(owned_market(), settings).find_feature("short_interest")->weight, 3.0);

  // What fresh graphs are does not change by a column that is there.
  const auto graphs = [](const Vocabulary& vocabulary) {
    genetic::TwisterGenerator generator{genetic::MersenneTwister(11)};
    std::string text;
    for (int i = 0; i < 200; ++i)
      text += expression_text(random_graph(generator, vocabulary)) + "\n";
    return text;
  };
  EXPECT_EQ(graphs(usual), graphs(make_vocabulary(market(), VocabularySettings())));
  const std::string drawn = graphs(make_vocabulary(owned_market(), settings));
  EXPECT_THAT(drawn, HasSubstr("short_interest"));
}

TEST(VocabularySettings, OwnColumnsAreWordsOfFormulas) {
  const Vocabulary vocabulary = make_vocabulary(owned_market(), VocabularySettings());
  EXPECT_EQ(expression_text(parse_formula("group_rank(short_interest, exchange)", vocabulary)),
            "group_rank(short_interest, exchange)");
  EXPECT_THROW((void)parse_formula("rank(short_interest)", make_vocabulary(market())),
               FormulaError);
}

std::string refusal(const MarketData& data, const VocabularySettings& settings = {}) {
  try {
    (void)make_vocabulary(data, settings);
  } catch (const VocabularyError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(VocabularySettings, RefuseOwnColumnsWhoseNamesMeanSomethingElse) {
  for (const char* const taken :
       {"rank", "ts_mean", "returns", "range", "adv20", "and", "scale", "log"}) {
    EXPECT_FALSE(is_free_for_columns(taken)) << taken;
    MarketData data = market();
    data.features.emplace(taken, data.close);
    EXPECT_THAT(refusal(data),
                HasSubstr(std::string("the prices have a column \"") + taken +
                          "\", and in formulas that name means something else; give it another "
                          "with --columns feature:NAME=" +
                          taken + ", or leave it out with skip=" + taken));
  }
  for (const char* const free : {"short_interest", "advance", "sentiment", "sector"})
    EXPECT_TRUE(is_free_for_columns(free)) << free;
  MarketData data = market();
  data.groups.emplace("delta", GroupPanel::Zero(data.close.rows(), data.close.cols()));
  EXPECT_THAT(refusal(data), HasSubstr("--columns group:NAME=delta"));
  VocabularySettings settings;
  settings.features = {{"short_interest", true}};
  EXPECT_THAT(refusal(market(), settings),
              HasSubstr("[vocabulary.features] names \"short_interest\", which is no feature, and "
                        "no column of these prices"));
  settings.features.clear();
  settings.formulas = {{"exchange", "close"}};
  EXPECT_THAT(refusal(owned_market(), settings),
              HasSubstr("has the name of a column of these prices"));
}

TEST(VocabularySettings, OfOneInstrumentDrawNothingAcrossInstruments) {
  VocabularySettings settings;
  settings.families = {{"cross", true}, {"group", true}};
  const Vocabulary settled = make_vocabulary(market(1), settings);
  EXPECT_EQ(weight(settled, "cross_rank"), 0.0);
  EXPECT_EQ(weight(settled, "group_rank"), 0.0);
}

TEST(VocabularySettings, SettleWindowsConstantsAndFormulas) {
  VocabularySettings settings;
  settings.windows = {7, 21};
  settings.constants = {0.25, 3.0};
  settings.constant_share = 0.5;
  settings.formulas = {{"reversal", "-delta(close, 5)"}, {"twice", "reversal * 2"}};
  const Vocabulary settled = make_vocabulary(market(), settings);
  ASSERT_EQ(settled.formulas.size(), 2U);
  EXPECT_EQ(expression_text(settled.formulas[1].graph),
            "arith_mul(arith_neg(ts_delta(close, 5)), 2)");
  genetic::TwisterGenerator generator{genetic::MersenneTwister(3)};
  std::string all;
  for (int i = 0; i < 400; ++i)
    all += expression_text(random_graph(generator, settled, {.constant_share = 0.5})) + "\n";
  for (const char* there : {", 7)", ", 21)", ", 0.25)", ", 3)", "arith_neg(ts_delta(close, 5))"})
    EXPECT_THAT(all, HasSubstr(there));
  for (const char* gone : {", 20)", ", 60)", ", 0.5)"})
    EXPECT_THAT(all, testing::Not(HasSubstr(gone)));
  EXPECT_EQ(genetic::json_text(settings_mapping(settings)),
            R"x({"constant_share":0.5,"constants":[0.25,3.0],"formulas":{"reversal":)x"
            R"x("-delta(close, 5)","twice":"reversal * 2"},"windows":[7,21]})x");
}

TEST(VocabularySettings, RefuseWhatLeavesNothingOrCannotBeRead) {
  VocabularySettings settings;
  settings.formulas = {{"size", "rank(cap)"}};
  try {
    (void)make_vocabulary(make_synthetic_universe({.instruments = 2, .days = 3, .factors = 1}),
                          settings);
    FAIL();
  } catch (const VocabularyError& error) {
    EXPECT_THAT(error.text(), HasSubstr("the formula \"size\" of [vocabulary.formulas], line 1, "
                                        "column 6: \"cap\" is no feature"));
  }
  settings = {};
  for (const FeatureEntry& feature : all_features())
    settings.features.emplace(feature.name, false);
  EXPECT_THROW((void)make_vocabulary(market(), settings), VocabularyError);
}

TEST(VocabularySettings, CountNodesByTheirComplexity) {
  VocabularySettings settings;
  Vocabulary settled = make_vocabulary(market(), settings);
  const genetic::Value graph = parse_formula("rank(close) + ts_mean(rank(open), 5)", settled);
  EXPECT_EQ(graph_complexity(graph, settled), 7.0);
  settings.complexity = {{"cross_rank", 2.5}, {"arith_add", 0.0}};
  settled = make_vocabulary(market(), settings);
  EXPECT_EQ(graph_complexity(graph, settled), 7.0 + 2 * 1.5 - 1.0);
}

}  // namespace
}  // namespace varnholt::embedded::test
