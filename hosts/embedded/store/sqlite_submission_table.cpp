#include "hosts/embedded/store/sqlite_submission_table.hpp"

#include <array>
#include <cstddef>

#include <fmt/format.h>

#include "hosts/embedded/store/store_relations.hpp"

namespace varnholt::embedded {
namespace {

constexpr const char* kEnqueueing = "enqueueing a submission";
constexpr const char* kSettling = "settling a submission";
constexpr const char* kAnnouncing = "announcing a submission";
constexpr const char* kCompleting = "enqueueing what an earlier run announced";
constexpr const char* kReading = "reading submissions";
constexpr const char* kReadingPool = "reading the members of a pool";
constexpr const char* kMeasuring = "recording the measure of a pool member";

constexpr auto kStateNames = std::to_array({"queued", "submitted", "refused"});

// "signal_pool_name, market_id, ...", each after the mark: what a payload is enqueued with.
std::string given(const char* mark = "") {
  return names_written(submission_relation(), Written::AtInsertion, mark);
}

// The run, the ids and the structure are those of the evaluation itself.
std::string insert_from(const std::string& values, const std::string& source) {
  return "INSERT INTO submissions (run_id, evaluation_id, eval_id, graph_key, state, pnl, " +
         given() + ") SELECT e.run_id, e.id, e.eval_id, e.graph_key, 'queued', " + values +
         " FROM " + source +
         " ON CONFLICT (signal_pool_name, market_id, graph_key) "
         "WHERE state <> 'refused' DO NOTHING";
}

std::string insert_statement() {
  return insert_from(":pnl, " + given(":"), "evaluations e WHERE e.eval_id = :eval_id");
}

std::string announce_statement() {
  return "INSERT INTO announced_submissions (evaluation_id, pnl, " + given() +
         ") SELECT id, :pnl, " + given(":") + " FROM evaluations WHERE eval_id = :eval_id";
}

// Nobody else will enqueue what they announced.
constexpr const char* kOfEndedRuns =
    "announced_submissions a JOIN evaluations e ON e.id = a.evaluation_id "
    "JOIN runs r ON r.id = e.run_id WHERE r.ended_at IS NOT NULL";

std::string complete_statement() {
  return insert_from("a.pnl, " + given("a."), std::string(kOfEndedRuns) + " ORDER BY e.id");
}

std::string completable_statement() {
  return std::string("SELECT 1 FROM ") + kOfEndedRuns + " LIMIT 1";
}

std::string delete_completed_statement() {
  return std::string("DELETE FROM announced_submissions WHERE evaluation_id IN (SELECT ") +
         "a.evaluation_id FROM " + kOfEndedRuns + ")";
}

constexpr const char* kDeleteAnnounced =
    "DELETE FROM announced_submissions WHERE evaluation_id = "
    "(SELECT id FROM evaluations WHERE eval_id = :eval_id)";
constexpr const char* kCountAnnounced =
    "SELECT count(*) AS count FROM announced_submissions a "
    "JOIN evaluations e ON e.id = a.evaluation_id WHERE e.run_id = :run";

std::string settle_statement() {
  return "UPDATE submissions SET " + assignments(submission_relation()) +
         ", settled_order = (SELECT coalesce(max(settled_order), 0) + 1 FROM submissions) "
         "WHERE id = :id AND state = 'queued'";
}

// Its place in the order of settlement stays: it was a member until then.
constexpr const char* kRetire =
    "UPDATE submissions SET state = 'refused', refusal_reason = :reason, "
    "refusal_detail = :detail, settled_at = :retired_at WHERE id = :id AND state = 'submitted'";

constexpr const char* kSelectStanding =
    "SELECT s.id AS id FROM submissions s JOIN evaluations e ON e.graph_key = s.graph_key "
    "WHERE e.eval_id = :eval_id AND s.signal_pool_name = :signal_pool_name "
    "AND s.market_id = :market_id AND s.state <> 'refused'";

constexpr const char* kOne = "WHERE id = :id";
constexpr const char* kOfEvaluation =
    "WHERE evaluation_id = (SELECT id FROM evaluations WHERE eval_id = :eval_id) ORDER BY id";
constexpr const char* kFiltered =
    "WHERE (:run IS NULL OR run_id = :run) AND (:state IS NULL OR state = :state) "
    "ORDER BY settled_order IS NULL, settled_order, id";

// The PnL of its own submission where that was on the same days, and otherwise that of its measure.
constexpr const char* kPnlColumns =
    "s.id AS id, coalesce(s.settled_order, 0) AS settled_order, s.eval_id AS eval_id, "
    "s.graph_key AS graph_key, CASE WHEN s.data_key = :data_key THEN s.pnl ELSE m.pnl END AS pnl, "
    "s.data_key = :data_key OR m.id IS NOT NULL AS is_measured, "
    "CASE WHEN s.data_key <> :data_key THEN m.problem END AS problem";
constexpr const char* kFromPnl =
    " FROM submissions s LEFT JOIN member_measures m ON m.submission_id = s.id "
    "AND m.data_key = :data_key AND s.data_key <> :data_key ";
constexpr const char* kMembers =
    "WHERE s.signal_pool_name = :signal_pool_name AND s.market_id = :market_id "
    "AND s.state = 'submitted' AND s.settled_order > :settled_order ORDER BY s.settled_order";
constexpr const char* kSelectUnmeasured =
    "SELECT s.id AS id, s.eval_id AS eval_id, e.graph AS graph "
    "FROM submissions s JOIN evaluations e ON e.id = s.evaluation_id "
    "WHERE s.signal_pool_name = :signal_pool_name AND s.market_id = :market_id "
    "AND s.state <> 'refused' AND s.data_key <> :data_key "
    "AND NOT EXISTS (SELECT 1 FROM member_measures m WHERE m.submission_id = s.id "
    "AND m.data_key = :data_key AND m.pnl IS NOT NULL) ORDER BY s.id";
constexpr const char* kRecordMeasure =
    "INSERT INTO member_measures (submission_id, data_key, run_id, statistics, sharpe, pnl, "
    "problem, measured_at) VALUES (:submission, :data_key, :run, :statistics, :sharpe, :pnl, "
    ":problem, :measured_at) ON CONFLICT (submission_id, data_key) DO UPDATE SET "
    "run_id = excluded.run_id, statistics = excluded.statistics, sharpe = excluded.sharpe, "
    "pnl = excluded.pnl, problem = excluded.problem, measured_at = excluded.measured_at";
constexpr const char* kSelectMeasures =
    "SELECT data_key, run_id, statistics, sharpe, problem, measured_at FROM member_measures "
    "WHERE submission_id = :submission ORDER BY measured_at, id";
constexpr const char* kSelectNumbers =
    "SELECT id FROM submissions WHERE signal_pool_name = :signal_pool_name "
    "AND market_id = :market_id AND state = 'submitted' ORDER BY settled_order";
constexpr const char* kSelectQueuedNumbers =
    "SELECT s.id AS id FROM submissions s JOIN evaluations e ON e.id = s.evaluation_id "
    "WHERE s.signal_pool_name = :signal_pool_name AND s.market_id = :market_id "
    "AND s.state = 'queued' "
    "ORDER BY e.run_id, e.generation, e.quality_score DESC, e.candidate_number, s.id";

std::string submissions_where(const char* condition) {
  return select_from(submission_relation()) + condition;
}

std::string select_with_pnl(const char* condition) {
  return std::string("SELECT ") + kPnlColumns + kFromPnl + condition;
}

std::vector<SubmissionRecord> read_submissions(SqliteUse& rows) {
  std::vector<SubmissionRecord> found;
  while (rows.step())
    found.push_back(read_row(rows, submission_relation()));
  return found;
}

SubmissionPnl read_pnl(const SqliteUse& row) {
  SubmissionPnl found{row.integer("id"), row.integer("settled_order"), row.text("eval_id"),
                      row.text("graph_key"), row.series("pnl")};
  if (row.integer("is_measured") == 0) found.measured = Measured::NotYet;
  if (!row.is_null("problem")) {
    found.measured = Measured::Never;
    found.problem = row.text("problem");
  }
  return found;
}

std::vector<std::int64_t> numbers(SqliteUse& rows) {
  std::vector<std::int64_t> found;
  while (rows.step())
    found.push_back(rows.integer("id"));
  return found;
}

SqliteUse& bind_pool(SqliteUse& use, const PoolIdentity& pool) {
  return use.bind("signal_pool_name", pool.signal_pool_name).bind("market_id", pool.market_id);
}

SubmissionRecord queued_record(const NewSubmission& submission) {
  SubmissionRecord record;
  record.pool = submission.pool;
  record.pending_reason = submission.pending_reason;
  record.payload_json = submission.payload_json;
  record.queued_at = submission.queued_at;
  return record;
}

[[noreturn]] void refuse_missing(const SqliteDatabase& database, const char* doing,
                                 const std::string& eval_id) {
  throw StoreError(database.path(),
                   fmt::format("{} failed: there is no evaluation {}", doing, eval_id),
                   "record the evaluation first");
}

}  // namespace

const char* name_of(SubmissionState state) {
  return kStateNames.at(static_cast<std::size_t>(state));
}

struct SqliteSubmissionTable::Statements {
  explicit Statements(SqliteDatabase& database)
      : insert(database, insert_statement(), kEnqueueing),
        announce(database, announce_statement(), kAnnouncing),
        delete_announced(database, kDeleteAnnounced, kEnqueueing),
        count_announced(database, kCountAnnounced, kReading),
        select_completable(database, completable_statement(), kCompleting),
        complete(database, complete_statement(), kCompleting),
        delete_completed(database, delete_completed_statement(), kCompleting),
        select_standing(database, kSelectStanding, kEnqueueing),
        settle(database, settle_statement(), kSettling),
        retire(database, kRetire, kSettling),
        select_one(database, submissions_where(kOne), kReading),
        select_of_evaluation(database, submissions_where(kOfEvaluation), kReading),
        select_filtered(database, submissions_where(kFiltered), kReading),
        select_members(database, select_with_pnl(kMembers), kReadingPool),
        select_numbers(database, kSelectNumbers, kReadingPool),
        select_unmeasured(database, kSelectUnmeasured, kReadingPool),
        record_measure(database, kRecordMeasure, kMeasuring),
        select_measures(database, kSelectMeasures, kReadingPool),
        data_version(database, "SELECT data_version AS version FROM pragma_data_version",
                     kReadingPool),
        select_queued_numbers(database, kSelectQueuedNumbers, kSettling),
        select_queued(database, select_with_pnl("WHERE s.id = :id AND s.state = 'queued'"),
                      kSettling) {}

  SqliteStatement insert;
  SqliteStatement announce;
  SqliteStatement delete_announced;
  SqliteStatement count_announced;
  SqliteStatement select_completable;
  SqliteStatement complete;
  SqliteStatement delete_completed;
  SqliteStatement select_standing;
  SqliteStatement settle;
  SqliteStatement retire;
  SqliteStatement select_one;
  SqliteStatement select_of_evaluation;
  SqliteStatement select_filtered;
  SqliteStatement select_members;
  SqliteStatement select_numbers;
  SqliteStatement select_unmeasured;
  SqliteStatement record_measure;
  SqliteStatement select_measures;
  SqliteStatement data_version;
  SqliteStatement select_queued_numbers;
  SqliteStatement select_queued;
};

SqliteSubmissionTable::SqliteSubmissionTable(SqliteDatabase& database)
    : database_(database), statements_(std::make_unique<Statements>(database)) {}

SqliteSubmissionTable::~SqliteSubmissionTable() = default;

void SqliteSubmissionTable::announce(const NewSubmission& submission) {
  const SubmissionRecord record = queued_record(submission);
  SqliteUse use(statements_->announce);
  bind_columns(use, submission_relation(), Written::AtInsertion, record);
  const int added = use.bind("eval_id", submission.eval_id).bind("pnl", submission.pnl).change();
  if (added == 0) refuse_missing(database_, kAnnouncing, submission.eval_id);
}

Enqueued SqliteSubmissionTable::enqueue(const NewSubmission& submission) {
  const SubmissionRecord record = queued_record(submission);
  SqliteTransaction transaction(database_, kEnqueueing);
  static_cast<void>(
      SqliteUse(statements_->delete_announced).bind("eval_id", submission.eval_id).change());
  SqliteUse insertion(statements_->insert);
  bind_columns(insertion, submission_relation(), Written::AtInsertion, record);
  const int added =
      insertion.bind("eval_id", submission.eval_id).bind("pnl", submission.pnl).change();
  Enqueued enqueued;
  if (added == 1) {
    enqueued = {::sqlite3_last_insert_rowid(database_.handle()), true};
  } else {
    SqliteUse standing(statements_->select_standing);
    standing.bind("eval_id", submission.eval_id);
    if (!bind_pool(standing, submission.pool).step()) {
      refuse_missing(database_, kEnqueueing, submission.eval_id);
    }
    enqueued = {standing.integer("id"), false};
  }
  transaction.commit();
  return enqueued;
}

std::int64_t SqliteSubmissionTable::complete_announced() {
  // Most often there is none, and then no lock is taken.
  if (!SqliteUse(statements_->select_completable).step()) return 0;
  SqliteTransaction transaction(database_, kCompleting);
  const int completed = SqliteUse(statements_->complete).change();
  static_cast<void>(SqliteUse(statements_->delete_completed).change());
  transaction.commit();
  return completed;
}

std::int64_t SqliteSubmissionTable::announced(std::int64_t run) {
  SqliteUse row(statements_->count_announced);
  return row.bind("run", run).step() ? row.integer("count") : 0;
}

bool SqliteSubmissionTable::settle(std::int64_t id, const Settlement& settlement) {
  SubmissionRecord record;
  record.state = settlement.refusal_reason ? SubmissionState::Refused : SubmissionState::Submitted;
  record.settlement = settlement;
  SqliteUse use(statements_->settle);
  bind_columns(use, submission_relation(), Written::Later, record);
  ++changes_here_;
  return use.bind("id", id).change() == 1;
}

bool SqliteSubmissionTable::retire(std::int64_t id, const Retirement& retirement) {
  SqliteUse use(statements_->retire);
  use.bind("reason", retirement.reason)
      .bind("detail", retirement.detail)
      .bind("retired_at", retirement.retired_at);
  ++changes_here_;
  return use.bind("id", id).change() == 1;
}

std::optional<SubmissionRecord> SqliteSubmissionTable::find(std::int64_t id) {
  SqliteUse rows(statements_->select_one);
  if (!rows.bind("id", id).step()) return std::nullopt;
  return read_row(rows, submission_relation());
}

std::vector<SubmissionRecord> SqliteSubmissionTable::of_evaluation(const std::string& eval_id) {
  SqliteUse rows(statements_->select_of_evaluation);
  rows.bind("eval_id", eval_id);
  return read_submissions(rows);
}

std::vector<SubmissionRecord> SqliteSubmissionTable::list(const SubmissionFilter& filter) {
  std::optional<std::string> state;
  if (filter.state) state = name_of(*filter.state);
  SqliteUse rows(statements_->select_filtered);
  rows.bind("run", filter.run).bind("state", state);
  return read_submissions(rows);
}

std::vector<SubmissionPnl> SqliteSubmissionTable::members(const PoolIdentity& pool,
                                                          std::int64_t settled_order) {
  SqliteUse rows(statements_->select_members);
  bind_pool(rows, pool).bind("data_key", pool.data_key).bind("settled_order", settled_order);
  std::vector<SubmissionPnl> found;
  while (rows.step())
    found.push_back(read_pnl(rows));
  return found;
}

std::vector<std::int64_t> SqliteSubmissionTable::member_numbers(const PoolIdentity& pool) {
  SqliteUse rows(statements_->select_numbers);
  bind_pool(rows, pool);
  return numbers(rows);
}

std::vector<UnmeasuredSubmission> SqliteSubmissionTable::unmeasured(const PoolIdentity& pool) {
  SqliteUse rows(statements_->select_unmeasured);
  bind_pool(rows, pool).bind("data_key", pool.data_key);
  std::vector<UnmeasuredSubmission> found;
  while (rows.step())
    found.push_back({rows.integer("id"), rows.text("eval_id"), rows.text("graph")});
  return found;
}

void SqliteSubmissionTable::record_measure(const NewMeasure& measure) {
  SqliteUse use(statements_->record_measure);
  use.bind("submission", measure.submission)
      .bind("data_key", measure.data_key)
      .bind("run", measure.run)
      .bind("statistics", measure.statistics_json)
      .bind("sharpe", measure.sharpe)
      .bind("problem", measure.problem)
      .bind("measured_at", measure.measured_at);
  if (measure.pnl) use.bind("pnl", std::span<const double>(*measure.pnl));
  static_cast<void>(use.change());
  ++changes_here_;
}

std::vector<NewMeasure> SqliteSubmissionTable::measures(std::int64_t submission) {
  SqliteUse rows(statements_->select_measures);
  rows.bind("submission", submission);
  std::vector<NewMeasure> found;
  while (rows.step()) {
    NewMeasure& measure = found.emplace_back();
    measure.submission = submission;
    measure.data_key = rows.text("data_key");
    measure.run = rows.integer("run_id");
    rows.read("statistics", measure.statistics_json);
    rows.read("sharpe", measure.sharpe);
    rows.read("problem", measure.problem);
    measure.measured_at = rows.real("measured_at");
  }
  return found;
}

std::int64_t SqliteSubmissionTable::members_version() {
  // What other connections have committed changes the database's own version; of what this one does
  // only settling makes members, and only a measure changes one.
  SqliteUse row(statements_->data_version);
  const std::int64_t version = row.step() ? row.integer("version") : 0;
  return version * (std::int64_t{1} << 32) + changes_here_;
}

std::vector<std::int64_t> SqliteSubmissionTable::queued_numbers(const PoolIdentity& pool) {
  SqliteUse rows(statements_->select_queued_numbers);
  bind_pool(rows, pool);
  return numbers(rows);
}

std::optional<SubmissionPnl> SqliteSubmissionTable::queued(std::int64_t id,
                                                           const std::string& data_key) {
  SqliteUse rows(statements_->select_queued);
  if (!rows.bind("id", id).bind("data_key", data_key).step()) return std::nullopt;
  return read_pnl(rows);
}

}  // namespace varnholt::embedded
