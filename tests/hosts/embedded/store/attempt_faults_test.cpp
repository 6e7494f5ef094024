// Goal: whatever stops an attempt's step (a full disk, a limit, a lock, a kill), the step is in the
// store whole or not at all, the error says why, and the store goes on or is put in order.
// Method: real limits, locks and small disks; writers that are killed at random moments, seeds
// printed; the independent reader of invariants after each.
#include <csignal>
#include <random>

#include <gmock/gmock.h>
#include <sys/resource.h>

#include "tests/hosts/embedded/store/fault_helpers.hpp"
#include "tests/hosts/embedded/store/store_fixture.hpp"
#include "tests/support/attempt_rows.hpp"
#include "tests/support/store_invariants.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class AttemptFaults : public StoreTest {
 protected:
  // Lives of attempts until the disk refuses, and what it says. `open` is the attempt that was left
  // open by that; 0 where the refused call was the creation.
  static std::string live_until_refused(AttemptTable& attempts, std::int64_t run,
                                        std::int64_t& open) {
    NewAttemptRow attempt = new_attempt(run);
    attempt.graph_json = std::string(3000, 'g');
    for (int i = 0; i < 100'000; ++i) {
      attempt.rotation_identifier = "candidate-" + std::to_string(i);
      open = 0;
      try {
        open = attempts.create(attempt, 1.0);
        attempts.mark(open, AttemptStep::Dispatched, 2.0);
        attempts.mark(open, AttemptStep::BacktestStarted, 3.0);
        attempts.end(open, worker_lost(), 4.0);
      } catch (const StoreError& error) {
        return error.what();
      }
    }
    return "the disk took everything";
  }
  // Ends what was left open, as the search would.
  static void end_open(AttemptTable& attempts, std::int64_t open) {
    if (open == 0) return;
    AttemptEndRow end = worker_lost();
    if (attempts.find(open)->events.size() < 3U) {
      end.terminal_disposition = "resource_blocked";
      end.failure_category = "resource";
    }
    EXPECT_TRUE(attempts.end(open, end, 9.0));
  }
};

TEST_F(AttemptFaults, AFileSizeLimitLeavesNoHalfStep) {
  const int status = in_process([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    SqliteRunStore store(path_);
    const std::int64_t run = store.begin_run(start());
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{1 << 20, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    std::int64_t open = 0;
    EXPECT_THAT(live_until_refused(store.attempts(), run, open),
                AllOf(HasSubstr("attempt failed: disk I/O error"), HasSubstr("the disk refused")));
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_THAT(store_violations(path_), IsEmpty());
    end_open(store.attempts(), open);
    EXPECT_TRUE(store.end_run(run, 10.0, "failed"));
  });
  EXPECT_EQ(status, 0);
  EXPECT_THAT(store_violations(path_), IsEmpty());
}

TEST_F(AttemptFaults, AFullDiskLeavesNoHalfStep) {
  const int status = in_process([&] {
    if (!mount_small_file_system(folder_.string())) ::_exit(kNotPossible);
    SqliteRunStore store(path_);
    const std::int64_t run = store.begin_run(start());
    const std::string ballast = (folder_ / "ballast").string();
    std::ofstream(ballast) << std::string(100'000, 'b');
    std::int64_t open = 0;
    EXPECT_THAT(
        live_until_refused(store.attempts(), run, open),
        AllOf(HasSubstr("attempt failed: database or disk is full"), HasSubstr("free some space")));
    std::filesystem::remove(ballast);
    EXPECT_THAT(store_violations(path_), IsEmpty());
    end_open(store.attempts(), open);
    EXPECT_TRUE(store.end_run(run, 10.0, "failed"));
    EXPECT_THAT(store_violations(path_), IsEmpty());
  });
  if (status == kNotPossible) GTEST_SKIP() << "this machine lets no user mount a file system";
  EXPECT_EQ(status, 0);
}

TEST_F(AttemptFaults, ALockedStoreIsWaitedForNoLongerThanItMay) {
  SqliteRunStore store(path_, {.busy_timeout_milliseconds = 30});
  AttemptTable& attempts = store.attempts();
  const std::int64_t run = store.begin_run(start());
  const std::int64_t id = attempts.create(new_attempt(run), 1.0);
  {
    SqliteDatabase other(path_, 0);
    const SqliteTransaction held(other, "holding the lock");
    const NewMarker marker{run, "k", "all", "{}", "evaluate_expression"};
    EXPECT_THROW(attempts.create(new_attempt(run, "k", 1), 1.0), StoreBusyError);
    EXPECT_THROW(attempts.mark(id, AttemptStep::Dispatched, 2.0), StoreBusyError);
    EXPECT_THROW(attempts.end(id, worker_lost(), 2.0), StoreBusyError);
    EXPECT_THROW(attempts.open_marker(marker, 1.0), StoreBusyError);
    EXPECT_EQ(attempts.list({}).size(), 1U) << "reading goes on";
    attempts.sync();
  }
  // The same calls work later, and once.
  attempts.mark(id, AttemptStep::Dispatched, 2.0);
  attempts.mark(id, AttemptStep::BacktestStarted, 3.0);
  EXPECT_TRUE(attempts.end(id, worker_lost(), 4.0));
  EXPECT_EQ(attempts.find(id)->events.size(), 4U);
  EXPECT_EQ(attempts.find(id)->ignored_ends, 0);
  EXPECT_THAT(store_violations(path_), IsEmpty());
}

TEST_F(AttemptFaults, AForkedChildCannotTouchThem) {
  SqliteRunStore store(path_);
  AttemptTable& attempts = store.attempts();
  const std::int64_t run = store.begin_run(start());
  const std::int64_t id = attempts.create(new_attempt(run), 1.0);
  const int status = in_process([&] {
    const auto refused = HasSubstr("a worker must hand its result to its parent");
    EXPECT_THAT(error_of([&] { attempts.create(new_attempt(run, "k", 1), 1.0); }), refused);
    EXPECT_THAT(error_of([&] { attempts.mark(id, AttemptStep::Dispatched, 1.0); }), refused);
    EXPECT_THAT(error_of([&] { attempts.end(id, worker_lost(), 1.0); }), refused);
    EXPECT_THAT(error_of([&] { attempts.close_marker(1, 1.0); }), refused);
    EXPECT_THAT(error_of([&] { attempts.sync(); }), refused);
    EXPECT_THAT(error_of([&] { static_cast<void>(attempts.find(id)); }), refused);
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(attempts.find(id)->events.size(), 1U);
}

// Lives on its own run until it is killed: creates, marks, ends, notes, records, announces.
void live_until_killed(const std::string& path, const RunStart& start) {
  SqliteRunStore store(path);
  const std::int64_t run = store.begin_run(start);
  AttemptTable& attempts = store.attempts();
  const std::vector<double> pnl(50, 0.5);
  for (std::int64_t i = 1;; ++i) {
    const std::string key = "key" + std::to_string(run) + "-" + std::to_string(i);
    const std::int64_t marker =
        attempts.open_marker({run, key, "all", "{}", "evaluate_expression"}, 1.0);
    const std::int64_t id =
        running_attempt(attempts, new_attempt(run, key, static_cast<int>(i % 4)));
    EvaluationRecord record;
    record.candidate_number = i;
    record.graph_key = key;
    record.passed = i % 2 == 0;
    record.statistics_json = "{}";
    AttemptEndRow end = worker_lost();
    end.terminal_disposition = record.passed ? "passed" : "rejected";
    end.classification_source = "parent_recorder";
    end.eval_id = eval_id_of(run, i);
    const NewSubmission submission{{"alpha", 1, 3, "data"}, *end.eval_id, {}, "{}", pnl, 1.0};
    store.under_lock("recording", [&] {
      store.record_evaluations(run, {record});
      attempts.end(id, end, 4.0);
      if (record.passed) store.submissions().announce(submission);
      return RunStore::LockedWork::Keep;
    });
    attempts.close_marker(marker, 5.0);
    if (record.passed) store.submissions().enqueue(submission);
    if (i % 16 == 0) attempts.sync();
  }
}

TEST_F(AttemptFaults, AWriterThatIsKilledAtAnyMomentLeavesWhatTheNextStorePutsInOrder) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::int64_t abandoned = 0;
  for (int cycle = 1; cycle <= 40; ++cycle) {
    const pid_t child = ::fork();
    if (child == 0) {
      try {
        live_until_killed(path_, start());
      } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
      }
      ::_exit(1);
    }
    ::usleep(std::uniform_int_distribution<useconds_t>(0, 60'000)(random));
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself, with " << WEXITSTATUS(status);
    {
      SqliteRunStore store(path_);
      EXPECT_LE(store.swept().abandoned_attempts, 1);
      abandoned += store.swept().abandoned_attempts;
    }
    ASSERT_THAT(store_violations(path_), IsEmpty()) << "cycle " << cycle;
    const SqliteRunStore again(path_);
    ASSERT_EQ(again.swept().abandoned_attempts, 0);
    ASSERT_EQ(again.swept().completed_submissions, 0);
  }
  RecordProperty("abandoned_attempts", static_cast<int>(abandoned));
}

}  // namespace
}  // namespace varnholt::embedded::test
