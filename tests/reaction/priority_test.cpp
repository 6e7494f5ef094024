// Goal: failed results stand in the order in which they are repaired. Method: tables of results
// with their keys, and of results in pairs.
#include "search_templates/genetic/reaction/priority.hpp"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const Value kNan = std::nan("");

TEST(CandidateQuality, IsTheScoreOrElseTheSharpe) {
  EXPECT_EQ(candidate_quality(Mapping{{"quality_score", 0.5}, {"sharpe", 1.2}}), 0.5);
  EXPECT_EQ(candidate_quality(Mapping{{"sharpe", 1.2}}), 1.2);
  EXPECT_EQ(candidate_quality(Mapping()), 0.0);
  EXPECT_EQ(candidate_quality(Mapping{{"quality_score", "0.5"}}), 0.5);
  EXPECT_EQ(candidate_quality(Mapping{{"sharpe", true}}), 1.0);
}

TEST(CandidateQuality, ScoreThatIsThereAndNoNumberIsZeroAndNotTheSharpe) {
  for (const Value& score :
       {Value(), Value("x"), Value(List{}), Value(to_integer("1" + std::string(400, '0')))})
    EXPECT_EQ(candidate_quality(Mapping{{"quality_score", score}, {"sharpe", 1.2}}), 0.0);
  EXPECT_EQ(candidate_quality(Mapping{{"sharpe", "x"}}), 0.0);
  EXPECT_TRUE(std::isnan(candidate_quality(Mapping{{"quality_score", kNan}})));
}

TEST(ImprovementDepth, IsAnIntegerOfAnySizeAndOtherwiseZero) {
  const auto depth = [](const Value& value) {
    return str(improvement_depth(Mapping{{"improvement_depth", value}}));
  };
  EXPECT_EQ(depth(3), "3");
  EXPECT_EQ(depth(-3), "-3");
  EXPECT_EQ(depth("2"), "2");
  EXPECT_EQ(depth(1.9), "1");
  EXPECT_EQ(depth(-1.9), "-1");
  EXPECT_EQ(depth(true), "1");
  EXPECT_EQ(depth("100000000000000000000"), "100000000000000000000");
  EXPECT_EQ(depth("x"), "0");
  EXPECT_EQ(depth("1.5"), "0");
  EXPECT_EQ(depth(Value()), "0");
  EXPECT_EQ(depth(kNan), "0");
  EXPECT_EQ(depth(kInfinity), "0");
  EXPECT_EQ(depth(List{}), "0");
  EXPECT_EQ(str(improvement_depth(Mapping())), "0");
  EXPECT_EQ(error_of([] { return improvement_depth(List{}); }),
            "AttributeError: 'list' object has no attribute 'get'");
}

TEST(ReactionPriorityKey, IsNegatedQualityThenDepthThenIndex) {
  const ReactionPriority key = reaction_priority_key(
      Mapping{{"quality_score", 0.5}, {"improvement_depth", 2}, {"candidate_index", "7"}});
  EXPECT_EQ(key.negated_quality, -0.5);
  EXPECT_EQ(key.improvement_depth, 2);
  EXPECT_EQ(key.candidate_index, 7);
  const ReactionPriority bare = reaction_priority_key(Mapping{{"candidate_index", Value()}});
  EXPECT_EQ(bare.negated_quality, 0.0);
  EXPECT_EQ(bare.improvement_depth, 0);
  EXPECT_EQ(bare.candidate_index, 0);
}

bool plain_is_less(const Mapping& left, const Mapping& right) {
  TupleOrder order;
  reaction_priority_key(left).continue_order(order, reaction_priority_key(right));
  return order.is_less();
}

TEST(ReactionPriorityKey, BetterThenShallowerThenEarlierComesFirst) {
  const auto result = [](double quality, int depth, int index) {
    return Mapping{
        {"quality_score", quality}, {"improvement_depth", depth}, {"candidate_index", index}};
  };
  EXPECT_TRUE(plain_is_less(result(2, 9, 9), result(1, 0, 0)));
  EXPECT_TRUE(plain_is_less(result(1, 0, 9), result(1, 1, 0)));
  EXPECT_TRUE(plain_is_less(result(1, 1, 2), result(1, 1, 3)));
  EXPECT_FALSE(plain_is_less(result(1, 1, 2), result(1, 1, 2)));
  EXPECT_FALSE(plain_is_less(result(std::nan(""), 0, 0), result(1, 1, 1)));
  EXPECT_FALSE(plain_is_less(result(1, 0, 0), result(std::nan(""), 1, 1)));
}

class RepairPriorityTest : public testing::Test {
 protected:
  RepairPriority key(const Value& result) {
    return reaction_repair_priority_key(host.json_reader, result);
  }
  bool is_less(const Value& left, const Value& right) { return key(left).is_less_than(key(right)); }

  ScriptedHost host;
};

Mapping one_failure(const Value& reason, double value, double threshold, double quality = 1.0,
                    int depth = 0, int index = 0) {
  return {
      {"failures", Mapping{{reason, Mapping{{"value", value}, {"threshold", threshold}}}}},
      {"quality_score", quality},
      {"improvement_depth", depth},
      {"candidate_index", index},
  };
}

TEST_F(RepairPriorityTest, OneConstraintMissedByUpToItsThresholdIsClose) {
  EXPECT_TRUE(key(one_failure("turnover_max", 2.0, 1.0)).is_close);
  EXPECT_EQ(key(one_failure("turnover_max", 2.0, 1.0)).total_violation, 1.0);
  EXPECT_FALSE(key(one_failure("turnover_max", 2.01, 1.0)).is_close);
  for (const Key reason : REACTION_FAILURE_REASONS) {
    const bool is_sharpe = is_member(SHARPE_REACTION_FAILURE_REASONS, reason);
    EXPECT_EQ(key(one_failure(reason, 1.0, 1.0)).is_close, !is_sharpe) << reason.view();
  }
  EXPECT_FALSE(key(one_failure("correlation_exceeded", 1.0, 1.0)).is_close);
  EXPECT_FALSE(key(one_failure("sharpe_min", 0.99, 1.0)).is_close);
}

TEST_F(RepairPriorityTest, TwoFailuresNoneOrAViolationWithoutNumberAreNotClose) {
  EXPECT_FALSE(key(Mapping{{"failures",
                            Mapping{{"turnover_max", Mapping()}, {"max_weight_max", Mapping()}}}})
                   .is_close);
  // Also a second failure that no reaction addresses counts.
  EXPECT_FALSE(
      key(Mapping{{"failures", Mapping{{"turnover_max", Mapping()}, {"other", Mapping()}}}})
          .is_close);
  EXPECT_FALSE(key(Mapping()).is_close);
  EXPECT_FALSE(
      key(Mapping{{"passes", true}, {"failures", Mapping{{"turnover_max", Mapping()}}}}).is_close);
  EXPECT_FALSE(key(one_failure("turnover_max", std::nan(""), 1.0)).is_close);
  // A failure that is not a mapping misses by exactly its scale.
  EXPECT_TRUE(key(Mapping{{"failures", Mapping{{"turnover_max", "text"}}}}).is_close);
}

TEST_F(RepairPriorityTest, CloseOnesComeBeforeAllOthers) {
  const Mapping close = one_failure("turnover_max", 2.0, 1.0, 0.0, 9, 9);
  const Mapping excellent = one_failure("sharpe_min", 0.99, 1.0, 99.0);
  EXPECT_TRUE(is_less(close, excellent));
  EXPECT_FALSE(is_less(excellent, close));
}

TEST_F(RepairPriorityTest, AmongCloseOnesViolationThenDepthThenQualityThenIndexDecides) {
  const auto close = [](double violation, int depth, double quality, int index) {
    return one_failure("turnover_max", 1.0 + violation, 1.0, quality, depth, index);
  };
  EXPECT_TRUE(is_less(close(0.25, 9, 0.0, 9), close(0.5, 0, 9.0, 0)));
  EXPECT_TRUE(is_less(close(0.5, 1, 0.0, 9), close(0.5, 2, 9.0, 0)));
  EXPECT_TRUE(is_less(close(0.5, 1, 2.0, 9), close(0.5, 1, 1.0, 0)));
  EXPECT_TRUE(is_less(close(0.5, 1, 1.0, 2), close(0.5, 1, 1.0, 3)));
  EXPECT_FALSE(is_less(close(0.5, 1, 1.0, 2), close(0.5, 1, 1.0, 2)));
}

TEST_F(RepairPriorityTest, AmongOthersThePlainKeyDecidesAndNotTheViolation) {
  EXPECT_TRUE(is_less(one_failure("sharpe_min", 0.1, 1.0, 2.0, 5, 5),
                      one_failure("sharpe_min", 0.9, 1.0, 1.0, 0, 0)));
  EXPECT_TRUE(is_less(one_failure("turnover_max", 9.0, 1.0, 1.0, 0, 5),
                      one_failure("turnover_max", 3.0, 1.0, 1.0, 1, 0)));
}

}  // namespace
}  // namespace varnholt::genetic::test
