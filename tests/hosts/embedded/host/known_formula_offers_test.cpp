// The known formulas: each can be read, keeps units apart, is offered as it is until it has been in
// a batch, and mutated after that. Method: the vocabulary of prices with all columns, and batches
// that are told by hand.
#include "hosts/embedded/host/known_formula_offers.hpp"

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "hosts/embedded/vocabulary/known_formulas.hpp"
#include "hosts/embedded/vocabulary/unit_check.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;
using ::testing::Contains;
using ::testing::Not;

constexpr GraphLimits kLimits{5, 25, 120};

GraphMaking usual_making(const Vocabulary& vocabulary) {
  return {vocabulary, {.simplifies = true, .keeps_units = true, .drops_sign = true}};
}

std::vector<std::string> names_of(const std::vector<KnownGraph>& graphs) {
  std::vector<std::string> names;
  for (const KnownGraph& known : graphs)
    names.push_back(known.name);
  return names;
}

TEST(KnownFormulas, AreReadWithAllColumnsAndMixNoUnits) {
  const Vocabulary vocabulary = rich_vocabulary();
  std::set<std::string> names;
  for (const KnownFormula& known : known_formulas()) {
    SCOPED_TRACE(std::string(known.name));
    EXPECT_TRUE(names.emplace(known.name).second) << "a name stands once";
    EXPECT_FALSE(known.meaning.empty());
    const Value graph = parse_formula(known.formula, vocabulary);
    EXPECT_EQ(units_of_graph(graph, vocabulary).mixed_calls, 0U);
  }
  const auto graphs = known_graphs(vocabulary, kLimits, usual_making(vocabulary));
  EXPECT_EQ(graphs.size(), known_formulas().size())
      << "all differ, and fit into the usual limits once their sign is dropped";
}

TEST(KnownFormulas, WhatThePricesLackIsLeftOut) {
  MarketData closes = small_universe();
  closes.open.reset();
  closes.high.reset();
  closes.low.reset();
  closes.volume.reset();
  const Vocabulary vocabulary = make_vocabulary(closes);
  const auto names = names_of(known_graphs(vocabulary, kLimits, usual_making(vocabulary)));
  EXPECT_THAT(names, Contains("week_reversal"));
  EXPECT_THAT(names, Not(Contains("attention")));
  EXPECT_THAT(names, Not(Contains("overnight_gap")));
  EXPECT_THAT(names, Not(Contains("below_vwap")));
  EXPECT_THAT(names, Not(Contains("skewness"))) << "its function is drawn only when switched on";
}

TEST(KnownFormulas, WhatIsNotDrawnOrTooLargeIsLeftOut) {
  Vocabulary vocabulary = rich_vocabulary();
  for (FunctionEntry& function : vocabulary.functions) {
    if (function.name == "cross_rank") function.weight = 0.0;
  }
  const auto graphs = known_graphs(vocabulary, kLimits, usual_making(vocabulary));
  EXPECT_THAT(names_of(graphs), Not(Contains("momentum")));
  EXPECT_THAT(names_of(graphs), Contains("day_reversal"));
  const auto shallow = known_graphs(vocabulary, {2, 25, 120}, usual_making(vocabulary));
  EXPECT_THAT(names_of(shallow), ::testing::ElementsAre("day_reversal", "own_band", "own_calm"));
}

TEST(KnownFormulas, WindowsAreTheNearestThatAreDrawn) {
  Vocabulary vocabulary = rich_vocabulary();
  vocabulary.windows = {4, 30, 250};
  const auto graphs = known_graphs(vocabulary, {5, 25, 100}, usual_making(vocabulary));
  const auto text_of = [&graphs](const char* name) {
    const auto found = std::find_if(graphs.begin(), graphs.end(),
                                    [name](const KnownGraph& known) { return known.name == name; });
    return found == graphs.end() ? std::string() : expression_text(found->graph);
  };
  EXPECT_EQ(text_of("week_reversal"), "cross_rank(ts_sum(returns, 4))");
  EXPECT_EQ(text_of("near_high"), "cross_rank(arith_div(close, ts_max(close, 30)))");
  EXPECT_EQ(text_of("momentum"), "") << "the same as month_reversal by then";
  vocabulary.windows = {};
  EXPECT_THAT(names_of(known_graphs(vocabulary, kLimits, usual_making(vocabulary))),
              Not(Contains("week_reversal")));
}

class KnownFormulaOffersTest : public ContextTest {
 protected:
  std::string name_of(const Value& graph) {
    for (const KnownGraph& known : formulas_) {
      if (expression_text(known.graph) == expression_text(graph)) return known.name;
    }
    return {};
  }

  genetic::TwisterGenerators generators_;
  std::shared_ptr<genetic::RandomGenerator> generator_ = generators_.seeded(Value(5));
  const Vocabulary& vocabulary_ = evaluator_.vocabulary();
  GraphMaking making_ = usual_making(vocabulary_);
  SignalArchive archive_;
  RandomGraphOptions options_;
  GeneticOperators operators_{vocabulary_, kLimits, making_};
  MutationMaterial material_{vocabulary_, options_, &archive_};
  std::vector<KnownGraph> formulas_ = known_graphs(vocabulary_, kLimits, making_);
  KnownFormulaOffers offers_{formulas_, archive_, lineage_, operators_, material_};
};

TEST_F(KnownFormulaOffersTest, EachIsOfferedOnceABatchUntilItWasInOne) {
  std::set<std::string> offered;
  genetic::List batch;
  for (std::size_t i = 0; i < formulas_.size(); ++i) {
    const Value graph = offers_.next(generator_).value();
    EXPECT_TRUE(offered.insert(name_of(graph)).second);
    // The others only lend their parts.
    if (i < 3) batch.append(graph);
  }
  EXPECT_TRUE(offers_.has_untried());
  EXPECT_FALSE(offered.contains(""));
  EXPECT_EQ(name_of(offers_.next(generator_).value()), "") << "then it is a mutation";
  lineage_.note_batch(batch);
  offered.clear();
  for (std::size_t i = 3; i < formulas_.size(); ++i)
    offered.insert(name_of(offers_.next(generator_).value()));
  EXPECT_EQ(offered.size(), formulas_.size() - 3);
  EXPECT_FALSE(offered.contains(name_of(batch.at(0))));
  EXPECT_EQ(name_of(offers_.next(generator_).value()), "");
}

TEST_F(KnownFormulaOffersTest, TheLineageHasTheNameOfTheFormula) {
  const Value as_it_is = offers_.next(generator_).value();
  lineage_.note_batch(genetic::List{as_it_is});
  const GraphOrigin origin = lineage_.origin_of(as_it_is);
  EXPECT_EQ(origin.source, CandidateSource::Known);
  EXPECT_EQ(lineage_json(origin), R"({"formula":")" + name_of(as_it_is) + R"(","origin":"known"})");
  for (std::size_t i = 1; i < formulas_.size(); ++i)
    static_cast<void>(offers_.next(generator_));
  const Value mutated = offers_.next(generator_).value();
  lineage_.note_batch(genetic::List{mutated});
  const GraphOrigin of_mutated = lineage_.origin_of(mutated);
  EXPECT_EQ(of_mutated.origin, Origin::Bred);
  EXPECT_EQ(of_mutated.source, CandidateSource::Known);
  EXPECT_EQ(of_mutated.parents.size(), 1U);
  EXPECT_THAT(names_of(formulas_), Contains(of_mutated.formula));
}

TEST_F(KnownFormulaOffersTest, MutationsAreNewGraphsWithinTheLimits) {
  const Behaviour like_all{0.1, Eigen::ArrayXd::Constant(kProfileParts, 0.125)};
  genetic::List all;
  for (const KnownGraph& known : formulas_) {
    lineage_.note_formula(known.graph, known.name);
    archive_.add(known.graph, 5.0, like_all, CandidateSource::Known);
    all.append(known.graph);
  }
  lineage_.note_batch(all);
  EXPECT_FALSE(offers_.has_untried());
  std::set<std::string> seen;
  std::set<std::string> operators;
  for (int i = 0; i < 300; ++i) {
    const auto graph = offers_.next(generator_);
    if (!graph) continue;
    EXPECT_EQ(name_of(*graph), "");
    EXPECT_NO_THROW(static_cast<void>(check_graph(*graph, vocabulary_, kLimits)));
    EXPECT_FALSE(archive_.has_met(*graph));
    archive_.add(*graph, 5.0, like_all, CandidateSource::Known);
    seen.insert(expression_text(*graph));
    lineage_.note_batch(genetic::List{*graph});
    operators.insert(lineage_.origin_of(*graph).operators.at(0));
  }
  EXPECT_GT(seen.size(), 250U);
  EXPECT_EQ(operators,
            (std::set<std::string>{"point_mutation", "insert_mutation", "subtree_mutation"}));
}

}  // namespace
}  // namespace varnholt::embedded::test
