// A RunStore in an SQLite file. What uses a store sees run_store.hpp only.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/store/run_store.hpp"
#include "hosts/embedded/store/sqlite_attempt_table.hpp"
#include "hosts/embedded/store/sqlite_database.hpp"
#include "hosts/embedded/store/sqlite_run_rows.hpp"
#include "hosts/embedded/store/sqlite_submission_table.hpp"

namespace varnholt::embedded {

struct SqliteRunStatements;

class SqliteRunStore final : public RunStore {
 public:
  // As open_run_store().
  explicit SqliteRunStore(const std::string& path, const StoreOptions& options = {});
  SqliteRunStore(const SqliteRunStore&) = delete;
  SqliteRunStore& operator=(const SqliteRunStore&) = delete;
  ~SqliteRunStore() override;

  [[nodiscard]] const std::string& path() const noexcept override;
  [[nodiscard]] const StoreSweep& swept() const noexcept override { return swept_; }
  [[nodiscard]] std::exception_ptr first_failure() const noexcept override {
    return database_->first_failure();
  }

  std::int64_t begin_run(const RunStart& start) override;
  void record_evaluations(std::int64_t run,
                          const std::vector<EvaluationRecord>& evaluations) override;
  void record_holdout(const std::string& eval_id, const std::string& statistics_json) override;
  void record_figures(const std::string& eval_id,
                      const std::vector<FiguresRecord>& figures) override;
  void record_price_days(std::int64_t run, const std::vector<std::string>& dates) override;
  void record_luck(std::int64_t run, const std::string& record_json,
                   const std::map<std::string, double>& deflated_sharpes) override;
  [[nodiscard]] std::vector<TrialRecord> trials(std::int64_t run) override;
  [[nodiscard]] std::int64_t trial_count(std::int64_t run) override;
  void record_metrics(std::int64_t run, const std::string& record_json) override;
  bool end_run(std::int64_t run, double ended_at, const std::string& terminal_reason) override;

  [[nodiscard]] std::optional<RunRecord> find_run(std::int64_t run) override {
    return rows_.find_run(run);
  }
  [[nodiscard]] std::vector<RunRecord> runs() override;
  [[nodiscard]] std::optional<EvaluationOfRun> find_evaluation(
      const std::string& eval_id) override {
    return rows_.find_evaluation(eval_id);
  }
  using RunStore::best_signals;
  [[nodiscard]] std::vector<EvaluationRecord> best_signals(std::int64_t run, std::int64_t count,
                                                           SignalOrder order) override;
  [[nodiscard]] std::vector<FailureCount> failure_counts(std::int64_t run) override;
  [[nodiscard]] std::int64_t evaluation_count(std::int64_t run) override;
  [[nodiscard]] std::vector<std::string> metrics(std::int64_t run) override;

  std::string keep_holdout_from(const PoolIdentity& pool, const std::string& first_day) override;

  [[nodiscard]] SubmissionTable& submissions() noexcept override { return submissions_; }
  [[nodiscard]] AttemptTable& attempts() noexcept override { return attempts_; }
  [[nodiscard]] GatheredWrites& gathered_writes() noexcept override { return *database_; }
  void under_lock(const char* doing, const std::function<LockedWork()>& work) override;

 private:
  void require_run(std::int64_t run, const char* doing);
  [[nodiscard]] std::vector<std::int64_t> dead_runs();
  // Those of them that no other process has marked meanwhile.
  std::vector<std::int64_t> mark_interrupted(const std::vector<std::int64_t>& dead);
  StoreSweep sweep();

  std::unique_ptr<SqliteDatabase> database_;
  std::unique_ptr<SqliteRunStatements> statements_;
  SqliteRunRows rows_;
  SqliteSubmissionTable submissions_;
  SqliteAttemptTable attempts_;
  StoreSweep swept_;
};

}  // namespace varnholt::embedded
