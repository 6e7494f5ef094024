// The pool as the search calls it: every way that a worker can end is one record or none.
#include "hosts/embedded/host/embedded_pool.hpp"

#include <cerrno>
#include <csignal>
#include <functional>
#include <span>
#include <stdexcept>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/host/embedded_host.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded {
namespace {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;

struct CandidateEvaluation {
  std::int64_t candidate_index;
};
struct ProcessResult {
  Value candidate_index;
  Value payload;
  Value worker_pid;
  Value elapsed_simulation_seconds;
  Value attempt;
};

class EmbeddedPoolTest : public ContextTest {
 protected:
  EmbeddedPoolTest() { pool_.set_context(context_); }

  // Evaluates `count` candidates, each by `simulate`.
  std::vector<ProcessResult> evaluate(
      std::size_t count, const std::function<Value(const CandidateEvaluation&)>& simulate,
      double timeout_seconds = 30.0) {
    genetic::List candidates;
    for (std::size_t i = 0; i < count; ++i) {
      candidates.append(pool_.candidate_evaluation(static_cast<std::int64_t>(i), ranked("close")));
    }
    genetic::ProcessEvaluationConfig config;
    config.n_jobs = 2;
    config.max_retries = 1;
    config.timeout_seconds = timeout_seconds;
    config.worker_memory_limit_bytes = pool_.default_worker_memory_limit_bytes();
    const auto simulate_one =
        genetic::make_callable([&simulate](std::span<const Value> positional, const Mapping&) {
          return simulate({genetic::attribute(positional[0], "candidate_index")->integer()});
        });
    std::vector<ProcessResult> results;
    const Value answer = pool_.configure([&config] { return config; })
                             ->evaluate_candidate_batch(candidates, simulate_one);
    for (const Value& result : answer.list().native_items()) {
      const auto read = [&result](const char* name) { return *genetic::attribute(result, name); };
      results.push_back({read("candidate_index"), read("payload"), read("worker_pid"),
                         read("elapsed_simulation_seconds"), read("attempt")});
    }
    return results;
  }

  static std::string reason_of(const ProcessResult& result) {
    return genetic::str(
        result.payload.mapping().at(keys::kFailures).mapping().native_entries()[0].key);
  }
  static std::string detail_of(const ProcessResult& result) {
    return genetic::str(result.payload.mapping()
                            .at(keys::kFailures)
                            .mapping()
                            .native_entries()[0]
                            .value.mapping()
                            .at(keys::kDetail));
  }

  NoRecorder recorder_;
  EmbeddedContext context_{evaluator_, {}, stop_, recorder_, submission_, timings_};
  RealSystemCalls system_;
  genetic::EvaluationVerdicts verdicts_;
  std::int64_t last_tick_ = -1;
  EmbeddedPool pool_{system_, verdicts_, 60.0, [this](std::int64_t ended) { last_tick_ = ended; }};
};

TEST_F(EmbeddedPoolTest, ResultsCarryTheWorkersIdentity) {
  const auto results = evaluate(5, [](const CandidateEvaluation& candidate) -> Value {
    return Mapping{{"index", candidate.candidate_index}, {"pid", std::int64_t{getpid()}}};
  });
  ASSERT_EQ(results.size(), 5U);
  for (std::int64_t i = 0; i < 5; ++i) {
    const ProcessResult& result = results[static_cast<std::size_t>(i)];
    EXPECT_EQ(result.candidate_index.integer(), i);
    EXPECT_EQ(result.payload.mapping().at("index").integer(), i);
    EXPECT_TRUE(result.payload.mapping().at("pid") == result.worker_pid);
    EXPECT_NE(result.worker_pid.integer(), getpid());
    EXPECT_EQ(result.attempt.integer(), 0);
    EXPECT_GE(result.elapsed_simulation_seconds.real(), 0.0);
  }
  EXPECT_EQ(last_tick_, 5);
}

TEST_F(EmbeddedPoolTest, ALostWorkerIsThatCandidatesFailure) {
  const auto results = evaluate(3, [](const CandidateEvaluation& candidate) -> Value {
    if (candidate.candidate_index == 1) raise(SIGKILL);
    return Mapping{{"index", candidate.candidate_index}};
  });
  ASSERT_EQ(results.size(), 3U);
  EXPECT_EQ(results[0].payload.mapping().at("index").integer(), 0);
  EXPECT_EQ(reason_of(results[1]), "worker_failed");
  EXPECT_EQ(detail_of(results[1]), "worker killed by signal 9 (SIGKILL)");
  EXPECT_EQ(results[1].attempt.integer(), 1);  // Tried once more.
  EXPECT_EQ(results[1].payload.mapping().size(), 11U);
  EXPECT_EQ(results[2].payload.mapping().at("index").integer(), 2);
}

TEST_F(EmbeddedPoolTest, AnErrorOutsideTheEvaluatorIsTheCandidatesFailureToo) {
  const auto results = evaluate(
      1, [](const CandidateEvaluation&) -> Value { throw std::runtime_error("no correlation"); });
  EXPECT_EQ(reason_of(results[0]), "worker_failed");
  EXPECT_NE(detail_of(results[0]).find("no correlation"), std::string::npos);
}

TEST_F(EmbeddedPoolTest, ATimeOutHasItsOwnReason) {
  const auto results = evaluate(
      1,
      [](const CandidateEvaluation&) -> Value {
        while (true)
          pause();
      },
      0.2);
  EXPECT_EQ(reason_of(results[0]), "worker_timeout");
}

TEST_F(EmbeddedPoolTest, AStoppedSearchLeavesUnfinishedCandidatesWithoutResults) {
  interrupt_.requests = 1;
  const auto results = evaluate(4, [](const CandidateEvaluation&) -> Value {
    while (true)
      pause();
  });
  EXPECT_TRUE(results.empty());
}

TEST_F(EmbeddedPoolTest, TheSecondInterruptLeavesWithoutChildren) {
  interrupt_.requests = 2;
  EXPECT_THROW(evaluate(4,
                        [](const CandidateEvaluation&) -> Value {
                          while (true)
                            pause();
                        }),
               InterruptedAtOnce);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(EmbeddedPoolTest, KnowsItsOwnErrors) {
  const ProcessEvaluationError error(WorkerFailure{"worker_failed", "gone", 4});
  const auto object = pool_.as_error(error);
  ASSERT_TRUE(object.has_value());
  EXPECT_EQ(genetic::attribute(*object, "terminal_reason")->text(), "worker_failed");
  EXPECT_EQ(genetic::attribute(*object, "candidate_index")->integer(), 4);
  EXPECT_FALSE(genetic::attribute(*object, "failure_count").has_value());
  EXPECT_FALSE(pool_.as_error(std::runtime_error("other")).has_value());
}

}  // namespace
}  // namespace varnholt::embedded
