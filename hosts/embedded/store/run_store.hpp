// The results of runs, kept in one file (docs/store-schema.md).
//
//   const std::unique_ptr<RunStore> store = open_run_store("runs.db");
//   const std::int64_t run = store->begin_run({...});
//   store->record_evaluations(run, batch);
//   store->end_run(run, now, "candidate_limit");
//
// What was enqueued for a signal pool is in store.submissions() (submission_table.hpp), and
// each attempt of a child in store.attempts() (attempt_table.hpp). The classes are what a database
// must do; SQLite is the one behind them (sqlite_run_store.hpp).
//
// What a call recorded is in the file when the call returns (but for those that gathered_writes()
// puts there together), and survives a kill -9 of the process; a loss of power may take the last
// batches with it, but does not damage the file. Texts called
// JSON are stored as they are. Times are seconds of wall time since 1970-01-01 UTC; they are data
// and decide nothing.
//
// A store belongs to the process that opened it; in a forked child every call throws. All failures
// are StoreErrors, which name the file, what was being done, and the remedy. After one, nothing of
// the call is in the file, and the store can still be used.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/store/attempt_table.hpp"
#include "hosts/embedded/store/gathered_writes.hpp"
#include "hosts/embedded/store/store_error.hpp"
#include "hosts/embedded/store/store_records.hpp"  // IWYU pragma: export
#include "hosts/embedded/store/submission_table.hpp"

namespace varnholt::embedded {

struct FailureCount {
  // Empty for failures without a reason.
  std::string reason;
  std::int64_t count = 0;
};

enum class SignalOrder { QualityScore, Sharpe };

// The terminal reason of a run whose process died before it ended the run.
inline constexpr const char* kInterrupted = "interrupted";

// What opening a store has put in order after runs that died.
struct StoreSweep {
  // The runs that it has marked as interrupted.
  std::vector<std::int64_t> interrupted_runs;
  // Attempts that were open, although their run had ended (attempt_table.hpp).
  std::int64_t abandoned_attempts = 0;
  // Payloads that were announced by a run that ended before it enqueued them, and are queued now.
  std::int64_t completed_submissions = 0;
};

struct StoreOptions {
  // How long a call waits for a lock that another process holds.
  int busy_timeout_milliseconds = 5000;
};

class RunStore {
 public:
  RunStore() = default;
  RunStore(const RunStore&) = delete;
  RunStore& operator=(const RunStore&) = delete;
  virtual ~RunStore() = default;

  // The absolute path of the file.
  [[nodiscard]] virtual const std::string& path() const noexcept = 0;
  // Each of it was done once, by the store that was opened first.
  [[nodiscard]] virtual const StoreSweep& swept() const noexcept = 0;
  [[nodiscard]] const std::vector<std::int64_t>& interrupted_runs() const noexcept {
    return swept().interrupted_runs;
  }

  // Of the errors since something was written with success, the first; null where there is none.
  // What is tried after an error, to close what is open, mostly fails too, and hides what went
  // wrong. One by which gathered writes were lost stays.
  [[nodiscard]] virtual std::exception_ptr first_failure() const noexcept { return nullptr; }

  // Opens a run in the name of this process and returns its number.
  virtual std::int64_t begin_run(const RunStart& start) = 0;
  // All or none of them. A candidate number that the run already has is an error.
  virtual void record_evaluations(std::int64_t run,
                                  const std::vector<EvaluationRecord>& evaluations) = 0;
  // An error when no evaluation has the id.
  virtual void record_holdout(const std::string& eval_id, const std::string& statistics_json) = 0;
  // Of one evaluation; what was there of the same samples is replaced. An error when no evaluation
  // has the id.
  virtual void record_figures(const std::string& eval_id,
                              const std::vector<FiguresRecord>& figures) = 0;
  // The days of the run's prices, each "yyyy-mm-dd", that the daily PnL of its evaluations is of.
  virtual void record_price_days(std::int64_t run, const std::vector<std::string>& dates) = 0;
  // What chance would have found in the run, and the deflated Sharpe ratio of each of the signals
  // whose figures are there; the last one counts.
  virtual void record_luck(std::int64_t run, const std::string& record_json,
                           const std::map<std::string, double>& deflated_sharpes) = 0;
  // The structures that this run and those before it backtested on the same prices, each once, the
  // earliest first.
  [[nodiscard]] virtual std::vector<TrialRecord> trials(std::int64_t run) = 0;
  // How many of them there are.
  [[nodiscard]] virtual std::int64_t trial_count(std::int64_t run) = 0;
  virtual void record_metrics(std::int64_t run, const std::string& record_json) = 0;
  // The first end counts: false when the run had ended before, and then nothing is changed.
  // Attempts and markers that are still open end with it, as those of a run that died: an error in
  // the middle of a record may leave some.
  virtual bool end_run(std::int64_t run, double ended_at, const std::string& terminal_reason) = 0;

  [[nodiscard]] virtual std::optional<RunRecord> find_run(std::int64_t run) = 0;
  // All runs, the oldest first.
  [[nodiscard]] virtual std::vector<RunRecord> runs() = 0;
  [[nodiscard]] virtual std::optional<EvaluationOfRun> find_evaluation(
      const std::string& eval_id) = 0;
  // At most `count` signals that passed, the best first; those without the figure are left out, and
  // of equal ones the earlier candidate comes first.
  [[nodiscard]] virtual std::vector<EvaluationRecord> best_signals(std::int64_t run,
                                                                   std::int64_t count,
                                                                   SignalOrder order) = 0;
  [[nodiscard]] std::vector<EvaluationRecord> best_signals(std::int64_t run, std::int64_t count) {
    return best_signals(run, count, SignalOrder::QualityScore);
  }
  // How often each reason occurs among the evaluations that did not pass, the most frequent first.
  [[nodiscard]] virtual std::vector<FailureCount> failure_counts(std::int64_t run) = 0;
  [[nodiscard]] virtual std::int64_t evaluation_count(std::int64_t run) = 0;
  // In the order in which they were recorded.
  [[nodiscard]] virtual std::vector<std::string> metrics(std::int64_t run) = 0;

  // Makes `first_day`, "2026-01-31", the first day of the hold-out of a pool for good, unless the
  // pool has one already. Returns the one that it has then.
  virtual std::string keep_holdout_from(const PoolIdentity& pool, const std::string& first_day) = 0;

  [[nodiscard]] virtual SubmissionTable& submissions() noexcept = 0;
  [[nodiscard]] virtual AttemptTable& attempts() noexcept = 0;
  // Of all tables.
  [[nodiscard]] virtual GatheredWrites& gathered_writes() noexcept = 0;

  // Whether what the work wrote is kept.
  enum class LockedWork { Keep, Undo };
  // Does the work under the store's write lock, so that what is read in it stays true while it is
  // acted on. What it wrote is undone when it says so, and when it throws: all of it or nothing is
  // in the file. `doing` says for people what for: "settling a submission".
  virtual void under_lock(const char* doing, const std::function<LockedWork()>& work) = 0;
};

// Opens the file or makes it. The name ":memory:" is refused: what a run found would be lost with
// its process. Runs that a dead process left open are marked as interrupted; those of a process
// that is alive, or that may be alive in another container, stay as they are. What runs that have
// ended left undone is put in order (StoreSweep).
[[nodiscard]] std::unique_ptr<RunStore> open_run_store(const std::string& path,
                                                       const StoreOptions& options = {});

}  // namespace varnholt::embedded
