// Goal: the figures of a run, and the row of candidates whose runtime was not ready.
// Method: the counters alone over a scripted host, with the results that each rule names.
#include "search_templates/genetic/driver/run_counters.hpp"

#include <cstdint>
#include <limits>
#include <string>

#include <gmock/gmock.h>

#include "search_templates/genetic/settings/module_constants.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/driver/search_harness.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// A letter stands for a result: N not ready, F another failure, T a process-terminal one (worker
// failed), O the other terminal one (time-out), P a pass, A without the entry "failures", B not
// ready beside another failure, X terminal beside another failure.
Value result_of(char letter) {
  const auto failed = [](std::initializer_list<MappingEntry> failures) {
    return Value(Mapping{{"failures", Mapping(failures)}});
  };
  switch (letter) {
    case 'N':
      return failed({{"sdk_runtime_not_ready", 1}});
    case 'F':
      return failed({{"sharpe_min", 1}});
    case 'T':
      return failed({{"worker_failed", 1}});
    case 'O':
      return failed({{"worker_timeout", 1}});
    case 'B':
      return failed({{"sharpe_min", 1}, {"sdk_runtime_not_ready", 1}});
    case 'X':
      return failed({{"sharpe_min", 1}, {"worker_failed", 1}});
    case 'P':
      return failed({});
    default:
      return Mapping{{"passes", true}};
  }
}

List results_of(const std::string& letters) {
  List results;
  for (const char letter : letters)
    results.append(result_of(letter));
  return results;
}

class RunCountersTest : public testing::Test {
 protected:
  // Whether the batches, one call each, end the run.
  bool ends(const std::vector<std::string>& batches) {
    RunCounters row(search.host.bundle(), constants, search.host.context, *search.config, 2);
    try {
      for (const std::string& batch : batches)
        row.count_runtime_not_ready_results(results_of(batch));
    } catch (const ScriptedInfrastructureError&) {
      return true;
    }
    return false;
  }

  Mapping metrics() {
    counters.record_run_metrics("stopped");
    return search.metrics.back();
  }

  SearchHarness search;
  LoadedConstants constants{search.host.search_settings, search.host.process_evaluation};
  RunCounters counters{search.host.bundle(), constants, search.host.context, *search.config, 2};
};

TEST_F(RunCountersTest, RowOfCandidatesThatWereNotReady) {
  search.host.engine.on_infrastructure_failure_threshold = always(3);
  EXPECT_FALSE(ends({"NN"}));
  EXPECT_TRUE(ends({"NNN"}));
  EXPECT_FALSE(ends({"NN", "F", "NN"}));  // A plain failure breaks the row.
  EXPECT_FALSE(ends({"NNFNN"}));
  EXPECT_TRUE(ends({"NN", "T", "N"}));  // One that is lost with its process does not,
  EXPECT_TRUE(ends({"NNON"}));
  EXPECT_FALSE(ends({"NNT", "T", "TTT"}));  // and does not grow it either.
  EXPECT_TRUE(ends({"NNXN"}));              // One terminal reason among others is enough.
  EXPECT_FALSE(ends({"NNP", "NN"}));        // A pass breaks it,
  EXPECT_FALSE(ends({"NNA", "NN"}));        // and so does a record without the entry.
  EXPECT_TRUE(ends({"NBN"}));               // Not ready beside another reason grows it.
  EXPECT_TRUE(ends({"N", "N", "N"}));       // Over batches,
  EXPECT_TRUE(ends({"NN", "", "N"}));       // also over an empty one.
}

TEST_F(RunCountersTest, TheLimitIsTestedOncePerCall) {
  search.host.engine.on_infrastructure_failure_threshold = always(2);
  EXPECT_FALSE(ends({"NNNF", "N"}));  // The limit was reached within the batch, not after it.
  search.host.log.clear();
  EXPECT_TRUE(ends({"NNNNN"}));
  EXPECT_EQ(search.host.log.count("engine.infrastructure_failure_threshold"), 1U);
  EXPECT_THAT(search.host.log.lines(),
              Contains("logger.error('Genetic search runtime was not ready for %s consecutive "
                       "candidates; stopping the search', 5)"));
}

TEST_F(RunCountersTest, TheLimitIsTestedWithoutResultsToo) {
  search.host.engine.on_infrastructure_failure_threshold = always(0);
  EXPECT_TRUE(ends({""}));
}

TEST_F(RunCountersTest, WhateverIsFalseCountsAsNoFailure) {
  search.host.engine.on_infrastructure_failure_threshold = always(2);
  for (const Value& nothing : {Value(), Value(0), Value(""), Value(List()), Value(false)}) {
    RunCounters row(search.host.bundle(), constants, search.host.context, *search.config, 2);
    row.count_runtime_not_ready_results(results_of("N"));
    row.count_runtime_not_ready_results(List{Mapping{{"failures", nothing}}});
    EXPECT_NO_THROW(row.count_runtime_not_ready_results(results_of("N"))) << repr(nothing);
  }
}

TEST_F(RunCountersTest, FailuresMayBeASequenceOfReasons) {
  search.host.engine.on_infrastructure_failure_threshold = always(2);
  RunCounters row(search.host.bundle(), constants, search.host.context, *search.config, 2);
  row.count_runtime_not_ready_results(
      List{Mapping{{"failures", Tuple{"x", "sdk_runtime_not_ready"}}}});
  row.count_runtime_not_ready_results(List{Mapping{{"failures", List{"x", "worker_failed"}}}});
  EXPECT_THROW(row.count_runtime_not_ready_results(results_of("N")), ScriptedInfrastructureError);
}

TEST_F(RunCountersTest, EndOfTheRunInItsOrder) {
  search.host.engine.on_infrastructure_failure_threshold = always(1);
  search.host.context.on_fatal_callback =
      always(scripted_callable(search.host.log, "fatal", always(Value())));
  search.host.log.clear();
  counters.count_candidates(results_of("N"));
  EXPECT_THROW(counters.count_runtime_not_ready_results(results_of("N")),
               ScriptedInfrastructureError);
  EXPECT_THAT(search.host.log.names(),
              ElementsAreArray(kStreak + Names{"logger.error"} + kMetrics +
                               Names{"context.fatal_callback", "fatal",
                                     "engine.raise_background_infrastructure_error"}));
  const std::string detail =
      "search runtime was not ready for 1 consecutive candidates; the runtime, not the candidate, "
      "is what fails, so the search stops instead of recording more candidate rejections";
  EXPECT_THAT(search.host.log.lines(),
              Contains("fatal('BACKGROUND_TASK_FAILED', 'register()', '" + detail + "')"));
  EXPECT_THAT(search.host.log.lines(),
              Contains("engine.raise_background_infrastructure_error('" + detail + "')"));
  EXPECT_EQ(search.metrics.at(0).at("terminal_reason"), "sdk_runtime_not_ready");
  EXPECT_TRUE(counters.metrics_recorded());
}

TEST_F(RunCountersTest, WithoutFatalCallbackTheErrorIsThrownAllTheSame) {
  search.host.engine.on_infrastructure_failure_threshold = always(1);
  EXPECT_TRUE(ends({"N"}));
  EXPECT_EQ(search.host.log.count("context.fatal_callback"), 1U);
}

TEST_F(RunCountersTest, FatalCallbacksOwnErrorComesFirst) {
  search.host.engine.on_infrastructure_failure_threshold = always(1);
  search.host.context.on_fatal_callback =
      always(scripted_callable(search.host.log, "fatal", [](const auto&, const Mapping&) -> Value {
        throw ValueError("no such task");
      }));
  EXPECT_THROW(counters.count_runtime_not_ready_results(results_of("N")), ValueError);
  EXPECT_EQ(search.metrics.size(), 1U);
}

// An error of process evaluation with these attributes.
Value process_error(const Mapping& attributes) {
  return scripted_object(attributes);
}

TEST_F(RunCountersTest, ProcessErrorsAreCounted) {
  EXPECT_EQ(counters.count_process_evaluation_failures(
                process_error({{"terminal_reason", "worker_timeout"}, {"failure_count", 3}})),
            "worker_timeout");
  EXPECT_EQ(counters.count_process_evaluation_failures(
                process_error({{"terminal_reason", ""}, {"failure_count", 2.9}})),
            "worker_failed");
  EXPECT_EQ(counters.count_process_evaluation_failures(process_error(Mapping())), "worker_failed");
  EXPECT_EQ(counters.count_process_evaluation_failures(
                process_error({{"terminal_reason", Value()}, {"failure_count", "10"}})),
            "worker_failed");
  // The reason is a text whatever the attribute was.
  const Value number = counters.count_process_evaluation_failures(
      process_error({{"terminal_reason", 7}, {"failure_count", -1}}));
  EXPECT_TRUE(number.is_text());
  EXPECT_EQ(number, "7");
  EXPECT_EQ(metrics().at("failure_count"), 3 + 2 + 1 + 10 - 1);
}

TEST_F(RunCountersTest, PriorityFailureAddsNothingAndItsCountIsNotRead) {
  search.host.log.clear();
  EXPECT_EQ(counters.count_process_evaluation_failures(scripted_object(
                {{"terminal_reason", "process_priority_failed"}, {"failure_count", 5}},
                &search.host.log, "error")),
            "process_priority_failed");
  EXPECT_THAT(
      search.host.log.names(),
      ElementsAre("error.terminal_reason", "process_evaluation.terminal_process_priority_failed"));
  EXPECT_EQ(metrics().at("failure_count"), 0);
}

TEST_F(RunCountersTest, FailureCountThatIsThereButNoNumberFails) {
  EXPECT_THROW(
      counters.count_process_evaluation_failures(process_error({{"failure_count", Value()}})),
      TypeError);
  EXPECT_THROW(
      counters.count_process_evaluation_failures(process_error({{"failure_count", "many"}})),
      ValueError);
  EXPECT_EQ(metrics().at("failure_count"), 0);
}

TEST_F(RunCountersTest, CountsBeyondSixtyFourBitsStayAtTheirEnd) {
  for (int i = 0; i < 2; ++i) {
    counters.count_process_evaluation_failures(
        process_error({{"failure_count", "9223372036854775808000"}}));
  }
  EXPECT_EQ(metrics().at("failure_count"), std::numeric_limits<std::int64_t>::max());
  for (int i = 0; i < 3; ++i) {
    counters.count_process_evaluation_failures(
        process_error({{"failure_count", "-9223372036854775809"}}));
  }
  EXPECT_EQ(metrics().at("failure_count"), std::numeric_limits<std::int64_t>::min());
}

TEST_F(RunCountersTest, FiguresAreReconciled) {
  counters.count_duplicates(4);
  counters.count_duplicates(1);
  counters.count_candidates(List{Mapping{{"elapsed_simulation_seconds", 0.25}},
                                 Mapping{{"elapsed_simulation_seconds", "0.5"}}});
  counters.count_candidates(List{Mapping{}});
  EXPECT_EQ(counters.candidate_count(), 3);
  EXPECT_FALSE(counters.metrics_recorded());

  const Mapping record = metrics();
  EXPECT_TRUE(counters.metrics_recorded());
  EXPECT_EQ(record.at("candidate_count"), 3);
  EXPECT_EQ(record.at("unique_graph_count"), 3);
  EXPECT_EQ(record.at("duplicate_graph_count"), 5);
  EXPECT_EQ(record.at("generated_graph_count"), 8);
  EXPECT_EQ(record.at("unique_ratio"), 0.375);
  EXPECT_EQ(record.at("elapsed_simulation_seconds"), 0.75);
  EXPECT_EQ(record.at("improvement_round_count"), 0);
}

TEST_F(RunCountersTest, WithoutRecorderTheRunCountsAsReported) {
  search.host.context.on_record_search_run_metrics = always(Callable());
  counters.record_run_metrics("stopped");
  EXPECT_TRUE(counters.metrics_recorded());
  EXPECT_THAT(search.metrics, IsEmpty());
}

}  // namespace
}  // namespace varnholt::genetic::test
