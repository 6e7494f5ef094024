// The pool survives failing, interrupted and shortened system calls: each is retried or becomes
// one clean outcome, and nothing is leaked. Method: each call of the parent fails once, at the
// first, second, ... place until a run gets through without reaching it.
#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include "hosts/embedded/pool/fork_pool.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"

namespace varnholt::embedded::test {
namespace {

using Call = FailingCalls::Call;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class ForkPoolCalls : public ProcessTest {
 protected:
  static std::vector<PoolOutcome> run(SystemCalls& system, std::size_t count,
                                      const PoolConfig& config = {.jobs = 2, .max_retries = 1}) {
    return ForkPool(system, config).run(count, [](const WorkItem& item) {
      return "result " + std::to_string(item.index);
    });
  }
  static void expect_all_complete(const std::vector<PoolOutcome>& outcomes) {
    for (const PoolOutcome& outcome : outcomes) {
      EXPECT_EQ(outcome.status, PoolStatus::Completed) << outcome.detail;
      EXPECT_EQ(outcome.payload, "result " + std::to_string(outcome.index));
    }
  }
};

struct NthFailure {
  const char* name;
  Call call;
  int error;
};

class ForkPoolNthCall : public ForkPoolCalls, public ::testing::WithParamInterface<NthFailure> {};

TEST_P(ForkPoolNthCall, MayFailOnce) {
  int places = 0;
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, 500) << "the runs do not get shorter than the place of the failure";
    SCOPED_TRACE(nth);
    const std::size_t descriptors = count_open_descriptors();
    FailingCalls system(GetParam().call, GetParam().error, nth);
    // Only a broken pipe costs a worker; everything else is got over without a second one.
    const int retries = GetParam().error == EIO ? 1 : 0;
    expect_all_complete(run(system, 4, {.jobs = 2, .max_retries = retries}));
    ASSERT_FALSE(has_children());
    ASSERT_EQ(count_open_descriptors(), descriptors);
    if (!system.reached()) break;
    ++places;
  }
  // Four items pass each of these calls at least once each, the loop's poll at least once.
  EXPECT_GE(places, GetParam().call == Call::Poll ? 1 : 4);
}

INSTANTIATE_TEST_SUITE_P(Parent, ForkPoolNthCall,
                         ::testing::Values(NthFailure{"PipeWithoutDescriptors", Call::Pipe, EMFILE},
                                           NthFailure{"ForkWithoutProcesses", Call::Fork, EAGAIN},
                                           NthFailure{"ForkWithoutMemory", Call::Fork, ENOMEM},
                                           NthFailure{"PipeOptions", Call::Fcntl, EPERM},
                                           NthFailure{"ProcessDescriptor", Call::Pidfd, EMFILE},
                                           NthFailure{"ProcessGroup", Call::Setpgid, EACCES},
                                           NthFailure{"Kill", Call::Kill, ESRCH},
                                           NthFailure{"ReadEmpty", Call::Read, EAGAIN},
                                           NthFailure{"ReadBroken", Call::Read, EIO},
                                           NthFailure{"PollInterrupted", Call::Poll, EINTR},
                                           NthFailure{"PollWithoutMemory", Call::Poll, ENOMEM},
                                           NthFailure{"WaitInterrupted", Call::Waitid, EINTR},
                                           NthFailure{"WaitStolen", Call::Waitid, ECHILD}),
                         [](const ::testing::TestParamInfo<NthFailure>& failure) {
                           return std::string(failure.param.name);
                         });

TEST_F(ForkPoolCalls, MayBeInterruptedEachTime) {
  InterruptingCalls system;
  expect_all_complete(run(system, 20));
  EXPECT_GE(system.interruptions, 100);
}

TEST_F(ForkPoolCalls, MayMoveAFewBytesOnly) {
  ShortCalls system(7);
  expect_all_complete(run(system, 10));
}

volatile std::sig_atomic_t storm_signals = 0;
void count_signal(int /*signal*/) {
  storm_signals = storm_signals + 1;
}

TEST_F(ForkPoolCalls, GoOnThroughAStormOfSignals) {
  struct sigaction action {};
  action.sa_handler = count_signal;  // Without SA_RESTART, so that each one interrupts.
  ::sigaction(SIGALRM, &action, nullptr);
  const itimerval every{{0, 500}, {0, 500}};
  const itimerval never{};
  ::setitimer(ITIMER_REAL, &every, nullptr);
  RealSystemCalls system;
  const auto outcomes = ForkPool(system, {.jobs = 2}).run(150, [](const WorkItem& item) {
    ::usleep(2000);
    return "result " + std::to_string(item.index);
  });
  ::setitimer(ITIMER_REAL, &never, nullptr);
  ::signal(SIGALRM, SIG_DFL);
  expect_all_complete(outcomes);
  EXPECT_GT(storm_signals, 50);
}

TEST_F(ForkPoolCalls, WorkWithoutProcessDescriptors) {
  FailingCalls system(Call::Pidfd, ENOSYS, 1, 1000);
  expect_all_complete(run(system, 10));
  FailingCalls again(Call::Pidfd, ENOSYS, 1, 1000);
  const auto lost = ForkPool(again, {}).run(1, [](const WorkItem&) -> std::string { ::_exit(3); });
  EXPECT_EQ(lost[0].detail, "worker exited with status 3");
}

TEST_F(ForkPoolCalls, MakeTheItemFailWhenNoWorkerCanBeStarted) {
  FailingCalls system(Call::Fork, EAGAIN, 1, 20);
  const auto outcomes = run(system, 2);
  EXPECT_EQ(outcomes[0].status, PoolStatus::WorkerFailed);
  EXPECT_EQ(outcomes[0].pid, 0);
  EXPECT_THAT(outcomes[0].detail,
              StartsWith("worker could not be started: fork failed with errno"));
  EXPECT_THAT(outcomes[0].detail,
              HasSubstr("20 times in a row; the limit of processes is reached"));
  EXPECT_TRUE(outcomes[0].was_not_started);
  EXPECT_FALSE(outcomes[1].was_not_started);
  EXPECT_EQ(outcomes[1].payload, "result 1");
}

TEST_F(ForkPoolCalls, MeetARealLimitOfDescriptors) {
  const int status = run_forked([] {
    const auto limit = static_cast<rlim_t>(count_open_descriptors() + 5);
    const rlimit few{limit, limit};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    RealSystemCalls system;
    // Eight at once do not fit; fewer do, and all get done.
    expect_all_complete(run(system, 12, {.jobs = 8}));
  });
  EXPECT_EQ(status, 0);
}

TEST_F(ForkPoolCalls, GiveUpWhenPollingCannotWork) {
  FailingCalls system(Call::Poll, EINVAL, 3);
  try {
    static_cast<void>(ForkPool(system, {.jobs = 2}).run(2, [](const WorkItem&) -> std::string {
      while (true) {
        ::pause();
      }
    }));
    FAIL() << "nothing was thrown";
  } catch (const PoolError& error) {
    EXPECT_THAT(error.what(), HasSubstr("run with fewer jobs"));
  }
}

TEST_F(ForkPoolCalls, TakeWhatAWorkerLeftInItsPipe) {
  // The pipe seems empty until the worker has been reaped.
  class LateBytes : public RealSystemCalls {
   public:
    ssize_t read(int descriptor, void* buffer, std::size_t size) override {
      if (reaped_) return RealSystemCalls::read(descriptor, buffer, size);
      errno = EAGAIN;
      return -1;
    }
    int waitid(pid_t pid, siginfo_t* info, int options) override {
      reaped_ = true;
      return RealSystemCalls::waitid(pid, info, options);
    }

   private:
    bool reaped_ = false;
  };
  LateBytes system;
  expect_all_complete(run(system, 1, {}));
}

TEST_F(ForkPoolCalls, TellAWorkerWhoseEndWasTakenAway) {
  FailingCalls system(Call::Waitid, ECHILD, 1);
  const auto outcomes =
      ForkPool(system, {}).run(1, [](const WorkItem&) -> std::string { ::_exit(3); });
  EXPECT_EQ(outcomes[0].status, PoolStatus::WorkerFailed);
  EXPECT_EQ(outcomes[0].detail, "worker was waited for by another part of the program");
}

TEST_F(ForkPoolCalls, TellAResultThatCannotBeRead) {
  FailingCalls system(Call::Read, EIO, 1, 1000);
  const auto outcomes = ForkPool(system, {.exit_grace_seconds = 0.05})
                            .run(2, [](const WorkItem& item) -> std::string {
                              if (item.index == 1) {
                                const std::string more_than_a_pipe_holds(1 << 20, 'x');
                                return more_than_a_pipe_holds;
                              }
                              return "result";
                            });
  EXPECT_EQ(outcomes[0].status, PoolStatus::WorkerFailed);
  EXPECT_THAT(outcomes[0].detail, HasSubstr("reading its result failed with errno 5"));
  EXPECT_EQ(outcomes[1].status, PoolStatus::WorkerFailed);
  EXPECT_THAT(outcomes[1].detail, HasSubstr("reading its result failed with errno 5"));
}

// A monotonic clock that is far along, or runs backwards.
class OddClock : public RealSystemCalls {
 public:
  explicit OddClock(bool backwards) : backwards_(backwards) {}
  std::int64_t monotonic_nanoseconds() override {
    const std::int64_t now = RealSystemCalls::monotonic_nanoseconds();
    return backwards_ ? 4'000'000'000'000'000'000 - now : now + 4'000'000'000'000'000'000;
  }

 private:
  bool backwards_;
};

TEST_F(ForkPoolCalls, NeverGiveANegativeDuration) {
  for (const bool backwards : {false, true}) {
    OddClock system(backwards);
    const auto outcomes = run(system, 3, {.jobs = 2, .timeout_seconds = 1e12});
    expect_all_complete(outcomes);
    for (const PoolOutcome& outcome : outcomes) {
      EXPECT_GE(outcome.elapsed_seconds, 0);
      EXPECT_LT(outcome.elapsed_seconds, 1e6);
    }
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
