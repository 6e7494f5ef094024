// Goal: a process result becomes the candidate's record, with its worker's identity.
// Method: payloads of every shape, written out.
#include "search_templates/genetic/process/batch_results.hpp"

#include <gmock/gmock.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

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

}  // namespace
}  // namespace varnholt::genetic::test
