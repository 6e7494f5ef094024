// However a run is left (stopped, by an exception, with its parent killed), no child stays. Method:
// stop and throw at each turn in order; kill a process that runs a pool and watch its children.
#include <csignal>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/pool/descriptor.hpp"
#include "hosts/embedded/pool/fork_pool.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"

namespace varnholt::embedded::test {
namespace {

class ForkPoolStop : public ProcessTest {
 protected:
  RealSystemCalls system_;
};

// Long enough for any test, and yet no process is left for good when the pool is broken.
[[noreturn]] void sleep_for_ever() {
  ::alarm(60);
  while (true) {
    ::pause();
  }
}

std::string result_of(const WorkItem& item) {
  return "result " + std::to_string(item.index);
}

TEST_F(ForkPoolStop, MayComeAtEachTurn) {
  bool stopped = true;
  for (int nth = 1; stopped; ++nth) {
    ASSERT_LT(nth, 1000);
    SCOPED_TRACE(nth);
    stopped = false;
    int turn = 0;
    std::map<std::size_t, int> told;
    PoolCallbacks callbacks;
    callbacks.stop_requested = [&] { return stopped = ++turn >= nth; };
    callbacks.completed_callback = [&](const PoolOutcome& outcome) { ++told[outcome.index]; };
    const auto outcomes = ForkPool(system_, {.jobs = 2}).run(4, result_of, callbacks);
    ASSERT_EQ(told.size(), 4U);
    for (const PoolOutcome& outcome : outcomes) {
      ASSERT_EQ(told[outcome.index], 1);
      if (outcome.status == PoolStatus::Completed) {
        ASSERT_EQ(outcome.payload, result_of({outcome.index, 0}));
      } else {
        ASSERT_TRUE(stopped);
        ASSERT_EQ(outcome.status, PoolStatus::Cancelled);
        ASSERT_EQ(outcome.detail, "the run was stopped");
        ASSERT_EQ(outcome.payload, "");
      }
    }
    for (const PoolOutcome& outcome : outcomes) {
      if (nth == 1) {
        ASSERT_EQ(outcome.pid, 0) << "nothing was to be forked";
      }
    }
    ASSERT_FALSE(has_children());
  }
}

TEST_F(ForkPoolStop, EndsWorkersThatWouldRunForEver) {
  PoolCallbacks callbacks;
  int turns = 0;
  callbacks.stop_requested = [&] { return ++turns > 3; };
  const auto outcomes =
      ForkPool(system_, {.jobs = 3})
          .run(
              5, [](const WorkItem&) -> std::string { sleep_for_ever(); }, callbacks);
  for (const PoolOutcome& outcome : outcomes) {
    EXPECT_EQ(outcome.status, PoolStatus::Cancelled);
    EXPECT_EQ(outcome.pid > 0, outcome.index < 3);
  }
}

TEST_F(ForkPoolStop, KeepsAResultThatIsAlreadyWhole) {
  // The worker hands over its whole result and then stays; the stop comes before its exit.
  class NoExit : public RealSystemCalls {
   public:
    ssize_t write(int descriptor, const void* bytes, std::size_t size) override {
      const ssize_t written = RealSystemCalls::write(descriptor, bytes, size);
      if (static_cast<std::size_t>(written) == size) sleep_for_ever();
      return written;
    }
  };
  NoExit system;
  PoolCallbacks callbacks;
  int turns = 0;
  callbacks.stop_requested = [&] { return ++turns > 20; };
  const auto outcomes = ForkPool(system, {.exit_grace_seconds = 600}).run(2, result_of, callbacks);
  EXPECT_EQ(outcomes[0].status, PoolStatus::Completed);
  EXPECT_EQ(outcomes[0].payload, "result 0");
  EXPECT_EQ(outcomes[1].status, PoolStatus::Cancelled);
}

// No exception class, so that only an unchanged exception is caught as it.
struct Interrupt {
  int number;
};

enum class Which { Stop, Started, Poll, Lost, Completed };

PoolCallbacks throwing_callbacks(Which which, int nth, int& calls) {
  const auto count = [&calls, which, nth](Which called) {
    if (called == which && ++calls == nth) throw Interrupt{nth};
  };
  PoolCallbacks callbacks;
  callbacks.stop_requested = [count] {
    count(Which::Stop);
    return false;
  };
  callbacks.started_callback = [count](const WorkItem&, pid_t) { count(Which::Started); };
  callbacks.poll_callback = [count] { count(Which::Poll); };
  callbacks.lost_callback = [count](const PoolOutcome&) { count(Which::Lost); };
  callbacks.completed_callback = [count](const PoolOutcome&) { count(Which::Completed); };
  return callbacks;
}

class ForkPoolThrow : public ForkPoolStop, public ::testing::WithParamInterface<Which> {};

TEST_P(ForkPoolThrow, OfACallbackLeavesUnchangedAndNoChildStays) {
  int thrown = 0;
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, 1000);
    SCOPED_TRACE(nth);
    const std::size_t descriptors = count_open_descriptors();
    int calls = 0;
    int caught = 0;
    try {
      static_cast<void>(ForkPool(system_, {.jobs = 3, .max_retries = 1})
                            .run(
                                6,
                                [](const WorkItem& item) -> std::string {
                                  // One is always busy when the callback throws, one is lost once.
                                  if (item.index == 2) ::usleep(20'000);
                                  if (item.index == 3 && item.attempt == 0) ::raise(SIGKILL);
                                  return "result";
                                },
                                throwing_callbacks(GetParam(), nth, calls)));
    } catch (const Interrupt& interrupt) {
      caught = interrupt.number;
    }
    ASSERT_FALSE(has_children());
    ASSERT_EQ(count_open_descriptors(), descriptors);
    if (calls < nth) break;
    ASSERT_EQ(caught, nth);
    ++thrown;
  }
  EXPECT_GE(thrown, GetParam() == Which::Lost ? 1 : 3);
}

INSTANTIATE_TEST_SUITE_P(Callbacks, ForkPoolThrow,
                         ::testing::Values(Which::Stop, Which::Started, Which::Poll, Which::Lost,
                                           Which::Completed));

TEST_F(ForkPoolStop, LeavesNoChildWhenAThreadAppearsMeanwhile) {
  // From the second fork on the process seems to have two threads.
  class ThreadAppears : public RealSystemCalls {
   public:
    int thread_count() override { return ++asked_ > 1 ? 2 : 1; }

   private:
    int asked_ = 0;
  };
  ThreadAppears system;
  EXPECT_THROW(
      static_cast<void>(ForkPool(system, {.jobs = 2})
                            .run(2, [](const WorkItem&) -> std::string { sleep_for_ever(); })),
      PoolError);
}

// Reads process numbers that another process writes, one int each.
std::vector<pid_t> read_pids(int descriptor, std::size_t count) {
  std::vector<pid_t> pids;
  for (std::size_t i = 0; i < count; ++i) {
    pid_t pid = 0;
    if (::read(descriptor, &pid, sizeof pid) != static_cast<ssize_t>(sizeof pid)) break;
    pids.push_back(pid);
  }
  return pids;
}

void write_pid(int descriptor, pid_t pid) {
  if (::write(descriptor, &pid, sizeof pid) != static_cast<ssize_t>(sizeof pid)) ::_exit(98);
}

// Runs a pool in a process of its own, kills that when `workers` numbers have come, and returns
// them.
std::vector<pid_t> kill_parent_of(SystemCalls& system, int report_read, std::size_t workers,
                                  const Work& work) {
  const pid_t runner = ::fork();
  if (runner == 0) {
    ::close(report_read);
    static_cast<void>(ForkPool(system, {.jobs = static_cast<int>(workers)}).run(workers, work));
    ::_exit(97);
  }
  const std::vector<pid_t> pids = read_pids(report_read, workers);
  ::kill(runner, SIGKILL);
  int status = 0;
  EXPECT_EQ(::waitpid(runner, &status, 0), runner);
  EXPECT_TRUE(WIFSIGNALED(status));
  return pids;
}

TEST_F(ForkPoolStop, TakesTheChildrenOfAKilledParentWithIt) {
  Pipe report;
  ASSERT_EQ(open_pipe(system_, report), 0);
  ASSERT_EQ(::fcntl(report.read_end.number(), F_SETFL, 0), 0);
  const int write_end = report.write_end.number();
  const std::vector<pid_t> pids = kill_parent_of(system_, report.read_end.number(), 3,
                                                 [write_end](const WorkItem&) -> std::string {
                                                   write_pid(write_end, ::getpid());
                                                   sleep_for_ever();
                                                 });
  ASSERT_EQ(pids.size(), 3U);
  for (const pid_t pid : pids) {
    EXPECT_TRUE(wait_until_gone(pid));
  }
}

// The parent dies before the child has asked for a signal at its death.
class OrphanedEarly : public RealSystemCalls {
 public:
  explicit OrphanedEarly(int report) : report_(report) {}
  int set_parent_death_signal(int signal) override {
    const pid_t parent = ::getppid();
    write_pid(report_, ::getpid());
    while (::getppid() == parent) {
      ::usleep(1000);
    }
    return RealSystemCalls::set_parent_death_signal(signal);
  }

 private:
  int report_;
};

TEST_F(ForkPoolStop, TakesAChildThatWasOrphanedBeforeItsPrologue) {
  Pipe report;
  ASSERT_EQ(open_pipe(system_, report), 0);
  ASSERT_EQ(::fcntl(report.read_end.number(), F_SETFL, 0), 0);
  OrphanedEarly system(report.write_end.number());
  const std::vector<pid_t> pids =
      kill_parent_of(system, report.read_end.number(), 1,
                     [](const WorkItem&) -> std::string { sleep_for_ever(); });
  ASSERT_EQ(pids.size(), 1U);
  EXPECT_TRUE(wait_until_gone(pids[0]));
}

}  // namespace
}  // namespace varnholt::embedded::test
