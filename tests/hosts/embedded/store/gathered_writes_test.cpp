// What a store gathers is in its file when it was put there and not before, all of it or nothing; a
// call that fails takes nothing with it but itself, and the store stays usable.
// Method: a second reader beside the writer, processes that are killed, a limit of file size.
#include "hosts/embedded/store/gathered_writes.hpp"

#include <csignal>

#include <gmock/gmock.h>
#include <sys/resource.h>

#include "tests/hosts/embedded/store/fault_helpers.hpp"
#include "tests/hosts/embedded/store/store_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::HasSubstr;

class GatheredWritesTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    store_ = std::make_unique<SqliteRunStore>(path_);
    run_ = store_->begin_run(start());
  }
  void TearDown() override {
    store_.reset();
    EXPECT_EQ(integrity(path_), "ok");
    StoreTest::TearDown();
  }

  [[nodiscard]] GatheredWrites& gathered() const { return store_->gathered_writes(); }
  void record(std::int64_t number) const { store_->record_evaluations(run_, batch(number, 1)); }
  // What anybody else sees.
  [[nodiscard]] std::int64_t seen() const {
    return SqliteDatabase(path_, 1000).query_integer("SELECT count(*) FROM evaluations", "looking");
  }
  [[nodiscard]] std::int64_t closed_markers_seen() const {
    return SqliteDatabase(path_, 1000)
        .query_integer("SELECT count(closed_at) FROM evaluation_markers", "looking");
  }
  [[nodiscard]] bool is_locked() const {
    return error_of([&] { SqliteDatabase(path_, 0).execute("BEGIN IMMEDIATE", "locking"); }) !=
           "no error";
  }

  std::unique_ptr<SqliteRunStore> store_;
  std::int64_t run_ = 0;
};

TEST_F(GatheredWritesTest, AreInTheFileWhenTheyWerePutThere) {
  gathered().begin_gathering();
  EXPECT_FALSE(is_locked()) << "nothing was written yet";
  record(1);
  const std::int64_t marker = store_->attempts().open_marker({run_, "k", "all", "{}", "p"}, 1.0);
  record(2);
  EXPECT_EQ(store_->evaluation_count(run_), 2) << "the store itself reads what it has gathered";
  EXPECT_EQ(seen(), 0);
  EXPECT_TRUE(is_locked());

  gathered().put_in_file();
  EXPECT_EQ(seen(), 2);
  EXPECT_FALSE(is_locked());
  gathered().put_in_file();

  store_->attempts().close_marker(marker, 2.0);
  EXPECT_EQ(closed_markers_seen(), 0) << "a single statement waits as well";
  record(3);
  EXPECT_EQ(seen(), 2);
  gathered().end_gathering();
  EXPECT_EQ(seen(), 3);
  EXPECT_EQ(closed_markers_seen(), 1);
  record(4);
  EXPECT_EQ(seen(), 4) << "each call by itself again";
}

TEST_F(GatheredWritesTest, ACallThatFailsTakesNothingWithItButItself) {
  gathered().begin_gathering();
  record(1);
  // The second of the two is there already.
  std::vector<EvaluationRecord> again = batch(2, 1);
  again.push_back(passing(1, 1.0));
  EXPECT_THAT(error_of([&] { store_->record_evaluations(run_, again); }), HasSubstr("failed"));
  EXPECT_THAT(error_of([&] { store_->attempts().mark(99, AttemptStep::Dispatched, 1.0); }),
              HasSubstr("no open attempt 99"));
  store_->under_lock("trying", [&] {
    record(3);
    return RunStore::LockedWork::Undo;
  });
  EXPECT_EQ(store_->evaluation_count(run_), 1);
  record(4);
  gathered().end_gathering();
  EXPECT_EQ(seen(), 2);
}

TEST_F(GatheredWritesTest, GoToTheDiskWithASync) {
  gathered().begin_gathering();
  record(1);
  store_->attempts().sync();
  EXPECT_EQ(seen(), 1);
  gathered().end_gathering();
}

TEST_F(GatheredWritesTest, SurviveAKillOnceTheyWerePutThere) {
  const int status = in_process([&] {
    SqliteRunStore own(path_);
    own.gathered_writes().begin_gathering();
    own.record_evaluations(run_, batch(1, 3));
    own.gathered_writes().put_in_file();
    own.record_evaluations(run_, batch(4, 3));
    ::raise(SIGKILL);
  });
  EXPECT_EQ(status, -SIGKILL);
  EXPECT_EQ(seen(), 3);
  record(7);
  EXPECT_EQ(seen(), 4) << "the lock died with its holder";
}

TEST_F(GatheredWritesTest, ADiskThatRefusesIsToldWhereTheyArePutThere) {
  const int status = in_process([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    SqliteRunStore own(path_);
    own.gathered_writes().begin_gathering();
    own.record_evaluations(run_, batch(1, 2));
    own.gathered_writes().put_in_file();
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlim_t before = std::exchange(limit.rlim_cur, 4096);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    own.record_evaluations(run_, batch(3, 200));
    EXPECT_THAT(error_of([&] { own.gathered_writes().put_in_file(); }),
                HasSubstr("putting what was gathered in the file failed"));
    EXPECT_THAT([&] { std::rethrow_exception(own.first_failure()); },
                ::testing::Throws<StoreDiskError>());
    limit.rlim_cur = before;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(own.evaluation_count(run_), 2) << "what was not put there is lost";
    own.record_evaluations(run_, batch(300, 1));
    own.gathered_writes().end_gathering();
    own.record_evaluations(run_, batch(301, 1));
    EXPECT_THAT([&] { std::rethrow_exception(own.first_failure()); },
                ::testing::Throws<StoreDiskError>())
        << "what is written later does not bring back what was lost";
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(seen(), 4);
}

TEST_F(GatheredWritesTest, WhatCannotBeCommittedHoldsNoLock) {
  const std::string path = (folder_ / "other.db").string();
  SqliteDatabase database(path, 0);
  database.execute(
      "PRAGMA journal_mode = WAL; PRAGMA foreign_keys = ON; CREATE TABLE parents (id INTEGER "
      "PRIMARY KEY); CREATE TABLE children (parent REFERENCES parents DEFERRABLE INITIALLY "
      "DEFERRED)",
      "making it");
  SqliteStatement insert(database, "INSERT INTO children VALUES (1)", "inserting");
  database.begin_gathering();
  EXPECT_EQ(SqliteUse(insert).change(), 1);
  EXPECT_THAT(error_of([&] { database.put_in_file(); }), HasSubstr("FOREIGN KEY"));
  EXPECT_FALSE(database.is_in_transaction());
}

TEST_F(GatheredWritesTest, AreNotForAForkedChild) {
  gathered().begin_gathering();
  record(1);
  const int status = in_process([&] {
    EXPECT_THAT(error_of([&] { gathered().put_in_file(); }), HasSubstr("it was opened by process"));
    EXPECT_THAT(error_of([&] { gathered().end_gathering(); }), HasSubstr("opened by process"));
    EXPECT_THAT(error_of([&] { gathered().begin_gathering(); }), HasSubstr("opened by process"));
  });
  EXPECT_EQ(status, 0);
  gathered().end_gathering();
  EXPECT_EQ(seen(), 1);
}

TEST_F(GatheredWritesTest, ALockOfAnotherProcessIsToldByTheFirstWrite) {
  store_.reset();
  store_ = std::make_unique<SqliteRunStore>(path_, StoreOptions{.busy_timeout_milliseconds = 0});
  SqliteDatabase other(path_, 0);
  other.execute("BEGIN IMMEDIATE", "locking");
  gathered().begin_gathering();
  EXPECT_THAT([&] { record(1); }, ::testing::Throws<StoreBusyError>());
  gathered().put_in_file();
  other.execute("ROLLBACK", "unlocking");
  record(2);
  gathered().end_gathering();
  EXPECT_EQ(seen(), 1);
}

}  // namespace
}  // namespace varnholt::embedded::test
