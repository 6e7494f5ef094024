#include "search_templates/genetic/submission/pool_metric_refresh.hpp"

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
  Refresh(Host& host, SearchContext& context, Mapping& candidate, Mapping& payload)
      : gates_(host.gates()),
        thresholds_(host.pool_thresholds()),
        pool_(host.pool_metrics()),
        payloads_(host.submission_payloads()),
        verdicts_(host.evaluation_verdicts()),
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
    const auto refresh_membership = pool_.required_refresh_submission_manifest_membership();
    const Value sync_manager = context_value(context_, context_names::kSyncManager);
    if (!truth(refresh_membership(era_config_, pool_name_, sync_manager))) {
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
    const Value made = candidate_stats_payload(payloads_, context_, candidate_);
    payload_.set(keys::kIsStats, made);
    return expected_record(made);
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
    if (!truth(pool_.selected_pool_has_synced_found_signal_ids(era_config_, pool_name_))) {
      return stats;
    }
    return catching(
        {ErrorKind::kValueError},
        [&] {
          pool_.normalize_required_pool_pnl_matrix(stats, era_config_, pool_name_);
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
      const auto metaparameters_for_pool = pool_.required_evaluation_metaparameters_for_pool();
      const Value own = context_value(context_, context_names::kMetaparameters);
      metaparameters = metaparameters_for_pool(pool_name_, truth(own) ? own : Value(Mapping()));
    }
    const auto call_backtester = pool_.required_call_backtester_with_transform_context();
    return call_backtester(
        {.backtester = backtester_,
         .operation = "run_backtest",
         .graph = candidate_.get(keys::kGraph),
         .metaparameters = metaparameters,
         .named_universe = context_value(context_, context_names::kNamedUniverse),
         .extra_kwargs = {{keys::kReturnSeries, true}}});
  }

  PoolMetric measured_mutual_information(const Value& gate_stats) {
    const auto pnl_mi = pool_.required_submission_pnl_mi_from_backtest_or_compute();
    const Value thresholds = context_thresholds(context_, gates_);
    return metric(pnl_mi(request(gate_stats), thresholds));
  }

  PoolMetric measured_correlation(const Value& gate_stats) {
    return metric(pool_.submission_correlation_from_backtest_or_compute(request(gate_stats)));
  }

  [[nodiscard]] PoolMetricRequest request(const Value& gate_stats) const {
    return {.backtester = backtester_,
            .gate_stats = gate_stats,
            .era_config = era_config_,
            .signal_pool_name = pool_name_};
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
      const auto not_ready = pool_.as_pool_data_not_ready(std::current_exception());
      if (!not_ready) throw;
      mark_candidate_pool_metrics_pending(candidate_, payload_, *not_ready);
      return std::nullopt;
    }
  }

  void judge(const PoolMetric& mutual_information, const PoolMetric& correlation) {
    if (!truth(mutual_information.passed)) {
      if (truth(correlation.passed)) {
        set_candidate_correlation_tracking(gates_, thresholds_, context_, candidate_,
                                           correlation.value);
      }
      const Value detail =
          submission_mi_failure_detail(gates_, thresholds_, context_, mutual_information.value);
      block_candidate_submission(gates_, candidate_, reasons::kPnlMiBelowThreshold, detail);
      return;
    }
    set_candidate_mi_tracking(gates_, thresholds_, context_, candidate_, mutual_information.value);
    if (truth(correlation.passed)) {
      set_candidate_correlation_tracking(gates_, thresholds_, context_, candidate_,
                                         correlation.value);
      return;
    }
    block_on_correlation(correlation.value);
  }

  void block_on_correlation(const Value& correlation) {
    const Value threshold =
        unpack_pair(thresholds_.submission_correlation_threshold_and_pool(era_config_, pool_name_))
            .first;
    const Value detail = gates_.recorded_failure_detail({.reason = reasons::kCorrelationExceeded,
                                                         .metric = keys::kCorrelation,
                                                         .value = correlation,
                                                         .threshold = threshold,
                                                         .gate = "is_correlation_threshold",
                                                         .comparison = ">",
                                                         .category = "quality"});
    block_candidate_submission(gates_, candidate_, reasons::kCorrelationExceeded, detail);
  }

  Gates& gates_;
  PoolThresholds& thresholds_;
  PoolMetrics& pool_;
  SubmissionPayloads& payloads_;
  EvaluationVerdicts& verdicts_;
  SearchContext& context_;
  Mapping& candidate_;
  Mapping& payload_;
  Value backtester_;
  Value era_config_;
  Value pool_name_;
};

}  // namespace

void refresh_candidate_submission_pool_metrics(Host& host, SearchContext& context,
                                               Mapping& candidate, Mapping& payload) {
  Refresh(host, context, candidate, payload).run();
}

}  // namespace varnholt::genetic
