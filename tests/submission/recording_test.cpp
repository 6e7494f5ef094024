// Goal: a result is recorded once, after its timing is checked and the pool measured, with what the
// host's recorder must be told, and is marked only when the record was written.
// Method: a scripted recorder, its arguments, the ordered log of calls, and the record afterwards.
#include "search_templates/genetic/submission/recording.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(CandidateRejectionReason, IsTheFirstKeyAsItStands) {
  const auto reason = [](const Value& failures) {
    return candidate_rejection_reason(Mapping{{"failures", failures}});
  };
  EXPECT_EQ(reason(Mapping{{"z", 1}, {"a", 2}}), "z");
  EXPECT_EQ(reason(Mapping{{7, 1}}), 7);
  for (const Value& none : {Value(), Value(Mapping()), Value(List{"a"}), Value("text"), Value(0)})
    EXPECT_TRUE(reason(none).is_absent()) << repr(none);
  EXPECT_TRUE(candidate_rejection_reason(Mapping()).is_absent());
  EXPECT_THROW(static_cast<void>(candidate_rejection_reason("no record")), AttributeError);
}

class Recording : public testing::Test {
 protected:
  // The recorder's answers, in order.
  void recorder(std::initializer_list<Value> answers) {
    host.context.on_required_safe_record =
        always(scripted_callable(host.log, "safe_record", in_turn(answers)));
  }
  bool record(const Value& candidate) {
    return record_candidate_result_in_parent(host.bundle(), host.context, candidate);
  }
  std::string error_of_record(const Value& candidate) {
    return error_of([&] { return record(candidate); });
  }
  // The arguments of the one record that was written.
  std::string recorded() {
    std::string line;
    for (const std::string& candidate : host.log.lines())
      if (candidate.rfind("safe_record(", 0) == 0) line += candidate;
    return line;
  }

  ScriptedHost host;
};

TEST_F(Recording, FailingResultIsToldWithItsReason) {
  recorder({"id"});
  Mapping result{{"graph", "g"},
                 {"passes", false},
                 {"failures", Mapping{{"sharpe_min", 1}, {"turnover_max", 2}}},
                 {"stats", "s"},
                 {"per_column_stats", "columns"},
                 {"elapsed_simulation_seconds", 1.5},
                 {"tracking_metric_kwargs", Mapping{{"k", "v"}}}};
  EXPECT_TRUE(record(result));
  EXPECT_THAT(host.log.lines(),
              ElementsAre("context.required_safe_record",
                          "safe_record('g', False, rejection_reason='sharpe_min', stats='s', "
                          "per_column_stats='columns', expression_elapsed_seconds=1.5, "
                          "backtest_timing=None, tracking_metric_kwargs={'k': 'v'})",
                          "context.last_evaluation_record"));
  EXPECT_EQ(result.at("_parent_recorded"), true);
  EXPECT_EQ(result.at("eval_id"), "id");
  EXPECT_FALSE(result.contains("backtest_timing"));
}

TEST_F(Recording, PassingResultHasNoReasonAndMissingEntriesAreAbsent) {
  recorder({"id"});
  EXPECT_TRUE(record(Mapping{{"passes", 1}, {"failures", Mapping{{"odd", 1}}}}));
  EXPECT_EQ(recorded(),
            "safe_record(None, True, rejection_reason=None, stats=None, per_column_stats=None, "
            "expression_elapsed_seconds=None, backtest_timing={'seconds': 0.5}, "
            "tracking_metric_kwargs={'mi_verdict': {'verdict': 'not_evaluated'}, "
            "'correlation_verdict': {'verdict': 'not_evaluated'}, 'pool_metrics_pending': True, "
            "'pool_metrics_pending_detail': 'pool metric computation context is unavailable'})");
}

TEST_F(Recording, FalseTrackingValuesBecomeANewMapping) {
  for (const Value& none : {Value(), Value(Mapping()), Value(0)}) {
    recorder({"id"});
    host.log.clear();
    EXPECT_TRUE(record(Mapping{{"tracking_metric_kwargs", none}}));
    EXPECT_EQ(host.log.lines().at(1),
              "safe_record(None, False, rejection_reason=None, stats=None, per_column_stats=None, "
              "expression_elapsed_seconds=None, backtest_timing=None, tracking_metric_kwargs={})");
  }
}

TEST_F(Recording, SecondTimeAsksTheHostNothing) {
  recorder({"id"});
  const Mapping result{{"passes", true}};
  EXPECT_TRUE(record(result));
  host.log.clear();
  EXPECT_TRUE(record(result));
  EXPECT_THAT(host.log.lines(), ElementsAre());
  // The mark is read by its truth.
  recorder({"id"});
  EXPECT_TRUE(record(Mapping{{"_parent_recorded", 0}}));
  EXPECT_EQ(host.log.count("safe_record"), 1U);
  // The mark alone is enough, whatever else is wrong with the record.
  host.log.clear();
  EXPECT_TRUE(record(Mapping{{"_parent_recorded", "yes"}, {"passes", true}, {"worker_pid", 1}}));
  EXPECT_THAT(host.log.lines(), ElementsAre());
}

TEST_F(Recording, ARecordMaySucceedWithoutAnId) {
  recorder({Value()});
  host.context.on_last_evaluation_record =
      always(std::optional<Value>(Mapping{{"recording_succeeded", true}}));
  const Mapping result{{"eval_id", "before"}};
  EXPECT_TRUE(record(result));
  EXPECT_EQ(result.at("_parent_recorded"), true);
  EXPECT_EQ(result.at("eval_id"), "before");
}

TEST_F(Recording, WithoutIdAndWithoutSuccessNothingIsMarked) {
  for (const std::optional<Value>& last :
       std::vector<std::optional<Value>>{std::nullopt, Value(), Value("text"), Value(Mapping()),
                                         Value(Mapping{{"recording_succeeded", 0}})}) {
    recorder({Value()});
    host.context.on_last_evaluation_record = always(last);
    const Mapping result{{"passes", false}};
    EXPECT_FALSE(record(result));
    EXPECT_EQ(repr(result), "{'passes': False}");
    // One that passes keeps what was made for the record, but no mark and no persisted id.
    recorder({Value()});
    const Mapping passing{{"passes", true}, {"candidate_index", 7}};
    EXPECT_FALSE(record(passing));
    EXPECT_FALSE(passing.contains("_parent_recorded"));
    EXPECT_FALSE(passing.contains("eval_id"));
    EXPECT_EQ(passing.at("submission_payload").mapping().at("eval_id"), "genetic-candidate-7");
  }
}

TEST_F(Recording, AFalseIdIsAnId) {
  recorder({0});
  const Mapping result;
  EXPECT_TRUE(record(result));
  EXPECT_EQ(result.at("eval_id"), 0);
}

TEST_F(Recording, MissingRecorderIsAnError) {
  EXPECT_EQ(error_of_record(Mapping()),
            "AttributeError: 'SearchContext' object has no attribute '_safe_record'");
  // It is read before the pool is measured, after the timing is checked.
  const Mapping passing{{"passes", true}};
  EXPECT_THAT(error_of_record(passing), HasSubstr("AttributeError"));
  EXPECT_EQ(repr(passing), "{'passes': True, 'backtest_timing': {'seconds': 0.5}}");
}

TEST_F(Recording, RecordersErrorPassesAndNothingIsMarked) {
  host.context.on_required_safe_record =
      always(scripted_callable(host.log, "safe_record", [](const auto&, const Mapping&) -> Value {
        throw ValueError("locked");
      }));
  const Mapping result;
  EXPECT_THROW(static_cast<void>(record(result)), ValueError);
  EXPECT_TRUE(result.empty());
}

TEST_F(Recording, BatchIsRecordedInOrderUpToTheFirstThatFails) {
  recorder({"a", Value(), "c"});
  const Mapping first{{"graph", 1}};
  const Mapping second{{"graph", 2}};
  const Mapping third{{"graph", 3}};
  try {
    record_candidate_results_in_parent(host.bundle(), host.context, List{first, second, third});
    FAIL() << "no error";
  } catch (const RuntimeError& error) {
    EXPECT_EQ(error.text(), "genetic candidate parent evaluation persistence failed");
  }
  EXPECT_EQ(first.at("eval_id"), "a");
  EXPECT_FALSE(second.contains("_parent_recorded"));
  EXPECT_FALSE(third.contains("_parent_recorded"));
  EXPECT_EQ(host.log.count("safe_record"), 2U);
  EXPECT_NO_THROW(record_candidate_results_in_parent(host.bundle(), host.context, List()));
}

// The timing of a completed backtest -------------------------------------------------------------

constexpr const char* kMissing =
    "RuntimeError: genetic candidate is missing serialized backtest timing";

TEST_F(Recording, TimingComesFromTheRoadThatTheResultHas) {
  const Mapping timing{{"seconds", 1}};
  const Mapping completed{{"backtest_completed", true}};
  const Mapping completed_with_timing{{"backtest_completed", 1}, {"backtest_timing", timing}};
  const std::string serialized = "timings.validate_graph_backtest_timing_payload";
  const std::string of_process = "timings.validate_process_backtest_timing_payload";
  const std::string consumed = "timings.consume_recorded_backtest_timing_payload";
  struct Row {
    const char* what;
    Mapping result;
    std::string last_call;  // Of the timing's; empty when the timing is not looked at.
    std::string told;       // The recorder's backtest_timing, or the error.
  };
  const std::vector<Row> table = {
      {"failing, no backtest", {{"backtest_timing", "unchecked"}}, "", "None"},
      {"failing, evidence that is no mapping",
       {{"attempt_evidence", "backtest_completed"}},
       "",
       "None"},
      {"failing, not completed",
       {{"attempt_evidence", Mapping{{"backtest_completed", 0}}}},
       "",
       "None"},
      {"failing in a worker, no backtest", {{"worker_pid", 1}}, "", "None"},
      {"failing, completed", {{"attempt_evidence", completed}}, consumed, "{'seconds': 0.5}"},
      {"failing, completed, with evidence",
       {{"attempt_evidence", completed_with_timing}},
       serialized,
       "{'seconds': 1}"},
      {"failing, completed, on the result",
       {{"attempt_evidence", completed}, {"backtest_timing", timing}},
       serialized,
       "{'seconds': 1}"},
      {"failing, completed, in the payload",
       {{"attempt_evidence", completed},
        {"submission_payload", Mapping{{"backtest_timing", timing}}}},
       serialized,
       "{'seconds': 1}"},
      {"failing, completed, absent in the payload",
       {{"attempt_evidence", completed},
        {"submission_payload", Mapping{{"backtest_timing", Value()}}}},
       consumed,
       "{'seconds': 0.5}"},
      {"failing in a worker, completed",
       {{"worker_pid", Value()}, {"attempt_evidence", completed_with_timing}},
       of_process,
       "{'seconds': 1}"},
      {"failing in a worker, completed, without timing",
       {{"worker_pid", 1}, {"attempt_evidence", completed}},
       "",
       kMissing},
      {"passing", {{"passes", true}}, consumed, "{'seconds': 0.5}"},
      {"passing with a timing",
       {{"passes", true}, {"backtest_timing", timing}},
       serialized,
       "{'seconds': 1}"},
      {"passing in a worker",
       {{"passes", true}, {"worker_pid", 1}, {"backtest_timing", timing}},
       of_process,
       "{'seconds': 1}"},
      {"passing in a worker without timing", {{"passes", true}, {"worker_pid", 1}}, "", kMissing},
      {"passing, roads disagree",
       {{"passes", true},
        {"backtest_timing", timing},
        {"attempt_evidence", Mapping{{"backtest_timing", Mapping()}}}},
       "timings.validate_backtest_timing_payload",
       "RuntimeError: genetic candidate backtest timing disagrees with attempt evidence backtest "
       "timing"},
  };
  for (const Row& row : table) {
    SCOPED_TRACE(row.what);
    recorder({"id"});
    host.log.clear();
    const Mapping result = row.result;
    const std::string error = error_of_record(result);
    // What came before the recorder was even read.
    std::string last_call;
    for (const std::string& name : host.log.names()) {
      if (name == "context.required_safe_record") break;
      last_call = name;
    }
    EXPECT_EQ(last_call, row.last_call);
    if (error != "no error") {
      EXPECT_EQ(error, row.told);
      EXPECT_EQ(host.log.count("context.required_safe_record"), 0U);
      EXPECT_EQ(recorded(), "");
      continue;
    }
    EXPECT_THAT(recorded(), HasSubstr("backtest_timing=" + row.told + ","));
    if (!row.last_call.empty()) {
      EXPECT_EQ(repr(result.at("backtest_timing")), row.told);
    }
  }
}

TEST_F(Recording, ConsumingIsToldTheGraphAlone) {
  recorder({"id"});
  EXPECT_TRUE(record(Mapping{{"graph", "g"},
                             {"attempt_evidence", Mapping{{"backtest_completed", true}}},
                             {"submission_payload", Mapping{{"backtest_timing", Value()}}}}));
  EXPECT_EQ(host.log.lines().at(0),
            "timings.consume_recorded_backtest_timing_payload('g', include_identity=True)");
}

TEST_F(Recording, EmptyTimingBecomesAbsentAndAPassingResultMayNotHaveOne) {
  for (const Value& empty : {Value(), Value(Mapping()), Value(0), Value("")}) {
    host.backtest_timings.on_consume = always(empty);
    recorder({"id"});
    host.log.clear();
    const Mapping failing_result{{"attempt_evidence", Mapping{{"backtest_completed", true}}}};
    EXPECT_TRUE(record(failing_result));
    EXPECT_THAT(recorded(), HasSubstr("backtest_timing=None,"));
    // The key is there all the same.
    ASSERT_TRUE(failing_result.contains("backtest_timing"));
    EXPECT_TRUE(failing_result.at("backtest_timing").is_absent());
    const Mapping passing{{"passes", true}};
    EXPECT_EQ(error_of_record(passing), kMissing);
    EXPECT_EQ(repr(passing), "{'passes': True}");
  }
  // A serialized one as well.
  recorder({"id"});
  const Mapping serialized{{"attempt_evidence", Mapping{{"backtest_completed", true}}},
                           {"backtest_timing", Mapping()}};
  EXPECT_TRUE(record(serialized));
  EXPECT_TRUE(serialized.at("backtest_timing").is_absent());
}

// A validator may normalise differently with and without the identity of the process.
TEST_F(Recording, RecordGetsTheTimingWithTheIdentityAndTheResultThatOfThePayload) {
  host.backtest_timings.on_validate_process = always(Value(Mapping{{"process", 1}}));
  host.backtest_timings.on_validate_graph = always(Value(Mapping{{"process", 2}}));
  recorder({"id"});
  const Mapping result{
      {"passes", true}, {"worker_pid", 1}, {"backtest_timing", Mapping{{"process", 0}}}};
  EXPECT_TRUE(record(result));
  EXPECT_THAT(recorded(), HasSubstr("backtest_timing={'process': 1},"));
  EXPECT_EQ(repr(result.at("backtest_timing")), "{'process': 2}");
  EXPECT_EQ(repr(result.at("submission_payload").mapping().at("backtest_timing")),
            "{'process': 2}");
}

TEST_F(Recording, SecondCheckComparesWhatTheFirstWrote) {
  host.backtest_timings.on_validate_process = always(Value(Mapping{{"process", 1}}));
  recorder({"id"});
  const Mapping result{{"passes", true},
                       {"worker_pid", 1},
                       {"attempt_evidence", Mapping{{"backtest_timing", Mapping{{"process", 0}}}}}};
  EXPECT_EQ(error_of_record(result),
            "RuntimeError: genetic candidate backtest timing disagrees with attempt evidence "
            "backtest timing");
  EXPECT_EQ(host.log.count("safe_record"), 0U);
}

// The attempt of a child -------------------------------------------------------------------------

TEST_F(Recording, AttemptIsMadeCurrentWhereTheResultNamesOne) {
  struct Row {
    Mapping result;
    const char* activated;
  };
  const std::vector<Row> table = {
      {Mapping(), ""},
      {{{"source_attempt_id", "a"}}, ""},
      {{{"process_attempt", 1}}, ""},
      {{{"process_attempt", 1}, {"source_attempt_id", Value()}}, ""},
      {{{"process_attempt", 1}, {"source_attempt_id", "a"}}, "('a', None)"},
      {{{"process_attempt", Value()}, {"source_attempt_id", 0}, {"attempt_evidence", "e"}},
       "(0, 'e')"},
  };
  for (const Row& row : table) {
    SCOPED_TRACE(repr(row.result));
    recorder({"id"});
    host.log.clear();
    EXPECT_TRUE(record(row.result));
    if (*row.activated == '\0') {
      EXPECT_EQ(host.log.count("context.activate_existing_attempt"), 0U);
    } else {
      EXPECT_EQ(host.log.lines().at(0),
                "context.activate_existing_attempt" + std::string(row.activated));
    }
  }
}

TEST_F(Recording, FailureOfTheActivationComesBeforeTheRecorderIsRead) {
  recorder({"id"});
  host.context.on_activate_existing_attempt = [](const Value&, const Value&) {
    throw KeyError("unknown attempt");
  };
  const Mapping result{{"process_attempt", 1}, {"source_attempt_id", "a"}};
  EXPECT_EQ(error_of_record(result), "KeyError: unknown attempt");
  EXPECT_EQ(host.log.count("context.required_safe_record"), 0U);
  EXPECT_FALSE(result.contains("_parent_recorded"));
}

// The pool comes before the record ---------------------------------------------------------------

class RecordingAgainstAPool : public Recording {
 protected:
  RecordingAgainstAPool() {
    host.context.on_attribute = [](std::string_view name) -> std::optional<Value> {
      if (name == "_backtester" || name == "_signal_pool_name") return Value(name);
      if (name == "_era_config") return Value(Mapping());
      return std::nullopt;
    };
    recorder({"persisted"});
  }

  Mapping result{{"graph", "g"},
                 {"passes", true},
                 {"candidate_index", 7},
                 {"process_attempt", 1},
                 {"source_attempt_id", "attempt"},
                 {"worker_pid", 1},
                 {"backtest_timing", Mapping{{"seconds", 1}}}};
};

TEST_F(RecordingAgainstAPool, CallsOfAPassingResult) {
  EXPECT_TRUE(record(result));
  std::vector<std::string> names;
  for (const std::string& name : host.log.names())
    if (name != "context.attribute") names.push_back(name);
  EXPECT_THAT(
      names,
      ElementsAre(
          "timings.validate_backtest_timing_payload",
          "timings.validate_process_backtest_timing_payload", "context.activate_existing_attempt",
          "context.required_safe_record", "timings.validate_backtest_timing_payload",
          "timings.validate_graph_backtest_timing_payload",
          "engine.find_submitted_stats_payload_from_backtest",
          "engine.annotate_submission_client_manifest", "evaluation_verdicts.not_evaluated_verdict",
          "evaluation_verdicts.not_evaluated_verdict",
          "engine.refresh_submission_manifest_membership",
          "engine.selected_pool_has_synced_found_signal_ids", "context.search_context_thresholds",
          "engine.stats_gate_threshold_set", "engine.submission_pnl_mi_from_backtest_or_compute",
          "engine.submission_correlation_from_backtest_or_compute",
          "engine.find_submission_mi_threshold_and_pool", "engine.find_gate_verdict",
          "engine.find_submission_correlation_threshold_and_pool", "engine.find_gate_verdict",
          "safe_record", "context.last_evaluation_record"));
  EXPECT_THAT(recorded(), HasSubstr("tracking_metric_kwargs={'mi_verdict': {'passed': True"));
}

TEST_F(RecordingAgainstAPool, PersistedIdReplacesTheOneThatWasMadeUp) {
  EXPECT_TRUE(record(result));
  EXPECT_EQ(result.at("eval_id"), "persisted");
  EXPECT_EQ(result.at("submission_payload").mapping().at("eval_id"), "persisted");
  EXPECT_EQ(result.at("_parent_recorded"), true);
}

TEST_F(RecordingAgainstAPool, BlockedResultIsRecordedAsFailedAndItsPayloadKeepsTheId) {
  host.engine.on_submission_correlation_from_backtest_or_compute =
      always(Value(Tuple{0.75, false}));
  EXPECT_TRUE(record(result));
  EXPECT_THAT(recorded(), HasSubstr("safe_record('g', False, rejection_reason="
                                    "'correlation_exceeded', stats=None"));
  // The timing of the backtest is told all the same.
  EXPECT_THAT(recorded(), HasSubstr("backtest_timing={'seconds': 1}"));
  EXPECT_EQ(result.at("submission_payload").mapping().at("eval_id"), "persisted");
}

TEST_F(RecordingAgainstAPool, ReasonOfABlockedResultIsItsFirstFailure) {
  host.engine.on_submission_correlation_from_backtest_or_compute =
      always(Value(Tuple{0.75, false}));
  result.set("failures", Mapping{{"odd", 1}});
  EXPECT_TRUE(record(result));
  EXPECT_THAT(recorded(), HasSubstr("rejection_reason='odd'"));
}

TEST_F(RecordingAgainstAPool, PendingResultIsRecordedAsPassing) {
  host.engine.on_refresh_submission_manifest_membership = always(false);
  EXPECT_TRUE(record(result));
  EXPECT_THAT(recorded(), HasSubstr("safe_record('g', True, rejection_reason=None"));
  EXPECT_EQ(result.at("_submission_pending_reason"), "pool_metrics_refresh_required");
}

TEST_F(RecordingAgainstAPool, FailureOfTheMeasurementPassesAndNothingIsRecorded) {
  host.engine.on_refresh_submission_manifest_membership = failing(KeyError("odd"));
  EXPECT_EQ(error_of_record(result), "KeyError: odd");
  EXPECT_EQ(recorded(), "");
  EXPECT_FALSE(result.contains("_parent_recorded"));
}

TEST_F(RecordingAgainstAPool, ResultThatWasNotWrittenIsMeasuredAgain) {
  recorder({Value(), "persisted"});
  EXPECT_FALSE(record(result));
  EXPECT_TRUE(record(result));
  EXPECT_EQ(host.log.count("engine.refresh_submission_manifest_membership"), 2U);
  // The payload is built once.
  EXPECT_EQ(host.log.count("engine.annotate_submission_client_manifest"), 1U);
}

}  // namespace
}  // namespace varnholt::genetic::test
