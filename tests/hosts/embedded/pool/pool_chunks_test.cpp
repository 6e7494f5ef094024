// Workers with several items: each item has its own turn, limit, result and outcome, and whatever
// happens to a worker in the middle, its items come to what they would have come to alone.
// Method: real forks; items that are lost, hang or throw, at each place of a worker's share; and
// random mixtures of them, each run once with shares and once without.
#include <algorithm>
#include <csignal>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "hosts/embedded/pool/fork_pool.hpp"
#include "tests/hosts/embedded/pool/pool_notes.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"

namespace varnholt::embedded::test {
namespace {

using Notes = std::vector<std::string>;

class PoolChunks : public NotedPoolTest {
 protected:
  [[nodiscard]] std::vector<PoolOutcome> run(std::size_t count, const Work& work,
                                             const PoolConfig& config) {
    return ForkPool(system_, config).run(count, work, noting());
  }
  // Each attempt is dispatched once, started once at most, and each item is done once.
  void expect_each_told_once() const {
    for (const std::string& told : std::set<std::string>(notes_.begin(), notes_.end()))
      EXPECT_EQ(std::count(notes_.begin(), notes_.end(), told), 1) << told;
  }

  RealSystemCalls system_;
};

std::string own_pid(const WorkItem& /*item*/) {
  return std::to_string(::getpid());
}

// Where an item is what goes wrong, how; a worker counts its items.
std::string pid_unless(bool is_struck, void (*strike)()) {
  if (is_struck) strike();
  return std::to_string(::getpid());
}

void die() {
  ::raise(SIGKILL);
}

[[noreturn]] void hang() {
  ::alarm(60);
  while (true)
    ::pause();
}

// The workers that the results came from, by item.
std::vector<std::string> workers_of(const std::vector<PoolOutcome>& outcomes) {
  std::vector<std::string> pids;
  for (const PoolOutcome& outcome : outcomes) {
    EXPECT_EQ(outcome.status, PoolStatus::Completed) << outcome.detail;
    EXPECT_EQ(outcome.payload, std::to_string(outcome.pid));
    pids.push_back(outcome.payload);
  }
  return pids;
}

TEST_F(PoolChunks, AWorkerHasSeveralItemsInARow) {
  const auto pids = workers_of(run(5, own_pid, {.jobs = 1, .items_per_worker = 3}));
  EXPECT_EQ(std::set<std::string>(pids.begin(), pids.end()).size(), 2U);
  EXPECT_EQ(pids[0], pids[1]);
  EXPECT_EQ(pids[1], pids[2]);
  EXPECT_EQ(pids[3], pids[4]);
  EXPECT_EQ(notes_, (Notes{"dispatch 0.0", "dispatch 1.0", "dispatch 2.0", "start 0.0", "done 0.0",
                           "start 1.0", "done 1.0", "start 2.0", "done 2.0", "dispatch 3.0",
                           "dispatch 4.0", "start 3.0", "done 3.0", "start 4.0", "done 4.0"}));
}

TEST_F(PoolChunks, NoWorkerHasSoManyThatAnotherHasNone) {
  const auto pids = workers_of(run(6, own_pid, {.jobs = 2, .items_per_worker = 16}));
  EXPECT_EQ(std::count(pids.begin(), pids.end(), pids[0]), 3);
  EXPECT_EQ(std::count(pids.begin(), pids.end(), pids[3]), 3);
}

TEST_F(PoolChunks, AShareOfNothingIsRefused) {
  EXPECT_THROW(static_cast<void>(ForkPool(system_, {.items_per_worker = 0})), PoolError);
}

TEST_F(PoolChunks, ALostWorkerLosesOnlyTheItemThatItWasAt) {
  for (std::size_t place = 0; place < 4; ++place) {
    SCOPED_TRACE(place);
    notes_.clear();
    const auto outcomes = run(4,
                              [place](const WorkItem& item) {
                                return pid_unless(item.index == place && item.attempt == 0, die);
                              },
                              {.jobs = 1, .items_per_worker = 4, .max_retries = 1});
    const auto pids = workers_of(outcomes);
    for (std::size_t item = 0; item < 4; ++item) {
      EXPECT_EQ(outcomes[item].attempt, item == place ? 1 : 0);
      // Those before were done together, the others one by one.
      const auto company = item < place ? static_cast<std::ptrdiff_t>(place) : 1;
      EXPECT_EQ(std::count(pids.begin(), pids.end(), pids[item]), company) << item;
    }
    expect_each_told_once();
  }
}

TEST_F(PoolChunks, AnItemThatIsLostEachTimeEndsAsItWouldAlone) {
  const auto outcomes =
      run(3, [](const WorkItem& item) { return pid_unless(item.index == 1, die); },
          {.jobs = 1, .items_per_worker = 3, .max_retries = 1});
  EXPECT_EQ(outcomes[1].status, PoolStatus::WorkerFailed);
  EXPECT_EQ(outcomes[1].attempt, 1);
  EXPECT_EQ(outcomes[1].detail, "worker killed by signal 9 (SIGKILL)");
  EXPECT_EQ(outcomes[0].status, PoolStatus::Completed);
  EXPECT_EQ(outcomes[2].status, PoolStatus::Completed);
  expect_each_told_once();
}

TEST_F(PoolChunks, AnItemThatHangsIsTheOnlyOneThatIsTooLate) {
  const auto outcomes =
      run(4, [](const WorkItem& item) { return pid_unless(item.index == 1, hang); },
          {.jobs = 1, .items_per_worker = 4, .timeout_seconds = 0.5, .max_retries = 1});
  EXPECT_EQ(outcomes[1].status, PoolStatus::WorkerTimedOut);
  EXPECT_EQ(outcomes[1].attempt, 0);
  for (const std::size_t other : {0U, 2U, 3U})
    EXPECT_EQ(outcomes[other].status, PoolStatus::Completed) << outcomes[other].detail;
  expect_each_told_once();
}

TEST_F(PoolChunks, EachItemHasTheWholeLimit) {
  const auto outcomes = run(5,
                            [](const WorkItem&) {
                              ::usleep(500'000);
                              return std::string("x");
                            },
                            {.jobs = 1, .items_per_worker = 5, .timeout_seconds = 2.0});
  for (const PoolOutcome& outcome : outcomes)
    EXPECT_EQ(outcome.status, PoolStatus::Completed) << outcome.detail;
}

TEST_F(PoolChunks, AnExceptionEndsTheWorkerAndCountsOnlyFromAnItemThatWasAlone) {
  const auto outcomes = run(4,
                            [](const WorkItem& item) {
                              if (item.index == 2) throw std::runtime_error("on purpose");
                              return std::to_string(::getpid());
                            },
                            {.jobs = 1, .items_per_worker = 4, .max_retries = 1});
  EXPECT_EQ(outcomes[2].status, PoolStatus::WorkRaised);
  EXPECT_EQ(outcomes[2].attempt, 0);
  EXPECT_EQ(outcomes[2].detail, "on purpose");
  EXPECT_EQ(outcomes[0].pid, outcomes[1].pid);
  EXPECT_NE(outcomes[2].pid, outcomes[1].pid);
  EXPECT_NE(outcomes[3].pid, outcomes[2].pid);
  expect_each_told_once();
}

TEST_F(PoolChunks, WhatTheItemsBeforeLeaveBehindFailsNoItem) {
  const auto outcomes = run(3,
                            [seen = 0](const WorkItem&) mutable {
                              if (++seen > 1) throw std::bad_alloc();
                              return std::string("x");
                            },
                            {.jobs = 1, .items_per_worker = 3});
  for (const PoolOutcome& outcome : outcomes) {
    EXPECT_EQ(outcome.status, PoolStatus::Completed) << outcome.detail;
    EXPECT_EQ(outcome.attempt, 0);
  }
  expect_each_told_once();
}

TEST_F(PoolChunks, AResultThatIsTornEndsOnlyItsOwnItem) {
  // The second result is cut at half of its bytes.
  class Torn : public RealSystemCalls {
   public:
    ssize_t write(int descriptor, const void* bytes, std::size_t size) override {
      if (++writes_ != 2) return RealSystemCalls::write(descriptor, bytes, size);
      static_cast<void>(RealSystemCalls::write(descriptor, bytes, size / 2));
      ::kill(::getpid(), SIGKILL);
      return -1;
    }

   private:
    int writes_ = 0;
  };
  Torn system;
  const auto outcomes = ForkPool(system, {.jobs = 1, .items_per_worker = 3, .max_retries = 1})
                            .run(3, own_pid, noting());
  for (const PoolOutcome& outcome : outcomes) {
    EXPECT_EQ(outcome.status, PoolStatus::Completed) << outcome.detail;
    EXPECT_EQ(outcome.attempt, outcome.index == 1 ? 1 : 0);
  }
}

TEST_F(PoolChunks, ResultsArriveWholeHoweverTheyAreCut) {
  ShortCalls system(7);
  const auto outcomes =
      ForkPool(system, {.jobs = 2, .items_per_worker = 4}).run(8, [](const WorkItem& item) {
        return std::string(50 * item.index, static_cast<char>('a' + item.index));
      });
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    EXPECT_EQ(outcomes[i].status, PoolStatus::Completed) << outcomes[i].detail;
    EXPECT_EQ(outcomes[i].payload, std::string(50 * i, static_cast<char>('a' + i)));
  }
}

TEST_F(PoolChunks, LargeResultsBehindEachOtherFillNoPipeForGood) {
  constexpr std::size_t kBytes = std::size_t{3} << 20;
  const auto outcomes =
      ForkPool(system_, {.jobs = 2, .items_per_worker = 4, .pipe_capacity_bytes = 4096})
          .run(8, [](const WorkItem&) { return std::string(kBytes, 'x'); });
  for (const PoolOutcome& outcome : outcomes)
    EXPECT_EQ(outcome.payload.size(), kBytes) << outcome.detail;
}

TEST_F(PoolChunks, AStopKeepsTheWholeResultsAndCancelsTheRest) {
  PoolCallbacks callbacks = noting();
  callbacks.stop_requested = [this] {
    return std::count(notes_.begin(), notes_.end(), "done 1.0") > 0;
  };
  const auto outcomes =
      ForkPool(system_, {.jobs = 1, .items_per_worker = 5})
          .run(
              7, [](const WorkItem& item) { return pid_unless(item.index == 2, hang); }, callbacks);
  for (std::size_t item = 0; item < 7; ++item) {
    EXPECT_EQ(outcomes[item].status, item < 2 ? PoolStatus::Completed : PoolStatus::Cancelled)
        << item;
  }
  EXPECT_EQ(std::count(notes_.begin(), notes_.end(), "dispatch 5.0"), 0);
  expect_each_told_once();
}

TEST_F(PoolChunks, NothingIsLeftWhicheverCallbackThrows) {
  bool thrown = true;
  for (int nth = 1; thrown; ++nth) {
    ASSERT_LT(nth, 1000);
    notes_.clear();
    PoolCallbacks callbacks;
    int calls = 0;
    const auto count = [&] {
      if (++calls == nth) throw std::runtime_error("on purpose");
    };
    callbacks.dispatch_callback = [&](const WorkItem&) { count(); };
    callbacks.started_callback = [&](const WorkItem&, pid_t) { count(); };
    callbacks.lost_callback = [&](const PoolOutcome&) { count(); };
    callbacks.completed_callback = [&](const PoolOutcome&) { count(); };
    try {
      static_cast<void>(ForkPool(system_, {.jobs = 2, .items_per_worker = 3, .max_retries = 1})
                            .run(
                                6,
                                [](const WorkItem& item) {
                                  return pid_unless(item.index == 1 && item.attempt == 0, die);
                                },
                                callbacks));
      thrown = false;
    } catch (const std::runtime_error& error) {
      ASSERT_STREQ(error.what(), "on purpose");
    }
    ASSERT_FALSE(has_children()) << nth;
  }
}

TEST_F(PoolChunks, AWorkerThatCannotBeForkedAtFirstIsAnnouncedOnce) {
  FailingCalls system(FailingCalls::Call::Fork, EAGAIN, 1, 3);
  const auto outcomes =
      ForkPool(system, {.jobs = 1, .items_per_worker = 3}).run(3, own_pid, noting());
  workers_of(outcomes);
  expect_each_told_once();
}

TEST_F(PoolChunks, AHeldRunStillSeesToWhatWasGivenAway) {
  PoolCallbacks callbacks = noting();
  callbacks.hold_requested = [this] { return !notes_.empty(); };
  const auto outcomes = ForkPool(system_, {.jobs = 1, .items_per_worker = 3, .max_retries = 1})
                            .run(
                                6,
                                [](const WorkItem& item) {
                                  return pid_unless(item.index == 1 && item.attempt == 0, die);
                                },
                                callbacks);
  for (std::size_t item = 0; item < 6; ++item) {
    EXPECT_EQ(outcomes[item].status, item < 3 ? PoolStatus::Completed : PoolStatus::Cancelled)
        << item;
  }
}

// What an item does at each attempt, by its seed.
enum class Doing { Returns, Dies, DiesOnce, Exits, Throws, Hangs, Count };

std::string act_out(Doing doing, const WorkItem& item) {
  switch (doing) {
    case Doing::Dies:
      die();
      break;
    case Doing::DiesOnce:
      if (item.attempt == 0) die();
      break;
    case Doing::Exits:
      ::_exit(0);
    case Doing::Throws:
      throw std::runtime_error("on purpose");
    case Doing::Hangs:
      hang();
    case Doing::Returns:
    case Doing::Count:
      break;
  }
  return "result " + std::to_string(item.index);
}

TEST_F(PoolChunks, EachItemComesToWhatItComesToAlone) {
  for (unsigned seed = 1; seed <= 25; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::vector<Doing> doings(1 + random() % 12, Doing::Returns);
    for (Doing& doing : doings) {
      if (random() % 3 == 0)
        doing = static_cast<Doing>(random() % static_cast<unsigned>(Doing::Count));
    }
    const auto outcomes_of = [&](int items_per_worker) {
      notes_.clear();
      auto outcomes =
          run(doings.size(),
              [&doings](const WorkItem& item) { return act_out(doings[item.index], item); },
              {.jobs = 1 + static_cast<int>(seed % 3),
               .items_per_worker = items_per_worker,
               .timeout_seconds = 0.3,
               .max_retries = 1});
      expect_each_told_once();
      return outcomes;
    };
    const auto alone = outcomes_of(1);
    const auto shared = outcomes_of(5);
    for (std::size_t item = 0; item < doings.size(); ++item) {
      EXPECT_EQ(shared[item].status, alone[item].status) << item;
      EXPECT_EQ(shared[item].attempt, alone[item].attempt) << item;
      EXPECT_EQ(shared[item].payload, alone[item].payload) << item;
      EXPECT_EQ(shared[item].detail, alone[item].detail) << item;
    }
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
