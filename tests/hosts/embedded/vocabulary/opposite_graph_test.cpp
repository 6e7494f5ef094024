// The graph of the opposite signal. Method: graphs written out.
#include "hosts/embedded/vocabulary/opposite_graph.hpp"

#include <gtest/gtest.h>

#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/graph_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;

const Value kGraph = rotation("ts_mean", {feature("returns"), window("5")});

TEST(OppositeGraph, IsANegationOrWhatItNegates) {
  EXPECT_TRUE(opposite_graph(kGraph) == rotation("arith_neg", {kGraph}));
  EXPECT_TRUE(opposite_graph(rotation("arith_neg", {kGraph})) == kGraph);
}

TEST(OppositeGraph, IsAGraphOfItsOwn) {
  const Value graph = rotation("arith_neg", {feature("close")});
  const Value opposite = opposite_graph(graph);
  EXPECT_FALSE(genetic::same_object(opposite, graph.mapping().at("children").list().at(0)));
}

TEST(WithoutSign, TakesOffEveryNegationAtTheRootAndNoOther) {
  const Value inner = rotation("arith_abs", {rotation("arith_neg", {feature("close")})});
  EXPECT_TRUE(without_sign(rotation("arith_neg", {rotation("arith_neg", {inner})})) == inner);
  EXPECT_TRUE(genetic::same_object(without_sign(inner), inner));
}

}  // namespace
}  // namespace varnholt::embedded::test
