#include "hosts/embedded/attempts/embedded_tracker.hpp"

#include <optional>
#include <utility>

#include "hosts/embedded/attempts/attempt_accounts.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::AttemptEnd;
using genetic::Key;
using genetic::Mapping;
using genetic::NewAttempt;
using genetic::Value;

namespace {

std::int64_t number_of(const Value& identity, const char* what) {
  if (identity.is_integer()) return identity.integer();
  throw genetic::ValueError(std::string("the identity of ") + what + " must be its number, not " +
                            genetic::repr(identity));
}

std::optional<std::int64_t> number_or_nothing(const Value& value) {
  if (value.is_absent()) return std::nullopt;
  return genetic::to_integer(value).integer();
}

std::optional<std::string> text_or_nothing(const Value& value) {
  if (value.is_absent()) return std::nullopt;
  return genetic::str(value);
}

std::string text_of(Key key) {
  return std::string(key.view());
}

NewAttemptRow row_of(const NewAttempt& attempt) {
  StoredGraph graph(attempt.graph);
  NewAttemptRow row;
  row.run = number_of(attempt.product_run_id, "a run");
  row.source_path = text_of(attempt.source_path);
  row.graph_key = std::move(graph.key);
  row.graph_json = std::move(graph.json);
  row.algorithm = text_of(attempt.algorithm);
  row.rotation_identifier = attempt.rotation_identifier;
  row.era_number = number_or_nothing(attempt.era_number);
  row.market_id = number_or_nothing(attempt.market_id);
  row.data_shape_json = stored_json(attempt.data_shape);
  row.expected_columns_json = stored_json(attempt.expected_columns);
  row.eval_type = text_of(attempt.eval_type);
  return row;
}

AttemptEndRow row_of(const AttemptEnd& end) {
  AttemptEndRow row;
  row.terminal_disposition = text_of(end.terminal_disposition);
  row.backtest_completed = end.backtest_completed;
  row.generated_stats_json = stored_json(end.generated_stats);
  row.candidate_stats_json = stored_json(end.candidate_stats);
  row.stats_construction_blocker_json = stored_json(end.stats_construction_blocker);
  row.per_column_inventory_json = stored_json(end.per_column_inventory);
  row.threshold_gate_json = stored_json(end.threshold_gate);
  row.failure_category = text_of(end.failure_category);
  row.failure_reason = text_or_nothing(end.failure_reason);
  row.failure_detail = text_or_nothing(end.failure_detail);
  row.classification_source = text_of(end.classification_source);
  return row;
}

const TrackerObject* tracker_of(const Value& tracker) {
  return tracker.is_object() ? dynamic_cast<const TrackerObject*>(&tracker.object()) : nullptr;
}

}  // namespace

StoredGraph::StoredGraph(const Value& graph)
    : json(genetic::canonical_graph_string(graph)), key(sha256_hex(json)) {}

EmbeddedTracker::EmbeddedTracker(AttemptTable& attempts, EndSync& sync, WallClock wall_clock)
    : attempts_(attempts), sync_(sync), wall_clock_(std::move(wall_clock)) {}

EmbeddedTracker::Create EmbeddedTracker::create_simulation_attempt() {
  return [this](const NewAttempt& attempt) {
    return Value(attempts_.create(row_of(attempt), wall_clock_()));
  };
}

EmbeddedTracker::Finalize EmbeddedTracker::finalize_simulation_attempt() {
  return [this](const Value& attempt_id, const AttemptEnd& end) {
    // A second end is the store's to count: the search has nothing to do about it.
    static_cast<void>(
        attempts_.end(number_of(attempt_id, "an attempt"), row_of(end), wall_clock_()));
    sync_.note_end();
  };
}

void EmbeddedTracker::mark_simulation_attempt_dispatched(const Value& attempt_id) {
  attempts_.mark(number_of(attempt_id, "an attempt"), AttemptStep::Dispatched, wall_clock_());
}

void EmbeddedTracker::mark_simulation_attempt_backtest_started(const Value& attempt_id) {
  attempts_.mark(number_of(attempt_id, "an attempt"), AttemptStep::BacktestStarted, wall_clock_());
}

Value EmbeddedTracker::open_marker(const Value& run, const Value& graph,
                                   const Value& named_universe, const Value& metaparameters,
                                   std::string_view phase) {
  NewMarker marker;
  marker.run = number_of(run, "a run");
  marker.graph_key = StoredGraph(graph).key;
  marker.named_universe = text_or_nothing(named_universe).value_or("");
  marker.metaparameters_json = stored_json(metaparameters);
  marker.phase = phase;
  return attempts_.open_marker(marker, wall_clock_());
}

void EmbeddedTracker::close_marker(const Value& marker_id) {
  attempts_.close_marker(number_of(marker_id, "a marker"), wall_clock_());
}

EmbeddedMarkers::Write EmbeddedMarkers::write_evaluation_attempt_marker() {
  return [](const Value& tracker, const Value& graph, const Value& named_universe,
            const Value& metaparameters, std::string_view phase) {
    const TrackerObject* const object = tracker_of(tracker);
    if (object == nullptr) return Value();
    return object->tracker().open_marker(object->run(), graph, named_universe, metaparameters,
                                         phase);
  };
}

EmbeddedMarkers::Clear EmbeddedMarkers::clear_evaluation_attempt_marker() {
  return [](const Value& tracker, const Value& marker_attempt_id) {
    const TrackerObject* const object = tracker_of(tracker);
    if (object != nullptr) object->tracker().close_marker(marker_attempt_id);
  };
}

EmbeddedMarkers::DataShape EmbeddedMarkers::attempt_declared_data_shape() {
  return [](const Value& expected_columns) {
    const auto columns = static_cast<std::int64_t>(genetic::length(expected_columns));
    return Value(Mapping{{"rows", 1}, {"columns", columns}});
  };
}

}  // namespace varnholt::embedded
