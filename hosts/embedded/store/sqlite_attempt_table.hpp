// An AttemptTable in an SQLite file.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/store/attempt_table.hpp"
#include "hosts/embedded/store/sqlite_database.hpp"

namespace varnholt::embedded {

class SqliteAttemptTable final : public AttemptTable {
 public:
  // The database must have the tables and must outlive the object.
  explicit SqliteAttemptTable(SqliteDatabase& database);
  SqliteAttemptTable(const SqliteAttemptTable&) = delete;
  SqliteAttemptTable& operator=(const SqliteAttemptTable&) = delete;
  ~SqliteAttemptTable() override;

  std::int64_t create(const NewAttemptRow& attempt, double at) override;
  void mark(std::int64_t id, AttemptStep step, double at) override;
  bool end(std::int64_t id, const AttemptEndRow& end, double at) override;
  std::int64_t open_marker(const NewMarker& marker, double at) override;
  void close_marker(std::int64_t id, double at) override;
  void sync() override;
  [[nodiscard]] std::optional<std::int64_t> open_attempt(std::int64_t run,
                                                         const std::string& graph_key) override;
  [[nodiscard]] std::optional<AttemptRecord> find(std::int64_t id) override;
  [[nodiscard]] std::vector<AttemptRecord> list(const AttemptFilter& filter) override;
  [[nodiscard]] std::vector<DispositionCount> dispositions(const AttemptFilter& filter) override;
  [[nodiscard]] std::int64_t open_markers(std::int64_t run) override;

  // Ends, as abandoned, the open attempts of runs that have ended, and closes their markers.
  // Returns how many attempts it ended. Nothing is written where there is nothing to do.
  std::int64_t abandon_open_attempts(double at);

 private:
  struct Statements;

  void add_event(std::int64_t id, AttemptStep step, double at);
  // The row that a use has stepped to, with its events.
  [[nodiscard]] AttemptRecord read_attempt(SqliteUse& row);

  SqliteDatabase& database_;
  std::unique_ptr<Statements> statements_;
};

}  // namespace varnholt::embedded
