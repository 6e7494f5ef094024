#include "hosts/embedded/store/submission_table.hpp"

#include <array>
#include <cstddef>

#include <fmt/format.h>

#include "hosts/embedded/store/sqlite_database.hpp"

namespace varnholt::embedded {
namespace {

constexpr const char* kEnqueueing = "enqueueing a submission";
constexpr const char* kSettling = "settling a submission";
constexpr const char* kReading = "reading submissions";
constexpr const char* kReadingPool = "reading the members of a pool";

constexpr std::array kStateNames = {"queued", "submitted", "refused"};

// The run, the ids and the structure are those of the evaluation itself.
constexpr const char* kInsert =
    "INSERT INTO submissions (run_id, evaluation_id, eval_id, graph_key, signal_pool_name, "
    "market_id, era_number, data_key, state, pending_reason, payload, pnl, queued_at) "
    "SELECT run_id, id, eval_id, graph_key, ?2, ?3, ?4, ?5, 'queued', ?6, ?7, ?8, ?9 "
    "FROM evaluations WHERE eval_id = ?1 "
    "ON CONFLICT (signal_pool_name, market_id, era_number, data_key, graph_key) "
    "WHERE state <> 'refused' DO NOTHING";
constexpr const char* kSelectStanding =
    "SELECT s.id FROM submissions s JOIN evaluations e ON e.graph_key = s.graph_key "
    "WHERE e.eval_id = ?1 AND s.signal_pool_name = ?2 AND s.market_id = ?3 AND s.era_number = ?4 "
    "AND s.data_key = ?5 AND s.state <> 'refused'";
constexpr const char* kSettle =
    "UPDATE submissions SET state = CASE WHEN ?6 IS NULL THEN 'submitted' ELSE 'refused' END, "
    "score = ?2, score_threshold = ?3, correlation = ?4, correlation_threshold = ?5, "
    "refusal_reason = ?6, refusal_detail = ?7, settled_at = ?8, "
    "settled_order = (SELECT coalesce(max(settled_order), 0) + 1 FROM submissions) "
    "WHERE id = ?1 AND state = 'queued'";

constexpr const char* kColumns =
    "SELECT id, run_id, eval_id, graph_key, signal_pool_name, market_id, era_number, data_key, "
    "state, pending_reason, payload, queued_at, score, score_threshold, correlation, "
    "correlation_threshold, refusal_reason, refusal_detail, settled_at FROM submissions ";
constexpr const char* kOne = "WHERE id = ?";
constexpr const char* kOfEvaluation =
    "WHERE evaluation_id = (SELECT id FROM evaluations WHERE eval_id = ?) ORDER BY id";
constexpr const char* kFiltered =
    "WHERE (?1 IS NULL OR run_id = ?1) AND (?2 IS NULL OR state = ?2) ORDER BY id";

constexpr const char* kPnlColumns =
    "SELECT id, coalesce(settled_order, 0), eval_id, graph_key, pnl FROM submissions ";
constexpr const char* kOfPool =
    "WHERE signal_pool_name = ?1 AND market_id = ?2 AND era_number = ?3 AND data_key = ?4 ";
constexpr const char* kMembers =
    "AND state = 'submitted' AND settled_order > ?5 "
    "ORDER BY settled_order";
constexpr const char* kNextQueued = "AND state = 'queued' AND id > ?5 ORDER BY id LIMIT 1";
constexpr const char* kNumbers = "SELECT id FROM submissions ";
constexpr const char* kSubmitted = "AND state = 'submitted' ORDER BY settled_order";

std::string joined(std::initializer_list<const char*> parts) {
  std::string text;
  for (const char* part : parts)
    text += part;
  return text;
}

SubmissionState state_named(const std::string& name) {
  for (std::size_t i = 0; i < kStateNames.size(); ++i) {
    if (name == kStateNames.at(i)) return static_cast<SubmissionState>(i);
  }
  throw std::logic_error("the table lets no other state in than its own: " + name);
}

SubmissionRecord read_submission(SqliteUse& row) {
  SubmissionRecord record;
  record.id = row.integer();
  record.run = row.integer();
  record.eval_id = row.text();
  record.graph_key = row.text();
  record.pool.signal_pool_name = row.text();
  record.pool.market_id = row.integer();
  record.pool.era_number = row.integer();
  record.pool.data_key = row.text();
  record.state = state_named(row.text());
  record.pending_reason = row.optional_text();
  record.payload_json = row.text();
  record.queued_at = row.real();
  if (record.state == SubmissionState::Queued) return record;
  Settlement& settlement = record.settlement.emplace();
  settlement.score = row.real();
  settlement.score_threshold = row.real();
  settlement.correlation = row.real();
  settlement.correlation_threshold = row.real();
  settlement.refusal_reason = row.optional_text();
  settlement.refusal_detail = row.optional_text();
  settlement.settled_at = row.real();
  return record;
}

std::vector<SubmissionRecord> read_submissions(SqliteUse& rows) {
  std::vector<SubmissionRecord> found;
  while (rows.step())
    found.push_back(read_submission(rows));
  return found;
}

SubmissionPnl read_pnl(SqliteUse& row) {
  SubmissionPnl pnl;
  pnl.id = row.integer();
  pnl.settled_order = row.integer();
  pnl.eval_id = row.text();
  pnl.graph_key = row.text();
  pnl.pnl = row.optional_series();
  return pnl;
}

SqliteUse& bind_pool(SqliteUse& use, const PoolIdentity& pool) {
  return use.bind(pool.signal_pool_name)
      .bind(pool.market_id)
      .bind(pool.era_number)
      .bind(pool.data_key);
}

}  // namespace

const char* name_of(SubmissionState state) {
  return kStateNames.at(static_cast<std::size_t>(state));
}

struct SubmissionTable::Statements {
  explicit Statements(SqliteDatabase& database)
      : insert(database, kInsert, kEnqueueing),
        select_standing(database, kSelectStanding, kEnqueueing),
        settle(database, kSettle, kSettling),
        select_one(database, joined({kColumns, kOne}).c_str(), kReading),
        select_of_evaluation(database, joined({kColumns, kOfEvaluation}).c_str(), kReading),
        select_filtered(database, joined({kColumns, kFiltered}).c_str(), kReading),
        select_members(database, joined({kPnlColumns, kOfPool, kMembers}).c_str(), kReadingPool),
        select_numbers(database, joined({kNumbers, kOfPool, kSubmitted}).c_str(), kReadingPool),
        select_next_queued(database, joined({kPnlColumns, kOfPool, kNextQueued}).c_str(),
                           kSettling) {}

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

SubmissionTable::SubmissionTable(SqliteDatabase& database)
    : database_(database), statements_(std::make_unique<Statements>(database)) {}

SubmissionTable::~SubmissionTable() = default;

Enqueued SubmissionTable::enqueue(const NewSubmission& submission) {
  SqliteTransaction transaction(database_, kEnqueueing);
  SqliteUse insertion(statements_->insert);
  insertion.bind(submission.eval_id);
  const int added = bind_pool(insertion, submission.pool)
                        .bind(submission.pending_reason)
                        .bind(submission.payload_json)
                        .bind(submission.pnl)
                        .bind(submission.queued_at)
                        .change();
  if (added == 1) {
    const std::int64_t id = ::sqlite3_last_insert_rowid(database_.handle());
    transaction.commit();
    return {id, true};
  }
  SqliteUse standing(statements_->select_standing);
  standing.bind(submission.eval_id);
  if (bind_pool(standing, submission.pool).step()) return {standing.integer(), false};
  throw StoreError(
      database_.path(),
      fmt::format("{} failed: there is no evaluation {}", kEnqueueing, submission.eval_id),
      "record the evaluation first");
}

bool SubmissionTable::settle(std::int64_t id, const Settlement& settlement) {
  SqliteUse use(statements_->settle);
  return use.bind(id)
             .bind(settlement.score)
             .bind(settlement.score_threshold)
             .bind(settlement.correlation)
             .bind(settlement.correlation_threshold)
             .bind(settlement.refusal_reason)
             .bind(settlement.refusal_detail)
             .bind(settlement.settled_at)
             .change() == 1;
}

std::optional<SubmissionRecord> SubmissionTable::find(std::int64_t id) {
  SqliteUse rows(statements_->select_one);
  if (!rows.bind(id).step()) return std::nullopt;
  return read_submission(rows);
}

std::vector<SubmissionRecord> SubmissionTable::of_evaluation(const std::string& eval_id) {
  SqliteUse rows(statements_->select_of_evaluation);
  rows.bind(eval_id);
  return read_submissions(rows);
}

std::vector<SubmissionRecord> SubmissionTable::list(const SubmissionFilter& filter) {
  std::optional<std::string> state;
  if (filter.state) state = name_of(*filter.state);
  SqliteUse rows(statements_->select_filtered);
  rows.bind(filter.run).bind(state);
  return read_submissions(rows);
}

std::vector<SubmissionPnl> SubmissionTable::members(const PoolIdentity& pool,
                                                    std::int64_t settled_order) {
  SqliteUse rows(statements_->select_members);
  bind_pool(rows, pool).bind(settled_order);
  std::vector<SubmissionPnl> found;
  while (rows.step())
    found.push_back(read_pnl(rows));
  return found;
}

std::vector<std::int64_t> SubmissionTable::member_numbers(const PoolIdentity& pool) {
  SqliteUse rows(statements_->select_numbers);
  bind_pool(rows, pool);
  std::vector<std::int64_t> found;
  while (rows.step())
    found.push_back(rows.integer());
  return found;
}

std::optional<SubmissionPnl> SubmissionTable::next_queued(const PoolIdentity& pool,
                                                          std::int64_t id) {
  SqliteUse rows(statements_->select_next_queued);
  if (!bind_pool(rows, pool).bind(id).step()) return std::nullopt;
  return read_pnl(rows);
}

}  // namespace varnholt::embedded
