// Plain and frozen graphs: what is plain data, in which order a bad graph is refused, and that the
// copies share nothing. Method: each rule by the smallest graph, random graphs for the round trip.
#include "search_templates/genetic/graph/plain_graph.hpp"

#include <cmath>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/python_process.hpp"
#include "tests/support/random_values.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic {
namespace {

using test::as_host_containers;
using test::error_of;

const std::string kNotPlain =
    "TypeError: genetic initial candidates must contain only plain graph data";
const std::string kBadKey = "TypeError: genetic initial candidate graph keys must be strings";

// An object that derives from a kind of ours without being of its exact type.
class Derived : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Derived"; }
  [[nodiscard]] bool is_instance_of(Kind /*kind*/) const override { return true; }
  [[nodiscard]] std::optional<Mapping> as_mapping() const override { return Mapping(); }
};

// A text that our kind cannot hold but is of the exact text type.
class StrayText : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "str"; }
  [[nodiscard]] Kind exact_kind() const override { return Kind::kText; }
};

TEST(FreezeGraphData, GivesPairsOfKindAndPayload) {
  const Mapping graph{{"a", List{1, Value(), true}}};
  EXPECT_EQ(repr(freeze_graph_data(graph)),
            "('dict', (('a', ('list', (('scalar', 1), ('scalar', None), ('scalar', True)))),))");
  EXPECT_EQ(repr(freeze_graph_data(Mapping{})), "('dict', ())");
  EXPECT_EQ(repr(freeze_graph_data(List{})), "('list', ())");
  EXPECT_EQ(repr(freeze_graph_data("x")), "('scalar', 'x')");
}

TEST(FreezeGraphData, KeepsTheOrderOfKeys) {
  EXPECT_EQ(repr(freeze_graph_data(Mapping{{"b", 1}, {"a", 2}})),
            "('dict', (('b', ('scalar', 1)), ('a', ('scalar', 2))))");
}

TEST(ThawGraphData, GivesAnEqualGraphThatSharesNothing) {
  Mapping graph{{"a", List{1, Value(), true}}};
  const Value frozen = freeze_graph_data(graph);
  const Value thawed = thaw_graph_data(frozen);
  EXPECT_TRUE(thawed == Value(graph));
  thawed.mapping().at("a").list().append("new");
  graph.set("b", 1);
  EXPECT_EQ(repr(thaw_graph_data(frozen)), "{'a': [1, None, True]}");
}

TEST(ThawGraphData, ReadsPairsByIndex) {
  EXPECT_EQ(thaw_graph_data(Tuple{"scalar", 5, "more"}).integer(), 5);
  EXPECT_EQ(repr(thaw_graph_data(List{"list", Tuple{Value(Tuple{"scalar", 1, 2})}})), "[1]");
  EXPECT_EQ(repr(thaw_graph_data(Tuple{"dict", List{Value(List{"k", Tuple{"scalar", 1}, 3})}})),
            "{'k': 1}");
}

TEST(ThawGraphData, RefusesWhatIsNoFrozenForm) {
  EXPECT_EQ(error_of([] {
              return thaw_graph_data(Tuple{"set", Tuple{}});
            }),
            "TypeError: invalid frozen genetic graph data");
  EXPECT_EQ(error_of([] { return thaw_graph_data("xy"); }),
            "TypeError: invalid frozen genetic graph data");
  EXPECT_EQ(error_of([] { return thaw_graph_data(Tuple{"scalar"}); }),
            "IndexError: tuple index out of range");
  EXPECT_EQ(error_of([] { return thaw_graph_data(5); }),
            "TypeError: 'int' object is not subscriptable");
}

TEST(PlainGraphData, CopiesContainersAndKeepsScalars) {
  const Value nan(std::nan(""));
  const Value huge = to_integer("100000000000000000000");
  const Value graph = Mapping{{"b", List{Mapping{}, nan, huge}}, {"a", "text"}};
  const Value copy = plain_graph_data(graph);
  EXPECT_EQ(repr(copy), "{'b': [{}, nan, 100000000000000000000], 'a': 'text'}");
  EXPECT_FALSE(same_object(copy, graph));
  const List inner = copy.mapping().at("b").list();
  EXPECT_FALSE(same_object(inner.at(0), graph.mapping().at("b").list().at(0)));
  // A scalar is the same object: for a NaN that is its identity.
  EXPECT_TRUE(same_object(inner.at(1), nan));
  EXPECT_TRUE(same_object(inner.at(2), huge));
  EXPECT_EQ(plain_graph_data(5).integer(), 5);
  EXPECT_TRUE(plain_graph_data(Value()).is_absent());
}

TEST(PlainGraphData, IsTheLibrarysOwnAlsoFromContainersOfTheHost) {
  const Value graph = Mapping{{"b", List{Mapping{{"c", 1}}, 2}}, {"a", "text"}};
  const Value copy = plain_graph_data(as_host_containers(graph));
  EXPECT_TRUE(copy.mapping().is_native());
  EXPECT_TRUE(copy.mapping().at("b").list().is_native());
  EXPECT_EQ(repr(copy), repr(graph));
  EXPECT_EQ(repr(freeze_graph_data(as_host_containers(graph))), repr(freeze_graph_data(graph)));
}

TEST(PlainGraphData, WhatIsSharedInAGraphIsCopiedAtEachPlace) {
  const List shared{1};
  const Value copy = plain_graph_data(List{shared, shared});
  EXPECT_FALSE(same_object(copy.list().at(0), copy.list().at(1)));
}

// Every form refuses the same values with the same errors.
void check_refusals(const std::function<Value(const Value&)>& form) {
  EXPECT_EQ(error_of([&] { return form(Tuple{}); }), kNotPlain);
  EXPECT_EQ(error_of([&] { return form(Mapping{{"a", List{Tuple{1}}}}); }), kNotPlain);
  EXPECT_EQ(error_of([&] { return form(make_object<Derived>()); }), kNotPlain);
  EXPECT_EQ(error_of([&] { return form(test::scripted_object(Mapping())); }), kNotPlain);
  EXPECT_EQ(error_of([&] { return form(Mapping{{1, 1}}); }), kBadKey);
  EXPECT_EQ(error_of([&] { return form(Mapping{{Value(), 1}}); }), kBadKey);
  EXPECT_EQ(error_of([&] { return form(Mapping{{make_object<Derived>(), 1}}); }), kBadKey);
  // The key is tested before its own value, and after the pairs before it.
  EXPECT_EQ(error_of([&] { return form(Mapping{{1, Tuple{}}}); }), kBadKey);
  EXPECT_EQ(error_of([&] { return form(Mapping{{"a", Tuple{}}, {1, 1}}); }), kNotPlain);
  EXPECT_EQ(error_of([&] { return form(Mapping{{1, 1}, {"a", Tuple{}}}); }), kBadKey);
  EXPECT_EQ(error_of([&] {
              return form(as_host_containers(Mapping{{"a", Tuple{}}, {1, 1}}));
            }),
            kNotPlain);
  EXPECT_EQ(error_of([&] { return form(as_host_containers(Mapping{{1, Tuple{}}})); }), kBadKey);
}

TEST(PlainGraphData, RefusesWhatIsNotPlain) {
  check_refusals([](const Value& value) { return plain_graph_data(value); });
}

TEST(FreezeGraphData, RefusesWhatIsNotPlain) {
  check_refusals([](const Value& value) { return freeze_graph_data(value); });
}

TEST(PlainGraphData, TakesScalarsOfTheExactTypeThatAreObjects) {
  EXPECT_EQ(error_of([] { return plain_graph_data(List{make_object<StrayText>()}); }), "no error");
  EXPECT_EQ(error_of([] {
              return plain_graph_data(Mapping{{make_object<StrayText>(), 1}});
            }),
            "no error");
}

Value nested(int levels) {
  Value value = 1;
  for (int i = 0; i < levels; ++i)
    value = i % 2 == 0 ? Value(List{value}) : Value(Mapping{{"k", value}});
  return value;
}

Value frozen_nested(int levels) {
  Value value = Tuple{"scalar", 1};
  for (int i = 0; i < levels; ++i)
    value = Tuple{"list", Tuple{value}};
  return value;
}

TEST(DeepGraphs, AreAnOrdinaryErrorInEveryWalk) {
  const std::string too_deep = "RecursionError: maximum recursion depth exceeded";
  const Value deep = nested(100'000);
  EXPECT_EQ(error_of([&] { return plain_graph_data(deep); }), too_deep);
  EXPECT_EQ(error_of([&] { return freeze_graph_data(deep); }), too_deep);
  EXPECT_EQ(error_of([&] { return plain_initial_candidates(List{deep}); }), too_deep);
  EXPECT_EQ(error_of([] { return thaw_graph_data(frozen_nested(100'000)); }), too_deep);
}

TEST(DeepGraphs, WithinTheLimitAreFine) {
  const Value deep = nested(kMaximumNesting);
  EXPECT_EQ(error_of([&] { return plain_graph_data(deep); }), "no error");
  EXPECT_EQ(error_of([&] { return thaw_graph_data(freeze_graph_data(deep)); }), "no error");
  EXPECT_NE(error_of([&] { return plain_graph_data(List{Value(List{deep})}); }), "no error");
}

TEST(PlainInitialCandidates, TakeAbsentAndTheExactListAlone) {
  EXPECT_TRUE(plain_initial_candidates(Value()).is_absent());
  EXPECT_EQ(repr(plain_initial_candidates(List{})), "()");
  EXPECT_EQ(repr(plain_initial_candidates(List{Mapping{{"a", 1}}, 5, List{}})),
            "(('dict', (('a', ('scalar', 1)),)), ('scalar', 5), ('list', ()))");
  EXPECT_EQ(repr(plain_initial_candidates(as_host_containers(List{5}))), "(('scalar', 5),)");
  const std::string message =
      "TypeError: genetic initial_candidates must be a list of graph dictionaries";
  for (const Value& value :
       {Value(Tuple{}), Value(Mapping{}), Value("ab"), Value(0), Value(make_object<Derived>())}) {
    EXPECT_EQ(error_of([&] { return plain_initial_candidates(value); }), message);
  }
  EXPECT_EQ(error_of([] { return plain_initial_candidates(List{1, Tuple{}}); }), kNotPlain);
}

TEST(GraphForms, OfRandomGraphsComeBackEqual) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  test::RandomValues random(seed);
  for (int i = 0; i < 500; ++i) {
    const Value graph = random.plain(i % 5);
    const std::string text = repr(graph);
    EXPECT_EQ(repr(plain_graph_data(graph)), text);
    EXPECT_EQ(repr(plain_graph_data(as_host_containers(graph))), text);
    EXPECT_EQ(repr(thaw_graph_data(freeze_graph_data(graph))), text);
  }
}

}  // namespace
}  // namespace varnholt::genetic
