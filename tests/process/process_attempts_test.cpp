// Goal: an attempt's row is created and ended with exactly the keywords, texts and order of reads
// that a tracker relies on, and three flags settle what the attempt was. Method: the host's log,
// and every combination of the flags beside a table by hand.
#include "search_templates/genetic/process/process_attempts.hpp"

#include <array>
#include <stdexcept>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/process/attempt_fixture.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct Expected {
  AttemptFlags flags;
  std::string type;
  std::string disposition;
  std::string category;
  std::string source;
};

std::array<Expected, 8> every_combination() {
  const auto row = [](bool dispatched, bool started, bool cancelled) -> Expected {
    const AttemptFlags flags{dispatched, started, cancelled};
    if (cancelled) {
      return {flags, "process_search_cancelled", "cancelled", "operator", "client_lifecycle"};
    }
    if (started) {
      return {flags, "process_backtest_execution_failed", "backtest_failed", "execution",
              "process_evaluation"};
    }
    if (dispatched) {
      return {flags, "process_worker_failed_backtest_state_unknown", "resource_blocked", "resource",
              "process_evaluation"};
    }
    return {flags, "process_dispatch_failed", "resource_blocked", "resource", "process_evaluation"};
  };
  return {row(false, false, false), row(true, false, false), row(false, true, false),
          row(true, true, false),   row(false, false, true), row(true, false, true),
          row(false, true, true),   row(true, true, true)};
}

class ProcessAttempts : public AttemptTest {
 protected:
  Value create(const Value& candidate_index = 0) {
    return create_process_attempt(host.bundle(), host.context, candidate_index, "graph");
  }
  void finalize(const Value& reason, const Value& detail, AttemptFlags flags) {
    finalize_process_failure_attempt(host.bundle(), host.context, "id", reason, detail, flags);
  }
  Mapping evidence(const Value& detail, AttemptFlags flags) {
    return process_attempt_evidence(host.bundle(), host.context, "why", detail, flags);
  }
};

TEST_F(ProcessAttempts, ARowIsCreatedWithTheseKeywords) {
  EXPECT_EQ(create(4), Value("attempt-1"));
  EXPECT_EQ(host.log.lines().back(),
            "tracker.create_simulation_attempt(product_run_id=7, source_path='search_signal', "
            "graph='graph', algorithm='genetic', rotation_identifier='candidate-4', "
            "era_number=12, market_id=3, data_shape='shape', expected_columns=('a', 'b'), "
            "eval_type='signal')");
}

TEST_F(ProcessAttempts, TheOperationIsLookedUpBeforeItsArgumentsAreRead) {
  static_cast<void>(create());
  auto lines = host.log.lines();
  lines.pop_back();
  EXPECT_THAT(
      lines, ElementsAre("context.tracker", "tracker.create_simulation_attempt",
                         "context.attribute('_product_run_id')", "context.attribute('_era_number')",
                         "context.attribute('_market_id')", "markers.attempt_declared_data_shape",
                         "context.attribute('_attempt_expected_columns')",
                         "markers.attempt_declared_data_shape(('a', 'b'))",
                         "context.attribute('_attempt_expected_columns')"));
}

TEST_F(ProcessAttempts, TheIndexInTheNameIsAnInteger) {
  const std::array<std::pair<Value, std::string>, 3> names = {
      {{"7", "candidate-7"}, {2.9, "candidate-2"}, {true, "candidate-1"}}};
  for (const auto& [index, name] : names) {
    host.log.clear();
    static_cast<void>(create(index));
    EXPECT_THAT(host.log.lines().back(), HasSubstr("rotation_identifier='" + name + "'"));
  }
  host.log.clear();
  EXPECT_THAT(error_of([this] { return create("x"); }), HasSubstr("ValueError: "));
  EXPECT_EQ(host.log.lines().back(), "context.attribute('_product_run_id')");
}

TEST_F(ProcessAttempts, EveryAttributeIsRequired) {
  // No resolved value stands in: a context that only has "market_id" fails.
  attributes.set("market_id", 5);
  for (const char* const name :
       {"_product_run_id", "_era_number", "_market_id", "_attempt_expected_columns"}) {
    const Value value = attributes.at(name);
    attributes.erase(name);
    EXPECT_EQ(
        error_of([this] { return create(); }),
        std::string("AttributeError: 'SearchContext' object has no attribute '") + name + "'");
    attributes.set(name, value);
  }
  EXPECT_EQ(host.log.count("tracker.create_simulation_attempt"), 4U) << "looked up, never called";
}

TEST_F(ProcessAttempts, ACreationThatFailsLeavesTheTrackersOwnError) {
  host.tracker.on_create_simulation_attempt = failing(std::runtime_error("disk"));
  EXPECT_EQ(error_of([this] { return create(); }), "std::exception: disk");
}

TEST_F(ProcessAttempts, TheBlockerOfEveryCombination) {
  for (const Expected& row : every_combination()) {
    EXPECT_EQ(repr(process_attempt_blocker("r", "d", row.flags)),
              "{'type': '" + row.type + "', 'reason': 'r', 'detail': 'd'}");
  }
}

TEST_F(ProcessAttempts, ABlockerWithoutADetailHasNoSuchKey) {
  EXPECT_EQ(repr(process_attempt_blocker(5, Value(), {})),
            "{'type': 'process_dispatch_failed', 'reason': '5'}");
  EXPECT_EQ(repr(process_attempt_blocker(Value(), "", {})),
            "{'type': 'process_dispatch_failed', 'reason': 'None', 'detail': ''}");
}

TEST_F(ProcessAttempts, TheEvidenceOfEveryCombination) {
  for (const Expected& row : every_combination()) {
    host.log.clear();
    EXPECT_EQ(
        repr(evidence("d", row.flags)),
        std::string("{'backtest_started': ") + (row.flags.backtest_started ? "True" : "False") +
            ", 'backtest_completed': False, 'generated_stats': None, "
            "'candidate_stats': None, 'stats_construction_blocker': {'type': '" +
            row.type +
            "', 'reason': 'why', 'detail': 'd'}, 'per_column_inventory': "
            "'inventory', 'terminal_disposition_override': '" +
            row.disposition + "', 'threshold_verdict_override': '" +
            (row.flags.dispatched ? "blocked" : "skipped") + "', 'failure_category_override': '" +
            row.category + "', 'classification_source_override': '" + row.source + "'}");
    EXPECT_THAT(host.log.lines(), ElementsAre("context.attribute('_attempt_expected_columns')",
                                              "accounting.build_column_inventory(('a', 'b'), {})"));
  }
}

TEST_F(ProcessAttempts, TheEndOfEveryCombination) {
  const std::string verdict = "{'verdict': 'not_evaluated'}";
  for (const Expected& row : every_combination()) {
    finalize("why", "d", row.flags);
    EXPECT_EQ(host.log.lines().back(),
              "tracker.finalize_simulation_attempt('id', terminal_disposition='" + row.disposition +
                  "', backtest_completed=False, generated_stats=None, candidate_stats=None, "
                  "stats_construction_blocker={'type': '" +
                  row.type +
                  "', 'reason': 'why', 'detail': 'd'}, expected_columns=('a', 'b'), "
                  "per_column_inventory='inventory', threshold_gate={'verdict': '" +
                  (row.flags.dispatched ? "blocked" : "skipped") +
                  "', 'reason': 'why', 'detail': 'd', 'threshold_set': 'ready', "
                  "'stats_verdict': " +
                  verdict + ", 'correlation_verdict': " + verdict + ", 'mi_verdict': " + verdict +
                  "}, failure_category='" + row.category + "', failure_reason='" +
                  (row.flags.cancelled ? "search_stopped" : "why") +
                  "', failure_detail='d', classification_source='" + row.source + "')");
  }
}

TEST_F(ProcessAttempts, TheOrderInWhichAnEndAsksTheHost) {
  finalize("why", Value(), {});
  auto lines = host.log.lines();
  lines.pop_back();
  EXPECT_THAT(lines, ElementsAre("evaluation_verdicts.not_evaluated_verdict()", "context.tracker",
                                 "tracker.finalize_simulation_attempt",
                                 "context.attribute('_attempt_expected_columns')",
                                 "context.attribute('_attempt_expected_columns')",
                                 "accounting.build_column_inventory(('a', 'b'), {})",
                                 "context.attribute('_thresholds')",
                                 "accounting.json_ready({'sharpe': 1.0})"));
}

TEST_F(ProcessAttempts, AnAbsentDetailIsAbsentInTwoPlacesAndMissingInTheThird) {
  finalize("why", Value(), {});
  const std::string& end = host.log.lines().back();
  EXPECT_THAT(end, HasSubstr("'process_dispatch_failed', 'reason': 'why'}"));
  EXPECT_THAT(end, HasSubstr("'reason': 'why', 'detail': None, 'threshold_set'"));
  EXPECT_THAT(end, HasSubstr("failure_detail=None"));
}

TEST_F(ProcessAttempts, TheThreeVerdictsAreThreeMappings) {
  const Mapping verdict{{"inner", List{1}}};
  host.evaluation_verdicts.on_not_evaluated_verdict = always(Value(verdict));
  std::optional<Mapping> gate;
  host.tracker.on_finalize_simulation_attempt = [&](const Value&, const AttemptEnd& end) {
    gate = end.threshold_gate;
  };
  finalize("why", Value(), {});
  const std::array verdicts = {gate->at(keys::kStatsVerdict), gate->at(keys::kCorrelationVerdict),
                               gate->at(keys::kMiVerdict)};
  for (const Value& one : verdicts) {
    EXPECT_EQ(one, Value(verdict));
    EXPECT_FALSE(same_object(one, verdict));
    EXPECT_TRUE(same_object(one.mapping().at("inner"), verdict.at("inner")));
  }
  EXPECT_FALSE(same_object(verdicts[0], verdicts[1]));
  EXPECT_FALSE(same_object(verdicts[1], verdicts[2]));
  EXPECT_FALSE(same_object(verdicts[0], verdicts[2]));
}

TEST_F(ProcessAttempts, AVerdictThatIsNoMappingFails) {
  host.evaluation_verdicts.on_not_evaluated_verdict = always(Value(5));
  EXPECT_THAT(error_of([this] { return finalize("why", Value(), {}), 0; }),
              HasSubstr("TypeError: "));
  EXPECT_EQ(calls().back(), "accounting.json_ready");
}

TEST_F(ProcessAttempts, AnErrorObjectGivesItsText) {
  host.tracker.on_finalize_simulation_attempt = failing(std::runtime_error("disk"));
  const Value detail = scripted_object(Mapping(), nullptr, "Why");
  EXPECT_EQ(error_of([&] {
              return finalize(true, detail, {true, true, true}), 0;
            }),
            "std::exception: disk");
  EXPECT_THAT(host.log.lines().back(), HasSubstr("failure_detail='" + str(detail) + "'"));
  EXPECT_THAT(host.log.lines().back(), HasSubstr("'reason': 'True', 'detail'"));
}

}  // namespace
}  // namespace varnholt::genetic::test
