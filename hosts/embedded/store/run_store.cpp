#include "hosts/embedded/store/run_store.hpp"

#include <filesystem>
#include <system_error>

#include <fmt/format.h>

#include "hosts/embedded/store/run_store_statements.hpp"
#include "hosts/embedded/store/sqlite_database.hpp"
#include "hosts/embedded/store/store_rows.hpp"
#include "hosts/embedded/store/store_schema.hpp"
#include "hosts/embedded/system/process_identity.hpp"

namespace varnholt::embedded {
namespace {

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

std::unique_ptr<SqliteDatabase> opened(const std::string& path, const RunStore::Options& options) {
  auto database =
      std::make_unique<SqliteDatabase>(checked_path(path), options.busy_timeout_milliseconds);
  prepare_schema(*database);
  return database;
}

}  // namespace

RunStore::RunStore(const std::string& path, const Options& options)
    : database_(opened(path, options)),
      statements_(std::make_unique<RunStoreStatements>(*database_)),
      submissions_(*database_),
      interrupted_runs_(mark_interrupted_runs()) {}

RunStore::~RunStore() = default;

const std::string& RunStore::path() const noexcept {
  return database_->path();
}

SqliteTransaction RunStore::lock(const char* doing) {
  return {*database_, doing};
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
                        .bind(start.price_path)
                        .bind(start.market_id)
                        .bind(start.era_number)
                        .bind(start.eras_json)
                        .bind(start.cost_basis_points)
                        .change());
  return ::sqlite3_last_insert_rowid(database_->handle());
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
