#include "hosts/embedded/signal_pool/signal_pool.hpp"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/signal_pool/pool_errors.hpp"
#include "hosts/embedded/system/digest.hpp"

namespace varnholt::embedded {

using Eigen::ArrayXd;

namespace {

// The founder has no submission, and so a number that none has.
constexpr std::int64_t kFounderSubmission = 0;

std::string digest_of(const ArrayXd& pnl) {
  const auto* const bytes = reinterpret_cast<const char*>(pnl.data());
  return sha256_hex({bytes, static_cast<std::size_t>(pnl.size()) * sizeof(double)});
}

// Whether one of the figures is beside this member.
bool is_named(const std::string& eval_id, const PoolComparison& comparison) {
  const auto gave = [&](const std::optional<MemberInformation>& information) {
    return information && information->eval_id == eval_id;
  };
  return gave(comparison.of_doubtful) || gave(comparison.of_nearest) || gave(comparison.of_told) ||
         comparison.measure.nearest_by_information == eval_id ||
         comparison.measure.nearest_by_correlation == eval_id;
}

PoolMeasure nothing_new() {
  PoolMeasure measure;
  measure.novelty = 0.0;
  return measure;
}

}  // namespace

SignalPool::SignalPool(RunStore& store, PoolIdentity identity, Eigen::Index minimum_days,
                       const PoolThresholds& thresholds, const std::optional<ArrayXd>& founder)
    : store_(store),
      identity_(std::move(identity)),
      minimum_days_(minimum_days),
      thresholds_(thresholds) {
  // With too few days nothing compares; the first signals of such a pool join it without.
  if (founder && founder->size() >= minimum_days) founder_ = *founder;
  add_founder();
}

void SignalPool::add_founder() {
  if (!founder_) return;
  Member& member = members_.emplace_back();
  member.submission = kFounderSubmission;
  member.eval_id = kFounder;
  member.days = founder_->size();
  Group& group = groups_.try_emplace(founder_->size(), founder_->size()).first->second;
  group.series.append(*founder_);
  group.member_of_row.push_back(0);
}

std::ptrdiff_t SignalPool::founders() const {
  return founder_ ? 1 : 0;
}

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
  const std::int64_t version = store_.submissions().members_version();
  if (seen_version_ == version) return;
  const std::vector<std::int64_t> submissions = store_.submissions().member_numbers(identity_);
  if (!keep_only(submissions)) forget_members();
  read_members();
  // One that had left and was put back by hand does not stand behind those that were read.
  if (std::cmp_not_equal(std::ssize(members_) - founders(), submissions.size())) {
    forget_members();
    read_members();
  }
  seen_version_ = version;
}

void SignalPool::forget_members() {
  members_.clear();
  groups_.clear();
  remembered_.clear();
  remembered_order_.clear();
  last_settled_order_ = 0;
  has_other_days_ = false;
  add_founder();
}

bool SignalPool::keep_only(const std::vector<std::int64_t>& submissions) {
  if (has_other_days_) return false;
  std::vector<std::size_t> gone;
  auto next = submissions.begin();
  for (auto i = static_cast<std::size_t>(founders()); i < members_.size(); ++i) {
    // A PnL that was missing or of other days may have been put back.
    if (!members_[i].is_settled()) return false;
    if (next != submissions.end() && *next == members_[i].submission) {
      ++next;
    } else if (std::find(next, submissions.end(), members_[i].submission) == submissions.end()) {
      gone.push_back(i);
    } else {
      return false;
    }
  }
  take_out(gone);
  return true;
}

void SignalPool::take_out(const std::vector<std::size_t>& gone) {
  if (gone.empty()) return;
  std::deque<std::string> still_known;
  for (std::string& digest : remembered_order_) {
    const auto known = remembered_.find(digest);
    if (stands_without(gone, known->second)) {
      still_known.push_back(std::move(digest));
    } else {
      remembered_.erase(known);
    }
  }
  remembered_order_ = std::move(still_known);
  const auto is_gone = [&](std::size_t member) {
    return std::binary_search(gone.begin(), gone.end(), member);
  };
  for (auto& [days, group] : groups_) {
    std::vector<std::size_t>& members = group.member_of_row;
    for (std::size_t row = members.size(); row-- > 0;) {
      if (is_gone(members[row])) group.series.remove(row);
    }
    std::erase_if(members, is_gone);
    for (std::size_t& member : members)
      member -= static_cast<std::size_t>(std::lower_bound(gone.begin(), gone.end(), member) -
                                         gone.begin());
  }
  std::erase_if(groups_, [](const auto& group) { return group.second.member_of_row.empty(); });
  for (auto i = gone.rbegin(); i != gone.rend(); ++i)
    members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(*i));
}

bool SignalPool::stands_without(const std::vector<std::size_t>& gone, Remembered& known) const {
  PoolComparison& comparison = known.comparison;
  // Of what was refused not all members may have been asked.
  if (!comparison.alike) return false;
  auto last = static_cast<std::size_t>(comparison.members);
  const auto first_after = std::lower_bound(gone.begin(), gone.end(), last);
  for (auto i = gone.begin(); i != first_after; ++i) {
    const Member& member = members_[*i];
    if (is_named(member.eval_id, comparison)) return false;
    std::erase(*comparison.alike, member.submission);
    if (member.days != known.days) continue;
    const Group& group = groups_.at(known.days);
    const auto row = std::lower_bound(group.member_of_row.begin(), group.member_of_row.end(), *i) -
                     group.member_of_row.begin();
    if (is_outdone(group, static_cast<std::size_t>(row), known.daily_sharpe)) continue;
    --comparison.measure.members;
    if (comparison.measure.informed > 0) --comparison.measure.informed;
  }
  comparison.members -= first_after - gone.begin();
  if (comparison.members == 0) return false;
  while (std::binary_search(gone.begin(), gone.end(), last - 1))
    --last;
  comparison.last_member = members_[last - 1].submission;
  return true;
}

void SignalPool::read_members() {
  for (const SubmissionPnl& found : store_.submissions().members(identity_, last_settled_order_)) {
    Member& member = members_.emplace_back();
    member.submission = found.id;
    member.eval_id = found.eval_id;
    last_settled_order_ = found.settled_order;
    member.measured = found.measured;
    if (found.measured == Measured::NotYet) continue;
    if (found.measured == Measured::Never) {
      note_aside(member, fmt::format("cannot be measured on these prices ({}); it stays in the "
                                     "pool, for prices that have what it needs",
                                     found.problem));
      continue;
    }
    if (!found.pnl) {
      set_aside(member, "has no PnL in the store that can be read");
      continue;
    }
    const auto days = static_cast<Eigen::Index>(found.pnl->size());
    const ArrayXd pnl = Eigen::Map<const ArrayXd>(found.pnl->data(), days);
    // A series with a hole cannot be compared.
    if (!pnl.isFinite().all()) {
      set_aside(member, "has a PnL in the store with an entry that is no number");
      continue;
    }
    member.days = days;
    Group& group = groups_.try_emplace(days, days).first->second;
    group.series.append(pnl);
    group.member_of_row.push_back(members_.size() - 1);
  }
}

void SignalPool::set_aside(const Member& member, const std::string& trouble) {
  note_aside(member, trouble + "; submit it anew, or take it out of the pool");
}

void SignalPool::note_aside(const Member& member, std::string why) {
  if (!told_aside_.insert(member.submission).second) return;
  set_aside_.push_back({member.eval_id, std::move(why)});
}

std::optional<std::string> SignalPool::first_unmeasured() const {
  const auto found = std::find_if(members_.begin(), members_.end(), [](const Member& member) {
    return member.measured == Measured::NotYet;
  });
  if (found == members_.end()) return std::nullopt;
  return found->eval_id;
}

void SignalPool::set_aside_others(Eigen::Index days) {
  for (const auto& [other_days, group] : groups_) {
    if (other_days == days) continue;
    has_other_days_ = true;
    for (const std::size_t member : group.member_of_row) {
      set_aside(members_[member],
                fmt::format("has the PnL of {} days where others have {}", other_days, days));
    }
  }
}

std::vector<SetAsideMember> SignalPool::take_set_aside() {
  return std::exchange(set_aside_, {});
}

void SignalPool::refuse_other_days(Eigen::Index days) {
  has_other_days_ = true;
  const auto& [other_days, group] = *groups_.begin();
  throw PoolPnlMissing(members_[group.member_of_row.front()].eval_id,
                       fmt::format("has the PnL of {} days, and the signal that of {}; only "
                                   "equal days compare",
                                   other_days, days));
}

PoolComparison& SignalPool::remembered(const ArrayXd& pnl) {
  const std::string digest = digest_of(pnl);
  const auto [found, is_new] =
      remembered_.try_emplace(digest, Remembered{pnl.size(), MemberSeries::daily_sharpe(pnl), {}});
  if (!is_new) return found->second.comparison;
  if (remembered_order_.size() == kRememberedMeasures) {
    remembered_.erase(remembered_order_.front());
    remembered_order_.pop_front();
  }
  remembered_order_.push_back(digest);
  return found->second.comparison;
}

const PoolComparison& SignalPool::compared_with_all(const ArrayXd& pnl) {
  const auto found = groups_.find(pnl.size());
  // Where nothing that can be read is of these days, the signal's own PnL may be the damaged one.
  if (found == groups_.end() && !groups_.empty()) refuse_other_days(pnl.size());
  if (found != groups_.end() && pnl.size() < minimum_days_) {
    throw PoolMetricNotYetComputable(
        fmt::format("the signal has {} days in common with its pool, and it takes {} to compare",
                    pnl.size(), minimum_days_));
  }
  PoolComparison& known = remembered(pnl);
  if (std::cmp_equal(known.members, members_.size())) return known;
  // Without a group all members are set aside, and the signal is as in an empty pool.
  if (found != groups_.end()) compare_with(found->second, pnl, known);
  known.members = static_cast<std::int64_t>(members_.size());
  known.last_member = members_.back().submission;
  return known;
}

bool SignalPool::is_outdone(const Group& group, std::size_t row, double daily_sharpe) const {
  const bool is_founder = members_[group.member_of_row[row]].submission == kFounderSubmission;
  return thresholds_.replaces_weaker && !is_founder && group.series.outdoes(daily_sharpe, row);
}

std::vector<std::size_t> SignalPool::rows_of(const Group& group, std::size_t first_member,
                                             const ArrayXd& pnl, Outdone outdone) const {
  const double sharpe = MemberSeries::daily_sharpe(pnl);
  const std::vector<std::size_t>& members = group.member_of_row;
  const auto first = std::lower_bound(members.begin(), members.end(), first_member);
  std::vector<std::size_t> rows;
  for (auto row = static_cast<std::size_t>(first - members.begin()); row < members.size(); ++row) {
    if (is_outdone(group, row, sharpe) == (outdone == Outdone::Yes)) rows.push_back(row);
  }
  return rows;
}

MemberComparison SignalPool::comparison_with(const Group& group) const {
  return {group.series, [this, &group](std::size_t row) -> const std::string& {
            return members_[group.member_of_row[row]].eval_id;
          }};
}

void SignalPool::compare_with(const Group& group, const ArrayXd& pnl, PoolComparison& known) {
  set_aside_others(pnl.size());
  const auto first = static_cast<std::size_t>(known.members);
  comparison_with(group).add(pnl, rows_of(group, first, pnl, Outdone::No), thresholds_.min_novelty,
                             known);
  if (first == 0) known.alike.emplace();
  if (refusal(known.measure, thresholds_)) known.alike.reset();
  if (!known.alike) return;
  for (const std::int64_t submission : alike_from(group, first, pnl))
    known.alike->push_back(submission);
}

std::vector<std::int64_t> SignalPool::alike_from(const Group& group, std::size_t first_member,
                                                 const ArrayXd& pnl) const {
  const std::vector<std::size_t> outdone = rows_of(group, first_member, pnl, Outdone::Yes);
  std::vector<std::int64_t> alike;
  for (const std::size_t row : comparison_with(group).alike(pnl, outdone, thresholds_))
    alike.push_back(members_[group.member_of_row[row]].submission);
  return alike;
}

std::vector<ReplacedMember> SignalPool::replaced_by(const ArrayXd& pnl) const {
  const auto group = groups_.find(pnl.size());
  if (group == groups_.end()) return {};
  const auto found = remembered_.find(digest_of(pnl));
  const PoolComparison* const known =
      found == remembered_.end() ? nullptr : &found->second.comparison;
  const bool is_known =
      known != nullptr && known->alike && std::cmp_equal(known->members, members_.size());
  std::vector<ReplacedMember> replaced;
  for (const std::int64_t submission :
       is_known ? *known->alike : alike_from(group->second, 0, pnl)) {
    const auto member = std::find_if(members_.begin(), members_.end(), [&](const Member& one) {
      return one.submission == submission;
    });
    replaced.push_back({submission, member->eval_id});
  }
  return replaced;
}

std::vector<SignalPool::MemberPnl> SignalPool::member_pnl(Eigen::Index days) const {
  const auto found = groups_.find(days);
  if (found == groups_.end()) return {};
  const Group& group = found->second;
  std::vector<MemberPnl> pnl;
  for (std::size_t row = 0; row < group.series.size(); ++row) {
    const Member& member = members_[group.member_of_row[row]];
    if (member.submission == kFounderSubmission) continue;
    pnl.push_back({member.submission, group.series.pnl(row)});
  }
  return pnl;
}

PoolMeasure SignalPool::measure(const ArrayXd& pnl) {
  if (!pnl.isFinite().all()) {
    throw std::invalid_argument("the PnL of a signal has an entry that is no finite number");
  }
  // What never earns or loses anything is no signal, whatever the pool holds.
  if ((pnl == 0.0).all()) return nothing_new();
  if (members_.empty()) return {};
  return compared_with_all(pnl).measure;
}

std::optional<PoolComparison> SignalPool::compare(const ArrayXd& pnl) {
  if (members_.empty()) return std::nullopt;
  PoolComparison comparison;
  comparison.measure = measure(pnl);
  // What is nothing new whatever the pool holds is not remembered.
  return (pnl == 0.0).all() ? comparison : compared_with_all(pnl);
}

void SignalPool::take_over(const ArrayXd& pnl, const PoolComparison& comparison) {
  // Members join at the end and numbers are never given twice. So where the last one stands in its
  // old place, those before it do too.
  if (comparison.members < 1 || std::cmp_greater(comparison.members, members_.size())) return;
  const auto members = static_cast<std::size_t>(comparison.members);
  if (members_[members - 1].submission != comparison.last_member) return;
  PoolComparison& known = remembered(pnl);
  if (known.members < comparison.members) known = comparison;
}

}  // namespace varnholt::embedded
