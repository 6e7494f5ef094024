#include "hosts/embedded/store/sqlite_run_statements.hpp"

#include "hosts/embedded/store/store_relations.hpp"

namespace varnholt::embedded {
namespace {

constexpr const char* kReadingRuns = "reading runs";
constexpr const char* kReadingSignals = "reading the best signals";
constexpr const char* kCounting = "counting evaluations";
constexpr const char* kReadingMetrics = "reading metrics";
constexpr const char* kReadingTrials = "reading what was tried";

constexpr const char* kInsertMetrics =
    "INSERT INTO metrics (run_id, record) VALUES (:run, :record)";
constexpr const char* kEndRun =
    "UPDATE runs SET ended_at = :ended_at, terminal_reason = :terminal_reason "
    "WHERE id = :run AND ended_at IS NULL";
// Nobody saw the end; the last record is the last sign of life.
constexpr const char* kInterruptRun =
    "UPDATE runs SET terminal_reason = :terminal_reason, ended_at = coalesce((SELECT "
    "max(recorded_at) FROM evaluations WHERE run_id = :run), started_at) "
    "WHERE id = :run AND ended_at IS NULL";
constexpr const char* kUpdateHoldout =
    "UPDATE evaluations SET holdout_statistics = :statistics WHERE eval_id = :eval_id";
constexpr const char* kInsertFigures =
    "INSERT OR REPLACE INTO signal_figures (evaluation_id, sample, figures, first_day, "
    "net_returns) SELECT id, :sample, :figures, :first_day, :net_returns FROM evaluations "
    "WHERE eval_id = :eval_id";
constexpr const char* kInsertPriceDay =
    "INSERT OR REPLACE INTO price_days (run_id, day, date) VALUES (:run, :day, :date)";
constexpr const char* kUpdateLuck = "UPDATE runs SET luck = :luck WHERE id = :run";
constexpr const char* kUpdateDeflated =
    "UPDATE signal_figures SET figures = json_set(figures, '$.deflated_sharpe', :deflated) "
    "WHERE sample = 'in_sample' AND evaluation_id = "
    "(SELECT id FROM evaluations WHERE eval_id = :eval_id)";
// What was backtested on the prices of a run, until it.
constexpr const char* kTrials =
    "FROM evaluations e JOIN runs r ON r.id = e.run_id "
    "WHERE r.id <= :run AND r.price_digest = (SELECT price_digest FROM runs WHERE id = :run) "
    "AND json_valid(e.statistics) AND e.statistics <> 'null' ";
// With min(), the other columns are those of the row that has it.
constexpr const char* kFirstOfEach =
    "SELECT min(e.id) AS first, e.eval_id AS eval_id, "
    "(e.statistics ->> 'gross_returns_sharpe') * "
    "iif(json_valid(e.lineage), coalesce(e.lineage ->> 'orientation', 1), 1) AS gross_sharpe, "
    "iif(json_valid(e.lineage), e.lineage ->> 'origin' = 'fresh', 0) AS is_fresh ";
constexpr const char* kCountOfEach = "SELECT count(DISTINCT e.graph_key) AS count ";

constexpr const char* kAllRuns = "ORDER BY id";
constexpr const char* kOpenRuns = "WHERE ended_at IS NULL ORDER BY id";

constexpr const char* kByQuality =
    "WHERE run_id = :run AND passed = 1 AND quality_score IS NOT NULL "
    "ORDER BY quality_score DESC, candidate_number LIMIT :count";
constexpr const char* kBySharpe =
    "WHERE run_id = :run AND passed = 1 AND sharpe IS NOT NULL "
    "ORDER BY sharpe DESC, candidate_number LIMIT :count";
constexpr const char* kCountFailures =
    "SELECT coalesce(failure_reason, '') AS reason, count(*) AS count FROM evaluations "
    "WHERE run_id = :run AND passed = 0 GROUP BY 1 ORDER BY 2 DESC, 1";
constexpr const char* kCountEvaluations =
    "SELECT count(*) AS count FROM evaluations WHERE run_id = :run";
constexpr const char* kSelectMetrics = "SELECT record FROM metrics WHERE run_id = :run ORDER BY id";

constexpr const char* kInsertPool =
    "INSERT INTO pools (signal_pool_name, market_id, holdout_from) "
    "VALUES (:signal_pool_name, :market_id, :holdout_from) "
    "ON CONFLICT (signal_pool_name, market_id) DO NOTHING";
constexpr const char* kSelectPool =
    "SELECT holdout_from FROM pools "
    "WHERE signal_pool_name = :signal_pool_name AND market_id = :market_id";

std::string runs_where(const char* condition) {
  return select_from(run_relation()) + condition;
}

std::string evaluations_where(const char* condition) {
  return select_from(evaluation_relation()) + condition;
}

}  // namespace

SqliteRunStatements::SqliteRunStatements(SqliteDatabase& database)
    : insert_run(database, insert_into(run_relation()), kBeginning),
      insert_evaluation(database, insert_into(evaluation_relation()), kRecording),
      insert_metrics(database, kInsertMetrics, kRecordingMetrics),
      end_run(database, kEndRun, kEnding),
      interrupt_run(database, kInterruptRun, kMarking),
      update_holdout(database, kUpdateHoldout, kRecordingHoldout),
      insert_figures(database, kInsertFigures, kRecordingFigures),
      insert_price_day(database, kInsertPriceDay, kRecordingFigures),
      update_luck(database, kUpdateLuck, kRecordingFigures),
      update_deflated(database, kUpdateDeflated, kRecordingFigures),
      select_trials(database,
                    std::string(kFirstOfEach) + kTrials + "GROUP BY e.graph_key ORDER BY first",
                    kReadingTrials),
      count_trials(database, std::string(kCountOfEach) + kTrials, kReadingTrials),
      select_open_runs(database, runs_where(kOpenRuns), kMarking),
      select_runs(database, runs_where(kAllRuns), kReadingRuns),
      select_by_quality(database, evaluations_where(kByQuality), kReadingSignals),
      select_by_sharpe(database, evaluations_where(kBySharpe), kReadingSignals),
      count_failures(database, kCountFailures, kCounting),
      count_evaluations(database, kCountEvaluations, kCounting),
      select_metrics(database, kSelectMetrics, kReadingMetrics),
      insert_pool(database, kInsertPool, kSplitting),
      select_pool(database, kSelectPool, kSplitting) {}

}  // namespace varnholt::embedded
