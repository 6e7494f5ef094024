// A file of an earlier schema version is brought up to date without losing a row. Method: a file
// made by the very statements of version 1 or 3, opened by the store and read back.
#include <map>

#include <gmock/gmock.h>
#include <sys/wait.h>

#include "hosts/embedded/store/store_reader.hpp"
#include "hosts/embedded/store/store_schema.hpp"
#include "tests/hosts/embedded/store/old_schemas.hpp"
#include "tests/hosts/embedded/store/store_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::HasSubstr;

constexpr const char* kRows = R"sql(
INSERT INTO runs VALUES (1, 10.5, 7, '{"batch_size":8}', 'p.csv', 'ab', '0.1.0', 1, 2, 'boot',
  'pid:[1]', 20.5, 'stopped');
INSERT INTO runs VALUES (3, 30.5, 8, '{}', 'q.csv', 'cd', '0.1.0', 1, 2, 'boot', 'pid:[1]', 40.5,
  'stopped');
INSERT INTO evaluations VALUES (1, 1, 1, 0, 'k1', '{"node":"close"}', 1, NULL, NULL,
  '{"sharpe":1.5}', 1.5, 0.5, 0.25, 99, 11.5);
INSERT INTO evaluations VALUES (2, 1, 2, 0, 'k2', '{}', 0, 'weak', 'because "so"', 'null', NULL,
  NULL, 0.25, NULL, 12.5);
INSERT INTO evaluations VALUES (3, 1, 3, 0, 'k3', '{}', 0, NULL, NULL, 'null', NULL, NULL, 0.25,
  NULL, 13.5);
INSERT INTO evaluations VALUES (4, 1, 4, 0, 'k4', '{}', 0, 'deep', NULL, 'null', NULL, NULL, 0.25,
  NULL, 14.5);
INSERT INTO evaluations VALUES (5, 3, 17, 2, 'k1', '{}', 1, NULL, NULL, '{}', 2.5, 3.5, 0.25, 98,
  31.5);
INSERT INTO metrics VALUES (1, 1, '{"n":1}');
)sql";

constexpr const char* kPoolRows = R"sql(
INSERT INTO runs (id, started_at, seed, settings, price_file, price_digest, host_version,
  process_id, process_started, boot_id, pid_namespace, ended_at, terminal_reason, eras) VALUES
  (1, 10, 7, '{}', 'p.csv', 'ab', '0.1.0', 1, 2, 'boot', 'pid:[1]', 20, 'stopped',
    '{"holdout":{"first_date":"2011-05-02"}}'),
  (2, 30, 7, '{}', 'q.csv', 'cd', '0.1.0', 1, 2, 'boot', 'pid:[1]', 40, 'stopped',
    '{"holdout":{"first_date":"2011-05-03"}}'),
  (3, 50, 7, '{}', 'q.csv', 'cd', '0.1.0', 1, 2, 'boot', 'pid:[1]', 60, 'stopped', 'null');
INSERT INTO evaluations (id, run_id, candidate_number, generation, graph_key, graph, passed,
  statistics, elapsed_seconds, recorded_at) VALUES
  (1, 1, 1, 0, 'k1', '{"g":1}', 1, '{}', 1, 1), (2, 1, 2, 0, 'k2', '{"g":2}', 1, '{}', 1, 1),
  (3, 1, 3, 0, 'k3', '{"g":3}', 1, '{}', 1, 1), (4, 2, 1, 0, 'k1', '{"g":1}', 1, '{}', 1, 1),
  (5, 2, 2, 0, 'k2', '{"g":2}', 1, '{}', 1, 1), (6, 2, 3, 0, 'k3', '{"g":3}', 1, '{}', 1, 1),
  (7, 3, 1, 0, 'k1', '{"g":1}', 1, '{}', 1, 1);
INSERT INTO submissions (id, run_id, evaluation_id, eval_id, graph_key, signal_pool_name, market_id,
  era_number, data_key, state, payload, pnl, score, score_threshold, correlation,
  correlation_threshold, queued_at, settled_at, settled_order) VALUES
  (1, 1, 1, '1-1', 'k1', 'signals', 1, 3, 'old', 'submitted', '{}', x'000000000000F03F', 1, 0.2, 0,
    0.7, 5, 6, 1),
  (2, 1, 2, '1-2', 'k2', 'signals', 1, 3, 'old', 'queued', '{}', x'0000000000000040', NULL, NULL,
    NULL, NULL, 5, NULL, NULL),
  (3, 1, 3, '1-3', 'k3', 'signals', 1, 3, 'old', 'queued', '{}', x'0000000000000040', NULL, NULL,
    NULL, NULL, 5, NULL, NULL),
  (4, 2, 4, '2-1', 'k1', 'signals', 1, 3, 'new', 'submitted', '{}', x'000000000000F03F', 0.9, 0.2,
    0.1, 0.7, 7, 8, 2),
  (5, 2, 5, '2-2', 'k2', 'signals', 1, 3, 'new', 'submitted', '{}', x'0000000000000840', 0.8, 0.2,
    0.2, 0.7, 7, 9, 3),
  (6, 2, 6, '2-3', 'k3', 'signals', 1, 3, 'new', 'queued', '{}', x'0000000000000040', NULL, NULL,
    NULL, NULL, 7, NULL, NULL),
  (7, 3, 7, '3-1', 'k1', 'other', 1, 3, 'new', 'submitted', '{}', x'000000000000F03F', 0.9, 0.2,
    0.1, 0.7, 9, 9, 4);
)sql";

class SchemaMigration : public StoreTest {
 protected:
  void make_version_1() {
    SqliteDatabase old(path_, 0);
    old.execute(kVersion1, "making version 1");
    old.execute(kIsVersion1, "marking it");
    old.execute(kRows, "filling it");
  }
  // Two runs that searched in one pool, as it is now, by other prices; the second with a later
  // hold-out. They submitted the structures k1 and k2, and both again: k3 waits in both.
  void make_version_3() {
    SqliteDatabase old(path_, 0);
    for (const char* sql : {kVersion1, kVersion2, kVersion3, kIsVersion3, kPoolRows})
      old.execute(sql, "making version 3");
  }
  // "1-1 submitted, 1-2 refused: duplicate", by the number of the submission.
  static std::string submissions(SqliteRunStore& store) {
    std::map<std::int64_t, std::string> by_number;
    for (const SubmissionRecord& row : store.submissions().list({})) {
      std::string text = row.eval_id + " " + name_of(row.state);
      if (row.settlement && row.settlement->refusal_reason)
        text += ": " + *row.settlement->refusal_reason;
      by_number[row.id] = text;
    }
    std::string all;
    for (const auto& [number, text] : by_number)
      all += (all.empty() ? "" : ", ") + text;
    return all;
  }
  // The names and types of all columns, and all indexes.
  static std::string schema(const std::string& path) {
    return SqliteDatabase(path, 1000)
        .query_text(
            "SELECT group_concat(t.name || '.' || c.name || ' ' || c.type || ' ' || "
            "coalesce(c.dflt_value, '-') || ' ' || c.hidden, char(10)) || char(10) || (SELECT "
            "group_concat(name, char(10)) FROM sqlite_schema WHERE type = 'index') "
            "FROM sqlite_schema t, pragma_table_xinfo(t.name) c WHERE t.type IN ('table', 'view')",
            "reading the schema");
  }
};

TEST_F(SchemaMigration, KeepsEveryRowOfVersion1) {
  make_version_1();
  SqliteRunStore store(path_);
  const std::vector<RunRecord> runs = store.runs();
  ASSERT_EQ(runs.size(), 2U);
  EXPECT_EQ(runs[0].start.seed, 7);
  EXPECT_EQ(runs[0].start.settings_json, R"({"batch_size":8})");
  EXPECT_EQ(runs[0].start.price_digest, "ab");
  EXPECT_EQ(runs[0].ended_at, 20.5);
  EXPECT_EQ(runs[0].start.price_path, "");
  EXPECT_FALSE(runs[0].start.market_id.has_value());
  EXPECT_FALSE(runs[0].start.era_number.has_value());
  EXPECT_EQ(runs[0].start.eras_json, "null");
  EXPECT_FALSE(runs[0].start.cost_basis_points.has_value());
  EXPECT_EQ(store.evaluation_count(1), 4);
  EXPECT_EQ(store.metrics(1).at(0), R"({"n":1})");

  const std::optional<EvaluationOfRun> found = store.find_evaluation("3-17");
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->run.id, 3);
  EXPECT_EQ(found->evaluation.candidate_number, 17);
  EXPECT_EQ(found->evaluation.graph_key, "k1");
  EXPECT_EQ(found->evaluation.quality_score, 3.5);
  EXPECT_EQ(found->evaluation.worker_pid, 98);
  EXPECT_EQ(found->evaluation.lineage_json, R"({"origin":"unknown"})");
  EXPECT_EQ(found->evaluation.failures_json, "{}");
  EXPECT_FALSE(found->evaluation.market_id.has_value());
  EXPECT_FALSE(found->evaluation.holdout_statistics_json.has_value());
  EXPECT_FALSE(found->evaluation.expression.has_value());
  EXPECT_FALSE(found->run.luck_json.has_value());
}

TEST_F(SchemaMigration, MakesTheFailuresOfTheReason) {
  make_version_1();
  SqliteRunStore store(path_);
  const auto failures = [&](const char* id) {
    return store.find_evaluation(id)->evaluation.failures_json;
  };
  EXPECT_EQ(failures("1-1"), "{}");
  EXPECT_EQ(failures("1-2"), R"({"weak":{"reason":"weak","detail":"because \"so\""}})");
  EXPECT_EQ(failures("1-3"), "{}");
  EXPECT_EQ(failures("1-4"), R"({"deep":{"reason":"deep"}})");
}

TEST_F(SchemaMigration, GivesTheTablesOfANewFile) {
  make_version_1();
  { SqliteRunStore store(path_); }
  const std::string fresh = (folder_ / "fresh.db").string();
  { SqliteRunStore store(fresh); }
  EXPECT_EQ(schema(path_), schema(fresh));
  EXPECT_THAT(schema(path_), HasSubstr("submissions.pnl BLOB"));
  EXPECT_EQ(SqliteDatabase(path_, 0).query_integer("PRAGMA user_version", "reading"),
            kStoreSchemaVersion);
  EXPECT_EQ(integrity(path_), "ok");
}

TEST_F(SchemaMigration, ThePoolsOfVersion3BecomeOneOfTheirNameAndMarket) {
  make_version_3();
  // As a run sees it that looks before it opens the store.
  EXPECT_EQ(stored_holdout_from(path_, {"signals", 1, 3, ""}), "2011-05-03");
  EXPECT_FALSE(stored_holdout_from(path_, {"other", 1, 3, ""}).has_value());
  SqliteRunStore store(path_);
  EXPECT_EQ(submissions(store),
            "1-1 submitted, 1-2 refused: duplicate, 1-3 queued, 2-1 refused: duplicate, "
            "2-2 submitted, 2-3 refused: duplicate, 3-1 submitted");
  // The first of equal ones stays, one that has joined before one that waits.
  const PoolIdentity pool{"signals", 1, 3, "new"};
  const std::vector<SubmissionPnl> members = store.submissions().members(pool);
  ASSERT_EQ(members.size(), 2U);
  EXPECT_EQ(members[0].eval_id, "1-1");
  EXPECT_EQ(members[0].measured, Measured::NotYet) << "it was submitted on other prices";
  EXPECT_EQ(members[1].eval_id, "2-2");
  EXPECT_EQ(members[1].pnl, std::vector<double>{3.0});
  const std::vector<UnmeasuredSubmission> unmeasured = store.submissions().unmeasured(pool);
  ASSERT_EQ(unmeasured.size(), 2U);
  EXPECT_EQ(unmeasured[0].graph_json, R"({"g":1})");
  EXPECT_EQ(unmeasured[1].eval_id, "1-3") << "what is queued is measured before it is settled";
  EXPECT_EQ(store.submissions().list({}).size(), 7U);
  // Nobody has seen a day of the hold-out: it is the latest of the runs that made the pool.
  EXPECT_EQ(stored_holdout_from(path_, pool), "2011-05-03");
  EXPECT_EQ(store.keep_holdout_from(pool, "2012-01-01"), "2011-05-03");
  EXPECT_EQ(store.keep_holdout_from({"other", 1, 3, "new"}, "2012-01-01"), "2012-01-01");
  EXPECT_EQ(integrity(path_), "ok");
}

TEST_F(SchemaMigration, AMigratedFileTakesNewRows) {
  make_version_1();
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  EXPECT_EQ(run, 4);
  store.record_evaluations(run, {passing(1, 1.0)});
  EXPECT_EQ(store.find_evaluation("4-1")->evaluation.graph_key, "key1");
  const PoolIdentity pool{"alpha", 1, 1, "data"};
  EXPECT_TRUE(store.submissions().enqueue({pool, "3-17", {}, "{}", {}, 50.0}).added);
}

TEST_F(SchemaMigration, IsWholeOrNotAtAll) {
  make_version_1();
  // The last statements of the migration find their name taken.
  SqliteDatabase(path_, 0).execute("CREATE TABLE submissions_by_run (x)", "getting in the way");
  EXPECT_THAT(error_of([&] { SqliteRunStore store(path_); }),
              HasSubstr("bringing the tables up to date failed: there is already a table named"));
  SqliteDatabase old(path_, 0);
  EXPECT_EQ(old.query_integer("PRAGMA user_version", "reading"), 1);
  EXPECT_EQ(
      old.query_integer("SELECT count(*) FROM sqlite_schema WHERE name = 'submissions'", "reading"),
      0);
  EXPECT_EQ(old.query_integer("SELECT count(*) FROM pragma_table_xinfo('evaluations')", "reading"),
            15);
  EXPECT_EQ(old.query_integer("SELECT count(*) FROM evaluations", "reading"), 5);
  old.execute("DROP TABLE submissions_by_run", "getting out of the way");
  EXPECT_EQ(SqliteRunStore(path_).evaluation_count(1), 4);
}

TEST_F(SchemaMigration, IsDoneOnceByProcessesThatOpenAtOnce) {
  make_version_1();
  std::vector<pid_t> children;
  for (int i = 0; i < 6; ++i) {
    children.push_back(::fork());
    if (children.back() != 0) continue;
    try {
      SqliteRunStore store(path_, {.busy_timeout_milliseconds = 60'000});
      ::_exit(store.runs().size() == 2 ? 0 : 1);
    } catch (const StoreError& error) {
      std::fprintf(stderr, "%s\n", error.what());
      ::_exit(2);
    }
  }
  for (const pid_t child : children) {
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(SqliteRunStore(path_).evaluation_count(1), 4);
}

// The kind of a file is told by three numbers; a store that is made between the first and the
// second must not look like a file of another program.
TEST_F(SchemaMigration, AFileIsLookedAtInOneMoment) {
  SqliteDatabase first(path_, 0);
  std::string same_path = path_;
  static_cast<void>(::sqlite3_trace_v2(
      first.handle(), SQLITE_TRACE_STMT,
      [](unsigned, void* path, void*, void* text) {
        if (std::string_view(static_cast<const char*>(text)) != "PRAGMA user_version") return 0;
        SqliteDatabase second(*static_cast<const std::string*>(path), 0);
        EXPECT_THROW(prepare_schema(second), StoreBusyError);
        return 0;
      },
      &same_path));
  EXPECT_NO_THROW(prepare_schema(first));
}

TEST_F(SchemaMigration, WaitsForAWriterOfTheOldFile) {
  make_version_1();
  SqliteDatabase writer(path_, 0);
  static_cast<void>(writer.query_text("PRAGMA journal_mode = WAL", "preparing"));
  {
    SqliteTransaction held(writer, "holding the lock");
    EXPECT_THROW(SqliteRunStore(path_, {.busy_timeout_milliseconds = 20}), StoreBusyError);
  }
  EXPECT_EQ(SqliteRunStore(path_).runs().size(), 2U);
  // A program of the old version that was running goes on.
  writer.execute(
      "INSERT INTO evaluations (run_id, candidate_number, generation, graph_key, graph, passed, "
      "statistics, elapsed_seconds, recorded_at) VALUES (3, 18, 2, 'k', '{}', 1, '{}', 1, 1)",
      "recording as version 1");
  EXPECT_TRUE(SqliteRunStore(path_).find_evaluation("3-18").has_value());
}

}  // namespace
}  // namespace varnholt::embedded::test
