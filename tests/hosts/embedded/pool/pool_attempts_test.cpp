// What the pool tells of its attempts while it works: each is announced once before its fork, none
// is begun while the run is held, a priority that cannot be set ends before the work, and what a
// worker sends beside its result wakes the parent.
// Method: real forks; callbacks that write down what they are told.
#include <csignal>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "hosts/embedded/pool/fork_pool.hpp"
#include "hosts/embedded/pool/mailbox.hpp"
#include "hosts/embedded/pool/message_pipe.hpp"
#include "tests/hosts/embedded/pool/pool_notes.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"

namespace varnholt::embedded::test {
namespace {

class PoolAttempts : public NotedPoolTest {
 protected:
  // Lost at its first attempt when its index is 1.
  static std::string once_lost(const WorkItem& item) {
    if (item.index == 1 && item.attempt == 0) ::raise(SIGKILL);
    return "x";
  }

  RealSystemCalls system_;
};

TEST_F(PoolAttempts, EachIsAnnouncedBeforeItsFork) {
  const auto outcomes =
      ForkPool(system_, {.jobs = 1, .max_retries = 1}).run(3, once_lost, noting());
  EXPECT_EQ(notes_,
            (std::vector<std::string>{"dispatch 0.0", "start 0.0", "done 0.0", "dispatch 1.0",
                                      "start 1.0", "lost 1.0", "dispatch 2.0", "start 2.0",
                                      "done 2.0", "dispatch 1.1", "start 1.1", "done 1.1"}));
  EXPECT_EQ(outcomes.at(1).attempt, 1);
}

TEST_F(PoolAttempts, OneWhoseWorkerFailsToStartIsAnnouncedOnce) {
  FailingCalls system(FailingCalls::Call::Fork, EAGAIN, 1, 3);
  static_cast<void>(ForkPool(system, {.jobs = 1}).run(1, once_lost, noting()));
  EXPECT_EQ(notes_, (std::vector<std::string>{"dispatch 0.0", "start 0.0", "done 0.0"}));
}

TEST_F(PoolAttempts, NothingNewIsBegunOnceTheRunIsHeld) {
  PoolCallbacks callbacks = noting();
  callbacks.hold_requested = [this] { return notes_.size() > 2; };
  const auto outcomes = ForkPool(system_, {.jobs = 2, .max_retries = 1})
                            .run(
                                5,
                                [](const WorkItem& item) {
                                  if (item.attempt == 0) ::raise(SIGKILL);
                                  return std::string("x");
                                },
                                callbacks);
  // Two were begun and lost; their retries still run.
  EXPECT_EQ(outcomes.at(0).status, PoolStatus::Completed);
  EXPECT_EQ(outcomes.at(1).status, PoolStatus::Completed);
  for (std::size_t index = 2; index < 5; ++index)
    EXPECT_EQ(outcomes.at(index).status, PoolStatus::Cancelled) << index;
  EXPECT_EQ(std::count(notes_.begin(), notes_.end(), "dispatch 2.0"), 0);
}

TEST_F(PoolAttempts, AWorkerHasThePriorityThatIsAskedFor) {
  const int own = ::getpriority(PRIO_PROCESS, 0);
  // Whoever runs the tests may have made them nice already; 17 is nicer than that.
  const auto outcomes = ForkPool(system_, {.jobs = 1, .nice = 17}).run(1, [](const WorkItem&) {
    return std::to_string(::getpriority(PRIO_PROCESS, 0));
  });
  EXPECT_EQ(outcomes.at(0).payload, "17");
  EXPECT_EQ(::getpriority(PRIO_PROCESS, 0), own) << "the parent keeps its own";
}

class NoPriority : public RealSystemCalls {
 public:
  int setpriority(int /*nice*/) override {
    errno = EACCES;
    return -1;
  }
};

TEST_F(PoolAttempts, APriorityThatCannotBeSetEndsBeforeTheWorkAndIsNotTriedAgain) {
  NoPriority system;
  const auto outcomes =
      ForkPool(system, {.jobs = 1, .max_retries = 3, .nice = -5}).run(1, once_lost, noting());
  EXPECT_EQ(outcomes.at(0).status, PoolStatus::PriorityFailed);
  EXPECT_EQ(outcomes.at(0).attempt, 0);
  EXPECT_EQ(outcomes.at(0).detail,
            "worker could not be given its priority: setpriority failed with errno 13 "
            "(Permission denied)");
}

TEST_F(PoolAttempts, NoTimeAtAllEndsEveryWorker) {
  const auto outcomes = ForkPool(system_, {.jobs = 2, .timeout_seconds = 0.0})
                            .run(3, [](const WorkItem&) -> std::string {
                              while (true)
                                ::pause();
                            });
  for (const PoolOutcome& outcome : outcomes)
    EXPECT_EQ(outcome.status, PoolStatus::WorkerTimedOut);
}

// A parent that nothing wakes sleeps for ten seconds here, and is counted.
class LongTurns : public RealSystemCalls {
 public:
  int poll(pollfd* entries, nfds_t count, int /*timeout_milliseconds*/) override {
    const int ready = RealSystemCalls::poll(entries, count, 10000);
    if (ready == 0) ++slept_through;
    return ready;
  }
  int slept_through = 0;
};

TEST_F(PoolAttempts, WhatAWorkerSendsBesideItsResultWakesTheParent) {
  MessagePipe pipe(system_);
  MailboxArena arena(system_);
  Mailbox box = arena.make();
  PoolCallbacks callbacks;
  callbacks.watched_descriptors = {pipe.read_descriptor()};
  int answered = 0;
  callbacks.poll_callback = [&] {
    while (pipe.poll()) {
      static_cast<void>(pipe.take());
      EXPECT_TRUE(box.put("go on"));
      ++answered;
    }
  };
  LongTurns system;
  const auto outcomes = ForkPool(system, {.jobs = 1})
                            .run(
                                1,
                                [&](const WorkItem&) {
                                  for (int i = 0; i < 1000; ++i) {
                                    pipe.send(0, "may I");
                                    static_cast<void>(box.take());
                                  }
                                  return std::string("done");
                                },
                                callbacks);
  EXPECT_EQ(outcomes.at(0).payload, "done");
  EXPECT_EQ(answered, 1000);
  EXPECT_EQ(system.slept_through, 0);
}

TEST_F(PoolAttempts, AChildDoesNotKeepTheParentsEndOfAPipe) {
  MessagePipe pipe(system_);
  PoolCallbacks callbacks;
  callbacks.watched_descriptors = {pipe.read_descriptor()};
  const auto outcomes =
      ForkPool(system_, {.jobs = 1})
          .run(
              1,
              [&](const WorkItem&) {
                char byte = 0;
                const bool closed = ::read(pipe.read_descriptor(), &byte, 1) < 0 && errno == EBADF;
                return std::string(closed ? "closed" : "open");
              },
              callbacks);
  EXPECT_EQ(outcomes.at(0).payload, "closed");
}

}  // namespace
}  // namespace varnholt::embedded::test
