// Goal: whatever the evaluator returns or throws becomes one result record.
// Method: a scripted evaluator and scripted rules for timings; the record is compared whole, and so
// is the ordered log of calls.
#include "search_templates/genetic/evaluation/candidate_simulation.hpp"

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

class CandidateSimulation : public testing::Test {
 protected:
  void evaluator(ScriptedCallable::Function function) {
    host.context.on_evaluate_for_template =
        always(scripted_callable(host.log, "evaluate", std::move(function)));
  }
  Mapping simulate() { return simulate_candidate(host.bundle(), host.context, graph); }
  Mapping simulate(const Value& outcome) {
    evaluator(always(outcome));
    return simulate();
  }
  static std::vector<std::string> keys_of(const Mapping& record) {
    std::vector<std::string> keys;
    MappingCursor cursor(record);
    while (const auto entry = cursor.next())
      keys.push_back(str(entry->key));
    return keys;
  }
  Mapping simulate_record(const Mapping& record) { return simulate(Mapping{{"record", record}}); }

  ScriptedHost host;
  Value graph = Mapping{{"node", "close"}};
};

TEST_F(CandidateSimulation, MissingEvaluatorIsAnError) {
  try {
    static_cast<void>(simulate());
    FAIL() << "no error";
  } catch (const RuntimeError& error) {
    EXPECT_EQ(error.text(), "genetic search requires the canonical SearchContext evaluator");
  }
}

TEST_F(CandidateSimulation, EmptyOutcome) {
  EXPECT_EQ(repr(simulate(Mapping())),
            "{'graph': {'node': 'close'}, 'stats': None, 'passes': False, 'failures': {}, "
            "'eval_id': None, 'submission_payload': None, 'attempt_evidence': None, "
            "'per_column_stats': None, 'tracking_metric_kwargs': {}, 'sharpe': 0.0, "
            "'quality_score': 0.0, 'correlation': None}");
  EXPECT_THAT(host.log.lines(),
              ElementsAre("context.evaluate_for_template", "evaluate({'node': 'close'})"));
}

TEST_F(CandidateSimulation, FullOutcome) {
  const Value stats = scripted_object(
      {{"sharpe", 1.5}, {"quality_score", 2}, {"correlation", "0.25"}}, nullptr, "Stats");
  const Mapping result = simulate(
      Mapping{{"record", Mapping{{"stats", stats},
                                 {"passed", 1},
                                 {"per_column_stats", "columns"},
                                 {"tracking_metric_kwargs", Mapping{{"k", 1}}}}},
              {"submission_payloads", List{Mapping{{"eval_id", "e1"}}, Mapping{{"eval_id", "e2"}}}},
              {"attempt_evidence", "evidence"}});
  EXPECT_TRUE(same_object(result.at("stats"), stats));
  EXPECT_TRUE(result.at("passes").is_boolean());
  EXPECT_EQ(result.at("passes"), true);
  EXPECT_EQ(result.at("eval_id"), "e1");  // Only the first payload counts.
  EXPECT_EQ(repr(result.at("submission_payload")), "{'eval_id': 'e1'}");
  EXPECT_EQ(result.at("attempt_evidence"), "evidence");
  EXPECT_EQ(result.at("per_column_stats"), "columns");
  EXPECT_EQ(repr(result.at("tracking_metric_kwargs")), "{'k': 1}");
  EXPECT_EQ(repr(result.at("sharpe")), "1.5");
  EXPECT_EQ(repr(result.at("quality_score")), "2.0");
  EXPECT_EQ(repr(result.at("correlation")), "0.25");
  // The evidence is no mapping, so that the timing is the one that the host remembers.
  EXPECT_EQ(repr(result.at("backtest_timing")), "{'seconds': 0.5}");
  EXPECT_THAT(keys_of(result),
              ElementsAre("graph", "stats", "passes", "failures", "eval_id", "submission_payload",
                          "attempt_evidence", "per_column_stats", "tracking_metric_kwargs",
                          "sharpe", "quality_score", "correlation", "backtest_timing"));
}

TEST_F(CandidateSimulation, WritesNeverReachTheEvaluatorsOwn) {
  const Mapping payload{{"eval_id", "e"}};
  const Mapping tracking{{"k", 1}};
  const Mapping result = simulate(Mapping{
      {"record", Mapping{{"tracking_metric_kwargs", tracking}, {"rejection_reason", "sharpe_min"}}},
      {"submission_payloads", Tuple{payload}}});
  result.at("submission_payload").mapping().set("worker_pid", 1);
  EXPECT_EQ(payload.size(), 1U);
  EXPECT_EQ(tracking.size(), 1U);
  result.at("graph").mapping().set("x", 1);
  EXPECT_EQ(graph.mapping().size(), 1U);
}

TEST_F(CandidateSimulation, PayloadsThatAreFalseGiveNone) {
  for (const Value& none : {Value(), Value(List()), Value(0), Value("")}) {
    const Mapping result = simulate(Mapping{{"submission_payloads", none}});
    EXPECT_TRUE(result.at("submission_payload").is_absent());
    EXPECT_TRUE(result.at("eval_id").is_absent());
  }
  // A payload without an id, and one of pairs.
  EXPECT_TRUE(
      simulate(Mapping{{"submission_payloads", List{Mapping()}}}).at("eval_id").is_absent());
  EXPECT_EQ(simulate(Mapping{{"submission_payloads", List{Value(List{Tuple{"eval_id", 3}})}}})
                .at("eval_id"),
            3);
}

TEST_F(CandidateSimulation, ReasonWithAndWithoutDetail) {
  EXPECT_EQ(repr(simulate_record({{"rejection_reason", "sharpe_min"}}).at("failures")),
            "{'sharpe_min': {'reason': 'sharpe_min'}}");
  EXPECT_EQ(repr(simulate_record({{"rejection_reason", "sharpe_min"},
                                  {"tracking_metric_kwargs", Mapping{{"failure_detail", "0.1"}}}})
                     .at("failures")),
            "{'sharpe_min': {'reason': 'sharpe_min', 'detail': '0.1'}}");
  EXPECT_EQ(repr(simulate_record({{"rejection_reason", ""}}).at("failures")), "{}");
}

TEST_F(CandidateSimulation, EmptyReasonOfTheHostMakesNoFailure) {
  host.context.on_derive_rejection_reason_detail =
      always(scripted_callable(host.log, "derive", always(Value(Tuple{"", "detail"}))));
  const Mapping result = simulate_record({{"stats", scripted_object(Mapping())}});
  EXPECT_EQ(repr(result.at("failures")), "{}");
  EXPECT_EQ(repr(result.at("tracking_metric_kwargs")),
            "{'failure_reason': '', 'failure_detail': 'detail'}");
}

TEST_F(CandidateSimulation, PassingAndFailuresAreIndependent) {
  const Mapping result = simulate_record({{"passed", true}, {"rejection_reason", "odd"}});
  EXPECT_EQ(result.at("passes"), true);
  EXPECT_EQ(repr(result.at("failures")), "{'odd': {'reason': 'odd'}}");
  // Nor are verdicts made, unlike in the records of exceptions.
  EXPECT_EQ(repr(result.at("tracking_metric_kwargs")), "{'failure_reason': 'odd'}");
  EXPECT_EQ(host.log.count("evaluation_verdicts.not_evaluated_verdict"), 0U);
}

TEST_F(CandidateSimulation, QualityFallsBackToSharpe) {
  const Mapping result =
      simulate_record({{"passed", true}, {"stats", scripted_object({{"sharpe", 3}})}});
  EXPECT_EQ(repr(result.at("quality_score")), "3.0");
}

TEST_F(CandidateSimulation, EvidenceThatIsNoMappingIsKept) {
  EXPECT_EQ(simulate(Mapping{{"attempt_evidence", 7}}).at("attempt_evidence"), 7);
}

// Which records carry a timing, and where it comes from ------------------------------------------

TEST_F(CandidateSimulation, TimingOfACompletedBacktest) {
  const Mapping timing{{"seconds", 1}};
  const Mapping completed{{"backtest_completed", true}};
  const std::string none;
  const std::string consumed = "{'seconds': 0.5}";
  const std::string bound = "{'seconds': 1, 'graph_key': 'graph key'}";
  host.backtest_timings.on_validate_graph = [](std::span<const Value> values, const Mapping&) {
    return deep_copy(values[1]);
  };
  struct Row {
    const char* what;
    Value passed;
    Value attempt_evidence;
    Value payload;  // Absent for none.
    std::string told;
  };
  const std::vector<Row> table = {
      {"failing", false, Value(), Value(), none},
      {"failing, no mapping", false, "backtest_completed", Value(), none},
      {"failing, a list of it", false, List{"backtest_completed"}, Value(), none},
      {"failing, not completed", false, Mapping{{"backtest_timing", timing}}, Value(), none},
      {"failing, false in a truth test", 0, Mapping{{"backtest_completed", ""}}, Value(), none},
      {"failing, completed", false, completed, Value(), consumed},
      {"failing, true in a truth test", Value(), Mapping{{"backtest_completed", "no"}}, Value(),
       consumed},
      {"failing, completed, with timing", false,
       Mapping{{"backtest_completed", 1}, {"backtest_timing", timing}}, Value(), bound},
      {"passing", true, Value(), Value(), consumed},
      {"passing, true in a truth test", "yes", Value(), Value(), consumed},
      {"passing, evidence that is no mapping", true, "backtest_timing", Value(), consumed},
      {"passing, with timing", true, Mapping{{"backtest_timing", timing}}, Value(), bound},
      {"passing, both agree", true, Mapping{{"backtest_timing", timing}},
       Mapping{{"backtest_timing", timing}}, bound},
      {"passing, timing in the payload alone", true, Value(), Mapping{{"backtest_timing", timing}},
       consumed},
  };
  for (const Row& row : table) {
    SCOPED_TRACE(row.what);
    Mapping outcome{{"record", Mapping{{"passed", row.passed}}},
                    {"attempt_evidence", row.attempt_evidence}};
    if (!row.payload.is_absent()) outcome.set("submission_payloads", List{row.payload});
    const Mapping result = simulate(outcome);
    EXPECT_EQ(result.contains("backtest_timing"), !row.told.empty());
    if (!row.told.empty()) {
      EXPECT_EQ(repr(result.at("backtest_timing")), row.told);
    }
    EXPECT_TRUE(same_object(result.at("attempt_evidence"), row.attempt_evidence) ||
                result.at("attempt_evidence") == row.attempt_evidence);
    EXPECT_EQ(result.at("passes"), truth(row.passed));
  }
}

// What cannot be asked for its truth.
class Undecided : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Undecided"; }
  [[nodiscard]] bool truth() const override { throw ValueError("undecided"); }
};

TEST_F(CandidateSimulation, TheEvidenceIsAskedWhetherOrNotTheCandidatePassed) {
  for (const bool passed : {false, true}) {
    SCOPED_TRACE(passed);
    const Mapping outcome{
        {"record", Mapping{{"passed", passed}}},
        {"attempt_evidence", Mapping{{"backtest_completed", make_object<Undecided>()}}}};
    EXPECT_EQ(error_of([&] { return simulate(outcome); }), "ValueError: undecided");
  }
}

TEST_F(CandidateSimulation, AbsentTimingLeavesTheKeyOut) {
  host.backtest_timings.on_consume = always(Value());
  EXPECT_FALSE(simulate_record({{"passed", true}}).contains("backtest_timing"));
  // An empty one is one.
  host.backtest_timings.on_consume = always(Value(Mapping()));
  EXPECT_EQ(repr(simulate_record({{"passed", true}}).at("backtest_timing")), "{}");
}

TEST_F(CandidateSimulation, ConsumingIsToldTheCallersGraphAndThePayloadsTiming) {
  Value asked;
  host.backtest_timings.on_consume = [&](std::span<const Value> values, const Mapping&) {
    asked = values[0];
    return Value(Mapping());
  };
  static_cast<void>(simulate(
      Mapping{{"record", Mapping{{"passed", true}}},
              {"submission_payloads", List{Mapping{{"backtest_timing", Value()}}, Mapping()}}}));
  EXPECT_TRUE(same_object(asked, graph));
  EXPECT_THAT(host.log.lines(),
              ElementsAre("context.evaluate_for_template", "evaluate({'node': 'close'})",
                          "timings.consume_recorded_backtest_timing_payload({'node': 'close'}, "
                          "None, include_identity=True)"));
}

// The host's validator decides whether the evidence itself is changed: it is when it returns what
// it got.
TEST_F(CandidateSimulation, GraphKeyGoesIntoWhatTheValidatorReturns) {
  Mapping timing{{"seconds", 1}};
  const Mapping outcome{{"record", Mapping{{"passed", true}}},
                        {"attempt_evidence", Mapping{{"backtest_timing", timing}}}};
  EXPECT_TRUE(same_object(simulate(outcome).at("backtest_timing"), timing));
  EXPECT_EQ(repr(timing), "{'seconds': 1, 'graph_key': 'graph key'}");

  timing.erase("graph_key");
  host.backtest_timings.on_validate_graph = [](std::span<const Value> values, const Mapping&) {
    return deep_copy(values[1]);
  };
  EXPECT_TRUE(simulate(outcome).at("backtest_timing").mapping().contains("graph_key"));
  EXPECT_EQ(repr(timing), "{'seconds': 1}");
}

TEST_F(CandidateSimulation, FaultsOfTheTimingPass) {
  const Mapping passing{{"passed", true}};
  const Mapping one{{"backtest_timing", Mapping{{"seconds", 1}}}};
  const Mapping two{{"backtest_timing", Mapping{{"seconds", 2}}}};
  EXPECT_EQ(
      error_of([&] {
        return simulate(Mapping{
            {"record", passing}, {"attempt_evidence", one}, {"submission_payloads", List{two}}});
      }),
      "RuntimeError: genetic candidate attempt evidence backtest timing disagrees with "
      "submission payload backtest timing");
  host.backtest_timings.on_consume = failing(ValueError("nothing recorded"));
  EXPECT_EQ(error_of([&] { return simulate_record(passing); }),
            "RuntimeError: genetic candidate has invalid backtest timing: nothing recorded");
  host.backtest_timings.on_consume = failing(KeyError("odd"));
  EXPECT_EQ(error_of([&] { return simulate_record(passing); }), "KeyError: odd");
}

TEST_F(CandidateSimulation, EvaluatorThatChangesTheGraphIsSeenInTheRecord) {
  evaluator([this](std::span<const Value> values, const Mapping&) {
    EXPECT_TRUE(same_object(values[0], graph));
    values[0].mapping().set("node", "open");
    return Value(Mapping());
  });
  EXPECT_EQ(repr(simulate().at("graph")), "{'node': 'open'}");
}

TEST_F(CandidateSimulation, ReasonIsDerivedBeforeTheTimingIsLookedAt) {
  host.context.on_derive_rejection_reason_detail =
      always(scripted_callable(host.log, "derive", always(Value(Tuple{"sharpe_min", "detail"}))));
  const Mapping result =
      simulate(Mapping{{"record", Mapping{{"passed", false}, {"stats", "stats"}}},
                       {"attempt_evidence", Mapping{{"backtest_completed", true}}}});
  EXPECT_EQ(repr(result.at("failures")),
            "{'sharpe_min': {'reason': 'sharpe_min', 'detail': 'detail'}}");
  const auto names = host.log.names();
  const auto derived = std::find(names.begin(), names.end(), "derive");
  EXPECT_NE(derived, names.end());
  EXPECT_EQ(names.back(), "timings.consume_recorded_backtest_timing_payload");
}

TEST_F(CandidateSimulation, EvaluatorsErrorBecomesARecord) {
  evaluator([](const auto&, const Mapping&) -> Value { throw ValueError("no data"); });
  host.context.on_current_attempt_evidence = always(Value("evidence"));
  const Mapping result = simulate();
  EXPECT_EQ(repr(result.at("failures")),
            "{'evaluate_exception': {'reason': 'evaluate_exception', 'detail': 'no data'}}");
  EXPECT_EQ(result.at("passes"), false);
  EXPECT_EQ(result.at("attempt_evidence"), "evidence");
  EXPECT_EQ(host.log.count("evaluation_verdicts.not_evaluated_verdict"), 3U);
  EXPECT_FALSE(result.contains("backtest_timing"));
}

TEST_F(CandidateSimulation, TheRecordIsMadeWhileTheEvaluatorsErrorIsHandled) {
  evaluator([](const auto&, const Mapping&) -> Value { throw ValueError("no data"); });
  host.context.on_handling = logged_handling(host.log);
  static_cast<void>(simulate());
  const auto names = host.log.names();
  ASSERT_GE(names.size(), 4U);
  EXPECT_EQ(host.log.lines()[2], "context.handling('ValueError: no data')");
  EXPECT_EQ(host.log.count("context.current_attempt_evidence"), 1U);
  EXPECT_EQ(std::find(names.begin(), names.end(), "handled"), names.end() - 1);
}

TEST_F(CandidateSimulation, ErrorsOfTheStandardLibraryAreOrdinaryToo) {
  evaluator([](const auto&, const Mapping&) -> Value { throw std::out_of_range("index"); });
  EXPECT_EQ(repr(simulate().at("failures")),
            "{'evaluate_exception': {'reason': 'evaluate_exception', 'detail': 'index'}}");
}

struct Interrupt {};

TEST_F(CandidateSimulation, WhatIsNoOrdinaryErrorPasses) {
  evaluator([](const auto&, const Mapping&) -> Value { throw Interrupt(); });
  EXPECT_THROW(simulate(), Interrupt);
}

TEST_F(CandidateSimulation, OnlyTheEvaluatorsCallIsGuarded) {
  EXPECT_THROW(simulate(Value()), AttributeError);
  EXPECT_THROW(simulate(Mapping{{"record", "text"}}), AttributeError);
  EXPECT_THROW(simulate(Mapping{{"submission_payloads", List{5}}}), TypeError);
  EXPECT_THROW(simulate(Mapping{{"submission_payloads", Mapping{{"a", 1}}}}), KeyError);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(
      simulate_record({{"passed", true}, {"stats", scripted_object({{"correlation", nan}})}}),
      ValueError);
  graph = Mapping{{"node", Tuple()}};
  EXPECT_THROW(simulate(Mapping()), TypeError);
}

TEST_F(CandidateSimulation, PayloadsAreLookedAtBeforeTheRecord) {
  // Both are bad; the payload's error leaves.
  EXPECT_THROW(simulate(Mapping{{"record", "text"}, {"submission_payloads", List{5}}}), TypeError);
}

}  // namespace
}  // namespace varnholt::genetic::test
