#include "hosts/embedded/store/store_schema.hpp"

#include <array>
#include <chrono>

#include <fmt/format.h>

namespace varnholt::embedded {
namespace {

// A file is made by the same statements that bring an old one up to date, so that the two have the
// same tables. A released version's statements never change; a later version adds its own.
constexpr const char* kVersion1 = R"sql(
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

// A generated id cannot contradict the columns that it is made of. Of the failures of an old row,
// the first is what is known.
constexpr const char* kVersion2 = R"sql(
ALTER TABLE runs ADD COLUMN price_path TEXT NOT NULL DEFAULT '';
ALTER TABLE runs ADD COLUMN market_id INTEGER;
ALTER TABLE runs ADD COLUMN era_number INTEGER;
ALTER TABLE runs ADD COLUMN eras TEXT NOT NULL DEFAULT 'null';
ALTER TABLE runs ADD COLUMN cost_basis_points REAL;

ALTER TABLE evaluations ADD COLUMN eval_id TEXT
  GENERATED ALWAYS AS (run_id || '-' || candidate_number) VIRTUAL;
ALTER TABLE evaluations ADD COLUMN lineage TEXT NOT NULL DEFAULT '{"origin":"unknown"}';
ALTER TABLE evaluations ADD COLUMN failures TEXT NOT NULL DEFAULT '{}';
ALTER TABLE evaluations ADD COLUMN market_id INTEGER;
ALTER TABLE evaluations ADD COLUMN era_number INTEGER;
ALTER TABLE evaluations ADD COLUMN holdout_statistics TEXT;

UPDATE evaluations SET failures = json_object(failure_reason, CASE
    WHEN failure_detail IS NULL THEN json_object('reason', failure_reason)
    ELSE json_object('reason', failure_reason, 'detail', failure_detail) END)
  WHERE failure_reason IS NOT NULL;

CREATE UNIQUE INDEX evaluations_by_eval_id ON evaluations (eval_id);

CREATE TABLE submissions (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  run_id INTEGER NOT NULL REFERENCES runs (id),
  evaluation_id INTEGER NOT NULL REFERENCES evaluations (id),
  eval_id TEXT NOT NULL,
  graph_key TEXT NOT NULL,
  signal_pool_name TEXT NOT NULL,
  market_id INTEGER NOT NULL,
  era_number INTEGER NOT NULL,
  data_key TEXT NOT NULL,
  state TEXT NOT NULL CHECK (state IN ('queued', 'submitted', 'refused')),
  pending_reason TEXT,
  payload TEXT NOT NULL,
  pnl BLOB,
  score REAL,
  score_threshold REAL,
  correlation REAL,
  correlation_threshold REAL,
  refusal_reason TEXT,
  refusal_detail TEXT,
  queued_at REAL NOT NULL,
  settled_at REAL,
  settled_order INTEGER UNIQUE,
  CHECK ((state = 'queued') = (settled_at IS NULL)),
  CHECK ((state = 'queued') = (settled_order IS NULL)),
  CHECK ((state = 'refused') = (refusal_reason IS NOT NULL)),
  CHECK (state = 'queued' OR (score IS NOT NULL AND score_threshold IS NOT NULL
    AND correlation IS NOT NULL AND correlation_threshold IS NOT NULL))
) STRICT;

CREATE UNIQUE INDEX one_submission_a_structure
  ON submissions (signal_pool_name, market_id, era_number, data_key, graph_key)
  WHERE state <> 'refused';
CREATE INDEX submissions_by_pool
  ON submissions (signal_pool_name, market_id, era_number, data_key, state, settled_order);
CREATE INDEX submissions_by_evaluation ON submissions (evaluation_id);
CREATE INDEX submissions_by_run ON submissions (run_id);
)sql";

// An event's place in time is its id: a wall clock may be set back.
constexpr const char* kVersion3 = R"sql(
CREATE TABLE attempts (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  run_id INTEGER NOT NULL REFERENCES runs (id),
  source_path TEXT NOT NULL,
  graph_key TEXT NOT NULL,
  graph TEXT NOT NULL,
  algorithm TEXT NOT NULL,
  rotation_identifier TEXT NOT NULL,
  era_number INTEGER,
  market_id INTEGER,
  data_shape TEXT NOT NULL,
  expected_columns TEXT NOT NULL,
  eval_type TEXT NOT NULL,
  terminal_disposition TEXT,
  backtest_completed INTEGER CHECK (backtest_completed IN (0, 1)),
  generated_stats TEXT,
  candidate_stats TEXT,
  stats_construction_blocker TEXT,
  per_column_inventory TEXT,
  threshold_gate TEXT,
  failure_category TEXT,
  failure_reason TEXT,
  failure_detail TEXT,
  classification_source TEXT,
  eval_id TEXT,
  ignored_ends INTEGER NOT NULL DEFAULT 0,
  CHECK (terminal_disposition <> 'open'),
  CHECK ((terminal_disposition IS NULL) = (backtest_completed IS NULL)),
  CHECK ((terminal_disposition IS NULL) = (classification_source IS NULL))
) STRICT;

CREATE INDEX open_attempts ON attempts (run_id, graph_key) WHERE terminal_disposition IS NULL;
CREATE INDEX attempts_by_run ON attempts (run_id);
CREATE INDEX attempts_by_evaluation ON attempts (eval_id) WHERE eval_id IS NOT NULL;

CREATE TABLE attempt_events (
  id INTEGER PRIMARY KEY,
  attempt_id INTEGER NOT NULL REFERENCES attempts (id),
  step TEXT NOT NULL CHECK (step IN ('created', 'dispatched', 'backtest_started', 'ended')),
  at REAL NOT NULL,
  process_id INTEGER NOT NULL,
  UNIQUE (attempt_id, step)
) STRICT;

CREATE TABLE evaluation_markers (
  id INTEGER PRIMARY KEY,
  run_id INTEGER NOT NULL REFERENCES runs (id),
  graph_key TEXT NOT NULL,
  named_universe TEXT NOT NULL,
  metaparameters TEXT NOT NULL,
  phase TEXT NOT NULL,
  opened_at REAL NOT NULL,
  closed_at REAL
) STRICT;

CREATE INDEX open_markers ON evaluation_markers (run_id) WHERE closed_at IS NULL;

CREATE TABLE announced_submissions (
  evaluation_id INTEGER PRIMARY KEY REFERENCES evaluations (id),
  signal_pool_name TEXT NOT NULL,
  market_id INTEGER NOT NULL,
  era_number INTEGER NOT NULL,
  data_key TEXT NOT NULL,
  pending_reason TEXT,
  payload TEXT NOT NULL,
  pnl BLOB NOT NULL,
  queued_at REAL NOT NULL
) STRICT;
)sql";

// From here on a pool is its name and its market. Of the submissions of one structure that stand in
// what is one pool now, the member that joined first stays; the others are refused, as they would
// have been. The hold-out of a pool begins where the latest of its runs had it: none of its members
// has seen a day of that.
//
// The views stand last: they are for readers with other programs, and name what the tables have.
constexpr const char* kVersion4 = R"sql(
DROP INDEX one_submission_a_structure;
DROP INDEX submissions_by_pool;

WITH standing AS (
  SELECT id, row_number() OVER (PARTITION BY signal_pool_name, market_id, graph_key
    ORDER BY state = 'queued', settled_order, id) AS place
  FROM submissions WHERE state <> 'refused'),
repeated AS (
  SELECT id, row_number() OVER (ORDER BY id) + (SELECT coalesce(max(settled_order), 0)
    FROM submissions) AS next_order
  FROM standing WHERE place > 1)
UPDATE submissions SET
  state = 'refused',
  refusal_reason = 'duplicate',
  refusal_detail = 'its structure is in the pool by an earlier submission on other prices',
  score = coalesce(score, 0.0),
  score_threshold = coalesce(score_threshold, 0.0),
  correlation = coalesce(correlation, 1.0),
  correlation_threshold = coalesce(correlation_threshold, 1.0),
  settled_at = coalesce(settled_at, queued_at),
  settled_order = coalesce(settled_order, repeated.next_order)
FROM repeated WHERE repeated.id = submissions.id;

CREATE UNIQUE INDEX one_submission_a_structure
  ON submissions (signal_pool_name, market_id, graph_key) WHERE state <> 'refused';
CREATE INDEX submissions_by_pool
  ON submissions (signal_pool_name, market_id, state, settled_order);

ALTER TABLE runs ADD COLUMN evaluation_key TEXT NOT NULL DEFAULT '';
CREATE INDEX runs_by_evaluation_key ON runs (evaluation_key) WHERE evaluation_key <> '';

CREATE TABLE pools (
  id INTEGER PRIMARY KEY,
  signal_pool_name TEXT NOT NULL,
  market_id INTEGER NOT NULL,
  holdout_from TEXT NOT NULL,
  UNIQUE (signal_pool_name, market_id)
) STRICT;

INSERT INTO pools (signal_pool_name, market_id, holdout_from)
  SELECT signal_pool_name, market_id, max(holdout_from) FROM (
    SELECT s.signal_pool_name, s.market_id,
      CASE WHEN json_valid(r.eras) THEN r.eras ->> '$.holdout.first_date' END AS holdout_from
    FROM submissions s JOIN runs r ON r.id = s.run_id)
  WHERE holdout_from IS NOT NULL GROUP BY 1, 2;

CREATE TABLE member_measures (
  id INTEGER PRIMARY KEY,
  submission_id INTEGER NOT NULL REFERENCES submissions (id),
  data_key TEXT NOT NULL,
  run_id INTEGER NOT NULL REFERENCES runs (id),
  statistics TEXT,
  sharpe REAL,
  pnl BLOB,
  problem TEXT,
  measured_at REAL NOT NULL,
  UNIQUE (submission_id, data_key),
  CHECK ((pnl IS NULL) = (problem IS NOT NULL)),
  CHECK ((pnl IS NULL) = (statistics IS NULL))
) STRICT;

ALTER TABLE evaluations ADD COLUMN expression TEXT;
ALTER TABLE runs ADD COLUMN luck TEXT;

CREATE TABLE price_days (
  run_id INTEGER NOT NULL REFERENCES runs (id),
  day INTEGER NOT NULL,
  date TEXT NOT NULL,
  PRIMARY KEY (run_id, day)
) STRICT, WITHOUT ROWID;

CREATE TABLE signal_figures (
  evaluation_id INTEGER NOT NULL REFERENCES evaluations (id),
  sample TEXT NOT NULL CHECK (sample IN ('in_sample', 'holdout')),
  figures TEXT NOT NULL,
  first_day INTEGER NOT NULL,
  net_returns TEXT NOT NULL,
  PRIMARY KEY (evaluation_id, sample)
) STRICT, WITHOUT ROWID;

CREATE VIEW signals AS
SELECT s.eval_id, s.run_id, s.signal_pool_name, s.market_id, s.era_number, s.state,
  s.refusal_reason, s.score AS novelty, s.correlation, e.expression, e.sharpe,
  e.holdout_statistics ->> 'sharpe' AS holdout_sharpe, e.quality_score,
  e.statistics ->> 'annualized_returns' AS annualized_returns,
  e.statistics ->> 'turnover' AS turnover, e.statistics ->> 'drawdown' AS drawdown,
  f.figures ->> 'deflated_sharpe' AS deflated_sharpe, s.queued_at, s.settled_at
FROM submissions s JOIN evaluations e ON e.id = s.evaluation_id
LEFT JOIN signal_figures f ON f.evaluation_id = e.id AND f.sample = 'in_sample';

CREATE VIEW figures AS
SELECT e.eval_id, f.sample, j.key AS name, j.value AS value
FROM signal_figures f JOIN evaluations e ON e.id = f.evaluation_id JOIN json_each(f.figures) j
WHERE j.type IN ('integer', 'real');

CREATE VIEW daily_returns AS
SELECT e.eval_id, e.run_id, f.sample, d.date, j.value AS net_return
FROM signal_figures f JOIN evaluations e ON e.id = f.evaluation_id JOIN json_each(f.net_returns) j
JOIN price_days d ON d.run_id = e.run_id AND d.day = f.first_day + j.key;

CREATE VIEW yearly_figures AS
SELECT e.eval_id, f.sample, y.value ->> 'year' AS year, y.value ->> 'days' AS days,
  y.value ->> 'net_return' AS net_return, y.value ->> 'sharpe' AS sharpe,
  y.value ->> 'volatility' AS volatility, y.value ->> 'drawdown' AS drawdown,
  y.value ->> 'turnover' AS turnover
FROM signal_figures f JOIN evaluations e ON e.id = f.evaluation_id
JOIN json_each(f.figures, '$.by_year') y;
)sql";

constexpr auto kVersions = std::to_array({kVersion1, kVersion2, kVersion3, kVersion4});
static_assert(kVersions.size() == static_cast<std::size_t>(kStoreSchemaVersion));

// The file's schema version, 0 for an empty file. Reads only, so that a foreign file is not changed
// by being looked at.
std::int64_t version_of(SqliteDatabase& database) {
  constexpr const char* kDoing = "reading what kind of file it is";
  // All three of one moment: another process may be making the tables. Within a transaction or not.
  database.execute("SAVEPOINT look", kDoing);
  const std::int64_t application = database.query_integer("PRAGMA application_id", kDoing);
  const std::int64_t version = database.query_integer("PRAGMA user_version", kDoing);
  const std::int64_t tables = database.query_integer("SELECT count(*) FROM sqlite_schema", kDoing);
  database.execute("RELEASE look", kDoing);
  if (application == 0 && version == 0 && tables == 0) return 0;
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
  if (version < 1) {
    throw StoreError(database.path(), fmt::format("its schema version {} never existed", version),
                     "the file is damaged; move it away or name another file");
  }
  return version;
}

// Runs the statements of every version that the file has not yet, all of them or none.
void bring_up_to_date(SqliteDatabase& database) {
  constexpr const char* kDoing = "bringing the tables up to date";
  SqliteTransaction transaction(database, kDoing);
  // Another process may have been quicker between the look and the lock.
  const std::int64_t before = version_of(database);
  if (before == kStoreSchemaVersion) return;
  for (std::int64_t version = before; version < kStoreSchemaVersion; ++version) {
    database.execute(kVersions[static_cast<std::size_t>(version)], kDoing);
  }
  database.execute(fmt::format("PRAGMA application_id = {}", kStoreApplicationId).c_str(), kDoing);
  database.execute(fmt::format("PRAGMA user_version = {}", kStoreSchemaVersion).c_str(), kDoing);
  transaction.commit();
}

// The journal mode that the file has then. Two connections that turn it on at once both hold what
// the other one needs: SQLite fails then without waiting, and trying again is the cure.
std::string turn_on_write_ahead_logging(SqliteDatabase& database, const char* doing) {
  using Clock = std::chrono::steady_clock;
  constexpr int kPauseMilliseconds = 5;
  const auto deadline =
      Clock::now() + std::chrono::milliseconds(database.busy_timeout_milliseconds());
  for (;;) {
    try {
      return database.query_text("PRAGMA journal_mode = WAL", doing);
    } catch (const StoreBusyError&) {
      if (Clock::now() >= deadline) throw;
    }
    ::sqlite3_sleep(kPauseMilliseconds);
  }
}

}  // namespace

void prepare_schema(SqliteDatabase& database) {
  database.require_same_file("opening it");
  const std::int64_t version = version_of(database);
  if (::sqlite3_db_readonly(database.handle(), "main") == 1) {
    throw StoreError(database.path(), "it can be read but not written",
                     "check the permissions of the file and of its folder");
  }
  constexpr const char* kDoing = "turning on write-ahead logging";
  const std::string mode = turn_on_write_ahead_logging(database, kDoing);
  if (mode != "wal") {
    throw StoreError(database.path(), fmt::format("{} failed: the mode stays {}", kDoing, mode),
                     "keep the file on a local disk; network file systems cannot do it");
  }
  database.execute("PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON", "setting it up");
  // A checkpoint waits for the disk twice. With some 20 pages an attempt, SQLite's own 1,000 pages
  // would be one every 50 attempts.
  database.execute("PRAGMA wal_autocheckpoint = 8192", "setting it up");
  if (version < kStoreSchemaVersion) bring_up_to_date(database);
}

}  // namespace varnholt::embedded
