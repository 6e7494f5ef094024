#include "hosts/embedded/host/embedded_context.hpp"

#include <bit>
#include <new>
#include <span>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/gates/failure_detail.hpp"
#include "hosts/embedded/gates/threshold_set.hpp"
#include "hosts/embedded/host/backtester_object.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "search_templates/genetic/host/callable_value.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Callable;
using genetic::Key;
using genetic::List;
using genetic::Mapping;
using genetic::Tuple;
using genetic::Value;

namespace {

namespace names = genetic::context_names;
namespace operations = genetic::operation_names;

// The phase that a child must not enter before its parent has stored the attempt.
constexpr Key kRunBacktest = genetic::key<"run_backtest">();

// With a result from its child to the parent, as a number with a sign: values have no others.
constexpr Key kFingerprint = genetic::key<"behaviour_fingerprint">();

// Absent of a repeat, and of what was not backtested.
std::optional<std::uint64_t> fingerprint_of(const Mapping& keywords) {
  const auto tracking = genetic::as_mapping(keywords.get(keys::kTrackingMetricKwargs));
  const Value told = tracking ? tracking->get(kFingerprint) : Value();
  if (!told.is_integer()) return std::nullopt;
  return std::bit_cast<std::uint64_t>(told.integer());
}

// The figures that every backtest gives, by their names.
List statistic_names() {
  List names;
  genetic::MappingCursor cursor(statistics_mapping(BacktestStatistics()));
  while (const auto entry = cursor.next())
    names.append(entry->key);
  return names;
}

Mapping context_attributes(const Evaluator& evaluator, const ContextSettings& settings) {
  const Mapping thresholds = threshold_set(settings.gates, settings.limits);
  const Mapping era_config{{keys::kId, settings.pool.era_number},
                           {keys::kEraNumber, settings.pool.era_number},
                           {keys::kMarketId, settings.pool.market_id},
                           {"first_date", settings.first_date},
                           {"last_date", settings.last_date}};
  return {{names::kOwnMarketId, settings.pool.market_id},
          {names::kOwnEraNumber, settings.pool.era_number},
          {names::kOwnEraConfig, era_config},
          {names::kSignalPoolName, settings.pool.signal_pool_name},
          {names::kThresholds, thresholds},
          {names::kOwnThresholds, thresholds},
          {names::kAttemptExpectedColumns, statistic_names()},
          {names::kBacktester, genetic::make_object<BacktesterObject>(evaluator)},
          {names::kMetaparameters,
           Mapping{{"cost_basis_points", evaluator.options().book.cost_basis_points}}},
          {names::kNamedUniverse, "all"}};
}

}  // namespace

EmbeddedContext::EmbeddedContext(const Evaluator& evaluator, const ContextSettings& settings,
                                 std::shared_ptr<SearchStop> stop, ResultRecorder& recorder,
                                 SignalSubmission& submission, ProcessSide& process)
    : evaluator_(evaluator),
      settings_(settings),
      stop_(std::move(stop)),
      recorder_(recorder),
      submission_(submission),
      process_(process),
      attributes_(context_attributes(evaluator, settings)),
      operations_(std::make_shared<genetic::OperationTable>(parent_operations())) {}

// The search takes the candidates that are with workers at a time for workers, and says so in the
// run's metrics. What is told is the number of workers.
Mapping EmbeddedContext::with_worker_count(const Mapping& metrics) const {
  const int each = process_.pool.candidates_per_worker();
  if (each == 1) return metrics;
  const auto correct = [each](Mapping& figures) {
    const Value with_workers = figures.get(keys::kProcessCount);
    if (with_workers.is_integer()) figures.set(keys::kProcessCount, with_workers.integer() / each);
  };
  Mapping told = genetic::shallow_copy(metrics);
  correct(told);
  if (const auto metadata = genetic::as_mapping(told.get(keys::kDeterminismMetadata))) {
    Mapping corrected = genetic::shallow_copy(*metadata);
    correct(corrected);
    told.set(keys::kDeterminismMetadata, corrected);
  }
  return told;
}

// What only the parent may do.
Mapping EmbeddedContext::parent_operations() {
  const auto record = [this](std::span<const Value> positional, const Mapping& keywords) {
    const bool passed = genetic::truth(positional[1]);
    // An attempt is current for one record, also for one that fails. So is its evidence: what a
    // lost worker's candidate is recorded with is not that of the candidate before it.
    const Value evidence = std::exchange(attempt_evidence_, {});
    ActiveAttempt attempt;
    if (!active_attempt_.is_absent()) attempt = {std::exchange(active_attempt_, {}), evidence};
    Value id = recorder_.record(positional[0], passed, keywords, attempt);
    if (settings_.behaviours != nullptr) settings_.behaviours->note(fingerprint_of(keywords));
    if (passed) submission_.keep_pnl(id, keywords.get(keys::kStats));
    stop_->count_candidate();
    return id;
  };
  const auto enqueue = [this](std::span<const Value> positional, const Mapping& /*keywords*/) {
    return Value(submission_.enqueue(genetic::record_of(positional[0])));
  };
  const auto record_metrics = [this](std::span<const Value> /*positional*/,
                                     const Mapping& metrics) {
    recorder_.record_metrics(with_worker_count(metrics));
    return Value();
  };
  const auto operation = [](genetic::CallableFunction function) {
    return genetic::callable_value(genetic::make_callable(std::move(function)));
  };
  return {{operations::kSafeRecord, operation(record)},
          {operations::kEnqueueDeferredSubmissionPayload, operation(enqueue)},
          {operations::kRecordSearchRunMetrics, operation(record_metrics)}};
}

// A child has none of the parent's, only the guards in their place.
Callable EmbeddedContext::operation(genetic::Key name) {
  const std::optional<Value> found = process_.role.is_child()
                                         ? operations_->instance_value(name.view())
                                         : operations_->attribute(name.view());
  return genetic::callable_of(found.value_or(Value()));
}

bool EmbeddedContext::submission_cancelled() {
  recorder_.tick();
  return stop_->cancels_evaluations();
}

Callable EmbeddedContext::record_search_run_metrics() {
  return operation(operations::kRecordSearchRunMetrics);
}

std::optional<Value> EmbeddedContext::vocabulary() {
  List rotations;
  for (const FunctionEntry& function : evaluator_.vocabulary().functions) {
    if (function.weight <= 0.0) continue;  // Left out of what is made; see make_vocabulary.
    rotations.append(Mapping{{keys::kName, function.name},
                             {"family", function.family},
                             {"data_children", static_cast<std::int64_t>(function.data_children())},
                             {"needs_window", function.needs_window()},
                             {"child_count", static_cast<std::int64_t>(function.child_count())}});
  }
  return Mapping{{"functions", Mapping{{"rotation", rotations}}}};
}

std::optional<Value> EmbeddedContext::worker_memory_limit_bytes() {
  if (!settings_.worker_memory_limit_bytes) return std::nullopt;
  return *settings_.worker_memory_limit_bytes;
}

std::optional<Value> EmbeddedContext::attribute(std::string_view name) {
  if (name == "max_depth") return max_depth();
  if (name == "_n_jobs") return n_jobs();
  if (name == "_worker_memory_limit_bytes") return worker_memory_limit_bytes();
  if (name == names::kProcessPriority.view() && settings_.worker_nice) {
    return *settings_.worker_nice;
  }
  if (name == names::kProductRunId.view()) return recorder_.run_id();
  if (name == names::kTracker.view()) return tracker_attribute();
  return attributes_.find(name);
}

std::optional<Value> EmbeddedContext::tracker_attribute() {
  const auto tracker = process_.role.is_child() ? nullptr : recorder_.tracker();
  if (!tracker) return std::nullopt;
  return genetic::make_object<TrackerObject>(tracker, recorder_.run_id());
}

std::shared_ptr<genetic::AttemptTracker> EmbeddedContext::tracker() {
  auto tracker = process_.role.is_child() ? nullptr : recorder_.tracker();
  return tracker ? std::move(tracker) : genetic::SearchContext::tracker();
}

Callable EmbeddedContext::own_graph_validator() {
  return genetic::make_callable(
      [this](std::span<const Value> positional, const Mapping& /*keywords*/) {
        // No graph is taken into the batch of a search that is being stopped: a large one would
        // otherwise be composed to its end first.
        if (!process_.role.is_child() && stop_->cancels_evaluations()) return Value(false);
        static_cast<void>(check_graph(positional[0], evaluator_.vocabulary()));
        const bool is_asked = settings_.known != nullptr && !process_.role.is_child();
        return Value(!(is_asked && settings_.known->leaves_out(positional[0])));
      });
}

Callable EmbeddedContext::evaluate_for_template() {
  return genetic::make_callable(
      [this](std::span<const Value> positional, const Mapping& /*keywords*/) {
        return evaluate(positional[0]);
      });
}

// In a child the guard stands there, which holds it until the parent has stored the attempt.
void EmbeddedContext::announce_backtest() {
  const Key marker = operations::kWriteEvaluationAttemptMarker;
  const Callable announce =
      genetic::callable_of(process_.engine_operations->required_attribute(marker.view()));
  announce({kRunBacktest});
}

EmbeddedContext::Backtested EmbeddedContext::backtest(const Value& graph) {
  try {
    const Expression expression = evaluator_.compile(graph);
    announce_backtest();
    attempt_evidence_ = Mapping{{keys::kBacktestStarted, true}, {keys::kBacktestCompleted, false}};
    const BacktestStopwatch stopwatch(clock_, process_.role.identity());
    const Panel weights = evaluator_.weights(evaluator_.signal(expression));
    Backtested backtested;
    if (settings_.behaviours != nullptr) {
      backtested.fingerprint =
          behaviour_fingerprint(weights, evaluator_.options().judges_both_signs);
      backtested.repeated = settings_.behaviours->find(backtested.fingerprint);
      if (backtested.repeated) return backtested;
    }
    backtested.result = evaluator_.judge_weights(weights);
    backtested.timing = stopwatch.timing(graph);
    return backtested;
  } catch (const std::bad_alloc&) {
    // In a child this is its memory limit and no fault of the graph.
    if (process_.role.is_child()) throw OutOfMemory();
    throw;
  }
}

Value EmbeddedContext::evaluate(const Value& graph) {
  attempt_evidence_ = Mapping{{keys::kBacktestStarted, false}, {keys::kBacktestCompleted, false}};
  // Where this process has evaluated another candidate, that one's record is none of this one's.
  last_evaluation_record_ = {};
  const Backtested backtested = backtest(graph);
  if (backtested.repeated) return repeated(*backtested.repeated);
  return passed_or_failed(graph, backtested);
}

Value EmbeddedContext::outcome(const Mapping& record) {
  last_evaluation_record_ = record;
  return Mapping{{keys::kRecord, record},
                 {keys::kSubmissionPayloads, List()},
                 {keys::kAttemptEvidence, attempt_evidence_}};
}

Value EmbeddedContext::repeated(std::int64_t candidate) {
  const Mapping tracking{
      {keys::kFailureDetail,
       fmt::format("it wants to hold every day what candidate {} does", candidate)}};
  return outcome({{keys::kStats, Value()},
                  {keys::kPassed, false},
                  {keys::kRejectionReason, kBehaviourRepeated},
                  {keys::kTrackingMetricKwargs, tracking}});
}

// The statistics decide whether the signal passes; the reason is the first gate that it fails.
Value EmbeddedContext::passed_or_failed(const Value& graph, const Backtested& backtested) {
  const BacktestResult& measured = backtested.result;
  const Mapping& timing = backtested.timing;
  process_.timings.recorded().record(graph, timing);
  attempt_evidence_ = Mapping{{keys::kBacktestStarted, true},
                              {keys::kBacktestCompleted, true},
                              {keys::kBacktestTiming, timing}};

  const std::optional<GateFailure> failure =
      first_failed_gate(measured.statistics, settings_.gates, settings_.limits);
  // Children compare what passes with the pool, all at once; in the parent it would be one after
  // the other.
  const std::optional<Behaviour> behaviour =
      behaviour_of(returns_as_material(measured), settings_.market_returns,
                   evaluator_.options().book.periods_per_year);
  const Value stats = process_.role.is_child() && !failure
                          ? submission_.compared(measured, behaviour)
                          : genetic::make_object<StatisticsObject>(
                                measured.statistics, std::nullopt, std::nullopt, behaviour);
  Mapping tracking;
  Mapping record{{keys::kStats, stats},
                 {keys::kPassed, !failure.has_value()},
                 {keys::kRejectionReason, failure ? Value(failure->reason) : Value()},
                 {keys::kTrackingMetricKwargs, tracking}};
  if (failure) tracking.set(keys::kFailureDetail, failure_detail_text(*failure));
  if (settings_.behaviours != nullptr) {
    tracking.set(kFingerprint, std::bit_cast<std::int64_t>(backtested.fingerprint));
  }
  return outcome(record);
}

Callable EmbeddedContext::safe_record() {
  return operation(operations::kSafeRecord);
}

Callable EmbeddedContext::required_safe_record() {
  Callable recorder = safe_record();
  if (!recorder) throw genetic::AttributeError("a child process has no operation '_safe_record'");
  return recorder;
}

void EmbeddedContext::activate_existing_attempt(const Value& source_attempt_id,
                                                const Value& attempt_evidence) {
  active_attempt_ = source_attempt_id;
  attempt_evidence_ = attempt_evidence;
}

Callable EmbeddedContext::enqueue_deferred_submission_payload() {
  return operation(operations::kEnqueueDeferredSubmissionPayload);
}

Callable EmbeddedContext::derive_rejection_reason_detail() {
  return genetic::make_callable(
      [this](std::span<const Value> positional, const Mapping& /*keywords*/) {
        const std::optional<BacktestStatistics> statistics = statistics_of(positional[0]);
        const std::optional<GateFailure> failure =
            statistics ? first_failed_gate(*statistics, settings_.gates, settings_.limits)
                       : std::nullopt;
        if (!failure) return Value(Tuple{Value(), Value()});
        return Value(Tuple{failure->reason, failure_detail_text(*failure)});
      });
}

}  // namespace varnholt::embedded
