#include "hosts/embedded/store/run_store.hpp"

#include <filesystem>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/store/process_identity.hpp"
#include "hosts/embedded/store/sqlite_database.hpp"
#include "hosts/embedded/store/store_schema.hpp"

namespace varnholt::embedded {
namespace {

constexpr const char* kBeginning = "beginning a run";
constexpr const char* kRecording = "recording evaluations";
constexpr const char* kRecordingMetrics = "recording metrics";
constexpr const char* kEnding = "ending a run";
constexpr const char* kMarking = "marking interrupted runs";
constexpr const char* kReadingRuns = "reading runs";
constexpr const char* kReadingSignals = "reading the best signals";
constexpr const char* kCounting = "counting evaluations";
constexpr const char* kReadingMetrics = "reading metrics";

constexpr const char* kInsertRun =
    "INSERT INTO runs (started_at, seed, settings, price_file, price_digest, host_version, "
    "process_id, process_started, boot_id, pid_namespace) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
constexpr const char* kInsertEvaluation =
    "INSERT INTO evaluations (run_id, candidate_number, generation, graph_key, graph, passed, "
    "failure_reason, failure_detail, statistics, sharpe, quality_score, elapsed_seconds, "
    "worker_pid, recorded_at) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
constexpr const char* kInsertMetrics = "INSERT INTO metrics (run_id, record) VALUES (?, ?)";
constexpr const char* kEndRun =
    "UPDATE runs SET ended_at = ?2, terminal_reason = ?3 WHERE id = ?1 AND ended_at IS NULL";
// Nobody saw the end; the last record is the last sign of life.
constexpr const char* kInterruptRun =
    "UPDATE runs SET terminal_reason = ?2, ended_at = coalesce((SELECT max(recorded_at) FROM "
    "evaluations WHERE run_id = ?1), started_at) WHERE id = ?1 AND ended_at IS NULL";
constexpr const char* kSelectOpenRuns =
    "SELECT id, process_id, process_started, boot_id, pid_namespace FROM runs WHERE ended_at IS "
    "NULL ORDER BY id";
constexpr const char* kSelectRun =
    "SELECT id, started_at, seed, settings, price_file, price_digest, host_version, process_id, "
    "ended_at, terminal_reason FROM runs WHERE id = ?";
constexpr const char* kSelectRuns =
    "SELECT id, started_at, seed, settings, price_file, price_digest, host_version, process_id, "
    "ended_at, terminal_reason FROM runs ORDER BY id";
constexpr const char* kSelectByQuality =
    "SELECT candidate_number, generation, graph_key, graph, passed, failure_reason, "
    "failure_detail, statistics, sharpe, quality_score, elapsed_seconds, worker_pid, recorded_at "
    "FROM evaluations WHERE run_id = ? AND passed = 1 AND quality_score IS NOT NULL "
    "ORDER BY quality_score DESC, candidate_number LIMIT ?";
constexpr const char* kSelectBySharpe =
    "SELECT candidate_number, generation, graph_key, graph, passed, failure_reason, "
    "failure_detail, statistics, sharpe, quality_score, elapsed_seconds, worker_pid, recorded_at "
    "FROM evaluations WHERE run_id = ? AND passed = 1 AND sharpe IS NOT NULL "
    "ORDER BY sharpe DESC, candidate_number LIMIT ?";
constexpr const char* kCountFailures =
    "SELECT coalesce(failure_reason, ''), count(*) FROM evaluations WHERE run_id = ? AND passed = "
    "0 GROUP BY 1 ORDER BY 2 DESC, 1";
constexpr const char* kCountEvaluations = "SELECT count(*) FROM evaluations WHERE run_id = ?";
constexpr const char* kSelectMetrics = "SELECT record FROM metrics WHERE run_id = ? ORDER BY id";

RunRecord read_run(SqliteUse& row) {
  RunRecord run;
  run.id = row.integer();
  run.start.started_at = row.real();
  run.start.seed = row.integer();
  run.start.settings_json = row.text();
  run.start.price_file = row.text();
  run.start.price_digest = row.text();
  run.start.host_version = row.text();
  run.process_id = row.integer();
  run.ended_at = row.optional_real();
  run.terminal_reason = row.optional_text();
  return run;
}

EvaluationRecord read_evaluation(SqliteUse& row) {
  EvaluationRecord evaluation;
  evaluation.candidate_number = row.integer();
  evaluation.generation = row.integer();
  evaluation.graph_key = row.text();
  evaluation.graph_json = row.text();
  evaluation.passed = row.integer() != 0;
  evaluation.failure_reason = row.optional_text();
  evaluation.failure_detail = row.optional_text();
  evaluation.statistics_json = row.text();
  evaluation.sharpe = row.optional_real();
  evaluation.quality_score = row.optional_real();
  evaluation.elapsed_seconds = row.real();
  evaluation.worker_pid = row.optional_integer();
  evaluation.recorded_at = row.real();
  return evaluation;
}

std::string checked_path(const std::string& path) {
  if (path.empty() || path == ":memory:") {
    throw StoreError(path.empty() ? "(no name)" : path, "it is no file",
                     "name a file, so that what the run finds outlives it");
  }
  // An absolute name still holds after a change of the working directory, and is never taken for
  // one of SQLite's "file:" addresses.
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  if (error) throw StoreError(path, error.message(), "name a file in a folder that exists");
  return absolute.string();
}

}  // namespace

// Prepared once, when the store is opened.
struct RunStore::Statements {
  explicit Statements(SqliteDatabase& database)
      : insert_run(database, kInsertRun, kBeginning),
        insert_evaluation(database, kInsertEvaluation, kRecording),
        insert_metrics(database, kInsertMetrics, kRecordingMetrics),
        end_run(database, kEndRun, kEnding),
        interrupt_run(database, kInterruptRun, kMarking),
        select_open_runs(database, kSelectOpenRuns, kMarking),
        select_run(database, kSelectRun, kReadingRuns),
        select_runs(database, kSelectRuns, kReadingRuns),
        select_by_quality(database, kSelectByQuality, kReadingSignals),
        select_by_sharpe(database, kSelectBySharpe, kReadingSignals),
        count_failures(database, kCountFailures, kCounting),
        count_evaluations(database, kCountEvaluations, kCounting),
        select_metrics(database, kSelectMetrics, kReadingMetrics) {}

  SqliteStatement insert_run;
  SqliteStatement insert_evaluation;
  SqliteStatement insert_metrics;
  SqliteStatement end_run;
  SqliteStatement interrupt_run;
  SqliteStatement select_open_runs;
  SqliteStatement select_run;
  SqliteStatement select_runs;
  SqliteStatement select_by_quality;
  SqliteStatement select_by_sharpe;
  SqliteStatement count_failures;
  SqliteStatement count_evaluations;
  SqliteStatement select_metrics;
};

RunStore::RunStore(const std::string& path, const Options& options)
    : database_(
          std::make_unique<SqliteDatabase>(checked_path(path), options.busy_timeout_milliseconds)) {
  prepare_schema(*database_);
  statements_ = std::make_unique<Statements>(*database_);
  interrupted_runs_ = mark_interrupted_runs();
}

RunStore::~RunStore() = default;

const std::string& RunStore::path() const noexcept {
  return database_->path();
}

std::vector<std::int64_t> RunStore::mark_interrupted_runs() {
  std::vector<std::int64_t> dead;
  {
    SqliteUse rows(statements_->select_open_runs);
    while (rows.step()) {
      const std::int64_t id = rows.integer();
      ProcessIdentity process;
      process.pid = rows.integer();
      process.started_ticks = rows.integer();
      process.boot_id = rows.text();
      process.pid_namespace = rows.text();
      if (liveness(process) == Liveness::Dead) dead.push_back(id);
    }
  }
  // Most often there is none, and then no lock is taken.
  if (dead.empty()) return dead;
  std::vector<std::int64_t> marked;
  SqliteTransaction transaction(*database_, kMarking);
  for (const std::int64_t id : dead) {
    // Another process may have been quicker; each run is marked by one.
    const int changed = SqliteUse(statements_->interrupt_run)
                            .bind(id)
                            .bind(std::string_view(kInterrupted))
                            .change();
    if (changed == 1) marked.push_back(id);
  }
  transaction.commit();
  return marked;
}

std::int64_t RunStore::begin_run(const RunStart& start) {
  const ProcessIdentity own = own_identity();
  static_cast<void>(SqliteUse(statements_->insert_run)
                        .bind(start.started_at)
                        .bind(start.seed)
                        .bind(start.settings_json)
                        .bind(start.price_file)
                        .bind(start.price_digest)
                        .bind(start.host_version)
                        .bind(own.pid)
                        .bind(own.started_ticks)
                        .bind(own.boot_id)
                        .bind(own.pid_namespace)
                        .change());
  return ::sqlite3_last_insert_rowid(database_->handle());
}

void RunStore::record_evaluations(std::int64_t run,
                                  const std::vector<EvaluationRecord>& evaluations) {
  if (evaluations.empty()) return database_->require_owner();
  SqliteTransaction transaction(*database_, kRecording);
  require_run(run, kRecording);
  for (const EvaluationRecord& evaluation : evaluations) {
    static_cast<void>(SqliteUse(statements_->insert_evaluation)
                          .bind(run)
                          .bind(evaluation.candidate_number)
                          .bind(evaluation.generation)
                          .bind(evaluation.graph_key)
                          .bind(evaluation.graph_json)
                          .bind(std::int64_t{evaluation.passed})
                          .bind(evaluation.failure_reason)
                          .bind(evaluation.failure_detail)
                          .bind(evaluation.statistics_json)
                          .bind(evaluation.sharpe)
                          .bind(evaluation.quality_score)
                          .bind(evaluation.elapsed_seconds)
                          .bind(evaluation.worker_pid)
                          .bind(evaluation.recorded_at)
                          .change());
  }
  transaction.commit();
}

void RunStore::record_metrics(std::int64_t run, const std::string& record_json) {
  SqliteTransaction transaction(*database_, kRecordingMetrics);
  require_run(run, kRecordingMetrics);
  static_cast<void>(SqliteUse(statements_->insert_metrics).bind(run).bind(record_json).change());
  transaction.commit();
}

bool RunStore::end_run(std::int64_t run, double ended_at, const std::string& terminal_reason) {
  SqliteTransaction transaction(*database_, kEnding);
  require_run(run, kEnding);
  const int changed =
      SqliteUse(statements_->end_run).bind(run).bind(ended_at).bind(terminal_reason).change();
  transaction.commit();
  return changed == 1;
}

void RunStore::require_run(std::int64_t run, const char* doing) {
  if (find_run(run)) return;
  throw StoreError(path(), fmt::format("{} failed: there is no run {}", doing, run),
                   "begin the run first");
}

std::optional<RunRecord> RunStore::find_run(std::int64_t run) {
  SqliteUse rows(statements_->select_run);
  if (!rows.bind(run).step()) return std::nullopt;
  return read_run(rows);
}

std::vector<RunRecord> RunStore::runs() {
  std::vector<RunRecord> found;
  SqliteUse rows(statements_->select_runs);
  while (rows.step()) {
    found.push_back(read_run(rows));
  }
  return found;
}

std::vector<EvaluationRecord> RunStore::best_signals(std::int64_t run, std::int64_t count,
                                                     SignalOrder order) {
  std::vector<EvaluationRecord> found;
  // SQLite takes a negative limit for none.
  if (count <= 0) return found;
  SqliteUse rows(order == SignalOrder::Sharpe ? statements_->select_by_sharpe
                                              : statements_->select_by_quality);
  rows.bind(run).bind(count);
  while (rows.step()) {
    found.push_back(read_evaluation(rows));
  }
  return found;
}

std::vector<FailureCount> RunStore::failure_counts(std::int64_t run) {
  std::vector<FailureCount> found;
  SqliteUse rows(statements_->count_failures);
  rows.bind(run);
  while (rows.step()) {
    FailureCount& entry = found.emplace_back();
    entry.reason = rows.text();
    entry.count = rows.integer();
  }
  return found;
}

std::int64_t RunStore::evaluation_count(std::int64_t run) {
  SqliteUse rows(statements_->count_evaluations);
  return rows.bind(run).step() ? rows.integer() : 0;
}

std::vector<std::string> RunStore::metrics(std::int64_t run) {
  std::vector<std::string> found;
  SqliteUse rows(statements_->select_metrics);
  rows.bind(run);
  while (rows.step()) {
    found.push_back(rows.text());
  }
  return found;
}

}  // namespace varnholt::embedded
