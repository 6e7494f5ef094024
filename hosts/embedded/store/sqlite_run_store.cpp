#include "hosts/embedded/store/sqlite_run_store.hpp"

#include <filesystem>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/store/sqlite_run_statements.hpp"
#include "hosts/embedded/store/store_files.hpp"
#include "hosts/embedded/store/store_relations.hpp"
#include "hosts/embedded/store/store_schema.hpp"
#include "hosts/embedded/system/process_identity.hpp"
#include "hosts/embedded/system/wall_clock.hpp"

namespace varnholt::embedded {
namespace {

std::string checked_path(const std::string& path) {
  if (path.empty() || path == ":memory:") {
    throw StoreError(path.empty() ? "(no name)" : path, "it is no file",
                     "name a file, so that what the run finds outlives it");
  }
  if (const auto database = database_beside(path)) {
    throw StoreError(
        path,
        fmt::format("it is the name of a file that {} keeps beside itself", database->string()),
        "name that one, or another file");
  }
  // An absolute name still holds after a change of the working directory, and is never taken for
  // one of SQLite's "file:" addresses.
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  if (error) throw StoreError(path, error.message(), "name a file in a folder that exists");
  return absolute.string();
}

std::unique_ptr<SqliteDatabase> opened(const std::string& path, const StoreOptions& options) {
  auto database =
      std::make_unique<SqliteDatabase>(checked_path(path), options.busy_timeout_milliseconds);
  try {
    prepare_schema(*database);
  } catch (...) {
    database->discard_new_file();
    throw;
  }
  return database;
}

}  // namespace

std::unique_ptr<RunStore> open_run_store(const std::string& path, const StoreOptions& options) {
  return std::make_unique<SqliteRunStore>(path, options);
}

SqliteRunStore::SqliteRunStore(const std::string& path, const StoreOptions& options)
    : database_(opened(path, options)),
      statements_(std::make_unique<SqliteRunStatements>(*database_)),
      rows_(*database_),
      submissions_(*database_),
      attempts_(*database_),
      swept_(sweep()) {}

SqliteRunStore::~SqliteRunStore() = default;

const std::string& SqliteRunStore::path() const noexcept {
  return database_->path();
}

void SqliteRunStore::under_lock(const char* doing, const std::function<LockedWork()>& work) {
  SqliteTransaction transaction(*database_, doing);
  if (work() == LockedWork::Keep) transaction.commit();
}

// A run that is marked as over has nothing open: the steps are one transaction. Most often no run
// has died, and then no lock is taken; each step looks for itself for what a failed run left.
StoreSweep SqliteRunStore::sweep() {
  StoreSweep swept;
  const auto take_steps = [&](const std::vector<std::int64_t>& dead) {
    swept.interrupted_runs = mark_interrupted(dead);
    swept.abandoned_attempts = attempts_.abandon_open_attempts(wall_clock_seconds());
    swept.completed_submissions = submissions_.complete_announced();
    return LockedWork::Keep;
  };
  const std::vector<std::int64_t> dead = dead_runs();
  if (dead.empty()) {
    take_steps(dead);
  } else {
    under_lock(kMarking, [&] { return take_steps(dead); });
  }
  return swept;
}

std::vector<std::int64_t> SqliteRunStore::dead_runs() {
  std::vector<std::int64_t> dead;
  SqliteUse rows(statements_->select_open_runs);
  while (rows.step()) {
    const RunRecord run = read_row(rows, run_relation());
    if (liveness(run.process) == Liveness::Dead) dead.push_back(run.id);
  }
  return dead;
}

std::vector<std::int64_t> SqliteRunStore::mark_interrupted(const std::vector<std::int64_t>& dead) {
  std::vector<std::int64_t> marked;
  for (const std::int64_t id : dead) {
    // Another process may have been quicker; each run is marked by one.
    const int changed = SqliteUse(statements_->interrupt_run)
                            .bind("run", id)
                            .bind("terminal_reason", std::string_view(kInterrupted))
                            .change();
    if (changed == 1) marked.push_back(id);
  }
  return marked;
}

std::int64_t SqliteRunStore::begin_run(const RunStart& start) {
  RunRecord run;
  run.start = start;
  run.process = own_identity();
  SqliteUse use(statements_->insert_run);
  static_cast<void>(bind_columns(use, run_relation(), Written::AtInsertion, run).change());
  return ::sqlite3_last_insert_rowid(database_->handle());
}

void SqliteRunStore::record_metrics(std::int64_t run, const std::string& record_json) {
  SqliteTransaction transaction(*database_, kRecordingMetrics);
  require_run(run, kRecordingMetrics);
  static_cast<void>(
      SqliteUse(statements_->insert_metrics).bind("run", run).bind("record", record_json).change());
  transaction.commit();
}

bool SqliteRunStore::end_run(std::int64_t run, double ended_at,
                             const std::string& terminal_reason) {
  SqliteTransaction transaction(*database_, kEnding);
  require_run(run, kEnding);
  const int changed = SqliteUse(statements_->end_run)
                          .bind("run", run)
                          .bind("ended_at", ended_at)
                          .bind("terminal_reason", terminal_reason)
                          .change();
  static_cast<void>(attempts_.abandon_open_attempts(ended_at));
  transaction.commit();
  return changed == 1;
}

std::string SqliteRunStore::keep_holdout_from(const PoolIdentity& pool,
                                              const std::string& first_day) {
  SqliteTransaction transaction(*database_, kSplitting);
  static_cast<void>(SqliteUse(statements_->insert_pool)
                        .bind("signal_pool_name", pool.signal_pool_name)
                        .bind("market_id", pool.market_id)
                        .bind("holdout_from", first_day)
                        .change());
  SqliteUse row(statements_->select_pool);
  row.bind("signal_pool_name", pool.signal_pool_name).bind("market_id", pool.market_id);
  std::string kept = row.step() ? row.text("holdout_from") : first_day;
  transaction.commit();
  return kept;
}

void SqliteRunStore::require_run(std::int64_t run, const char* doing) {
  if (find_run(run)) return;
  throw StoreError(path(), fmt::format("{} failed: there is no run {}", doing, run),
                   "begin the run first");
}

std::vector<RunRecord> SqliteRunStore::runs() {
  std::vector<RunRecord> found;
  SqliteUse rows(statements_->select_runs);
  while (rows.step())
    found.push_back(read_row(rows, run_relation()));
  return found;
}

std::vector<std::string> SqliteRunStore::metrics(std::int64_t run) {
  std::vector<std::string> found;
  SqliteUse rows(statements_->select_metrics);
  rows.bind("run", run);
  while (rows.step())
    found.push_back(rows.text("record"));
  return found;
}

}  // namespace varnholt::embedded
