// What a search context allows: its depth limit, and what validates a graph.
#include "search_templates/genetic/context/context_limits.hpp"

#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::failing;
using test::scripted_callable;
using test::ScriptedHost;
using ::testing::ElementsAre;

Value limit_of(const std::optional<Value>& max_depth) {
  ScriptedHost host;
  host.context.on_max_depth = always(max_depth);
  const Value limit = context_max_depth(host.context);
  EXPECT_THAT(host.log.lines(), ElementsAre("context.max_depth"));
  return limit;
}

TEST(ContextMaxDepth, IsTheIntegerOfTheAttribute) {
  EXPECT_EQ(limit_of(1).integer(), 1);
  EXPECT_EQ(limit_of("12").integer(), 12);
  EXPECT_EQ(limit_of(2.9).integer(), 2);
  EXPECT_EQ(limit_of(true).integer(), 1);
  EXPECT_TRUE(limit_of(true).is_integer());
  EXPECT_EQ(str(limit_of(to_integer("100000000000000000000"))), "100000000000000000000");
}

TEST(ContextMaxDepth, IsAbsentBelowOneAndForWhatIsNoNumber) {
  EXPECT_TRUE(limit_of(std::nullopt).is_absent());
  EXPECT_TRUE(limit_of(0).is_absent());
  EXPECT_TRUE(limit_of(0.9).is_absent());
  EXPECT_TRUE(limit_of(-3).is_absent());
  EXPECT_TRUE(limit_of(false).is_absent());
  EXPECT_TRUE(limit_of("abc").is_absent());
  EXPECT_TRUE(limit_of("2.5").is_absent());
  EXPECT_TRUE(limit_of(Value()).is_absent());
  EXPECT_TRUE(limit_of(List{}).is_absent());
  EXPECT_TRUE(limit_of(std::numeric_limits<double>::infinity()).is_absent());
  EXPECT_TRUE(limit_of(std::numeric_limits<double>::quiet_NaN()).is_absent());
}

TEST(ContextMaxDepth, GuardsTheReadForThreeKindsOfErrorAlone) {
  ScriptedHost host;
  host.context.on_max_depth = failing(TypeError("x"));
  EXPECT_TRUE(context_max_depth(host.context).is_absent());
  host.context.on_max_depth = failing(ValueError("x"));
  EXPECT_TRUE(context_max_depth(host.context).is_absent());
  host.context.on_max_depth = failing(OverflowError("x"));
  EXPECT_TRUE(context_max_depth(host.context).is_absent());
  host.context.on_max_depth = failing(RuntimeError("gone"));
  EXPECT_EQ(test::error_of([&] { return context_max_depth(host.context); }), "RuntimeError: gone");
}

TEST(GraphValidator, IsTheContextsOwn) {
  ScriptedHost host;
  host.context.on_own_graph_validator = always(scripted_callable(host.log, "own", always(1)));
  const Callable validator = graph_validator(host.context);
  validator({1});
  // The backtester is not looked at.
  EXPECT_THAT(host.log.lines(), ElementsAre("context.own_graph_validator", "own(1)"));
}

TEST(GraphValidator, FallsBackToTheBacktestersOrNone) {
  ScriptedHost host;
  host.context.on_backtester_validate_graph =
      always(scripted_callable(host.log, "backtester", always(1)));
  graph_validator(host.context)({2});
  EXPECT_THAT(host.log.lines(), ElementsAre("context.own_graph_validator",
                                            "context.backtester_validate_graph", "backtester(2)"));
  host.context.on_backtester_validate_graph = always(Callable());
  EXPECT_FALSE(graph_validator(host.context));
}

}  // namespace
}  // namespace varnholt::genetic
