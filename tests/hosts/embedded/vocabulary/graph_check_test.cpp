// Graphs against a vocabulary: what follows the rules has a shape, and each broken rule has a
// message that names the place and the remedy.
// Method: one small graph a rule, against the whole text.
#include "hosts/embedded/vocabulary/graph_check.hpp"

#include <gtest/gtest.h>

#include "tests/hosts/embedded/graph_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Value;

Vocabulary small_vocabulary() {
  Vocabulary vocabulary = make_vocabulary(MarketData{});
  std::erase_if(vocabulary.functions, [](const FunctionEntry& entry) {
    return entry.name != "cross_rank" && entry.name != "ts_mean" && entry.name != "arith_sub" &&
           entry.name != "ts_correlation";
  });
  vocabulary.windows = {5, 20};
  return vocabulary;
}

std::string refusal(const Value& graph, const GraphLimits& limits = {}) {
  try {
    (void)check_graph(graph, small_vocabulary(), limits);
  } catch (const GraphError& error) {
    return error.text();
  }
  return "accepted";
}

constexpr const char* kNodeMend =
    "; a node is a mapping with the texts \"node\" and \"type\" and the list \"children\"";

TEST(GraphCheck, GivesTheShapeOfASoundGraph) {
  const GraphShape leaf = check_graph(feature("close"), small_vocabulary());
  EXPECT_EQ(leaf.node_count, 1u);
  EXPECT_EQ(leaf.depth, 1);

  const GraphShape shape = check_graph(
      rotation(
          "arith_sub",
          {rotation("ts_mean", {rotation("cross_rank", {feature("returns")}), window("20")}),
           rotation("ts_correlation", {feature("close"), feature("log_returns"), window("5")})}),
      small_vocabulary());
  EXPECT_EQ(shape.node_count, 9u);
  EXPECT_EQ(shape.depth, 4);
}

TEST(GraphCheck, ALeafNeedsNoChildren) {
  const Mapping bare({{"node", "close"}, {"type", "feature"}});
  EXPECT_EQ(check_graph(bare, small_vocabulary()).node_count, 1u);
}

TEST(GraphCheck, RefusesWhatIsNoNode) {
  EXPECT_EQ(
      refusal(Value()),
      std::string("graph, root: there is no node but a value of the type NoneType") + kNodeMend);
  EXPECT_EQ(
      refusal(rotation("cross_rank", {Value("close")})),
      std::string("graph, children[0]: there is no node but a value of the type str") + kNodeMend);
  EXPECT_EQ(refusal(Mapping({genetic::MappingEntry{"type", "feature"}})),
            std::string("graph, root: the node has no \"node\"") + kNodeMend);
  EXPECT_EQ(refusal(Mapping({genetic::MappingEntry{"node", "close"}})),
            std::string("graph, root: the node has no \"type\"") + kNodeMend);
  EXPECT_EQ(refusal(Mapping({{"node", 20}, {"type", "window"}})),
            std::string("graph, root: its \"node\" is no text but of the type int") + kNodeMend);
  EXPECT_EQ(
      refusal(Mapping({{"node", "close"}, {"type", Value()}})),
      std::string("graph, root: its \"type\" is no text but of the type NoneType") + kNodeMend);
  EXPECT_EQ(
      refusal(Mapping({{"node", "close"}, {"type", "feature"}, {"children", Value()}})),
      std::string("graph, root: its \"children\" is no list but of the type NoneType") + kNodeMend);
  EXPECT_EQ(refusal(Mapping({{"node", "close"}, {"type", "feature"}, {"colour", "red"}})),
            "graph, root: the node has entries beside \"node\", \"type\" and \"children\"; remove "
            "them");
}

TEST(GraphCheck, RefusesUnknownWords) {
  EXPECT_EQ(refusal(make_graph_node("close", "leaf", List())),
            "graph, root: \"leaf\" is no type of node; use \"feature\", \"rotation\" or "
            "\"window\"");
  EXPECT_EQ(refusal(feature("volume")),
            "graph, root: \"volume\" is no feature of these market data; use one of close, "
            "returns, log_returns");
  EXPECT_EQ(refusal(rotation("cross_rank", {rotation("ts_meen", {feature("close")})})),
            "graph, children[0]: \"ts_meen\" is no function of this vocabulary; use one of "
            "cross_rank, ts_mean, ts_correlation, arith_sub");
  EXPECT_EQ(
      refusal(rotation("cross_rank", {rotation("ts_mean", {feature("close"), window("21")})})),
      "graph, children[0].children[1]: \"21\" is no window of this vocabulary; use one of "
      "5, 20");
}

TEST(GraphCheck, RefusesChildrenThatDoNotFit) {
  EXPECT_EQ(refusal(rotation("ts_mean", {feature("close")})),
            "graph, root: ts_mean has 1 children where it takes 2; give it 1 feature or rotation "
            "and then a window");
  EXPECT_EQ(refusal(rotation("arith_sub", {})),
            "graph, root: arith_sub has 0 children where it takes 2; give it 2 features or "
            "rotations");
  EXPECT_EQ(refusal(rotation("ts_mean", {window("5"), feature("close")})),
            "graph, children[0]: a window stands where data are expected; put a feature or a "
            "rotation here");
  EXPECT_EQ(refusal(window("5")),
            "graph, root: a window stands where data are expected; put a feature or a rotation "
            "here");
  EXPECT_EQ(refusal(rotation("ts_mean", {feature("close"), feature("close")})),
            "graph, children[1]: a node of the type \"feature\" stands where a window is "
            "expected; put a window here, such as 20 days");
  EXPECT_EQ(refusal(make_graph_node("close", "feature", List({feature("close")}))),
            "graph, root: a node of the type \"feature\" has children; remove them");
  EXPECT_EQ(refusal(rotation("ts_mean", {feature("close"),
                                         make_graph_node("5", "window", List({window("5")}))})),
            "graph, children[1]: a node of the type \"window\" has children; remove them");
}

TEST(GraphCheck, KeepsToItsLimits) {
  const Value graph =
      rotation("ts_mean", {rotation("cross_rank", {feature("close")}), window("5")});
  EXPECT_EQ(refusal(graph, {.max_depth = 3, .max_nodes = 4}), "accepted");
  EXPECT_EQ(refusal(graph, {.max_depth = 2, .max_nodes = 4}),
            "graph, children[0].children[0]: the graph is deeper than 2 nodes; use fewer levels");
  EXPECT_EQ(refusal(graph, {.max_depth = 3, .max_nodes = 3}),
            "graph, children[1]: the graph has more than 3 nodes; use fewer nodes");
}

TEST(GraphCheck, AGraphThatContainsItselfIsTooDeep) {
  List children;
  const Value graph = make_graph_node("cross_rank", "rotation", children);
  children.append(graph);
  const std::string text = refusal(graph);
  EXPECT_NE(text.find("the graph is deeper than 100 nodes; use fewer levels"), std::string::npos)
      << text;
  EXPECT_THROW((void)measure_graph(graph), GraphError);
  children.set(0, Value());  // A cycle of handles would never be freed.
}

TEST(GraphCheck, SharedPartsThatUnfoldWithoutEndAreTooMany) {
  Value graph = feature("close");
  for (int i = 0; i < 60; ++i)
    graph = rotation("arith_sub", {graph, graph});
  EXPECT_NE(refusal(graph).find("the graph has more than 1000 nodes"), std::string::npos);
}

TEST(MeasureGraph, CountsNodesOfAnyName) {
  const Value graph = rotation("whatever", {feature("a"), rotation("b", {feature("c")})});
  const GraphShape shape = measure_graph(graph);
  EXPECT_EQ(shape.node_count, 4u);
  EXPECT_EQ(shape.depth, 3);
  EXPECT_THROW((void)measure_graph(Value(5)), GraphError);
  EXPECT_THROW((void)measure_graph(graph, {.max_depth = 2, .max_nodes = 10}), GraphError);
}

TEST(GraphError, IsAValueErrorOfTheSearch) {
  try {
    (void)measure_graph(Value());
    FAIL();
  } catch (const genetic::Error& error) {
    EXPECT_EQ(error.type_name(), "ValueError");
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
