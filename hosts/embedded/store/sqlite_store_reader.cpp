#include <string>
#include <system_error>

#include <fmt/format.h>
#include <unistd.h>

#include "hosts/embedded/store/sqlite_attempt_table.hpp"
#include "hosts/embedded/store/sqlite_database.hpp"
#include "hosts/embedded/store/sqlite_run_rows.hpp"
#include "hosts/embedded/store/sqlite_submission_table.hpp"
#include "hosts/embedded/store/store_reader.hpp"
#include "hosts/embedded/store/store_schema.hpp"

namespace varnholt::embedded {
namespace {

// Nobody who reads waits for those who write; this is for the moment in which a writer recovers.
constexpr int kBusyMilliseconds = 5000;

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
  if (application != kStoreApplicationId) {
    throw StoreError(database.path(), "it is no store of genetic-search",
                     "name the file that a run was given with --db");
  }
  if (version == kStoreSchemaVersion) return;
  throw StoreError(database.path(),
                   fmt::format("its tables are of version {}, and this program reads version {}",
                               version, kStoreSchemaVersion),
                   version < kStoreSchemaVersion
                       ? "a run that is given the file with --db brings them up to date"
                       : "use the newer program that made them");
}

// Readers of a file that is written ahead share files beside it, which SQLite makes where there are
// none. In a folder that cannot be written (a file system mounted for reading only, a backup, the
// folder of somebody else) they cannot be made: the file is read as one that nothing changes, which
// is true as long as no search has it open, and a search would have made them.
SqliteDatabase::Medium medium_of(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  const fs::path folder = fs::path(path).parent_path();
  if (::access(folder.c_str(), W_OK) == 0 || fs::exists(path + "-shm", ignored)) {
    return SqliteDatabase::Medium::Changes;
  }
  const std::uintmax_t ahead = fs::file_size(path + "-wal", ignored);
  if (!ignored && ahead > 0) {
    throw StoreError(path,
                     fmt::format("what was written last lies in {}-wal, and the folder cannot be "
                                 "written, which reading the two together takes",
                                 path),
                     "copy both files into a folder that can be written, and name the copy");
  }
  return SqliteDatabase::Medium::IsFixed;
}

std::unique_ptr<SqliteDatabase> opened_for_reading(const std::filesystem::path& path) {
  const std::string name = existing(path);
  auto database = std::make_unique<SqliteDatabase>(name, kBusyMilliseconds, medium_of(name));
  leave_what_was_written_ahead(*database);
  database->execute("PRAGMA query_only = ON; BEGIN", "opening it for reading");
  return database;
}

std::unique_ptr<SqliteDatabase> opened(const std::filesystem::path& path) {
  auto database = opened_for_reading(path);
  check_version(*database);
  return database;
}

// Before pools were kept, each run had a hold-out of its own: as the schema's step to version 4.
constexpr std::int64_t kFirstVersionWithSubmissions = 2;
constexpr std::int64_t kFirstVersionWithPools = 4;
constexpr const char* kHoldoutOfPool =
    "SELECT holdout_from FROM pools "
    "WHERE signal_pool_name = :signal_pool_name AND market_id = :market_id";
constexpr const char* kHoldoutOfRuns =
    "SELECT max(CASE WHEN json_valid(r.eras) THEN r.eras ->> '$.holdout.first_date' END) "
    "AS holdout_from FROM submissions s JOIN runs r ON r.id = s.run_id "
    "WHERE s.signal_pool_name = :signal_pool_name AND s.market_id = :market_id";

class SqliteStoreReader final : public StoreReader {
 public:
  explicit SqliteStoreReader(const std::filesystem::path& path)
      : database_(opened(path)),
        rows_(*database_),
        submissions_(*database_),
        attempts_(*database_) {}

  [[nodiscard]] const std::string& path() const noexcept override { return database_->path(); }
  [[nodiscard]] std::optional<RunRecord> find_run(std::int64_t run) override {
    return rows_.find_run(run);
  }
  [[nodiscard]] std::optional<EvaluationOfRun> find_evaluation(
      const std::string& eval_id) override {
    return rows_.find_evaluation(eval_id);
  }
  [[nodiscard]] std::map<std::string, std::string> figures(const std::string& eval_id) override {
    return rows_.figures(eval_id);
  }
  [[nodiscard]] std::map<std::string, std::int64_t> first_candidates(std::int64_t run) override {
    return rows_.first_candidates(run);
  }
  [[nodiscard]] SubmissionTable& submissions() noexcept override { return submissions_; }
  [[nodiscard]] AttemptTable& attempts() noexcept override { return attempts_; }

 private:
  std::unique_ptr<SqliteDatabase> database_;
  SqliteRunRows rows_;
  SqliteSubmissionTable submissions_;
  SqliteAttemptTable attempts_;
};

}  // namespace

std::optional<std::string> stored_holdout_from(const std::filesystem::path& path,
                                               const PoolIdentity& pool) {
  constexpr const char* kDoing = "reading the hold-out of a pool";
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(path, ignored)) return std::nullopt;
  const std::unique_ptr<SqliteDatabase> database = opened_for_reading(path);
  const std::int64_t version = database->query_integer("PRAGMA user_version", kDoing);
  if (database->query_integer("PRAGMA application_id", kDoing) != kStoreApplicationId ||
      version < kFirstVersionWithSubmissions || version > kStoreSchemaVersion) {
    return std::nullopt;
  }
  SqliteStatement select(
      *database, version < kFirstVersionWithPools ? kHoldoutOfRuns : kHoldoutOfPool, kDoing);
  SqliteUse row(select);
  row.bind("signal_pool_name", pool.signal_pool_name).bind("market_id", pool.market_id);
  if (!row.step() || row.is_null("holdout_from")) return std::nullopt;
  return row.text("holdout_from");
}

EarlierSearch stored_search(const std::filesystem::path& path, const std::string& evaluation_key,
                            std::int64_t best_count) {
  constexpr const char* kDoing = "reading what earlier runs evaluated";
  constexpr const char* kOfKey =
      "FROM runs r JOIN evaluations e ON e.run_id = r.id WHERE r.evaluation_key = :key ";
  EarlierSearch found;
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(path, ignored)) return found;
  const std::unique_ptr<SqliteDatabase> database = opened_for_reading(path);
  if (database->query_integer("PRAGMA application_id", kDoing) != kStoreApplicationId ||
      database->query_integer("PRAGMA user_version", kDoing) != kStoreSchemaVersion) {
    return found;
  }
  // What a lost worker left without figures is tried again.
  SqliteStatement structures(*database,
                             std::string("SELECT DISTINCT e.graph_key AS graph_key ") + kOfKey +
                                 "AND e.statistics <> 'null'",
                             kDoing);
  SqliteUse keys(structures);
  keys.bind("key", evaluation_key);
  while (keys.step())
    found.structures.push_back(keys.text("graph_key"));
  SqliteStatement best(*database,
                       std::string("SELECT e.graph AS graph, max(e.quality_score) AS quality ") +
                           kOfKey +
                           "AND e.passed = 1 AND e.quality_score IS NOT NULL GROUP BY e.graph_key "
                           "ORDER BY quality DESC, min(e.id) LIMIT :count",
                       kDoing);
  SqliteUse graphs(best);
  graphs.bind("key", evaluation_key).bind("count", best_count);
  while (graphs.step())
    found.best_graphs.push_back(graphs.text("graph"));
  return found;
}

std::unique_ptr<StoreReader> open_store_reader(const std::filesystem::path& path) {
  return std::make_unique<SqliteStoreReader>(path);
}

}  // namespace varnholt::embedded
