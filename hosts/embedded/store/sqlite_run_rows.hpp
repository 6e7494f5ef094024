// Single runs and evaluations, read: shared by the store and its reader.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "hosts/embedded/store/sqlite_database.hpp"
#include "hosts/embedded/store/store_records.hpp"

namespace varnholt::embedded {

class SqliteRunRows {
 public:
  // The database must have the tables and must outlive the object.
  explicit SqliteRunRows(SqliteDatabase& database);

  [[nodiscard]] std::optional<RunRecord> find_run(std::int64_t run);
  [[nodiscard]] std::optional<EvaluationOfRun> find_evaluation(const std::string& eval_id);
  // The figures of an evaluation by sample, as JSON; empty where there are none.
  [[nodiscard]] std::map<std::string, std::string> figures(const std::string& eval_id);
  // The first candidate number of each structure that the run tried, by the graph's key.
  [[nodiscard]] std::map<std::string, std::int64_t> first_candidates(std::int64_t run);

 private:
  SqliteDatabase& database_;
  SqliteStatement select_run_;
  SqliteStatement select_evaluation_;
  SqliteStatement select_structures_;
  SqliteStatement select_figures_;
};

}  // namespace varnholt::embedded
