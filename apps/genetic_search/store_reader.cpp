#include "apps/genetic_search/store_reader.hpp"

#include <string>
#include <system_error>

#include <fmt/format.h>
#include <sqlite3.h>

#include "hosts/embedded/store/store_rows.hpp"
#include "hosts/embedded/store/store_schema.hpp"

namespace varnholt::app {
namespace {

using embedded::RunRecord;
using embedded::SqliteDatabase;
using embedded::SqliteUse;
using embedded::StoreError;

// Nobody who reads waits for those who write; this is for the moment in which a writer recovers.
constexpr int kBusyMilliseconds = 5000;

constexpr const char* kReading = "reading the store";

constexpr const char* kOneRun = "WHERE id = ?";
constexpr const char* kOneEvaluation = "WHERE eval_id = ?";
constexpr const char* kSelectStructures =
    "SELECT graph_key, min(candidate_number) FROM evaluations WHERE run_id = ? GROUP BY graph_key";

// The path of a file that is there: SQLite would make it otherwise.
std::string existing(const std::filesystem::path& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    throw StoreError(path.string(), "there is no such file",
                     "name the file that a run was given with --db");
  }
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  if (error) throw StoreError(path.string(), error.message(), "name it by its absolute path");
  return absolute.string();
}

// The last user of a file moves what was written ahead into it when it goes. What a search that
// died has left there stays where it is for the next search.
void leave_what_was_written_ahead(SqliteDatabase& database) {
  std::error_code ignored;
  if (!std::filesystem::exists(database.path() + "-wal", ignored)) return;
  if (::sqlite3_db_config(database.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr) !=
      SQLITE_OK) {
    database.fail("opening it for reading");
  }
}

void check_version(SqliteDatabase& database) {
  constexpr const char* kDoing = "reading what kind of file it is";
  const std::int64_t application = database.query_integer("PRAGMA application_id", kDoing);
  const std::int64_t version = database.query_integer("PRAGMA user_version", kDoing);
  if (application != embedded::kStoreApplicationId) {
    throw StoreError(database.path(), "it is no store of genetic-search",
                     "name the file that a run was given with --db");
  }
  if (version < embedded::kStoreSchemaVersion) {
    throw StoreError(database.path(),
                     fmt::format("its tables are of version {}, and this program reads version {}",
                                 version, embedded::kStoreSchemaVersion),
                     "a run that is given the file with --db brings them up to date");
  }
  if (version > embedded::kStoreSchemaVersion) {
    throw StoreError(database.path(),
                     fmt::format("its tables are of version {}, and this program reads version {}",
                                 version, embedded::kStoreSchemaVersion),
                     "use the newer program that made them");
  }
}

std::unique_ptr<SqliteDatabase> opened(const std::filesystem::path& path) {
  auto database = std::make_unique<SqliteDatabase>(existing(path), kBusyMilliseconds);
  leave_what_was_written_ahead(*database);
  database->execute("PRAGMA query_only = ON; BEGIN", "opening it for reading");
  check_version(*database);
  return database;
}

}  // namespace

StoreReader::StoreReader(const std::filesystem::path& path)
    : database_(opened(path)),
      select_run_(*database_, (std::string(embedded::kRunColumns) + kOneRun).c_str(), kReading),
      select_evaluation_(*database_,
                         (std::string(embedded::kEvaluationColumns) + kOneEvaluation).c_str(),
                         kReading),
      select_structures_(*database_, kSelectStructures, kReading),
      submissions_(*database_) {}

std::optional<RunRecord> StoreReader::find_run(std::int64_t run) {
  SqliteUse rows(select_run_);
  if (!rows.bind(run).step()) return std::nullopt;
  return embedded::read_run(rows);
}

std::optional<embedded::EvaluationOfRun> StoreReader::find_evaluation(const std::string& eval_id) {
  SqliteUse rows(select_evaluation_);
  if (!rows.bind(std::string_view(eval_id)).step()) return std::nullopt;
  const std::optional<RunRecord> run = find_run(rows.integer());
  if (!run) {
    throw StoreError(path(), fmt::format("evaluation {} has no run", eval_id),
                     "the file is damaged; move it away");
  }
  return embedded::EvaluationOfRun{*run, embedded::read_evaluation(rows)};
}

std::map<std::string, std::int64_t> StoreReader::first_candidates(std::int64_t run) {
  std::map<std::string, std::int64_t> found;
  SqliteUse rows(select_structures_);
  rows.bind(run);
  while (rows.step()) {
    const std::string key = rows.text();
    found.emplace(key, rows.integer());
  }
  return found;
}

}  // namespace varnholt::app
