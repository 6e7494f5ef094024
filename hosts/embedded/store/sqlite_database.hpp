// SQLite behind four small classes: a connection, a prepared statement, one use of it, and a
// transaction. Every failure becomes a StoreError that names the file, what was being done, and
// the remedy.
#pragma once

#include <concepts>
#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <sqlite3.h>
#include <sys/types.h>

#include "hosts/embedded/store/gathered_writes.hpp"
#include "hosts/embedded/store/store_error.hpp"
#include "hosts/embedded/store/store_files.hpp"

namespace varnholt::embedded {

// One connection, used by the process that opened it. A forked child that touches it gets a
// StoreError, and its copy is never closed: SQLite forbids carrying a connection over a fork.
class SqliteDatabase : public GatheredWrites {
 public:
  // Whether the file may change while it is open. One that cannot, on a file system that is mounted
  // for reading only, is read without the files that users of a store share; whether it is one is
  // for the caller to know.
  enum class Medium { Changes, IsFixed };

  // Opens the file for reading and writing and makes it if it is not there, for its owner alone. A
  // lock that another process holds is waited for at most `busy_timeout_milliseconds`, at each call
  // anew; after a call that has waited in vain only for a moment, until one succeeds again.
  SqliteDatabase(const std::string& path, int busy_timeout_milliseconds,
                 Medium medium = Medium::Changes);
  SqliteDatabase(const SqliteDatabase&) = delete;
  SqliteDatabase& operator=(const SqliteDatabase&) = delete;
  ~SqliteDatabase() override;

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

  // Throws where the file is not the one that was opened any more, or has a second name. Every
  // transaction asks before it begins.
  void require_same_file(const char* doing);

  // Closes the connection and removes the file, where this object has made it and it is no store
  // yet: what could not be set up leaves nothing behind. Nothing but the destructor may follow.
  void discard_new_file();

  // Of the errors since something was written with success, the first: null where there is none.
  // What is tried after it, to close what is open, mostly fails too. One by which gathered writes
  // were lost stays, whatever is written after it: what was recorded is not in the file.
  [[nodiscard]] const std::exception_ptr& first_failure() const noexcept { return first_failure_; }
  void note_success();

  void begin_gathering() override;
  void put_in_file() override;
  void end_gathering() override;
  // Where writes are gathered, begins the transaction that they share, unless it is open.
  void join_gathered(const char* doing);
  [[nodiscard]] bool is_in_transaction() const;

  // Puts what was committed or gathered on the disk, where it survives a loss of power: with
  // synchronous=NORMAL a commit alone does not.
  void sync_written_ahead(const char* doing);

  // Throws the StoreError for the last call that failed: a StoreBusyError where a lock was the
  // reason, a StoreDiskError where the machine refused.
  [[noreturn]] void fail(const char* doing);

 private:
  template <typename Error>
  [[noreturn]] void fail_with(const Error& error);
  void commit_gathered();
  // Of what is lost the database itself has ended the transaction, or a commit has failed.
  void note_lost_gathered();
  [[nodiscard]] bool is_moved() const;
  [[nodiscard]] std::string log_path() const;
  [[nodiscard]] std::string lock_remedy() const;

  std::string path_;
  int busy_timeout_;
  pid_t owner_;
  sqlite3* handle_ = nullptr;
  bool is_new_ = false;  // The file was made by this object.
  bool gathers_ = false;
  bool is_gathered_open_ = false;   // The transaction of gathered writes was begun.
  bool has_lost_gathered_ = false;  // One was rolled back.
  std::optional<FileIdentity> file_;
  std::optional<FileIdentity> log_;  // What is written ahead, once it is there.
  std::exception_ptr first_failure_;
};

// Prepared once, used often. Must not outlive its database.
class SqliteStatement {
 public:
  SqliteStatement(SqliteDatabase& database, const std::string& sql, const char* doing);
  SqliteStatement(const SqliteStatement&) = delete;
  SqliteStatement& operator=(const SqliteStatement&) = delete;
  ~SqliteStatement();

 private:
  friend class SqliteDatabase;
  friend class SqliteUse;
  SqliteDatabase& database_;
  const char* doing_;
  sqlite3_stmt* handle_ = nullptr;
  // In their order. A parameter is written ":run" in the statement, and its name is "run".
  std::vector<std::string> parameters_;
  std::vector<std::string> columns_;
};

// One use of a statement: binds its parameters, steps, reads columns, all by name. The end of the
// use resets the statement, so that no read stays open and no bound text is kept. A name that the
// statement does not have is a std::logic_error.
class SqliteUse {
 public:
  explicit SqliteUse(SqliteStatement& statement);
  SqliteUse(const SqliteUse&) = delete;
  SqliteUse& operator=(const SqliteUse&) = delete;
  ~SqliteUse();

  // What is not bound is NULL, and what is bound again has its last value. Texts must live until
  // the last step. A real that is not a number is stored as NULL, a series as the bytes of its
  // doubles (IEEE 754, 8 bytes each, the lowest first), a truth value as 0 or 1.
  SqliteUse& bind(const char* name, std::int64_t value);
  SqliteUse& bind(const char* name, double value);
  SqliteUse& bind(const char* name, std::string_view value);
  SqliteUse& bind(const char* name, std::span<const double> series);
  SqliteUse& bind(const char* name, std::same_as<bool> auto value) {
    return bind(name, std::int64_t{value});
  }
  template <typename Value>
  SqliteUse& bind(const char* name, const std::optional<Value>& value) {
    return value ? bind(name, *value) : bind_null(name);
  }
  SqliteUse& bind_null(const char* name);

  // Whether there is a row.
  bool step();
  // Steps a statement that changes rows; returns how many it changed.
  int change();

  [[nodiscard]] bool is_null(const char* name) const;
  [[nodiscard]] std::int64_t integer(const char* name) const;
  [[nodiscard]] double real(const char* name) const;
  [[nodiscard]] std::string text(const char* name) const;
  // Absent for NULL and for bytes that are no whole number of doubles.
  [[nodiscard]] std::optional<std::vector<double>> series(const char* name) const;

  // The same by the type of what is read into.
  void read(const char* name, std::int64_t& value) const { value = integer(name); }
  void read(const char* name, double& value) const { value = real(name); }
  void read(const char* name, std::string& value) const { value = text(name); }
  void read(const char* name, bool& value) const { value = integer(name) != 0; }
  template <typename Value>
  void read(const char* name, std::optional<Value>& value) const {
    value.reset();
    if (!is_null(name)) read(name, value.emplace());
  }

 private:
  [[nodiscard]] int parameter(const char* name) const;
  [[nodiscard]] int column(const char* name) const;
  SqliteUse& bound(int result);

  SqliteStatement& statement_;
  std::string series_;  // The bytes of a bound series.
};

// A write transaction: begun at once (so that no later step can find the file locked), committed by
// commit(), and otherwise rolled back. One inside another, or inside what is gathered, is a
// savepoint of it: what it committed stands when the outer one commits.
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
  bool is_inner_ = false;
  bool open_ = true;
};

}  // namespace varnholt::embedded
