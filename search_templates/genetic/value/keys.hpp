// Every key that the library reads or writes in open data, each in one place.
//
// The comment of each group names the mapping that the keys belong to.
#pragma once

#include "search_templates/genetic/value/key.hpp"

namespace varnholt::genetic::keys {

// A graph's node.
inline constexpr Key kNode = key<"node">();
inline constexpr Key kType = key<"type">();
inline constexpr Key kChildren = key<"children">();

// A candidate item and an improvement.
inline constexpr Key kGraph = key<"graph">();
inline constexpr Key kLineage = key<"lineage">();
inline constexpr Key kSourceResult = key<"source_result">();

// A candidate result record, in the order in which it is written.
inline constexpr Key kStats = key<"stats">();
inline constexpr Key kPasses = key<"passes">();
inline constexpr Key kFailures = key<"failures">();
inline constexpr Key kEvalId = key<"eval_id">();
inline constexpr Key kSubmissionPayload = key<"submission_payload">();
inline constexpr Key kAttemptEvidence = key<"attempt_evidence">();
inline constexpr Key kPerColumnStats = key<"per_column_stats">();
inline constexpr Key kTrackingMetricKwargs = key<"tracking_metric_kwargs">();
inline constexpr Key kSharpe = key<"sharpe">();
inline constexpr Key kQualityScore = key<"quality_score">();
inline constexpr Key kCorrelation = key<"correlation">();
inline constexpr Key kCandidateIndex = key<"candidate_index">();
inline constexpr Key kImprovementDepth = key<"improvement_depth">();
inline constexpr Key kReactionPlan = key<"reaction_plan">();
inline constexpr Key kSourceCandidateIndex = key<"source_candidate_index">();
inline constexpr Key kSourceGraph = key<"source_graph">();
inline constexpr Key kRescued = key<"rescued">();
inline constexpr Key kWorkerPid = key<"worker_pid">();
inline constexpr Key kElapsedSimulationSeconds = key<"elapsed_simulation_seconds">();
inline constexpr Key kProcessAttempt = key<"process_attempt">();

inline constexpr Key kSourceAttemptId = key<"source_attempt_id">();
inline constexpr Key kBacktestTiming = key<"backtest_timing">();

// The marks that the parent sets on a record of its own; the pending reason on the payload too.
inline constexpr Key kParentRecorded = key<"_parent_recorded">();
inline constexpr Key kSubmissionEnqueued = key<"_submission_enqueued">();
inline constexpr Key kSubmissionBlockedReason = key<"_submission_blocked_reason">();
inline constexpr Key kSubmissionPendingReason = key<"_submission_pending_reason">();

// A submission payload, in the order in which it is written.
inline constexpr Key kSubmissionType = key<"submission_type">();
inline constexpr Key kNamedUniverse = key<"named_universe">();
inline constexpr Key kSignalPoolName = key<"signal_pool_name">();
inline constexpr Key kIsStats = key<"is_stats">();
inline constexpr Key kMetaparameters = key<"metaparameters">();
inline constexpr Key kSearchState = key<"search_state">();
inline constexpr Key kMarketId = key<"market_id">();
inline constexpr Key kEraNumber = key<"era_number">();
inline constexpr Key kClientManifestMarketId = key<"client_manifest_market_id">();
inline constexpr Key kClientManifestEraNumber = key<"client_manifest_era_number">();
inline constexpr Key kSubmissionOwner = key<"_submission_owner">();
inline constexpr Key kPayloadSourceAttemptId = key<"_source_attempt_id">();

// The statistics in a payload beside those of a record.
inline constexpr Key kAnnualizedReturns = key<"annualized_returns">();
inline constexpr Key kTurnover = key<"turnover">();
inline constexpr Key kDrawdown = key<"drawdown">();
inline constexpr Key kIsPnlMi = key<"is_pnl_mi">();

// An era configuration.
inline constexpr Key kMarket = key<"market">();
inline constexpr Key kId = key<"id">();

// An attempt's evidence, in the order in which it is written, and a timing.
inline constexpr Key kBacktestStarted = key<"backtest_started">();
inline constexpr Key kBacktestCompleted = key<"backtest_completed">();
inline constexpr Key kGeneratedStats = key<"generated_stats">();
inline constexpr Key kCandidateStats = key<"candidate_stats">();
inline constexpr Key kStatsConstructionBlocker = key<"stats_construction_blocker">();
inline constexpr Key kPerColumnInventory = key<"per_column_inventory">();
inline constexpr Key kTerminalDispositionOverride = key<"terminal_disposition_override">();
inline constexpr Key kThresholdVerdictOverride = key<"threshold_verdict_override">();
inline constexpr Key kFailureCategoryOverride = key<"failure_category_override">();
inline constexpr Key kClassificationSourceOverride = key<"classification_source_override">();
inline constexpr Key kGraphKey = key<"graph_key">();

// The evaluator's outcome, and the record of the last evaluation.
inline constexpr Key kRecord = key<"record">();
inline constexpr Key kSubmissionPayloads = key<"submission_payloads">();
inline constexpr Key kRecordingSucceeded = key<"recording_succeeded">();

// A process result, the arguments of a marker, and a process error, beside what other records have.
inline constexpr Key kPayload = key<"payload">();
inline constexpr Key kPhase = key<"phase">();
inline constexpr Key kTerminalErrors = key<"terminal_errors">();

// A failure record, and the evaluator's record of one evaluation.
inline constexpr Key kReason = key<"reason">();
inline constexpr Key kDetail = key<"detail">();
inline constexpr Key kPassed = key<"passed">();
inline constexpr Key kRejectionReason = key<"rejection_reason">();

// The tracking values of a result.
inline constexpr Key kFailureReason = key<"failure_reason">();
inline constexpr Key kFailureDetail = key<"failure_detail">();
inline constexpr Key kStatsVerdict = key<"stats_verdict">();
inline constexpr Key kCorrelationVerdict = key<"correlation_verdict">();
inline constexpr Key kMiVerdict = key<"mi_verdict">();
inline constexpr Key kPnlMi = key<"pnl_mi">();
inline constexpr Key kPoolMetricsPending = key<"pool_metrics_pending">();
inline constexpr Key kPoolMetricsPendingDetail = key<"pool_metrics_pending_detail">();

// The threshold gate that an attempt without a result ends with, beside reason, detail and the
// three verdicts.
inline constexpr Key kVerdict = key<"verdict">();
inline constexpr Key kThresholdSet = key<"threshold_set">();

// The state of an attempt in the ledger, in the order in which it is written, beside
// "backtest_started" and the worker's failure.
inline constexpr Key kAttemptId = key<"attempt_id">();
inline constexpr Key kDispatched = key<"dispatched">();
inline constexpr Key kWorkerStarted = key<"worker_started">();
inline constexpr Key kFinalized = key<"finalized">();
inline constexpr Key kMarkerAttemptId = key<"marker_attempt_id">();

// An event of the worker pool, beside the candidate's index and the failure's reason.
inline constexpr Key kEvent = key<"event">();
inline constexpr Key kAttempt = key<"attempt">();
inline constexpr Key kCandidate = key<"candidate">();
inline constexpr Key kRetrying = key<"retrying">();
inline constexpr Key kError = key<"error">();
inline constexpr Key kMetadata = key<"metadata">();

// A gate's failure, its recorded detail, and a verdict.
inline constexpr Key kValue = key<"value">();
inline constexpr Key kThreshold = key<"threshold">();
inline constexpr Key kActual = key<"actual">();
inline constexpr Key kGate = key<"gate">();
inline constexpr Key kOperator = key<"operator">();
inline constexpr Key kCategory = key<"category">();

// The host's metrics of a result by which peers are ranked.
inline constexpr Key kDeltaExposure = key<"delta_exposure">();
inline constexpr Key kMaxWeight = key<"max_weight">();

// The report of a deduplicated batch.
inline constexpr Key kGraphs = key<"graphs">();
inline constexpr Key kGeneratedCount = key<"generated_count">();
inline constexpr Key kDuplicateCount = key<"duplicate_count">();

// The report of an improvement batch, which has the number of duplicates too.
inline constexpr Key kImprovements = key<"improvements">();
inline constexpr Key kEligibleCount = key<"eligible_count">();
inline constexpr Key kDepthLimitedCount = key<"depth_limited_count">();
inline constexpr Key kCandidateLimitReached = key<"candidate_limit_reached">();

// The metrics record of a run, in the order in which it is written.
inline constexpr Key kBatchSize = key<"batch_size">();
inline constexpr Key kProcessCount = key<"process_count">();
inline constexpr Key kCandidateCount = key<"candidate_count">();
inline constexpr Key kGeneratedGraphCount = key<"generated_graph_count">();
inline constexpr Key kUniqueGraphCount = key<"unique_graph_count">();
inline constexpr Key kDuplicateGraphCount = key<"duplicate_graph_count">();
inline constexpr Key kUniqueRatio = key<"unique_ratio">();
inline constexpr Key kSeed = key<"seed">();
inline constexpr Key kImprovementRoundCount = key<"improvement_round_count">();
inline constexpr Key kTerminalReason = key<"terminal_reason">();
inline constexpr Key kFailureCount = key<"failure_count">();
inline constexpr Key kDeterminismMetadata = key<"determinism_metadata">();
inline constexpr Key kTieSemantics = key<"tie_semantics">();

// Keyword arguments of host operations and the entries of log contexts.
inline constexpr Key kTemplate = key<"template">();
inline constexpr Key kStage = key<"stage">();
inline constexpr Key kGenerator = key<"generator">();
inline constexpr Key kSiblingCorrelations = key<"sibling_correlations">();
inline constexpr Key kPoolCorrelation = key<"pool_correlation">();
inline constexpr Key kDiversityWeight = key<"diversity_weight">();
inline constexpr Key kParsimonyWeight = key<"parsimony_weight">();
inline constexpr Key kExpressionElapsedSeconds = key<"expression_elapsed_seconds">();
inline constexpr Key kLogContext = key<"log_context">();
inline constexpr Key kTemplateName = key<"template_name">();
inline constexpr Key kName = key<"name">();
inline constexpr Key kIncludeCorrelation = key<"include_correlation">();
inline constexpr Key kIncludeIdentity = key<"include_identity">();
inline constexpr Key kReturnSeries = key<"return_series">();

}  // namespace varnholt::genetic::keys
