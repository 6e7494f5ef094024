// Reading runs and evaluations from a store's tables: which columns, and what each becomes.
#pragma once

#include "hosts/embedded/store/sqlite_database.hpp"
#include "hosts/embedded/store/store_records.hpp"

namespace varnholt::embedded {

// The beginning of a statement, which a condition follows.
inline constexpr const char* kRunColumns =
    "SELECT id, started_at, seed, settings, price_file, price_digest, host_version, price_path, "
    "market_id, era_number, eras, cost_basis_points, process_id, ended_at, terminal_reason "
    "FROM runs ";
inline constexpr const char* kEvaluationColumns =
    "SELECT run_id, candidate_number, generation, graph_key, graph, passed, failure_reason, "
    "failure_detail, statistics, sharpe, quality_score, elapsed_seconds, worker_pid, recorded_at, "
    "lineage, failures, market_id, era_number, holdout_statistics, eval_id FROM evaluations ";

// The next row of such a statement. Of an evaluation's, the number of its run is read before.
[[nodiscard]] RunRecord read_run(SqliteUse& row);
[[nodiscard]] EvaluationRecord read_evaluation(SqliteUse& row);

}  // namespace varnholt::embedded
