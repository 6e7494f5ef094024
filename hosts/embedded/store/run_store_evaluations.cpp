#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/store/run_store.hpp"
#include "hosts/embedded/store/run_store_statements.hpp"
#include "hosts/embedded/store/sqlite_database.hpp"
#include "hosts/embedded/store/store_rows.hpp"

namespace varnholt::embedded {
namespace {

constexpr const char* kDamaged = "the file is damaged; move it away";

}  // namespace

std::string eval_id_of(std::int64_t run, std::int64_t candidate_number) {
  return fmt::format("{}-{}", run, candidate_number);
}

void RunStore::record_evaluations(std::int64_t run,
                                  const std::vector<EvaluationRecord>& evaluations) {
  if (evaluations.empty()) return database_->require_owner();
  SqliteTransaction transaction(*database_, kRecording);
  require_run(run, kRecording);
  for (const EvaluationRecord& evaluation : evaluations) {
    static_cast<void>(SqliteUse(statements_->insert_evaluation)
                          .bind(run)
                          .bind(evaluation.candidate_number)
                          .bind(evaluation.generation)
                          .bind(evaluation.graph_key)
                          .bind(evaluation.graph_json)
                          .bind(std::int64_t{evaluation.passed})
                          .bind(evaluation.failure_reason)
                          .bind(evaluation.failure_detail)
                          .bind(evaluation.statistics_json)
                          .bind(evaluation.sharpe)
                          .bind(evaluation.quality_score)
                          .bind(evaluation.elapsed_seconds)
                          .bind(evaluation.worker_pid)
                          .bind(evaluation.recorded_at)
                          .bind(evaluation.lineage_json)
                          .bind(evaluation.failures_json)
                          .bind(evaluation.market_id)
                          .bind(evaluation.era_number)
                          .bind(evaluation.holdout_statistics_json)
                          .change());
  }
  transaction.commit();
}

void RunStore::record_holdout(const std::string& eval_id, const std::string& statistics_json) {
  const int changed =
      SqliteUse(statements_->update_holdout).bind(eval_id).bind(statistics_json).change();
  if (changed == 1) return;
  throw StoreError(path(),
                   fmt::format("{} failed: there is no evaluation {}", kRecordingHoldout, eval_id),
                   "record the evaluation first");
}

std::optional<EvaluationOfRun> RunStore::find_evaluation(const std::string& eval_id) {
  SqliteUse rows(statements_->select_evaluation);
  if (!rows.bind(eval_id).step()) return std::nullopt;
  std::optional<RunRecord> run = find_run(rows.integer());
  if (!run) throw StoreError(path(), "evaluation " + eval_id + " has no run", kDamaged);
  return EvaluationOfRun{*std::move(run), read_evaluation(rows)};
}

std::vector<EvaluationRecord> RunStore::best_signals(std::int64_t run, std::int64_t count,
                                                     SignalOrder order) {
  std::vector<EvaluationRecord> found;
  // SQLite takes a negative limit for none.
  if (count <= 0) return found;
  SqliteUse rows(order == SignalOrder::Sharpe ? statements_->select_by_sharpe
                                              : statements_->select_by_quality);
  rows.bind(run).bind(count);
  while (rows.step()) {
    static_cast<void>(rows.integer());
    found.push_back(read_evaluation(rows));
  }
  return found;
}

std::vector<FailureCount> RunStore::failure_counts(std::int64_t run) {
  std::vector<FailureCount> found;
  SqliteUse rows(statements_->count_failures);
  rows.bind(run);
  while (rows.step()) {
    FailureCount& entry = found.emplace_back();
    entry.reason = rows.text();
    entry.count = rows.integer();
  }
  return found;
}

std::int64_t RunStore::evaluation_count(std::int64_t run) {
  SqliteUse rows(statements_->count_evaluations);
  return rows.bind(run).step() ? rows.integer() : 0;
}

}  // namespace varnholt::embedded
