// The parts of a graph: places and shapes by hand, and new graphs that share nothing with the old.
#include "hosts/embedded/operators/graph_parts.hpp"

#include <gtest/gtest.h>

#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::List;
using genetic::Value;

Value feature(const char* name) {
  return make_graph_node(name, kFeatureType, List());
}
Value window(const char* days) {
  return make_graph_node(days, kWindowType, List());
}
Value rotation(const char* name, List children) {
  return make_graph_node(name, kRotationType, std::move(children));
}

// arith_add(ts_mean(close, 5), volume)
Value sample() {
  return rotation("arith_add",
                  {rotation("ts_mean", {feature("close"), window("5")}), feature("volume")});
}

TEST(GraphParts, ListsEachNodeBeforeItsChildrenWithItsShape) {
  const auto parts = graph_parts(sample());
  ASSERT_EQ(parts.size(), 5U);
  EXPECT_EQ(parts[0].name, "arith_add");
  EXPECT_TRUE(parts[0].path.empty());
  EXPECT_EQ(parts[0].data_children, 2U);
  EXPECT_EQ(parts[0].settings, "");
  EXPECT_EQ(parts[0].shape.node_count, 5U);
  EXPECT_EQ(parts[0].shape.depth, 3);
  EXPECT_EQ(parts[1].name, "ts_mean");
  EXPECT_EQ(parts[1].path, (std::vector<std::size_t>{0}));
  EXPECT_EQ(parts[1].data_children, 1U);
  EXPECT_EQ(parts[1].settings, "window,");
  EXPECT_EQ(parts[1].shape.node_count, 3U);
  EXPECT_EQ(parts[3].name, "5");
  EXPECT_EQ(parts[3].path, (std::vector<std::size_t>{0, 1}));
  EXPECT_FALSE(parts[3].is_data());
  EXPECT_EQ(parts[3].depth_above(), 2);
  EXPECT_EQ(parts[4].name, "volume");
  EXPECT_TRUE(parts[4].is_data());
}

TEST(GraphParts, APartTakesAnothersPlaceInANewGraph) {
  const Value graph = sample();
  const Value part = rotation("arith_neg", {feature("open")});
  const Value child = with_part(graph, {0, 0}, part);
  EXPECT_EQ(expression_text(child), "arith_add(ts_mean(arith_neg(open), 5), volume)");
  EXPECT_EQ(expression_text(with_part(graph, {}, part)), "arith_neg(open)");
  EXPECT_EQ(expression_text(graph), "arith_add(ts_mean(close, 5), volume)");
  // Nothing is shared: changing the child changes neither parent nor part.
  graph_parts(child)[3].node.mapping().set(genetic::keys::kNode, "high");
  EXPECT_EQ(expression_text(part), "arith_neg(open)");
  EXPECT_EQ(expression_text(child), "arith_add(ts_mean(arith_neg(high), 5), volume)");
}

TEST(GraphParts, ANameChangesInANewGraph) {
  const Value graph = sample();
  EXPECT_EQ(expression_text(with_name(graph, {0, 1}, "20")),
            "arith_add(ts_mean(close, 20), volume)");
  EXPECT_EQ(expression_text(with_name(graph, {}, "arith_sub")),
            "arith_sub(ts_mean(close, 5), volume)");
  EXPECT_EQ(expression_text(graph), "arith_add(ts_mean(close, 5), volume)");
}

}  // namespace
}  // namespace varnholt::embedded::test
