// Graphs against a vocabulary: what follows the rules has a shape, and each broken rule has a
// message that names the place and the remedy.
// Method: one small graph a rule, against the whole text.
#include "hosts/embedded/vocabulary/graph_check.hpp"

#include <gtest/gtest.h>

#include "tests/hosts/embedded/graph_helpers.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"

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
            "graph, root: \"leaf\" is no type of node; use \"feature\", \"rotation\", "
            "\"window\", \"constant\", \"number\" or \"group\"");
  EXPECT_EQ(refusal(feature("volume")),
            "graph, root: \"volume\" is no feature of these market data; use one of close, "
            "returns, log_returns, or give prices with a column of numbers of that name");
  EXPECT_EQ(refusal(rotation("cross_rank", {rotation("ts_meen", {feature("close")})})),
            "graph, children[0]: \"ts_meen\" is no function of this vocabulary; use one of "
            "cross_rank, ts_mean, ts_correlation, arith_sub");
  EXPECT_EQ(
      refusal(rotation("cross_rank", {rotation("ts_mean", {feature("close"), window("021")})})),
      "graph, children[0].children[1]: \"021\" is no window; use a whole number of days from 1 to "
      "100000");
}

TEST(GraphCheck, TakesAnyWindowUpToTheLongest) {
  for (const char* days : {"1", "21", "100000"})
    EXPECT_EQ(refusal(rotation("ts_mean", {feature("close"), window(days)})), "accepted") << days;
  for (const char* days : {"0", "-2", "100001", "2.5", "", "99999999999999999999"}) {
    EXPECT_NE(refusal(rotation("ts_mean", {feature("close"), window(days)})), "accepted") << days;
  }
}

TEST(GraphCheck, TakesConstantsBesideData) {
  EXPECT_EQ(refusal(rotation("arith_sub", {constant("2"), feature("close")})), "accepted");
  EXPECT_EQ(
      check_graph(rotation("arith_sub", {constant("-0.5"), feature("close")}), small_vocabulary())
          .node_count,
      3U);
  EXPECT_EQ(refusal(constant("2")),
            "graph, root: the graph is nothing but a constant; put a feature or a rotation here");
  EXPECT_EQ(refusal(rotation("arith_sub", {constant("2"), constant("3")})),
            "graph, root: arith_sub is given nothing but constants; put the number that it comes "
            "to here, or a feature in the place of one");
  EXPECT_EQ(refusal(rotation("ts_mean", {constant("2"), window("5")})),
            "graph, root: ts_mean is given nothing but constants; put the number that it comes to "
            "here, or a feature in the place of one");
  for (const char* text : {"", "02", "2.0", "+2", "1e400", "nan", "inf", "-0", "two"}) {
    EXPECT_EQ(refusal(rotation("arith_sub", {feature("close"), constant(text)})),
              "graph, children[1]: \"" + std::string(text) +
                  "\" is no number as a node holds it; write a finite number with the fewest "
                  "digits, such as 0.5 or -2");
  }
}

TEST(GraphCheck, TakesGroupsAndNumbersOfTheFunctionsThatHaveThem) {
  const Vocabulary rich = rich_vocabulary();
  const auto refused = [&rich](const Value& graph) {
    try {
      (void)check_graph(graph, rich);
    } catch (const GraphError& error) {
      return error.text();
    }
    return std::string("accepted");
  };
  const Value share = make_graph_node("0.25", "number", List());
  const Value sector = make_graph_node("sector", "group", List());
  EXPECT_EQ(refused(rotation("ts_quantile", {feature("close"), share, window("5")})), "accepted");
  EXPECT_EQ(refused(rotation("group_rank", {feature("close"), sector})), "accepted");
  EXPECT_EQ(refused(rotation("ts_quantile", {feature("close"), constant("0.25"), window("5")})),
            "graph, children[1]: a node of the type \"constant\" stands where a number is "
            "expected; put a number here, such as 0.5");
  EXPECT_EQ(refused(rotation("ts_quantile", {feature("close"),
                                             make_graph_node("2", "number", List()), window("5")})),
            "graph, children[1]: 2 is out of range; give ts_quantile a number from 0 to 1");
  EXPECT_EQ(
      refused(rotation("group_rank", {feature("close"), make_graph_node("size", "group", List())})),
      "graph, children[1]: \"size\" is no group of these market data; use one of industry, "
      "sector, or give prices with a column of names of that name");
  EXPECT_EQ(refused(rotation("group_rank", {feature("close")})),
            "graph, root: group_rank has 1 children where it takes 2; give it 1 feature or "
            "rotation and then a group");
  EXPECT_EQ(refused(rotation("cross_rank", {sector})),
            "graph, children[0]: a group stands where data are expected; put a feature or a "
            "rotation here");
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
