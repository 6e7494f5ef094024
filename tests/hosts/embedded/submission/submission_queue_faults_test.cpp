// A payload is queued or settled whatever happens, and never both. Method: a second connection that
// holds the lock, processes that are killed in the middle of a sync, two that sync at once.
#include <csignal>
#include <functional>
#include <set>
#include <stdexcept>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/hosts/embedded/submission/queue_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SubmissionQueueFaults : public QueueTest {
 protected:
  // Queues signals that have nothing in common.
  std::vector<std::string> queue_up(int count) {
    const auto own = party();
    std::vector<std::string> queued;
    for (int i = 0; i < count; ++i) {
      queued.push_back(evaluate());
      EXPECT_TRUE(own->queue.enqueue(payload(queued.back()),
                                     normal_series(kDays, static_cast<std::uint64_t>(i) + 1)));
    }
    return queued;
  }
  // Runs `body` in a process of its own, which ends with it.
  static pid_t spawn(const std::function<void()>& body) {
    const pid_t pid = ::fork();
    if (pid != 0) return pid;
    try {
      body();
    } catch (...) {
      ::_exit(1);
    }
    ::_exit(0);
  }
  static int status_of(pid_t pid) {
    int status = 0;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  int count(SubmissionState state) {
    return static_cast<int>(store_->submissions().list({{}, state}).size());
  }
};

TEST_F(SubmissionQueueFaults, ALockedStoreTakesNothingAndLosesNothing) {
  const auto own = party();
  const std::vector<std::string> queued = queue_up(2);
  const std::string late = evaluate();
  {
    SqliteDatabase other(path_, 0);
    SqliteTransaction held(other, "holding the lock");
    EXPECT_FALSE(own->queue.enqueue(payload(late), normal_series(kDays, 77)));
    const SyncReport report = own->queue.sync();
    EXPECT_TRUE(report.store_was_busy);
    EXPECT_THAT(report.settled, IsEmpty());
    EXPECT_EQ(count(SubmissionState::Queued), 2);
  }
  EXPECT_TRUE(own->queue.enqueue(payload(late), normal_series(kDays, 77)));
  EXPECT_THAT(ids(own->queue.sync()), ElementsAre(queued[0], queued[1], late));
}

TEST_F(SubmissionQueueFaults, AnErrorInTheMiddleGivesThePayloadBack) {
  const std::vector<std::string> queued = queue_up(3);
  int calls = 0;
  const auto own = party([&] {
    if (++calls == 2) throw std::runtime_error("the clock stopped");
    return kNow;
  });
  EXPECT_THROW(own->queue.sync(), std::runtime_error);
  EXPECT_EQ(state_of(queued[0]), "submitted");
  EXPECT_EQ(state_of(queued[1]), "queued");
  EXPECT_THAT(ids(own->queue.sync()), ElementsAre(queued[1], queued[2]));
}

TEST_F(SubmissionQueueFaults, AKilledSyncLeavesEachQueuedOrSettled) {
  const int total = 6;
  const std::vector<std::string> queued = queue_up(total);
  store_.reset();
  // Each process dies at its second settlement, between the measure and the commit.
  for (int round = 1; round < total; ++round) {
    SCOPED_TRACE(round);
    const pid_t child = spawn([&] {
      int calls = 0;
      party([&] {
        if (++calls == 2) ::kill(::getpid(), SIGKILL);
        return kNow;
      })->queue.sync();
    });
    EXPECT_EQ(status_of(child), -SIGKILL);
    store_.emplace(path_);
    EXPECT_EQ(count(SubmissionState::Submitted), round);
    EXPECT_EQ(count(SubmissionState::Queued), total - round);
    store_.reset();
  }
  EXPECT_EQ(integrity(path_), "ok");
  store_.emplace(path_);
  EXPECT_THAT(ids(party()->queue.sync()), ElementsAre(queued.back()));
  EXPECT_EQ(member_ids(), queued);
}

TEST_F(SubmissionQueueFaults, ProcessesThatSyncAtOnceSettleEachOnce) {
  // Pairs of the same signal: of each pair one may get in, whoever settles it.
  const auto own = party();
  const int pairs = 8;
  for (int i = 0; i < 2 * pairs; ++i) {
    EXPECT_TRUE(own->queue.enqueue(payload(evaluate()),
                                   normal_series(kDays, static_cast<std::uint64_t>(i / 2) + 1)));
  }
  std::vector<pid_t> children;
  for (int i = 0; i < 4; ++i) {
    children.push_back(spawn([&] {
      const auto patient = std::make_unique<SqliteRunStore>(
          path_, StoreOptions{.busy_timeout_milliseconds = 60'000});
      SignalPool pool(*patient, pool_);
      SubmissionQueue queue(*patient, pool, thresholds_, [] { return kNow; });
      if (queue.sync().store_was_busy) ::_exit(2);
    }));
  }
  for (const pid_t child : children)
    EXPECT_EQ(status_of(child), 0);
  EXPECT_EQ(count(SubmissionState::Submitted), pairs);
  EXPECT_EQ(count(SubmissionState::Refused), pairs);
  std::set<std::int64_t> orders;
  for (const SubmissionPnl& member : store_->submissions().members(pool_))
    orders.insert(member.settled_order);
  EXPECT_EQ(orders.size(), static_cast<std::size_t>(pairs));
}

TEST_F(SubmissionQueueFaults, AForkedChildCannotEnqueue) {
  const auto own = party();
  const std::string id = evaluate();
  const pid_t child = spawn([&] {
    try {
      static_cast<void>(own->queue.enqueue(payload(id), normal_series(kDays, 1)));
    } catch (const StoreError&) {
      ::_exit(42);
    }
  });
  EXPECT_EQ(status_of(child), 42);
  EXPECT_EQ(count(SubmissionState::Queued), 0);
}

}  // namespace
}  // namespace varnholt::embedded::test
