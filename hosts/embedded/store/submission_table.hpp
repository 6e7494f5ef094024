// The submissions of a store: every payload that was ever enqueued, and what became of it.
//
// A submission is queued, and later settled: submitted (then its signal is a member of its pool) or
// refused. Settling is one statement of one transaction, so that a crash leaves it queued or
// settled. In a pool a structure has at most one submission that is not refused.
//
// All failures are StoreErrors, as those of the store that the table belongs to (run_store.hpp).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "hosts/embedded/store/store_error.hpp"

namespace varnholt::embedded {

// A pool as one run sees it. The pool is its name and its market; prices, rules and eras come and
// go. The other two say on which days the run has the PnL of its members.
struct PoolIdentity {
  std::string signal_pool_name;
  std::int64_t market_id = 0;
  std::int64_t era_number = 0;
  // A digest of all that makes two PnL series comparable day by day: prices, costs, days. A member
  // that was submitted under another one has been measured anew, or is to be.
  std::string data_key;

  friend bool operator==(const PoolIdentity&, const PoolIdentity&) = default;
};

enum class SubmissionState { Queued, Submitted, Refused };

// "queued", "submitted", "refused".
[[nodiscard]] const char* name_of(SubmissionState state);

struct NewSubmission {
  PoolIdentity pool;
  // Of an evaluation that is in the store.
  std::string eval_id;
  // The mark that the search put on the payload because the candidate could not be measured against
  // the signal pool.
  std::optional<std::string> pending_reason;
  std::string payload_json;
  // Fractions of the capital earned a day, after costs.
  std::span<const double> pnl;
  double queued_at = 0;
};

struct Enqueued {
  // Of the new submission, or of the one that the structure has in the pool already.
  std::int64_t id = 0;
  bool added = false;
};

// How a queued submission ends. The measured values must be numbers.
struct Settlement {
  double novelty = 0;
  double novelty_threshold = 0;
  double correlation = 0;
  double correlation_threshold = 0;
  // Absent when it was submitted.
  std::optional<std::string> refusal_reason;
  std::optional<std::string> refusal_detail;
  double settled_at = 0;
};

// How a member leaves its pool.
struct Retirement {
  std::string reason;
  std::string detail;
  double retired_at = 0;
};

struct SubmissionRecord {
  std::int64_t id = 0;
  std::int64_t run = 0;
  std::string eval_id;
  // The structure: a digest of the graph's canonical text.
  std::string graph_key;
  PoolIdentity pool;
  SubmissionState state = SubmissionState::Queued;
  std::optional<std::string> pending_reason;
  std::string payload_json;
  double queued_at = 0;
  // Absent while it is queued.
  std::optional<Settlement> settlement;
};

// Whether a submission's PnL on the days of a run is known.
enum class Measured {
  Yes,     // It is, but for what is damaged in the file.
  NotYet,  // It was submitted on other days, and not measured on these.
  Never,   // It cannot be computed on these.
};

// A submission with its PnL on the days of a run, which is absent when the file holds none that can
// be read.
struct SubmissionPnl {
  std::int64_t id = 0;
  // Its place in the order of settlement over the whole file; 0 while it is queued.
  std::int64_t settled_order = 0;
  std::string eval_id;
  std::string graph_key;
  std::optional<std::vector<double>> pnl;
  Measured measured = Measured::Yes;
  std::string problem = {};  // Why it cannot be computed.
};

// A submission whose PnL on the days of a run has to be computed, with what it takes.
struct UnmeasuredSubmission {
  std::int64_t id = 0;
  std::string eval_id;
  std::string graph_json;
};

// What a submission comes to on other days than those on which it was made: the PnL with the
// statistics, or why it cannot be computed.
struct NewMeasure {
  std::int64_t submission = 0;
  std::string data_key;
  // The run that has measured it.
  std::int64_t run = 0;
  std::optional<std::string> statistics_json;
  std::optional<double> sharpe;  // Repeated from the statistics.
  std::optional<std::vector<double>> pnl;
  std::optional<std::string> problem;
  double measured_at = 0;
};

struct SubmissionFilter {
  std::optional<std::int64_t> run;
  std::optional<SubmissionState> state;
};

class SubmissionTable {
 public:
  SubmissionTable() = default;
  SubmissionTable(const SubmissionTable&) = delete;
  SubmissionTable& operator=(const SubmissionTable&) = delete;
  virtual ~SubmissionTable() = default;

  // Notes that a recorded evaluation will be enqueued, with all that it takes to do so. Should the
  // run die before it is, whoever opens the store next enqueues it. To be called in one transaction
  // with the recording (RunStore::under_lock); enqueue() takes the note away. An error when no
  // evaluation has the id.
  virtual void announce(const NewSubmission& submission) = 0;
  // Queues a payload, unless its structure is queued in the pool or submitted to it already.
  // An error when no evaluation has the id.
  virtual Enqueued enqueue(const NewSubmission& submission) = 0;
  // False when it is not queued any more, and then nothing is changed.
  virtual bool settle(std::int64_t id, const Settlement& settlement) = 0;
  // Takes a member out of its pool: from then on it is refused, for this reason. False when it is
  // no member, and then nothing is changed.
  virtual bool retire(std::int64_t id, const Retirement& retirement) = 0;

  // How many announced submissions of a run were not enqueued yet.
  [[nodiscard]] virtual std::int64_t announced(std::int64_t run) = 0;
  [[nodiscard]] virtual std::optional<SubmissionRecord> find(std::int64_t id) = 0;
  // All submissions of an evaluation, the oldest first.
  [[nodiscard]] virtual std::vector<SubmissionRecord> of_evaluation(const std::string& eval_id) = 0;
  // In the order of settlement, and after them those that are queued in the order of enqueueing.
  [[nodiscard]] virtual std::vector<SubmissionRecord> list(const SubmissionFilter& filter) = 0;

  // The members of a pool that were settled after `settled_order`, in the order of settlement, each
  // with the PnL that it has under the identity's data key.
  [[nodiscard]] virtual std::vector<SubmissionPnl> members(const PoolIdentity& pool,
                                                           std::int64_t settled_order) = 0;
  // All of them.
  [[nodiscard]] std::vector<SubmissionPnl> members(const PoolIdentity& pool) {
    return members(pool, 0);
  }
  // Their numbers, in the same order. A number is never given twice, also not after a deletion.
  [[nodiscard]] virtual std::vector<std::int64_t> member_numbers(const PoolIdentity& pool) = 0;
  // The members and the queued submissions of a pool that have no PnL under the identity's data
  // key, in the order in which they were enqueued. Those that could not be computed are among them.
  [[nodiscard]] virtual std::vector<UnmeasuredSubmission> unmeasured(const PoolIdentity& pool) = 0;
  // Takes the place of an earlier measure under the same data key. Submission and run must be
  // there.
  virtual void record_measure(const NewMeasure& measure) = 0;
  // All measures of a submission, the oldest first, without the PnL.
  [[nodiscard]] virtual std::vector<NewMeasure> measures(std::int64_t submission) = 0;
  // Stays the same as long as the members of all pools do, and their PnL with them. It may change
  // where they do not.
  [[nodiscard]] virtual std::int64_t members_version() = 0;
  // The numbers of the queued submissions of a pool, in the order in which they are to be settled:
  // by run and generation, in each the best quality first, and of equal ones the earlier candidate.
  // The moment of enqueueing says nothing: it depends on how many workers there are.
  [[nodiscard]] virtual std::vector<std::int64_t> queued_numbers(const PoolIdentity& pool) = 0;
  // The submission with that number, if it is queued, with its PnL under the data key.
  [[nodiscard]] virtual std::optional<SubmissionPnl> queued(std::int64_t id,
                                                            const std::string& data_key) = 0;
};

}  // namespace varnholt::embedded
