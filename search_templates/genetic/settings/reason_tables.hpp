// The vocabulary of failures: the names of reasons, and the tables that classify them.
//
// The first three tables keep their order; of the others only membership counts.
#pragma once

#include <algorithm>
#include <array>
#include <span>

#include "search_templates/genetic/value/key.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

namespace reasons {

// Why a run or a generation's improvement ended.
inline constexpr Key kDuplicate = key<"duplicate">();
inline constexpr Key kStopped = key<"stopped">();
inline constexpr Key kForkUnavailable = key<"fork_unavailable">();
inline constexpr Key kMaxImprovementCandidates = key<"max_improvement_candidates">();
inline constexpr Key kMaxImprovementDepth = key<"max_improvement_depth">();
inline constexpr Key kMaxImprovementRounds = key<"max_improvement_rounds">();
inline constexpr Key kNoImprovement = key<"no_improvement">();

// Why a candidate failed.
inline constexpr Key kSdkRuntimeNotReady = key<"sdk_runtime_not_ready">();
inline constexpr Key kEvaluateException = key<"evaluate_exception">();
inline constexpr Key kTurnoverMax = key<"turnover_max">();
inline constexpr Key kTurnoverExceeded = key<"turnover_exceeded">();
inline constexpr Key kMaxWeightMax = key<"max_weight_max">();
inline constexpr Key kMaxWeightExceeded = key<"max_weight_exceeded">();
inline constexpr Key kDeltaExposureMax = key<"delta_exposure_max">();
inline constexpr Key kDeltaExposureExceeded = key<"delta_exposure_exceeded">();
inline constexpr Key kAbsWeightSumMeanBelowMin = key<"abs_weight_sum_mean_below_min">();
inline constexpr Key kSharpeMin = key<"sharpe_min">();
inline constexpr Key kGrossReturnsSharpeBelowMin = key<"gross_returns_sharpe_below_min">();
inline constexpr Key kCorrelationExceeded = key<"correlation_exceeded">();
inline constexpr Key kPnlMiBelowThreshold = key<"pnl_mi_below_threshold">();
inline constexpr Key kPnlMi = key<"pnl_mi">();
inline constexpr Key kMissingIsPnlMi = key<"missing_is_pnl_mi">();
inline constexpr Key kMissingIsCorrelation = key<"missing_is_correlation">();
inline constexpr Key kAgentPoolPnlSyncMissing = key<"agent_pool_pnl_sync_missing">();

// Why a submission waits.
inline constexpr Key kPoolMetricsRefreshRequired = key<"pool_metrics_refresh_required">();

}  // namespace reasons

inline constexpr auto SEARCH_TERMINAL_IMPROVEMENT_REASONS =
    std::to_array({reasons::kForkUnavailable});

inline constexpr auto EXHAUSTED_NEAR_MISS_IMPROVEMENT_REASONS = std::to_array(
    {reasons::kDuplicate, reasons::kMaxImprovementCandidates, reasons::kMaxImprovementDepth,
     reasons::kMaxImprovementRounds, reasons::kNoImprovement});

// The failures that a planned reaction can address.
inline constexpr auto REACTION_FAILURE_REASONS =
    std::to_array({reasons::kTurnoverMax, reasons::kTurnoverExceeded, reasons::kMaxWeightMax,
                   reasons::kMaxWeightExceeded, reasons::kDeltaExposureMax,
                   reasons::kDeltaExposureExceeded, reasons::kAbsWeightSumMeanBelowMin,
                   reasons::kSharpeMin, reasons::kGrossReturnsSharpeBelowMin});

// The same without the two sharpe reasons, on purpose: a close sharpe miss is no constraint repair.
inline constexpr auto CLOSE_CONSTRAINT_REPAIR_FAILURE_REASONS =
    std::to_array({reasons::kTurnoverMax, reasons::kTurnoverExceeded, reasons::kMaxWeightMax,
                   reasons::kMaxWeightExceeded, reasons::kDeltaExposureMax,
                   reasons::kDeltaExposureExceeded, reasons::kAbsWeightSumMeanBelowMin});

inline constexpr auto GATE_NEAR_MISS_FAILURE_REASONS =
    std::to_array({reasons::kCorrelationExceeded, reasons::kPnlMiBelowThreshold});

// The failures of a metric that must be at least its threshold; all others must be at most theirs.
inline constexpr auto MINIMUM_FAILURE_REASONS =
    std::to_array({reasons::kSharpeMin, reasons::kGrossReturnsSharpeBelowMin,
                   reasons::kAbsWeightSumMeanBelowMin, reasons::kPnlMiBelowThreshold});

inline constexpr auto SHARPE_REACTION_FAILURE_REASONS =
    std::to_array({reasons::kSharpeMin, reasons::kGrossReturnsSharpeBelowMin});

// The families of functions whose results are not numbers, so that a graph with such a root is a
// poor partner in a repair. A function's family is its name up to the first underscore.
inline constexpr auto NON_NUMERIC_REPAIR_PEER_ROOT_FAMILIES = std::to_array({key<"comparison">()});

// The reasons of a failure against the signal pool, which end when the candidate is to be measured
// again.
inline constexpr auto POOL_FAILURE_REASONS = std::to_array(
    {reasons::kPnlMi, reasons::kPnlMiBelowThreshold, reasons::kCorrelationExceeded,
     reasons::kMissingIsPnlMi, reasons::kMissingIsCorrelation, reasons::kAgentPoolPnlSyncMissing});

// Whether `reason` equals an entry of `table`.
[[nodiscard]] inline bool is_member(std::span<const Key> table, const Value& reason) {
  return std::any_of(table.begin(), table.end(),
                     [&reason](Key entry) { return is_same_or_equal(entry, reason); });
}

}  // namespace varnholt::genetic
