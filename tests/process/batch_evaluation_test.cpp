// Goal: a batch goes through the host's pool and comes back as records in the order of the batch.
// Method: a scripted pool that returns results in any order, with gaps, or fails.
#include "search_templates/genetic/process/batch_evaluation.hpp"

#include <gmock/gmock.h>

#include "search_templates/genetic/process/batch_results.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

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

// A pool whose candidates all give a record with their own index.
std::vector<ScriptedResult> all_done(const std::vector<ScriptedCandidate>& candidates,
                                     const ScriptedProcessEvaluation::Simulate& /*simulate*/,
                                     const ProcessEvaluationConfig& /*config*/) {
  std::vector<ScriptedResult> results;
  for (const ScriptedCandidate& candidate : candidates) {
    const Value index = candidate.candidate_index;
    results.push_back({index, Mapping{{"graph", candidate.graph}}, 4321, 0.5, 1});
  }
  return results;
}

class BatchEvaluation : public testing::Test {
 protected:
  BatchEvaluation() {
    host.process_contexts.is_quiet = true;
    host.process_evaluation.on_resolve_process_worker_count_details = always(8);
    host.process_evaluation.on_evaluate_candidate_batch = all_done;
  }
  List evaluate(const Value& batch, const Value& timeout = 60.0) {
    return evaluate_candidate_batch(host.bundle(), host.context, batch, timeout).list();
  }
  // How the pool was asked, pass by pass.
  std::vector<std::string> asked_of_the_pool() {
    std::vector<std::string> lines;
    for (const std::string& line : host.log.lines()) {
      if (line.find("process_evaluation.evaluate_candidate_batch") == 0) lines.push_back(line);
    }
    return lines;
  }

  ScriptedHost host;
};

TEST_F(BatchEvaluation, EmptyBatchAsksTheHostNothing) {
  EXPECT_TRUE(evaluate(List()).empty());
  EXPECT_TRUE(evaluate(Tuple(), Value()).empty());
  EXPECT_THAT(host.log.lines(), ElementsAre());
}

TEST_F(BatchEvaluation, CancelledBeforeAnythingItAsksThePoolNothing) {
  host.context.on_submission_cancelled = always(true);
  EXPECT_TRUE(evaluate(List{Mapping{{"node", "a"}}}).empty());
  EXPECT_THAT(host.log.names(), ElementsAre("context.submission_cancelled"));
}

TEST_F(BatchEvaluation, ResultsCarryTheirWorkersIdentity) {
  const List results = evaluate(List{Mapping{{"node", "a"}}, Mapping{{"node", "b"}}});
  ASSERT_EQ(results.size(), 2U);
  const Mapping second = results.at(1).mapping();
  EXPECT_EQ(repr(second.at("graph")), "{'node': 'b'}");
  EXPECT_EQ(second.at("candidate_index"), 1);
  EXPECT_EQ(second.at("worker_pid"), 4321);
  EXPECT_EQ(second.at("elapsed_simulation_seconds"), 0.5);
  EXPECT_EQ(second.at("process_attempt"), 1);
}

TEST_F(BatchEvaluation, OnlyAnAbsentTimeOutIsTheHostsDefault) {
  evaluate(List{1}, Value());
  EXPECT_THAT(asked_of_the_pool(), ElementsAre(testing::HasSubstr("timeout_seconds=600.0")));
  host.log.clear();
  evaluate(List{1}, 0);
  EXPECT_EQ(host.log.count("process_evaluation.default_search_template_timeout_seconds"), 0U);
  EXPECT_THAT(asked_of_the_pool(), ElementsAre(testing::HasSubstr("timeout_seconds=0,")));
}

TEST_F(BatchEvaluation, AChunkIsNoLargerThanTheWorkersThatThereAre) {
  host.process_evaluation.on_resolve_process_worker_count_details = always(2);
  EXPECT_EQ(evaluate(List{1, 2, 3, 4, 5}).size(), 5U);
  EXPECT_EQ(asked_of_the_pool().size(), 3U);
}

TEST_F(BatchEvaluation, ResultsStandInTheOrderOfTheBatchWithoutThoseThatAreMissing) {
  std::vector<std::int64_t> given;
  host.process_evaluation.on_evaluate_candidate_batch =
      [&given, passes = 0](const std::vector<ScriptedCandidate>& candidates, const auto&,
                           const auto&) mutable {
        for (const ScriptedCandidate& candidate : candidates)
          given.push_back(candidate.candidate_index);
        // What is missing is asked for again, until a pass gives nothing.
        if (++passes > 1) return std::vector<ScriptedResult>();
        const auto result = [](const Value& index, const Value& name) {
          Mapping payload;
          payload.set("n", name);
          return ScriptedResult{index, payload, 1, 0.0, 1};
        };
        return std::vector<ScriptedResult>{result(3, "d"), result(0, "a"), result(7, "stray"),
                                           result(1, "b"), result(1.0, "b again")};
      };
  const List results = evaluate(List{1, 2, 3, 4});
  EXPECT_THAT(given, ElementsAre(0, 1, 2, 3, 2));
  std::vector<std::string> names;
  for (std::size_t i = 0; i < results.size(); ++i)
    names.push_back(str(results.at(i).mapping().at("n")));
  EXPECT_THAT(names, ElementsAre("a", "b again", "d"));  // The last result of an index counts.
}

TEST_F(BatchEvaluation, AFatalErrorOfThePoolLeavesAsItIs) {
  host.process_evaluation.on_evaluate_candidate_batch = failing(ScriptedProcessError("lost"));
  EXPECT_THROW(evaluate(List{1}), ScriptedProcessError);
  host.process_evaluation.on_evaluate_candidate_batch = failing(KeyError("other"));
  EXPECT_THROW(evaluate(List{1}), KeyError);
}

TEST_F(BatchEvaluation, JobsBeyondSixtyFourBitsStayAsTheyAre) {
  host.context.on_n_jobs = always(Value("99999999999999999999"));
  evaluate(List{1});
  EXPECT_THAT(asked_of_the_pool(), ElementsAre(testing::HasSubstr("n_jobs=99999999999999999999")));
}

}  // namespace
}  // namespace varnholt::genetic::test
