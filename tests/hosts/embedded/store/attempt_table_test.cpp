// Goal: an attempt is stored whole, its steps in their order, and it ends once.
// Method: each call on a real file, read back over another connection; the independent reader of
// invariants at the end of each test.
#include "hosts/embedded/store/attempt_table.hpp"

#include <gmock/gmock.h>

#include "tests/hosts/embedded/store/store_fixture.hpp"
#include "tests/support/attempt_rows.hpp"
#include "tests/support/store_invariants.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class AttemptTableTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    store_.emplace(path_);
    run_ = store_->begin_run(start());
  }
  void TearDown() override {
    EXPECT_THAT(store_violations(path_), IsEmpty());
    StoreTest::TearDown();
  }

  AttemptTable& attempts() { return store_->attempts(); }
  [[nodiscard]] AttemptRecord stored(std::int64_t id) const {
    return SqliteRunStore(path_).attempts().find(id).value();
  }
  [[nodiscard]] std::vector<std::int64_t> listed(const AttemptFilter& filter) {
    std::vector<std::int64_t> ids;
    for (const AttemptRecord& attempt : attempts().list(filter))
      ids.push_back(attempt.id);
    return ids;
  }

  std::optional<SqliteRunStore> store_;
  std::int64_t run_ = 0;
};

TEST_F(AttemptTableTest, KeepsEveryColumnAndTheTimeOfEveryStep) {
  const std::int64_t id = running_attempt(attempts(), new_attempt(run_, "key7", 7));
  AttemptEndRow end = worker_lost();
  end.backtest_completed = true;
  end.generated_stats_json = R"({"sharpe":1})";
  end.candidate_stats_json = R"({"sharpe":2})";
  end.per_column_inventory_json = R"({"sharpe":"present"})";
  end.threshold_gate_json = R"({"verdict":"blocked"})";
  end.eval_id = std::nullopt;
  EXPECT_TRUE(attempts().end(id, end, 4.5));

  const AttemptRecord read = stored(id);
  const NewAttemptRow told = new_attempt(run_, "key7", 7);
  EXPECT_EQ(read.start.run, run_);
  EXPECT_EQ(read.start.source_path, told.source_path);
  EXPECT_EQ(read.start.graph_key, "key7");
  EXPECT_EQ(read.start.graph_json, told.graph_json);
  EXPECT_EQ(read.start.algorithm, "genetic");
  EXPECT_EQ(read.start.rotation_identifier, "candidate-7");
  EXPECT_EQ(read.start.era_number, 3);
  EXPECT_EQ(read.start.market_id, 1);
  EXPECT_EQ(read.start.data_shape_json, told.data_shape_json);
  EXPECT_EQ(read.start.expected_columns_json, told.expected_columns_json);
  EXPECT_EQ(read.start.eval_type, "signal");
  ASSERT_TRUE(read.end.has_value());
  EXPECT_EQ(read.end->terminal_disposition, "backtest_failed");
  EXPECT_TRUE(read.end->backtest_completed);
  EXPECT_EQ(read.end->generated_stats_json, R"({"sharpe":1})");
  EXPECT_EQ(read.end->candidate_stats_json, R"({"sharpe":2})");
  EXPECT_EQ(read.end->stats_construction_blocker_json, end.stats_construction_blocker_json);
  EXPECT_EQ(read.end->per_column_inventory_json, R"({"sharpe":"present"})");
  EXPECT_EQ(read.end->threshold_gate_json, R"({"verdict":"blocked"})");
  EXPECT_EQ(read.end->failure_category, "execution");
  EXPECT_EQ(read.end->failure_reason, "worker_failed");
  EXPECT_EQ(read.end->failure_detail, "killed by signal 9");
  EXPECT_EQ(read.end->classification_source, "process_evaluation");
  EXPECT_EQ(read.end->eval_id, std::nullopt);
  EXPECT_EQ(read.ignored_ends, 0);
  ASSERT_EQ(read.events.size(), 4U);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(read.events.at(static_cast<std::size_t>(i)).at, 1.0 + i);
  }
  EXPECT_EQ(read.events[0].step, AttemptStep::Created);
  EXPECT_EQ(read.events[1].step, AttemptStep::Dispatched);
  EXPECT_EQ(read.events[2].step, AttemptStep::BacktestStarted);
  EXPECT_EQ(read.events[3].step, AttemptStep::Ended);
  EXPECT_EQ(read.events[3].at, 4.5);
}

TEST_F(AttemptTableTest, TheFirstEndCountsAndAFurtherOneIsCounted) {
  const std::int64_t id = running_attempt(attempts(), new_attempt(run_));
  EXPECT_TRUE(attempts().end(id, worker_lost(), 4.0));
  AttemptEndRow late = worker_lost();
  late.terminal_disposition = "passed";
  late.failure_reason = "another";
  EXPECT_FALSE(attempts().end(id, late, 5.0));
  EXPECT_FALSE(attempts().end(id, late, 6.0));
  const AttemptRecord read = stored(id);
  EXPECT_EQ(read.end->terminal_disposition, "backtest_failed");
  EXPECT_EQ(read.end->failure_reason, "worker_failed");
  EXPECT_EQ(read.ignored_ends, 2);
  EXPECT_EQ(read.events.size(), 4U);
  EXPECT_EQ(read.events.back().at, 4.0);
}

TEST_F(AttemptTableTest, AnAttemptThatNeverReachedItsBacktestEndsAsWell) {
  const std::int64_t id = attempts().create(new_attempt(run_), 1.0);
  AttemptEndRow end = worker_lost();
  end.terminal_disposition = "resource_blocked";
  end.failure_category = "resource";
  EXPECT_TRUE(attempts().end(id, end, 2.0));
  EXPECT_EQ(stored(id).events.size(), 2U);
}

TEST_F(AttemptTableTest, RefusesWhatCannotBe) {
  EXPECT_THAT(error_of([&] { attempts().create(new_attempt(99), 1.0); }),
              HasSubstr("creating an attempt failed: FOREIGN KEY constraint failed"));
  EXPECT_THAT(error_of([&] { attempts().mark(5, AttemptStep::Dispatched, 1.0); }),
              HasSubstr("marking an attempt as dispatched failed: there is no open attempt 5"));
  EXPECT_THAT(error_of([&] { attempts().end(5, worker_lost(), 1.0); }),
              HasSubstr("ending an attempt failed: there is no attempt 5"));
  EXPECT_THROW(attempts().mark(5, AttemptStep::Ended, 1.0), std::logic_error);
  EXPECT_THAT(listed({}), IsEmpty());
}

TEST_F(AttemptTableTest, AStepIsTakenOnceAndNotAfterTheEnd) {
  const std::int64_t id = running_attempt(attempts(), new_attempt(run_));
  EXPECT_THAT(error_of([&] { attempts().mark(id, AttemptStep::Dispatched, 4.0); }),
              HasSubstr("marking an attempt failed: UNIQUE constraint failed"));
  EXPECT_TRUE(attempts().end(id, worker_lost(), 4.0));
  EXPECT_THAT(error_of([&] { attempts().mark(id, AttemptStep::BacktestStarted, 5.0); }),
              HasSubstr("there is no open attempt 1"));
  EXPECT_EQ(stored(id).events.size(), 4U);
}

TEST_F(AttemptTableTest, FindsTheOpenAttemptOfAStructure) {
  EXPECT_EQ(attempts().open_attempt(run_, "k"), std::nullopt);
  const std::int64_t first = attempts().create(new_attempt(run_, "k", 1), 1.0);
  const std::int64_t second = attempts().create(new_attempt(run_, "k", 2), 1.0);
  EXPECT_EQ(attempts().open_attempt(run_, "k"), first);
  EXPECT_EQ(attempts().open_attempt(run_, "other"), std::nullopt);
  EXPECT_EQ(attempts().open_attempt(run_ + 1, "k"), std::nullopt);
  EXPECT_TRUE(attempts().end(first, worker_lost(), 2.0));
  EXPECT_EQ(attempts().open_attempt(run_, "k"), second);
  EXPECT_TRUE(attempts().end(second, worker_lost(), 2.0));
  // Neither had begun its backtest: what the fixture says of it is not so, and the reader sees it.
  EXPECT_THAT(store_violations(path_), ElementsAre(HasSubstr("attempt 1 is backtest_failed"),
                                                   HasSubstr("attempt 2 is backtest_failed")));
  SqliteDatabase(path_, 0).execute(
      "UPDATE attempts SET terminal_disposition = 'resource_blocked', failure_category = "
      "'resource'",
      "putting it right");
}

TEST_F(AttemptTableTest, ListsByRunDispositionAndLimit) {
  const std::int64_t other = store_->begin_run(start());
  const std::int64_t open = running_attempt(attempts(), new_attempt(run_, "a", 1));
  const std::int64_t lost = running_attempt(attempts(), new_attempt(run_, "b", 2));
  const std::int64_t foreign = running_attempt(attempts(), new_attempt(other, "c", 1));
  EXPECT_TRUE(attempts().end(lost, worker_lost(), 4.0));
  EXPECT_THAT(listed({}), ElementsAre(open, lost, foreign));
  EXPECT_THAT(listed({run_, {}, {}}), ElementsAre(open, lost));
  EXPECT_THAT(listed({{}, kOpenAttempt, {}}), ElementsAre(open, foreign));
  EXPECT_THAT(listed({{}, "backtest_failed", {}}), ElementsAre(lost));
  EXPECT_THAT(listed({{}, {}, 2}), ElementsAre(lost, foreign)) << "the latest, oldest first";
  EXPECT_THAT(listed({{}, {}, 0}), IsEmpty());

  const std::vector<DispositionCount> counts = attempts().dispositions({});
  ASSERT_EQ(counts.size(), 2U);
  EXPECT_EQ(counts[0].disposition, kOpenAttempt);
  EXPECT_EQ(counts[0].count, 2);
  EXPECT_EQ(counts[1].disposition, "backtest_failed");
  EXPECT_EQ(attempts().dispositions({run_, {}, {}}).front().count, 1);
}

TEST_F(AttemptTableTest, AMarkerIsOpenUntilItIsClosed) {
  const NewMarker marker{run_, "k", "all", "{}", "evaluate_expression"};
  const std::int64_t first = attempts().open_marker(marker, 1.0);
  const std::int64_t second = attempts().open_marker(marker, 1.5);
  EXPECT_EQ(attempts().open_markers(run_), 2);
  attempts().close_marker(first, 2.0);
  attempts().close_marker(first, 3.0);
  attempts().close_marker(99, 3.0);
  EXPECT_EQ(attempts().open_markers(run_), 1);
  attempts().close_marker(second, 3.0);
  EXPECT_EQ(attempts().open_markers(run_), 0);
  EXPECT_EQ(SqliteDatabase(path_, 0).query_text(
                "SELECT group_concat(closed_at) FROM evaluation_markers", "reading"),
            "2.0,3.0");
}

TEST_F(AttemptTableTest, AnEndAndItsEvaluationAreOneTransaction) {
  const std::int64_t id = running_attempt(attempts(), new_attempt(run_, "key1"));
  const auto record = [&](RunStore::LockedWork end_of_work) {
    store_->under_lock("recording", [&] {
      store_->record_evaluations(run_, {passing(1, 1.0)});
      AttemptEndRow end = worker_lost();
      end.terminal_disposition = "passed";
      end.classification_source = "parent_recorder";
      end.eval_id = eval_id_of(run_, 1);
      EXPECT_TRUE(attempts().end(id, end, 4.0));
      const std::vector<double> pnl{0.5};
      store_->submissions().announce({{"alpha", 1, 3, "data"}, "1-1", {}, "{}", pnl, 1.0});
      return end_of_work;
    });
  };
  record(RunStore::LockedWork::Undo);
  EXPECT_EQ(stored(id).end, std::nullopt);
  EXPECT_EQ(store_->evaluation_count(run_), 0);
  record(RunStore::LockedWork::Keep);
  EXPECT_EQ(stored(id).end->eval_id, "1-1");
  EXPECT_EQ(store_->evaluation_count(run_), 1);
  EXPECT_EQ(store_->submissions().announced(run_), 1);
}

TEST_F(AttemptTableTest, SyncingWithNothingToSyncIsNoError) {
  attempts().sync();
  running_attempt(attempts(), new_attempt(run_));
  attempts().sync();
  attempts().sync();
}

TEST_F(AttemptTableTest, TheReaderOfInvariantsSeesWhatIsWrong) {
  const auto violations_after = [&](const char* sql) {
    std::filesystem::copy_file(path_, path_ + ".bad",
                               std::filesystem::copy_options::overwrite_existing);
    SqliteDatabase(path_ + ".bad", 0).execute(sql, "breaking it");
    return store_violations(path_ + ".bad");
  };
  const std::int64_t id = running_attempt(attempts(), new_attempt(run_, "key1"));
  store_->record_evaluations(run_, {passing(1, 1.0)});
  EXPECT_TRUE(attempts().end(id, worker_lost(), 4.0));
  const std::vector<double> pnl{0.5};
  store_->submissions().enqueue({{"alpha", 1, 3, "data"}, "1-1", {}, "{}", pnl, 1.0});
  store_.reset();  // All is in the one file then.

  EXPECT_THAT(violations_after("DELETE FROM attempt_events WHERE step = 'ended'"),
              ElementsAre(HasSubstr("backtest_failed with 0 ends")));
  EXPECT_THAT(violations_after("DELETE FROM attempt_events WHERE step = 'dispatched'"),
              ElementsAre(HasSubstr("backtest_started out of order")));
  EXPECT_THAT(violations_after("UPDATE attempt_events SET id = 99 WHERE step = 'backtest_started'"),
              ElementsAre(HasSubstr("backtest_started after its end")));
  EXPECT_THAT(violations_after("UPDATE attempt_events SET process_id = 1 WHERE id = 2"),
              ElementsAre(HasSubstr("dispatched was written by process 1")));
  EXPECT_THAT(violations_after("UPDATE attempts SET terminal_disposition = 'cancelled'"),
              ::testing::Contains(HasSubstr("attempt 1 is cancelled")));
  EXPECT_THAT(violations_after("UPDATE attempts SET eval_id = '7-7'"),
              ElementsAre(HasSubstr("evaluation 7-7, which is not there")));
  EXPECT_THAT(violations_after("UPDATE attempts SET eval_id = '1-1', graph_key = 'x'"),
              ElementsAre(HasSubstr("is of another run or graph"),
                          HasSubstr("attempt 1 is backtest_failed, evaluation 1-1 passed")));
  EXPECT_THAT(violations_after("UPDATE runs SET ended_at = 1, terminal_reason = 'x'; DELETE FROM "
                               "submissions"),
              ElementsAre(HasSubstr("evaluation 1-1 passed, and nothing of its structure")));
  EXPECT_THAT(violations_after("PRAGMA foreign_keys = OFF; DELETE FROM attempts"),
              ::testing::UnorderedElementsAre("event 1 of no attempt", "event 2 of no attempt",
                                              "event 3 of no attempt", "event 4 of no attempt"));
  EXPECT_THAT(
      violations_after(
          "INSERT INTO attempts (run_id, source_path, graph_key, graph, algorithm, "
          "rotation_identifier, data_shape, expected_columns, eval_type) SELECT run_id, '', "
          "'', '', '', rotation_identifier, '', '', '' FROM attempts; INSERT INTO "
          "attempt_events (attempt_id, step, at, process_id) SELECT 2, 'created', 1, "
          "process_id FROM runs; UPDATE attempt_events SET id = 99 WHERE step = 'ended'"),
      ElementsAre(HasSubstr("attempts 1 and 2 of candidate-0 overlap")));
  EXPECT_THAT(violations_after(
                  "INSERT INTO evaluation_markers (run_id, graph_key, named_universe, "
                  "metaparameters, phase, opened_at) VALUES (1, '', '', '', '', 1); UPDATE runs "
                  "SET ended_at = 1, terminal_reason = 'x'"),
              ElementsAre(HasSubstr("marker 1 of run 1 is open")));
  EXPECT_THAT(violations_after("UPDATE evaluations SET worker_pid = (SELECT process_id FROM runs)"),
              ElementsAre(HasSubstr("evaluation 1-1 was evaluated by the process of its run")));
  EXPECT_THAT(violations_after("INSERT INTO submissions SELECT 9, run_id, evaluation_id, eval_id, "
                               "graph_key, signal_pool_name, market_id, era_number, data_key, "
                               "'refused', NULL, payload, pnl, 1, 1, 1, 1, 'x', 'y', 1, 1, 1 FROM "
                               "submissions"),
              ElementsAre(HasSubstr("evaluation 1-1 has 2 submissions to alpha")));
}

}  // namespace
}  // namespace varnholt::embedded::test
