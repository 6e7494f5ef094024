// Goal: what a run that died has left undone is put in order by the next store that is opened,
// once: open attempts end as abandoned, announced submissions are queued. Method: processes that
// are killed in the middle of it, several that open the store at once, and the independent reader
// of invariants.
#include <csignal>

#include <gmock/gmock.h>
#include <sys/wait.h>

#include "tests/hosts/embedded/store/store_fixture.hpp"
#include "tests/support/attempt_rows.hpp"
#include "tests/support/store_invariants.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StoreSweepTest : public StoreTest {
 protected:
  void TearDown() override {
    EXPECT_THAT(store_violations(path_), IsEmpty());
    StoreTest::TearDown();
  }

  // A process that works on a run of its own and is then killed.
  template <typename Work>
  void in_killed_process(const Work& work) {
    const pid_t child = ::fork();
    if (child == 0) {
      try {
        SqliteRunStore store(path_);
        work(store, store.begin_run(start()));
        ::kill(::getpid(), SIGKILL);
      } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
      }
      ::_exit(1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
  }

  // Leaves an attempt in its backtest, an ended one, an open marker, a passing evaluation that was
  // announced and one that was enqueued besides.
  void leave_a_run_undone() {
    in_killed_process([this](RunStore& store, std::int64_t run) {
      AttemptTable& attempts = store.attempts();
      running_attempt(attempts, new_attempt(run, "a", 1));
      attempts.end(running_attempt(attempts, new_attempt(run, "b", 2)), worker_lost(), 4.0);
      attempts.open_marker({run, "a", "all", "{}", "evaluate_expression"}, 1.0);
      store.record_evaluations(run, {passing(1, 1.0), passing(2, 1.0)});
      for (const char* id : {"1-1", "1-2"})
        store.submissions().announce(submission(id));
      store.submissions().enqueue(submission("1-2"));
    });
  }

  [[nodiscard]] NewSubmission submission(const std::string& eval_id) const {
    NewSubmission made;
    made.pool = {"alpha", 1, 3, "data"};
    made.eval_id = eval_id;
    made.payload_json = R"({"eval_id":")" + eval_id + R"("})";
    made.pnl = pnl_;
    made.queued_at = 7.5;
    return made;
  }
  static std::vector<std::string> queued(RunStore& store) {
    std::vector<std::string> ids;
    for (const SubmissionRecord& found : store.submissions().list({{}, SubmissionState::Queued}))
      ids.push_back(found.eval_id + " " + found.payload_json);
    return ids;
  }

  const std::vector<double> pnl_{0.25, -0.5};
};

TEST_F(StoreSweepTest, PutsInOrderWhatADeadRunLeft) {
  leave_a_run_undone();
  SqliteRunStore store(path_);
  EXPECT_THAT(store.swept().interrupted_runs, ElementsAre(1));
  EXPECT_EQ(store.swept().abandoned_attempts, 1);
  EXPECT_EQ(store.swept().completed_submissions, 1);

  const AttemptRecord attempt = store.attempts().find(1).value();
  ASSERT_TRUE(attempt.end.has_value());
  EXPECT_EQ(attempt.end->terminal_disposition, kAbandoned);
  EXPECT_EQ(attempt.end->failure_reason, kAbandonedReason);
  EXPECT_EQ(attempt.end->failure_detail, kAbandonedDetail);
  EXPECT_EQ(attempt.end->failure_category, kAbandonedCategory);
  EXPECT_EQ(attempt.end->classification_source, kAbandonedSource);
  EXPECT_FALSE(attempt.end->backtest_completed);
  EXPECT_EQ(attempt.events.back().step, AttemptStep::Ended);
  EXPECT_EQ(store.attempts().find(2)->end->terminal_disposition, "backtest_failed");
  EXPECT_EQ(store.attempts().open_markers(1), 0);

  EXPECT_THAT(queued(store), ElementsAre(R"(1-2 {"eval_id":"1-2"})", R"(1-1 {"eval_id":"1-1"})"));
  EXPECT_EQ(store.submissions().announced(1), 0);
  const auto members = store.submissions().queued(
      store.submissions().queued_numbers({"alpha", 1, 3, "data"}).at(0), "data");
  ASSERT_TRUE(members.has_value());
  EXPECT_EQ(members->pnl, pnl_);
}

TEST_F(StoreSweepTest, ASecondSweepChangesNothing) {
  leave_a_run_undone();
  { SqliteRunStore store(path_); }
  const std::string before = bytes_of(path_);
  {
    SqliteRunStore store(path_);
    EXPECT_THAT(store.swept().interrupted_runs, IsEmpty());
    EXPECT_EQ(store.swept().abandoned_attempts, 0);
    EXPECT_EQ(store.swept().completed_submissions, 0);
    EXPECT_EQ(store.attempts().find(1)->ignored_ends, 0);
  }
  EXPECT_EQ(bytes_of(path_), before);
}

TEST_F(StoreSweepTest, IsDoneByOneOfTheProcessesThatOpenAtOnce) {
  leave_a_run_undone();
  std::vector<pid_t> children;
  for (int i = 0; i < 6; ++i) {
    children.push_back(::fork());
    if (children.back() != 0) continue;
    try {
      const SqliteRunStore store(path_, {.busy_timeout_milliseconds = 60'000});
      ::_exit(static_cast<int>(store.swept().abandoned_attempts +
                               10 * store.swept().completed_submissions));
    } catch (const StoreError& error) {
      std::fprintf(stderr, "%s\n", error.what());
      ::_exit(100);
    }
  }
  int sum = 0;
  for (const pid_t child : children) {
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    sum += WEXITSTATUS(status);
  }
  EXPECT_EQ(sum, 11);
}

TEST_F(StoreSweepTest, LeavesARunThatGoesOnAlone) {
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  const std::int64_t id = running_attempt(store.attempts(), new_attempt(run));
  store.record_evaluations(run, {passing(1, 1.0)});
  store.submissions().announce(submission("1-1"));
  {
    const SqliteRunStore other(path_);
    EXPECT_EQ(other.swept().abandoned_attempts, 0);
    EXPECT_EQ(other.swept().completed_submissions, 0);
  }
  EXPECT_EQ(store.attempts().find(id)->end, std::nullopt);
  EXPECT_EQ(store.submissions().announced(run), 1);
}

TEST_F(StoreSweepTest, ARunThatEndsTakesItsOpenAttemptsWithItAndNoOthers) {
  {
    SqliteRunStore store(path_);
    const std::int64_t run = store.begin_run(start());
    const std::int64_t other = store.begin_run(start());
    const std::int64_t left = running_attempt(store.attempts(), new_attempt(run));
    const std::int64_t going_on = running_attempt(store.attempts(), new_attempt(other));
    EXPECT_TRUE(store.end_run(run, 9.0, "failed"));
    EXPECT_EQ(store.attempts().find(left)->end->failure_reason, kAbandonedReason);
    EXPECT_EQ(store.attempts().find(going_on)->end, std::nullopt);
    EXPECT_TRUE(store.end_run(other, 9.0, "failed"));
  }
  EXPECT_EQ(SqliteRunStore(path_).swept().abandoned_attempts, 0) << "nothing is left to sweep";
}

TEST_F(StoreSweepTest, AStructureThatStandsAlreadyIsNotQueuedAgain) {
  in_killed_process([this](RunStore& store, std::int64_t run) {
    EvaluationRecord twin = passing(2, 1.0);
    twin.graph_key = passing(1, 1.0).graph_key;
    store.record_evaluations(run, {passing(1, 1.0), twin});
    store.submissions().enqueue(submission("1-1"));
    store.submissions().announce(submission("1-2"));
  });
  SqliteRunStore store(path_);
  EXPECT_EQ(store.swept().completed_submissions, 0);
  EXPECT_EQ(store.submissions().list({}).size(), 1U);
  EXPECT_EQ(store.submissions().announced(1), 0);
}

TEST_F(StoreSweepTest, AnnouncingNeedsAnEvaluation) {
  SqliteRunStore store(path_);
  EXPECT_THAT(error_of([&] { store.submissions().announce(submission("9-9")); }),
              ::testing::HasSubstr("announcing a submission failed: there is no evaluation 9-9"));
}

}  // namespace
}  // namespace varnholt::embedded::test
