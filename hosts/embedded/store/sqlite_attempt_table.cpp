#include "hosts/embedded/store/sqlite_attempt_table.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>
#include <unistd.h>

#include "hosts/embedded/store/store_relations.hpp"

namespace varnholt::embedded {
namespace {

constexpr const char* kCreating = "creating an attempt";
constexpr const char* kMarking = "marking an attempt";
constexpr const char* kEnding = "ending an attempt";
constexpr const char* kSweeping = "ending the attempts of runs that are over";
constexpr const char* kReading = "reading attempts";
constexpr const char* kNoting = "noting an evaluation under way";

constexpr auto kStepNames = std::to_array({"created", "dispatched", "backtest_started", "ended"});

constexpr const char* kInsertEvent =
    "INSERT INTO attempt_events (attempt_id, step, at, process_id) VALUES (:id, :step, :at, "
    ":process_id)";
// Of an attempt that is open: otherwise nothing is inserted.
constexpr const char* kMark =
    "INSERT INTO attempt_events (attempt_id, step, at, process_id) SELECT id, :step, :at, "
    ":process_id FROM attempts "
    "WHERE id = :id AND terminal_disposition IS NULL";
constexpr const char* kCountIgnored =
    "UPDATE attempts SET ignored_ends = ignored_ends + 1 WHERE id = :id";
constexpr const char* kSelectOpen =
    "SELECT min(id) AS id FROM attempts WHERE run_id = :run AND graph_key = :graph_key "
    "AND terminal_disposition IS NULL";

constexpr const char* kOne = "WHERE id = :id";
// The latest, in the order of creation: the limit is applied from the end.
constexpr const char* kChosen =
    "(:run IS NULL OR run_id = :run) AND (:disposition IS NULL OR "
    "coalesce(terminal_disposition, 'open') = :disposition)";
constexpr const char* kSelectEvents =
    "SELECT step, at FROM attempt_events WHERE attempt_id = :id ORDER BY id";

constexpr const char* kInsertMarker =
    "INSERT INTO evaluation_markers (run_id, graph_key, named_universe, metaparameters, phase, "
    "opened_at) VALUES (:run, :graph_key, :named_universe, :metaparameters, :phase, :opened_at)";
constexpr const char* kCloseMarker =
    "UPDATE evaluation_markers SET closed_at = :at WHERE id = :id AND closed_at IS NULL";
constexpr const char* kCountMarkers =
    "SELECT count(*) AS count FROM evaluation_markers WHERE run_id = :run AND closed_at IS NULL";

// What is left open by runs that are over: nobody else will end it.
std::string left_open(const char* is_open) {
  return std::string(is_open) +
         " IS NULL AND run_id IN (SELECT id FROM runs WHERE ended_at IS NOT NULL)";
}

std::string attempts_left() {
  return left_open("terminal_disposition");
}

std::string markers_left() {
  return left_open("closed_at");
}

std::string any_left() {
  return "SELECT 1 FROM attempts WHERE " + attempts_left() +
         " UNION ALL SELECT 1 FROM evaluation_markers WHERE " + markers_left() + " LIMIT 1";
}

std::string disposition_counts() {
  return std::string(
             "SELECT coalesce(terminal_disposition, 'open') AS disposition, count(*) AS count "
             "FROM attempts WHERE ") +
         kChosen + " GROUP BY 1 ORDER BY 2 DESC, 1";
}

std::string chosen_attempts() {
  return select_from(attempt_relation()) + "WHERE id IN (SELECT id FROM attempts WHERE " + kChosen +
         " ORDER BY id DESC LIMIT coalesce(:limit, -1)) ORDER BY id";
}

std::string end_statement(const std::string& condition) {
  return "UPDATE attempts SET " + assignments(attempt_relation()) + " WHERE " + condition;
}

// Told with each event, so that one written by a process other than the run's can be seen.
std::int64_t this_process() {
  return ::getpid();
}

AttemptStep step_named(std::string_view name) {
  const auto* const found = std::find(kStepNames.begin(), kStepNames.end(), name);
  if (found == kStepNames.end()) {
    throw std::logic_error("the table lets no other step in than its own: " + std::string(name));
  }
  return static_cast<AttemptStep>(found - kStepNames.begin());
}

AttemptRecord ended_record(const AttemptEndRow& end) {
  AttemptRecord record;
  record.end = end;
  return record;
}

AttemptEndRow abandoned() {
  AttemptEndRow end;
  end.terminal_disposition = kAbandoned;
  end.failure_category = kAbandonedCategory;
  end.failure_reason = kAbandonedReason;
  end.failure_detail = kAbandonedDetail;
  end.classification_source = kAbandonedSource;
  return end;
}

}  // namespace

const char* name_of(AttemptStep step) {
  return kStepNames.at(static_cast<std::size_t>(step));
}

struct SqliteAttemptTable::Statements {
  explicit Statements(SqliteDatabase& database)
      : insert(database, insert_into(attempt_relation()), kCreating),
        insert_event(database, kInsertEvent, kMarking),
        end(database, end_statement("id = :id AND terminal_disposition IS NULL"), kEnding),
        count_ignored(database, kCountIgnored, kEnding),
        mark(database, kMark, kMarking),
        select_open(database, kSelectOpen, kReading),
        select_one(database, select_from(attempt_relation()) + kOne, kReading),
        select_chosen(database, chosen_attempts(), kReading),
        select_events(database, kSelectEvents, kReading),
        insert_marker(database, kInsertMarker, kNoting),
        close_marker(database, kCloseMarker, kNoting),
        count_markers(database, kCountMarkers, kReading),
        count_dispositions(database, disposition_counts(), kReading),
        select_left(database, any_left(), kSweeping),
        insert_abandoned(database,
                         "INSERT INTO attempt_events (attempt_id, step, at, process_id) SELECT id, "
                         "'ended', :at, :process_id FROM attempts WHERE " +
                             attempts_left(),
                         kSweeping),
        abandon(database, end_statement(attempts_left()), kSweeping),
        close_left_markers(database,
                           "UPDATE evaluation_markers SET closed_at = :at WHERE " + markers_left(),
                           kSweeping) {}

  SqliteStatement insert;
  SqliteStatement insert_event;
  SqliteStatement end;
  SqliteStatement count_ignored;
  SqliteStatement mark;
  SqliteStatement select_open;
  SqliteStatement select_one;
  SqliteStatement select_chosen;
  SqliteStatement select_events;
  SqliteStatement insert_marker;
  SqliteStatement close_marker;
  SqliteStatement count_markers;
  SqliteStatement count_dispositions;
  SqliteStatement select_left;
  SqliteStatement insert_abandoned;
  SqliteStatement abandon;
  SqliteStatement close_left_markers;
};

SqliteAttemptTable::SqliteAttemptTable(SqliteDatabase& database)
    : database_(database), statements_(std::make_unique<Statements>(database)) {}

SqliteAttemptTable::~SqliteAttemptTable() = default;

void SqliteAttemptTable::add_event(std::int64_t id, AttemptStep step, double at) {
  static_cast<void>(SqliteUse(statements_->insert_event)
                        .bind("id", id)
                        .bind("step", std::string_view(name_of(step)))
                        .bind("at", at)
                        .bind("process_id", this_process())
                        .change());
}

std::int64_t SqliteAttemptTable::create(const NewAttemptRow& attempt, double at) {
  AttemptRecord record;
  record.start = attempt;
  SqliteTransaction transaction(database_, kCreating);
  {
    SqliteUse use(statements_->insert);
    static_cast<void>(bind_columns(use, attempt_relation(), Written::AtInsertion, record).change());
  }
  const std::int64_t id = ::sqlite3_last_insert_rowid(database_.handle());
  add_event(id, AttemptStep::Created, at);
  transaction.commit();
  return id;
}

void SqliteAttemptTable::mark(std::int64_t id, AttemptStep step, double at) {
  if (step != AttemptStep::Dispatched && step != AttemptStep::BacktestStarted) {
    throw std::logic_error("an attempt is marked as dispatched or as in its backtest");
  }
  const int added = SqliteUse(statements_->mark)
                        .bind("id", id)
                        .bind("step", std::string_view(name_of(step)))
                        .bind("at", at)
                        .bind("process_id", this_process())
                        .change();
  if (added == 1) return;
  throw StoreError(
      database_.path(),
      fmt::format("{} as {} failed: there is no open attempt {}", kMarking, name_of(step), id),
      "create it first, and mark it before it ends");
}

bool SqliteAttemptTable::end(std::int64_t id, const AttemptEndRow& end, double at) {
  const AttemptRecord record = ended_record(end);
  SqliteTransaction transaction(database_, kEnding);
  int changed = 0;
  {
    SqliteUse use(statements_->end);
    bind_columns(use, attempt_relation(), Written::Later, record);
    changed = use.bind("id", id).change();
  }
  if (changed == 1) {
    add_event(id, AttemptStep::Ended, at);
  } else if (SqliteUse(statements_->count_ignored).bind("id", id).change() == 0) {
    throw StoreError(database_.path(),
                     fmt::format("{} failed: there is no attempt {}", kEnding, id),
                     "create it first");
  }
  transaction.commit();
  return changed == 1;
}

std::int64_t SqliteAttemptTable::open_marker(const NewMarker& marker, double at) {
  static_cast<void>(SqliteUse(statements_->insert_marker)
                        .bind("run", marker.run)
                        .bind("graph_key", marker.graph_key)
                        .bind("named_universe", marker.named_universe)
                        .bind("metaparameters", marker.metaparameters_json)
                        .bind("phase", marker.phase)
                        .bind("opened_at", at)
                        .change());
  return ::sqlite3_last_insert_rowid(database_.handle());
}

void SqliteAttemptTable::close_marker(std::int64_t id, double at) {
  static_cast<void>(SqliteUse(statements_->close_marker).bind("id", id).bind("at", at).change());
}

void SqliteAttemptTable::sync() {
  database_.sync_written_ahead("putting the ends of attempts on the disk");
}

std::optional<std::int64_t> SqliteAttemptTable::open_attempt(std::int64_t run,
                                                             const std::string& graph_key) {
  SqliteUse row(statements_->select_open);
  std::optional<std::int64_t> id;
  if (row.bind("run", run).bind("graph_key", graph_key).step()) row.read("id", id);
  return id;
}

AttemptRecord SqliteAttemptTable::read_attempt(SqliteUse& row) {
  AttemptRecord record = read_row(row, attempt_relation());
  SqliteUse events(statements_->select_events);
  events.bind("id", record.id);
  while (events.step())
    record.events.push_back({step_named(events.text("step")), events.real("at")});
  return record;
}

std::optional<AttemptRecord> SqliteAttemptTable::find(std::int64_t id) {
  SqliteUse row(statements_->select_one);
  if (!row.bind("id", id).step()) return std::nullopt;
  return read_attempt(row);
}

std::vector<AttemptRecord> SqliteAttemptTable::list(const AttemptFilter& filter) {
  SqliteUse rows(statements_->select_chosen);
  rows.bind("run", filter.run).bind("disposition", filter.disposition).bind("limit", filter.limit);
  std::vector<AttemptRecord> found;
  while (rows.step())
    found.push_back(read_attempt(rows));
  return found;
}

std::vector<DispositionCount> SqliteAttemptTable::dispositions(const AttemptFilter& filter) {
  SqliteUse rows(statements_->count_dispositions);
  rows.bind("run", filter.run).bind("disposition", filter.disposition);
  std::vector<DispositionCount> found;
  while (rows.step())
    found.push_back({rows.text("disposition"), rows.integer("count")});
  return found;
}

std::int64_t SqliteAttemptTable::open_markers(std::int64_t run) {
  SqliteUse row(statements_->count_markers);
  return row.bind("run", run).step() ? row.integer("count") : 0;
}

std::int64_t SqliteAttemptTable::abandon_open_attempts(double at) {
  // Most often nothing is left, and then no lock is taken.
  if (!SqliteUse(statements_->select_left).step()) return 0;
  const AttemptRecord record = ended_record(abandoned());
  SqliteTransaction transaction(database_, kSweeping);
  static_cast<void>(SqliteUse(statements_->insert_abandoned)
                        .bind("at", at)
                        .bind("process_id", this_process())
                        .change());
  SqliteUse use(statements_->abandon);
  bind_columns(use, attempt_relation(), Written::Later, record);
  const int abandoned = use.change();
  static_cast<void>(SqliteUse(statements_->close_left_markers).bind("at", at).change());
  transaction.commit();
  return abandoned;
}

}  // namespace varnholt::embedded
