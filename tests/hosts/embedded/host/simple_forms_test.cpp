// The simple forms: what they are in a small vocabulary, and that each is offered until it was
// evaluated. Method: prices with a volume of which few words are drawn, and an archive that is told
// of what was offered.
#include "hosts/embedded/host/simple_forms.hpp"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "hosts/embedded/host/simple_form_offers.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "hosts/embedded/vocabulary/unit_check.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;
using ::testing::UnorderedElementsAre;

constexpr GraphLimits kLimits{5, 25, 120};

// Only these words are drawn.
Vocabulary narrowed(const std::set<std::string>& words) {
  Vocabulary vocabulary = make_vocabulary(small_universe());
  for (FeatureEntry& feature : vocabulary.features)
    feature.weight = words.contains(feature.name) ? 1.0 : 0.0;
  for (FunctionEntry& function : vocabulary.functions)
    function.weight = words.contains(std::string(function.name)) ? 1.0 : 0.0;
  vocabulary.windows = {4, 30};
  return vocabulary;
}

std::vector<std::string> texts_of(const Vocabulary& vocabulary) {
  const GraphMaking making(vocabulary, {.simplifies = true, .keeps_units = true});
  std::vector<std::string> texts;
  for (const Value& graph : simple_forms(vocabulary, kLimits, making))
    texts.push_back(expression_text(graph));
  return texts;
}

TEST(SimpleForms, AreAllThatAFewWordsMake) {
  EXPECT_THAT(
      texts_of(narrowed({"returns", "volume", "ts_max", "ts_correlation", "cross_rank"})),
      UnorderedElementsAre("cross_rank(ts_max(returns, 4))", "cross_rank(ts_max(returns, 30))",
                           "cross_rank(ts_correlation(returns, volume, 4))",
                           "cross_rank(ts_correlation(returns, volume, 30))"))
      << "without a division; of the windows 4 is nearest to 5, and 30 to 20 and 60";
}

TEST(SimpleForms, TellNoPricesNorSharesAndMixNoUnits) {
  const Vocabulary vocabulary = rich_vocabulary();
  const GraphMaking making(vocabulary, {.simplifies = true, .keeps_units = true});
  const std::vector<Value> forms = simple_forms(vocabulary, kLimits, making);
  std::set<std::string> texts;
  for (const Value& graph : forms) {
    const std::string text = expression_text(graph);
    SCOPED_TRACE(text);
    EXPECT_TRUE(texts.insert(text).second);
    EXPECT_TRUE(text.starts_with("cross_rank("));
    EXPECT_EQ(units_of_graph(graph, vocabulary).mixed_calls, 0U);
    EXPECT_NO_THROW(static_cast<void>(check_graph(graph, vocabulary, kLimits)));
  }
  EXPECT_TRUE(texts.contains("cross_rank(ts_zscore(close, 20))"));
  EXPECT_TRUE(texts.contains("cross_rank(ts_correlation(range, volume, 60))"));
  EXPECT_TRUE(texts.contains("cross_rank(arith_div(volume, ts_mean(volume, 5)))"));
  EXPECT_TRUE(texts.contains("cross_rank(ts_mean(arith_div(close, open), 5))"));
  EXPECT_FALSE(texts.contains("cross_rank(ts_mean(close, 20))"));
  EXPECT_FALSE(texts.contains("cross_rank(ts_covariance(close, volume, 20))"));
}

TEST(SimpleForms, AreFewEnoughToGoThrough) {
  EXPECT_EQ(texts_of(make_vocabulary(small_universe())).size(), 468U)
      << "the number in docs/search.md";
}

TEST(SimpleForms, WithoutRanksTheyStandAlone) {
  const Vocabulary vocabulary = narrowed({"returns", "ts_mean"});
  EXPECT_THAT(texts_of(vocabulary),
              UnorderedElementsAre("ts_mean(returns, 4)", "ts_mean(returns, 30)"));
}

class SimpleFormOffersTest : public ContextTest {
 protected:
  genetic::TwisterGenerators generators_;
  std::shared_ptr<genetic::RandomGenerator> generator_ = generators_.seeded(Value(5));
  SignalArchive archive_;
  std::vector<Value> forms_{ranked("close"), ranked("returns"), ranked("log_returns")};
  SimpleFormOffers offers_{forms_, archive_, lineage_};
};

TEST_F(SimpleFormOffersTest, EachIsOfferedOnceABatch) {
  std::set<std::string> offered;
  for (int i = 0; i < 40; ++i) {
    const auto graph = offers_.next(*generator_);
    if (!graph) continue;
    EXPECT_TRUE(offered.insert(expression_text(*graph)).second);
  }
  EXPECT_EQ(offered.size(), 3U);
  lineage_.note_batch(genetic::List());
  EXPECT_TRUE(offers_.next(*generator_)) << "none was evaluated";
}

TEST_F(SimpleFormOffersTest, WhatWasEvaluatedIsOfferedNoMore) {
  for (const Value& graph : forms_)
    archive_.add_repeat(graph, CandidateSource::Random);
  EXPECT_FALSE(offers_.is_empty());
  EXPECT_FALSE(offers_.next(*generator_));
  EXPECT_TRUE(offers_.is_empty());
}

}  // namespace
}  // namespace varnholt::embedded::test
