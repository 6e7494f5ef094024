// Whatever happens to a worker is its item's outcome, with a text of its own, and touches neither
// the siblings nor the parent. Method: real children that are killed at each stage, crash, stop,
// loop, run out of memory, or leave processes behind.
#include <csignal>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include "hosts/embedded/pool/child_process.hpp"
#include "hosts/embedded/pool/fork_pool.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class ForkPoolFaults : public ProcessTest {
 protected:
  // Item 1 of three meets its fate; its siblings must not notice.
  [[nodiscard]] PoolOutcome fate(const Work& work, const PoolConfig& config = {.jobs = 3}) {
    RealSystemCalls system;
    return fate(system, work, config);
  }
  [[nodiscard]] PoolOutcome fate(SystemCalls& system, const Work& work,
                                 const PoolConfig& config = {.jobs = 3}) {
    const auto outcomes = ForkPool(system, config).run(3, [&](const WorkItem& item) {
      if (item.index == 1) return work(item);
      ::usleep(10'000);
      return std::string("sibling");
    });
    EXPECT_EQ(outcomes.at(0).payload, "sibling") << outcomes.at(0).detail;
    EXPECT_EQ(outcomes.at(2).payload, "sibling") << outcomes.at(2).detail;
    return outcomes.at(1);
  }
};

// Long enough for any test, and yet no process is left for good when the pool is broken.
[[noreturn]] void sleep_for_ever() {
  ::alarm(60);
  while (true) {
    ::pause();
  }
}

struct Death {
  const char* name;
  void (*die)();
  const char* detail;
};

void die_by(int signal) {
  // A core file would only take time, and the sanitizer's handlers were reset with the others.
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  ::raise(signal);
}

class ForkPoolDeaths : public ForkPoolFaults, public ::testing::WithParamInterface<Death> {};

TEST_P(ForkPoolDeaths, IsToldInItsOwnWords) {
  const PoolOutcome outcome = fate([](const WorkItem&) -> std::string {
    GetParam().die();
    sleep_for_ever();
  });
  EXPECT_EQ(outcome.status, PoolStatus::WorkerFailed);
  EXPECT_EQ(outcome.detail, GetParam().detail);
  EXPECT_EQ(outcome.payload, "");
  EXPECT_EQ(outcome.error_type, "");
}

INSTANTIATE_TEST_SUITE_P(
    Manners, ForkPoolDeaths,
    ::testing::Values(
        Death{"Kill", [] { die_by(SIGKILL); }, "worker killed by signal 9 (SIGKILL)"},
        Death{"Segmentation", [] { die_by(SIGSEGV); }, "worker killed by signal 11 (SIGSEGV)"},
        Death{"Abort", [] { die_by(SIGABRT); }, "worker killed by signal 6 (SIGABRT)"},
        Death{"Terminate", [] { die_by(SIGTERM); }, "worker killed by signal 15 (SIGTERM)"},
        Death{"ExitZero", [] { ::_exit(0); }, "worker exited without a result"},
        Death{"ExitThree", [] { ::_exit(3); }, "worker exited with status 3"},
        Death{"QuickExit", [] { std::quick_exit(4); }, "worker exited with status 4"}),
    [](const ::testing::TestParamInfo<Death>& death) { return std::string(death.param.name); });

TEST_F(ForkPoolFaults, AnInterruptDoesNotEndAWorker) {
  const PoolOutcome outcome = fate([](const WorkItem&) {
    ::raise(SIGINT);
    return std::string("went on");
  });
  EXPECT_EQ(outcome.payload, "went on");
}

// Kills the child in the named call of its prologue.
class DeathInPrologue : public RealSystemCalls {
 public:
  enum class Stage { BeforeGroup, BeforeParentDeath };
  explicit DeathInPrologue(Stage stage) : stage_(stage) {}
  int setpgid(pid_t pid, pid_t group) override {
    if (pid == 0 && stage_ == Stage::BeforeGroup) ::raise(SIGKILL);
    return RealSystemCalls::setpgid(pid, group);
  }
  int set_parent_death_signal(int signal) override {
    if (stage_ == Stage::BeforeParentDeath) ::raise(SIGKILL);
    return RealSystemCalls::set_parent_death_signal(signal);
  }

 private:
  Stage stage_;
};

TEST_F(ForkPoolFaults, AWorkerMayDieBeforeItIsPrepared) {
  for (const auto stage :
       {DeathInPrologue::Stage::BeforeGroup, DeathInPrologue::Stage::BeforeParentDeath}) {
    DeathInPrologue system(stage);
    const auto outcomes =
        ForkPool(system, {.jobs = 2, .max_retries = 1}).run(3, [](const WorkItem&) {
          return std::string("never");
        });
    for (const PoolOutcome& outcome : outcomes) {
      EXPECT_EQ(outcome.status, PoolStatus::WorkerFailed);
      EXPECT_EQ(outcome.attempt, 1);
      EXPECT_EQ(outcome.detail, "worker killed by signal 9 (SIGKILL)");
    }
  }
}

// Fails one call of the prologue.
class FailingPrologue : public RealSystemCalls {
 public:
  int set_parent_death_signal(int /*signal*/) override {
    errno = EPERM;
    return -1;
  }
};

TEST_F(ForkPoolFaults, AWorkerThatCannotBePreparedSaysSo) {
  FailingPrologue system;
  const auto outcomes =
      ForkPool(system, {}).run(1, [](const WorkItem&) { return std::string("never"); });
  EXPECT_EQ(outcomes[0].status, PoolStatus::WorkerFailed);
  EXPECT_THAT(
      outcomes[0].detail,
      StartsWith("worker could not be prepared: prctl(PR_SET_PDEATHSIG) failed with errno 1"));
}

TEST_F(ForkPoolFaults, OnlyAWholeFrameIsAResult) {
  const std::size_t atomic = 4096 - kFrameHeaderBytes;
  for (const std::size_t size : {std::size_t{1}, std::size_t{100}, atomic, atomic + 1,
                                 std::size_t{65536}, std::size_t{1} << 20, std::size_t{4} << 20}) {
    const std::size_t frame = kFrameHeaderBytes + size;
    for (std::size_t sixteenth = 0; sixteenth <= 16; ++sixteenth) {
      SCOPED_TRACE(::testing::Message() << size << " bytes cut at " << sixteenth << "/16");
      const std::size_t cut = frame * sixteenth / 16;
      CutWrites system(cut);
      const auto outcomes = ForkPool(system, {.jobs = 1}).run(1, [&](const WorkItem&) {
        return std::string(size, 'r');
      });
      const PoolOutcome& outcome = outcomes.at(0);
      if (cut == frame) {
        // The child was killed all the same; its result is whole and counts.
        ASSERT_EQ(outcome.status, PoolStatus::Completed) << outcome.detail;
        ASSERT_EQ(outcome.payload, std::string(size, 'r'));
        continue;
      }
      ASSERT_EQ(outcome.status, PoolStatus::WorkerFailed);
      ASSERT_EQ(outcome.payload, "");
      if (cut == 0) {
        ASSERT_EQ(outcome.detail, "worker killed by signal 9 (SIGKILL)");
      } else {
        ASSERT_THAT(outcome.detail,
                    StartsWith("worker result was torn after " + std::to_string(cut) + " of "));
        ASSERT_THAT(outcome.detail, HasSubstr("; worker killed by signal 9 (SIGKILL)"));
      }
    }
  }
}

TEST_F(ForkPoolFaults, AWholeResultWinsOverABadExitStatus) {
  class BadExit : public RealSystemCalls {
   public:
    ssize_t write(int descriptor, const void* bytes, std::size_t size) override {
      const ssize_t written = RealSystemCalls::write(descriptor, bytes, size);
      if (static_cast<std::size_t>(written) == size) ::_exit(3);
      return written;
    }
  };
  BadExit system;
  const auto outcomes =
      ForkPool(system, {}).run(1, [](const WorkItem&) { return std::string("whole"); });
  EXPECT_EQ(outcomes[0].status, PoolStatus::Completed);
  EXPECT_EQ(outcomes[0].payload, "whole");
  EXPECT_EQ(outcomes[0].detail, "");
}

TEST_F(ForkPoolFaults, AWholeResultWinsThoughTheWorkerDoesNotExit) {
  class NoExit : public RealSystemCalls {
   public:
    ssize_t write(int descriptor, const void* bytes, std::size_t size) override {
      const ssize_t written = RealSystemCalls::write(descriptor, bytes, size);
      if (static_cast<std::size_t>(written) == size) sleep_for_ever();
      return written;
    }
  };
  NoExit system;
  const ForkPool pool(system, {.timeout_seconds = 60, .exit_grace_seconds = 0.05});
  const auto outcomes = pool.run(1, [](const WorkItem&) { return std::string("whole"); });
  EXPECT_EQ(outcomes[0].status, PoolStatus::Completed);
  EXPECT_EQ(outcomes[0].payload, "whole");
}

// Damages the bytes that a child writes.
class DamagedWrites : public RealSystemCalls {
 public:
  explicit DamagedWrites(std::size_t place) : place_(place) {}
  ssize_t write(int descriptor, const void* bytes, std::size_t size) override {
    std::string damaged(static_cast<const char*>(bytes), size);
    damaged.at(place_) = static_cast<char>(damaged.at(place_) ^ 1);
    return RealSystemCalls::write(descriptor, damaged.data(), size);
  }

 private:
  std::size_t place_;
};

TEST_F(ForkPoolFaults, DamagedResultsAreNamed) {
  const std::vector<std::pair<std::size_t, std::string>> places = {
      {0, "worker result was damaged: it does not begin with a frame's mark"},
      {12, "worker result was damaged: it is for item 0 attempt 1, not for item 0 attempt 0"},
      {16, "worker result was damaged: it is for item 1 attempt 0, not for item 0 attempt 0"},
      {31, "worker result was damaged: its length of"},
      {40, "worker result was damaged: its checksum is wrong"},
  };
  for (const auto& [place, detail] : places) {
    DamagedWrites system(place);
    const auto outcomes =
        ForkPool(system, {}).run(1, [](const WorkItem&) { return std::string("payload"); });
    EXPECT_EQ(outcomes[0].status, PoolStatus::WorkerFailed);
    EXPECT_THAT(outcomes[0].detail, StartsWith(detail));
  }
}

TEST_F(ForkPoolFaults, AWorkerThatClosesItsPipeAndStaysIsEnded) {
  const PoolOutcome outcome = fate(
      [](const WorkItem&) -> std::string {
        for (int descriptor = 3; descriptor < 100; ++descriptor) {
          ::close(descriptor);
        }
        sleep_for_ever();
      },
      {.jobs = 3, .exit_grace_seconds = 0.05});
  EXPECT_EQ(outcome.status, PoolStatus::WorkerFailed);
  EXPECT_EQ(outcome.detail, "worker closed its pipe without a whole result and did not exit");
}

TEST_F(ForkPoolFaults, AWorkerThatClosesItsPipeAndReturnsIsNamed) {
  const PoolOutcome outcome = fate([](const WorkItem&) -> std::string {
    for (int descriptor = 3; descriptor < 100; ++descriptor) {
      ::close(descriptor);
    }
    return "lost";
  });
  EXPECT_EQ(outcome.status, PoolStatus::WorkerFailed);
  EXPECT_EQ(outcome.detail, "worker exited with status 74 (its result could not be written)");
}

TEST_F(ForkPoolFaults, EndsWhatNeverEndsAtItsLimit) {
  const std::vector<std::pair<std::string, void (*)()>> ways = {
      {"sleeps", [] { sleep_for_ever(); }},
      {"loops",
       [] {
         volatile bool forever = true;
         while (forever) {
         }
       }},
      {"is stopped",
       [] {
         ::raise(SIGSTOP);
         sleep_for_ever();
       }},
      {"ignores SIGTERM",
       [] {
         ::signal(SIGTERM, SIG_IGN);
         ::raise(SIGTERM);
         sleep_for_ever();
       }},
      {"leaves its group",
       [] {
         if (::fork() == 0) sleep_for_ever();
         // To the group of the test; the grandchild stays behind in the worker's.
         ::setpgid(0, ::getpgid(::getppid()));
         sleep_for_ever();
       }},
  };
  for (const auto& [name, never_end] : ways) {
    SCOPED_TRACE(name);
    const PoolOutcome outcome = fate(
        [never = never_end](const WorkItem&) -> std::string {
          never();
          return "ended";
        },
        {.jobs = 3, .timeout_seconds = 0.4, .max_retries = 5});
    EXPECT_EQ(outcome.status, PoolStatus::WorkerTimedOut);
    EXPECT_EQ(outcome.attempt, 0) << "a time-out is not tried again";
    EXPECT_EQ(outcome.detail, "worker had no result after 0.4 seconds and was killed");
    EXPECT_GE(outcome.elapsed_seconds, 0.4);
  }
}

TEST_F(ForkPoolFaults, GivesEitherTheResultOrTheTimeOutAtTheEdge) {
  constexpr std::size_t kEdgeItems = kUnderAddressSanitizer ? 40 : 200;
  RealSystemCalls system;
  int told = 0;
  PoolCallbacks callbacks;
  callbacks.completed_callback = [&](const PoolOutcome&) { ++told; };
  const auto outcomes =
      ForkPool(system, {.jobs = 4, .timeout_seconds = 0.02})
          .run(
              kEdgeItems,
              [](const WorkItem& item) {
                ::usleep(static_cast<useconds_t>(15'000 + 10'000 * item.index / kEdgeItems));
                return std::string("in time");
              },
              callbacks);
  EXPECT_EQ(told, static_cast<int>(kEdgeItems));
  for (const PoolOutcome& outcome : outcomes) {
    if (outcome.status == PoolStatus::Completed) {
      EXPECT_EQ(outcome.payload, "in time");
    } else {
      EXPECT_EQ(outcome.status, PoolStatus::WorkerTimedOut) << outcome.detail;
      EXPECT_EQ(outcome.payload, "");
    }
  }
}

TEST_F(ForkPoolFaults, GrandchildrenDieWithTheirWorker) {
  // The grandchild holds the result pipe open, so a parent that waited for its end would hang.
  auto* const grandchild = static_cast<volatile pid_t*>(
      ::mmap(nullptr, sizeof(pid_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(grandchild, MAP_FAILED);
  for (const bool in_time : {true, false}) {
    SCOPED_TRACE(in_time);
    *grandchild = 0;
    const PoolOutcome outcome = fate(
        [&](const WorkItem&) -> std::string {
          const pid_t forked = ::fork();
          if (forked == 0) sleep_for_ever();
          *grandchild = forked;
          if (!in_time) sleep_for_ever();
          return "result";
        },
        {.jobs = 3, .timeout_seconds = in_time ? 60 : 0.3});
    EXPECT_EQ(outcome.status, in_time ? PoolStatus::Completed : PoolStatus::WorkerTimedOut);
    ASSERT_GT(*grandchild, 0);
    EXPECT_TRUE(wait_until_gone(*grandchild));
  }
  ::munmap(const_cast<pid_t*>(grandchild), sizeof(pid_t));
}

TEST_F(ForkPoolFaults, ALostWorkerIsTriedAgainAndTold) {
  RealSystemCalls system;
  std::vector<std::string> told;
  PoolCallbacks callbacks;
  callbacks.started_callback = [&](const WorkItem& item, pid_t pid) {
    EXPECT_GT(pid, 0);
    told.push_back("start " + std::to_string(item.attempt));
  };
  callbacks.lost_callback = [&](const PoolOutcome& outcome) {
    EXPECT_EQ(outcome.status, PoolStatus::WorkerFailed);
    told.push_back("lost " + std::to_string(outcome.attempt));
  };
  callbacks.completed_callback = [&](const PoolOutcome& outcome) {
    told.push_back("done " + std::to_string(outcome.attempt));
  };
  const auto outcomes = ForkPool(system, {.max_retries = 2})
                            .run(
                                1,
                                [](const WorkItem& item) -> std::string {
                                  if (item.attempt < 2) ::raise(SIGKILL);
                                  return "third time";
                                },
                                callbacks);
  EXPECT_EQ(outcomes[0].payload, "third time");
  EXPECT_EQ(outcomes[0].attempt, 2);
  EXPECT_THAT(
      told, ::testing::ElementsAre("start 0", "lost 0", "start 1", "lost 1", "start 2", "done 2"));
}

TEST_F(ForkPoolFaults, AWorkerIsTriedAgainOnlySoOften) {
  const PoolOutcome outcome = fate(
      [](const WorkItem&) -> std::string {
        ::raise(SIGKILL);
        return "";
      },
      {.jobs = 3, .max_retries = 2});
  EXPECT_EQ(outcome.status, PoolStatus::WorkerFailed);
  EXPECT_EQ(outcome.attempt, 2);
}

TEST_F(ForkPoolFaults, RunsOutOfMemoryAlone) {
  if (kUnderAddressSanitizer) {
    GTEST_SKIP() << "the sanitizer's shadow needs more address space than any limit allows";
  }
  const PoolConfig config{.jobs = 3, .memory_limit_bytes = std::uint64_t{256} << 20};
  const Work greedy = [](const WorkItem&) {
    std::vector<std::string> hoard;
    while (true) {
      hoard.emplace_back(8U << 20, 'x');
    }
    return std::string();
  };
  const PoolOutcome raised = fate(greedy, config);
  EXPECT_EQ(raised.status, PoolStatus::WorkRaised);
  EXPECT_EQ(raised.error_type, "std::bad_alloc");
}

TEST_F(ForkPoolFaults, StillTellsAnErrorWithNoMemoryLeftForItsText) {
  if (kUnderAddressSanitizer) {
    GTEST_SKIP() << "the sanitizer's shadow needs more address space than any limit allows";
  }
  const PoolOutcome outcome = fate(
      [](const WorkItem&) -> std::string {
        // Small blocks to the last, never given back, so that not even a text can be made.
        for (std::size_t size = std::size_t{1} << 20; size >= 16; size /= 2) {
          while (std::malloc(size) != nullptr) {
          }
        }
        throw std::bad_alloc();
      },
      {.jobs = 3, .memory_limit_bytes = std::uint64_t{128} << 20});
  EXPECT_EQ(outcome.status, PoolStatus::WorkRaised) << outcome.detail;
  EXPECT_EQ(outcome.error_type, "std::bad_alloc");
}

TEST_F(ForkPoolFaults, EndsAtItsLimitOfProcessorTime) {
  const PoolOutcome outcome = fate(
      [](const WorkItem&) -> std::string {
        volatile bool forever = true;
        while (forever) {
        }
        return "";
      },
      {.jobs = 3, .cpu_limit_seconds = 1});
  EXPECT_EQ(outcome.status, PoolStatus::WorkerFailed);
  EXPECT_EQ(outcome.detail, "worker killed by signal 24 (SIGXCPU)");
}

TEST_F(ForkPoolFaults, EndsAtItsLimitOfFileSize) {
  const std::string path = ::testing::TempDir() + "fork_pool_large_file";
  const PoolOutcome outcome = fate(
      [&](const WorkItem&) -> std::string {
        std::FILE* const file = std::fopen(path.c_str(), "w");
        const std::string block(1 << 16, 'x');
        while (std::fwrite(block.data(), 1, block.size(), file) == block.size()) {
        }
        return "";
      },
      {.jobs = 3, .file_size_limit_bytes = 1 << 20});
  ::unlink(path.c_str());
  EXPECT_EQ(outcome.detail, "worker killed by signal 25 (SIGXFSZ)");
}

TEST_F(ForkPoolFaults, RefusesAResultAboveTheLimit) {
  const PoolOutcome fits = fate([](const WorkItem&) { return std::string(1000, 'x'); },
                                {.jobs = 3, .result_limit_bytes = 1000});
  EXPECT_EQ(fits.status, PoolStatus::Completed);
  const PoolOutcome outcome = fate([](const WorkItem&) { return std::string(1001, 'x'); },
                                   {.jobs = 3, .result_limit_bytes = 1000});
  EXPECT_EQ(outcome.status, PoolStatus::WorkRaised);
  EXPECT_EQ(outcome.error_type, "ResultTooLarge");
  EXPECT_EQ(outcome.detail, "a result of 1001 bytes is above the limit of 1000 bytes");
}

TEST_F(ForkPoolFaults, LargeResultsPassThroughSmallPipesAndAStalledParent) {
  RealSystemCalls system;
  PoolCallbacks callbacks;
  bool stalled = false;
  callbacks.poll_callback = [&] {
    if (!stalled) ::usleep(200'000);
    stalled = true;
  };
  const std::size_t size = std::size_t{16} << 20;
  const auto outcomes = ForkPool(system, {.jobs = 2, .pipe_capacity_bytes = 4096})
                            .run(
                                3,
                                [&](const WorkItem& item) {
                                  return std::string(size, static_cast<char>('a' + item.index));
                                },
                                callbacks);
  for (const PoolOutcome& outcome : outcomes) {
    ASSERT_EQ(outcome.status, PoolStatus::Completed) << outcome.detail;
    EXPECT_TRUE(outcome.payload == std::string(size, static_cast<char>('a' + outcome.index)));
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
