// The evaluations of a SqliteRunStore.
#include <fmt/format.h>

#include "hosts/embedded/store/sqlite_run_statements.hpp"
#include "hosts/embedded/store/sqlite_run_store.hpp"
#include "hosts/embedded/store/store_relations.hpp"

namespace varnholt::embedded {

std::string eval_id_of(std::int64_t run, std::int64_t candidate_number) {
  return fmt::format("{}-{}", run, candidate_number);
}

void SqliteRunStore::record_evaluations(std::int64_t run,
                                        const std::vector<EvaluationRecord>& evaluations) {
  if (evaluations.empty()) return database_->require_owner();
  SqliteTransaction transaction(*database_, kRecording);
  require_run(run, kRecording);
  for (const EvaluationRecord& evaluation : evaluations) {
    SqliteUse use(statements_->insert_evaluation);
    bind_columns(use, evaluation_relation(), Written::AtInsertion, evaluation);
    // Which run it belongs to is the caller's to say, not the record's.
    static_cast<void>(use.bind("run_id", run).change());
  }
  transaction.commit();
}

void SqliteRunStore::record_holdout(const std::string& eval_id,
                                    const std::string& statistics_json) {
  const int changed = SqliteUse(statements_->update_holdout)
                          .bind("eval_id", eval_id)
                          .bind("statistics", statistics_json)
                          .change();
  if (changed == 1) return;
  throw StoreError(path(),
                   fmt::format("{} failed: there is no evaluation {}", kRecordingHoldout, eval_id),
                   "record the evaluation first");
}

void SqliteRunStore::record_figures(const std::string& eval_id,
                                    const std::vector<FiguresRecord>& figures) {
  SqliteTransaction transaction(*database_, kRecordingFigures);
  for (const FiguresRecord& row : figures) {
    const int changed = SqliteUse(statements_->insert_figures)
                            .bind("eval_id", eval_id)
                            .bind("sample", row.sample)
                            .bind("figures", row.figures_json)
                            .bind("first_day", row.first_day)
                            .bind("net_returns", row.net_returns_json)
                            .change();
    if (changed == 1) continue;
    throw StoreError(
        path(), fmt::format("{} failed: there is no evaluation {}", kRecordingFigures, eval_id),
        "record the evaluation first");
  }
  transaction.commit();
}

void SqliteRunStore::record_price_days(std::int64_t run, const std::vector<std::string>& dates) {
  SqliteTransaction transaction(*database_, kRecordingFigures);
  require_run(run, kRecordingFigures);
  for (std::size_t day = 0; day < dates.size(); ++day) {
    static_cast<void>(SqliteUse(statements_->insert_price_day)
                          .bind("run", run)
                          .bind("day", static_cast<std::int64_t>(day))
                          .bind("date", dates[day])
                          .change());
  }
  transaction.commit();
}

void SqliteRunStore::record_luck(std::int64_t run, const std::string& record_json,
                                 const std::map<std::string, double>& deflated_sharpes) {
  SqliteTransaction transaction(*database_, kRecordingFigures);
  require_run(run, kRecordingFigures);
  static_cast<void>(
      SqliteUse(statements_->update_luck).bind("run", run).bind("luck", record_json).change());
  for (const auto& [eval_id, deflated] : deflated_sharpes) {
    static_cast<void>(SqliteUse(statements_->update_deflated)
                          .bind("eval_id", eval_id)
                          .bind("deflated", deflated)
                          .change());
  }
  transaction.commit();
}

std::vector<TrialRecord> SqliteRunStore::trials(std::int64_t run) {
  std::vector<TrialRecord> found;
  SqliteUse rows(statements_->select_trials);
  rows.bind("run", run);
  while (rows.step()) {
    TrialRecord& trial = found.emplace_back();
    rows.read("eval_id", trial.eval_id);
    rows.read("gross_sharpe", trial.gross_sharpe);
    rows.read("is_fresh", trial.is_fresh);
  }
  return found;
}

std::int64_t SqliteRunStore::trial_count(std::int64_t run) {
  SqliteUse rows(statements_->count_trials);
  return rows.bind("run", run).step() ? rows.integer("count") : 0;
}

std::vector<EvaluationRecord> SqliteRunStore::best_signals(std::int64_t run, std::int64_t count,
                                                           SignalOrder order) {
  std::vector<EvaluationRecord> found;
  // SQLite takes a negative limit for none.
  if (count <= 0) return found;
  SqliteUse rows(order == SignalOrder::Sharpe ? statements_->select_by_sharpe
                                              : statements_->select_by_quality);
  rows.bind("run", run).bind("count", count);
  while (rows.step())
    found.push_back(read_row(rows, evaluation_relation()));
  return found;
}

std::vector<FailureCount> SqliteRunStore::failure_counts(std::int64_t run) {
  std::vector<FailureCount> found;
  SqliteUse rows(statements_->count_failures);
  rows.bind("run", run);
  while (rows.step())
    found.push_back({rows.text("reason"), rows.integer("count")});
  return found;
}

std::int64_t SqliteRunStore::evaluation_count(std::int64_t run) {
  SqliteUse rows(statements_->count_evaluations);
  return rows.bind("run", run).step() ? rows.integer("count") : 0;
}

}  // namespace varnholt::embedded
