// The filters of a batch: they answer false or absent on bad data and never fail on it, and the
// absence of a limit or a validator is looked at first. Method: a scripted engine and validators.
#include "search_templates/genetic/graph/graph_filters.hpp"

#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::error_of;
using test::failing;
using test::scripted_callable;
using test::ScriptedHost;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class GraphFilters : public ::testing::Test {
 protected:
  [[nodiscard]] bool within(const Value& graph, const Value& max_depth) {
    return graph_within_max_depth(host_.engine, graph, max_depth);
  }

  ScriptedHost host_;
};

TEST_F(GraphFilters, AnAbsentLimitAllowsAnythingWithoutAskingTheHost) {
  EXPECT_TRUE(within("x", Value()));
  EXPECT_TRUE(within(Mapping{}, Value()));
  EXPECT_THAT(host_.log.lines(), IsEmpty());
}

TEST_F(GraphFilters, WhatIsNoMappingIsNotWithinALimit) {
  EXPECT_FALSE(within("x", 3));
  EXPECT_FALSE(within(Value(), 3));
  EXPECT_FALSE(within(List{}, 3));
  EXPECT_THAT(host_.log.lines(), IsEmpty());
}

TEST_F(GraphFilters, ADepthAtTheLimitPasses) {
  host_.engine.on_graph_depth_for_attempt_marker = always(3);
  EXPECT_TRUE(within(Mapping{{"a", 1}}, 3));
  EXPECT_FALSE(within(Mapping{}, 2));
  EXPECT_TRUE(within(test::as_host_containers(Mapping{}), 4));
  EXPECT_THAT(host_.log.lines(), ElementsAre("engine.graph_depth_for_attempt_marker({'a': 1})",
                                             "engine.graph_depth_for_attempt_marker({})",
                                             "engine.graph_depth_for_attempt_marker({})"));
}

TEST_F(GraphFilters, DepthAndLimitAreConvertedToIntegers) {
  host_.engine.on_graph_depth_for_attempt_marker = always("3");
  EXPECT_TRUE(within(Mapping{}, 3.9));
  EXPECT_FALSE(within(Mapping{}, "2"));
  host_.engine.on_graph_depth_for_attempt_marker = always(3.9);
  EXPECT_TRUE(within(Mapping{}, 3));
  EXPECT_TRUE(within(Mapping{}, to_integer("100000000000000000000")));
}

TEST_F(GraphFilters, ADepthThatCannotBeToldIsNotWithinTheLimit) {
  for (const Value& depth :
       {Value("deep"), Value(), Value(List{}), Value(std::numeric_limits<double>::infinity())}) {
    host_.engine.on_graph_depth_for_attempt_marker = always(depth);
    EXPECT_FALSE(within(Mapping{}, 3));
  }
  host_.engine.on_graph_depth_for_attempt_marker = always(1);
  EXPECT_FALSE(within(Mapping{}, "deep"));
  EXPECT_FALSE(within(Mapping{}, List{}));
  host_.engine.on_graph_depth_for_attempt_marker = failing(TypeError("x"));
  EXPECT_FALSE(within(Mapping{}, 3));
  host_.engine.on_graph_depth_for_attempt_marker = failing(ValueError("x"));
  EXPECT_FALSE(within(Mapping{}, 3));
  host_.engine.on_graph_depth_for_attempt_marker = failing(OverflowError("x"));
  EXPECT_FALSE(within(Mapping{}, 3));
}

TEST_F(GraphFilters, AnotherErrorOfTheDepthPasses) {
  host_.engine.on_graph_depth_for_attempt_marker = failing(KeyError("'children'"));
  EXPECT_EQ(error_of([&] { return within(Mapping{}, 3); }), "KeyError: 'children'");
}

TEST_F(GraphFilters, AnItemIsMeasuredByItsGraph) {
  host_.engine.on_graph_depth_for_attempt_marker = always(1);
  const auto item_within = [&](const Value& item, const Value& limit) {
    const bool answer = candidate_item_within_max_depth(host_.engine, item, limit);
    EXPECT_EQ(reaction_improvement_within_graph_max_depth(host_.engine, item, limit), answer);
    return answer;
  };
  EXPECT_TRUE(item_within(Mapping{{"graph", Mapping{}}}, 1));
  EXPECT_FALSE(item_within(Mapping{{"graph", "x"}}, 1));
  // A missing entry is an absent graph.
  EXPECT_FALSE(item_within(Mapping{}, 1));
  EXPECT_TRUE(item_within(Mapping{}, Value()));
  // Anything but a mapping fails before the limit is looked at.
  EXPECT_FALSE(item_within("x", Value()));
  EXPECT_FALSE(item_within(Value(), Value()));
}

TEST_F(GraphFilters, AMissingValidatorAcceptsAnything) {
  EXPECT_TRUE(graph_passes_validator("x", Callable()));
  EXPECT_TRUE(graph_passes_validator(Value(), Callable()));
}

TEST_F(GraphFilters, AValidatorIsAskedAboutMappingsAloneAndItsResultCounts) {
  Value answer = true;
  const Callable validator = scripted_callable(
      host_.log, "validator", [&answer](std::span<const Value>, const Mapping&) { return answer; });
  EXPECT_FALSE(graph_passes_validator("x", validator));
  EXPECT_FALSE(graph_passes_validator(Value(), validator));
  EXPECT_THAT(host_.log.lines(), IsEmpty());
  EXPECT_TRUE(graph_passes_validator(Mapping{{"a", 1}}, validator));
  EXPECT_THAT(host_.log.lines(), ElementsAre("validator({'a': 1})"));
  for (const Value& refusal : {Value(false), Value(0), Value(), Value(""), Value(List{})}) {
    answer = refusal;
    EXPECT_FALSE(graph_passes_validator(Mapping{}, validator));
  }
  answer = "yes";
  EXPECT_TRUE(graph_passes_validator(Mapping{}, validator));
}

TEST_F(GraphFilters, AValidatorSeesACopy) {
  const Value graph = Mapping{{"children", List{Mapping{{"node", "a"}}}}};
  const Callable validator =
      scripted_callable(host_.log, "validator", [](std::span<const Value> given, const Mapping&) {
        Mapping copy = given[0].mapping();
        copy.at("children").list().at(0).mapping().set("node", "changed");
        copy.set("new", 1);
        return Value(true);
      });
  EXPECT_TRUE(graph_passes_validator(graph, validator));
  EXPECT_EQ(repr(graph), "{'children': [{'node': 'a'}]}");
}

// An object whose truth, or whose copy, fails.
class Broken : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Broken"; }
  [[nodiscard]] bool truth() const override { throw RuntimeError("no truth"); }
  [[nodiscard]] Value deep_copy() const override { throw RuntimeError("no copy"); }
};

TEST_F(GraphFilters, AValidatorsFailureIsARefusal) {
  EXPECT_FALSE(graph_passes_validator(
      Mapping{}, scripted_callable(host_.log, "validator", failing(KeyError("x")))));
  const Callable undecided =
      scripted_callable(host_.log, "validator", always(Value(make_object<Broken>())));
  EXPECT_FALSE(graph_passes_validator(Mapping{}, undecided));
  host_.log.clear();
  const Callable content = scripted_callable(host_.log, "validator", always(true));
  EXPECT_FALSE(graph_passes_validator(Mapping{{"a", make_object<Broken>()}}, content));
  EXPECT_THAT(host_.log.lines(), IsEmpty());
}

// Not derived from std::exception: what ends a program rather than what goes wrong.
struct Interrupt {};

TEST_F(GraphFilters, AnInterruptOfAValidatorPasses) {
  const Callable validator =
      scripted_callable(host_.log, "validator",
                        [](std::span<const Value>, const Mapping&) -> Value { throw Interrupt(); });
  EXPECT_THROW(static_cast<void>(graph_passes_validator(Mapping{}, validator)), Interrupt);
}

TEST_F(GraphFilters, AnItemIsValidatedByItsGraph) {
  const Callable validator = scripted_callable(host_.log, "validator", always(true));
  EXPECT_TRUE(candidate_item_passes_validator(Mapping{{"graph", Mapping{}}}, validator));
  EXPECT_FALSE(candidate_item_passes_validator(Mapping{}, validator));
  EXPECT_TRUE(candidate_item_passes_validator(Mapping{}, Callable()));
  EXPECT_FALSE(candidate_item_passes_validator(List{}, Callable()));
}

class LineageCandidateItem : public GraphFilters {
 protected:
  [[nodiscard]] Value made(const std::function<Value()>& factory, const Value& max_depth = Value(),
                           const Callable& validator = Callable()) {
    return lineage_candidate_item(host_.engine, factory, "fresh_random", max_depth, validator);
  }
};

TEST_F(LineageCandidateItem, IsACopyWithItsLineage) {
  const Mapping source{{"graph", Mapping{{"a", 1}}}, {"lineage", "old"}};
  const Value item = made(always(source));
  EXPECT_EQ(repr(item), "{'graph': {'a': 1}, 'lineage': 'fresh_random'}");
  EXPECT_EQ(source.at("lineage").text(), "old");
  EXPECT_TRUE(same_object(item.mapping().at("graph"), source.at("graph")));
}

TEST_F(LineageCandidateItem, TakesPairsAndDropsWhatIsNoMapping) {
  EXPECT_EQ(repr(made(always(List{Tuple{"graph", 1}}))), "{'graph': 1, 'lineage': 'fresh_random'}");
  EXPECT_TRUE(made(always(5)).is_absent());
  EXPECT_TRUE(made(always(Value())).is_absent());
  EXPECT_TRUE(made(always("abc")).is_absent());
}

TEST_F(LineageCandidateItem, AFailingFactoryCostsTheItem) {
  EXPECT_TRUE(made(failing(IndexError("list index out of range"))).is_absent());
  EXPECT_TRUE(made([]() -> Value { throw std::bad_alloc(); }).is_absent());
  EXPECT_THROW(static_cast<void>(made([]() -> Value { throw Interrupt(); })), Interrupt);
}

TEST_F(LineageCandidateItem, MustPassDepthThenValidator) {
  host_.engine.on_graph_depth_for_attempt_marker = always(2);
  const Callable validator = scripted_callable(host_.log, "validator", always(true));
  const Mapping item{{"graph", Mapping{}}};
  EXPECT_TRUE(made(always(item), 1, validator).is_absent());
  EXPECT_THAT(host_.log.names(), ElementsAre("engine.graph_depth_for_attempt_marker"));
  host_.log.clear();
  EXPECT_FALSE(made(always(item), 2, validator).is_absent());
  EXPECT_THAT(host_.log.names(), ElementsAre("engine.graph_depth_for_attempt_marker", "validator"));
  const Callable refusing = scripted_callable(host_.log, "validator", always(Value()));
  EXPECT_TRUE(made(always(item), 2, refusing).is_absent());
}

TEST_F(LineageCandidateItem, AnErrorOfTheDepthPasses) {
  host_.engine.on_graph_depth_for_attempt_marker = failing(KeyError("'k'"));
  EXPECT_EQ(error_of([&] {
              return made(always(Mapping{{"graph", Mapping{}}}), 1);
            }),
            "KeyError: 'k'");
}

}  // namespace
}  // namespace varnholt::genetic
