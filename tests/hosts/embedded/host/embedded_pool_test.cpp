// The pool as the search calls it: what its callbacks are told of each attempt and in which order,
// and every way that a worker can end.
// Method: real children; callbacks that write down what they are told; workers that are killed,
// hang, or take all memory.
#include "hosts/embedded/host/embedded_pool.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "hosts/embedded/pool/pool_types.hpp"
#include "hosts/embedded/system/interrupt.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/host/embedded_pool_fixture.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Callable;
using genetic::List;
using genetic::Mapping;
using genetic::Tuple;
using genetic::Value;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

TEST_F(EmbeddedPoolTest, ResultsCarryTheWorkersIdentity) {
  genetic::ProcessEvaluationConfig config = noting();
  config.n_jobs = 2;
  const Value results = evaluate(
      5,
      [this](std::int64_t index, std::int64_t attempt) -> Value {
        return Mapping{{"index", index},
                       {"attempt", attempt},
                       {"pid", std::int64_t{getpid()}},
                       {"entered", entered_}};
      },
      config);
  ASSERT_EQ(results.list().size(), 5U);
  std::vector<std::int64_t> indices;
  for (std::size_t i = 0; i < 5; ++i) {
    const Value result = results.list().at(i);
    const Mapping payload = genetic::required_attribute(result, "payload").mapping();
    indices.push_back(payload.at("index").integer());
    EXPECT_TRUE(payload.at("index") == genetic::required_attribute(result, "candidate_index"));
    EXPECT_TRUE(payload.at("pid") == genetic::required_attribute(result, "worker_pid"));
    EXPECT_NE(payload.at("pid").integer(), getpid());
    EXPECT_EQ(payload.at("attempt").integer(), 0);
    EXPECT_EQ(payload.at("entered").integer(), 1) << "the child's role comes first";
    EXPECT_EQ(genetic::required_attribute(result, "attempt").integer(), 0);
    EXPECT_GE(genetic::required_attribute(result, "elapsed_simulation_seconds").real(), 0.0);
  }
  EXPECT_THAT(indices, testing::UnorderedElementsAre(0, 1, 2, 3, 4));
}

TEST_F(EmbeddedPoolTest, EachAttemptIsToldInItsOrder) {
  static_cast<void>(evaluate(2, done, noting()));
  EXPECT_THAT(notes_, ElementsAre("dispatch 0.0", "lifecycle started 0.0", "progress started 0.0",
                                  "lifecycle ok 0.0", "progress ok 0.0", "completed 0",
                                  "dispatch 1.0", "lifecycle started 1.0", "progress started 1.0",
                                  "lifecycle ok 1.0", "progress ok 1.0", "completed 1"));
  EXPECT_GT(polls_, 0);
}

TEST_F(EmbeddedPoolTest, CandidatesThatShareAWorkerAreToldOfOneByOne) {
  const Value results = evaluate(
      chunk_pool_, 3,
      [](std::int64_t index, std::int64_t attempt) -> Value {
        if (index == 1 && attempt == 0) raise(SIGKILL);
        return Mapping{{"attempt", attempt}, {"pid", std::int64_t{getpid()}}};
      },
      noting());
  EXPECT_THAT(
      notes_,
      ElementsAre("dispatch 0.0", "dispatch 1.0", "dispatch 2.0", "lifecycle started 0.0",
                  "progress started 0.0", "lifecycle ok 0.0", "progress ok 0.0", "completed 0",
                  "lifecycle started 1.0", "progress started 1.0",
                  "lifecycle error 1.0 retrying process_child_exception",
                  "progress error 1.0 retrying process_child_exception", "lifecycle started 2.0",
                  "progress started 2.0", "lifecycle ok 2.0", "progress ok 2.0", "dispatch 1.1",
                  "lifecycle started 1.1", "progress started 1.1", "lifecycle ok 1.1",
                  "progress ok 1.1", "completed 1", "completed 2"));
  for (std::size_t i = 0; i < 3; ++i) {
    const Value result = results.list().at(i);
    const Mapping payload = genetic::required_attribute(result, "payload").mapping();
    EXPECT_TRUE(payload.at("pid") == genetic::required_attribute(result, "worker_pid"));
    EXPECT_EQ(payload.at("attempt").integer(), i == 1 ? 1 : 0);
  }
}

TEST_F(EmbeddedPoolTest, MemoryThatACandidateLeavesBehindIsNotTheNextOnes) {
  if (kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer's shadow has no limit";
  genetic::ProcessEvaluationConfig config = noting();
  constexpr std::int64_t kOwnBytes = std::int64_t{64} << 20;
  config.worker_memory_limit_bytes =
      static_cast<std::int64_t>(mapped_bytes().value_or(0)) + kOwnBytes;
  const Value results = evaluate(
      chunk_pool_, 4,
      [](std::int64_t index, std::int64_t attempt) -> Value {
        static std::vector<std::unique_ptr<char[]>> left;
        left.push_back(std::make_unique<char[]>(kOwnBytes / 3));
        return Mapping{{"index", index}, {"attempt", attempt}};
      },
      config);
  ASSERT_EQ(results.list().size(), 4U);
  for (std::size_t i = 0; i < 4; ++i)
    EXPECT_EQ(genetic::required_attribute(results.list().at(i), "attempt").integer(), 0);
}

TEST_F(EmbeddedPoolTest, ALostWorkerIsTriedOnceMoreAsAnAttemptOfItsOwn) {
  const Value results = evaluate(
      1,
      [](std::int64_t index, std::int64_t attempt) -> Value {
        if (attempt == 0) raise(SIGKILL);
        return Mapping{{"index", index}, {"attempt", attempt}};
      },
      noting());
  EXPECT_EQ(genetic::required_attribute(results.list().at(0), "attempt").integer(), 1);
  EXPECT_THAT(notes_, ElementsAre("dispatch 0.0", "lifecycle started 0.0", "progress started 0.0",
                                  "lifecycle error 0.0 retrying process_child_exception",
                                  "progress error 0.0 retrying process_child_exception",
                                  "dispatch 0.1", "lifecycle started 0.1", "progress started 0.1",
                                  "lifecycle ok 0.1", "progress ok 0.1", "completed 0"));
  EXPECT_THAT(details_.at(0), StartsWith("worker killed by signal 9 (SIGKILL); the kernel does"));
}

TEST_F(EmbeddedPoolTest, WhoIsLostForGoodIsToldWhenTheOthersAreDone) {
  const Value error = failure_of(
      4,
      [](std::int64_t index, std::int64_t /*attempt*/) -> Value {
        if (index == 1) raise(SIGKILL);
        if (index == 2) throw std::runtime_error("no correlation");
        return Mapping{{"index", index}};
      },
      noting());
  EXPECT_THAT(notes_, Contains("completed 0"));
  EXPECT_THAT(notes_, Contains("completed 3"));
  EXPECT_THAT(notes_, Contains("lifecycle error 1.1 process_child_exception"));
  // In the order of the batch, though an exception, which is not tried again, was given up first.
  EXPECT_EQ(text_of(error, "terminal_reason"), "worker_failed");
  EXPECT_EQ(text_of(error, "candidate_index"), "1");
  EXPECT_EQ(text_of(error, "failure_count"), "2");
  const Value errors = genetic::attribute(error, "terminal_errors").value();
  ASSERT_EQ(errors.tuple().size(), 2U);
  EXPECT_THAT(text_of(errors.tuple().at(0), "detail"),
              StartsWith("worker killed by signal 9 (SIGKILL); "));
  EXPECT_EQ(text_of(errors.tuple().at(1), "candidate_index"), "2");
  EXPECT_EQ(text_of(errors.tuple().at(1), "detail"), "std::runtime_error: no correlation");
}

TEST_F(EmbeddedPoolTest, OneFailureIsTheErrorItself) {
  const Value error = failure_of(
      1, [](std::int64_t, std::int64_t) -> Value { throw genetic::ValueError("x"); }, noting());
  EXPECT_EQ(text_of(error, "candidate_index"), "0");
  EXPECT_EQ(text_of(error, "detail"), "ValueError: x");
  EXPECT_FALSE(genetic::attribute(error, "terminal_errors").has_value());
  EXPECT_EQ(genetic::type_name(error), "ProcessEvaluationError");
}

TEST_F(EmbeddedPoolTest, ATimeOutHasItsOwnReasonAndIsNotTriedAgain) {
  genetic::ProcessEvaluationConfig config = noting();
  config.timeout_seconds = 0.1;
  const Value error = failure_of(
      2,
      [](std::int64_t index, std::int64_t) -> Value {
        if (index == 0) hang();
        return Mapping{{"index", index}};
      },
      config);
  EXPECT_EQ(text_of(error, "terminal_reason"), "worker_timeout");
  EXPECT_EQ(text_of(error, "candidate_index"), "0");
  EXPECT_THAT(notes_, Contains("lifecycle error 0.0 worker_timeout"));
  EXPECT_THAT(notes_, Contains("completed 1"));
  EXPECT_EQ(std::count(notes_.begin(), notes_.end(), "dispatch 0.1"), 0);
}

TEST_F(EmbeddedPoolTest, WithoutDrainingNoCandidateIsBegunAfterATimeOut) {
  genetic::ProcessEvaluationConfig config = noting();
  config.timeout_seconds = 0.1;
  config.drain_terminal_timeouts = false;
  const Value error = failure_of(
      3, [](std::int64_t, std::int64_t) -> Value { hang(); }, config);
  EXPECT_EQ(text_of(error, "candidate_index"), "0");
  EXPECT_EQ(std::count(notes_.begin(), notes_.end(), "dispatch 1.0"), 0);
}

TEST_F(EmbeddedPoolTest, WhereNoWorkerCanBeStartedTheSearchEndsAndTheLimitIsNamed) {
  FailingCalls broken(FailingCalls::Call::Fork, EAGAIN, 1, 1'000'000);
  EmbeddedPool pool(broken, queues_, 60.0, [] {});
  List candidates;
  for (std::int64_t index = 0; index < 3; ++index)
    candidates.append(pool.candidate_evaluation(index, Mapping{{"node", index}}));
  const genetic::ProcessEvaluationConfig config = noting();
  try {
    static_cast<void>(pool.configure([&config] { return config; })
                          ->evaluate_candidate_batch(candidates, Callable()));
    FAIL() << "no error";
  } catch (const PoolError& error) {
    EXPECT_THAT(error.what(), HasSubstr("no worker can be started for this search: "));
    EXPECT_THAT(error.what(), HasSubstr("the limit of processes is reached (`ulimit -u`"));
    EXPECT_FALSE(pool.as_error(error).has_value()) << "it is not the failure of a candidate";
  }
  EXPECT_THAT(notes_, Not(Contains(HasSubstr("completed"))));
}

TEST_F(EmbeddedPoolTest, AWorkerThatCannotBeStartedForAMomentIsWaitedFor) {
  FailingCalls once(FailingCalls::Call::Fork, EAGAIN, 1, 1);
  EmbeddedPool pool(once, queues_, 60.0, [] {});
  const List candidates{Value(pool.candidate_evaluation(0, Mapping{{"node", 0}}))};
  const genetic::ProcessEvaluationConfig config = noting();
  const Callable simulate = genetic::make_callable([](std::span<const Value>, const Mapping&) {
    return Value(Mapping{{"index", 0}});
  });
  const Value results =
      pool.configure([&config] { return config; })->evaluate_candidate_batch(candidates, simulate);
  EXPECT_EQ(results.list().size(), 1U);
}

TEST_F(EmbeddedPoolTest, MemoryThatRunsOutIsNeitherACrashNorAFaultOfTheCandidate) {
  genetic::ProcessEvaluationConfig config = noting();
  Value error = failure_of(
      1, [](std::int64_t, std::int64_t) -> Value { throw OutOfMemory(); }, config);
  EXPECT_EQ(text_of(error, "terminal_reason"), "worker_failed");
  EXPECT_EQ(
      text_of(error, "detail"),
      "worker ran out of memory; use fewer workers at once with --jobs, or search fewer prices");
  config.worker_memory_limit_bytes = std::int64_t{1} << 46;
  error = failure_of(
      1, [](std::int64_t, std::int64_t) -> Value { throw std::bad_alloc(); }, config);
  EXPECT_EQ(text_of(error, "detail"),
            "worker ran out of memory; its limit is 70368744177664 bytes: raise it with "
            "--worker-memory");
  EXPECT_EQ(std::count(notes_.begin(), notes_.end(), "dispatch 0.1"), 0) << "nor tried again";
}

TEST_F(EmbeddedPoolTest, ALimitThatNoWorkerCanKeepEndsTheSearch) {
  genetic::ProcessEvaluationConfig config = noting();
  config.worker_memory_limit_bytes = 4096;
  const Value error = failure_of(2, done, config);
  EXPECT_EQ(text_of(error, "terminal_reason"), "memory_budget_exceeded");
  EXPECT_TRUE(genetic::attribute(error, "candidate_index")->is_absent());
  EXPECT_THAT(text_of(error, "detail"), HasSubstr("raise the limit"));
  EXPECT_THAT(notes_, IsEmpty());
}

TEST_F(EmbeddedPoolTest, WorkersHaveThePriorityThatIsAskedFor) {
  genetic::ProcessEvaluationConfig config = noting();
  config.process_priority = 3;
  const Value results = evaluate(
      1,
      [](std::int64_t, std::int64_t) -> Value {
        return Mapping{{"nice", getpriority(PRIO_PROCESS, 0)}};
      },
      config);
  EXPECT_EQ(genetic::required_attribute(results.list().at(0), "payload").mapping().at("nice"), 3);
}

TEST_F(EmbeddedPoolTest, APriorityThatCannotBeSetEndsTheSearch) {
  genetic::ProcessEvaluationConfig config = noting();
  config.process_priority = "high";
  Value error = failure_of(1, done, config);
  EXPECT_EQ(text_of(error, "terminal_reason"), "process_priority_failed");
  EXPECT_THAT(text_of(error, "detail"), HasSubstr("'high', is no integer"));
  if (geteuid() == 0) GTEST_SKIP() << "root may set any priority";
  config.process_priority = -15;
  error = failure_of(1, done, config);
  EXPECT_EQ(text_of(error, "terminal_reason"), "process_priority_failed");
  EXPECT_EQ(text_of(error, "candidate_index"), "0");
}

TEST_F(EmbeddedPoolTest, AStoppedSearchLeavesUnfinishedCandidatesWithoutResults) {
  genetic::ProcessEvaluationConfig config = noting();
  int asked = 0;
  config.stop_requested = genetic::make_callable(
      [&asked](std::span<const Value>, const Mapping&) { return Value(++asked > 3); });
  const Value results = evaluate(
      4, [](std::int64_t, std::int64_t) -> Value { hang(); }, config);
  EXPECT_TRUE(results.list().empty());
}

TEST_F(EmbeddedPoolTest, ResultsAreHandedOnInTheOrderOfTheBatch) {
  genetic::ProcessEvaluationConfig config = noting();
  config.worker_processes = 2;
  // The first candidate ends when the parent has the results of the others.
  ForkQueues queues(system_);
  const auto others_are_done = queues.fork_context()->simple_queue();
  config.parent_poll_callback = callback([&, is_told = false](const Value&) mutable {
    if (is_told || std::find(notes_.begin(), notes_.end(), "lifecycle ok 3.0") == notes_.end()) {
      return;
    }
    is_told = true;
    others_are_done->put(Tuple{0});
  });
  const Work first_is_last = [&](std::int64_t index, std::int64_t attempt) -> Value {
    if (index == 0) static_cast<void>(others_are_done->get());
    return done(index, attempt);
  };
  const Value results = evaluate(4, first_is_last, config);
  std::vector<std::string> handed_on;
  std::copy_if(notes_.begin(), notes_.end(), std::back_inserter(handed_on),
               [](const std::string& note) { return note.starts_with("completed"); });
  EXPECT_THAT(handed_on, ElementsAre("completed 0", "completed 1", "completed 2", "completed 3"));
  ASSERT_EQ(results.list().size(), 4U);
  EXPECT_EQ(genetic::required_attribute(results.list().at(3), "candidate_index").integer(), 3);
}

TEST_F(EmbeddedPoolTest, AStoppedSearchKeepsTheResultsThatWaitedForASlowCandidate) {
  genetic::ProcessEvaluationConfig config = noting();
  config.worker_processes = 2;
  config.stop_requested = genetic::make_callable([this](std::span<const Value>, const Mapping&) {
    return Value(std::find(notes_.begin(), notes_.end(), "lifecycle ok 1.0") != notes_.end());
  });
  const Value results = evaluate(
      2,
      [](std::int64_t index, std::int64_t attempt) -> Value {
        if (index == 0) hang();
        return done(index, attempt);
      },
      config);
  EXPECT_EQ(results.list().size(), 1U);
  EXPECT_THAT(notes_, Contains("completed 1"));
}

TEST_F(EmbeddedPoolTest, WhatACallbackThrowsLeavesAsItIsAndWithoutChildren) {
  const Work forever = [](std::int64_t, std::int64_t) -> Value { hang(); };
  genetic::ProcessEvaluationConfig config = noting();
  config.parent_poll_callback = callback([this](const Value&) {
    if (++polls_ > 2) throw InterruptedAtOnce();
  });
  EXPECT_THROW(static_cast<void>(evaluate(4, forever, config)), InterruptedAtOnce);
  config = noting();
  config.lifecycle_callback = callback([](const Value&) { throw genetic::KeyError("gone"); });
  EXPECT_THROW(static_cast<void>(evaluate(4, forever, config)), genetic::KeyError);
}

TEST_F(EmbeddedPoolTest, ACallbackCannotStartAnotherBatch) {
  genetic::ProcessEvaluationConfig config = noting();
  config.completed_result_callback =
      callback([this](const Value&) { static_cast<void>(evaluate(1, done, noting())); });
  EXPECT_THROW(static_cast<void>(evaluate(1, done, config)), genetic::RuntimeError);
  // After the failure the pool can be used again.
  EXPECT_EQ(evaluate(1, done, noting()).list().size(), 1U);
}

TEST_F(EmbeddedPoolTest, ResultsOfAnySizeComeThrough) {
  const std::size_t size = std::size_t{64} * 1024 * 1024;
  genetic::ProcessEvaluationConfig config = noting();
  config.n_jobs = 2;
  const Value results = evaluate(
      2,
      [](std::int64_t index, std::int64_t) -> Value {
        return Mapping{{"text", std::string(size, static_cast<char>('a' + index))}};
      },
      config);
  ASSERT_EQ(results.list().size(), 2U);
  for (std::size_t i = 0; i < 2; ++i) {
    const Value result = results.list().at(i);
    const std::int64_t index = genetic::required_attribute(result, "candidate_index").integer();
    const Mapping payload = genetic::required_attribute(result, "payload").mapping();
    EXPECT_TRUE(payload.at("text").text() == std::string(size, static_cast<char>('a' + index)));
  }
}

TEST_F(EmbeddedPoolTest, AChildThatAsksIsAnsweredByThePollCallback) {
  const auto context = queues_.fork_context();
  const auto boundary = context->simple_queue();
  const auto answer = context->simple_queue();
  genetic::ProcessEvaluationConfig config = noting();
  config.parent_poll_callback = callback([&](const Value&) {
    while (boundary->reader()->poll()) {
      static_cast<void>(boundary->get());
      answer->put(genetic::Tuple{"go on"});
    }
  });
  const Value results = evaluate(
      1,
      [&](std::int64_t, std::int64_t) -> Value {
        boundary->put(genetic::Tuple{"may I"});
        return Mapping{{"answer", answer->get().tuple().at(0)}};
      },
      config);
  EXPECT_EQ(
      genetic::str(
          genetic::required_attribute(results.list().at(0), "payload").mapping().at("answer")),
      "go on");
}

TEST_F(EmbeddedPoolTest, ANumberOfProcessesThatIsAskedForIsNotResolved) {
  genetic::ProcessEvaluationConfig config = noting();
  config.worker_processes = 3;
  // Three wait for each other: with fewer workers none would come to its end.
  const auto context = queues_.fork_context();
  const auto boundary = context->simple_queue();
  std::vector<std::shared_ptr<genetic::MessageQueue>> answers;
  for (int i = 0; i < 3; ++i)
    answers.push_back(context->simple_queue());
  int waiting = 0;
  config.parent_poll_callback = callback([&](const Value&) {
    while (boundary->reader()->poll()) {
      static_cast<void>(boundary->get());
      if (++waiting < 3) continue;
      for (const auto& answer : answers)
        answer->put(genetic::Tuple{true});
    }
  });
  config.timeout_seconds = 20.0;
  const Value results = evaluate(
      3,
      [&](std::int64_t index, std::int64_t) -> Value {
        boundary->put(genetic::Tuple{index});
        static_cast<void>(answers[static_cast<std::size_t>(index)]->get());
        return Mapping{{"index", index}};
      },
      config);
  EXPECT_EQ(results.list().size(), 3U);
}

TEST_F(EmbeddedPoolTest, OnlyItsOwnErrorsAreErrorsOfProcessEvaluation) {
  const ProcessEvaluationError error(WorkerFailure{"worker_failed", "gone", 4});
  const auto object = pool_.as_error(error);
  ASSERT_TRUE(object.has_value());
  EXPECT_EQ(text_of(*object, "terminal_reason"), "worker_failed");
  EXPECT_EQ(text_of(*object, "candidate_index"), "4");
  EXPECT_FALSE(genetic::attribute(*object, "failure_count").has_value());
  EXPECT_FALSE(pool_.as_error(std::runtime_error("other")).has_value());
}

// Keeps the reasons that are logged.
class ReasonLogger : public genetic::Logger {
 public:
  void warning(std::string_view /*format*/, std::initializer_list<Value> values) override {
    reasons.push_back(genetic::str(*(values.begin() + 3)));
  }
  std::vector<std::string> reasons;
};

TEST_F(EmbeddedPoolTest, AReductionOfWorkersIsLoggedOnceForEachContext) {
  const std::int64_t too_many = read_machine_limits().processors + 5;
  const auto reduced =
      pool_.resolve_process_worker_count_details([&] { return Value(too_many); }, 1000);
  EXPECT_LT(reduced->resolved().integer(), too_many);
  const auto kept = pool_.resolve_process_worker_count_details([] { return Value(1); }, 1000);
  EXPECT_EQ(kept->resolved().integer(), 1);
  genetic::test::ScriptedHost first;
  genetic::test::ScriptedHost second;
  ReasonLogger logger;
  pool_.log_worker_count_reduction(logger, *kept, "scope", first.context, "detail");
  EXPECT_THAT(logger.reasons, IsEmpty());
  for (int i = 0; i < 2; ++i)
    pool_.log_worker_count_reduction(logger, *reduced, "scope", first.context, "detail");
  EXPECT_EQ(logger.reasons.size(), 1U);
  pool_.log_worker_count_reduction(logger, *reduced, "scope", second.context, "detail");
  EXPECT_EQ(logger.reasons.size(), 2U);
}

}  // namespace
}  // namespace varnholt::embedded::test
