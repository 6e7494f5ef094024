// Persists what a search finds, and keeps the counts that are shown while it runs.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "hosts/embedded/archive/signal_archive.hpp"
#include "hosts/embedded/attempts/embedded_tracker.hpp"
#include "hosts/embedded/attempts/end_sync.hpp"
#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/host/embedded_context.hpp"
#include "hosts/embedded/host/lineage.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/host/search_stop.hpp"
#include "hosts/embedded/store/run_store.hpp"
#include "hosts/embedded/submission/submission_queue.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class RunRecorder : public ResultRecorder {
 public:
  struct Settings {
    int best_count = 10;  // At most so many signals are kept as the best.
    // By which all failures of a candidate are found, not only the first.
    GateThresholds gates;
    HardLimits limits;
    // The pool that passing signals will be submitted to. Without it they are not announced to the
    // store, and a run that dies before it enqueues one loses the submission.
    std::optional<PoolIdentity> pool;
    // What is told of each candidate with a behaviour; null for none. It must outlive the recorder.
    SignalArchive* archive = nullptr;
  };

  // Begins the run in the store. The first four must outlive the recorder; `stop` tells the seconds
  // since the search began, for the progress shown.
  RunRecorder(RunStore& store, SearchObserver& observer, Lineage& lineage, const SearchStop& stop,
              const Settings& settings, const RunStart& start);

  // The number of the run.
  [[nodiscard]] std::int64_t run() const { return run_id_; }

  // The outcome is in the store, in one transaction with the end of its attempt and, of a signal
  // that passed, the announcement of its submission; then the observer is notified. Without an
  // active attempt, the open attempt of the graph ends, if there is one: that of a worker that was
  // lost in its backtest.
  genetic::Value record(const genetic::Value& graph, bool passed, const genetic::Mapping& keywords,
                        const ActiveAttempt& attempt) override;
  // Adds "results_digest", by which two runs are compared: a SHA-256 over candidates, lineages and
  // outcomes in their order, without anything that time or the number of workers decides.
  void record_metrics(const genetic::Mapping& metrics) override;
  [[nodiscard]] std::shared_ptr<EmbeddedTracker> tracker() override { return tracker_; }
  [[nodiscard]] genetic::Value run_id() override { return run_id_; }
  // What a sync of the submission queue did: the observer is notified of each signal.
  void settled(const SyncReport& report);
  void generation_done();
  // Shows the progress of the batch under way.
  void tick() override;
  // The first end counts. All that was recorded is on the disk afterwards.
  void end(const std::string& terminal_reason);

  [[nodiscard]] SearchProgress progress() const;
  [[nodiscard]] const SubmissionCounts& submissions() const { return submissions_; }
  [[nodiscard]] const genetic::Value& metrics() const { return metrics_; }
  // Passing signals, the best quality first; of equal ones the earlier.
  [[nodiscard]] const std::vector<CandidateRecorded>& best() const { return best_; }

 private:
  void tell_troubles(const SyncReport& report);
  void count(const CandidateRecorded& candidate);
  void add_to_digest(const EvaluationRecord& record);
  void count_misses(const CandidateRecorded& candidate, const std::vector<GateFailure>& failed);
  // Tells the archive of a candidate.
  void archive(const genetic::Value& graph, const genetic::Mapping& keywords,
               const GraphOrigin& origin) const;
  void count_repair(const CandidateRecorded& candidate);
  // All that the statistics fail, whatever the candidate was rejected for.
  [[nodiscard]] std::vector<GateFailure> gates_failed(const CandidateRecorded& candidate) const;
  [[nodiscard]] std::optional<std::int64_t> attempt_of(const ActiveAttempt& attempt,
                                                       const std::string& graph_key);
  void store(const EvaluationRecord& record, const std::optional<std::int64_t>& attempt,
             const AttemptEndRow& end, const genetic::Mapping& keywords);
  void announce(const EvaluationRecord& record, const genetic::Mapping& keywords);

  RunStore& store_;
  SearchObserver& observer_;
  Lineage& lineage_;
  const SearchStop& stop_;
  Settings settings_;
  std::set<std::string> told_waits_;  // The reasons for which submissions wait.
  EndSync end_sync_;
  std::shared_ptr<EmbeddedTracker> tracker_;
  std::optional<std::int64_t> market_id_;
  std::optional<std::int64_t> era_number_;
  std::int64_t run_id_;
  SearchProgress progress_;
  std::int64_t bred_ = 0;  // Of the generation under way.
  std::int64_t fresh_ = 0;
  std::int64_t repaired_ = 0;
  std::int64_t rounds_ = 0;
  std::int64_t evaluated_ = 0;  // Of the batch or the round under way.
  // The plan behind each repair that passed, by its evaluation id.
  std::map<std::string, std::string> rescued_by_;
  genetic::Value metrics_;
  std::vector<CandidateRecorded> best_;
  // Of all records so far, in order (results_digest).
  std::string digest_;
  SubmissionCounts submissions_;
};

}  // namespace varnholt::embedded
