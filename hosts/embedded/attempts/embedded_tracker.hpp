// The attempts of one run, as the search speaks to them: rows of a store.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "hosts/embedded/attempts/end_sync.hpp"
#include "hosts/embedded/store/attempt_table.hpp"
#include "search_templates/genetic/host/attempt_markers.hpp"
#include "search_templates/genetic/host/attempt_tracker.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The identity of an attempt is the number of its row. All calls throw StoreError when the store
// fails, genetic::ValueError for an identity that is no number.
class EmbeddedTracker : public genetic::AttemptTracker {
 public:
  // The seconds of wall time since 1970-01-01 UTC.
  using WallClock = std::function<double()>;

  // Table and sync must outlive the tracker.
  EmbeddedTracker(AttemptTable& attempts, EndSync& sync, WallClock wall_clock);

  // The run is the attempt's `product_run_id`.
  [[nodiscard]] Create create_simulation_attempt() override;
  // An attempt that has ended stays as it ended.
  [[nodiscard]] Finalize finalize_simulation_attempt() override;
  void mark_simulation_attempt_dispatched(const genetic::Value& attempt_id) override;
  void mark_simulation_attempt_backtest_started(const genetic::Value& attempt_id) override;

  [[nodiscard]] genetic::Value open_marker(const genetic::Value& run, const genetic::Value& graph,
                                           const genetic::Value& named_universe,
                                           const genetic::Value& metaparameters,
                                           std::string_view phase);
  void close_marker(const genetic::Value& marker_id);

 private:
  AttemptTable& attempts_;
  EndSync& sync_;
  WallClock wall_clock_;
};

// The tracker as the context's attribute: what the search hands to the markers.
class TrackerObject : public genetic::HostObject {
 public:
  // Markers are those of this run.
  TrackerObject(std::shared_ptr<EmbeddedTracker> tracker, const genetic::Value& run)
      : tracker_(std::move(tracker)), run_(run) {}

  [[nodiscard]] EmbeddedTracker& tracker() const { return *tracker_; }
  [[nodiscard]] const genetic::Value& run() const { return run_; }
  [[nodiscard]] std::string type_name() const override { return "AttemptTracker"; }

 private:
  std::shared_ptr<EmbeddedTracker> tracker_;
  genetic::Value run_;
};

// Markers are rows of the tracker's store. Where the context has no tracker there are none.
class EmbeddedMarkers : public genetic::AttemptMarkers {
 public:
  [[nodiscard]] Write write_evaluation_attempt_marker() override;
  [[nodiscard]] Clear clear_evaluation_attempt_marker() override;
  // {"rows": 1, "columns": how many figures a backtest is asked for}.
  [[nodiscard]] DataShape attempt_declared_data_shape() override;
};

// What the store knows a graph by: the digest of its canonical text.
struct StoredGraph {
  explicit StoredGraph(const genetic::Value& graph);
  std::string json;
  std::string key;
};

}  // namespace varnholt::embedded
