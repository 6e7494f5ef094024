// The candidate result record: every form, its keys in order, which failure it carries, and how
// often and in which order the host is asked. Method: a scripted host whose calls are all logged.
#include "search_templates/genetic/evaluation/candidate_result.hpp"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::error_of;
using test::failing;
using test::in_turn;
using test::scripted_callable;
using test::scripted_object;
using test::ScriptedHost;
using test::ScriptedProcessError;
using ::testing::ElementsAre;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const std::string kBadCorrelation =
    "ValueError: candidate correlation must be a finite number or None";

std::vector<std::string> key_names(const Mapping& record) {
  std::vector<std::string> names;
  MappingCursor cursor(record);
  while (const auto entry = cursor.next())
    names.push_back(str(entry->key));
  return names;
}

class CandidateResult : public ::testing::Test {
 protected:
  // The host's operation that derives a reason, answering by `function`.
  void set_derive(test::ScriptedCallable::Function function) {
    host_.context.on_derive_rejection_reason_detail =
        always(scripted_callable(host_.log, "derive", std::move(function)));
  }
  [[nodiscard]] Mapping exception_result(const Value& error = error_object(ValueError("boom")),
                                         const Value& graph = Mapping{{"node", "a"}}) {
    return candidate_exception_result(host_.bundle(), host_.context, graph, error);
  }
  [[nodiscard]] Mapping process_result(const Value& error) {
    return candidate_process_evaluation_error_result(
        host_.process_evaluation, host_.evaluation_verdicts, Mapping{{"node", "a"}}, error);
  }
  void set_record(const std::optional<Value>& record) {
    host_.context.on_last_evaluation_record = always(record);
  }

  ScriptedHost host_;
  Value stats_ = scripted_object({{"sharpe", 1.5}}, nullptr, "Stats");
};

struct Interrupt {};

// The record of an exception.

TEST_F(CandidateResult, OfAnExceptionHasTwelveKeysInOrder) {
  const Mapping result = exception_result();
  EXPECT_THAT(key_names(result),
              ElementsAre("graph", "stats", "passes", "failures", "eval_id", "submission_payload",
                          "attempt_evidence", "per_column_stats", "tracking_metric_kwargs",
                          "sharpe", "quality_score", "correlation"));
  EXPECT_EQ(repr(result),
            "{'graph': {'node': 'a'}, 'stats': None, 'passes': False, 'failures': "
            "{'evaluate_exception': {'reason': 'evaluate_exception', 'detail': 'boom'}}, "
            "'eval_id': None, 'submission_payload': None, 'attempt_evidence': None, "
            "'per_column_stats': None, 'tracking_metric_kwargs': {'failure_reason': "
            "'evaluate_exception', 'failure_detail': 'boom', 'stats_verdict': {'verdict': "
            "'not_evaluated'}, 'correlation_verdict': {'verdict': 'not_evaluated'}, 'mi_verdict': "
            "{'verdict': 'not_evaluated'}}, 'sharpe': 0.0, 'quality_score': 0.0, "
            "'correlation': None}");
}

TEST_F(CandidateResult, OfAnExceptionAsksTheHostInOrder) {
  host_.context.on_safe_record = always(scripted_callable(host_.log, "safe_record", always(1)));
  static_cast<void>(exception_result());
  EXPECT_THAT(
      host_.log.lines(),
      ElementsAre("engine.is_sdk_runtime_not_ready_error('boom')", "context.last_evaluation_record",
                  "context.safe_record",
                  "safe_record({'node': 'a'}, False, rejection_reason='evaluate_exception', "
                  "tracking_metric_kwargs={'failure_reason': 'evaluate_exception', "
                  "'failure_detail': 'boom'})",
                  "context.last_evaluation_record", "evaluation_verdicts.not_evaluated_verdict()",
                  "evaluation_verdicts.not_evaluated_verdict()",
                  "evaluation_verdicts.not_evaluated_verdict()",
                  "context.current_attempt_evidence()"));
}

TEST_F(CandidateResult, OfAnExceptionCopiesTheGraphAndHandsTheHostTheCallersOwn) {
  const Value graph = Mapping{{"children", List{}}};
  Value seen;
  host_.context.on_safe_record = always(scripted_callable(
      host_.log, "safe_record", [&](std::span<const Value> given, const Mapping&) {
        seen = given[0];
        return Value();
      }));
  const Mapping result = exception_result(error_object(ValueError("x")), graph);
  EXPECT_TRUE(same_object(seen, graph));
  EXPECT_TRUE(result.at("graph") == graph);
  EXPECT_FALSE(same_object(result.at("graph"), graph));
  EXPECT_FALSE(
      same_object(result.at("graph").mapping().at("children"), graph.mapping().at("children")));
}

TEST_F(CandidateResult, OfAnExceptionUsesTheEvaluatorsRecord) {
  const Value stats =
      scripted_object({{"sharpe", 2}, {"quality_score", 3}, {"correlation", "0.25"}});
  set_record(Mapping{{"stats", stats},
                     {"rejection_reason", "sharpe_min"},
                     {"per_column_stats", List{1}},
                     {"tracking_metric_kwargs", Mapping{{"mi_verdict", "kept"}}}});
  host_.context.on_current_attempt_evidence = always(Mapping{{"attempt", 1}});
  const Mapping result = exception_result();
  EXPECT_TRUE(same_object(result.at("stats"), stats));
  EXPECT_EQ(repr(result.at("failures")),
            "{'sharpe_min': {'reason': 'sharpe_min', 'detail': None}}");
  EXPECT_EQ(repr(result.at("per_column_stats")), "[1]");
  EXPECT_EQ(repr(result.at("attempt_evidence")), "{'attempt': 1}");
  EXPECT_EQ(repr(Tuple{result.at("sharpe"), result.at("quality_score"), result.at("correlation")}),
            "(2.0, 3.0, 0.25)");
  EXPECT_EQ(repr(result.at("tracking_metric_kwargs")),
            "{'mi_verdict': 'kept', 'failure_reason': 'sharpe_min', 'stats_verdict': {'verdict': "
            "'not_evaluated'}, 'correlation_verdict': {'verdict': 'not_evaluated'}}");
  // Nothing is recorded, and all three verdicts are made although one is there.
  EXPECT_EQ(host_.log.count("context.safe_record"), 0U);
  EXPECT_EQ(host_.log.count("context.last_evaluation_record"), 1U);
  EXPECT_EQ(host_.log.count("evaluation_verdicts.not_evaluated_verdict"), 3U);
}

TEST_F(CandidateResult, OfAnExceptionTakesADerivedPairInPlaceOfItsText) {
  set_record(Mapping{{"stats", stats_}, {"rejection_reason", "evaluate_exception"}});
  set_derive(always(Tuple{"sharpe_min", Value()}));
  Mapping result = exception_result();
  // The derived detail is absent and replaces the exception's text as well.
  EXPECT_EQ(repr(result.at("failures")),
            "{'sharpe_min': {'reason': 'sharpe_min', 'detail': None}}");
  EXPECT_FALSE(result.at("tracking_metric_kwargs").mapping().contains("failure_detail"));

  set_derive(always(Tuple{Value(), Value()}));
  result = exception_result();
  EXPECT_EQ(repr(result.at("failures")),
            "{'evaluate_exception': {'reason': 'evaluate_exception', 'detail': None}}");

  set_derive(always(Tuple{"", Value()}));
  EXPECT_EQ(repr(exception_result().at("failures")), "{'': {'reason': '', 'detail': None}}");
}

TEST_F(CandidateResult, OfAnExceptionKeepsATrackedReasonBesideADerivedOne) {
  set_record(Mapping{{"stats", stats_},
                     {"rejection_reason", "a"},
                     {"tracking_metric_kwargs", Mapping{{"failure_reason", "b"}}}});
  const Mapping result = exception_result();
  EXPECT_EQ(repr(result.at("failures")), "{'a': {'reason': 'a', 'detail': None}}");
  EXPECT_EQ(result.at("tracking_metric_kwargs").mapping().at("failure_reason").text(), "b");
}

TEST_F(CandidateResult, OfAnExceptionKeepsAnAbsentTrackedReasonAsItStands) {
  set_record(Mapping{{"tracking_metric_kwargs",
                      Mapping{{"failure_reason", Value()}, {"stats_verdict", Value()}}}});
  const Mapping result = exception_result();
  EXPECT_EQ(repr(result.at("failures")),
            "{'evaluate_exception': {'reason': 'evaluate_exception', 'detail': 'boom'}}");
  const Mapping tracking = result.at("tracking_metric_kwargs").mapping();
  EXPECT_TRUE(tracking.at("failure_reason").is_absent());
  EXPECT_EQ(tracking.at("failure_detail").text(), "boom");
  EXPECT_TRUE(tracking.at("stats_verdict").is_absent());
}

TEST_F(CandidateResult, OfAnExceptionReadsTheRecordAgainOnlyAfterRecording) {
  // No operation: the record is not read again.
  host_.context.on_last_evaluation_record =
      in_turn<std::optional<Value>>({Value("no mapping"), Value(Mapping{{"per_column_stats", 1}})});
  EXPECT_TRUE(exception_result().at("per_column_stats").is_absent());
  EXPECT_EQ(host_.log.count("context.last_evaluation_record"), 1U);

  host_.context.on_safe_record = always(scripted_callable(host_.log, "safe_record", always(1)));
  host_.context.on_last_evaluation_record = in_turn<std::optional<Value>>(
      {std::nullopt, Value(Mapping{{"rejection_reason", "recorded"}})});
  EXPECT_EQ(repr(exception_result().at("failures")),
            "{'recorded': {'reason': 'recorded', 'detail': None}}");

  // Still no mapping: an empty record.
  set_record(Value(5));
  EXPECT_EQ(key_names(exception_result().at("failures").mapping()),
            (std::vector<std::string>{"evaluate_exception"}));
}

TEST_F(CandidateResult, OfAnExceptionLogsAFailureToRecordAndGoesOn) {
  host_.context.on_safe_record =
      always(scripted_callable(host_.log, "safe_record", failing(KeyError("'disk'"))));
  host_.context.on_last_evaluation_record =
      in_turn<std::optional<Value>>({std::nullopt, Value(Mapping{{"rejection_reason", "stale"}})});
  EXPECT_EQ(repr(exception_result().at("failures")),
            "{'stale': {'reason': 'stale', 'detail': None}}");
  EXPECT_EQ(host_.log.lines()[4],
            "logger.warning_with_error('Genetic candidate evaluation failure recording failed', "
            "\"'disk'\")");
  EXPECT_EQ(host_.log.lines()[5], "context.last_evaluation_record");
}

TEST_F(CandidateResult, OfAnExceptionLetsAnInterruptOfTheRecordingPass) {
  host_.context.on_safe_record = always(scripted_callable(
      host_.log, "safe_record",
      [](std::span<const Value>, const Mapping&) -> Value { throw Interrupt(); }));
  EXPECT_THROW(static_cast<void>(exception_result()), Interrupt);
}

TEST_F(CandidateResult, OfAnExceptionPassesWhatTheHostsOperationsThrow) {
  host_.context.on_current_attempt_evidence = failing(KeyError("'evidence'"));
  EXPECT_EQ(error_of([&] { return exception_result(); }), "KeyError: 'evidence'");
  host_.evaluation_verdicts.on_not_evaluated_verdict = failing(RuntimeError("verdict"));
  EXPECT_EQ(error_of([&] { return exception_result(); }), "RuntimeError: verdict");
  ScriptedHost host;
  host.context.on_last_evaluation_record =
      always(Mapping{{"stats", scripted_object({{"correlation", kInfinity}})}});
  EXPECT_EQ(error_of([&] {
              return candidate_exception_result(host.bundle(), host.context, Mapping{},
                                                error_object(ValueError("x")));
            }),
            kBadCorrelation);
}

TEST_F(CandidateResult, OfAnExceptionHasAVerdictOfItsOwnInEachPlace) {
  const Mapping tracking = exception_result().at("tracking_metric_kwargs").mapping();
  EXPECT_FALSE(same_object(tracking.at("stats_verdict"), tracking.at("correlation_verdict")));
  EXPECT_FALSE(same_object(tracking.at("stats_verdict"), tracking.at("mi_verdict")));
}

// The record of a failed process.

TEST_F(CandidateResult, OfAProcessFailureHasElevenKeysInOrder) {
  const Mapping result = process_result(error_object(ScriptedProcessError(
      "the text", {{"terminal_reason", "worker_timeout"}, {"detail", "10 s"}})));
  EXPECT_EQ(repr(result),
            "{'graph': {'node': 'a'}, 'stats': None, 'passes': False, 'failures': "
            "{'worker_timeout': {'reason': 'worker_timeout', 'detail': '10 s'}}, 'eval_id': None, "
            "'submission_payload': None, 'per_column_stats': None, 'tracking_metric_kwargs': "
            "{'failure_reason': 'worker_timeout', 'failure_detail': '10 s', 'stats_verdict': "
            "{'verdict': 'not_evaluated'}, 'correlation_verdict': {'verdict': 'not_evaluated'}, "
            "'mi_verdict': {'verdict': 'not_evaluated'}}, 'sharpe': 0.0, 'quality_score': 0.0, "
            "'correlation': None}");
  EXPECT_EQ(result.size(), 11U);
  EXPECT_FALSE(result.contains("attempt_evidence"));
  // The default reason is not read, and the context is not touched.
  EXPECT_THAT(host_.log.names(), ElementsAre("evaluation_verdicts.not_evaluated_verdict",
                                             "evaluation_verdicts.not_evaluated_verdict",
                                             "evaluation_verdicts.not_evaluated_verdict"));
}

TEST_F(CandidateResult, OfAProcessFailureFallsBackToTheDefaultReasonAndTheErrorsText) {
  const auto failures = [&](const ScriptedProcessError& error) {
    return repr(process_result(error_object(error)).at("failures"));
  };
  const std::string fallback =
      "{'worker_failed': {'reason': 'worker_failed', 'detail': 'the text'}}";
  EXPECT_EQ(failures(ScriptedProcessError("the text")), fallback);
  EXPECT_EQ(
      failures(ScriptedProcessError("the text", {{"terminal_reason", Value()}, {"detail", ""}})),
      fallback);
  EXPECT_EQ(failures(ScriptedProcessError("the text", {{"terminal_reason", ""}})), fallback);
  EXPECT_EQ(failures(ScriptedProcessError("the text", {{"terminal_reason", 0}})), fallback);
  EXPECT_EQ(failures(ScriptedProcessError("", {{"terminal_reason", 9}, {"detail", 0}})),
            "{'9': {'reason': '9', 'detail': ''}}");
  EXPECT_EQ(failures(ScriptedProcessError("x", {{"detail", List{1}}})),
            "{'worker_failed': {'reason': 'worker_failed', 'detail': '[1]'}}");
}

TEST_F(CandidateResult, OfABatchWhosePoolFailedIsOneForEachGraphInOrder) {
  const Value error = error_object(ScriptedProcessError("died"));
  const List results =
      process_evaluation_error_results(host_.process_evaluation, host_.evaluation_verdicts,
                                       List{Mapping{{"a", 1}}, Mapping{{"b", 2}}}, error);
  ASSERT_EQ(results.size(), 2U);
  EXPECT_EQ(repr(results.at(0).mapping().at("graph")), "{'a': 1}");
  EXPECT_EQ(repr(results.at(1).mapping().at("graph")), "{'b': 2}");
  EXPECT_FALSE(
      same_object(results.at(0).mapping().at("failures"), results.at(1).mapping().at("failures")));
  EXPECT_TRUE(process_evaluation_error_results(host_.process_evaluation, host_.evaluation_verdicts,
                                               Tuple{}, error)
                  .empty());
}

// What ends the search.

class SearchFatal : public CandidateResult {
 protected:
  [[nodiscard]] bool fatal(const Mapping& attributes) {
    host_.log.clear();
    return process_evaluation_error_is_search_fatal(
        host_.process_evaluation, error_object(ScriptedProcessError("died", attributes)));
  }
};

TEST_F(SearchFatal, AFatalReasonIsFatalEvenWithACandidate) {
  EXPECT_TRUE(fatal({{"terminal_reason", "process_priority_failed"}, {"candidate_index", 1}}));
  EXPECT_THAT(host_.log.lines(),
              ElementsAre("process_evaluation.terminal_process_priority_failed"));
  EXPECT_TRUE(fatal({{"terminal_reason", "memory_budget_exceeded"}, {"candidate_index", 1}}));
  EXPECT_THAT(host_.log.lines(), ElementsAre("process_evaluation.terminal_process_priority_failed",
                                             "process_evaluation.terminal_memory_budget_exceeded"));
}

TEST_F(SearchFatal, AReasonThatIsNotEqualToItselfIsNotFatal) {
  const Value nan = std::nan("");
  host_.process_evaluation.on_terminal_process_priority_failed = always(nan);
  host_.process_evaluation.on_terminal_memory_budget_exceeded = always(nan);
  EXPECT_FALSE(fatal({{"terminal_reason", nan}, {"candidate_index", 0}}));
}

TEST_F(SearchFatal, AFailureThatNoCandidateCanBeToldForIsFatal) {
  EXPECT_TRUE(fatal({{"terminal_reason", "worker_failed"}}));
  EXPECT_TRUE(fatal({{"candidate_index", Value()}}));
  EXPECT_TRUE(fatal(Mapping()));
  EXPECT_FALSE(fatal({{"terminal_reason", "worker_failed"}, {"candidate_index", 0}}));
  EXPECT_FALSE(fatal({{"candidate_index", ""}}));
  EXPECT_FALSE(fatal({{"terminal_reason", List{}}, {"candidate_index", 3}}));
}

}  // namespace
}  // namespace varnholt::genetic
