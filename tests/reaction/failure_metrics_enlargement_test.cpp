// Goal: what the gates find stands beside a result's recorded failures in a copy, and no recorded
// result is ever changed.
//
// Method: records of every layout with their identities, and random results and gate failures
// against the rule written down once more.
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/reaction/expansion_harness.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

// A subclass of the mapping type.
class Ledger : public HostObject {
 public:
  explicit Ledger(Mapping entries) : entries_(std::move(entries)) {}

  [[nodiscard]] std::string type_name() const override { return "Ledger"; }
  [[nodiscard]] std::optional<Mapping> as_mapping() const override { return entries_; }

 private:
  Mapping entries_;
};

using WithExpandedFailures = FailureExpansion;

TEST_F(WithExpandedFailures, IsTheResultItselfWithoutAContextOrARecord) {
  gates_fail(List{gate_failure("sharpe_min", 1)});
  const Value result = Mapping{{"failures", Mapping()}};
  EXPECT_TRUE(same_object(
      with_expanded_reaction_failures(nullptr, host.engine, host.json_reader, result), result));
  for (const Value& other : {Value(), Value(5), Value("text"), Value(List{result}),
                             Value(scripted_object(Mapping{{"failures", Mapping()}}))}) {
    EXPECT_TRUE(same_object(enlarged(other), other));
  }
  EXPECT_THAT(host.log.lines(), ElementsAre());
}

TEST_F(WithExpandedFailures, IsTheResultItselfWhenTheGatesFindNothing) {
  const Value result = Mapping{{"failures", Mapping{{"sharpe_min", "text"}}}};
  gates_fail(List());
  EXPECT_TRUE(same_object(enlarged(result), result));
  gates_fail(List{gate_failure("correlation_exceeded", 1, 2)});
  EXPECT_TRUE(same_object(enlarged(result), result));
  host.engine.on_evaluate_threshold_gates = failing(RuntimeError("gone"));
  EXPECT_TRUE(same_object(enlarged(result), result));
  // Then the failures need not be a mapping.
  const Value odd = Mapping{{"failures", 5}};
  EXPECT_TRUE(same_object(enlarged(odd), odd));
}

TEST_F(WithExpandedFailures, NeverReplacesAFailureWithAValueOrAThreshold) {
  host.json_reader.on_read = [](const Value& text) -> Value {
    if (text == Value("{}")) return Mapping();
    if (text == Value("{value}")) return Mapping{{"value", 0}};
    throw ValueError("not JSON");
  };
  gates_fail(List{gate_failure("sharpe_min", 1, 2)});
  const Value kept[] = {
      Mapping{{"value", 0}},
      Mapping{{"threshold", 0}},
      Mapping{{"value", false}, {"threshold", Value()}},
      Mapping{{"detail", Mapping{{"threshold", ""}}}},
      Mapping{{"detail", "{value}"}},
      make_object<Ledger>(Mapping{{"value", 0}}),
  };
  for (const Value& failure : kept) {
    const Value result = Mapping{{"failures", Mapping{{"sharpe_min", failure}}}};
    EXPECT_TRUE(same_object(enlarged(result), result)) << repr(failure);
  }
  const Value replaced[] = {
      Value(),
      5,
      "text",
      List{1, 2},
      Mapping(),
      Mapping{{"reason", "sharpe_min"}},
      Mapping{{"value", Value()}, {"threshold", Value()}},
      Mapping{{"detail", "unparsable"}},
      Mapping{{"detail", "{}"}},
      Mapping{{"detail", Mapping{{"value", Value()}}}},
      scripted_object(Mapping{{"value", 1}}),
  };
  for (const Value& failure : replaced) {
    const Value result = Mapping{{"failures", Mapping{{"sharpe_min", failure}}}};
    const std::string before = repr(result);
    EXPECT_EQ(repr(enlarged(result)),
              "{'failures': {'sharpe_min': {'reason': 'sharpe_min', 'detail': {'value': 1, "
              "'threshold': 2}}}}")
        << repr(failure);
    EXPECT_EQ(repr(result), before);
  }
}

TEST_F(WithExpandedFailures, CopiesTheRecordAndItsFailuresAndNothingElse) {
  gates_fail(List{gate_failure("sharpe_min", 1), gate_failure("turnover_max", 2)});
  const Value graph = Mapping{{"node", "a"}};
  const Value old_failure = Mapping{{"value", 3}};
  const Value failures = Mapping{{"other", old_failure}, {"turnover_max", Mapping()}};
  for (const bool foreign : {false, true}) {
    const Mapping native{
        {"graph", graph}, {"failures", failures}, {"passes", false}, {7, List{graph}}};
    const Value result = foreign ? Value(make_object<Ledger>(native)) : Value(native);
    const std::string before = repr(native);
    const Value copy = enlarged(result);
    EXPECT_EQ(repr(native), before);
    ASSERT_TRUE(copy.is_mapping());
    EXPECT_FALSE(same_object(copy, result));
    EXPECT_FALSE(same_object(copy, native));
    EXPECT_FALSE(same_object(copy.mapping().at("failures"), failures));
    EXPECT_TRUE(same_object(copy.mapping().at("graph"), graph));
    EXPECT_TRUE(same_object(copy.mapping().at(7), native.at(7)));
    EXPECT_TRUE(same_object(copy.mapping().at("failures").mapping().at("other"), old_failure));
    // The keys keep their places; a new reason comes last.
    EXPECT_EQ(repr(copy),
              "{'graph': {'node': 'a'}, 'failures': {'other': {'value': 3}, 'turnover_max': "
              "{'reason': 'turnover_max', 'detail': {'value': 2, 'threshold': None}}, "
              "'sharpe_min': {'reason': 'sharpe_min', 'detail': {'value': 1, 'threshold': "
              "None}}}, 'passes': False, 7: [{'node': 'a'}]}");
  }
}

TEST_F(WithExpandedFailures, StandLastWhereTheRecordHasNone) {
  gates_fail(List{gate_failure("sharpe_min", 1, 2)});
  const std::string failures =
      "{'sharpe_min': {'reason': 'sharpe_min', 'detail': {'value': 1, 'threshold': 2}}}";
  EXPECT_EQ(repr(enlarged(Mapping{{"graph", 1}})), "{'graph': 1, 'failures': " + failures + "}");
  for (const Value& none : {Value(), Value(0), Value(""), Value(List()), Value(Mapping())})
    EXPECT_EQ(repr(enlarged(Mapping{{"failures", none}, {"graph", 1}})),
              "{'failures': " + failures + ", 'graph': 1}");
}

TEST_F(WithExpandedFailures, TakeWhatAMappingCanBeMadeOf) {
  gates_fail(List{gate_failure("sharpe_min", 1, 2)});
  EXPECT_EQ(repr(enlarged(Mapping{
                {"failures", List{Tuple{"a", 1}, List{"sharpe_min", Mapping{{"value", 9}}}}}})),
            "{'failures': [('a', 1), ['sharpe_min', {'value': 9}]]}");
  EXPECT_EQ(repr(enlarged(Mapping{{"failures", Tuple{Value(Tuple{"a", 1})}}})),
            "{'failures': {'a': 1, 'sharpe_min': {'reason': 'sharpe_min', 'detail': {'value': 1, "
            "'threshold': 2}}}}");
  EXPECT_EQ(error_of([&] {
              return enlarged(Mapping{{"failures", 5}});
            }),
            "TypeError: 'int' object is not iterable");
  EXPECT_EQ(error_of([&] {
              return enlarged(Mapping{{"failures", List{Tuple{1, 2, 3}}}});
            }),
            "ValueError: dictionary update sequence element #0 has length 3; 2 is required");
}

TEST_F(WithExpandedFailures, ExpandAgainOnlyWhatStillTellsNothing) {
  gates_fail(List{gate_failure("sharpe_min", 1)});
  const Value once = enlarged(Mapping());
  EXPECT_TRUE(same_object(enlarged(once), once));
  // Nothing is kept from the first time: the gates are asked again.
  EXPECT_EQ(host.log.count("engine.evaluate_threshold_gates"), 2U);

  host.engine.on_recorded_failure_detail = always(Value("a text for people"));
  const Value bare = enlarged(Mapping());
  const Value again = enlarged(bare);
  EXPECT_FALSE(same_object(again, bare));
  EXPECT_TRUE(again == bare);
}

TEST_F(WithExpandedFailures, LetFailuresPass) {
  host.engine.on_stats_gate_threshold_set = failing(RuntimeError("no thresholds"));
  EXPECT_EQ(error_of([&] { return enlarged(Mapping()); }), "RuntimeError: no thresholds");
}

// The rule once more, over plain mappings: what the failures are to be, or nothing when the result
// itself is to come back.
std::optional<Mapping> expected_failures(const Mapping& recorded,
                                         const std::vector<std::pair<std::string, int>>& found) {
  Mapping expansion;
  for (const auto& [reason, value] : found) {
    if (reason == "correlation_exceeded") continue;
    expansion.set(reason, Mapping{{"reason", reason},
                                  {"detail", Mapping{{"value", value}, {"threshold", Value()}}}});
  }
  Mapping failures;
  failures.update(recorded);
  bool changed = false;
  for (const MappingEntry& entry : expansion.native_entries()) {
    const Value current = recorded.get(entry.key);
    bool told = false;
    if (current.is_mapping()) {
      const Value detail = current.mapping().get("detail");
      const Mapping layers[] = {current.mapping(),
                                detail.is_mapping() ? detail.mapping() : Mapping()};
      for (const Mapping& layer : layers)
        told |= !layer.get("value").is_absent() || !layer.get("threshold").is_absent();
    }
    if (told) continue;
    failures.set(entry.key, entry.value);
    changed = true;
  }
  return changed ? std::optional(failures) : std::nullopt;
}

class RandomResults {
 public:
  explicit RandomResults(std::uint64_t seed) : draw_(seed) {}

  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(draw_() % bound); }
  std::string reason() {
    const char* const reasons[] = {"sharpe_min", "turnover_max", "max_weight_max",
                                   "delta_exposure_max", "correlation_exceeded"};
    return reasons[below(5)];
  }
  Value metrics() {
    Mapping record;
    if (below(2) == 0) record.set("reason", "r");
    if (below(3) == 0) record.set("value", below(2) == 0 ? Value() : Value(0));
    if (below(3) == 0) record.set("threshold", below(2) == 0 ? Value() : Value(0.5));
    return record;
  }
  Value failure() {
    const Value odd[] = {Value(), 0, "text", List{}, true};
    if (below(4) == 0) return odd[below(5)];
    Value record = metrics();
    if (below(2) == 0) record.mapping().set("detail", below(3) == 0 ? Value("text") : metrics());
    return record;
  }
  Mapping failures() {
    Mapping map;
    for (std::size_t i = below(6); i > 0; --i)
      map.set(below(5) == 0 ? Value("unheard_of") : Value(reason()), failure());
    return map;
  }

 private:
  std::mt19937_64 draw_;
};

TEST_F(WithExpandedFailures, FollowTheRuleAndLeaveRandomResultsAlone) {
  int unchanged = 0;
  int changed = 0;
  for (std::uint64_t seed = 1; seed <= 2000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomResults random(seed);
    const Mapping recorded = random.failures();
    std::vector<std::pair<std::string, int>> found;
    List gate_failures;
    for (std::size_t i = random.below(5); i > 0; --i) {
      found.emplace_back(random.reason(), static_cast<int>(i));
      gate_failures.append(gate_failure(found.back().first, found.back().second));
    }
    gates_fail(gate_failures);

    const Mapping native{{"graph", List{1}}, {"failures", recorded}, {"passes", false}};
    const Value result = seed % 2 == 0 ? Value(native) : as_host_containers(native);
    const std::string before = repr(result);
    const Value given = enlarged(result);
    ASSERT_EQ(repr(result), before);

    const std::optional<Mapping> expected = expected_failures(recorded, found);
    if (!expected) {
      ++unchanged;
      ASSERT_TRUE(same_object(given, result)) << before;
      continue;
    }
    ++changed;
    ASSERT_FALSE(same_object(given, result)) << before;
    ASSERT_EQ(repr(given),
              repr(Mapping{{"graph", List{1}}, {"failures", *expected}, {"passes", false}}));
    ASSERT_TRUE(same_object(given.mapping().at("graph"), as_mapping(result)->at("graph")));
    // A change of the copy's failures does not reach the record.
    given.mapping().at("failures").mapping().set("new", 1);
    ASSERT_EQ(repr(result), before);
  }
  EXPECT_GT(unchanged, 400);
  EXPECT_GT(changed, 400);
}

}  // namespace
}  // namespace varnholt::genetic::test
