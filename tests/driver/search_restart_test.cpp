// Goal: the search counts generations without progress and restarts when they are too many.
// Method: scripted scores; a restart shows in the number of graphs that the next batch asks for.
#include <limits>

#include <gmock/gmock.h>

#include "search_templates/genetic/value/mersenne_twister.hpp"
#include "tests/driver/search_harness.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

// Which of the generations after the first began with a restart.
std::vector<bool> restarts(const SearchHarness& search) {
  std::vector<bool> restarts;
  for (const std::string& line : search.draws())
    restarts.push_back(line == "(2)");
  if (!restarts.empty()) restarts.erase(restarts.begin());
  return restarts;
}

// The candidates get these scores in the order in which they are evaluated; however often one is
// scored, its score is the same.
void score_in_turn(SearchHarness& search, const std::vector<Value>& scores) {
  search.on_outcome = [scores, next = std::size_t{0}](const Value& graph) mutable {
    Mapping record = passing(graph);
    record.set("score", next < scores.size() ? scores[next] : Value(0.0));
    ++next;
    return record;
  };
  search.host.eliteness.on_score_candidate = [](const Value& candidate, const Mapping&) {
    return candidate.mapping().at("score");
  };
}

// The same where only the generation's best is looked for: the ranks for submission, which take no
// weights, are all 0.0.
void weighted_score_in_turn(SearchHarness& search, const std::vector<Value>& scores) {
  score_in_turn(search, scores);
  search.host.eliteness.on_score_candidate = [](const Value& candidate, const Mapping& keywords) {
    return keywords.contains("diversity_weight") ? candidate.mapping().at("score") : Value(0.0);
  };
}

// A run of generations of one candidate each. A negative number is a generation that fails.
std::vector<bool> restarts_after(const std::vector<double>& scores, std::int64_t threshold) {
  SearchHarness search(1, threshold);
  search.stop_at_pause(static_cast<int>(scores.size()) + 1);
  search.on_outcome = [&, generation = std::size_t{0}](const Value& graph) mutable {
    const double score = generation < scores.size() ? scores[generation] : 0.0;
    ++generation;
    Mapping record = score < 0 ? failing_for(graph, "sharpe_min") : passing(graph);
    record.set("score", score);
    return record;
  };
  search.host.eliteness.on_score_candidate = [](const Value& candidate, const Mapping&) {
    return candidate.mapping().at("score");
  };
  search.run();
  return restarts(search);
}

TEST(SearchRestart, EqualScoreIsNoProgress) {
  EXPECT_THAT(restarts_after({1, 1, 1}, 2), ElementsAre(false, false, true));
}

TEST(SearchRestart, BetterScoreStartsTheCountAgain) {
  EXPECT_THAT(restarts_after({1, 1, 2, 2, 2}, 2), ElementsAre(false, false, false, false, true));
}

TEST(SearchRestart, TheCountBeginsAgainAfterARestart) {
  EXPECT_THAT(restarts_after({1, 1, 1, 1, 1, 1}, 2),
              ElementsAre(false, false, true, false, true, false));
}

TEST(SearchRestart, TheBestScoreOutlivesARestart) {
  // 2 is the best of the run; 1.5 after the restart is no progress.
  EXPECT_THAT(restarts_after({2, 1, 1.5, 1.75}, 1), ElementsAre(false, true, true, true));
}

TEST(SearchRestart, WithThresholdOneEveryGenerationWithoutProgressRestarts) {
  EXPECT_THAT(restarts_after({1, 2, 2, 3, 0, -1, 4}, 1),
              ElementsAre(false, false, true, false, true, true, false));
}

TEST(SearchRestart, FailedGenerationsCountToTheThreshold) {
  EXPECT_THAT(restarts_after({-1, -1, -1, -1, -1, -1}, 3),
              ElementsAre(false, false, true, false, false, true));
}

TEST(SearchRestart, FailedAndPassingGenerationsShareOneCount) {
  EXPECT_THAT(restarts_after({1, -1, 1, -1}, 3), ElementsAre(false, false, false, true));
  EXPECT_THAT(restarts_after({1, -1, -1, 1}, 3), ElementsAre(false, false, false, true));
}

TEST(SearchRestart, FirstPassingGenerationIsProgressWhateverItsScore) {
  const double lowest = -std::numeric_limits<double>::infinity();
  SearchHarness search(1, 2);
  search.stop_at_pause(3);
  score_in_turn(search, {lowest, lowest, lowest});
  search.run();
  EXPECT_THAT(restarts(search), ElementsAre(false, false));
}

TEST(SearchRestart, ANanThatCameFirstIsNeverBeaten) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  SearchHarness search(1, 2);
  search.stop_at_pause(4);
  score_in_turn(search, {nan, 5.0, 6.0, 7.0});
  search.run();
  EXPECT_THAT(restarts(search), ElementsAre(false, false, true));
}

TEST(SearchRestart, AnAbsentBestScoreIsNone) {
  // A host that scores with an absent value: each generation is then the first with a score, and
  // the two are never compared.
  SearchHarness search(1, 1);
  search.stop_at_pause(4);
  weighted_score_in_turn(search, {Value(), Value(), 1.0, 1.0});
  search.run();
  EXPECT_THAT(restarts(search), ElementsAre(false, false, false));
}

TEST(SearchRestart, TheBestOfAGenerationCountsAndTheFirstOfEqualOnes) {
  SearchHarness search(3, 1);
  search.stop_at_pause(3);
  // The best is 3, 3 again, then 4: only the second generation brings no progress.
  score_in_turn(search, {1.0, 3.0, 2.0, 3.0, 1.0, 3.0, 0.0, 0.0, 4.0});
  search.run();
  // A restart asks for one graph more than the batch size; nothing else asks for so many.
  EXPECT_EQ(search.draws().back(), "(4)");
  EXPECT_THAT(search.draws(), Contains("(4)").Times(1));
}

TEST(SearchRestart, NanWithinAGenerationCountsByItsPosition) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  SearchHarness search(3, 1);
  search.stop_at_pause(4);
  // A NaN that comes first stays the best of its generation and is no progress over 1; one that
  // comes second is passed over.
  score_in_turn(search, {1.0, 0.0, 0.0, nan, 9.0, 0.0, 2.0, nan, 0.0, 2.5, 0.0, 0.0});
  search.run();
  EXPECT_THAT(search.draws(), Contains("(4)").Times(1));
}

TEST(SearchRestart, ScoresThatHaveNoOrderFail) {
  SearchHarness search(2);
  weighted_score_in_turn(search, {"high", 1.0});
  EXPECT_THROW(search.run(), TypeError);
  EXPECT_EQ(search.host.log.count("enqueue"), 2U);
}

TEST(SearchRestart, ARestartThrowsTheFirstOfItsGraphsAway) {
  SearchHarness search(1, 1);
  search.stop_at_pause(3);
  search.draw_in_turn({graphs_named({"a"}), graphs_named({"b"}), graphs_named({"c", "d"})});
  std::vector<std::string> evaluated;
  search.on_outcome = [&evaluated](const Value& graph) {
    evaluated.push_back(name_of(graph));
    return passing(graph);
  };
  search.run();
  EXPECT_THAT(evaluated, ElementsAre("a", "b", "d"));
}

TEST(SearchRestart, ARestartIsForOneBatchOnly) {
  SearchHarness search(1, 100);
  search.stop_at_pause(4);
  search.draw_in_turn({List(), graphs_named({"a"}), graphs_named({"b"}), graphs_named({"c"})});
  search.run();
  EXPECT_THAT(search.draws(), ElementsAre("(1)", "(2)", "(1)", "(1)"));
}

TEST(SearchRestart, AnEmptyTurnIsNoGenerationWithoutProgress) {
  SearchHarness search(1, 4);
  search.stop_at_pause(5);
  search.on_outcome = [](const Value& graph) { return failing_for(graph, "sharpe_min"); };
  search.draw_in_turn(
      {graphs_named({"a"}), List(), List(), graphs_named({"b"}), graphs_named({"c"})});
  search.run();
  // Restarts for the empty turns alone: "b" is the second generation without progress, not the
  // fourth.
  EXPECT_THAT(search.draws(), ElementsAre("(1)", "(1)", "(2)", "(2)", "(1)"));
}

TEST(SearchRestart, WeightsAndCorrelationReachTheScore) {
  SearchHarness search;
  search.stop_at_pause(1);
  TemplateArguments arguments = search.module.default_arguments();
  arguments.batch_size = 1;
  arguments.diversity_weight = 0.75;
  arguments.parsimony_weight = "0.5";
  search.configure(arguments);
  Mapping keywords;
  search.host.eliteness.on_score_candidate = [&keywords](const Value&, const Mapping& given) {
    keywords = given;
    return Value(0);
  };
  search.run();
  EXPECT_EQ(repr(keywords),
            "{'sibling_correlations': (), 'pool_correlation': 0.25, "
            "'diversity_weight': 0.75, 'parsimony_weight': 0.5}");
}

// Random runs against a plain model of the count.
TEST(SearchRestart, AgreesWithAPlainModel) {
  for (std::uint64_t seed = 1; seed <= 200; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    MersenneTwister random(seed);
    const auto threshold = static_cast<std::int64_t>(1 + random.getrandbits(2));
    std::vector<double> scores;
    for (int i = 0; i < 20; ++i)
      scores.push_back(static_cast<double>(random.getrandbits(3)) - 2.0);

    std::vector<bool> expected;
    std::optional<double> best;
    std::int64_t stagnant = 0;
    for (const double score : scores) {
      if (score >= 0 && (!best || score > *best)) {
        best = score;
        stagnant = 0;
      } else {
        ++stagnant;
      }
      expected.push_back(stagnant >= threshold);
      if (stagnant >= threshold) stagnant = 0;
    }
    EXPECT_EQ(restarts_after(scores, threshold), expected);
  }
}

}  // namespace
}  // namespace varnholt::genetic::test
