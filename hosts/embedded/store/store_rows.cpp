#include "hosts/embedded/store/store_rows.hpp"

namespace varnholt::embedded {

RunRecord read_run(SqliteUse& row) {
  RunRecord run;
  run.id = row.integer();
  run.start.started_at = row.real();
  run.start.seed = row.integer();
  run.start.settings_json = row.text();
  run.start.price_file = row.text();
  run.start.price_digest = row.text();
  run.start.host_version = row.text();
  run.start.price_path = row.text();
  run.start.market_id = row.optional_integer();
  run.start.era_number = row.optional_integer();
  run.start.eras_json = row.text();
  run.start.cost_basis_points = row.optional_real();
  run.process_id = row.integer();
  run.ended_at = row.optional_real();
  run.terminal_reason = row.optional_text();
  return run;
}

EvaluationRecord read_evaluation(SqliteUse& row) {
  EvaluationRecord evaluation;
  evaluation.candidate_number = row.integer();
  evaluation.generation = row.integer();
  evaluation.graph_key = row.text();
  evaluation.graph_json = row.text();
  evaluation.passed = row.integer() != 0;
  evaluation.failure_reason = row.optional_text();
  evaluation.failure_detail = row.optional_text();
  evaluation.statistics_json = row.text();
  evaluation.sharpe = row.optional_real();
  evaluation.quality_score = row.optional_real();
  evaluation.elapsed_seconds = row.real();
  evaluation.worker_pid = row.optional_integer();
  evaluation.recorded_at = row.real();
  evaluation.lineage_json = row.text();
  evaluation.failures_json = row.text();
  evaluation.market_id = row.optional_integer();
  evaluation.era_number = row.optional_integer();
  evaluation.holdout_statistics_json = row.optional_text();
  evaluation.eval_id = row.text();
  return evaluation;
}

}  // namespace varnholt::embedded
