// The statements of a SqliteRunStore, prepared once, when it is opened. Included by its sources
// alone.
#pragma once

#include "hosts/embedded/store/sqlite_database.hpp"

namespace varnholt::embedded {

// What is being done, for people.
inline constexpr const char* kBeginning = "beginning a run";
inline constexpr const char* kRecording = "recording evaluations";
inline constexpr const char* kRecordingHoldout = "recording hold-out statistics";
inline constexpr const char* kRecordingFigures = "recording the figures of signals";
inline constexpr const char* kRecordingMetrics = "recording metrics";
inline constexpr const char* kEnding = "ending a run";
inline constexpr const char* kSplitting = "keeping the hold-out of a pool";
inline constexpr const char* kMarking = "marking interrupted runs";

struct SqliteRunStatements {
  explicit SqliteRunStatements(SqliteDatabase& database);

  SqliteStatement insert_run;
  SqliteStatement insert_evaluation;
  SqliteStatement insert_metrics;
  SqliteStatement end_run;
  SqliteStatement interrupt_run;
  SqliteStatement update_holdout;
  SqliteStatement insert_figures;
  SqliteStatement insert_price_day;
  SqliteStatement update_luck;
  SqliteStatement update_deflated;
  SqliteStatement select_trials;
  SqliteStatement count_trials;
  SqliteStatement select_open_runs;
  SqliteStatement select_runs;
  SqliteStatement select_by_quality;
  SqliteStatement select_by_sharpe;
  SqliteStatement count_failures;
  SqliteStatement count_evaluations;
  SqliteStatement select_metrics;
  SqliteStatement insert_pool;
  SqliteStatement select_pool;
};

}  // namespace varnholt::embedded
