#include "hosts/embedded/search/run_recorder.hpp"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "hosts/embedded/digest/digest.hpp"
#include "hosts/embedded/search/statistics_object.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;

namespace {

double wall_clock_seconds() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// A graph from a seeds file may be none of the vocabulary's; it is stored all the same.
std::string readable(const Value& graph) {
  try {
    return expression_text(graph);
  } catch (const GraphError&) {
    return {};
  }
}

std::string text_or_empty(const Value& value) {
  return value.is_absent() ? std::string() : genetic::str(value);
}

std::optional<std::string> text_or_nothing(const std::string& text) {
  return text.empty() ? std::nullopt : std::optional(text);
}

CandidateRecorded candidate_of(const Value& graph, bool passed, const Mapping& keywords) {
  CandidateRecorded candidate;
  candidate.passed = passed;
  candidate.failure_reason = text_or_empty(keywords.get(keys::kRejectionReason));
  const auto tracking = genetic::as_mapping(keywords.get(keys::kTrackingMetricKwargs));
  if (tracking) candidate.failure_detail = text_or_empty(tracking->get(keys::kFailureDetail));
  candidate.expression = readable(graph);
  candidate.statistics = statistics_of(keywords.get(keys::kStats));
  const Value elapsed = keywords.get(keys::kExpressionElapsedSeconds);
  if (!elapsed.is_absent()) candidate.elapsed_seconds = genetic::to_float(elapsed);
  return candidate;
}

EvaluationRecord stored_form(const CandidateRecorded& candidate, const Value& graph) {
  EvaluationRecord record;
  record.candidate_number = candidate.evaluation_id;
  record.generation = candidate.generation;
  record.graph_json = genetic::canonical_graph_string(graph);
  record.graph_key = sha256_hex(record.graph_json);
  record.passed = candidate.passed;
  record.failure_reason = text_or_nothing(candidate.failure_reason);
  record.failure_detail = text_or_nothing(candidate.failure_detail);
  record.statistics_json = "null";
  if (candidate.statistics) {
    record.statistics_json = genetic::json_text(statistics_mapping(*candidate.statistics));
    record.sharpe = candidate.statistics->sharpe;
    record.quality_score = candidate.statistics->quality_score;
  }
  record.elapsed_seconds = candidate.elapsed_seconds;
  record.recorded_at = wall_clock_seconds();
  return record;
}

double quality(const CandidateRecorded& candidate) {
  return candidate.statistics ? candidate.statistics->quality_score : 0.0;
}

}  // namespace

RunRecorder::RunRecorder(RunStore& store, SearchObserver& observer, Lineage& lineage,
                         int best_count)
    : store_(store),
      observer_(observer),
      lineage_(lineage),
      best_count_(static_cast<std::size_t>(best_count)),
      elapsed_seconds_([] { return 0.0; }) {}

std::int64_t RunRecorder::begin(const RunStart& start) {
  run_id_ = store_.begin_run(start);
  return run_id_;
}

void RunRecorder::set_clock(std::function<double()> elapsed_seconds) {
  elapsed_seconds_ = std::move(elapsed_seconds);
}

Value RunRecorder::record(const Value& graph, bool passed, const Mapping& keywords) {
  CandidateRecorded candidate = candidate_of(graph, passed, keywords);
  candidate.evaluation_id = progress_.candidates + 1;
  candidate.generation = progress_.generation;
  candidate.bred = lineage_.is_bred(graph);
  store_.record_evaluations(run_id_, {stored_form(candidate, graph)});
  count(candidate);
  observer_.on_recorded(candidate);
  return candidate.evaluation_id;
}

void RunRecorder::count(const CandidateRecorded& candidate) {
  ++progress_.candidates;
  ++(candidate.bred ? bred_ : fresh_);
  if (!candidate.passed) {
    ++progress_.failures[candidate.failure_reason];
    return;
  }
  ++progress_.passing;
  const auto place =
      std::upper_bound(best_.begin(), best_.end(), candidate,
                       [](const CandidateRecorded& left, const CandidateRecorded& right) {
                         return quality(left) > quality(right);
                       });
  best_.insert(place, candidate);
  if (best_.size() > std::max<std::size_t>(best_count_, 1)) best_.pop_back();
}

void RunRecorder::record_metrics(const Mapping& metrics) {
  metrics_ = metrics;
  store_.record_metrics(run_id_, genetic::json_text(metrics));
  observer_.on_metrics(metrics);
}

void RunRecorder::generation_done() {
  ++progress_.generation;
  progress_.bred_in_generation = std::exchange(bred_, 0);
  progress_.fresh_in_generation = std::exchange(fresh_, 0);
  lineage_.next_generation();
  observer_.on_generation(progress());
}

void RunRecorder::tick(std::int64_t evaluated_in_batch) {
  observer_.on_tick(progress(), evaluated_in_batch);
}

void RunRecorder::end(const std::string& terminal_reason) {
  store_.end_run(run_id_, wall_clock_seconds(), terminal_reason);
}

SearchProgress RunRecorder::progress() const {
  SearchProgress progress = progress_;
  if (!best_.empty()) progress.best = best_.front();
  progress.elapsed_seconds = elapsed_seconds_();
  return progress;
}

}  // namespace varnholt::embedded
