#include "hosts/embedded/store/store_schema.hpp"

#include <fmt/format.h>

namespace varnholt::embedded {
namespace {

constexpr const char* kTables = R"sql(
CREATE TABLE runs (
  id INTEGER PRIMARY KEY,
  started_at REAL NOT NULL,
  seed INTEGER NOT NULL,
  settings TEXT NOT NULL,
  price_file TEXT NOT NULL,
  price_digest TEXT NOT NULL,
  host_version TEXT NOT NULL,
  process_id INTEGER NOT NULL,
  process_started INTEGER NOT NULL,
  boot_id TEXT NOT NULL,
  pid_namespace TEXT NOT NULL,
  ended_at REAL,
  terminal_reason TEXT,
  CHECK ((ended_at IS NULL) = (terminal_reason IS NULL))
) STRICT;

CREATE TABLE evaluations (
  id INTEGER PRIMARY KEY,
  run_id INTEGER NOT NULL REFERENCES runs (id),
  candidate_number INTEGER NOT NULL,
  generation INTEGER NOT NULL,
  graph_key TEXT NOT NULL,
  graph TEXT NOT NULL,
  passed INTEGER NOT NULL CHECK (passed IN (0, 1)),
  failure_reason TEXT,
  failure_detail TEXT,
  statistics TEXT NOT NULL,
  sharpe REAL,
  quality_score REAL,
  elapsed_seconds REAL NOT NULL,
  worker_pid INTEGER,
  recorded_at REAL NOT NULL,
  UNIQUE (run_id, candidate_number)
) STRICT;

CREATE INDEX passing_by_quality ON evaluations (run_id, quality_score) WHERE passed = 1;
CREATE INDEX passing_by_sharpe ON evaluations (run_id, sharpe) WHERE passed = 1;
CREATE INDEX failing_by_reason ON evaluations (run_id, failure_reason) WHERE passed = 0;

CREATE TABLE metrics (
  id INTEGER PRIMARY KEY,
  run_id INTEGER NOT NULL REFERENCES runs (id),
  record TEXT NOT NULL
) STRICT;

CREATE INDEX metrics_by_run ON metrics (run_id);
)sql";

enum class Contents { Empty, Ours };

// Reads only, so that a foreign file is not changed by being looked at.
Contents inspect(SqliteDatabase& database) {
  constexpr const char* kDoing = "reading what kind of file it is";
  const std::int64_t application = database.query_integer("PRAGMA application_id", kDoing);
  const std::int64_t version = database.query_integer("PRAGMA user_version", kDoing);
  const std::int64_t tables = database.query_integer("SELECT count(*) FROM sqlite_schema", kDoing);
  if (application == 0 && version == 0 && tables == 0) return Contents::Empty;
  if (application != kStoreApplicationId) {
    throw StoreError(database.path(),
                     fmt::format("it is a database of another program (application id {}, {} "
                                 "tables and indexes)",
                                 application, tables),
                     "name another file; this one was not changed");
  }
  if (version > kStoreSchemaVersion) {
    throw StoreError(database.path(),
                     fmt::format("its schema version is {}, and this program knows versions up to "
                                 "{}",
                                 version, kStoreSchemaVersion),
                     "use the newer program that made it, or name another file");
  }
  if (version < kStoreSchemaVersion) {
    throw StoreError(database.path(), fmt::format("its schema version {} never existed", version),
                     "the file is damaged; move it away or name another file");
  }
  return Contents::Ours;
}

void make_tables(SqliteDatabase& database) {
  constexpr const char* kDoing = "making the tables";
  SqliteTransaction transaction(database, kDoing);
  // Another process may have been quicker between the look and the lock.
  if (inspect(database) == Contents::Ours) return;
  database.execute(kTables, kDoing);
  database.execute(fmt::format("PRAGMA application_id = {}", kStoreApplicationId).c_str(), kDoing);
  database.execute(fmt::format("PRAGMA user_version = {}", kStoreSchemaVersion).c_str(), kDoing);
  transaction.commit();
}

}  // namespace

void prepare_schema(SqliteDatabase& database) {
  const Contents contents = inspect(database);
  if (::sqlite3_db_readonly(database.handle(), "main") == 1) {
    throw StoreError(database.path(), "it can be read but not written",
                     "check the permissions of the file and of its folder");
  }
  constexpr const char* kDoing = "turning on write-ahead logging";
  const std::string mode = database.query_text("PRAGMA journal_mode = WAL", kDoing);
  if (mode != "wal") {
    throw StoreError(database.path(), fmt::format("{} failed: the mode stays {}", kDoing, mode),
                     "keep the file on a local disk; network file systems cannot do it");
  }
  database.execute("PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON", "setting it up");
  if (contents == Contents::Empty) make_tables(database);
}

}  // namespace varnholt::embedded
