// Compiled graphs: steps in an order that can be evaluated, and equal subtrees as one step.
// Method: small graphs with their steps written out.
#include "hosts/embedded/vocabulary/expression.hpp"

#include <gtest/gtest.h>

#include "tests/hosts/embedded/graph_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

TEST(Expression, PutsEachStepAfterItsInputs) {
  const Vocabulary vocabulary = make_vocabulary(MarketData{});
  const Expression expression = compile_expression(
      rotation("arith_div", {rotation("ts_delta", {feature("close"), window("5")}),
                             rotation("ts_std", {feature("returns"), window("20")})}),
      vocabulary);
  ASSERT_EQ(expression.steps.size(), 5u);
  EXPECT_EQ(expression.steps[0].feature, vocabulary.find_feature("close"));
  EXPECT_EQ(expression.steps[1].function, vocabulary.find_function("ts_delta"));
  EXPECT_EQ(expression.steps[1].inputs[0], 0u);
  EXPECT_EQ(expression.steps[1].window, 5);
  EXPECT_EQ(expression.steps[2].feature, vocabulary.find_feature("returns"));
  EXPECT_EQ(expression.steps[3].window, 20);
  EXPECT_EQ(expression.steps[4].function, vocabulary.find_function("arith_div"));
  EXPECT_EQ(expression.steps[4].inputs[0], 1u);
  EXPECT_EQ(expression.steps[4].inputs[1], 3u);
  EXPECT_EQ(expression.shape.node_count, 7u);
}

TEST(Expression, SubtreesThatSayTheSameAreOneStep) {
  const Vocabulary vocabulary = make_vocabulary(MarketData{});
  const auto mean = [](const char* days) {
    return rotation("ts_mean", {feature("close"), window(days)});
  };
  const Expression same =
      compile_expression(rotation("arith_sub", {mean("5"), mean("5")}), vocabulary);
  EXPECT_EQ(same.steps.size(), 3u);
  EXPECT_EQ(same.steps[2].inputs[0], same.steps[2].inputs[1]);
  EXPECT_EQ(same.shape.node_count, 7u);
  // Another window is another step.
  EXPECT_EQ(
      compile_expression(rotation("arith_sub", {mean("5"), mean("10")}), vocabulary).steps.size(),
      4u);
}

}  // namespace
}  // namespace varnholt::embedded::test
