// Persists what a search finds, and keeps the counts that are shown while it runs.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "hosts/embedded/search/embedded_context.hpp"
#include "hosts/embedded/search/lineage.hpp"
#include "hosts/embedded/search/search_events.hpp"
#include "hosts/embedded/store/run_store.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class RunRecorder : public ResultRecorder {
 public:
  // All three must outlive the recorder. At most `best_count` signals are kept as the best.
  RunRecorder(RunStore& store, SearchObserver& observer, Lineage& lineage, int best_count);

  // Opens the run in the store. Nothing is recorded before.
  std::int64_t begin(const RunStart& start);
  // The seconds since the search began, for the progress shown.
  void set_clock(std::function<double()> elapsed_seconds);

  // The outcome is in the store when this returns; then the observer is told.
  genetic::Value record(const genetic::Value& graph, bool passed,
                        const genetic::Mapping& keywords) override;
  void record_metrics(const genetic::Mapping& metrics) override;
  void generation_done();
  // Shows the progress of the batch under way.
  void tick(std::int64_t evaluated_in_batch);
  // The first end counts.
  void end(const std::string& terminal_reason);

  [[nodiscard]] SearchProgress progress() const;
  [[nodiscard]] const genetic::Value& metrics() const { return metrics_; }
  // Passing signals, the best quality first; of equal ones the earlier.
  [[nodiscard]] const std::vector<CandidateRecorded>& best() const { return best_; }

 private:
  void count(const CandidateRecorded& candidate);

  RunStore& store_;
  SearchObserver& observer_;
  Lineage& lineage_;
  std::size_t best_count_;
  std::int64_t run_id_ = 0;
  std::function<double()> elapsed_seconds_;
  SearchProgress progress_;
  std::int64_t bred_ = 0;  // Of the generation under way.
  std::int64_t fresh_ = 0;
  genetic::Value metrics_;
  std::vector<CandidateRecorded> best_;
};

}  // namespace varnholt::embedded
