// The order of candidates by score. Method: hand-made scores of every
// kind, and random ones with many ties against a plain insertion.
#include "search_templates/genetic/population/score_order.hpp"

#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;
using ::testing::ElementsAre;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// The places that the scores had before they were sorted.
std::vector<std::int64_t> sorted(const std::vector<Value>& scores) {
  std::vector<ScoredCandidate> candidates;
  for (std::size_t i = 0; i < scores.size(); ++i)
    candidates.push_back({scores[i], static_cast<std::int64_t>(i)});
  sort_highest_first(candidates);
  std::vector<std::int64_t> places;
  for (const ScoredCandidate& candidate : candidates)
    places.push_back(candidate.candidate.integer());
  return places;
}

TEST(SortHighestFirst, KeepsTheOrderOfEqualScores) {
  EXPECT_THAT(sorted({1.0, 2.0, 1.0, 3.0, 2.0}), ElementsAre(3, 1, 4, 0, 2));
  EXPECT_THAT(sorted({0.0, -0.0, 0.0}), ElementsAre(0, 1, 2));
}

TEST(SortHighestFirst, ComparesNumbersOfEveryKind) {
  EXPECT_THAT(sorted({1, 1.5, true, -1, to_integer("100000000000000000000"), 1.0}),
              ElementsAre(4, 1, 0, 2, 5, 3));
  EXPECT_THAT(sorted({-kInfinity, 0.0, kInfinity}), ElementsAre(2, 1, 0));
}

TEST(SortHighestFirst, OrdersWhateverCanBeCompared) {
  EXPECT_THAT(sorted({Tuple{1, 2}, Tuple{1, 3}, Tuple{0, 9}}), ElementsAre(1, 0, 2));
  EXPECT_EQ(error_of([] {
              return sorted({1.0, "2"});
            }),
            "TypeError: '<' not supported between instances of 'float' and 'str'");
  // A single score is compared with nothing.
  EXPECT_THAT(sorted({Value()}), ElementsAre(0));
}

// As sorted(scores, reverse=True) of CPython answers for these very lists.
TEST(SortHighestFirst, LeavesNaNWhereTheHostsSortLeavesIt) {
  EXPECT_THAT(sorted({kNaN, 1.0, kNaN, 2.0, -kInfinity}), ElementsAre(0, 1, 2, 3, 4));
  EXPECT_THAT(sorted({1.0, kNaN, 3.0, 2.0}), ElementsAre(0, 1, 2, 3));
  EXPECT_THAT(sorted({1.0, 2.0, kNaN, 4.0, 3.0}), ElementsAre(1, 0, 2, 3, 4));
}

TEST(SortHighestFirst, EqualsAPlainInsertion) {
  for (unsigned seed = 0; seed < 30; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 draw(seed);
    std::vector<Value> scores;
    std::vector<std::int64_t> expected;
    for (std::uint64_t count = draw() % 200; count > 0; --count) {
      const auto score = static_cast<std::int64_t>(draw() % 9);
      scores.emplace_back(draw() % 2 == 0 ? Value(score) : Value(static_cast<double>(score)));
      auto place = expected.end();
      while (place != expected.begin() &&
             to_float(scores[static_cast<std::size_t>(*std::prev(place))]) <
                 static_cast<double>(score))
        --place;
      expected.insert(place, static_cast<std::int64_t>(scores.size()) - 1);
    }
    EXPECT_EQ(sorted(scores), expected);
  }
}

}  // namespace
}  // namespace varnholt::genetic
