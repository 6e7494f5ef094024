#include "hosts/embedded/signal_pool/signal_pool.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/signal_pool/pool_errors.hpp"
#include "hosts/embedded/system/digest.hpp"

namespace varnholt::embedded {

using Eigen::ArrayXd;

namespace {

std::string digest_of(const ArrayXd& pnl) {
  const auto* const bytes = reinterpret_cast<const char*>(pnl.data());
  return sha256_hex({bytes, static_cast<std::size_t>(pnl.size()) * sizeof(double)});
}

PoolMeasure nothing_new() {
  PoolMeasure measure;
  measure.novelty = 0.0;
  return measure;
}

}  // namespace

SignalPool::SignalPool(RunStore& store, PoolIdentity identity, Eigen::Index minimum_days,
                       double least_novelty)
    : store_(store),
      identity_(std::move(identity)),
      minimum_days_(minimum_days),
      least_novelty_(least_novelty) {}

bool SignalPool::refresh() {
  try {
    // Reading alone needs no lock; but while another process writes, who belongs to the pool is
    // about to change.
    store_.under_lock("confirming the members of a pool", [this] {
      refresh_under_lock();
      return RunStore::LockedWork::Undo;
    });
    return true;
  } catch (const StoreBusyError&) {
    return false;
  }
}

void SignalPool::refresh_under_lock() {
  // Members may have been taken out by hand, and a PnL that was missing put back: then all is read
  // anew.
  if (!is_still_good(store_.submissions().member_numbers(identity_))) {
    members_.clear();
    remembered_.clear();
    last_settled_order_ = 0;
  }
  read_members();
}

bool SignalPool::is_still_good(const std::vector<std::int64_t>& submissions) const {
  return members_.size() <= submissions.size() &&
         std::equal(members_.begin(), members_.end(), submissions.begin(),
                    [](const Member& member, std::int64_t submission) {
                      return member.submission == submission && member.series;
                    });
}

void SignalPool::read_members() {
  for (const SubmissionPnl& found : store_.submissions().members(identity_, last_settled_order_)) {
    Member& member = members_.emplace_back();
    member.submission = found.id;
    member.eval_id = found.eval_id;
    last_settled_order_ = found.settled_order;
    if (!found.pnl) continue;
    const ArrayXd pnl =
        Eigen::Map<const ArrayXd>(found.pnl->data(), static_cast<Eigen::Index>(found.pnl->size()));
    // A series with a hole cannot be compared: it counts as missing.
    if (pnl.isFinite().all()) member.series = Series{pnl, NormalScores(pnl)};
  }
}

void SignalPool::require_comparable(const Member& member, Eigen::Index days) {
  if (!member.series) {
    throw PoolPnlMissing(member.eval_id,
                         "has no PnL in the store that can be read; submit it anew, or take it out "
                         "of the pool");
  }
  if (member.series->pnl.size() != days) {
    throw PoolPnlMissing(member.eval_id,
                         fmt::format("has the PnL of {} days, and the signal that of {}; only "
                                     "equal days compare",
                                     member.series->pnl.size(), days));
  }
}

SignalPool::Remembered& SignalPool::remembered(const ArrayXd& pnl) {
  const std::string digest = digest_of(pnl);
  const auto found = std::find_if(
      remembered_.begin(), remembered_.end(),
      [&digest](const Remembered& candidate) { return candidate.pnl_digest == digest; });
  if (found != remembered_.end()) return *found;
  if (remembered_.size() == kRememberedMeasures) remembered_.pop_front();
  return remembered_.emplace_back(Remembered{digest, 0, {}});
}

std::vector<std::size_t> SignalPool::correlated_first(const ArrayXd& pnl, Remembered& known) const {
  PoolMeasure& measure = known.measure;
  std::vector<std::pair<double, std::size_t>> likeness;
  for (std::size_t i = known.members; i < members_.size(); ++i) {
    const double correlation = std::abs(pearson_correlation(pnl, members_[i].series->pnl));
    likeness.emplace_back(-correlation, i);
    if (measure.nearest_by_correlation && correlation <= measure.correlation) continue;
    measure.correlation = correlation;
    measure.nearest_by_correlation = members_[i].eval_id;
  }
  std::sort(likeness.begin(), likeness.end());
  std::vector<std::size_t> order;
  order.reserve(likeness.size());
  for (const auto& [opposite_correlation, member] : likeness)
    order.push_back(member);
  return order;
}

void SignalPool::compare_information(const ArrayXd& pnl, const std::vector<std::size_t>& order,
                                     PoolMeasure& measure) const {
  if (order.empty() || measure.novelty < least_novelty_) return;
  const NormalScores scores(pnl);
  for (const std::size_t member : order) {
    const double information = mutual_information(scores, members_[member].series->scores);
    if (measure.nearest_by_information && information <= measure.mutual_information) continue;
    measure.mutual_information = information;
    measure.nearest_by_information = members_[member].eval_id;
    measure.novelty = novelty_of(information);
    if (measure.novelty < least_novelty_) return;
  }
}

PoolMeasure SignalPool::measure(const ArrayXd& pnl) {
  if (!pnl.isFinite().all()) {
    throw std::invalid_argument("the PnL of a signal has an entry that is no finite number");
  }
  // What never earns or loses anything is no signal, whatever the pool holds.
  if ((pnl == 0.0).all()) return nothing_new();
  if (members_.empty()) return {};
  // Every member must be comparable before any is compared: half a measure is none.
  for (const Member& member : members_)
    require_comparable(member, pnl.size());
  if (pnl.size() < minimum_days_) {
    throw PoolMetricNotYetComputable(
        fmt::format("the signal has {} days in common with its pool, and it takes {} to compare",
                    pnl.size(), minimum_days_));
  }
  Remembered& known = remembered(pnl);
  compare_information(pnl, correlated_first(pnl, known), known.measure);
  known.members = members_.size();
  return known.measure;
}

std::optional<PoolComparison> SignalPool::compare(const ArrayXd& pnl) {
  if (members_.empty()) return std::nullopt;
  const PoolMeasure measured = measure(pnl);
  return PoolComparison{static_cast<std::int64_t>(members_.size()), members_.back().submission,
                        measured};
}

void SignalPool::take_over(const ArrayXd& pnl, const PoolComparison& comparison) {
  // Members join at the end and numbers are never given twice. So where the last one stands in its
  // old place, those before it do too.
  if (comparison.members < 1 || std::cmp_greater(comparison.members, members_.size())) return;
  const auto members = static_cast<std::size_t>(comparison.members);
  if (members_[members - 1].submission != comparison.last_member) return;
  Remembered& known = remembered(pnl);
  if (known.members >= members) return;
  known.members = members;
  known.measure = comparison.measure;
}

}  // namespace varnholt::embedded
