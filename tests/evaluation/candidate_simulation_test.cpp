// Goal: whatever the evaluator returns or throws becomes one result record.
// Method: a scripted evaluator; the record is compared whole.
#include "search_templates/genetic/evaluation/candidate_simulation.hpp"

#include <limits>

#include <gmock/gmock.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
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
  Mapping simulate() {
    return simulate_candidate(host.context, host.engine, host.evaluation_verdicts, graph);
  }
  Mapping simulate(const Value& outcome) {
    evaluator(always(outcome));
    return simulate();
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
  EXPECT_EQ(result.size(), 12U);
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
  EXPECT_EQ(
      simulate(Mapping{{"submission_payloads", List{List{Tuple{"eval_id", 3}}}}}).at("eval_id"), 3);
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

TEST_F(CandidateSimulation, EvaluatorsErrorBecomesARecord) {
  evaluator([](const auto&, const Mapping&) -> Value { throw ValueError("no data"); });
  host.context.on_current_attempt_evidence = always(Value("evidence"));
  const Mapping result = simulate();
  EXPECT_EQ(repr(result.at("failures")),
            "{'evaluate_exception': {'reason': 'evaluate_exception', 'detail': 'no data'}}");
  EXPECT_EQ(result.at("passes"), false);
  EXPECT_EQ(result.at("attempt_evidence"), "evidence");
  EXPECT_EQ(host.log.count("evaluation_verdicts.not_evaluated_verdict"), 3U);
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
