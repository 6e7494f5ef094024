// What was recorded survives the death of its writer and a disk that refuses, dead runs are marked
// once and living ones never, and a forked child cannot touch the store. Method: real processes
// that are killed, real limits, a real small file system where the machine allows one.
#include <array>
#include <csignal>
#include <functional>
#include <memory>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "tests/hosts/embedded/store/fault_helpers.hpp"
#include "tests/hosts/embedded/store/store_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// A process that writes to a store until it is killed, and says after each call that it returned.
class Writer {
 public:
  Writer(const std::string& path, const std::function<std::vector<EvaluationRecord>(int)>& batch_of,
         const RunStart& start) {
    EXPECT_EQ(::pipe(ends_.data()), 0);
    pid_ = ::fork();
    if (pid_ != 0) return;
    try {
      SqliteRunStore store(path);
      const std::int64_t run = store.begin_run(start);
      for (int i = 0;; ++i) {
        if (::write(ends_[1], "x", 1) != 1) ::_exit(1);
        store.record_evaluations(run, batch_of(i));
      }
    } catch (...) {
      ::_exit(1);
    }
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  ~Writer() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    ::close(ends_[0]);
    ::close(ends_[1]);
  }
  // Waits until so many calls have returned, the beginning of the run first.
  void await(int calls) {
    char byte = 0;
    for (; calls > 0; --calls) {
      ASSERT_EQ(::read(ends_[0], &byte, 1), 1);
    }
  }

 private:
  std::array<int, 2> ends_{};
  pid_t pid_ = 0;
};

class RunStoreFaults : public StoreTest {
 protected:
  static constexpr int kBatch = 20;
  [[nodiscard]] std::unique_ptr<Writer> writer() const {
    return std::make_unique<Writer>(
        path_, [](int i) { return batch(i * kBatch, kBatch); }, start());
  }
};

TEST_F(RunStoreFaults, WhatWasRecordedSurvivesTheDeathOfItsWriter) {
  std::int64_t run = 0;
  for (int calls = 1; calls <= 40; calls += 3) {
    SCOPED_TRACE(calls);
    std::unique_ptr<Writer> process = writer();
    process->await(calls);
    process.reset();
    ++run;

    SqliteRunStore store(path_);
    EXPECT_THAT(store.interrupted_runs(), ElementsAre(run));
    const std::int64_t count = store.evaluation_count(run);
    EXPECT_GE(count, (calls - 1) * kBatch) << "a batch whose call had returned is missing";
    EXPECT_EQ(count % kBatch, 0) << "a batch is torn";
    const std::optional<RunRecord> record = store.find_run(run);
    EXPECT_EQ(record->terminal_reason, kInterrupted);
    EXPECT_EQ(record->ended_at, count == 0 ? 1000.5 : 2000.0 + static_cast<double>(count - 1));
  }
  EXPECT_EQ(integrity(path_), "ok");
}

TEST_F(RunStoreFaults, AnInterruptedRunIsMarkedOnce) {
  std::unique_ptr<Writer> process = writer();
  process->await(2);
  process.reset();
  std::optional<double> ended;
  {
    SqliteRunStore store(path_);
    EXPECT_THAT(store.interrupted_runs(), ElementsAre(1));
    ended = store.find_run(1)->ended_at;
  }
  SqliteRunStore store(path_);
  EXPECT_THAT(store.interrupted_runs(), IsEmpty());
  EXPECT_EQ(store.find_run(1)->ended_at, ended);
  EXPECT_FALSE(store.end_run(1, 9e9, "late"));
}

TEST_F(RunStoreFaults, ARunOfALivingProcessIsLeftAlone) {
  std::unique_ptr<Writer> process = writer();
  process->await(2);
  {
    SqliteRunStore store(path_);
    EXPECT_THAT(store.interrupted_runs(), IsEmpty());
    EXPECT_FALSE(store.find_run(1)->ended_at.has_value());
    // Nor does this process take its own for dead.
    EXPECT_EQ(store.begin_run(start()), 2);
    EXPECT_THAT(SqliteRunStore(path_).interrupted_runs(), IsEmpty());
  }
  process.reset();
  EXPECT_THAT(SqliteRunStore(path_).interrupted_runs(), ElementsAre(1));
}

TEST_F(RunStoreFaults, ARunOfAnEarlierBootIsMarkedAndOneOfAnotherNamespaceIsNot) {
  {
    SqliteRunStore store(path_);
    store.begin_run(start());
    store.begin_run(start());
  }
  SqliteDatabase(path_, 0).execute(
      "UPDATE runs SET boot_id = 'an earlier one' WHERE id = 1;"
      "UPDATE runs SET pid_namespace = 'pid:[1]' WHERE id = 2",
      "moving them");
  EXPECT_THAT(SqliteRunStore(path_).interrupted_runs(), ElementsAre(1));
}

TEST_F(RunStoreFaults, AForkedChildCannotTouchTheStore) {
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  const int status = in_process([&] {
    const std::vector<std::function<void()>> calls = {
        [&] { store.begin_run(start()); },
        [&] { store.record_evaluations(run, batch(1, 1)); },
        [&] { store.record_evaluations(run, {}); },
        [&] { store.record_metrics(run, "{}"); },
        [&] { store.end_run(run, 1, "x"); },
        [&] { static_cast<void>(store.find_run(run)); },
        [&] { static_cast<void>(store.runs()); },
        [&] { static_cast<void>(store.best_signals(run, 1)); },
        [&] { static_cast<void>(store.failure_counts(run)); },
        [&] { static_cast<void>(store.evaluation_count(run)); },
        [&] { static_cast<void>(store.metrics(run)); },
        [&] { store.record_holdout("1-1", "{}"); },
        [&] { store.record_figures("1-1", {}); },
        [&] { store.record_price_days(run, {}); },
        [&] { store.record_luck(run, "{}", {}); },
        [&] { static_cast<void>(store.trials(run)); },
        [&] { static_cast<void>(store.trial_count(run)); },
        [&] { static_cast<void>(store.find_evaluation("1-1")); },
        [&] { static_cast<void>(store.submissions().list({})); },
        [&] {
          store.submissions().enqueue({{}, "1-1", {}, "{}", {}, 0.0});
        },
        [&] { store.under_lock("locking", [] { return RunStore::LockedWork::Keep; }); },
    };
    for (std::size_t i = 0; i < calls.size(); ++i) {
      EXPECT_THAT(error_of(calls[i]), HasSubstr("a worker must hand its result to its parent"))
          << "call " << i;
    }
  });
  EXPECT_EQ(status, 0);
  store.record_evaluations(run, batch(1, 3));
  EXPECT_EQ(store.evaluation_count(run), 3);
}

TEST_F(RunStoreFaults, ACopyOfTheStoreThatAChildDestroysDoesNoHarm) {
  auto store = std::make_unique<SqliteRunStore>(path_);
  const std::int64_t run = store->begin_run(start());
  store->record_evaluations(run, batch(1, 3));
  EXPECT_EQ(in_process([&] { store.reset(); }), 0);
  store->record_evaluations(run, batch(4, 3));
  EXPECT_EQ(store->evaluation_count(run), 6);
  store.reset();
  EXPECT_EQ(SqliteRunStore(path_).evaluation_count(run), 6);
  EXPECT_EQ(integrity(path_), "ok");
}

TEST_F(RunStoreFaults, ALockedStoreIsWaitedForAndThenNamed) {
  SqliteRunStore store(path_, {.busy_timeout_milliseconds = 30});
  const std::int64_t run = store.begin_run(start());
  {
    SqliteDatabase other(path_, 0);
    SqliteTransaction held(other, "holding the lock");
    for (const std::string& text : {error_of([&] { store.record_evaluations(run, batch(1, 1)); }),
                                    error_of([&] { store.record_metrics(run, "{}"); }),
                                    error_of([&] { store.end_run(run, 1, "x"); }),
                                    error_of([&] { store.begin_run(start()); })}) {
      EXPECT_THAT(text, HasSubstr("database is locked, for more than 0.03 seconds; "));
    }
    EXPECT_EQ(store.evaluation_count(run), 0) << "reading goes on";
  }
  store.record_evaluations(run, batch(1, 1));
  EXPECT_EQ(store.evaluation_count(run), 1);
}

TEST_F(RunStoreFaults, AStoreLockedForAMomentIsWaitedFor) {
  SqliteRunStore store(path_, {.busy_timeout_milliseconds = 60'000});
  const std::int64_t run = store.begin_run(start());
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const pid_t holder = ::fork();
  if (holder == 0) {
    SqliteDatabase other(path_, 0);
    SqliteTransaction held(other, "holding the lock");
    if (::write(ends[1], "x", 1) != 1) ::_exit(1);
    ::usleep(100'000);
    held.commit();
    ::_exit(0);
  }
  char byte = 0;
  ASSERT_EQ(::read(ends[0], &byte, 1), 1);
  store.record_evaluations(run, batch(1, 1));
  EXPECT_EQ(store.evaluation_count(run), 1);
  ::waitpid(holder, nullptr, 0);
  ::close(ends[0]);
  ::close(ends[1]);
}

// Records batches until the disk refuses, and returns the error; the store must keep what it had.
std::string fill(RunStore& store, std::int64_t run, std::int64_t& recorded) {
  for (;;) {
    std::vector<EvaluationRecord> records(20);
    for (EvaluationRecord& record : records) {
      record.candidate_number = recorded++;
      record.statistics_json = std::string(500, 's');
    }
    try {
      store.record_evaluations(run, records);
    } catch (const StoreError& error) {
      recorded -= 20;
      return error.what();
    }
    if (recorded > 1'000'000) return "the disk took everything";
  }
}

TEST_F(RunStoreFaults, AFileSizeLimitIsNamedAndLosesNothingBefore) {
  const int status = in_process([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    SqliteRunStore store(path_);
    const std::int64_t run = store.begin_run(start());
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{1 << 20, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    std::int64_t recorded = 0;
    const std::string text = fill(store, run, recorded);
    EXPECT_THAT(text, HasSubstr("recording evaluations failed: disk I/O error"));
    EXPECT_THAT(text, HasSubstr("the disk refused; check its free space, quotas, limits of file"));
    EXPECT_GT(recorded, 0);
    EXPECT_EQ(store.evaluation_count(run), recorded);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    store.record_evaluations(run, batch(recorded, 10));
    EXPECT_EQ(store.evaluation_count(run), recorded + 10);
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(integrity(path_), "ok");
}

TEST_F(RunStoreFaults, AFullDiskIsNamedAndLosesNothingBefore) {
  const int status = in_process([&] {
    if (!mount_small_file_system(folder_.string())) ::_exit(kNotPossible);
    std::int64_t recorded = 0;
    std::int64_t run = 0;
    const std::string ballast = (folder_ / "ballast").string();
    {
      SqliteRunStore store(path_);
      run = store.begin_run(start());
      std::ofstream(ballast) << std::string(100'000, 'b');
      const std::string text = fill(store, run, recorded);
      EXPECT_THAT(text, HasSubstr("recording evaluations failed: database or disk is full; the "
                                  "disk is full; free some space"));
      EXPECT_GT(recorded, 0);
      EXPECT_EQ(store.evaluation_count(run), recorded);
      std::filesystem::remove(ballast);
      store.record_evaluations(run, batch(recorded, 5));
    }
    EXPECT_EQ(integrity(path_), "ok");
    EXPECT_EQ(SqliteRunStore(path_).evaluation_count(run), recorded + 5);
  });
  if (status == kNotPossible) GTEST_SKIP() << "this machine lets no user mount a file system";
  EXPECT_EQ(status, 0);
}

TEST_F(RunStoreFaults, ANewStoreThatFindsNoSpaceLeavesNoFile) {
  const int status = in_process([&] {
    if (!mount_small_file_system(folder_.string())) ::_exit(kNotPossible);
    std::ofstream(folder_ / "ballast") << std::string(500'000, 'b');
    EXPECT_THROW(SqliteRunStore store(path_), StoreDiskError);
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_FALSE(std::filesystem::exists(path_ + "-wal"));
    EXPECT_FALSE(std::filesystem::exists(path_ + "-journal"));
    // A file that was there is not this one's to remove.
    std::ofstream(path_).flush();
    EXPECT_THROW(SqliteRunStore store(path_), StoreDiskError);
    EXPECT_TRUE(std::filesystem::exists(path_));
  });
  if (status == kNotPossible) GTEST_SKIP() << "this machine lets no user mount a file system";
  EXPECT_EQ(status, 0);
}

// Each of them would go on writing where nobody looks, or damage what somebody else writes.
class RunStoreMoved : public RunStoreFaults {
 protected:
  void expect_refused(const std::function<void()>& change, const char* told) {
    SqliteRunStore store(path_);
    const std::int64_t run = store.begin_run(start());
    store.record_evaluations(run, batch(1, 3));
    change();
    for (const std::string& text : {error_of([&] { store.record_evaluations(run, batch(4, 1)); }),
                                    error_of([&] { store.begin_run(start()); }),
                                    error_of([&] { store.end_run(run, 1, "x"); })}) {
      EXPECT_THAT(text, HasSubstr(told));
    }
    EXPECT_EQ(store.evaluation_count(run), 3);
  }
  [[nodiscard]] std::string other() const { return (folder_ / "other.db").string(); }
  static constexpr const char* kMoved = "was moved, removed or replaced while it was in use";
};

TEST_F(RunStoreMoved, AMovedStoreIsNoticedAndHasAllThatWasRecorded) {
  expect_refused([&] { std::filesystem::rename(path_, other()); }, kMoved);
  EXPECT_EQ(SqliteRunStore(other()).evaluation_count(1), 3);
}

TEST_F(RunStoreMoved, ARemovedStoreIsNoticed) {
  expect_refused([&] { std::filesystem::remove(path_); }, kMoved);
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(RunStoreMoved, AReplacedStoreIsNoticedAndTheOtherOneLeftAsItIs) {
  {
    SqliteRunStore replacement(other());
    replacement.record_evaluations(replacement.begin_run(start()), batch(1, 7));
  }
  const std::string bytes = bytes_of(other());
  expect_refused([&] { std::filesystem::rename(other(), path_); }, kMoved);
  EXPECT_EQ(bytes_of(path_), bytes);
  EXPECT_EQ(SqliteRunStore(path_).evaluation_count(1), 7);
  EXPECT_EQ(integrity(path_), "ok");
}

TEST_F(RunStoreMoved, ALogThatIsRemovedIsNoticedAndNothingIsLost) {
  expect_refused([&] { std::filesystem::remove(path_ + "-wal"); }, kMoved);
  EXPECT_EQ(SqliteRunStore(path_).evaluation_count(1), 3);
}

TEST_F(RunStoreMoved, ASecondNameIsNoticed) {
  expect_refused([&] { std::filesystem::create_hard_link(path_, other()); },
                 "the file has 2 names (hard links)");
  EXPECT_THAT(error_of([&] { SqliteRunStore store(other()); }), HasSubstr("has 2 names"));
  std::filesystem::remove(other());
  EXPECT_EQ(SqliteRunStore(path_).evaluation_count(1), 3);
}

TEST_F(RunStoreFaults, TheFirstErrorSinceASuccessIsKept) {
  SqliteRunStore store(path_, {.busy_timeout_milliseconds = 10});
  const std::int64_t run = store.begin_run(start());
  EXPECT_EQ(store.first_failure(), nullptr);
  {
    SqliteDatabase other(path_, 0);
    SqliteTransaction held(other, "holding the lock");
    EXPECT_THROW(store.record_metrics(run, "{}"), StoreBusyError);
    EXPECT_THROW(store.end_run(run, 1, "x"), StoreBusyError);
    EXPECT_THAT(error_of([&] { std::rethrow_exception(store.first_failure()); }),
                HasSubstr("recording metrics failed"));
  }
  store.record_metrics(run, "{}");
  EXPECT_EQ(store.first_failure(), nullptr);
}

TEST_F(RunStoreFaults, TheNameOfAFileThatAStoreKeepsIsNoStore) {
  { SqliteRunStore store(path_); }
  EXPECT_THAT(error_of([&] { SqliteRunStore store(path_ + "-wal"); }),
              HasSubstr("keeps beside itself; name that one"));
  EXPECT_FALSE(std::filesystem::exists(path_ + "-wal"));
}

TEST_F(RunStoreFaults, AStoreThatCannotBeWrittenIsRefused) {
  namespace fs = std::filesystem;
  {
    SqliteRunStore store(path_);
  }
  fs::permissions(path_, static_cast<fs::perms>(0444));
  // A folder that may not be entered, not be written, and one in which only the file may not.
  for (const int folder_permissions : {0700, 0755, 0777}) {
    SCOPED_TRACE(folder_permissions);
    fs::permissions(folder_, static_cast<fs::perms>(folder_permissions));
    const int status = in_process([&] {
      // The superuser may write everything; nobody may not.
      if (::geteuid() == 0 && ::setresuid(65534, 65534, 65534) != 0) ::_exit(kNotPossible);
      const std::string text = error_of([&] { SqliteRunStore store(path_); });
      EXPECT_THAT(text, HasSubstr("store " + path_ + ": "));
      EXPECT_THAT(text, HasSubstr("; check"));
      EXPECT_THAT(text, HasSubstr("folder"));
    });
    if (status == kNotPossible) GTEST_SKIP() << "this user cannot become another one";
    EXPECT_EQ(status, 0);
  }
}

TEST_F(RunStoreFaults, ADamagedFileIsNamed) {
  {
    SqliteRunStore store(path_);
    const std::int64_t run = store.begin_run(start());
    store.record_evaluations(run, batch(1, 500));
  }
  std::fstream file(path_, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(4096);
  file << std::string(16 * 4096, '\xff');
  file.close();
  EXPECT_THAT(error_of([&] {
                SqliteRunStore store(path_);
                static_cast<void>(store.best_signals(1, 1000));
              }),
              HasSubstr("the file is damaged; move it away"));
}

}  // namespace
}  // namespace varnholt::embedded::test
