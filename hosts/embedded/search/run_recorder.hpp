// Persists what a search finds, and keeps the counts that are shown while it runs.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/host/embedded_context.hpp"
#include "hosts/embedded/host/lineage.hpp"
#include "hosts/embedded/host/search_events.hpp"
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
  };

  // The first three must outlive the recorder.
  RunRecorder(RunStore& store, SearchObserver& observer, Lineage& lineage,
              const Settings& settings);

  // Opens the run in the store. Nothing is recorded before.
  std::int64_t begin(const RunStart& start);
  // The seconds since the search began, for the progress shown.
  void set_clock(std::function<double()> elapsed_seconds);

  // The outcome is in the store when this returns; then the observer is notified.
  genetic::Value record(const genetic::Value& graph, bool passed,
                        const genetic::Mapping& keywords) override;
  void record_metrics(const genetic::Mapping& metrics) override;
  // What a sync of the submission queue did: the observer is notified of each signal.
  void settled(const SyncReport& report);
  void generation_done();
  // Shows the progress of the batch under way.
  void tick(std::int64_t evaluated_in_batch);
  // The first end counts.
  void end(const std::string& terminal_reason);

  [[nodiscard]] SearchProgress progress() const;
  [[nodiscard]] const SubmissionCounts& submissions() const { return submissions_; }
  [[nodiscard]] const genetic::Value& metrics() const { return metrics_; }
  // Passing signals, the best quality first; of equal ones the earlier.
  [[nodiscard]] const std::vector<CandidateRecorded>& best() const { return best_; }

 private:
  void count(const CandidateRecorded& candidate);
  void count_repair(const CandidateRecorded& candidate);

  RunStore& store_;
  SearchObserver& observer_;
  Lineage& lineage_;
  Settings settings_;
  std::int64_t run_id_ = 0;
  std::optional<std::int64_t> market_id_;
  std::optional<std::int64_t> era_number_;
  std::function<double()> elapsed_seconds_;
  SearchProgress progress_;
  std::int64_t bred_ = 0;  // Of the generation under way.
  std::int64_t fresh_ = 0;
  std::int64_t repaired_ = 0;
  std::int64_t rounds_ = 0;
  // The plan behind each repair that passed, by its evaluation id.
  std::map<std::string, std::string> rescued_by_;
  genetic::Value metrics_;
  std::vector<CandidateRecorded> best_;
  SubmissionCounts submissions_;
};

}  // namespace varnholt::embedded
