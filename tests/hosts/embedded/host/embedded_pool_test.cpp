// The pool as the search calls it: what its callbacks are told of each attempt and in which order,
// and every way that a worker can end.
// Method: real children; callbacks that write down what they are told; workers that are killed,
// hang, or take all memory.
#include "hosts/embedded/host/embedded_pool.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <memory>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/pool/pool_types.hpp"
#include "hosts/embedded/store/store_error.hpp"
#include "hosts/embedded/system/interrupt.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
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

// In a child: what one candidate's work is.
using Work = std::function<Value(std::int64_t index, std::int64_t attempt)>;

class EmbeddedPoolTest : public ::testing::Test {
 protected:
  ~EmbeddedPoolTest() override {
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    EXPECT_EQ(errno, ECHILD);
  }

  // A configuration whose callbacks note what they are told.
  genetic::ProcessEvaluationConfig noting() {
    genetic::ProcessEvaluationConfig config;
    config.n_jobs = 1;
    config.max_retries = 1;
    config.timeout_seconds = 30.0;
    config.worker_memory_limit_bytes = pool_.default_worker_memory_limit_bytes();
    config.pre_dispatch_callback = callback([this](const Value& event) {
      const Mapping told = event.mapping();
      // The child reads from the work item which attempt it is.
      genetic::required_attribute(told.at(keys::kCandidate), "metadata")
          .mapping()
          .set(keys::kProcessAttempt, told.at(keys::kAttempt));
      note("dispatch", told);
    });
    config.lifecycle_callback =
        callback([this](const Value& event) { note("lifecycle", event.mapping()); });
    config.progress_callback =
        callback([this](const Value& event) { note("progress", event.mapping()); });
    config.completed_result_callback = callback([this](const Value& result) {
      notes_.push_back("completed " +
                       genetic::str(genetic::required_attribute(result, "candidate_index")));
    });
    config.parent_poll_callback = callback([this](const Value&) { ++polls_; });
    return config;
  }
  static Callable callback(std::function<void(const Value&)> function) {
    return genetic::make_callable([function](std::span<const Value> positional, const Mapping&) {
      function(positional.empty() ? Value() : positional[0]);
      return Value();
    });
  }
  void note(const std::string& who, const Mapping& event) {
    std::string text = who;
    if (who != "dispatch") text += " " + genetic::str(event.at(keys::kEvent));
    text += " " + genetic::str(event.at(keys::kCandidateIndex)) + "." +
            genetic::str(event.at(keys::kAttempt));
    if (event.contains(keys::kRetrying) && genetic::truth(event.at(keys::kRetrying))) {
      text += " retrying";
    }
    if (event.contains(keys::kFailureReason)) {
      text += " " + genetic::str(event.at(keys::kFailureReason));
      details_.push_back(genetic::str(event.at(keys::kError)));
    }
    notes_.push_back(text);
  }

  // The process results of so many candidates.
  Value evaluate(std::int64_t count, const Work& work,
                 const genetic::ProcessEvaluationConfig& config) {
    return evaluate(pool_, count, work, config);
  }
  static Value evaluate(EmbeddedPool& pool, std::int64_t count, const Work& work,
                        const genetic::ProcessEvaluationConfig& config) {
    List candidates;
    for (std::int64_t index = 0; index < count; ++index)
      candidates.append(pool.candidate_evaluation(index, Mapping{{"node", index}}));
    const Callable simulate =
        genetic::make_callable([&work](std::span<const Value> positional, const Mapping&) {
          const Value metadata = genetic::required_attribute(positional[0], "metadata");
          return work(genetic::required_attribute(positional[0], "candidate_index").integer(),
                      metadata.mapping().get(keys::kProcessAttempt, -1).integer());
        });
    return pool.configure([&config] { return config; })
        ->evaluate_candidate_batch(candidates, simulate);
  }
  // The error with which the evaluation ends, as the search sees it.
  Value failure_of(std::int64_t count, const Work& work,
                   const genetic::ProcessEvaluationConfig& config) {
    try {
      static_cast<void>(evaluate(count, work, config));
    } catch (const std::exception& error) {
      return pool_.as_error(error).value_or(Value());
    }
    return {};
  }
  static std::string text_of(const Value& error, const char* name) {
    return genetic::str(genetic::attribute(error, name).value_or(Value()));
  }
  [[noreturn]] static Value hang() {
    while (true)
      pause();
  }
  static Value done(std::int64_t index, std::int64_t /*attempt*/) {
    return Mapping{{"index", index}};
  }

  RealSystemCalls system_;
  ForkQueues queues_{system_};
  int entered_ = 0;
  EmbeddedPool pool_{system_, queues_, 60.0, [this] { ++entered_; }};
  EmbeddedPool chunk_pool_{system_, queues_, 60.0, [this] { ++entered_; }, Isolation::Chunk};
  std::vector<std::string> notes_;
  std::vector<std::string> details_;
  int polls_ = 0;
};

// The state of a record that is gathered, in memory that the children see.
class NotedWrites : public GatheredWrites {
 public:
  explicit NotedWrites(std::vector<std::string>& notes) : notes_(notes) {}
  ~NotedWrites() override { ::munmap(shared_, sizeof(*shared_)); }

  void write() { ++shared_->written; }
  [[nodiscard]] bool is_in_file() const { return shared_->in_file == shared_->written; }

  void begin_gathering() override { notes_.emplace_back("begin gathering"); }
  void put_in_file() override {
    if (refuses) throw StoreDiskError("runs.db", "the disk is full", "free some space");
    shared_->in_file = shared_->written;
  }
  void end_gathering() override {
    notes_.emplace_back("end gathering");
    put_in_file();
  }

  bool refuses = false;

 private:
  struct Shared {
    int written = 0;
    int in_file = 0;
  };
  std::vector<std::string>& notes_;
  Shared* shared_ = new (::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Shared;
};

// Counts the moments at which others might run while a record is not in the file.
class WatchfulCalls : public RealSystemCalls {
 public:
  explicit WatchfulCalls(const NotedWrites& writes) : writes_(writes) {}

  pid_t fork() override {
    look();
    return RealSystemCalls::fork();
  }
  int poll(pollfd* entries, nfds_t count, int timeout_milliseconds) override {
    look();
    return RealSystemCalls::poll(entries, count, timeout_milliseconds);
  }

  int looks = 0;
  int too_early = 0;

 private:
  void look() {
    ++looks;
    if (!writes_.is_in_file()) ++too_early;
  }
  const NotedWrites& writes_;
};

class GatheringPoolTest : public EmbeddedPoolTest {
 protected:
  GatheringPoolTest() { gathering_.gather_writes(writes_); }

  // A configuration each of whose callbacks writes.
  genetic::ProcessEvaluationConfig writing() {
    genetic::ProcessEvaluationConfig config = noting();
    for (Callable* const told : {&config.pre_dispatch_callback, &config.lifecycle_callback,
                                 &config.progress_callback, &config.completed_result_callback}) {
      *told = callback([this, noted = *told](const Value& event) {
        writes_.write();
        static_cast<void>(noted({event}));
      });
    }
    return config;
  }

  NotedWrites writes_{notes_};
  WatchfulCalls watchful_{writes_};
  ForkQueues own_queues_{watchful_};
  EmbeddedPool gathering_{watchful_, own_queues_, 60.0, [] {}, Isolation::Chunk};
};

TEST_F(GatheringPoolTest, NobodyRunsBeforeTheRecordIsInTheFile) {
  genetic::ProcessEvaluationConfig config = writing();
  config.n_jobs = 2;
  const Work second_is_lost = [](std::int64_t index, std::int64_t attempt) {
    if (index == 1 && attempt == 0) ::raise(SIGKILL);
    return done(index, attempt);
  };
  const Value results = evaluate(gathering_, 40, second_is_lost, config);
  EXPECT_EQ(results.list().size(), 40U);
  EXPECT_GT(watchful_.looks, 4);
  EXPECT_EQ(watchful_.too_early, 0);
  EXPECT_TRUE(writes_.is_in_file());
  EXPECT_EQ(notes_.front(), "begin gathering");
  EXPECT_EQ(notes_.back(), "end gathering");
}

TEST_F(GatheringPoolTest, AChildHasItsAnswerWhenTheRecordIsInTheFile) {
  const auto context = own_queues_.fork_context();
  const auto asked = context->simple_queue();
  const auto answer = context->simple_queue();
  genetic::ProcessEvaluationConfig config = writing();
  config.parent_poll_callback = callback([&](const Value&) {
    while (asked->reader()->poll()) {
      writes_.write();
      answer->put(asked->get());
    }
  });
  const Work asking = [&](std::int64_t index, std::int64_t) -> Value {
    asked->put(Tuple{index});
    static_cast<void>(answer->get());
    return Mapping{{"index", index}, {"in_file", writes_.is_in_file()}};
  };
  const Value results = evaluate(gathering_, 20, asking, config);
  ASSERT_EQ(results.list().size(), 20U);
  for (std::size_t i = 0; i < 20; ++i) {
    const Value told = genetic::required_attribute(results.list().at(i), "payload");
    EXPECT_TRUE(told.mapping().at("in_file").boolean()) << i;
  }
}

TEST_F(GatheringPoolTest, WhatCannotBePutInTheFileEndsTheBatch) {
  genetic::ProcessEvaluationConfig config = writing();
  config.parent_poll_callback = callback([this](const Value&) { writes_.refuses = true; });
  EXPECT_THROW(static_cast<void>(evaluate(
                   gathering_, 3, [](std::int64_t, std::int64_t) -> Value { hang(); }, config)),
               StoreDiskError);
  EXPECT_EQ(notes_.back(), "end gathering");
}

TEST_F(GatheringPoolTest, TheRecordOfALostCandidateIsInTheFileBeforeItIsTold) {
  genetic::ProcessEvaluationConfig config = writing();
  config.max_retries = 0;
  const Work lost = [](std::int64_t, std::int64_t) -> Value {
    ::raise(SIGKILL);
    return {};
  };
  EXPECT_THROW(static_cast<void>(evaluate(gathering_, 1, lost, config)), ProcessEvaluationError);
  EXPECT_TRUE(writes_.is_in_file());
  config.lifecycle_callback = callback([this](const Value& event) {
    writes_.refuses = event.mapping().contains(keys::kFailureReason);
  });
  EXPECT_THROW(static_cast<void>(evaluate(gathering_, 1, lost, config)), StoreDiskError)
      << "a search that goes on would take the record for written";
}

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
