// The names of a graph's nodes and the overlap of two graphs. Method: hand-made graphs of every
// shape that can hold nodes, and random graphs against sets computed beside them.
#include "search_templates/genetic/population/node_names.hpp"

#include <random>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

Value node(const Value& name, const List& children = List()) {
  return Mapping{{"node", name}, {"type", "rotation"}, {"children", children}};
}

// A text type of the host that is derived from its own, and shows itself differently.
class DerivedText : public HostObject {
 public:
  explicit DerivedText(std::string text) : text_(std::move(text)) {}

  [[nodiscard]] std::string type_name() const override { return "Name"; }
  [[nodiscard]] bool is_instance_of(Kind kind) const override { return kind == Kind::kText; }
  [[nodiscard]] bool truth() const override { return !text_.empty(); }
  [[nodiscard]] std::string text() const override { return text_; }
  [[nodiscard]] std::string str() const override { return "shown"; }

 private:
  std::string text_;
};

TEST(NodeNames, AreThoseOfEveryNode) {
  const Value graph = node("add", List{node("close"), node("mean", List{node("volume"), node(5)})});
  EXPECT_THAT(graph_node_names(graph), ElementsAre("add", "close", "mean", "volume"));
}

TEST(NodeNames, CountOnceAndForEveryKindOfNode) {
  const Value window = Mapping{{"node", "window_20"}, {"type", "window"}};
  const Value untyped = Mapping{{"node", "bare"}};
  EXPECT_THAT(graph_node_names(node("add", List{window, untyped, node("add"), window})),
              ElementsAre("add", "bare", "window_20"));
}

Value feature(const Value& name) {
  return Mapping{{"node", name}, {"type", "feature"}};
}

TEST(FeatureNames, AreThoseOfTheFeaturesAlone) {
  const Value below =
      Mapping{{"node", "volume"}, {"type", "feature"}, {"children", Tuple{feature("close")}}};
  const Value graph = node("add", List{below, node("mean", List{feature("open")}), feature("open"),
                                       List{feature("high"), 5}});
  EXPECT_THAT(graph_feature_names(graph), ElementsAre("close", "high", "open", "volume"));
  EXPECT_THAT(graph_feature_names(List{feature("a"), feature("b")}), ElementsAre("a", "b"));
}

TEST(FeatureNames, AreTextsThatAreNotEmpty) {
  EXPECT_THAT(graph_feature_names(List{feature(""), feature(5), feature(Value()),
                                       Mapping{{"type", "feature"}}, feature(List{"a"})}),
              IsEmpty());
  EXPECT_THAT(graph_feature_names(feature(make_object<DerivedText>("derived"))),
              ElementsAre("derived"));
}

TEST(FeatureNames, ChildrenAreWalkedAsThoseOfAnyNode) {
  const auto with_children = [](const Value& children) {
    return error_of([&] {
      return graph_feature_names(
          Mapping{{"node", "a"}, {"type", "rotation"}, {"children", children}});
    });
  };
  EXPECT_EQ(with_children("feature"), "no error");
  EXPECT_EQ(with_children(Mapping{{"type", "feature"}, {"node", "b"}}), "no error");
  EXPECT_EQ(with_children(Value()), "TypeError: 'NoneType' object is not iterable");
  EXPECT_EQ(with_children(5), "TypeError: 'int' object is not iterable");
}

TEST(FeatureNames, TableCountsWhatTheSetHolds) {
  NameTable table;
  const NameSet left = table.feature_names_of(List{feature("a"), feature("b"), node("c")});
  const NameSet right = table.feature_names_of(List{feature("b"), feature("c"), feature("b")});
  EXPECT_EQ(left.size(), 2U);
  EXPECT_EQ(right.size(), 2U);
  EXPECT_EQ(NameTable::similarity(left, right), 1.0 / 3.0);
}

TEST(NodeNames, AreTextsThatAreNotEmpty) {
  EXPECT_THAT(graph_node_names(node("", List{node(true), node(Value()), node(1.5), node(List{"a"}),
                                             node(Mapping{{"node", "b"}})})),
              IsEmpty());
  EXPECT_THAT(graph_node_names(node(make_object<DerivedText>("derived"))), ElementsAre("derived"));
  EXPECT_THAT(graph_node_names(node(make_object<DerivedText>(""))), IsEmpty());
}

TEST(NodeNames, AreFoundUnderChildrenAlone) {
  const Value graph = Mapping{{"node", "add"}, {"inputs", List{node("hidden")}}};
  EXPECT_THAT(graph_node_names(graph), ElementsAre("add"));
  // A node without a name of its own is walked all the same.
  EXPECT_THAT(graph_node_names(Mapping{{"children", List{node("below")}}}), ElementsAre("below"));
}

TEST(NodeNames, AreFoundInSequencesWithinSequences) {
  const Value graph = List{node("a"), Tuple{node("b"), List{Value(List{node("c")})}}, "no node", 3};
  EXPECT_THAT(graph_node_names(graph), ElementsAre("a", "b", "c"));
  EXPECT_THAT(graph_node_names(Mapping{{"children", Tuple{List{node("d")}}}}), ElementsAre("d"));
}

TEST(NodeNames, ThereAreNoneInAnythingElse) {
  EXPECT_THAT(graph_node_names(Value()), IsEmpty());
  EXPECT_THAT(graph_node_names("close"), IsEmpty());
  EXPECT_THAT(graph_node_names(7), IsEmpty());
  EXPECT_THAT(graph_node_names(Mapping()), IsEmpty());
}

// Whatever can be walked is walked: the characters of a text and the keys of a mapping are no
// nodes. Only a missing "children" counts as none.
TEST(NodeNames, WalkWhateverChildrenAre) {
  EXPECT_THAT(graph_node_names(Mapping{{"node", "a"}, {"children", "bcd"}}), ElementsAre("a"));
  EXPECT_THAT(graph_node_names(Mapping{{"node", "a"}, {"children", node("b")}}), ElementsAre("a"));
  EXPECT_EQ(error_of([] {
              return graph_node_names(Mapping{{"node", "a"}, {"children", Value()}});
            }),
            "TypeError: 'NoneType' object is not iterable");
  EXPECT_EQ(error_of([] {
              return graph_node_names(Mapping{{"children", 3}});
            }),
            "TypeError: 'int' object is not iterable");
}

TEST(NodeNames, AreReadFromTheHostsContainers) {
  const Value graph = node("add", List{node("close"), List{node("open")}});
  EXPECT_THAT(graph_node_names(test::as_host_containers(graph)),
              ElementsAre("add", "close", "open"));
}

TEST(NodeNames, OfAGraphNestedTooDeepAreAnError) {
  const auto nested = [](int levels) {
    Value graph = node("leaf");
    for (int i = 0; i < levels; ++i)
      graph = node("wrap", List{graph});
    return graph;
  };
  EXPECT_THAT(graph_node_names(nested(kMaximumNesting)), ElementsAre("leaf", "wrap"));
  EXPECT_EQ(error_of([&] { return graph_node_names(nested(kMaximumNesting + 1)); }),
            "RecursionError: maximum recursion depth exceeded");
  NameTable table;
  EXPECT_EQ(error_of([&] {
              static_cast<void>(table.names_of(nested(kMaximumNesting + 1)));
              return 0;
            }),
            "RecursionError: maximum recursion depth exceeded");
}

TEST(GraphSimilarity, IsTheSharedNamesByAllNames) {
  const Value left = node("add", List{node("close"), node("open")});
  const Value right = node("sub", List{node("close"), node("open"), node("high")});
  EXPECT_EQ(graph_similarity(left, right), 2.0 / 5.0);
  EXPECT_EQ(graph_similarity(right, left), 2.0 / 5.0);
  EXPECT_EQ(graph_similarity(left, left), 1.0);
  EXPECT_EQ(graph_similarity(left, node("close")), 1.0 / 3.0);
  EXPECT_EQ(graph_similarity(left, node("volume")), 0.0);
}

TEST(GraphSimilarity, OfGraphsWithoutNamesIsNone) {
  EXPECT_EQ(graph_similarity(Mapping(), Mapping()), 0.0);
  EXPECT_EQ(graph_similarity(Value(), Value()), 0.0);
  EXPECT_EQ(graph_similarity(Mapping(), node("close")), 0.0);
  EXPECT_EQ(graph_similarity(node("close"), "close"), 0.0);
}

TEST(NameTable, GivesTheSameSimilarities) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 draw(seed);
    // More names than a word of bits holds.
    const std::uint64_t vocabulary = 1 + draw() % 200;
    std::vector<Value> graphs;
    std::vector<std::set<std::string>> expected;
    for (int graph = 0; graph < 8; ++graph) {
      List children;
      std::set<std::string> names;
      for (std::uint64_t count = draw() % 30; count > 0; --count) {
        const std::string name = "name_" + std::to_string(draw() % vocabulary);
        children.append(node(name));
        names.insert(name);
      }
      graphs.push_back(Mapping{{"children", children}});
      expected.push_back(names);
    }
    NameTable table;
    std::vector<NameSet> sets;
    for (const Value& graph : graphs)
      sets.push_back(table.names_of(graph));
    for (std::size_t i = 0; i < graphs.size(); ++i) {
      EXPECT_EQ(graph_node_names(graphs[i]), expected[i]);
      EXPECT_EQ(sets[i].size(), expected[i].size());
      for (std::size_t j = 0; j < graphs.size(); ++j) {
        std::size_t shared = 0;
        for (const std::string& name : expected[i])
          shared += expected[j].count(name);
        const std::size_t all = expected[i].size() + expected[j].size() - shared;
        const double similarity =
            all == 0 ? 0.0 : static_cast<double>(shared) / static_cast<double>(all);
        EXPECT_EQ(graph_similarity(graphs[i], graphs[j]), similarity);
        EXPECT_EQ(NameTable::similarity(sets[i], sets[j]), similarity);
      }
    }
  }
}

}  // namespace
}  // namespace varnholt::genetic
