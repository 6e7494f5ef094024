// Goal: a batch goes through the host's pool and comes back as records in the order of the batch.
// Method: a scripted pool that returns results in any order, with gaps, or fails.
#include "search_templates/genetic/process/batch_evaluation.hpp"

#include <gmock/gmock.h>

#include "search_templates/genetic/value/errors.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::SizeIs;

Mapping result_of(const ScriptedResult& process_result) {
  return candidate_result_from_process_result(process_result.object());
}

TEST(CandidateResultFromProcessResult, CarriesTheWorkersIdentity) {
  const Mapping payload{{"graph", Mapping()}, {"worker_pid", 1}, {"process_attempt", 9}};
  const Mapping result = result_of({3, payload, 4321, 0.5, 2});
  EXPECT_EQ(repr(result),
            "{'graph': {}, 'worker_pid': 4321, 'process_attempt': 2, 'candidate_index': 3, "
            "'elapsed_simulation_seconds': 0.5}");
  // A copy, and a shallow one.
  EXPECT_EQ(repr(payload), "{'graph': {}, 'worker_pid': 1, 'process_attempt': 9}");
  EXPECT_TRUE(same_object(result.at("graph"), payload.at("graph")));
}

TEST(CandidateResultFromProcessResult, KeepsTheIndexThatThePayloadHas) {
  EXPECT_EQ(result_of({3, Mapping{{"candidate_index", 7}}, 1, 0.5, 1}).at("candidate_index"), 7);
  EXPECT_TRUE(result_of({3, Mapping{{"candidate_index", Value()}}, 1, 0.5, 1})
                  .at("candidate_index")
                  .is_absent());
}

TEST(CandidateResultFromProcessResult, SubmissionPayloadGetsTheWorkerUnlessItHasOne) {
  const auto submission = [](const Value& payload) {
    return repr(result_of({0, Mapping{{"submission_payload", payload}}, 4321, 0.5, 1})
                    .at("submission_payload"));
  };
  EXPECT_EQ(submission(Mapping{{"eval_id", "e"}}), "{'eval_id': 'e', 'worker_pid': 4321}");
  EXPECT_EQ(submission(Mapping{{"worker_pid", 7}}), "{'worker_pid': 7}");
  EXPECT_EQ(submission(Mapping{{"worker_pid", Value()}}), "{'worker_pid': None}");
  EXPECT_EQ(submission(Value()), "None");
  EXPECT_EQ(submission("text"), "'text'");
}

TEST(CandidateResultFromProcessResult, PayloadMayBeASequenceOfPairs) {
  EXPECT_EQ(result_of({0, List{Tuple{"passes", true}}, 1, 0.5, 1}).at("passes"), true);
  EXPECT_THROW(static_cast<void>(result_of({0, 5, 1, 0.5, 1})), TypeError);
}

class BatchEvaluation : public testing::Test {
 protected:
  BatchEvaluation() {
    host.context.on_evaluate_for_template = always(scripted_callable(
        host.log, "evaluate", [](std::span<const Value> positional, const Mapping&) {
          return Value(
              Mapping{{"record", Mapping{{"passed", true}, {"per_column_stats", positional[0]}}}});
        }));
  }
  List evaluate(const Value& batch, const Value& timeout = 60.0) {
    return evaluate_candidate_batch(host.bundle(), host.context, batch, timeout);
  }

  ScriptedHost host;
};

TEST_F(BatchEvaluation, EmptyBatchAsksTheHostNothing) {
  EXPECT_TRUE(evaluate(List()).empty());
  EXPECT_TRUE(evaluate(Tuple(), Value()).empty());
  EXPECT_THAT(host.log.lines(), ElementsAre());
}

TEST_F(BatchEvaluation, EveryCandidateIsSimulated) {
  const List results = evaluate(List{Mapping{{"node", "a"}}, Mapping{{"node", "b"}}});
  EXPECT_THAT(
      host.log.names(),
      ElementsAre("context.n_jobs", "search_settings.default_process_priority", "context.attribute",
                  "context.worker_memory_limit_bytes",
                  "process_evaluation.default_worker_memory_limit_bytes", "context.attribute",
                  "process_evaluation.evaluate_candidate_batch", "context.evaluate_for_template",
                  "evaluate", "timings.consume_recorded_backtest_timing_payload",
                  "context.evaluate_for_template", "evaluate",
                  "timings.consume_recorded_backtest_timing_payload"));
  EXPECT_THAT(host.log.lines(),
              Contains("process_evaluation.evaluate_candidate_batch(2, n_jobs=1, max_retries=1, "
                       "timeout_seconds=60.0, worker_memory_limit_bytes=1073741824)"));
  ASSERT_EQ(results.size(), 2U);
  const Mapping second = results.at(1).mapping();
  EXPECT_EQ(repr(second.at("graph")), "{'node': 'b'}");
  EXPECT_EQ(second.at("passes"), true);
  EXPECT_EQ(second.at("candidate_index"), 1);
  EXPECT_EQ(second.at("worker_pid"), 4321);
  EXPECT_EQ(second.at("elapsed_simulation_seconds"), 0.5);
  EXPECT_EQ(second.at("process_attempt"), 1);
}

TEST_F(BatchEvaluation, OnlyAnAbsentTimeOutIsTheHostsDefault) {
  evaluate(List{1}, Value());
  EXPECT_THAT(host.log.lines(),
              Contains("process_evaluation.evaluate_candidate_batch(1, n_jobs=1, max_retries=1, "
                       "timeout_seconds=600.0, worker_memory_limit_bytes=1073741824)"));
  host.log.clear();
  evaluate(List{1}, 0);
  EXPECT_EQ(host.log.count("process_evaluation.default_search_template_timeout_seconds"), 0U);
  EXPECT_THAT(host.log.lines(),
              Contains("process_evaluation.evaluate_candidate_batch(1, n_jobs=1, max_retries=1, "
                       "timeout_seconds=0, worker_memory_limit_bytes=1073741824)"));
}

TEST_F(BatchEvaluation, ResultsStandInTheOrderOfTheBatchWithoutThoseThatAreMissing) {
  std::vector<std::int64_t> given;
  host.process_evaluation.on_evaluate_candidate_batch =
      [&given](const std::vector<ScriptedCandidate>& candidates, const auto&, const auto&) {
        for (const ScriptedCandidate& candidate : candidates)
          given.push_back(candidate.candidate_index);
        const auto result = [](const Value& index, const Value& name) {
          Mapping payload;
          payload.set("n", name);
          return ScriptedResult{index, payload, 1, 0.0, 1};
        };
        return std::vector<ScriptedResult>{result(3, "d"), result(0, "a"), result(7, "stray"),
                                           result(1, "b"), result(1.0, "b again")};
      };
  const List results = evaluate(List{1, 2, 3, 4});
  EXPECT_THAT(given, ElementsAre(0, 1, 2, 3));
  std::vector<std::string> names;
  for (std::size_t i = 0; i < results.size(); ++i)
    names.push_back(str(results.at(i).mapping().at("n")));
  EXPECT_THAT(names, ElementsAre("a", "b again", "d"));  // The last result of an index counts.
}

TEST_F(BatchEvaluation, WhatTheChildThrowsAndWhatThePoolThrowsPass) {
  host.context.on_evaluate_for_template = always(Callable());
  EXPECT_THROW(evaluate(List{1}), RuntimeError);
  host.process_evaluation.on_evaluate_candidate_batch = failing(ScriptedProcessError("lost"));
  EXPECT_THROW(evaluate(List{1}), ScriptedProcessError);
}

TEST_F(BatchEvaluation, JobsBeyondSixtyFourBitsStayAsTheyAre) {
  host.context.on_n_jobs = always(Value("99999999999999999999"));
  evaluate(List{1});
  EXPECT_THAT(
      host.log.lines(),
      Contains("process_evaluation.evaluate_candidate_batch(1, n_jobs=99999999999999999999, "
               "max_retries=1, timeout_seconds=60.0, "
               "worker_memory_limit_bytes=1073741824)"));
}

}  // namespace
}  // namespace varnholt::genetic::test
