// The statements that made the tables of earlier schema versions, as those versions ran them: what
// their files hold must not follow a change of the program.
#pragma once

namespace varnholt::embedded::test {

inline constexpr const char* kVersion1 = R"sql(
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

inline constexpr const char* kVersion2 = R"sql(
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

inline constexpr const char* kVersion3 = R"sql(
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

// The mark of a file of that version.
inline constexpr const char* kIsVersion1 =
    "PRAGMA application_id = 1447511374; PRAGMA user_version = 1";
inline constexpr const char* kIsVersion3 =
    "PRAGMA application_id = 1447511374; PRAGMA user_version = 3";

}  // namespace varnholt::embedded::test
