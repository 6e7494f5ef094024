#include "hosts/embedded/store/run_store_statements.hpp"

#include <string>

#include "hosts/embedded/store/store_rows.hpp"

namespace varnholt::embedded {
namespace {

constexpr const char* kReadingRuns = "reading runs";
constexpr const char* kReadingEvaluation = "reading an evaluation";
constexpr const char* kReadingSignals = "reading the best signals";
constexpr const char* kCounting = "counting evaluations";
constexpr const char* kReadingMetrics = "reading metrics";

constexpr const char* kInsertRun =
    "INSERT INTO runs (started_at, seed, settings, price_file, price_digest, host_version, "
    "process_id, process_started, boot_id, pid_namespace, price_path, market_id, era_number, eras, "
    "cost_basis_points) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
constexpr const char* kInsertEvaluation =
    "INSERT INTO evaluations (run_id, candidate_number, generation, graph_key, graph, passed, "
    "failure_reason, failure_detail, statistics, sharpe, quality_score, elapsed_seconds, "
    "worker_pid, recorded_at, lineage, failures, market_id, era_number, holdout_statistics) "
    "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
constexpr const char* kInsertMetrics = "INSERT INTO metrics (run_id, record) VALUES (?, ?)";
constexpr const char* kEndRun =
    "UPDATE runs SET ended_at = ?2, terminal_reason = ?3 WHERE id = ?1 AND ended_at IS NULL";
// Nobody saw the end; the last record is the last sign of life.
constexpr const char* kInterruptRun =
    "UPDATE runs SET terminal_reason = ?2, ended_at = coalesce((SELECT max(recorded_at) FROM "
    "evaluations WHERE run_id = ?1), started_at) WHERE id = ?1 AND ended_at IS NULL";
constexpr const char* kUpdateHoldout =
    "UPDATE evaluations SET holdout_statistics = ?2 WHERE eval_id = ?1";
constexpr const char* kSelectOpenRuns =
    "SELECT id, process_id, process_started, boot_id, pid_namespace FROM runs WHERE ended_at IS "
    "NULL ORDER BY id";
constexpr const char* kOneRun = "WHERE id = ?";
constexpr const char* kAllRuns = "ORDER BY id";

constexpr const char* kOneEvaluation = "WHERE eval_id = ?";
constexpr const char* kByQuality =
    "WHERE run_id = ? AND passed = 1 AND quality_score IS NOT NULL "
    "ORDER BY quality_score DESC, candidate_number LIMIT ?";
constexpr const char* kBySharpe =
    "WHERE run_id = ? AND passed = 1 AND sharpe IS NOT NULL "
    "ORDER BY sharpe DESC, candidate_number LIMIT ?";
constexpr const char* kCountFailures =
    "SELECT coalesce(failure_reason, ''), count(*) FROM evaluations WHERE run_id = ? AND passed = "
    "0 GROUP BY 1 ORDER BY 2 DESC, 1";
constexpr const char* kCountEvaluations = "SELECT count(*) FROM evaluations WHERE run_id = ?";
constexpr const char* kSelectMetrics = "SELECT record FROM metrics WHERE run_id = ? ORDER BY id";

std::string joined(const char* columns, const char* condition) {
  return std::string(columns) + condition;
}

}  // namespace

RunStoreStatements::RunStoreStatements(SqliteDatabase& database)
    : insert_run(database, kInsertRun, kBeginning),
      insert_evaluation(database, kInsertEvaluation, kRecording),
      insert_metrics(database, kInsertMetrics, kRecordingMetrics),
      end_run(database, kEndRun, kEnding),
      interrupt_run(database, kInterruptRun, kMarking),
      update_holdout(database, kUpdateHoldout, kRecordingHoldout),
      select_open_runs(database, kSelectOpenRuns, kMarking),
      select_run(database, joined(kRunColumns, kOneRun).c_str(), kReadingRuns),
      select_runs(database, joined(kRunColumns, kAllRuns).c_str(), kReadingRuns),
      select_evaluation(database, joined(kEvaluationColumns, kOneEvaluation).c_str(),
                        kReadingEvaluation),
      select_by_quality(database, joined(kEvaluationColumns, kByQuality).c_str(), kReadingSignals),
      select_by_sharpe(database, joined(kEvaluationColumns, kBySharpe).c_str(), kReadingSignals),
      count_failures(database, kCountFailures, kCounting),
      count_evaluations(database, kCountEvaluations, kCounting),
      select_metrics(database, kSelectMetrics, kReadingMetrics) {}

}  // namespace varnholt::embedded
