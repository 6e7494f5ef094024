// The pool's ordinary work: results in item order, at most `jobs` children, each prepared as it
// must be, refusals before the first fork. Method: real forks; the work reports what it sees.
#include "hosts/embedded/pool/fork_pool.hpp"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hosts/embedded/pool/descriptor.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class ForkPoolTest : public ProcessTest {
 protected:
  [[nodiscard]] std::vector<PoolOutcome> run(std::size_t count, const Work& work,
                                             const PoolConfig& config = {.jobs = 2},
                                             const PoolCallbacks& callbacks = {}) {
    return ForkPool(system_, config).run(count, work, callbacks);
  }
  // What the work says in a child.
  [[nodiscard]] std::string ask_child(const Work& work) {
    const std::vector<PoolOutcome> outcomes = run(1, work);
    EXPECT_EQ(outcomes.at(0).status, PoolStatus::Completed) << outcomes.at(0).detail;
    return outcomes.at(0).payload;
  }
  // The text of the PoolError that a configuration gives.
  [[nodiscard]] std::string refusal(const PoolConfig& config) {
    try {
      static_cast<void>(ForkPool(system_, config));
    } catch (const PoolError& error) {
      return error.what();
    }
    return "accepted";
  }
  RealSystemCalls system_;
};

std::string yes_or_no(bool value) {
  return value ? "yes" : "no";
}

TEST_F(ForkPoolTest, GivesTheResultsInItemOrder) {
  const std::vector<PoolOutcome> outcomes =
      run(20,
          [](const WorkItem& item) {
            ::usleep(static_cast<useconds_t>(1000 * ((20 - item.index) % 5)));
            return "result " + std::to_string(item.index);
          },
          {.jobs = 4});
  ASSERT_EQ(outcomes.size(), 20U);
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    EXPECT_EQ(outcomes[i].index, i);
    EXPECT_EQ(outcomes[i].attempt, 0);
    EXPECT_EQ(outcomes[i].status, PoolStatus::Completed);
    EXPECT_EQ(outcomes[i].payload, "result " + std::to_string(i));
    EXPECT_EQ(outcomes[i].detail, "");
    EXPECT_GT(outcomes[i].pid, 0);
    EXPECT_GE(outcomes[i].elapsed_seconds, 0);
  }
}

TEST_F(ForkPoolTest, HasNothingToDoWithoutItems) {
  EXPECT_TRUE(run(0, [](const WorkItem&) -> std::string { std::abort(); }).empty());
}

TEST_F(ForkPoolTest, WorksOnEachItemInAProcessOfItsOwn) {
  const std::vector<PoolOutcome> outcomes =
      run(3, [](const WorkItem&) { return std::to_string(::getpid()); });
  for (const PoolOutcome& outcome : outcomes) {
    EXPECT_EQ(outcome.payload, std::to_string(outcome.pid));
    EXPECT_NE(outcome.pid, ::getpid());
  }
}

TEST_F(ForkPoolTest, KeepsAtMostSoManyChildrenAsThereAreJobs) {
  int alive = 0;
  int most = 0;
  PoolCallbacks callbacks;
  callbacks.started_callback = [&](const WorkItem&, pid_t) { most = std::max(most, ++alive); };
  callbacks.completed_callback = [&](const PoolOutcome&) { --alive; };
  const auto outcomes = run(
      12, [](const WorkItem&) { return std::string(); }, {.jobs = 3}, callbacks);
  EXPECT_EQ(outcomes.size(), 12U);
  EXPECT_EQ(most, 3);
  EXPECT_EQ(alive, 0);
}

TEST_F(ForkPoolTest, TellsEachItemOnceAsItCompletes) {
  std::vector<std::size_t> completed;
  PoolCallbacks callbacks;
  int turns = 0;
  callbacks.poll_callback = [&] { ++turns; };
  callbacks.completed_callback = [&](const PoolOutcome& outcome) {
    completed.push_back(outcome.index);
  };
  // The first item waits for a while, the second does not.
  const auto outcomes = run(
      2,
      [](const WorkItem& item) {
        if (item.index == 0) ::usleep(300'000);
        return std::string();
      },
      {.jobs = 2}, callbacks);
  EXPECT_EQ(outcomes.size(), 2U);
  EXPECT_THAT(completed, ::testing::ElementsAre(1, 0));
  // 300 ms in turns of at most 5 ms; a slow machine makes fewer, never as few as one an event.
  EXPECT_GT(turns, 5);
}

TEST_F(ForkPoolTest, CarriesAnExceptionOfTheWorkAsAResultOfItsOwnKind) {
  const std::vector<PoolOutcome> outcomes =
      run(4,
          [](const WorkItem& item) -> std::string {
            if (item.index == 0) throw std::out_of_range("no such feature: tempo");
            if (item.index == 1) throw genetic::ValueError("a host's text");
            if (item.index == 2) throw 42;
            throw std::string("not an exception class");
          },
          {.jobs = 2, .max_retries = 3});
  for (const PoolOutcome& outcome : outcomes) {
    EXPECT_EQ(outcome.status, PoolStatus::WorkRaised);
    EXPECT_EQ(outcome.attempt, 0) << "what the work throws is not tried again";
    EXPECT_EQ(outcome.payload, "");
  }
  EXPECT_EQ(outcomes[0].error_type, "std::out_of_range");
  EXPECT_EQ(outcomes[0].detail, "no such feature: tempo");
  EXPECT_EQ(outcomes[1].error_type, "ValueError");
  EXPECT_EQ(outcomes[1].detail, "a host's text");
  EXPECT_EQ(outcomes[2].error_type, "int");
  EXPECT_THAT(outcomes[3].error_type, HasSubstr("basic_string"));
}

TEST_F(ForkPoolTest, CutsAnEndlessErrorText) {
  const std::vector<PoolOutcome> outcomes = run(1, [](const WorkItem&) -> std::string {
    throw std::runtime_error(std::string(1 << 20, 'x'));
  });
  EXPECT_EQ(outcomes[0].status, PoolStatus::WorkRaised);
  EXPECT_EQ(outcomes[0].detail, std::string(64 * 1024, 'x'));
}

TEST_F(ForkPoolTest, PutsEachChildIntoAGroupOfItsOwn) {
  EXPECT_EQ(ask_child([](const WorkItem&) { return yes_or_no(::getpgrp() == ::getpid()); }), "yes");
}

TEST_F(ForkPoolTest, GivesChildrenNothingToRead) {
  EXPECT_EQ(ask_child([](const WorkItem&) {
              char byte = 0;
              struct stat input {};
              ::fstat(STDIN_FILENO, &input);
              return std::to_string(::read(STDIN_FILENO, &byte, 1)) + " " +
                     yes_or_no(S_ISCHR(input.st_mode));
            }),
            "0 yes");
}

TEST_F(ForkPoolTest, WorksWithStandardInputClosed) {
  const int status = run_forked([] {
    ::close(STDIN_FILENO);
    RealSystemCalls system;
    const auto outcomes = ForkPool(system, {}).run(2, [](const WorkItem&) {
      char byte = 0;
      return std::to_string(::read(STDIN_FILENO, &byte, 1));
    });
    EXPECT_EQ(outcomes[0].payload, "0") << outcomes[0].detail;
    EXPECT_EQ(outcomes[1].payload, "0") << outcomes[1].detail;
  });
  EXPECT_EQ(status, 0);
}

void ignore_this_signal(int /*signal*/) {}

TEST_F(ForkPoolTest, ResetsSignalsInChildrenAndIgnoresInterrupts) {
  sigset_t blocked;
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, SIGUSR2);
  ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
  ::signal(SIGTERM, ignore_this_signal);
  ::signal(SIGHUP, SIG_IGN);
  ::signal(SIGINT, ignore_this_signal);
  const std::string seen = ask_child([](const WorkItem&) {
    std::string text;
    for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
      struct sigaction action {};
      ::sigaction(signal, nullptr, &action);
      text += action.sa_handler == SIG_DFL ? "default " : "";
      text += action.sa_handler == SIG_IGN ? "ignored " : "";
    }
    sigset_t mask;
    ::sigprocmask(SIG_SETMASK, nullptr, &mask);
    return text + (::sigisemptyset(&mask) != 0 ? "open" : "blocked");
  });
  EXPECT_EQ(seen, "default default ignored open");
  // The parent's own actions and mask are as before.
  EXPECT_EQ(::signal(SIGTERM, SIG_DFL), ignore_this_signal);
  EXPECT_EQ(::signal(SIGHUP, SIG_DFL), SIG_IGN);
  EXPECT_EQ(::signal(SIGINT, SIG_DFL), ignore_this_signal);
  sigset_t mask;
  ::sigprocmask(SIG_UNBLOCK, &blocked, &mask);
  EXPECT_EQ(::sigismember(&mask, SIGUSR2), 1);
  EXPECT_EQ(::sigismember(&mask, SIGUSR1), 0);
}

TEST_F(ForkPoolTest, ClosesThePipesOfOthersInAChild) {
  const std::size_t before = count_open_descriptors();
  // The third child is forked while the parent holds a pipe and a process descriptor for each of
  // the other two; what it has more than the parent had is its own write end.
  const auto outcomes = run(3,
                            [](const WorkItem& item) {
                              if (item.index < 2) ::usleep(100'000);
                              return std::to_string(count_open_descriptors());
                            },
                            {.jobs = 3});
  for (const PoolOutcome& outcome : outcomes) {
    EXPECT_EQ(outcome.payload, std::to_string(before + 1));
  }
}

TEST_F(ForkPoolTest, WritesNoBufferedOutputTwice) {
  const std::string path = ::testing::TempDir() + "fork_pool_output.txt";
  const int status = run_forked([&] {
    ASSERT_NE(std::freopen(path.c_str(), "w", stdout), nullptr);
    std::printf("once by the parent\n");
    std::cout << "once by its stream\n";
    RealSystemCalls system;
    const auto outcomes = ForkPool(system, {}).run(2, [](const WorkItem&) {
      std::fflush(stdout);
      std::cout.flush();
      return std::string("done");
    });
    EXPECT_EQ(outcomes[0].payload, "done");
    std::fflush(stdout);
  });
  EXPECT_EQ(status, 0);
  std::ifstream file(path);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text, "once by the parent\nonce by its stream\n");
}

TEST_F(ForkPoolTest, LeavesAChildWithoutCleaningUpForTheParent) {
  struct Witness {
    explicit Witness(pid_t made) : maker(made) {}
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;
    ~Witness() {
      // A child that unwound into the parent's frames would end here.
      if (::getpid() != maker) ::_exit(55);
    }
    pid_t maker;
  };
  const Witness witness(::getpid());
  const auto outcomes = run(1, [](const WorkItem&) { return std::string("left"); });
  EXPECT_EQ(outcomes[0].payload, "left");
  EXPECT_EQ(outcomes[0].status, PoolStatus::Completed);
}

TEST_F(ForkPoolTest, RefusesToForkBesideAnotherThread) {
  Pipe pipe;
  ASSERT_EQ(open_pipe(system_, pipe), 0);
  std::thread other([&] {
    pollfd entry{pipe.read_end.number(), POLLIN, 0};
    ::poll(&entry, 1, -1);
  });
  std::string text;
  try {
    static_cast<void>(run(1, [](const WorkItem&) { return std::string(); }));
  } catch (const PoolError& error) {
    text = error.what();
  }
  EXPECT_EQ(::write(pipe.write_end.number(), "x", 1), 1);
  other.join();
  EXPECT_THAT(text, StartsWith("worker pool: this process has 2 threads"));
  EXPECT_THAT(text, HasSubstr("end the other threads"));
}

TEST_F(ForkPoolTest, RefusesWhenTheThreadsCannotBeCounted) {
  FailingCalls system(FailingCalls::Call::Threads, ENOENT, 1);
  try {
    static_cast<void>(ForkPool(system, {}).run(1, [](const WorkItem&) { return std::string(); }));
    FAIL() << "nothing was thrown";
  } catch (const PoolError& error) {
    EXPECT_THAT(error.what(), HasSubstr("mount /proc"));
  }
}

TEST_F(ForkPoolTest, RefusesAProcessThatIgnoresTheEndOfItsChildren) {
  const int status = run_forked([] {
    RealSystemCalls system;
    const ForkPool pool(system, {});
    const Work work = [](const WorkItem&) { return std::string(); };
    ::signal(SIGCHLD, SIG_IGN);
    EXPECT_THROW(static_cast<void>(pool.run(1, work)), PoolError);
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    action.sa_flags = SA_NOCLDWAIT;
    ::sigaction(SIGCHLD, &action, nullptr);
    EXPECT_THROW(static_cast<void>(pool.run(1, work)), PoolError);
    ::signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(pool.run(1, work).at(0).status, PoolStatus::Completed);
  });
  EXPECT_EQ(status, 0);
}

TEST_F(ForkPoolTest, RefusesAConfigurationThatMakesNoSense) {
  EXPECT_EQ(refusal({.jobs = 0}), "worker pool: jobs is 0; it must be at least 1");
  EXPECT_EQ(refusal({.max_retries = -1}),
            "worker pool: max_retries is -1; it must not be negative");
  EXPECT_EQ(refusal({.timeout_seconds = 0.0}), "accepted");
  EXPECT_THAT(refusal({.exit_grace_seconds = 0.0}),
              StartsWith("worker pool: exit_grace_seconds is"));
  for (const double seconds :
       {-1.0, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_THAT(refusal({.timeout_seconds = seconds}),
                StartsWith("worker pool: timeout_seconds is"));
    EXPECT_THAT(refusal({.exit_grace_seconds = seconds}),
                StartsWith("worker pool: exit_grace_seconds is"));
  }
  EXPECT_EQ(refusal({.timeout_seconds = 1e300}), "accepted");
}

TEST_F(ForkPoolTest, MayBeUsedByAChild) {
  EXPECT_EQ(ask_child([](const WorkItem&) {
              RealSystemCalls system;
              return ForkPool(system, {})
                  .run(1, [](const WorkItem&) { return std::string("grandchild"); })
                  .at(0)
                  .payload;
            }),
            "grandchild");
}

TEST_F(ForkPoolTest, LeavesNothingBehindAfterThousandsOfItems) {
  // A fork with the sanitizer's shadow memory takes a hundred times as long.
  const std::size_t count = kUnderAddressSanitizer ? 150 : 3000;
  const std::size_t descriptors = count_open_descriptors();
  const auto outcomes =
      run(count, [](const WorkItem& item) { return std::to_string(item.index); }, {.jobs = 2});
  std::size_t index = 0;
  for (const PoolOutcome& outcome : outcomes) {
    ASSERT_EQ(outcome.payload, std::to_string(index++));
  }
  EXPECT_EQ(index, count);
  EXPECT_FALSE(has_children());
  EXPECT_EQ(count_open_descriptors(), descriptors);
}

TEST(PoolStatusText, NamesEachStatus) {
  EXPECT_EQ(to_text(PoolStatus::Completed), "completed");
  EXPECT_EQ(to_text(PoolStatus::WorkRaised), "work_raised");
  EXPECT_EQ(to_text(PoolStatus::WorkerFailed), "worker_failed");
  EXPECT_EQ(to_text(PoolStatus::WorkerTimedOut), "worker_timed_out");
  EXPECT_EQ(to_text(PoolStatus::Cancelled), "cancelled");
}

}  // namespace
}  // namespace varnholt::embedded::test
