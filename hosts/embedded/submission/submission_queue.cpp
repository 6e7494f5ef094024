#include "hosts/embedded/submission/submission_queue.hpp"

#include <algorithm>
#include <span>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/signal_pool/pool_errors.hpp"
#include "hosts/embedded/submission/luck_gate.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using Eigen::ArrayXd;
using genetic::Key;
using genetic::Mapping;
using genetic::Value;

namespace {

constexpr Key kSignalPoolName = genetic::key<"signal_pool_name">();
constexpr Key kMarketId = genetic::key<"market_id">();
constexpr Key kEraNumber = genetic::key<"era_number">();
constexpr Key kPendingReason = genetic::key<"_submission_pending_reason">();

// A payload need not name its pool, but what it names must be right.
void require_same(const Mapping& payload, Key key, const Value& expected) {
  const Value named = payload.get(key);
  if (named.is_absent() || named == expected) return;
  throw std::invalid_argument(
      fmt::format("a submission payload has {} {}, and this queue is that of {}; hand it to the "
                  "queue of its own pool",
                  key.view(), genetic::repr(named), genetic::repr(expected)));
}

void require_pnl(const ArrayXd& pnl) {
  if (pnl.size() > 0 && pnl.isFinite().all()) return;
  throw std::invalid_argument(pnl.size() == 0
                                  ? "a submission has no PnL; hand in that of its backtest"
                                  : "a submission's PnL has an entry that is no finite number");
}

Settlement settlement_of(const PoolMeasure& measure, const PoolThresholds& thresholds,
                         const std::optional<PoolRefusal>& refusal, double settled_at) {
  Settlement settlement;
  settlement.novelty = measure.novelty;
  settlement.novelty_threshold = thresholds.min_novelty;
  settlement.correlation = measure.correlation;
  settlement.correlation_threshold = thresholds.max_correlation;
  settlement.settled_at = settled_at;
  if (refusal) {
    settlement.refusal_reason = refusal->reason;
    settlement.refusal_detail = refusal->detail;
  }
  return settlement;
}

// What is to be measured on the days of this run first, or nothing.
std::optional<std::string> missing_measure(const SignalPool& pool, const SubmissionPnl& queued) {
  if (queued.measured == Measured::NotYet) return "it was evaluated on other prices";
  const std::optional<std::string> member = pool.first_unmeasured();
  if (!member) return std::nullopt;
  return fmt::format("pool member {} was submitted on other prices", *member);
}

std::optional<ArrayXd> readable_pnl(const SubmissionPnl& queued) {
  if (!queued.pnl) return std::nullopt;
  const auto size = static_cast<Eigen::Index>(queued.pnl->size());
  return ArrayXd(Eigen::Map<const ArrayXd>(queued.pnl->data(), size));
}

// What keeps a measure from being made for now, or nothing.
std::optional<std::string> try_to_measure(SignalPool& pool, const SubmissionPnl& queued,
                                          PoolMeasure& measure) {
  if (queued.measured == Measured::Never) {
    return fmt::format("it cannot be measured on these prices ({})", queued.problem);
  }
  const std::optional<ArrayXd> pnl = readable_pnl(queued);
  if (!pnl) return "its own PnL in the store cannot be read";
  if (!pnl->isFinite().all()) return "its own PnL in the store has an entry that is no number";
  try {
    measure = pool.measure(*pnl);
    return std::nullopt;
  } catch (const PoolMetricNotYetComputable& error) {
    return error.what();
  } catch (const PoolPnlMissing& error) {
    return error.what();
  }
}

}  // namespace

bool SyncReport::waits_for_measures() const {
  return std::any_of(waiting.begin(), waiting.end(),
                     [](const WaitingSubmission& waits) { return waits.is_for_measures; });
}

SubmissionQueue::SubmissionQueue(RunStore& store, SignalPool& pool,
                                 const PoolThresholds& thresholds, WallClock wall_clock,
                                 TrialCount trials)
    : store_(store),
      pool_(pool),
      thresholds_(thresholds),
      wall_clock_(std::move(wall_clock)),
      trials_(std::move(trials)) {
  check_pool_thresholds(thresholds);
  if (asks_for_luck() && !trials_) {
    throw std::invalid_argument(
        "a least deflated Sharpe ratio needs the number of trials; give the queue their count");
  }
}

void SubmissionQueue::check_payload(const Mapping& payload) const {
  if (!payload.get(genetic::keys::kEvalId).is_text()) {
    throw std::invalid_argument(
        fmt::format("a submission payload has eval_id {}; record the evaluation first, and put its "
                    "id in",
                    genetic::repr(payload.get(genetic::keys::kEvalId))));
  }
  require_same(payload, kSignalPoolName, pool_.identity().signal_pool_name);
  require_same(payload, kMarketId, pool_.identity().market_id);
  require_same(payload, kEraNumber, pool_.identity().era_number);
}

bool SubmissionQueue::enqueue(const Mapping& payload, const ArrayXd& pnl) {
  check_payload(payload);
  require_pnl(pnl);
  NewSubmission submission;
  submission.pool = pool_.identity();
  submission.eval_id = payload.get(genetic::keys::kEvalId).text();
  const Value pending = payload.get(kPendingReason);
  if (!pending.is_absent()) submission.pending_reason = genetic::str(pending);
  submission.payload_json = genetic::json_text(payload);
  submission.pnl = std::span(pnl.data(), static_cast<std::size_t>(pnl.size()));
  submission.queued_at = wall_clock_();
  try {
    // Whether it was added or there already makes no difference to the search.
    static_cast<void>(store_.submissions().enqueue(submission));
    return true;
  } catch (const StoreBusyError&) {
    return false;
  }
}

SyncReport SubmissionQueue::sync() {
  SyncReport report;
  try {
    const std::vector<std::int64_t> queued = store_.submissions().queued_numbers(pool_.identity());
    const std::int64_t trials = asks_for_luck() && !queued.empty() ? trials_() : 0;
    for (const std::int64_t id : queued)
      settle_number(id, trials, report);
  } catch (const StoreBusyError&) {
    report.store_was_busy = true;
  }
  return report;
}

void SubmissionQueue::settle_number(std::int64_t id, std::int64_t trials, SyncReport& report) {
  std::optional<SettledSubmission> settled;
  // While the lock is held nobody else can enqueue, settle or join the pool. Whatever leaves before
  // its end leaves the payload queued.
  store_.under_lock("settling a submission", [&] {
    const std::optional<SubmissionPnl> queued =
        store_.submissions().queued(id, pool_.identity().data_key);
    if (!queued) return RunStore::LockedWork::Undo;
    settled = settle(*queued, trials, report);
    return settled ? RunStore::LockedWork::Keep : RunStore::LockedWork::Undo;
  });
  if (settled) report.settled.push_back(*std::move(settled));
}

std::optional<SettledSubmission> SubmissionQueue::settle(const SubmissionPnl& queued,
                                                         std::int64_t trials, SyncReport& report) {
  pool_.refresh_under_lock();
  SettledSubmission settled{queued.id, queued.eval_id, {}, {}};
  if (const auto why = missing_measure(pool_, queued)) {
    report.waiting.push_back(
        {queued.id, queued.eval_id, *why + ", and not measured on these yet", true});
    return std::nullopt;
  }
  if (const auto why = try_to_measure(pool_, queued, settled.measure)) {
    report.waiting.push_back({queued.id, queued.eval_id, *why});
    return std::nullopt;
  }
  settled.refusal = refusal(settled.measure, thresholds_);
  if (!settled.refusal && asks_for_luck()) {
    settled.refusal = luck_refusal(*readable_pnl(queued), trials, thresholds_.min_deflated_sharpe);
  }
  if (!store_.submissions().settle(
          queued.id, settlement_of(settled.measure, thresholds_, settled.refusal, wall_clock_()))) {
    throw std::logic_error("a queued submission was settled under another's lock");
  }
  if (!settled.refusal) settled.replaced = retire_replaced(queued);
  return settled;
}

std::vector<std::string> SubmissionQueue::retire_replaced(const SubmissionPnl& joined) {
  std::vector<std::string> retired;
  for (const ReplacedMember& member : pool_.replaced_by(*readable_pnl(joined))) {
    const Retirement retirement{
        kReplacedByBetter,
        fmt::format("{} is like it and has the higher Sharpe ratio", joined.eval_id),
        wall_clock_()};
    if (store_.submissions().retire(member.submission, retirement)) {
      retired.push_back(member.eval_id);
    }
  }
  return retired;
}

}  // namespace varnholt::embedded
