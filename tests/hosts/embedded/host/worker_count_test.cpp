// How many workers a batch gets. Method: machines as tables of numbers.
#include "hosts/embedded/host/worker_count.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

constexpr std::uint64_t kMebibyte = 1024 * 1024;

TEST(WorkerCount, IsWhatWasAskedForWhereTheMachineCanDoIt) {
  const ResolvedWorkers workers({.requested = 3, .candidates = 10}, {.processors = 4});
  EXPECT_EQ(workers.count(), 3);
  EXPECT_EQ(workers.requested(), 3);
  EXPECT_EQ(workers.reduction(), "");
}

TEST(WorkerCount, IsNoMoreThanThereAreCandidatesAndAtLeastOne) {
  const ResolvedWorkers few({.requested = 8, .candidates = 3}, {.processors = 16});
  EXPECT_EQ(few.count(), 3);
  EXPECT_EQ(few.reduction(), "") << "that is nothing that anybody could change";
  EXPECT_EQ(ResolvedWorkers({.requested = 8, .candidates = 0}, {.processors = 16}).count(), 1);
}

TEST(WorkerCount, TellsTheSearchHowManyCandidatesWorkersHaveAtATime) {
  const ResolvedWorkers workers({.requested = 3, .candidates = 100, .candidates_per_worker = 16},
                                {.processors = 4});
  EXPECT_EQ(workers.count(), 3);
  EXPECT_EQ(workers.resolved().integer(), 48);
}

TEST(WorkerCount, IsNoMoreThanThereAreProcessors) {
  const ResolvedWorkers workers({.requested = 8, .candidates = 10}, {.processors = 2});
  EXPECT_EQ(workers.count(), 2);
  EXPECT_EQ(workers.reduction(), "this process may run on 2 processors");
}

TEST(WorkerCount, FollowsTheQuotaOfTheControlGroup) {
  const ResolvedWorkers workers({.requested = 8, .candidates = 10},
                                {.processors = 16, .processor_quota = 2.5});
  EXPECT_EQ(workers.count(), 3);
  EXPECT_EQ(workers.reduction(), "its control group gives this process 2.5 processors");
  EXPECT_EQ(
      ResolvedWorkers({.requested = 8, .candidates = 9}, {.processors = 16, .processor_quota = 0.1})
          .count(),
      1);
}

TEST(WorkerCount, FollowsTheMemoryThatIsLeft) {
  const MachineLimits machine{.processors = 16, .memory_available_bytes = 1000 * kMebibyte};
  // Of 500 MiB each, 100 are inherited and there already.
  const ResolvedWorkers workers({.requested = 8,
                                 .candidates = 10,
                                 .worker_memory_limit_bytes = 500 * kMebibyte,
                                 .inherited_bytes = 100 * kMebibyte},
                                machine);
  EXPECT_EQ(workers.count(), 2);
  EXPECT_EQ(workers.reduction(),
            "1000 MiB of memory are available, and each may take 400 MiB of its own");
  // Without a limit nobody knows what a worker takes.
  EXPECT_EQ(ResolvedWorkers({.requested = 8, .candidates = 10}, machine).count(), 8);
  // One worker is always tried: if it cannot run, that is told as its failure.
  EXPECT_EQ(ResolvedWorkers(
                {.requested = 8, .candidates = 10, .worker_memory_limit_bytes = 9000 * kMebibyte},
                machine)
                .count(),
            1);
}

}  // namespace
}  // namespace varnholt::embedded::test
