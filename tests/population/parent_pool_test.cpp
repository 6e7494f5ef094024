// The pool of parents: who is in it, in what order, and which scores are asked for on the way.
// Method: hand-made candidates and a host that records every request.
#include "search_templates/genetic/population/parent_pool.hpp"

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/recording_eliteness.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;
using test::RecordingEliteness;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

Value leaf(const std::string& name) {
  return Mapping{{"node", name}, {"children", List{}}};
}
Value graph_of_names(const std::vector<std::string>& names) {
  List children;
  for (const std::string& name : names)
    children.append(leaf(name));
  return Mapping{{"children", children}};
}
Mapping candidate(const std::string& id, double score, const Value& graph,
                  const Value& correlation = Value()) {
  return {{"graph", graph}, {"id", id}, {"score", score}, {"correlation", correlation}};
}
// A candidate whose graph shares no name with another's.
Mapping loner(const std::string& id, double score, const Value& correlation = Value()) {
  return candidate(id, score, leaf("node_" + id), correlation);
}
// So many loners, the best first, with whole scores.
List loners(int count) {
  List prior;
  for (int i = 0; i < count; ++i)
    prior.append(loner(std::to_string(i), count - i));
  return prior;
}
std::vector<std::string> ids(const List& parents) {
  std::vector<std::string> ids;
  for (std::size_t i = 0; i < parents.size(); ++i)
    ids.push_back(str(parents.at(i).mapping().at("id")));
  return ids;
}

// The pool with a parsimony weight that no rule looks at.
List pool(Eliteness& eliteness, const Value& prior, double elite_fraction,
          double diversity_weight) {
  return diverse_parent_pool(eliteness, prior, elite_fraction, diversity_weight, 0.125);
}
std::vector<std::string> pool_ids(const Value& prior, double elite_fraction,
                                  double diversity_weight) {
  RecordingEliteness eliteness;
  return ids(pool(eliteness, prior, elite_fraction, diversity_weight));
}
std::size_t pool_size(int candidates, double elite_fraction, double diversity_weight) {
  return pool_ids(loners(candidates), elite_fraction, diversity_weight).size();
}

// A statistics object whose equality fails, as an array's does.
class Incomparable : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Statistics"; }
  [[nodiscard]] bool equals(const Value& /*other*/) const override {
    throw ValueError("the truth of an array is ambiguous");
  }
};

TEST(SelectedRedundancy, IsTheAbsoluteCorrelationWithoutOthers) {
  EXPECT_EQ(selected_redundancy(loner("a", 1.0, -0.9), List()), 0.9);
  EXPECT_EQ(selected_redundancy(loner("a", 1.0, 0.25), List()), 0.25);
  EXPECT_EQ(selected_redundancy(loner("a", 1.0, "-0.5"), List()), 0.5);
  EXPECT_EQ(selected_redundancy(loner("a", 1.0), List()), 0.0);
  EXPECT_EQ(selected_redundancy(Mapping{{"graph", leaf("a")}}, List()), 0.0);
}

TEST(SelectedRedundancy, IsTheGreatestOfCorrelationAndOverlaps) {
  const Value four = graph_of_names({"a", "b", "c", "d"});
  const List selected{candidate("x", 1.0, graph_of_names({"a", "z"})),
                      candidate("y", 1.0, graph_of_names({"a", "b", "c"})),
                      candidate("z", 1.0, leaf("a"))};
  EXPECT_EQ(selected_redundancy(candidate("q", 1.0, four, -0.5), selected), 0.75);
  EXPECT_EQ(selected_redundancy(candidate("q", 1.0, four, -0.9), selected), 0.9);
  EXPECT_EQ(selected_redundancy(candidate("q", 1.0, four), selected), 0.75);
  // Neither has a graph: nothing overlaps.
  EXPECT_EQ(selected_redundancy(Mapping(), List{Mapping()}), 0.0);
}

TEST(SelectedRedundancy, NeedsAFiniteCorrelation) {
  const std::string expected = "ValueError: candidate correlation must be a finite number or None";
  for (const Value& correlation :
       {Value(kNaN), Value(-std::numeric_limits<double>::infinity()), Value("x"), Value(List())}) {
    EXPECT_EQ(error_of([&] { return selected_redundancy(loner("a", 1.0, correlation), List()); }),
              expected);
  }
}

TEST(DiversityAdjustedParentScore, LessensTheScoreWithoutTheWeight) {
  RecordingEliteness eliteness;
  const Value score = diversity_adjusted_parent_score(eliteness, loner("a", 10.0, 0.5),
                                                      List{loner("b", 1.0)}, 0.5, 0.25);
  EXPECT_EQ(score, Value(10.0 - 0.5 * 5.0 * 0.5));
  EXPECT_THAT(eliteness.lines(), ElementsAre("a@0.0"));
  EXPECT_EQ(eliteness.calls.at(0).parsimony_weight, 0.25);
}

// The order of the multiplications shows in the last bit.
TEST(DiversityAdjustedParentScore, MultipliesThePenaltyFirst) {
  RecordingEliteness eliteness;
  const Value score =
      diversity_adjusted_parent_score(eliteness, loner("a", 0.0, 0.1), List(), 0.3, 0.0);
  ASSERT_NE(0.1 * 5.0 * 0.3, 0.1 * (5.0 * 0.3));
  EXPECT_EQ(score, Value(-(0.1 * 5.0 * 0.3)));
}

TEST(DiversityAdjustedParentScore, IsTheScoreItselfWithoutAWeight) {
  // What cannot be a redundancy goes unnoticed.
  const Value odd = loner("a", 1.0, kNaN);
  RecordingEliteness eliteness([](const Value&, double) { return Value(7); });
  for (const double weight : {0.0, -0.5}) {
    const Value score =
        diversity_adjusted_parent_score(eliteness, odd, List{loner("b", 1.0)}, weight, 0.0);
    EXPECT_TRUE(score.is_integer());
    EXPECT_EQ(score, Value(7));
  }
  EXPECT_THAT(eliteness.lines(), ElementsAre("a@0.0", "a@0.0"));
}

TEST(DiverseParentPool, OfNothingIsEmpty) {
  RecordingEliteness eliteness;
  const List without_graph{Mapping{{"id", "a"}}, Mapping{{"id", "b"}, {"graph", Value()}}};
  for (const Value& prior :
       {Value(), Value(List()), Value(false), Value(Tuple()), Value(without_graph)}) {
    for (const double weight : {0.0, 0.5})
      EXPECT_TRUE(pool(eliteness, prior, 0.5, weight).empty());
  }
  EXPECT_THAT(eliteness.calls, IsEmpty());
}

TEST(DiverseParentPool, HasARoundedShareAndThreeAtLeast) {
  for (const double weight : {0.0, 0.5}) {
    SCOPED_TRACE(weight);
    EXPECT_EQ(pool_size(2, 0.1, weight), 2U);
    EXPECT_EQ(pool_size(1, 1.0, weight), 1U);
    EXPECT_EQ(pool_size(10, 0.25, weight), 3U);  // 2.5 rounds to 2, then the floor.
    EXPECT_EQ(pool_size(14, 0.25, weight), 4U);  // 3.5
    EXPECT_EQ(pool_size(18, 0.25, weight), 4U);  // 4.5
    EXPECT_EQ(pool_size(30, 0.25, weight), 8U);  // 7.5
    EXPECT_EQ(pool_size(6, 0.0, weight), 3U);
    EXPECT_EQ(pool_size(6, -2.0, weight), 3U);
    EXPECT_EQ(pool_size(6, 0.51, weight), 3U);
    EXPECT_EQ(pool_size(6, 0.99, weight), 6U);
    EXPECT_EQ(pool_size(6, 1.5, weight), 6U);
    EXPECT_EQ(pool_size(6, 1e300, weight), 6U);
  }
}

TEST(DiverseParentPool, NeedsAnEliteFractionThatIsANumber) {
  EXPECT_EQ(error_of([] { return pool_size(3, kNaN, 0.5); }),
            "ValueError: cannot convert float NaN to integer");
  // Nobody to take a share of.
  EXPECT_EQ(pool_size(0, kNaN, 0.5), 0U);
}

TEST(DiverseParentPool, WithoutAWeightIsTheTopInOrder) {
  const List prior{loner("a", 1.0, kNaN), loner("b", 3.0), loner("c", 2.0, kNaN), loner("d", 3.0),
                   loner("e", 0.0)};
  for (const double weight : {0.0, -1.0}) {
    RecordingEliteness eliteness;
    EXPECT_THAT(ids(pool(eliteness, prior, 0.8, weight)), ElementsAre("b", "d", "c", "a"));
    const std::string at = "@" + str(Value(weight));
    EXPECT_THAT(eliteness.lines(), ElementsAre("a" + at, "b" + at, "c" + at, "d" + at, "e" + at));
    EXPECT_EQ(eliteness.calls.at(0).parsimony_weight, 0.125);
  }
}

TEST(DiverseParentPool, GivesTheCandidatesThemselves) {
  const List prior = loners(4);
  RecordingEliteness eliteness;
  const List parents = pool(eliteness, prior, 1.0, 0.5);
  ASSERT_EQ(parents.size(), 4U);
  for (std::size_t i = 0; i < 4; ++i)
    EXPECT_TRUE(same_object(parents.at(i), prior.at(i)));
}

TEST(DiverseParentPool, LetsFailedCandidatesIn) {
  List prior = loners(2);
  Mapping failed = loner("failed", 9.0);
  failed.set("passes", false);
  failed.set("failures", Mapping{{"worker_failed", Mapping()}});
  prior.append(failed);
  EXPECT_THAT(pool_ids(prior, 0.0, 0.5), ElementsAre("failed", "0", "1"));
}

TEST(DiverseParentPool, IsReadFromAnythingThatCanBeWalked) {
  const auto host = std::make_shared<test::HostList>();
  for (int i = 0; i < 3; ++i)
    host->items.push_back(test::as_host_containers(loners(3).at(static_cast<std::size_t>(i))));
  EXPECT_THAT(pool_ids(test::list_of(host), 1.0, 0.5), ElementsAre("0", "1", "2"));
  EXPECT_THAT(pool_ids(Tuple{loner("a", 1.0), loner("b", 2.0)}, 1.0, 0.5), ElementsAre("b", "a"));
  EXPECT_EQ(error_of([] { return pool_ids(3, 1.0, 0.5); }),
            "TypeError: 'int' object is not iterable");
  EXPECT_EQ(error_of([] { return pool_ids(List{3}, 1.0, 0.5); }),
            "AttributeError: 'int' object has no attribute 'get'");
  EXPECT_EQ(error_of([] {
              return pool_ids(List{Mapping{{"graph", Tuple{}}}}, 1.0, 0.5);
            }),
            "TypeError: genetic initial candidates must contain only plain graph data");
}

// The candidate is asked for before the one that holds its structure.
TEST(DiverseParentPool, KeepsTheBetterOfOneStructure) {
  const Value shared = leaf("shared");
  RecordingEliteness eliteness;
  const List prior{candidate("low", 1.0, shared), candidate("high", 2.0, shared),
                   candidate("middle", 1.5, shared)};
  EXPECT_THAT(ids(pool(eliteness, prior, 1.0, 0.0)), ElementsAre("high"));
  EXPECT_THAT(eliteness.lines(),
              ElementsAre("high@0.0", "low@0.0", "middle@0.0", "high@0.0", "high@0.0"));
}

TEST(DiverseParentPool, KeepsTheEarlierOfEqualScores) {
  EXPECT_THAT(
      pool_ids(List{candidate("first", 1.0, leaf("s")), candidate("second", 1.0, leaf("s"))}, 1.0,
               0.5),
      ElementsAre("first"));
  // A NaN is greater than nothing, and nothing is greater than it.
  EXPECT_THAT(pool_ids(List{candidate("nan", kNaN, leaf("s")), candidate("best", 9.0, leaf("s"))},
                       1.0, 0.5),
              ElementsAre("nan"));
  EXPECT_THAT(
      pool_ids(List{candidate("low", 0.0, leaf("s")), candidate("nan", kNaN, leaf("s"))}, 1.0, 0.5),
      ElementsAre("low"));
}

// Two later ones of the same score stand behind it only if it took the first one's place.
TEST(DiverseParentPool, PutsAReplacementAtTheEarlierPlace) {
  const List prior{candidate("low", 1.0, leaf("s")), loner("b", 2.0), loner("c", 2.0),
                   candidate("high", 2.0, leaf("s"))};
  EXPECT_THAT(pool_ids(prior, 1.0, 0.0), ElementsAre("high", "b", "c"));
}

// The order of a mapping's keys counts, and equal numbers of two kinds are one.
TEST(DiverseParentPool, TellsStructuresByTheirKeys) {
  const Value reversed = Mapping{{"children", List{}}, {"node", "s"}};
  EXPECT_THAT(
      pool_ids(List{candidate("a", 1.0, leaf("s")), candidate("b", 2.0, reversed)}, 1.0, 0.0),
      ElementsAre("b", "a"));
  EXPECT_THAT(pool_ids(List{candidate("a", 1.0, Mapping{{"w", 1}}),
                            candidate("b", 2.0, Mapping{{"w", 1.0}}),
                            candidate("c", 3.0, Mapping{{"w", true}})},
                       1.0, 0.0),
              ElementsAre("c"));
}

// In every pass each candidate is scored twice, without the weight and with it; the best one, which
// is taken as it is, no more.
TEST(DiverseParentPool, AsksForTwoScoresACandidateInEachPass) {
  RecordingEliteness eliteness;
  const List prior{loner("a", 1.0), loner("b", 4.0), loner("c", 3.0), loner("d", 2.0)};
  EXPECT_THAT(ids(pool(eliteness, prior, 0.75, 0.5)), ElementsAre("b", "c", "d"));
  EXPECT_THAT(eliteness.lines(), ElementsAre("a@0.5", "b@0.5", "c@0.5", "d@0.5",  // The order.
                                             "c@0.0", "c@0.5", "d@0.0", "d@0.5", "a@0.0", "a@0.5",
                                             "d@0.0", "d@0.5", "a@0.0", "a@0.5"));
  for (const RecordingEliteness::Call& call : eliteness.calls)
    EXPECT_EQ(call.parsimony_weight, 0.125);
}

TEST(DiverseParentPool, TakesTheBestUnpenalised) {
  RecordingEliteness eliteness;
  // Fully correlated; the correlation of the best is not even read as a number.
  EXPECT_THAT(ids(pool(eliteness, List{loner("a", 3.0, "no number"), loner("b", 2.9)}, 1.0, 0.5)),
              ElementsAre("a", "b"));
  EXPECT_THAT(pool_ids(List{loner("only", 1.0, kNaN)}, 1.0, 0.5), ElementsAre("only"));
}

TEST(DiverseParentPool, PassesOverARedundantCandidate) {
  const List prior{candidate("best", 10.0, graph_of_names({"a", "b"})),
                   candidate("twin", 9.0, graph_of_names({"b", "a", "a"})),
                   candidate("half", 8.0, graph_of_names({"a", "c"})),
                   candidate("other", 7.0, graph_of_names({"d"})), loner("last", 1.0)};
  // twin: 9 - 5; half: 8 - 5/3; other: 7. Then half has "a" and "c" against other's "d".
  EXPECT_THAT(pool_ids(prior, 0.6, 1.0), ElementsAre("best", "other", "half"));
  EXPECT_THAT(pool_ids(prior, 1.0, 1.0), ElementsAre("best", "other", "half", "twin", "last"));
  EXPECT_THAT(pool_ids(prior, 0.6, 0.1), ElementsAre("best", "twin", "half"));
  EXPECT_THAT(pool_ids(prior, 0.6, 0.0), ElementsAre("best", "twin", "half"));
}

TEST(DiverseParentPool, CountsACorrelationOfEitherSign) {
  const List prior{loner("best", 10.0), loner("negative", 9.0, -0.8), loner("positive", 8.9, 0.8),
                   loner("free", 5.5)};
  EXPECT_THAT(pool_ids(prior, 1.0, 1.0), ElementsAre("best", "free", "negative", "positive"));
}

// The redundancy of a candidate grows with those selected: the third differs from the best and is
// a twin of the second.
TEST(DiverseParentPool, ComparesWithEveryoneSelectedSoFar) {
  const List prior{candidate("a", 10.0, leaf("x")), candidate("b", 9.0, leaf("y")),
                   candidate("b2", 8.5, List{leaf("y")}), candidate("c", 8.0, leaf("z")),
                   candidate("a2", 7.9, List{leaf("x")})};
  EXPECT_THAT(pool_ids(prior, 0.8, 0.5), ElementsAre("a", "b", "c", "b2"));
}

TEST(DiverseParentPool, BreaksTiesByTheScoreWithTheWeight) {
  // Without the weight all are alike; with it, the later is better.
  RecordingEliteness eliteness([](const Value& record, double diversity_weight) {
    const double score = record.mapping().at("score").real();
    return Value(diversity_weight == 0.0 ? 1.0 : score);
  });
  EXPECT_THAT(
      ids(pool(eliteness, List{loner("a", 1.0), loner("b", 2.0), loner("c", 3.0)}, 1.0, 0.5)),
      ElementsAre("c", "b", "a"));
  // Here the order by the weighted score and the greedy choice disagree.
  RecordingEliteness opposed([](const Value& record, double diversity_weight) {
    const double score = record.mapping().at("score").real();
    return Value(diversity_weight == 0.0 ? -score : score);
  });
  EXPECT_THAT(ids(pool(opposed, List{loner("a", 1.0), loner("b", 2.0), loner("c", 3.0)}, 1.0, 0.5)),
              ElementsAre("c", "a", "b"));
}

// A host may score otherwise when it is asked again: the pass goes by what it hears then.
TEST(DiverseParentPool, BreaksTiesByTheScoreOfThePass) {
  std::size_t requests = 0;
  RecordingEliteness eliteness([&](const Value& record, double diversity_weight) {
    const double score = record.mapping().at("score").real();
    if (++requests <= 4) return Value(score);
    return Value(diversity_weight == 0.0 ? 1.0 : -score);
  });
  EXPECT_THAT(ids(pool(eliteness, loners(4), 1.0, 0.5)), ElementsAre("0", "3", "2", "1"));
}

TEST(DiverseParentPool, TakesTheFirstOfEqualRanks) {
  EXPECT_THAT(
      pool_ids(List{loner("a", 1.0), loner("b", 1.0), loner("c", 1.0), loner("d", 1.0)}, 0.75, 0.5),
      ElementsAre("a", "b", "c"));
}

TEST(DiverseParentPool, ComparesScoresOfEveryKind) {
  RecordingEliteness eliteness([](const Value& record, double) {
    return str(record.mapping().at("id")) == "int" ? Value(2) : record.mapping().at("score");
  });
  EXPECT_THAT(
      ids(pool(eliteness, List{loner("a", 1.5), loner("int", 0.0), loner("b", 2.5)}, 1.0, 0.5)),
      ElementsAre("b", "int", "a"));
  RecordingEliteness absent([](const Value&, double) { return Value(); });
  EXPECT_EQ(error_of([&] { return pool(absent, loners(2), 1.0, 0.5); }),
            "TypeError: '<' not supported between instances of 'NoneType' and 'NoneType'");
  // A text can be put in order but not lessened, however it reads.
  RecordingEliteness text([](const Value&, double) { return Value("0.5"); });
  EXPECT_EQ(error_of([&] { return pool(text, loners(2), 1.0, 0.5); }),
            "TypeError: unsupported operand type(s) for -: 'str' and 'float'");
}

// A correlation that is no finite number fails when the candidate is looked at, after its score.
TEST(DiverseParentPool, FailsForACorrelationThatIsNotFinite) {
  RecordingEliteness eliteness;
  const List prior{loner("a", 3.0), loner("b", 2.0), loner("c", 1.0, kNaN)};
  EXPECT_EQ(error_of([&] { return pool(eliteness, prior, 1.0, 0.5); }),
            "ValueError: candidate correlation must be a finite number or None");
  EXPECT_THAT(eliteness.lines(), ElementsAre("a@0.5", "b@0.5", "c@0.5", "b@0.0", "b@0.5", "c@0.0"));
}

TEST(DiverseParentPool, PassesTheHostsFailureOn) {
  RecordingEliteness eliteness([](const Value&, double) -> Value { throw KeyError("no score"); });
  EXPECT_EQ(error_of([&] { return pool(eliteness, loners(1), 1.0, 0.0); }), "KeyError: no score");
}

TEST(DiverseParentPool, HoldsEveryoneWhenScoresAreNaN) {
  const List prior{loner("a", kNaN), loner("b", 1.0), loner("c", kNaN), loner("d", 2.0)};
  EXPECT_THAT(pool_ids(prior, 1.0, 0.0), ElementsAre("a", "b", "c", "d"));
  EXPECT_THAT(pool_ids(prior, 1.0, 0.5), ::testing::UnorderedElementsAre("a", "b", "c", "d"));
}

// Records that are equal although their structures are not: the graphs' keys stand in another
// order. `extra` tells two of them apart.
class EqualRecords : public ::testing::Test {
 protected:
  Value record(const std::string& name, bool reversed, const Value& extra = Value()) {
    Mapping graph{{"node", name}, {"children", List{}}};
    if (reversed) graph = {{"children", List{}}, {"node", name}};
    Mapping result{{"graph", graph}, {"correlation", Value()}};
    if (!extra.is_absent()) result.set("extra", extra);
    return result;
  }
  // Scores the candidates by their place in `scores_`.
  std::vector<std::size_t> picked(const std::vector<Value>& prior,
                                  const std::vector<double>& scores) {
    RecordingEliteness eliteness(
        [&](const Value& record, double) { return Value(scores[place_of(prior, record)]); });
    List all;
    for (const Value& candidate : prior)
      all.append(candidate);
    const List parents = pool(eliteness, all, 1.0, 0.5);
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < parents.size(); ++i)
      places.push_back(place_of(prior, parents.at(i)));
    return places;
  }

 private:
  static std::size_t place_of(const std::vector<Value>& prior, const Value& record) {
    std::size_t place = 0;
    while (!same_object(prior[place], record))
      ++place;
    return place;
  }
};

TEST_F(EqualRecords, OfTheBestAreDroppedForGood) {
  const std::vector<Value> prior = {record("x", false), record("x", true), record("y", false)};
  EXPECT_THAT(picked(prior, {3.0, 2.0, 1.0}), ElementsAre(0, 2));
  EXPECT_THAT(picked(prior, {2.0, 3.0, 1.0}), ElementsAre(1, 2));
  // Something else in the record is enough to keep both.
  const std::vector<Value> told_apart = {record("x", false), record("x", true, 1),
                                         record("y", false)};
  EXPECT_THAT(picked(told_apart, {3.0, 2.0, 1.0}), ElementsAre(0, 2, 1));
}

// Equal numbers of two kinds are equal here as well.
TEST_F(EqualRecords, MayDifferInTheKindsOfTheirNumbers) {
  const Value nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<Value> prior = {
      Mapping{{"graph", Mapping{{"a", 1}, {"b", List{true, nan, 0.0}}}}},
      Mapping{{"graph", Mapping{{"b", List{1.0, nan, -0.0}}, {"a", 1.0}}}},
      Mapping{{"graph", Mapping{{"b", List{nan, 1.0, -0.0}}, {"a", 1.0}}}}};
  EXPECT_THAT(picked(prior, {3.0, 2.0, 1.0}), ElementsAre(0, 2));
}

// Of two equal ones the first leaves the candidates whichever has won: here it is the second that
// wins, by the score without the weight, and so it is there to win again.
TEST_F(EqualRecords, MakeTheFirstLeaveInTheWinnersPlace) {
  const std::vector<Value> prior = {loner("best", 9.0), record("x", false), record("x", true)};
  RecordingEliteness eliteness([&](const Value& record, double diversity_weight) {
    if (same_object(record, prior[0])) return Value(9.0);
    const bool is_first = same_object(record, prior[1]);
    return Value(is_first == (diversity_weight > 0.0) ? 2.0 : 1.0);
  });
  const List parents = pool(eliteness, List{prior[0], prior[1], prior[2]}, 1.0, 0.5);
  ASSERT_EQ(parents.size(), 3U);
  EXPECT_TRUE(same_object(parents.at(1), prior[2]));
  EXPECT_TRUE(same_object(parents.at(2), prior[2]));
}

// Equality that holds when the candidates are listed and no more when the pool is filled up: then
// whoever was dropped comes back.
TEST_F(EqualRecords, ComeBackWhenTheyAreNoLongerEqual) {
  class Fickle : public HostObject {
   public:
    explicit Fickle(std::shared_ptr<int> asked) : asked_(std::move(asked)) {}
    [[nodiscard]] std::string type_name() const override { return "Fickle"; }
    [[nodiscard]] bool equals(const Value& /*other*/) const override { return ++*asked_ == 1; }

   private:
    std::shared_ptr<int> asked_;
  };
  const auto asked = std::make_shared<int>(0);
  const auto fickle = [&] { return Value(make_object<Fickle>(asked)); };
  const std::vector<Value> prior = {record("x", false, fickle()), record("x", true, fickle())};
  EXPECT_THAT(picked(prior, {2.0, 1.0}), ElementsAre(0, 1));
  EXPECT_GT(*asked, 1);
}

// Whole records are compared, entry by entry up to the first difference. An object of the host that
// stands before the graph is asked, and its failure passes; one behind a differing graph is not.
TEST_F(EqualRecords, AskTheObjectsThatStandBeforeADifference) {
  const auto statistics = [] { return Value(make_object<Incomparable>()); };
  const auto with_statistics = [&](const std::string& name, bool first) {
    Mapping record;
    if (first) record.set("stats", statistics());
    record.set("graph", leaf(name));
    record.set("stats", first ? record.get("stats") : statistics());
    record.set("score", 1.0);
    return record;
  };
  EXPECT_EQ(error_of([&] {
              RecordingEliteness eliteness;
              return pool(eliteness, List{with_statistics("x", true), with_statistics("y", true)},
                          1.0, 0.5);
            }),
            "ValueError: the truth of an array is ambiguous");
  RecordingEliteness eliteness;
  EXPECT_EQ(
      pool(eliteness, List{with_statistics("x", false), with_statistics("y", false)}, 1.0, 0.5)
          .size(),
      2U);
  // Equal graphs with their keys in another order: the objects behind them are asked.
  Value first = record("x", false, statistics());
  Value second = record("x", true, statistics());
  EXPECT_EQ(error_of([&] {
              return picked({first, second}, {2.0, 1.0});
            }),
            "ValueError: the truth of an array is ambiguous");
  // The very same object is equal to itself without being asked.
  const Value one = statistics();
  EXPECT_THAT(picked({record("x", false, one), record("x", true, one)}, {2.0, 1.0}),
              ElementsAre(0));
  // Without a weight nothing is compared.
  RecordingEliteness plain;
  EXPECT_EQ(
      pool(plain, List{with_statistics("x", true), with_statistics("y", true)}, 1.0, 0.0).size(),
      2U);
}

}  // namespace
}  // namespace varnholt::genetic
