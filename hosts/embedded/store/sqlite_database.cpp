#include "hosts/embedded/store/sqlite_database.hpp"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

#include "hosts/embedded/store/lock_holders.hpp"

namespace varnholt::embedded {
namespace {

// What a person can do about a result code. The numbers are those of <sqlite3.h>.
std::string_view remedy(int code) {
  switch (code & 0xff) {
    case SQLITE_FULL:
      return "the disk is full; free some space, or name a file on another disk";
    case SQLITE_IOERR:
      return "the disk refused; check its free space, quotas, limits of file size, and its health";
    case SQLITE_NOMEM:
      return "memory is short; end other programs, or raise the limit of this one";
    case SQLITE_READONLY:
    case SQLITE_PERM:
      return "it cannot be written; check the permissions of the file and of its folder";
    case SQLITE_CANTOPEN:
      return "check that its folder exists, and that the folder and the file can be written";
    case SQLITE_CORRUPT:
      return "the file is damaged; move it away, and save what is left with `sqlite3 FILE "
             ".recover`";
    case SQLITE_NOTADB:
      return "it is no SQLite database; name another file";
    case SQLITE_CONSTRAINT:
      return "the row contradicts one that is there, or names a run that is not";
    default:
      return "see the SQLite result codes";
  }
}

constexpr const char* kGathering = "putting what was gathered in the file";

// How long a call waits for a lock after one that has waited in vain.
constexpr int kMomentMilliseconds = 50;

bool is_refusal_of_the_machine(int primary) {
  return primary == SQLITE_FULL || primary == SQLITE_IOERR || primary == SQLITE_NOMEM;
}

constexpr const char* kDescriptorRemedy =
    "the limit of open files is reached; raise it with `ulimit -n`";

bool is_want_of_descriptors(int system_error) {
  return system_error == EMFILE || system_error == ENFILE;
}

bool is_want_of_space(int system_error) {
  return system_error == ENOSPC || system_error == EDQUOT;
}

constexpr std::size_t kBytesOfADouble = 8;
static_assert(sizeof(double) == kBytesOfADouble);

std::string little_endian(std::span<const double> series) {
  std::string bytes;
  bytes.reserve(series.size() * kBytesOfADouble);
  for (const double value : series) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    for (unsigned int shift = 0; shift < 64; shift += 8) {
      bytes.push_back(static_cast<char>((bits >> shift) & 0xffU));
    }
  }
  return bytes;
}

std::vector<double> from_little_endian(std::span<const unsigned char> bytes) {
  std::vector<double> series;
  series.reserve(bytes.size() / kBytesOfADouble);
  for (std::size_t at = 0; at < bytes.size(); at += kBytesOfADouble) {
    std::uint64_t bits = 0;
    for (std::size_t byte = kBytesOfADouble; byte > 0; --byte) {
      bits = (bits << 8) | bytes[at + byte - 1];
    }
    series.push_back(std::bit_cast<double>(bits));
  }
  return series;
}

int checked_size(std::string_view text) {
  // SQLite takes sizes as int and refuses texts above its own limit, a thousand million bytes.
  constexpr std::size_t kMost = 1'000'000'000;
  return static_cast<int>(text.size() < kMost ? text.size() : kMost + 1);
}

int place_of(std::string_view name, const std::vector<std::string>& names, const char* kind) {
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) {
    throw std::logic_error(fmt::format("the statement has no {} {}", kind, name));
  }
  return static_cast<int>(found - names.begin());
}

// The address by which SQLite takes a file for one that nothing changes.
std::string fixed_address(const std::string& path) {
  std::string address = "file:";
  for (const char character : path) {
    // What would end the path there, or begin another character.
    const bool is_special = character == '?' || character == '#' || character == '%';
    if (is_special) {
      address += fmt::format("%{:02x}", static_cast<unsigned int>(character));
    } else {
      address += character;
    }
  }
  return address + "?immutable=1";
}

// SQLite would wait for the other end of a pipe, and write into a device.
void refuse_other_than_files(const std::string& path) {
  std::error_code ignored;  // What is not there will be made.
  const std::filesystem::file_status status = std::filesystem::status(path, ignored);
  if (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status)) return;
  throw StoreError(path, "it is no regular file", "name a file, or one that is not there yet");
}

}  // namespace

SqliteDatabase::SqliteDatabase(const std::string& path, int busy_timeout_milliseconds,
                               Medium medium)
    : path_(path), busy_timeout_(busy_timeout_milliseconds), owner_(::getpid()) {
  refuse_other_than_files(path);
  const bool is_fixed = medium == Medium::IsFixed;
  if (!is_fixed) is_new_ = make_private_file(path);
  // No mutex: the process has one thread.
  const int flags = SQLITE_OPEN_NOMUTEX | (is_fixed ? SQLITE_OPEN_READONLY | SQLITE_OPEN_URI
                                                    : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  const std::string name = is_fixed ? fixed_address(path) : path_;
  const int result = ::sqlite3_open_v2(name.c_str(), &handle_, flags, nullptr);
  try {
    if (handle_ == nullptr) throw std::bad_alloc();
    ::sqlite3_extended_result_codes(handle_, 1);
    if (result != SQLITE_OK) fail("opening it");
    ::sqlite3_busy_timeout(handle_, busy_timeout_milliseconds);
    file_ = identity_of(path_);
  } catch (...) {
    ::sqlite3_close(handle_);
    throw;
  }
}

SqliteDatabase::~SqliteDatabase() {
  if (!belongs_to_this_process()) return;
  if (handle_ != nullptr && is_moved()) {
    // The last user of a file moves its log into it and removes it by name. Of a moved file the
    // database does neither, and by now the name may be another file's, which the log would be read
    // into: so it is moved here, and left empty.
    int keep = 1;
    ::sqlite3_wal_checkpoint_v2(handle_, "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    ::sqlite3_file_control(handle_, "main", SQLITE_FCNTL_PERSIST_WAL, &keep);
  }
  ::sqlite3_close(handle_);
}

bool SqliteDatabase::is_moved() const {
  const std::optional<FileIdentity> now = identity_of(path_);
  if (!file_ || !now || !now->is_same_file(*file_)) return true;
  if (!log_) return false;
  const std::optional<FileIdentity> log = identity_of(log_path());
  return !log || !log->is_same_file(*log_);
}

std::string SqliteDatabase::log_path() const {
  // The database's own name of the file, without links: its log stands beside that.
  return std::string(::sqlite3_db_filename(handle_, "main")) + "-wal";
}

void SqliteDatabase::require_same_file(const char* doing) {
  if (is_moved()) {
    fail_with(StoreError(
        path_,
        fmt::format(
            "{} failed: the file, or {}-wal beside it, was moved, removed or replaced while "
            "it was in use",
            doing, path_),
        "what was recorded before is in the file that was moved, if it is still there; begin a new "
        "run, and leave both where they are until it ends"));
  }
  const std::optional<FileIdentity> now = identity_of(path_);
  if (!now || now->names <= 1) return;
  fail_with(StoreError(
      path_,
      fmt::format("{} failed: the file has {} names (hard links), and each keeps a log of its own",
                  doing, now->names),
      "remove all names but one (`find -samefile FILE` lists them), or make a copy instead"));
}

void SqliteDatabase::discard_new_file() {
  if (!is_new_ || !belongs_to_this_process() || is_moved()) return;
  ::sqlite3_close(std::exchange(handle_, nullptr));
  if (is_used_by_others(path_)) return;
  std::error_code ignored;  // It stays then, empty as it is.
  for (const std::filesystem::path& file : files_of_store(path_))
    std::filesystem::remove(file, ignored);
}

void SqliteDatabase::note_success() {
  // Nobody else removes it from here on: that takes a lock that this connection does not give up.
  if (!log_) log_ = identity_of(log_path());
  if (!first_failure_ || has_lost_gathered_) return;
  first_failure_ = nullptr;
  ::sqlite3_busy_timeout(handle_, busy_timeout_);
}

bool SqliteDatabase::belongs_to_this_process() const noexcept {
  return ::getpid() == owner_;
}

void SqliteDatabase::require_owner() const {
  if (belongs_to_this_process()) return;
  throw StoreError(
      path_, fmt::format("it was opened by process {}, not by process {}", owner_, ::getpid()),
      "a worker must hand its result to its parent instead of storing it");
}

void SqliteDatabase::execute(const char* sql, const char* doing) {
  require_owner();
  if (::sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail(doing);
}

std::int64_t SqliteDatabase::query_integer(const char* sql, const char* doing) {
  SqliteStatement statement(*this, sql, doing);
  SqliteUse use(statement);
  return use.step() ? use.integer(statement.columns_.front().c_str()) : 0;
}

std::string SqliteDatabase::query_text(const char* sql, const char* doing) {
  SqliteStatement statement(*this, sql, doing);
  SqliteUse use(statement);
  return use.step() ? use.text(statement.columns_.front().c_str()) : std::string();
}

void SqliteDatabase::begin_gathering() {
  require_owner();
  gathers_ = true;
}

bool SqliteDatabase::is_in_transaction() const {
  return ::sqlite3_get_autocommit(handle_) == 0;
}

void SqliteDatabase::join_gathered(const char* doing) {
  if (!gathers_ || is_in_transaction()) return;
  note_lost_gathered();
  require_same_file(doing);
  execute("BEGIN IMMEDIATE", doing);
  is_gathered_open_ = true;
}

void SqliteDatabase::note_lost_gathered() {
  if (std::exchange(is_gathered_open_, false)) has_lost_gathered_ = true;
}

void SqliteDatabase::put_in_file() {
  require_owner();
  if (gathers_) commit_gathered();
}

void SqliteDatabase::end_gathering() {
  require_owner();
  if (std::exchange(gathers_, false)) commit_gathered();
}

void SqliteDatabase::commit_gathered() {
  if (!is_in_transaction()) return note_lost_gathered();
  try {
    execute("COMMIT", kGathering);
  } catch (const StoreError&) {
    // SQLite has mostly done so; what is told is why it could not be committed.
    if (is_in_transaction()) ::sqlite3_exec(handle_, "ROLLBACK", nullptr, nullptr, nullptr);
    note_lost_gathered();
    throw;
  }
  is_gathered_open_ = false;
  note_success();
}

void SqliteDatabase::sync_written_ahead(const char* doing) {
  require_owner();
  put_in_file();
  sqlite3_file* file = nullptr;
  const int found = ::sqlite3_file_control(handle_, "main", SQLITE_FCNTL_JOURNAL_POINTER,
                                           static_cast<void*>(&file));
  if (found != SQLITE_OK) fail(doing);
  // Nothing was written yet.
  if (file == nullptr || file->pMethods == nullptr) return;
  const int synced = file->pMethods->xSync(file, SQLITE_SYNC_NORMAL);
  if (synced == SQLITE_OK) return;
  fail_with(StoreDiskError(path_, fmt::format("{} failed: {}", doing, ::sqlite3_errstr(synced)),
                           remedy(synced)));
}

template <typename Error>
void SqliteDatabase::fail_with(const Error& error) {
  if (!first_failure_) first_failure_ = std::make_exception_ptr(error);
  throw Error(error);
}

std::string SqliteDatabase::lock_remedy() const {
  const std::string holders = lock_holders(path_);
  if (holders.empty()) {
    return fmt::format(
        "another process holds it (`fuser -v {}` may tell which); end that process, or try again "
        "when it is done",
        path_);
  }
  return fmt::format("{} may hold it; end that process, or try again when it is done", holders);
}

void SqliteDatabase::fail(const char* doing) {
  const int code = ::sqlite3_extended_errcode(handle_);
  const int system_error = (code & 0xff) == SQLITE_IOERR || (code & 0xff) == SQLITE_CANTOPEN
                               ? ::sqlite3_system_errno(handle_)
                               : 0;
  const std::string cause =
      system_error != 0 ? fmt::format(" ({})", std::strerror(system_error)) : std::string();
  const std::string trouble =
      fmt::format("{} failed: {}{}", doing, ::sqlite3_errmsg(handle_), cause);
  const int primary = code & 0xff;
  if (primary == SQLITE_BUSY || primary == SQLITE_LOCKED) {
    const StoreBusyError error(
        path_, fmt::format("{}, for more than {:g} seconds", trouble, busy_timeout_ / 1000.0),
        lock_remedy());
    ::sqlite3_busy_timeout(handle_, std::min(busy_timeout_, kMomentMilliseconds));
    fail_with(error);
  }
  if (is_want_of_descriptors(system_error)) {
    fail_with(StoreDiskError(path_, trouble, kDescriptorRemedy));
  }
  if (is_refusal_of_the_machine(primary) || is_want_of_space(system_error))
    fail_with(StoreDiskError(path_, trouble, remedy(code)));
  fail_with(StoreError(path_, trouble, remedy(code)));
}

SqliteStatement::SqliteStatement(SqliteDatabase& database, const std::string& sql,
                                 const char* doing)
    : database_(database), doing_(doing) {
  database.require_owner();
  // Persistent: most live as long as the store.
  if (::sqlite3_prepare_v3(database.handle(), sql.c_str(), checked_size(sql),
                           SQLITE_PREPARE_PERSISTENT, &handle_, nullptr) != SQLITE_OK) {
    database.fail(doing);
  }
  // Copied: SQLite's own texts do not outlive a change of the schema.
  for (int i = 0; i < ::sqlite3_bind_parameter_count(handle_); ++i)
    parameters_.emplace_back(::sqlite3_bind_parameter_name(handle_, i + 1) + 1);
  for (int i = 0; i < ::sqlite3_column_count(handle_); ++i)
    columns_.emplace_back(::sqlite3_column_name(handle_, i));
}

SqliteStatement::~SqliteStatement() {
  if (database_.belongs_to_this_process()) ::sqlite3_finalize(handle_);
}

SqliteUse::SqliteUse(SqliteStatement& statement) : statement_(statement) {
  statement.database_.require_owner();
}

SqliteUse::~SqliteUse() {
  // The result is that of the last step, which has been told already.
  ::sqlite3_reset(statement_.handle_);
  ::sqlite3_clear_bindings(statement_.handle_);
}

int SqliteUse::parameter(const char* name) const {
  return place_of(name, statement_.parameters_, "parameter") + 1;  // SQLite counts them from 1.
}

int SqliteUse::column(const char* name) const {
  return place_of(name, statement_.columns_, "column");
}

SqliteUse& SqliteUse::bound(int result) {
  if (result != SQLITE_OK) statement_.database_.fail(statement_.doing_);
  return *this;
}

SqliteUse& SqliteUse::bind_null(const char* name) {
  return bound(::sqlite3_bind_null(statement_.handle_, parameter(name)));
}

SqliteUse& SqliteUse::bind(const char* name, std::int64_t value) {
  return bound(::sqlite3_bind_int64(statement_.handle_, parameter(name), value));
}

SqliteUse& SqliteUse::bind(const char* name, double value) {
  // SQLite itself makes NULL of anything but a number.
  return bound(::sqlite3_bind_double(statement_.handle_, parameter(name), value));
}

SqliteUse& SqliteUse::bind(const char* name, std::string_view value) {
  // A null pointer would be stored as NULL, and an empty view may have one.
  const char* const bytes = value.data() != nullptr ? value.data() : "";
  return bound(::sqlite3_bind_text(statement_.handle_, parameter(name), bytes, checked_size(value),
                                   SQLITE_STATIC));
}

SqliteUse& SqliteUse::bind(const char* name, std::span<const double> series) {
  series_ = little_endian(series);
  return bound(::sqlite3_bind_blob(statement_.handle_, parameter(name), series_.data(),
                                   checked_size(series_), SQLITE_STATIC));
}

bool SqliteUse::step() {
  const int result = ::sqlite3_step(statement_.handle_);
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) statement_.database_.fail(statement_.doing_);
  return false;
}

int SqliteUse::change() {
  SqliteDatabase& database = statement_.database_;
  database.join_gathered(statement_.doing_);
  const bool is_alone = !database.is_in_transaction();
  if (is_alone) database.require_same_file(statement_.doing_);
  static_cast<void>(step());
  if (is_alone) database.note_success();
  return ::sqlite3_changes(database.handle());
}

bool SqliteUse::is_null(const char* name) const {
  return ::sqlite3_column_type(statement_.handle_, column(name)) == SQLITE_NULL;
}

std::int64_t SqliteUse::integer(const char* name) const {
  return ::sqlite3_column_int64(statement_.handle_, column(name));
}

double SqliteUse::real(const char* name) const {
  return ::sqlite3_column_double(statement_.handle_, column(name));
}

std::string SqliteUse::text(const char* name) const {
  const int place = column(name);
  const unsigned char* const bytes = ::sqlite3_column_text(statement_.handle_, place);
  const int size = ::sqlite3_column_bytes(statement_.handle_, place);
  if (bytes == nullptr) return {};
  return std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

std::optional<std::vector<double>> SqliteUse::series(const char* name) const {
  const int place = column(name);
  if (is_null(name)) return std::nullopt;
  const auto* const bytes =
      static_cast<const unsigned char*>(::sqlite3_column_blob(statement_.handle_, place));
  const auto size = static_cast<std::size_t>(::sqlite3_column_bytes(statement_.handle_, place));
  if (size % kBytesOfADouble != 0) return std::nullopt;
  return from_little_endian({bytes, size});
}

SqliteTransaction::SqliteTransaction(SqliteDatabase& database, const char* doing)
    : database_(database), doing_(doing) {
  database.join_gathered(doing);
  is_inner_ = database.is_in_transaction();
  if (!is_inner_) database.require_same_file(doing);
  database.execute(is_inner_ ? "SAVEPOINT inner_work" : "BEGIN IMMEDIATE", doing);
}

SqliteTransaction::~SqliteTransaction() {
  // A full disk makes SQLite roll back by itself; then there is nothing left to do.
  if (!open_ || !database_.belongs_to_this_process()) return;
  if (!database_.is_in_transaction()) return;
  const char* const undo = is_inner_ ? "ROLLBACK TO inner_work; RELEASE inner_work" : "ROLLBACK";
  ::sqlite3_exec(database_.handle(), undo, nullptr, nullptr, nullptr);
}

void SqliteTransaction::commit() {
  database_.execute(is_inner_ ? "RELEASE inner_work" : "COMMIT", doing_);
  open_ = false;
  if (!is_inner_) database_.note_success();
}

}  // namespace varnholt::embedded
