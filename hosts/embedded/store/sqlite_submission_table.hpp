// A SubmissionTable in an SQLite file.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/store/sqlite_database.hpp"
#include "hosts/embedded/store/submission_table.hpp"

namespace varnholt::embedded {

class SqliteSubmissionTable final : public SubmissionTable {
 public:
  // The database must have the tables and must outlive the object.
  explicit SqliteSubmissionTable(SqliteDatabase& database);
  SqliteSubmissionTable(const SqliteSubmissionTable&) = delete;
  SqliteSubmissionTable& operator=(const SqliteSubmissionTable&) = delete;
  ~SqliteSubmissionTable() override;

  void announce(const NewSubmission& submission) override;
  Enqueued enqueue(const NewSubmission& submission) override;
  bool settle(std::int64_t id, const Settlement& settlement) override;
  bool retire(std::int64_t id, const Retirement& retirement) override;
  [[nodiscard]] std::int64_t announced(std::int64_t run) override;
  [[nodiscard]] std::optional<SubmissionRecord> find(std::int64_t id) override;
  [[nodiscard]] std::vector<SubmissionRecord> of_evaluation(const std::string& eval_id) override;
  [[nodiscard]] std::vector<SubmissionRecord> list(const SubmissionFilter& filter) override;
  using SubmissionTable::members;
  [[nodiscard]] std::vector<SubmissionPnl> members(const PoolIdentity& pool,
                                                   std::int64_t settled_order) override;
  [[nodiscard]] std::vector<std::int64_t> member_numbers(const PoolIdentity& pool) override;
  [[nodiscard]] std::vector<UnmeasuredSubmission> unmeasured(const PoolIdentity& pool) override;
  void record_measure(const NewMeasure& measure) override;
  [[nodiscard]] std::vector<NewMeasure> measures(std::int64_t submission) override;
  [[nodiscard]] std::int64_t members_version() override;
  [[nodiscard]] std::vector<std::int64_t> queued_numbers(const PoolIdentity& pool) override;
  [[nodiscard]] std::optional<SubmissionPnl> queued(std::int64_t id,
                                                    const std::string& data_key) override;

  // Enqueues what runs that have ended announced and did not enqueue. Returns how many payloads
  // are queued now that were not. Nothing is written where there is nothing to do.
  std::int64_t complete_announced();

 private:
  struct Statements;

  SqliteDatabase& database_;
  std::unique_ptr<Statements> statements_;
  std::int64_t changes_here_ = 0;  // Of members and their measures.
};

}  // namespace varnholt::embedded
