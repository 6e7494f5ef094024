// What runs have found, kept in one SQLite file (docs/store-schema.md).
//
//   RunStore store("runs.db");
//   const std::int64_t run = store.begin_run({...});
//   store.record_evaluations(run, batch);
//   store.end_run(run, now, "candidate_limit");
//
// What was enqueued for a pool of signals is in store.submissions() (submission_table.hpp).
//
// What a call recorded is in the file when the call returns, and survives a kill -9 of the process;
// a loss of power may take the last batches with it, but does not damage the file. Texts called
// JSON are stored as they are. Times are seconds of wall time since 1970-01-01 UTC; they are data
// and decide nothing.
//
// A store belongs to the process that opened it; in a forked child every call throws. All failures
// are StoreErrors, which name the file, what was being done, and the remedy. After one, nothing of
// the call is in the file, and the store can still be used.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/store/store_error.hpp"
#include "hosts/embedded/store/store_records.hpp"  // IWYU pragma: export
#include "hosts/embedded/store/submission_table.hpp"

namespace varnholt::embedded {

class SqliteDatabase;
class SqliteTransaction;
struct RunStoreStatements;

struct FailureCount {
  // Empty for failures without a reason.
  std::string reason;
  std::int64_t count = 0;
};

enum class SignalOrder { QualityScore, Sharpe };

// The public id of an evaluation, "3-17".
[[nodiscard]] std::string eval_id_of(std::int64_t run, std::int64_t candidate_number);

// The terminal reason of a run whose process died before it ended the run.
inline constexpr const char* kInterrupted = "interrupted";

class RunStore {
 public:
  struct Options {
    // How long a call waits for a lock that another process holds.
    int busy_timeout_milliseconds = 5000;
  };

  // Opens the file or makes it. The name ":memory:" is refused: what a run found would be lost with
  // its process. Runs that a dead process left open are marked as interrupted; those of a process
  // that is alive, or that may be alive in another container, stay as they are.
  explicit RunStore(const std::string& path) : RunStore(path, Options{}) {}
  RunStore(const std::string& path, const Options& options);
  RunStore(const RunStore&) = delete;
  RunStore& operator=(const RunStore&) = delete;
  ~RunStore();

  // The absolute path of the file.
  [[nodiscard]] const std::string& path() const noexcept;
  // The runs that opening this store has marked as interrupted.
  [[nodiscard]] const std::vector<std::int64_t>& interrupted_runs() const noexcept {
    return interrupted_runs_;
  }

  // Opens a run in the name of this process and returns its number.
  std::int64_t begin_run(const RunStart& start);
  // All or none of them. A candidate number that the run already has is an error.
  void record_evaluations(std::int64_t run, const std::vector<EvaluationRecord>& evaluations);
  // An error when no evaluation has the id.
  void record_holdout(const std::string& eval_id, const std::string& statistics_json);
  void record_metrics(std::int64_t run, const std::string& record_json);
  // The first end counts: false when the run had ended before, and then nothing is changed.
  bool end_run(std::int64_t run, double ended_at, const std::string& terminal_reason);

  [[nodiscard]] std::optional<RunRecord> find_run(std::int64_t run);
  // All runs, the oldest first.
  [[nodiscard]] std::vector<RunRecord> runs();
  [[nodiscard]] std::optional<EvaluationOfRun> find_evaluation(const std::string& eval_id);
  // At most `count` signals that passed, the best first; those without the figure are left out, and
  // of equal ones the earlier candidate comes first.
  [[nodiscard]] std::vector<EvaluationRecord> best_signals(
      std::int64_t run, std::int64_t count, SignalOrder order = SignalOrder::QualityScore);
  // How often each reason occurs among the evaluations that did not pass, the most frequent first.
  [[nodiscard]] std::vector<FailureCount> failure_counts(std::int64_t run);
  [[nodiscard]] std::int64_t evaluation_count(std::int64_t run);
  // In the order in which they were recorded.
  [[nodiscard]] std::vector<std::string> metrics(std::int64_t run);

  [[nodiscard]] SubmissionTable& submissions() noexcept { return submissions_; }
  // Holds the store's write lock until the transaction is committed or given up, so that what is
  // read in it stays true while it is acted on. Calls that write in transactions of their own
  // (recording, ending, enqueueing) fail meanwhile.
  [[nodiscard]] SqliteTransaction lock(const char* doing);

 private:
  void require_run(std::int64_t run, const char* doing);
  std::vector<std::int64_t> mark_interrupted_runs();

  std::unique_ptr<SqliteDatabase> database_;
  std::unique_ptr<RunStoreStatements> statements_;
  SubmissionTable submissions_;
  std::vector<std::int64_t> interrupted_runs_;
};

}  // namespace varnholt::embedded
