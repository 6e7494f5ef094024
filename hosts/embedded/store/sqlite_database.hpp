// SQLite behind four small classes: a connection, a prepared statement, one use of it, and a
// transaction. Every failure becomes a StoreError that names the file, what was being done, and
// the remedy.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <sqlite3.h>
#include <sys/types.h>

#include "hosts/embedded/store/store_error.hpp"

namespace varnholt::embedded {

// One connection, used by the process that opened it. A forked child that touches it gets a
// StoreError, and its copy is never closed: SQLite forbids to carry a connection over a fork.
class SqliteDatabase {
 public:
  // Opens the file for reading and writing and makes it if it is not there. A lock that another
  // process holds is waited for at most `busy_timeout_milliseconds`, at each call anew.
  SqliteDatabase(const std::string& path, int busy_timeout_milliseconds);
  SqliteDatabase(const SqliteDatabase&) = delete;
  SqliteDatabase& operator=(const SqliteDatabase&) = delete;
  ~SqliteDatabase();

  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  [[nodiscard]] int busy_timeout_milliseconds() const noexcept { return busy_timeout_; }
  [[nodiscard]] sqlite3* handle() const noexcept { return handle_; }
  [[nodiscard]] bool belongs_to_this_process() const noexcept;
  // Throws where it does not belong to this process.
  void require_owner() const;

  // Runs statements that give no rows. `doing` says what for, for people: "making the tables".
  void execute(const char* sql, const char* doing);
  // The first column of the first row.
  [[nodiscard]] std::int64_t query_integer(const char* sql, const char* doing);
  [[nodiscard]] std::string query_text(const char* sql, const char* doing);

  // Throws the StoreError for the last call that failed: a StoreBusyError where a lock was the
  // reason.
  [[noreturn]] void fail(const char* doing) const;

 private:
  std::string path_;
  int busy_timeout_;
  pid_t owner_;
  sqlite3* handle_ = nullptr;
};

// Prepared once, used often. Must not outlive its database.
class SqliteStatement {
 public:
  SqliteStatement(SqliteDatabase& database, const char* sql, const char* doing);
  SqliteStatement(const SqliteStatement&) = delete;
  SqliteStatement& operator=(const SqliteStatement&) = delete;
  ~SqliteStatement();

 private:
  friend class SqliteUse;
  SqliteDatabase& database_;
  const char* doing_;
  sqlite3_stmt* handle_ = nullptr;
};

// One use of a statement: binds its parameters in order, steps, reads columns in order. The end of
// the use resets the statement, so that no read stays open and no bound text is kept.
class SqliteUse {
 public:
  explicit SqliteUse(SqliteStatement& statement);
  SqliteUse(const SqliteUse&) = delete;
  SqliteUse& operator=(const SqliteUse&) = delete;
  ~SqliteUse();

  // Texts and series must live until the last step. A real that is no number is stored as NULL, a
  // series as the bytes of its doubles (IEEE 754, 8 bytes each, the lowest first).
  SqliteUse& bind(std::int64_t value);
  SqliteUse& bind(double value);
  SqliteUse& bind(std::string_view value);
  SqliteUse& bind(std::span<const double> series);
  template <typename Value>
  SqliteUse& bind(const std::optional<Value>& value) {
    return value ? bind(*value) : bind_null();
  }

  // Whether there is a row.
  bool step();
  // Steps a statement that changes rows; returns how many it changed.
  int change();

  [[nodiscard]] std::int64_t integer();
  [[nodiscard]] double real();
  [[nodiscard]] std::string text();
  [[nodiscard]] std::optional<std::int64_t> optional_integer();
  [[nodiscard]] std::optional<double> optional_real();
  [[nodiscard]] std::optional<std::string> optional_text();
  // Absent for NULL and for bytes that are no whole number of doubles.
  [[nodiscard]] std::optional<std::vector<double>> optional_series();

 private:
  SqliteUse& bind_null();
  SqliteUse& bound(int result);
  [[nodiscard]] bool next_is_null() const noexcept;

  SqliteStatement& statement_;
  int parameter_ = 0;
  int column_ = 0;
  std::string series_;  // The bytes of a bound series.
};

// A write transaction: begun at once (so that no later step can find the file locked), committed by
// commit(), and otherwise rolled back.
class SqliteTransaction {
 public:
  SqliteTransaction(SqliteDatabase& database, const char* doing);
  SqliteTransaction(const SqliteTransaction&) = delete;
  SqliteTransaction& operator=(const SqliteTransaction&) = delete;
  ~SqliteTransaction();

  void commit();

 private:
  SqliteDatabase& database_;
  const char* doing_;
  bool open_ = true;
};

}  // namespace varnholt::embedded
