// Goal: the gates are asked again for all failures of a result, in a settled order, and only the
// failures of metrics and gates are swallowed.
//
// Method: scripted gates, the log of what they are asked, and every place where a failure may
// arise.
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/reaction/expansion_harness.hpp"
#include "tests/support/error_of.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

// An interrupt of the host: no ordinary error.
struct Interrupt {};

// An object of the host whose every attribute fails.
class Broken : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Broken"; }
  [[nodiscard]] std::optional<Value> attribute(std::string_view /*name*/) const override {
    throw ValueError("broken property");
  }
};

TEST_F(FailureExpansion, HoldsTheReactionFailuresOfTheGates) {
  gates_fail(List{gate_failure("turnover_max", 2.0, 1.5), gate_failure("correlation_exceeded"),
                  gate_failure("sharpe_min", 0.1, 1), gate_failure("unheard_of")});
  EXPECT_EQ(repr(expanded(Mapping())),
            "{'turnover_max': {'reason': 'turnover_max', 'detail': {'value': 2.0, 'threshold': "
            "1.5}}, 'sharpe_min': {'reason': 'sharpe_min', 'detail': {'value': 0.1, 'threshold': "
            "1}}}");
}

TEST_F(FailureExpansion, ALaterFailureReplacesTheEarlierAndKeepsItsPlace) {
  gates_fail(Tuple{gate_failure("sharpe_min", 1), gate_failure("turnover_max", 2),
                   gate_failure("sharpe_min", 3)});
  EXPECT_EQ(repr(expanded(Mapping())),
            "{'sharpe_min': {'reason': 'sharpe_min', 'detail': {'value': 3, 'threshold': None}}, "
            "'turnover_max': {'reason': 'turnover_max', 'detail': {'value': 2, 'threshold': "
            "None}}}");
}

TEST_F(FailureExpansion, AsksTheHostInThisOrder) {
  host.context.on_attribute = [](std::string_view name) -> std::optional<Value> {
    if (name == "thresholds") return Mapping{{"sharpe_min", 1}};
    return std::nullopt;
  };
  const auto failure = [this](Mapping entries) {
    return scripted_object(std::move(entries), &host.log, "failure");
  };
  host.engine.on_evaluate_threshold_gates = [&](const Value&, const Value&) {
    return scripted_object(
        {{"failures", List{failure({{"reason", "sharpe_min"},
                                    {"actual", 0.5},
                                    {"threshold", 1},
                                    {"gate", "g"},
                                    {"operator", "<"},
                                    {"category", "quality"}}),
                           failure({{"reason", "other"}}), failure({{"reason", "turnover_max"}})}}},
        &host.log, "gate_result");
  };
  static_cast<void>(expanded(Mapping{{"stats", "s"}}));
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre("context.attribute('thresholds')", "context.attribute('_thresholds')",
                  "context.search_context_thresholds", "context.attribute('era_config')",
                  "context.attribute('_era_config')",
                  "engine.stats_gate_threshold_set({'sharpe_min': 1}, None)",
                  "engine.stats_gate_metrics('s')",
                  "engine.evaluate_threshold_gates(metrics='metrics', threshold_set='set')",
                  "gate_result.failures", "engine.threshold_gate_failure_reason(<failure object>)",
                  "failure.reason", "engine.threshold_gate_failure_metric(<failure object>)",
                  "failure.actual", "failure.threshold", "failure.gate", "failure.operator",
                  "failure.category",
                  "engine.recorded_failure_detail('sharpe_min', 'sharpe', 0.5, 1, gate='g', "
                  "operator='<', category='quality')",
                  "engine.threshold_gate_failure_reason(<failure object>)", "failure.reason",
                  "engine.threshold_gate_failure_reason(<failure object>)", "failure.reason",
                  "engine.threshold_gate_failure_metric(<failure object>)", "failure.actual",
                  "failure.threshold", "failure.gate", "failure.operator", "failure.category",
                  // Missing attributes are absent ones.
                  "engine.recorded_failure_detail('turnover_max', 'sharpe', None, None, "
                  "gate=None, operator=None, category=None)"));
}

TEST_F(FailureExpansion, OfAResultThatPassesIsEmptyWithoutACall) {
  gates_fail(List{gate_failure("sharpe_min")});
  EXPECT_TRUE(expanded(Mapping{{"passes", 1}}).empty());
  EXPECT_THAT(host.log.lines(), ElementsAre());
  for (const Value& passes : {Value(), Value(false), Value(0)})
    EXPECT_EQ(expanded(Mapping{{"passes", passes}}).size(), 1U);
}

TEST_F(FailureExpansion, IsEmptyWithoutThresholds) {
  gates_fail(List{gate_failure("sharpe_min")});
  for (const Value& set : {Value(), Value(Mapping()), Value(0)}) {
    host.engine.on_stats_gate_threshold_set = always(set);
    EXPECT_TRUE(expanded(Mapping()).empty());
  }
  EXPECT_EQ(host.log.count("engine.stats_gate_metrics"), 0U);
  EXPECT_EQ(host.log.count("engine.evaluate_threshold_gates"), 0U);
}

TEST_F(FailureExpansion, TakesAMissingWalkForAnEmptyOne) {
  for (const Value& gate_result :
       {Value(), Value(scripted_object(Mapping())), Value(5),
        // An entry is no attribute.
        Value(Mapping{{"failures", List{gate_failure("sharpe_min")}}})}) {
    host.engine.on_evaluate_threshold_gates = always(gate_result);
    EXPECT_TRUE(expanded(Mapping()).empty());
  }
}

TEST_F(FailureExpansion, SwallowsOrdinaryFailuresOfMetricsAndGatesAlone) {
  gates_fail(List{gate_failure("sharpe_min")});
  host.engine.on_stats_gate_metrics = failing(KeyError("sharpe"));
  EXPECT_TRUE(expanded(Mapping()).empty());
  EXPECT_EQ(host.log.count("engine.evaluate_threshold_gates"), 0U);
  host.engine.on_stats_gate_metrics = failing(std::logic_error("gone"));
  EXPECT_TRUE(expanded(Mapping()).empty());
  host.engine.on_stats_gate_metrics = [](const Value&) -> Value { throw Interrupt(); };
  EXPECT_THROW(static_cast<void>(expanded(Mapping())), Interrupt);

  host.engine.on_stats_gate_metrics = always(Value("metrics"));
  host.engine.on_evaluate_threshold_gates = failing(RuntimeError("gone"));
  EXPECT_TRUE(expanded(Mapping()).empty());
  host.engine.on_evaluate_threshold_gates = [](const Value&, const Value&) -> Value {
    throw Interrupt();
  };
  EXPECT_THROW(static_cast<void>(expanded(Mapping())), Interrupt);
}

TEST_F(FailureExpansion, LetsEveryOtherFailurePass) {
  const auto failure = [this](const Value& result = Mapping()) {
    return error_of([&] { return expanded(result).size(); });
  };
  // A walk that is there, but absent or none.
  gates_fail(Value());
  EXPECT_EQ(failure(), "TypeError: 'NoneType' object is not iterable");
  gates_fail(5);
  EXPECT_EQ(failure(), "TypeError: 'int' object is not iterable");
  host.engine.on_evaluate_threshold_gates = always(Value(make_object<Broken>()));
  EXPECT_EQ(failure(), "ValueError: broken property");

  // Of one gate failure: its reason, its metric, its attributes, its detail.
  gates_fail(List{gate_failure("sharpe_min")});
  host.engine.on_recorded_failure_detail = failing(RuntimeError("no detail"));
  EXPECT_EQ(failure(), "RuntimeError: no detail");
  host.engine.on_threshold_gate_failure_metric = failing(RuntimeError("no metric"));
  EXPECT_EQ(failure(), "RuntimeError: no metric");
  host.engine.on_threshold_gate_failure_reason = failing(RuntimeError("no reason"));
  EXPECT_EQ(failure(), "RuntimeError: no reason");
  host.engine.on_threshold_gate_failure_reason = always("sharpe_min");
  host.engine.on_threshold_gate_failure_metric = always("sharpe");
  gates_fail(List{make_object<Broken>()});
  EXPECT_EQ(failure(), "ValueError: broken property");

  host.engine.on_stats_gate_threshold_set = failing(RuntimeError("no thresholds"));
  EXPECT_EQ(failure(), "RuntimeError: no thresholds");
  EXPECT_EQ(failure("text"), "AttributeError: 'str' object has no attribute 'get'");
}

// The table is searched by equality, so that what cannot be a key is simply no member.
TEST_F(FailureExpansion, AReasonMayBeAnything) {
  class Named : public HostObject {
   public:
    [[nodiscard]] std::string type_name() const override { return "Named"; }
    [[nodiscard]] bool equals(const Value& other) const override {
      return other == Value("sharpe_min");
    }
    [[nodiscard]] std::uint64_t hash() const override { return genetic::hash(Value("sharpe_min")); }
  };
  const Value named = make_object<Named>();
  gates_fail(List{gate_failure(List{"sharpe_min"}), gate_failure(Value()), gate_failure(named)});
  const Mapping expansion = expanded(Mapping());
  ASSERT_EQ(expansion.size(), 1U);
  EXPECT_TRUE(same_object(expansion.at("sharpe_min").mapping().at("reason"), named));
}

}  // namespace
}  // namespace varnholt::genetic::test
