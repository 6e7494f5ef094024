// What is recorded is read back as it was, and other files are refused untouched. Method: a store
// in a temporary folder, opened again to read; foreign and future files made with plain SQLite.
#include <cmath>
#include <limits>

#include <gmock/gmock.h>

#include "hosts/embedded/store/sqlite_run_store.hpp"
#include "hosts/embedded/store/store_reader.hpp"
#include "hosts/embedded/store/store_schema.hpp"
#include "tests/hosts/embedded/store/store_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pair;
using ::testing::StartsWith;

class RunStoreTest : public StoreTest {
 protected:
  static std::vector<std::int64_t> numbers(const std::vector<EvaluationRecord>& records) {
    std::vector<std::int64_t> found;
    for (const EvaluationRecord& record : records) {
      found.push_back(record.candidate_number);
    }
    return found;
  }
};

TEST_F(RunStoreTest, KeepsARun) {
  std::int64_t run = 0;
  {
    SqliteRunStore store(path_);
    RunStart full = start();
    full.price_path = "/data/prices.csv";
    full.market_id = 2;
    full.era_number = 5;
    full.eras_json = R"([{"number":5}])";
    full.cost_basis_points = 12.5;
    run = store.begin_run(full);
    const std::optional<RunRecord> open = store.find_run(run);
    ASSERT_TRUE(open.has_value());
    EXPECT_EQ(open->process.pid, ::getpid());
    EXPECT_FALSE(open->ended_at.has_value());
    EXPECT_FALSE(open->terminal_reason.has_value());
    EXPECT_TRUE(store.end_run(run, 1234.25, "stopped"));
  }
  SqliteRunStore store(path_);
  const std::optional<RunRecord> found = store.find_run(run);
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->id, run);
  EXPECT_EQ(found->start.started_at, 1000.5);
  EXPECT_EQ(found->start.seed, 123456789012345);
  EXPECT_EQ(found->start.settings_json, R"({"batch_size":16})");
  EXPECT_EQ(found->start.price_file, "prices.csv");
  EXPECT_EQ(found->start.price_digest, "ab12");
  EXPECT_EQ(found->start.host_version, "0.1.0");
  EXPECT_EQ(found->start.price_path, "/data/prices.csv");
  EXPECT_EQ(found->start.market_id, 2);
  EXPECT_EQ(found->start.era_number, 5);
  EXPECT_EQ(found->start.eras_json, R"([{"number":5}])");
  EXPECT_EQ(found->start.cost_basis_points, 12.5);
  EXPECT_EQ(found->ended_at, 1234.25);
  EXPECT_EQ(found->terminal_reason, "stopped");
  EXPECT_TRUE(store.interrupted_runs().empty());
  EXPECT_FALSE(store.find_run(run + 1).has_value());
}

TEST_F(RunStoreTest, GivesEachRunANumberAndListsThem) {
  SqliteRunStore store(path_);
  const std::int64_t first = store.begin_run(start());
  const std::int64_t second = store.begin_run(start());
  EXPECT_NE(first, second);
  const std::vector<RunRecord> runs = store.runs();
  ASSERT_EQ(runs.size(), 2U);
  EXPECT_EQ(runs[0].id, first);
  EXPECT_EQ(runs[1].id, second);
}

TEST_F(RunStoreTest, LetsTheFirstEndOfARunCount) {
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  EXPECT_TRUE(store.end_run(run, 1, "first"));
  EXPECT_FALSE(store.end_run(run, 2, "second"));
  EXPECT_EQ(store.find_run(run)->terminal_reason, "first");
  EXPECT_EQ(store.find_run(run)->ended_at, 1);
}

TEST_F(RunStoreTest, KeepsEveryFieldOfAnEvaluation) {
  EvaluationRecord full = passing(7, 2.5, -0.75);
  full.failure_reason = "soft";
  full.lineage_json = R"({"origin":"fresh"})";
  full.failures_json = R"({"soft":{"reason":"soft"}})";
  full.market_id = 3;
  full.era_number = 4;
  full.holdout_statistics_json = R"({"sharpe":0.5})";
  full.eval_id = "not this";
  full.failure_detail = std::string("text with \0 inside and \xc3\xa9", 25);
  EvaluationRecord bare = passing(8, 1.5);
  bare.sharpe.reset();
  bare.worker_pid.reset();
  bare.graph_json.clear();
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  store.record_evaluations(run, {full, bare});

  const std::vector<EvaluationRecord> found = SqliteRunStore(path_).best_signals(run, 10);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].candidate_number, 7);
  EXPECT_EQ(found[0].generation, 0);
  EXPECT_EQ(found[0].graph_key, "key7");
  EXPECT_EQ(found[0].graph_json, full.graph_json);
  EXPECT_TRUE(found[0].passed);
  EXPECT_EQ(found[0].failure_reason, "soft");
  EXPECT_EQ(found[0].failure_detail, full.failure_detail);
  EXPECT_EQ(found[0].statistics_json, full.statistics_json);
  EXPECT_EQ(found[0].sharpe, -0.75);
  EXPECT_EQ(found[0].quality_score, 2.5);
  EXPECT_EQ(found[0].elapsed_seconds, 0.125);
  EXPECT_EQ(found[0].worker_pid, 4007);
  EXPECT_EQ(found[0].recorded_at, 2007.0);
  EXPECT_EQ(found[0].lineage_json, full.lineage_json);
  EXPECT_EQ(found[0].failures_json, full.failures_json);
  EXPECT_EQ(found[0].market_id, 3);
  EXPECT_EQ(found[0].era_number, 4);
  EXPECT_EQ(found[0].holdout_statistics_json, full.holdout_statistics_json);
  EXPECT_EQ(found[0].eval_id, eval_id_of(run, 7));
  EXPECT_EQ(found[1].graph_json, "");
  EXPECT_EQ(found[1].lineage_json, R"({"origin":"unknown"})");
  EXPECT_EQ(found[1].failures_json, "{}");
  EXPECT_FALSE(found[1].market_id.has_value());
  EXPECT_FALSE(found[1].era_number.has_value());
  EXPECT_FALSE(found[1].holdout_statistics_json.has_value());
  EXPECT_FALSE(found[1].failure_reason.has_value());
  EXPECT_FALSE(found[1].failure_detail.has_value());
  EXPECT_FALSE(found[1].sharpe.has_value());
  EXPECT_FALSE(found[1].worker_pid.has_value());
}

TEST_F(RunStoreTest, FindsAnEvaluationByItsPublicId) {
  SqliteRunStore store(path_);
  store.begin_run(start());
  const std::int64_t run = store.begin_run(start());
  store.record_evaluations(run, {passing(1, 1.0), failing(17, "weak")});
  EXPECT_EQ(eval_id_of(run, 17), "2-17");
  const std::optional<EvaluationOfRun> found = store.find_evaluation("2-17");
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->run.id, run);
  EXPECT_EQ(found->run.start.price_digest, "ab12");
  EXPECT_EQ(found->evaluation.candidate_number, 17);
  EXPECT_EQ(found->evaluation.eval_id, "2-17");
  EXPECT_FALSE(found->evaluation.passed);
  for (const char* none : {"1-17", "2-2", "2-017", "2-17 ", "", "2"}) {
    EXPECT_FALSE(store.find_evaluation(none).has_value()) << none;
  }
}

TEST_F(RunStoreTest, TakesHoldoutStatisticsLater) {
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  store.record_evaluations(run, batch(1, 2));
  store.record_holdout("1-2", R"({"sharpe":-0.25})");
  EXPECT_EQ(store.find_evaluation("1-2")->evaluation.holdout_statistics_json,
            R"({"sharpe":-0.25})");
  EXPECT_FALSE(store.find_evaluation("1-1")->evaluation.holdout_statistics_json.has_value());
  EXPECT_THAT(error_of([&] { store.record_holdout("1-3", "{}"); }),
              HasSubstr("failed: there is no evaluation 1-3; record the evaluation first"));
}

TEST_F(RunStoreTest, TakesTheFiguresOfASignalWithItsDays) {
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  store.record_evaluations(run, batch(1, 2));
  store.record_price_days(run, {"2020-01-01", "2020-01-02", "2020-01-03"});
  store.record_figures("1-2", {{kInSample,
                                R"({"beta":0.5,"calmar":null,"by_year":[{"year":2020,)"
                                R"("days":1}]})",
                                1, "[0.25]"},
                               {kHoldout, R"({"beta":-0.5})", 2, "[-0.125]"}});
  const std::unique_ptr<StoreReader> reader = open_store_reader(path_);
  EXPECT_THAT(reader->figures("1-2"), ElementsAre(Pair(kHoldout, R"({"beta":-0.5})"),
                                                  Pair(kInSample, HasSubstr(R"("calmar":null)"))));
  EXPECT_TRUE(reader->figures("1-1").empty());
  SqliteDatabase database(path_, 0);
  const auto told = [&database](const char* query) { return database.query_text(query, "asking"); };
  EXPECT_EQ(told("SELECT group_concat(sample || ' ' || date || ' ' || net_return, ', ') FROM "
                 "(SELECT * FROM daily_returns ORDER BY date)"),
            "in_sample 2020-01-02 0.25, holdout 2020-01-03 -0.125");
  EXPECT_EQ(told("SELECT group_concat(sample || ' ' || name || ' ' || value, ', ') FROM "
                 "(SELECT * FROM figures ORDER BY value)"),
            "holdout beta -0.5, in_sample beta 0.5");
  EXPECT_EQ(told("SELECT eval_id || ' ' || year || ' ' || days FROM yearly_figures"), "1-2 2020 1");
  // Taken again, they are replaced.
  store.record_figures("1-2", {{kHoldout, R"({"beta":2.5})", 2, "[0.5]"}});
  EXPECT_EQ(open_store_reader(path_)->figures("1-2").at(kHoldout), R"({"beta":2.5})");
  EXPECT_EQ(open_store_reader(path_)->figures("1-2").size(), 2U);
  EXPECT_THAT(error_of([&] {
                store.record_figures("1-3", {{kHoldout, "{}", 0, "[]"}});
              }),
              HasSubstr("failed: there is no evaluation 1-3; record the evaluation first"));
  EXPECT_THAT(error_of([&] { store.record_price_days(9, {}); }), HasSubstr("there is no run 9"));
}

TEST_F(RunStoreTest, KeepsTheExpressionAndTheLuckOfARun) {
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  EvaluationRecord evaluation = passing(1, 0.5);
  evaluation.expression = "cross_rank(close)";
  store.record_evaluations(run, {evaluation, passing(2, 0.5)});
  EXPECT_EQ(store.find_evaluation("1-1")->evaluation.expression, "cross_rank(close)");
  EXPECT_FALSE(store.find_evaluation("1-2")->evaluation.expression.has_value());
  EXPECT_FALSE(store.find_run(run)->luck_json.has_value());
  store.record_figures(
      "1-1", {{kInSample, R"({"beta":0.5})", 0, "[]"}, {kHoldout, R"({"beta":1.5})", 0, "[]"}});
  store.record_luck(run, R"({"trials":2})", {{"1-1", 0.75}, {"1-2", 0.25}});
  EXPECT_EQ(store.find_run(run)->luck_json, R"({"trials":2})");
  const std::unique_ptr<StoreReader> reader = open_store_reader(path_);
  EXPECT_EQ(reader->figures("1-1").at(kInSample), R"({"beta":0.5,"deflated_sharpe":0.75})");
  EXPECT_EQ(reader->figures("1-1").at(kHoldout), R"({"beta":1.5})");
}

TEST_F(RunStoreTest, CountsAStructureOnceOverAllRunsOnTheSamePrices) {
  SqliteRunStore store(path_);
  const auto tried = [](std::int64_t number, const char* key, const char* statistics,
                        const char* lineage) {
    EvaluationRecord evaluation = passing(number, 0.5);
    evaluation.graph_key = key;
    evaluation.statistics_json = statistics;
    evaluation.lineage_json = lineage;
    return evaluation;
  };
  const char* const fresh = R"({"origin":"fresh"})";
  const char* const bred = R"({"origin":"bred"})";
  const std::int64_t first = store.begin_run(start());
  store.record_evaluations(first, {tried(1, "a", R"({"gross_returns_sharpe":0.5})", fresh),
                                   tried(2, "b", "null", fresh), tried(3, "c", "{}", bred)});
  RunStart elsewhere = start();
  elsewhere.price_digest = "of other prices";
  store.record_evaluations(store.begin_run(elsewhere), {tried(1, "d", "{}", fresh)});
  const std::int64_t third = store.begin_run(start());
  store.record_evaluations(third, {tried(1, "a", R"({"gross_returns_sharpe":0.75})", bred),
                                   tried(2, "e", "{damaged", fresh), tried(3, "f", "{}", "{")});
  store.record_evaluations(store.begin_run(start()), {tried(1, "g", "{}", fresh)});
  const std::vector<TrialRecord> trials = store.trials(third);
  ASSERT_EQ(trials.size(), 3U);
  EXPECT_EQ(trials[0].eval_id, "1-1");
  EXPECT_EQ(trials[0].gross_sharpe, 0.5);
  EXPECT_TRUE(trials[0].is_fresh);
  EXPECT_EQ(trials[1].eval_id, "1-3");
  EXPECT_FALSE(trials[1].gross_sharpe.has_value());
  EXPECT_FALSE(trials[1].is_fresh);
  EXPECT_EQ(trials[2].eval_id, "3-3");
  EXPECT_EQ(store.trials(first).size(), 2U);
  EXPECT_EQ(store.trial_count(first), 2);
  EXPECT_EQ(store.trial_count(third), static_cast<std::int64_t>(trials.size()));
}

TEST_F(RunStoreTest, OrdersTheBestSignals) {
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  const std::int64_t other = store.begin_run(start());
  EvaluationRecord unknown = passing(5, std::numeric_limits<double>::quiet_NaN());
  EvaluationRecord absent = passing(6, 0);
  absent.quality_score.reset();
  store.record_evaluations(run, {passing(1, 1.0, 5.0), passing(2, 3.0, 4.0), failing(3, "weak"),
                                 passing(4, 3.0, 6.0), unknown, absent});
  store.record_evaluations(other, {passing(1, 100.0, 100.0)});
  EXPECT_THAT(numbers(store.best_signals(run, 10)), ElementsAre(2, 4, 1));
  EXPECT_THAT(numbers(store.best_signals(run, 1)), ElementsAre(2));
  EXPECT_THAT(numbers(store.best_signals(run, 3, SignalOrder::Sharpe)), ElementsAre(4, 1, 2));
  EXPECT_TRUE(store.best_signals(run, 0).empty());
  EXPECT_TRUE(store.best_signals(run, -1).empty());
}

TEST_F(RunStoreTest, CountsFailuresByReason) {
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  EvaluationRecord silent = failing(9, "");
  silent.failure_reason.reset();
  store.record_evaluations(run, {failing(1, "weak"), failing(2, "turnover"), failing(3, "turnover"),
                                 passing(4, 1.0), failing(5, "deep"), silent});
  std::vector<std::string> counts;
  for (const FailureCount& entry : store.failure_counts(run)) {
    counts.push_back(entry.reason + "=" + std::to_string(entry.count));
  }
  EXPECT_THAT(counts, ElementsAre("turnover=2", "=1", "deep=1", "weak=1"));
  EXPECT_EQ(store.evaluation_count(run), 6);
  EXPECT_EQ(store.evaluation_count(run + 1), 0);
}

TEST_F(RunStoreTest, KeepsMetricsInOrder) {
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  store.record_metrics(run, R"({"n":1})");
  store.record_metrics(run, R"({"n":2})");
  EXPECT_THAT(store.metrics(run), ElementsAre(R"({"n":1})", R"({"n":2})"));
  EXPECT_TRUE(store.metrics(run + 1).empty());
}

TEST_F(RunStoreTest, RecordsABatchWholeOrNotAtAll) {
  SqliteRunStore store(path_);
  const std::int64_t run = store.begin_run(start());
  store.record_evaluations(run, batch(1, 3));
  const std::string text = error_of([&] {
    store.record_evaluations(run, {passing(4, 1), passing(2, 1)});
  });
  EXPECT_THAT(text, StartsWith("store " + path_ + ": recording evaluations failed: UNIQUE"));
  EXPECT_THAT(text, HasSubstr("contradicts"));
  EXPECT_EQ(store.evaluation_count(run), 3);
  store.record_evaluations(run, {passing(4, 1)});
  EXPECT_EQ(store.evaluation_count(run), 4);
}

TEST_F(RunStoreTest, RefusesRowsOfARunThatIsNotThere) {
  SqliteRunStore store(path_);
  const std::string expected = "failed: there is no run 77; begin the run first";
  EXPECT_THAT(error_of([&] { store.record_evaluations(77, batch(1, 1)); }), HasSubstr(expected));
  EXPECT_THAT(error_of([&] { store.record_metrics(77, "{}"); }), HasSubstr(expected));
  EXPECT_THAT(error_of([&] { store.end_run(77, 1, "x"); }), HasSubstr(expected));
}

TEST_F(RunStoreTest, WritesAheadAndSyncsNormally) {
  SqliteRunStore store(path_);
  store.begin_run(start());
  SqliteDatabase reader(path_, 1000);
  EXPECT_EQ(reader.query_text("PRAGMA journal_mode", "reading"), "wal");
  EXPECT_EQ(reader.query_integer("PRAGMA application_id", "reading"), kStoreApplicationId);
  EXPECT_EQ(reader.query_integer("PRAGMA user_version", "reading"), kStoreSchemaVersion);
  EXPECT_EQ(reader.query_integer("SELECT count(*) FROM runs", "reading"), 1);
}

TEST_F(RunStoreTest, RefusesWhatIsNoFile) {
  EXPECT_THAT(error_of([] { SqliteRunStore store(":memory:"); }), HasSubstr("outlives it"));
  EXPECT_THAT(error_of([] { SqliteRunStore store(""); }), HasSubstr("(no name)"));
}

TEST_F(RunStoreTest, TakesAFileAddressForAName) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_);
  {
    SqliteRunStore store("file:odd?mode=memory");
    EXPECT_EQ(store.path(), (folder_ / "file:odd?mode=memory").string());
  }
  std::filesystem::current_path(before);
  EXPECT_TRUE(std::filesystem::exists(folder_ / "file:odd?mode=memory"));
}

TEST_F(RunStoreTest, NamesTheFolderThatIsMissing) {
  const std::string path = (folder_ / "missing" / "runs.db").string();
  const std::string text = error_of([&] { SqliteRunStore store(path); });
  EXPECT_THAT(text, StartsWith("store " + path + ": "));
  EXPECT_THAT(text, HasSubstr("check that its folder exists"));
}

TEST_F(RunStoreTest, RefusesAFileThatIsNoDatabase) {
  std::ofstream(path_) << std::string(5000, 'x');
  EXPECT_THAT(error_of([&] { SqliteRunStore store(path_); }),
              HasSubstr("it is no SQLite database"));
  EXPECT_EQ(bytes_of(path_), std::string(5000, 'x'));
}

TEST_F(RunStoreTest, RefusesADatabaseOfAnotherProgramAndLeavesItAlone) {
  for (const char* application : {"0", "99"}) {
    std::filesystem::remove(path_);
    {
      SqliteDatabase foreign(path_, 0);
      foreign.execute("CREATE TABLE theirs (x)", "making it");
      foreign.execute((std::string("PRAGMA application_id = ") + application).c_str(), "marking");
    }
    const std::string before = bytes_of(path_);
    const std::string text = error_of([&] { SqliteRunStore store(path_); });
    EXPECT_THAT(text, HasSubstr(std::string("database of another program (application id ") +
                                application + ","));
    EXPECT_EQ(bytes_of(path_), before);
    EXPECT_FALSE(std::filesystem::exists(path_ + "-wal"));
  }
}

TEST_F(RunStoreTest, RefusesANewerSchemaAndLeavesItAlone) {
  { SqliteRunStore store(path_); }
  SqliteDatabase(path_, 0).execute("PRAGMA user_version = 5", "ageing it");
  const std::string before = bytes_of(path_);
  EXPECT_THAT(error_of([&] { SqliteRunStore store(path_); }),
              HasSubstr("its schema version is 5, and this program knows versions up to 4; use the "
                        "newer program"));
  EXPECT_EQ(bytes_of(path_), before);
}

TEST_F(RunStoreTest, RefusesASchemaVersionThatNeverWas) {
  { SqliteRunStore store(path_); }
  SqliteDatabase(path_, 0).execute("PRAGMA user_version = 0", "breaking it");
  EXPECT_THAT(error_of([&] { SqliteRunStore store(path_); }), HasSubstr("version 0 never existed"));
}

TEST_F(RunStoreTest, FillsAnEmptyFile) {
  std::ofstream(path_).flush();
  SqliteRunStore store(path_);
  EXPECT_GT(store.begin_run(start()), 0);
}

TEST_F(RunStoreTest, MayBeReadWhileItIsWritten) {
  SqliteRunStore writer(path_);
  SqliteRunStore reader(path_);
  const std::int64_t run = writer.begin_run(start());
  writer.record_evaluations(run, batch(1, 5));
  EXPECT_EQ(reader.evaluation_count(run), 5);
  writer.record_evaluations(run, batch(6, 5));
  EXPECT_EQ(reader.best_signals(run, 1).at(0).candidate_number, 10);
}

}  // namespace
}  // namespace varnholt::embedded::test
