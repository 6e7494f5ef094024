#include "hosts/embedded/store/store_relations.hpp"

#include <array>
#include <cstddef>
#include <stdexcept>

namespace varnholt::embedded {
namespace {

template <auto... Path>
constexpr Column<RunRecord> of_run(const char* name, Written written = Written::AtInsertion) {
  return column<RunRecord, Path...>(name, written);
}

template <auto... Path>
constexpr Column<RunRecord> of_start(const char* name) {
  return column<RunRecord, &RunRecord::start, Path...>(name);
}

template <auto... Path>
constexpr Column<RunRecord> of_process(const char* name) {
  return column<RunRecord, &RunRecord::process, Path...>(name);
}

constexpr auto kRunColumns = std::to_array({
    of_run<&RunRecord::id>("id", Written::ByTheStore),
    of_start<&RunStart::started_at>("started_at"),
    of_start<&RunStart::seed>("seed"),
    of_start<&RunStart::settings_json>("settings"),
    of_start<&RunStart::price_file>("price_file"),
    of_start<&RunStart::price_digest>("price_digest"),
    of_start<&RunStart::host_version>("host_version"),
    of_process<&ProcessIdentity::pid>("process_id"),
    of_process<&ProcessIdentity::started_ticks>("process_started"),
    of_process<&ProcessIdentity::boot_id>("boot_id"),
    of_process<&ProcessIdentity::pid_namespace>("pid_namespace"),
    of_run<&RunRecord::ended_at>("ended_at", Written::Later),
    of_run<&RunRecord::terminal_reason>("terminal_reason", Written::Later),
    of_start<&RunStart::price_path>("price_path"),
    of_start<&RunStart::market_id>("market_id"),
    of_start<&RunStart::era_number>("era_number"),
    of_start<&RunStart::eras_json>("eras"),
    of_start<&RunStart::cost_basis_points>("cost_basis_points"),
    of_run<&RunRecord::luck_json>("luck", Written::Later),
    of_start<&RunStart::evaluation_key>("evaluation_key"),
});

template <auto... Path>
constexpr Column<EvaluationRecord> of_evaluation(const char* name,
                                                 Written written = Written::AtInsertion) {
  return column<EvaluationRecord, Path...>(name, written);
}

constexpr auto kEvaluationColumns = std::to_array({
    of_evaluation<&EvaluationRecord::run>("run_id"),
    of_evaluation<&EvaluationRecord::candidate_number>("candidate_number"),
    of_evaluation<&EvaluationRecord::generation>("generation"),
    of_evaluation<&EvaluationRecord::graph_key>("graph_key"),
    of_evaluation<&EvaluationRecord::graph_json>("graph"),
    of_evaluation<&EvaluationRecord::passed>("passed"),
    of_evaluation<&EvaluationRecord::failure_reason>("failure_reason"),
    of_evaluation<&EvaluationRecord::failure_detail>("failure_detail"),
    of_evaluation<&EvaluationRecord::statistics_json>("statistics"),
    of_evaluation<&EvaluationRecord::sharpe>("sharpe"),
    of_evaluation<&EvaluationRecord::quality_score>("quality_score"),
    of_evaluation<&EvaluationRecord::elapsed_seconds>("elapsed_seconds"),
    of_evaluation<&EvaluationRecord::worker_pid>("worker_pid"),
    of_evaluation<&EvaluationRecord::recorded_at>("recorded_at"),
    of_evaluation<&EvaluationRecord::lineage_json>("lineage"),
    of_evaluation<&EvaluationRecord::failures_json>("failures"),
    of_evaluation<&EvaluationRecord::market_id>("market_id"),
    of_evaluation<&EvaluationRecord::era_number>("era_number"),
    of_evaluation<&EvaluationRecord::holdout_statistics_json>("holdout_statistics"),
    of_evaluation<&EvaluationRecord::expression>("expression"),
    of_evaluation<&EvaluationRecord::eval_id>("eval_id", Written::ByTheStore),
});

template <auto... Path>
constexpr Column<SubmissionRecord> of_submission(const char* name,
                                                 Written written = Written::AtInsertion) {
  return column<SubmissionRecord, Path...>(name, written);
}

template <auto... Path>
constexpr Column<SubmissionRecord> of_pool(const char* name) {
  return column<SubmissionRecord, &SubmissionRecord::pool, Path...>(name);
}

template <auto... Path>
constexpr Column<SubmissionRecord> of_settlement(const char* name) {
  return column<SubmissionRecord, &SubmissionRecord::settlement, Path...>(name, Written::Later);
}

SubmissionState state_named(const std::string& name) {
  constexpr auto kStates = std::to_array(
      {SubmissionState::Queued, SubmissionState::Submitted, SubmissionState::Refused});
  for (const SubmissionState state : kStates) {
    if (name == name_of(state)) return state;
  }
  throw std::logic_error("the table lets no other state in than its own: " + name);
}

void bind_state(SqliteUse& use, const char* name, const SubmissionRecord& record) {
  use.bind(name, std::string_view(name_of(record.state)));
}

void read_state(SqliteUse& row, const char* name, SubmissionRecord& record) {
  record.state = state_named(row.text(name));
}

// The ids and the structure are those of the evaluation: the store copies them.
constexpr auto kSubmissionColumns = std::to_array({
    of_submission<&SubmissionRecord::id>("id", Written::ByTheStore),
    of_submission<&SubmissionRecord::run>("run_id", Written::ByTheStore),
    of_submission<&SubmissionRecord::eval_id>("eval_id", Written::ByTheStore),
    of_submission<&SubmissionRecord::graph_key>("graph_key", Written::ByTheStore),
    of_pool<&PoolIdentity::signal_pool_name>("signal_pool_name"),
    of_pool<&PoolIdentity::market_id>("market_id"),
    of_pool<&PoolIdentity::era_number>("era_number"),
    of_pool<&PoolIdentity::data_key>("data_key"),
    Column<SubmissionRecord>{"state", Written::Later, &bind_state, &read_state},
    of_submission<&SubmissionRecord::pending_reason>("pending_reason"),
    of_submission<&SubmissionRecord::payload_json>("payload"),
    of_submission<&SubmissionRecord::queued_at>("queued_at"),
    of_settlement<&Settlement::novelty>("score"),
    of_settlement<&Settlement::novelty_threshold>("score_threshold"),
    of_settlement<&Settlement::correlation>("correlation"),
    of_settlement<&Settlement::correlation_threshold>("correlation_threshold"),
    of_settlement<&Settlement::refusal_reason>("refusal_reason"),
    of_settlement<&Settlement::refusal_detail>("refusal_detail"),
    of_settlement<&Settlement::settled_at>("settled_at"),
});

template <auto... Path>
constexpr Column<AttemptRecord> of_attempt(const char* name) {
  return column<AttemptRecord, &AttemptRecord::start, Path...>(name);
}

template <auto... Path>
constexpr Column<AttemptRecord> of_end(const char* name) {
  return column<AttemptRecord, &AttemptRecord::end, Path...>(name, Written::Later);
}

constexpr auto kAttemptColumns = std::to_array({
    column<AttemptRecord, &AttemptRecord::id>("id", Written::ByTheStore),
    of_attempt<&NewAttemptRow::run>("run_id"),
    of_attempt<&NewAttemptRow::source_path>("source_path"),
    of_attempt<&NewAttemptRow::graph_key>("graph_key"),
    of_attempt<&NewAttemptRow::graph_json>("graph"),
    of_attempt<&NewAttemptRow::algorithm>("algorithm"),
    of_attempt<&NewAttemptRow::rotation_identifier>("rotation_identifier"),
    of_attempt<&NewAttemptRow::era_number>("era_number"),
    of_attempt<&NewAttemptRow::market_id>("market_id"),
    of_attempt<&NewAttemptRow::data_shape_json>("data_shape"),
    of_attempt<&NewAttemptRow::expected_columns_json>("expected_columns"),
    of_attempt<&NewAttemptRow::eval_type>("eval_type"),
    of_end<&AttemptEndRow::terminal_disposition>("terminal_disposition"),
    of_end<&AttemptEndRow::backtest_completed>("backtest_completed"),
    of_end<&AttemptEndRow::generated_stats_json>("generated_stats"),
    of_end<&AttemptEndRow::candidate_stats_json>("candidate_stats"),
    of_end<&AttemptEndRow::stats_construction_blocker_json>("stats_construction_blocker"),
    of_end<&AttemptEndRow::per_column_inventory_json>("per_column_inventory"),
    of_end<&AttemptEndRow::threshold_gate_json>("threshold_gate"),
    of_end<&AttemptEndRow::failure_category>("failure_category"),
    of_end<&AttemptEndRow::failure_reason>("failure_reason"),
    of_end<&AttemptEndRow::failure_detail>("failure_detail"),
    of_end<&AttemptEndRow::classification_source>("classification_source"),
    of_end<&AttemptEndRow::eval_id>("eval_id"),
    column<AttemptRecord, &AttemptRecord::ignored_ends>("ignored_ends", Written::ByTheStore),
});

}  // namespace

const Relation<RunRecord>& run_relation() {
  static constexpr Relation<RunRecord> kRelation{"runs", kRunColumns};
  return kRelation;
}

const Relation<EvaluationRecord>& evaluation_relation() {
  static constexpr Relation<EvaluationRecord> kRelation{"evaluations", kEvaluationColumns};
  return kRelation;
}

const Relation<SubmissionRecord>& submission_relation() {
  static constexpr Relation<SubmissionRecord> kRelation{"submissions", kSubmissionColumns};
  return kRelation;
}

const Relation<AttemptRecord>& attempt_relation() {
  static constexpr Relation<AttemptRecord> kRelation{"attempts", kAttemptColumns};
  return kRelation;
}

}  // namespace varnholt::embedded
