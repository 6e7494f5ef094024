#include "hosts/embedded/store/sqlite_submission_table.hpp"

#include <array>
#include <cstddef>

#include <fmt/format.h>

#include "hosts/embedded/store/store_relations.hpp"

namespace varnholt::embedded {
namespace {

constexpr const char* kEnqueueing = "enqueueing a submission";
constexpr const char* kSettling = "settling a submission";
constexpr const char* kReading = "reading submissions";
constexpr const char* kReadingPool = "reading the members of a pool";

constexpr std::array kStateNames = {"queued", "submitted", "refused"};

// The run, the ids and the structure are those of the evaluation itself.
std::string insert_statement() {
  const Relation<SubmissionRecord>& relation = submission_relation();
  return "INSERT INTO submissions (run_id, evaluation_id, eval_id, graph_key, state, pnl, " +
         names_written(relation, Written::AtInsertion) +
         ") SELECT run_id, id, eval_id, graph_key, 'queued', :pnl, " +
         names_written(relation, Written::AtInsertion, ":") +
         " FROM evaluations WHERE eval_id = :eval_id "
         "ON CONFLICT (signal_pool_name, market_id, era_number, data_key, graph_key) "
         "WHERE state <> 'refused' DO NOTHING";
}

std::string settle_statement() {
  return "UPDATE submissions SET " + assignments(submission_relation()) +
         ", settled_order = (SELECT coalesce(max(settled_order), 0) + 1 FROM submissions) "
         "WHERE id = :id AND state = 'queued'";
}

constexpr const char* kSelectStanding =
    "SELECT s.id AS id FROM submissions s JOIN evaluations e ON e.graph_key = s.graph_key "
    "WHERE e.eval_id = :eval_id AND s.signal_pool_name = :signal_pool_name "
    "AND s.market_id = :market_id AND s.era_number = :era_number AND s.data_key = :data_key "
    "AND s.state <> 'refused'";

constexpr const char* kOne = "WHERE id = :id";
constexpr const char* kOfEvaluation =
    "WHERE evaluation_id = (SELECT id FROM evaluations WHERE eval_id = :eval_id) ORDER BY id";
constexpr const char* kFiltered =
    "WHERE (:run IS NULL OR run_id = :run) AND (:state IS NULL OR state = :state) ORDER BY id";

constexpr const char* kPnlColumns =
    "id, coalesce(settled_order, 0) AS settled_order, eval_id, graph_key, pnl";
constexpr const char* kMembers =
    "AND state = 'submitted' AND settled_order > :settled_order ORDER BY settled_order";
constexpr const char* kNextQueued = "AND state = 'queued' AND id > :id ORDER BY id LIMIT 1";
constexpr const char* kSubmitted = "AND state = 'submitted' ORDER BY settled_order";

std::string submissions_where(const char* condition) {
  return select_from(submission_relation()) + condition;
}

std::string of_pool(const char* columns, const char* condition) {
  return std::string("SELECT ") + columns +
         " FROM submissions WHERE signal_pool_name = :signal_pool_name AND market_id = :market_id "
         "AND era_number = :era_number AND data_key = :data_key " +
         condition;
}

std::vector<SubmissionRecord> read_submissions(SqliteUse& rows) {
  std::vector<SubmissionRecord> found;
  while (rows.step())
    found.push_back(read_row(rows, submission_relation()));
  return found;
}

SubmissionPnl read_pnl(const SqliteUse& row) {
  return {row.integer("id"), row.integer("settled_order"), row.text("eval_id"),
          row.text("graph_key"), row.series("pnl")};
}

SqliteUse& bind_pool(SqliteUse& use, const PoolIdentity& pool) {
  return use.bind("signal_pool_name", pool.signal_pool_name)
      .bind("market_id", pool.market_id)
      .bind("era_number", pool.era_number)
      .bind("data_key", pool.data_key);
}

}  // namespace

const char* name_of(SubmissionState state) {
  return kStateNames.at(static_cast<std::size_t>(state));
}

struct SqliteSubmissionTable::Statements {
  explicit Statements(SqliteDatabase& database)
      : insert(database, insert_statement(), kEnqueueing),
        select_standing(database, kSelectStanding, kEnqueueing),
        settle(database, settle_statement(), kSettling),
        select_one(database, submissions_where(kOne), kReading),
        select_of_evaluation(database, submissions_where(kOfEvaluation), kReading),
        select_filtered(database, submissions_where(kFiltered), kReading),
        select_members(database, of_pool(kPnlColumns, kMembers), kReadingPool),
        select_numbers(database, of_pool("id", kSubmitted), kReadingPool),
        select_next_queued(database, of_pool(kPnlColumns, kNextQueued), kSettling) {}

  SqliteStatement insert;
  SqliteStatement select_standing;
  SqliteStatement settle;
  SqliteStatement select_one;
  SqliteStatement select_of_evaluation;
  SqliteStatement select_filtered;
  SqliteStatement select_members;
  SqliteStatement select_numbers;
  SqliteStatement select_next_queued;
};

SqliteSubmissionTable::SqliteSubmissionTable(SqliteDatabase& database)
    : database_(database), statements_(std::make_unique<Statements>(database)) {}

SqliteSubmissionTable::~SqliteSubmissionTable() = default;

Enqueued SqliteSubmissionTable::enqueue(const NewSubmission& submission) {
  SubmissionRecord record;
  record.pool = submission.pool;
  record.pending_reason = submission.pending_reason;
  record.payload_json = submission.payload_json;
  record.queued_at = submission.queued_at;
  SqliteTransaction transaction(database_, kEnqueueing);
  SqliteUse insertion(statements_->insert);
  bind_columns(insertion, submission_relation(), Written::AtInsertion, record);
  const int added =
      insertion.bind("eval_id", submission.eval_id).bind("pnl", submission.pnl).change();
  if (added == 1) {
    const std::int64_t id = ::sqlite3_last_insert_rowid(database_.handle());
    transaction.commit();
    return {id, true};
  }
  SqliteUse standing(statements_->select_standing);
  standing.bind("eval_id", submission.eval_id);
  if (bind_pool(standing, submission.pool).step()) return {standing.integer("id"), false};
  throw StoreError(
      database_.path(),
      fmt::format("{} failed: there is no evaluation {}", kEnqueueing, submission.eval_id),
      "record the evaluation first");
}

bool SqliteSubmissionTable::settle(std::int64_t id, const Settlement& settlement) {
  SubmissionRecord record;
  record.state = settlement.refusal_reason ? SubmissionState::Refused : SubmissionState::Submitted;
  record.settlement = settlement;
  SqliteUse use(statements_->settle);
  bind_columns(use, submission_relation(), Written::Later, record);
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
  bind_pool(rows, pool).bind("settled_order", settled_order);
  std::vector<SubmissionPnl> found;
  while (rows.step())
    found.push_back(read_pnl(rows));
  return found;
}

std::vector<std::int64_t> SqliteSubmissionTable::member_numbers(const PoolIdentity& pool) {
  SqliteUse rows(statements_->select_numbers);
  bind_pool(rows, pool);
  std::vector<std::int64_t> found;
  while (rows.step())
    found.push_back(rows.integer("id"));
  return found;
}

std::optional<SubmissionPnl> SqliteSubmissionTable::next_queued(const PoolIdentity& pool,
                                                                std::int64_t id) {
  SqliteUse rows(statements_->select_next_queued);
  if (!bind_pool(rows, pool).bind("id", id).step()) return std::nullopt;
  return read_pnl(rows);
}

}  // namespace varnholt::embedded
