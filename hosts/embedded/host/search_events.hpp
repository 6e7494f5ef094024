// What a search reports while it runs, and at its end.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/backtest/book_rules.hpp"
#include "hosts/embedded/backtest/out_of_sample.hpp"
#include "hosts/embedded/backtest/statistics.hpp"
#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/luck/deflated_sharpe.hpp"
#include "hosts/embedded/luck/verdict.hpp"
#include "hosts/embedded/market/price_source.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

struct SearchStarted {
  std::int64_t run_id = 0;  // In the store.
  PriceSource prices;
  std::filesystem::path database;
  std::int64_t instruments = 0;
  std::int64_t days = 0;
  std::string first_date;  // yyyy-mm-dd
  std::string last_date;
  int jobs = 0;
  std::int64_t batch_size = 0;
  std::int64_t seed = 0;
  // The signal pool that signals are submitted to, and the days: those that the search sees, up to
  // the end of its era, and those of the hold-out, which it never sees.
  std::string signal_pool_name;
  std::int64_t market_id = 0;
  std::int64_t era_number = 0;
  std::int64_t seen_days = 0;
  std::string last_seen_date;
  std::int64_t holdout_days = 0;
  std::string first_holdout_date;
  BookRules book;
  GateThresholds gates;                 // As they are on these days.
  bool sharpe_gate_is_of_days = false;  // Otherwise the options name it.
  bool periods_are_inferred = true;     // From the dates; otherwise they were given.
  bool split_is_kept = false;           // The pool has it from an earlier run.
  // Where the search goes on with what the store holds: the structures that are not evaluated
  // again, and the earlier signals that it begins with.
  std::optional<std::int64_t> known_structures;
  std::int64_t earlier_signals = 0;
};

// The members of the pool that are measured on the days of the run, because they were submitted, or
// measured last, on others.
struct PoolMeasuring {
  std::int64_t members = 0;      // To be measured.
  std::int64_t done = 0;         // So far.
  std::int64_t failed = 0;       // Of these: those that cannot be computed.
  bool is_over = false;          // Also where the run is stopped before all are done.
  double elapsed_seconds = 0.0;  // Since the search began.
};

// One recorded candidate.
struct CandidateRecorded {
  std::string eval_id;                // In the store, "3-17".
  std::int64_t candidate_number = 0;  // Within the run, from 1.
  std::int64_t generation = 0;        // From 0.
  bool bred = false;                  // Made from parents; otherwise fresh, a seed or a repair.
  std::string repaired_by;            // The plan of the repair; empty for what is none.
  bool passed = false;
  std::string failure_reason;  // Empty when it passed.
  std::string failure_detail;
  std::string expression;  // Readable; empty when the graph has none.
  std::optional<BacktestStatistics> statistics;
  double elapsed_seconds = 0.0;
};

// What became of the repairs by one plan.
struct RepairCount {
  std::int64_t tried = 0;
  std::int64_t rescued = 0;    // Those that passed; what they were made of did not.
  std::int64_t submitted = 0;  // Those that joined the pool.

  friend bool operator==(const RepairCount&, const RepairCount&) = default;
};

// The figure of those that failed a gate which came nearest to its threshold.
struct NearestMiss {
  std::string eval_id;
  double actual = 0.0;
  double threshold = 0.0;
};

// The counts of the run so far.
struct SearchProgress {
  std::int64_t generation = 0;  // Generations completed.
  std::int64_t candidates = 0;  // Recorded.
  std::int64_t passing = 0;
  std::int64_t bred_in_generation = 0;  // Of the generation completed last.
  std::int64_t fresh_in_generation = 0;
  std::int64_t repaired_in_generation = 0;
  std::int64_t repair_rounds = 0;
  std::int64_t round_under_way = 0;              // Of this generation's, from 1; 0 is its batch.
  std::map<std::string, RepairCount> repairs;    // By plan.
  std::map<std::string, std::int64_t> failures;  // By reason.
  // By the reason of the gate; of those with all of their failures, not only the first.
  std::map<std::string, NearestMiss> nearest_misses;
  std::optional<CandidateRecorded> best;  // The best by quality among the passing.
  double elapsed_seconds = 0.0;           // Since the search began.

  // All plans together.
  [[nodiscard]] RepairCount all_repairs() const;
};

// What became of a submission when it was settled.
struct SettledSignal {
  std::string eval_id;
  bool submitted = false;      // A member of the signal pool now; otherwise refused.
  std::string refusal_reason;  // Empty when it was submitted.
  std::string refusal_detail;
  double novelty = 1.0;                    // Against the pool as it was at that moment.
  double correlation = 0.0;                // Likewise.
  std::vector<std::string> replaced = {};  // The members whose place it has taken, by their ids.
};

// A signal that joined the signal pool, on the days that the search saw and on those that it never
// saw.
struct SubmittedSignal {
  std::string eval_id;
  std::string expression;
  SampleStatistics statistics;
  bool has_holdout = true;   // The report was not cut short before the signal's hold-out.
  double novelty = 1.0;      // Against the pool as it was when the signal joined it.
  double correlation = 0.0;  // Likewise.
  // Of one day, after costs. Both are empty where the report was cut short.
  SharpeEstimate in_sample_estimate = {};
  SharpeEstimate holdout_estimate = {};
};

// The results of the run's syncs, with what earlier runs left queued.
struct SubmissionCounts {
  std::int64_t submitted = 0;
  std::map<std::string, std::int64_t> refused;  // By reason.
  std::int64_t waiting = 0;                     // Still in the queue at the end.
  std::int64_t replaced = 0;                    // Members that left the pool for better ones.
  std::int64_t of_earlier_runs = 0;             // Of all that were settled.
};

enum class LogLevel { Warning, Error };

// Why the run ended, beside the terminal reason of its metrics record.
enum class StopCause { None, Generations, Candidates, Seconds, Signal };

[[nodiscard]] std::string_view to_text(StopCause cause) noexcept;

struct SearchSummary {
  std::int64_t run_id = 0;
  StopCause stop_cause = StopCause::None;
  SearchProgress progress;
  genetic::Value metrics;               // The metrics record, or absent when the run wrote none.
  std::vector<CandidateRecorded> best;  // Passing signals, best quality first.
  // The run's signals that joined the pool, in the order in which they were queued, and the market.
  std::vector<SubmittedSignal> submitted;
  SampleStatistics market;
  RunLuck luck;
  SubmissionCounts submissions;
  std::int64_t left_out = 0;  // Known structures that came up again.
  // Signals of earlier runs whose hold-out figures were missing, and are there now.
  std::int64_t completed_holdouts = 0;
};

// Notified of everything as it happens, in the parent, on the thread of the search. An exception
// that one of the functions throws ends the search and leaves it unchanged.
class SearchObserver {
 public:
  virtual ~SearchObserver() = default;

  virtual void on_started(const SearchStarted& started) = 0;
  // At least once for each evaluation that ends, and several times a second while some are under
  // way.
  virtual void on_tick(const SearchProgress& progress, std::int64_t evaluated_in_batch) = 0;
  // Once for each member that is measured, several times a second while some are, and at the end.
  virtual void on_measuring(const PoolMeasuring& /*measuring*/) {}
  virtual void on_recorded(const CandidateRecorded& candidate) = 0;
  // Whether on_recorded() lets others know of the candidate, whose record must be in the file
  // before that. Without it several are put there together, which is faster.
  [[nodiscard]] virtual bool tells_candidates() const { return true; }
  virtual void on_settled(const SettledSignal& signal) = 0;
  virtual void on_generation(const SearchProgress& progress) = 0;
  virtual void on_log(LogLevel level, std::string_view text) = 0;
  // The run's metrics record.
  virtual void on_metrics(const genetic::Mapping& metrics) = 0;
};

}  // namespace varnholt::embedded
