#include "search_templates/genetic/submission/pool_metric_refresh.hpp"

#include <array>
#include <exception>
#include <optional>
#include <utility>

#include "search_templates/genetic/context/market_era.hpp"
#include "search_templates/genetic/context/thresholds.hpp"
#include "search_templates/genetic/context/verdicts.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/submission/pool_metric_tracking.hpp"
#include "search_templates/genetic/submission/statistics_payload.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr const char* kContextUnavailable = "pool metric computation context is unavailable";
constexpr const char* kMembershipNotConfirmed = "found signal membership is not confirmed";

bool is_callable(const std::optional<Value>& value) {
  return value && value->is_object() && value->object().is_callable();
}

// A pool metric and whether it passes.
struct PoolMetric {
  Value value;
  Value passed;  // A truth value of the host's.
};

class Refresh {
 public:
  Refresh(Engine& engine, EvaluationVerdicts& verdicts, SearchContext& context, Mapping& candidate,
          Mapping& payload)
      : engine_(engine),
        verdicts_(verdicts),
        context_(context),
        candidate_(candidate),
        payload_(payload),
        backtester_(context_value(context, context_names::kBacktester)),
        era_config_(context_era_config(context)),
        pool_name_(context_value(context, context_names::kSignalPoolName)) {}

  void run() {
    Mapping stats_payload = payload_statistics();
    Mapping tracking = wipe(stats_payload);
    if (backtester_.is_absent() || era_config_.is_absent() || !truth(pool_name_)) {
      mark_candidate_pool_metrics_pending(candidate_, payload_, kContextUnavailable);
      return;
    }
    const Value sync_manager = context_value(context_, context_names::kSyncManager);
    if (!truth(engine_.refresh_submission_manifest_membership(era_config_, pool_name_,
                                                              sync_manager))) {
      mark_candidate_pool_metrics_pending(candidate_, payload_, kMembershipNotConfirmed);
      return;
    }

    const Value gate_stats = statistics_to_measure();
    const std::optional<PoolMetric> mutual_information =
        unless_not_ready([&] { return measured_mutual_information(gate_stats); });
    if (!mutual_information) return;
    const std::optional<PoolMetric> correlation =
        unless_not_ready([&] { return measured_correlation(gate_stats); });
    if (!correlation) return;

    stats_payload.set(keys::kIsPnlMi, mutual_information->value);
    stats_payload.set(keys::kCorrelation, correlation->value);
    tracking.set(keys::kPnlMi, mutual_information->value);
    tracking.set(keys::kCorrelation, correlation->value);
    clear_candidate_pool_metrics_pending(candidate_, payload_);
    judge(*mutual_information, *correlation);
  }

 private:
  // The payload's statistics, made where it has none: they stay even when the call ends pending.
  Mapping payload_statistics() {
    if (const auto recorded = as_mapping(payload_.get(keys::kIsStats))) return *recorded;
    const Value made = candidate_stats_payload(engine_, context_, candidate_);
    payload_.set(keys::kIsStats, made);
    return record_of(made);
  }

  Mapping wipe(Mapping& stats_payload) {
    stats_payload.erase(keys::kIsPnlMi);
    stats_payload.erase(keys::kCorrelation);
    Mapping tracking = mapping_made_when_missing(candidate_, keys::kTrackingMetricKwargs);
    tracking.erase(keys::kPnlMi);
    tracking.erase(keys::kCorrelation);
    tracking.set(keys::kMiVerdict, not_evaluated_verdict(verdicts_));
    tracking.set(keys::kCorrelationVerdict, not_evaluated_verdict(verdicts_));
    return tracking;
  }

  // The candidate's statistics, or those of a new backtest where a PnL matrix is required that they
  // do not hold. The matrix of a normalisation that works is not kept: it serves as a test only.
  Value statistics_to_measure() {
    Value stats = candidate_.get(keys::kStats);
    if (!truth(engine_.selected_pool_has_synced_found_signal_ids(era_config_, pool_name_))) {
      return stats;
    }
    return catching(
        {ErrorKind::kValueError},
        [&] {
          engine_.normalize_required_pool_pnl_matrix(stats, era_config_, pool_name_);
          return stats;
        },
        [&](const Error&) {
          const auto handled = context_.handling(std::current_exception());
          // Without a backtest to run, the statistics are measured as they are.
          if (!is_callable(attribute(backtester_, "run_backtest"))) return stats;
          return backtested_again();
        });
  }

  Value backtested_again() {
    Value metaparameters = context_value(context_, context_names::kEvaluationMetaparameters);
    if (metaparameters.is_absent()) {
      const Value own = context_value(context_, context_names::kMetaparameters);
      metaparameters = engine_.evaluation_metaparameters_for_pool(
          pool_name_, truth(own) ? own : Value(Mapping()));
    }
    const std::array<Value, 5> positional = {
        backtester_, "run_backtest", candidate_.get(keys::kGraph), metaparameters,
        context_value(context_, context_names::kNamedUniverse)};
    return engine_.call_backtester_with_transform_context(positional,
                                                          {{keys::kReturnSeries, true}});
  }

  PoolMetric measured_mutual_information(const Value& gate_stats) {
    const std::array<Value, 5> positional = {backtester_, gate_stats, era_config_, pool_name_,
                                             context_thresholds(context_, engine_)};
    return metric(engine_.submission_pnl_mi_from_backtest_or_compute(positional));
  }

  PoolMetric measured_correlation(const Value& gate_stats) {
    const std::array<Value, 4> positional = {backtester_, gate_stats, era_config_, pool_name_};
    return metric(engine_.submission_correlation_from_backtest_or_compute(positional));
  }

  static PoolMetric metric(const Value& measured) {
    auto [value, passed] = unpack_pair(measured);
    return {std::move(value), std::move(passed)};
  }

  // Nothing, and the candidate pending, when the host says that the pool's data is not ready.
  template <typename Measure>
  std::optional<PoolMetric> unless_not_ready(const Measure& measure) {
    try {
      return measure();
    } catch (...) {
      const auto handled = context_.handling(std::current_exception());
      const auto not_ready = engine_.as_pool_data_not_ready(std::current_exception());
      if (!not_ready) throw;
      mark_candidate_pool_metrics_pending(candidate_, payload_, *not_ready);
      return std::nullopt;
    }
  }

  void judge(const PoolMetric& mutual_information, const PoolMetric& correlation) {
    if (!truth(mutual_information.passed)) {
      if (truth(correlation.passed)) {
        set_candidate_correlation_tracking(engine_, context_, candidate_, correlation.value);
      }
      const Value detail =
          submission_mi_failure_detail(engine_, context_, mutual_information.value);
      block_candidate_submission(engine_, candidate_, reasons::kPnlMiBelowThreshold, detail);
      return;
    }
    set_candidate_mi_tracking(engine_, context_, candidate_, mutual_information.value);
    if (truth(correlation.passed)) {
      set_candidate_correlation_tracking(engine_, context_, candidate_, correlation.value);
      return;
    }
    block_on_correlation(correlation.value);
  }

  void block_on_correlation(const Value& correlation) {
    const Value threshold =
        unpack_pair(engine_.submission_correlation_threshold_and_pool(era_config_, pool_name_))
            .first;
    const std::array<Value, 4> positional = {reasons::kCorrelationExceeded, keys::kCorrelation,
                                             correlation, threshold};
    const Value detail =
        engine_.recorded_failure_detail(positional, {{keys::kGate, "is_correlation_threshold"},
                                                     {keys::kOperator, ">"},
                                                     {keys::kCategory, "quality"}});
    block_candidate_submission(engine_, candidate_, reasons::kCorrelationExceeded, detail);
  }

  Engine& engine_;
  EvaluationVerdicts& verdicts_;
  SearchContext& context_;
  Mapping& candidate_;
  Mapping& payload_;
  Value backtester_;
  Value era_config_;
  Value pool_name_;
};

}  // namespace

void refresh_candidate_submission_pool_metrics(Engine& engine, EvaluationVerdicts& verdicts,
                                               SearchContext& context, Mapping& candidate,
                                               Mapping& payload) {
  Refresh(engine, verdicts, context, candidate, payload).run();
}

}  // namespace varnholt::genetic
