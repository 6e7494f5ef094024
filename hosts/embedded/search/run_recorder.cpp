#include "hosts/embedded/search/run_recorder.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/gates/failure_detail.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/known_behaviours.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/search/attempt_end.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/system/wall_clock.hpp"
#include "hosts/embedded/timing/backtest_timing.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "hosts/embedded/vocabulary/graph_shape.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Mapping;
using genetic::Value;

namespace {

constexpr genetic::Key kResultsDigest = genetic::key<"results_digest">();

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

// The evidence behind a failure's detail, a mapping or its JSON text; anything else as it is.
Value detail_evidence(const Value& detail) {
  if (!detail.is_text()) return detail;
  try {
    return read_json(detail.text());
  } catch (const genetic::ValueError&) {
    return detail;  // The text of an exception, for people.
  }
}

double number_in(const Mapping& entries, genetic::Key key) {
  return genetic::tolerant_float(entries.get(key)).value_or(std::nan(""));
}

std::optional<std::string> text_or_nothing(const std::string& text) {
  return text.empty() ? std::nullopt : std::optional(text);
}

// A detail for people, where no gate of the table tells it itself.
std::string readable_detail(const Value& detail) {
  const Value evidence = detail_evidence(detail);
  if (!evidence.is_mapping()) return text_or_empty(detail);
  const Mapping entries = evidence.mapping();
  const bool is_below = genetic::str(entries.get(keys::kOperator)) == "<";
  return fmt::format("{} {:.4g} is {} {:.4g}", genetic::str(entries.get("metric")),
                     number_in(entries, keys::kValue), is_below ? "below" : "above",
                     number_in(entries, keys::kThreshold));
}

CandidateRecorded candidate_of(const Value& graph, bool passed, const Mapping& keywords) {
  CandidateRecorded candidate;
  candidate.passed = passed;
  candidate.failure_reason = text_or_empty(keywords.get(keys::kRejectionReason));
  const auto tracking = genetic::as_mapping(keywords.get(keys::kTrackingMetricKwargs));
  if (tracking) candidate.failure_detail = readable_detail(tracking->get(keys::kFailureDetail));
  candidate.expression = readable(graph);
  candidate.statistics = statistics_of(keywords.get(keys::kStats));
  const Value elapsed = keywords.get(keys::kExpressionElapsedSeconds);
  if (!elapsed.is_absent()) candidate.elapsed_seconds = genetic::to_float(elapsed);
  return candidate;
}

// Every failure by its reason with its evidence: the reason that the candidate was rejected for,
// then the gates that its statistics fail besides.
Mapping all_failures(const CandidateRecorded& candidate, const Mapping& keywords,
                     const std::vector<GateFailure>& gates) {
  Mapping failures;
  if (!candidate.failure_reason.empty()) {
    const auto tracking = genetic::as_mapping(keywords.get(keys::kTrackingMetricKwargs));
    const Value detail = tracking ? tracking->get(keys::kFailureDetail) : Value();
    failures.set(candidate.failure_reason, detail_evidence(detail));
  }
  for (const GateFailure& failure : gates)
    failures.set_default(failure.reason, failure_detail(failure));
  return failures;
}

// The process that ran the backtest, as its timing tells; nothing where there is none.
std::optional<std::int64_t> worker_of(const Mapping& keywords) {
  const auto timing = genetic::as_mapping(keywords.get(keys::kBacktestTiming));
  if (!timing) return std::nullopt;
  const Value process = timing->get(timing_keys::kProcessId);
  return process.is_integer() ? std::optional(process.integer()) : std::nullopt;
}

EvaluationRecord stored_form(const CandidateRecorded& candidate, const Value& graph,
                             const Mapping& keywords) {
  EvaluationRecord record;
  record.candidate_number = candidate.candidate_number;
  record.generation = candidate.generation;
  record.graph_json = genetic::canonical_graph_string(graph);
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
  record.worker_pid = worker_of(keywords);
  record.recorded_at = wall_clock_seconds();
  record.eval_id = candidate.eval_id;
  record.expression = text_or_nothing(candidate.expression);
  return record;
}

bool is_judged_as_opposite(const Mapping& keywords) {
  const std::optional<BacktestStatistics> statistics = statistics_of(keywords.get(keys::kStats));
  return statistics && statistics->is_of_opposite();
}

double quality(const CandidateRecorded& candidate) {
  return candidate.statistics ? candidate.statistics->quality_score : 0.0;
}

}  // namespace

RunRecorder::RunRecorder(RunStore& store, SearchObserver& observer, Lineage& lineage,
                         const SearchStop& stop, const Settings& settings, const RunStart& start)
    : store_(store),
      observer_(observer),
      lineage_(lineage),
      stop_(stop),
      settings_(settings),
      end_sync_(store.attempts()),
      tracker_(std::make_shared<EmbeddedTracker>(store.attempts(), end_sync_, wall_clock_seconds)),
      market_id_(start.market_id),
      era_number_(start.era_number),
      run_id_(store.begin_run(start)) {}

std::vector<GateFailure> RunRecorder::gates_failed(const CandidateRecorded& candidate) const {
  if (!candidate.statistics) return {};
  return failed_gates(*candidate.statistics, settings_.gates, settings_.limits);
}

std::optional<std::int64_t> RunRecorder::attempt_of(const ActiveAttempt& attempt,
                                                    const std::string& graph_key) {
  if (attempt.id.is_absent()) return store_.attempts().open_attempt(run_id_, graph_key);
  return genetic::to_integer(attempt.id).integer();
}

void RunRecorder::announce(const EvaluationRecord& record, const Mapping& keywords) {
  const StatisticsObject* const stats = statistics_object(keywords.get(keys::kStats));
  // Without its PnL a signal is submitted after a second backtest, which only a run can make.
  if (!settings_.pool || stats == nullptr || !stats->pnl()) return;
  NewSubmission submission;
  submission.pool = *settings_.pool;
  submission.eval_id = record.eval_id;
  submission.payload_json = announced_payload(record, *settings_.pool, keywords);
  submission.pnl = {stats->pnl()->data(), static_cast<std::size_t>(stats->pnl()->size())};
  submission.queued_at = record.recorded_at;
  store_.submissions().announce(submission);
}

void RunRecorder::store(const EvaluationRecord& record, const std::optional<std::int64_t>& attempt,
                        const AttemptEndRow& end, const Mapping& keywords) {
  store_.under_lock("recording evaluations", [&] {
    store_.record_evaluations(run_id_, {record});
    // An attempt that has ended already stays as it ended, and the store counts the second end.
    if (attempt) static_cast<void>(store_.attempts().end(*attempt, end, record.recorded_at));
    if (record.passed) announce(record, keywords);
    return RunStore::LockedWork::Keep;
  });
  if (attempt) end_sync_.note_end();
}

Value RunRecorder::record(const Value& graph, bool passed, const Mapping& keywords,
                          const ActiveAttempt& attempt) {
  if (is_judged_as_opposite(keywords)) lineage_.note_opposite(graph);
  const Value recorded = lineage_.as_recorded(graph);
  CandidateRecorded candidate = candidate_of(recorded, passed, keywords);
  const std::vector<GateFailure> failed = gates_failed(candidate);
  for (const GateFailure& failure : failed) {
    if (failure.reason.view() == candidate.failure_reason)
      candidate.failure_detail = failure.detail;
  }
  candidate.candidate_number = progress_.candidates + 1;
  candidate.eval_id = eval_id_of(run_id_, candidate.candidate_number);
  candidate.generation = progress_.generation;
  const bool may_begin_round = lineage_.has_new_repairs();
  const GraphOrigin origin = lineage_.origin_of(graph);
  candidate.bred = origin.origin == Origin::Bred;
  if (origin.repair) {
    candidate.repaired_by = origin.repair->plan;
    if (may_begin_round) {
      ++rounds_;
      evaluated_ = 0;
    }
  }
  ++evaluated_;
  EvaluationRecord record = stored_form(candidate, recorded, keywords);
  // The structure is the one that was tried, by which attempts, parents and later runs know it.
  record.graph_key = sha256_hex(genetic::canonical_graph_string(graph));
  record.lineage_json = lineage_json(origin);
  record.failures_json = genetic::json_text(all_failures(candidate, keywords, failed));
  record.market_id = market_id_;
  record.era_number = era_number_;
  AttemptEndRow end = attempt_end(candidate, keywords, attempt, settings_.gates, settings_.limits);
  store(record, attempt_of(attempt, record.graph_key), end, keywords);
  add_to_digest(record);
  count(candidate);
  count_misses(candidate, failed);
  archive(graph, keywords, origin);
  // A killed run loses none that was told.
  if (observer_.tells_candidates()) store_.gathered_writes().put_in_file();
  observer_.on_recorded(candidate);
  return candidate.eval_id;
}

void RunRecorder::count(const CandidateRecorded& candidate) {
  ++progress_.candidates;
  if (candidate.repaired_by.empty()) {
    ++(candidate.bred ? bred_ : fresh_);
  } else {
    count_repair(candidate);
  }
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
  if (std::cmp_greater(best_.size(), std::max(settings_.best_count, 1))) best_.pop_back();
}

void RunRecorder::count_misses(const CandidateRecorded& candidate,
                               const std::vector<GateFailure>& failed) {
  for (const GateFailure& failure : failed) {
    if (std::isnan(failure.actual)) continue;  // It is near to nothing.
    const NearestMiss miss = {candidate.eval_id, failure.actual, failure.threshold};
    const auto [known, is_new] =
        progress_.nearest_misses.try_emplace(std::string(failure.reason.view()), miss);
    const auto distance = [](const NearestMiss& of) { return std::abs(of.actual - of.threshold); };
    // Of equal ones the earlier.
    if (!is_new && distance(miss) < distance(known->second)) known->second = miss;
  }
}

void RunRecorder::archive(const Value& graph, const Mapping& keywords,
                          const GraphOrigin& origin) const {
  if (settings_.archive == nullptr) return;
  if (genetic::is_same_or_equal(keywords.get(keys::kRejectionReason), kBehaviourRepeated)) {
    settings_.archive->add_repeat(graph, origin.source);
    return;
  }
  const StatisticsObject* const object = statistics_object(keywords.get(keys::kStats));
  if (object == nullptr || !object->behaviour()) return;
  const auto nodes = static_cast<double>(measure_graph(graph).node_count);
  settings_.archive->add(graph, nodes, *object->behaviour(), origin.source);
}

void RunRecorder::count_repair(const CandidateRecorded& candidate) {
  ++repaired_;
  RepairCount& count = progress_.repairs[candidate.repaired_by];
  ++count.tried;
  if (!candidate.passed) return;
  ++count.rescued;
  rescued_by_[candidate.eval_id] = candidate.repaired_by;
}

// The digest of what was there and of the new record: one record is in memory at a time.
void RunRecorder::add_to_digest(const EvaluationRecord& record) {
  digest_ = sha256_hex(fmt::format("{}\n{}\n{}\n{}\n{}\n{}\n{}\n{}\n{}\n{}", digest_,
                                   record.candidate_number, record.generation, record.graph_json,
                                   record.passed, record.failure_reason.value_or(""),
                                   record.failure_detail.value_or(""), record.statistics_json,
                                   record.lineage_json, record.failures_json));
}

void RunRecorder::record_metrics(const Mapping& metrics) {
  Mapping record;
  record.update(metrics);
  record.set(kResultsDigest, digest_);
  metrics_ = record;
  store_.record_metrics(run_id_, genetic::json_text(record));
  observer_.on_metrics(record);
}

void RunRecorder::settled(const SyncReport& report) {
  for (const SettledSubmission& submission : report.settled) {
    SettledSignal signal;
    signal.eval_id = submission.eval_id;
    signal.submitted = !submission.refusal.has_value();
    if (submission.refusal) {
      signal.refusal_reason = submission.refusal->reason;
      signal.refusal_detail = submission.refusal->detail;
      ++submissions_.refused[signal.refusal_reason];
    } else {
      ++submissions_.submitted;
      // What an earlier run has left in the queue is none of this run's repairs.
      const auto repair = rescued_by_.find(signal.eval_id);
      if (repair != rescued_by_.end()) ++progress_.repairs[repair->second].submitted;
    }
    signal.novelty = submission.measure.novelty;
    signal.correlation = submission.measure.correlation;
    signal.replaced = submission.replaced;
    submissions_.replaced += std::ssize(submission.replaced);
    if (!submission.eval_id.starts_with(fmt::format("{}-", run_id_))) {
      ++submissions_.of_earlier_runs;
    }
    observer_.on_settled(signal);
  }
  submissions_.waiting = static_cast<std::int64_t>(report.waiting.size());
  tell_troubles(report);
}

void RunRecorder::tell_troubles(const SyncReport& report) {
  for (const SetAsideMember& member : report.set_aside) {
    observer_.on_log(LogLevel::Warning,
                     fmt::format("pool member {} is set aside: it {}", member.eval_id, member.why));
  }
  // The same reason for many is told once. What only waits for a measure is settled when that is
  // made, which the progress tells.
  for (const WaitingSubmission& waiting : report.waiting) {
    if (waiting.is_for_measures || !told_waits_.insert(waiting.why).second) continue;
    observer_.on_log(LogLevel::Warning,
                     fmt::format("submission {} waits: {}", waiting.eval_id, waiting.why));
  }
}

void RunRecorder::generation_done() {
  ++progress_.generation;
  progress_.bred_in_generation = std::exchange(bred_, 0);
  progress_.fresh_in_generation = std::exchange(fresh_, 0);
  progress_.repaired_in_generation = std::exchange(repaired_, 0);
  progress_.repair_rounds += std::exchange(rounds_, 0);
  evaluated_ = 0;
  end_sync_.sync();
  observer_.on_generation(progress());
}

void RunRecorder::tick() {
  end_sync_.sync_if_due();
  observer_.on_tick(progress(), evaluated_);
}

void RunRecorder::end(const std::string& terminal_reason) {
  store_.end_run(run_id_, wall_clock_seconds(), terminal_reason);
  store_.attempts().sync();
}

SearchProgress RunRecorder::progress() const {
  SearchProgress progress = progress_;
  progress.repair_rounds += rounds_;
  // Repairs that were planned and not recorded yet are evaluated now.
  progress.round_under_way = rounds_ + (lineage_.has_new_repairs() ? 1 : 0);
  if (!best_.empty()) progress.best = best_.front();
  progress.elapsed_seconds = stop_.elapsed_seconds();
  return progress;
}

}  // namespace varnholt::embedded
