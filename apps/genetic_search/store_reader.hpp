// A store that is only looked at.
//
// Opening a RunStore makes the file when it is not there, brings old tables up to date, and marks
// the runs of dead processes as interrupted. Commands that look do none of that: they read the
// tables as docs/store-schema.md describes them, over a connection that refuses to write. All reads
// of a reader see the store as it was at the first one, also while a search goes on.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "hosts/embedded/store/run_store.hpp"
#include "hosts/embedded/store/sqlite_database.hpp"

namespace varnholt::app {

class StoreReader {
 public:
  // Throws StoreError for a file that is not there, that is no store, or whose tables are of
  // another version than this program's.
  explicit StoreReader(const std::filesystem::path& path);

  // The absolute path of the file.
  [[nodiscard]] const std::string& path() const noexcept { return database_->path(); }

  [[nodiscard]] std::optional<embedded::RunRecord> find_run(std::int64_t run);
  // With its run.
  [[nodiscard]] std::optional<embedded::EvaluationOfRun> find_evaluation(
      const std::string& eval_id);
  // The first candidate number of each structure that the run tried, by the graph's key.
  [[nodiscard]] std::map<std::string, std::int64_t> first_candidates(std::int64_t run);

  [[nodiscard]] embedded::SubmissionTable& submissions() noexcept { return submissions_; }

 private:
  std::unique_ptr<embedded::SqliteDatabase> database_;
  embedded::SqliteStatement select_run_;
  embedded::SqliteStatement select_evaluation_;
  embedded::SqliteStatement select_structures_;
  embedded::SubmissionTable submissions_;
};

}  // namespace varnholt::app
