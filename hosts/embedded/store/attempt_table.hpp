// The attempts of a store: one row for each candidate whose child reached its backtest, what
// happened to it and when, and how it ended; and the markers of evaluations under way.
//
// An attempt goes one way: created, dispatched, backtest started, ended. Each step is in the file
// when its call returns, and survives a kill -9 of the process at once; where writes are gathered,
// after they were put there (gathered_writes.hpp). On the disk, for the loss of power, it is after
// the next sync(). The first end of an attempt counts; a further one is
// counted and otherwise ignored.
//
// All failures are StoreErrors, as those of the store that the table belongs to (run_store.hpp).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/store/store_error.hpp"

namespace varnholt::embedded {

// What an attempt is created with. Texts called JSON are stored as they are.
struct NewAttemptRow {
  std::int64_t run = 0;
  std::string source_path;
  // A digest of the graph's canonical text, as an evaluation's.
  std::string graph_key;
  std::string graph_json;
  std::string algorithm;
  std::string rotation_identifier;
  std::optional<std::int64_t> era_number;
  std::optional<std::int64_t> market_id;
  std::string data_shape_json;
  std::string expected_columns_json;
  std::string eval_type;
};

// How an attempt ended. JSON texts are "null" where there is nothing.
struct AttemptEndRow {
  std::string terminal_disposition;
  bool backtest_completed = false;
  std::string generated_stats_json = "null";
  std::string candidate_stats_json = "null";
  std::string stats_construction_blocker_json = "null";
  std::string per_column_inventory_json = "null";
  std::string threshold_gate_json = "null";
  std::optional<std::string> failure_category;
  std::optional<std::string> failure_reason;
  std::optional<std::string> failure_detail;
  std::string classification_source;
  // Of the evaluation that was recorded with the end; absent where none was.
  std::optional<std::string> eval_id;
};

enum class AttemptStep { Created, Dispatched, BacktestStarted, Ended };

// "created", "dispatched", "backtest_started", "ended".
[[nodiscard]] const char* name_of(AttemptStep step);

struct AttemptEvent {
  AttemptStep step = AttemptStep::Created;
  double at = 0;
};

struct AttemptRecord {
  std::int64_t id = 0;
  NewAttemptRow start;
  // Absent while it is open.
  std::optional<AttemptEndRow> end;
  // Ends that came after the first.
  std::int64_t ignored_ends = 0;
  // In the order in which they were stored.
  std::vector<AttemptEvent> events;
};

struct AttemptFilter {
  std::optional<std::int64_t> run;
  // A terminal disposition, or kOpenAttempt for attempts without an end.
  std::optional<std::string> disposition;
  // At most so many, the latest; nothing for all.
  std::optional<std::int64_t> limit;
};

inline constexpr const char* kOpenAttempt = "open";

struct DispositionCount {
  std::string disposition;  // Or kOpenAttempt.
  std::int64_t count = 0;
};

// An evaluation under way, for whoever looks on. It decides nothing.
struct NewMarker {
  std::int64_t run = 0;
  std::string graph_key;
  std::string named_universe;
  std::string metaparameters_json;
  std::string phase;
};

// How the sweep ends an attempt that was left open by a process that died, or by a run that ended.
inline constexpr const char* kAbandoned = "abandoned";
inline constexpr const char* kAbandonedReason = "attempt_abandoned";
inline constexpr const char* kAbandonedDetail =
    "the run ended, or its process died, before the attempt did";
inline constexpr const char* kAbandonedCategory = "operator";
inline constexpr const char* kAbandonedSource = "store_sweep";

class AttemptTable {
 public:
  AttemptTable() = default;
  AttemptTable(const AttemptTable&) = delete;
  AttemptTable& operator=(const AttemptTable&) = delete;
  virtual ~AttemptTable() = default;

  // Its number, which is never given twice. An error when there is no such run.
  virtual std::int64_t create(const NewAttemptRow& attempt, double at) = 0;
  // Dispatched or BacktestStarted. An error for an attempt that is not there, that has ended, or
  // that has taken the step.
  virtual void mark(std::int64_t id, AttemptStep step, double at) = 0;
  // False when it had ended before: then the end is counted and nothing else is changed. An error
  // when there is no such attempt.
  virtual bool end(std::int64_t id, const AttemptEndRow& end, double at) = 0;

  // The number of the marker.
  virtual std::int64_t open_marker(const NewMarker& marker, double at) = 0;
  // Closing one that is closed, or that is not there, changes nothing.
  virtual void close_marker(std::int64_t id, double at) = 0;

  // Puts everything that was written so far on the disk: what returns from here survives a loss of
  // power. Takes some milliseconds where there is something to put there.
  virtual void sync() = 0;

  // The open attempt of a run on the structure, the oldest where there are several.
  [[nodiscard]] virtual std::optional<std::int64_t> open_attempt(std::int64_t run,
                                                                 const std::string& graph_key) = 0;
  [[nodiscard]] virtual std::optional<AttemptRecord> find(std::int64_t id) = 0;
  // In the order of creation.
  [[nodiscard]] virtual std::vector<AttemptRecord> list(const AttemptFilter& filter) = 0;
  // The most frequent first. The filter's limit counts for nothing.
  [[nodiscard]] virtual std::vector<DispositionCount> dispositions(const AttemptFilter& filter) = 0;
  // How many markers of a run are open.
  [[nodiscard]] virtual std::int64_t open_markers(std::int64_t run) = 0;
};

}  // namespace varnholt::embedded
