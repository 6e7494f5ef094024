// The readable form of graphs.
// Method: a few graphs with their text.
#include "hosts/embedded/vocabulary/expression_text.hpp"

#include <gtest/gtest.h>

#include "tests/hosts/embedded/graph_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

TEST(ExpressionText, WritesCalls) {
  EXPECT_EQ(expression_text(feature("close")), "close");
  EXPECT_EQ(expression_text(
                rotation("cross_rank", {rotation("ts_delta", {feature("close"), window("5")})})),
            "cross_rank(ts_delta(close, 5))");
  EXPECT_EQ(expression_text(rotation(
                "ts_correlation",
                {feature("close"), rotation("arith_neg", {feature("volume")}), window("20")})),
            "ts_correlation(close, arith_neg(volume), 20)");
  EXPECT_EQ(expression_text(rotation("of_no_vocabulary", {})), "of_no_vocabulary");
}

TEST(ExpressionText, RefusesWhatIsNoGraph) {
  EXPECT_THROW((void)expression_text(genetic::Value("close")), GraphError);
  EXPECT_THROW((void)expression_text(rotation("cross_rank", {genetic::Value(3)})), GraphError);
  EXPECT_THROW((void)expression_text(rotation("cross_rank", {feature("close")}),
                                     {.max_depth = 1, .max_nodes = 10}),
               GraphError);
}

}  // namespace
}  // namespace varnholt::embedded::test
