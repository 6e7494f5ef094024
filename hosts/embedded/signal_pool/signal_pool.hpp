// The signal pool: the submitted signals that a new one is compared with.
//
//   SignalPool pool(store, {"alpha", 1, 3, data_key});
//   if (!pool.refresh()) ...                      // Not confirmed: try again later.
//   const PoolMeasure measure = pool.measure(net_returns);
//
// Its founding member is the market: a signal that is mostly the market is nothing new, whatever
// else is in the pool. The others are the submissions of one identity that were settled as
// submitted, by whatever process. What has been read stays in memory, and each refresh reads what
// has been settled since. How a signal is compared with them: comparison.hpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/signal_pool/comparison.hpp"
#include "hosts/embedded/signal_pool/member_series.hpp"
#include "hosts/embedded/signal_pool/pool_gates.hpp"
#include "hosts/embedded/store/run_store.hpp"

namespace varnholt::embedded {

// With few days in common no figure is meaningful: the scatter of a correlation is 1/sqrt(days).
inline constexpr Eigen::Index kDefaultCommonDays = 60;

// The name of the founding member, where members are told by their evaluation ids.
inline constexpr const char* kFounder = "market";

// A member that no signal can be compared with, because its PnL in the store is damaged, or cannot
// be computed on the days of this run.
struct SetAsideMember {
  std::string eval_id;
  std::string why;  // "has no PnL ...; submit it anew, or take it out of the pool"
};

// A member that a better signal takes the place of.
struct ReplacedMember {
  std::int64_t submission = 0;
  std::string eval_id;
};

class SignalPool {
 public:
  static constexpr std::size_t kRememberedMeasures = 4096;

  // The store must outlive the pool. `founder` is the PnL of the founding member; a pool without
  // one, or with one of too few days to compare, has no members before the first refresh. A signal
  // whose novelty is below the least one beside one member is not compared with the rest. Where the
  // thresholds let a signal replace weaker members, it is compared with none that it outdoes; the
  // founder is never outdone.
  SignalPool(RunStore& store, PoolIdentity identity, Eigen::Index minimum_days = kDefaultCommonDays,
             const PoolThresholds& thresholds = {},
             const std::optional<Eigen::ArrayXd>& founder = {});

  [[nodiscard]] const PoolIdentity& identity() const noexcept { return identity_; }

  // Brings in the members settled since the last refresh. Whether membership is confirmed: false
  // when another process holds the store's lock, because it may be settling a signal at that very
  // moment; the members stay as they were. Other troubles of the store throw StoreError.
  [[nodiscard]] bool refresh();
  // The same for a caller that holds the store's lock itself.
  void refresh_under_lock();

  [[nodiscard]] bool has_members() const noexcept { return !members_.empty(); }
  // A member that was submitted on other days and is not measured on these yet; nothing where there
  // is none. Until it is, no signal can be settled.
  [[nodiscard]] std::optional<std::string> first_unmeasured() const;

  // Measures a signal with this PnL against the members known from the last refresh. In an empty
  // pool every signal is entirely new. A member whose PnL is not in the store, or has other days
  // than the signal while others have as many, is set aside. Throws PoolPnlMissing when all that
  // can be read have other days, PoolMetricNotYetComputable when there are fewer than
  // `minimum_days`, and std::invalid_argument when the PnL given has an entry that is no finite
  // number.
  //
  // A signal is measured when it is recorded and again when it is settled: the measures of the last
  // kRememberedMeasures signals are remembered, and only members that have joined since are
  // compared; what was measured stands without one that has left, unless the figures are beside it.
  // What passes measures the same to the last bit as if it had never been measured.
  [[nodiscard]] PoolMeasure measure(const Eigen::ArrayXd& pnl);

  // The members that a signal with this PnL takes the place of when it joins: those that it outdoes
  // and is like, by the thresholds of novelty and correlation, in the order in which they joined.
  [[nodiscard]] std::vector<ReplacedMember> replaced_by(const Eigen::ArrayXd& pnl) const;

  // The daily PnL of the members with as many days, without the founder. To be read until members
  // are brought in or taken out.
  struct MemberPnl {
    std::int64_t submission = 0;
    Eigen::Map<const Eigen::ArrayXd> pnl;
  };
  [[nodiscard]] std::vector<MemberPnl> member_pnl(Eigen::Index days) const;

  // What measure() says, for another process, which takes the measure over; nothing where the pool
  // has no members. It reads no store, so a forked child may call it. Throws as measure() does.
  [[nodiscard]] std::optional<PoolComparison> compare(const Eigen::ArrayXd& pnl);
  // The members that were set aside since the last call, each told once.
  [[nodiscard]] std::vector<SetAsideMember> take_set_aside();

  // Takes over what another process measured of this PnL, unless members were taken out meanwhile.
  void take_over(const Eigen::ArrayXd& pnl, const PoolComparison& comparison);

 private:
  struct Member {
    std::int64_t submission = 0;
    std::string eval_id;
    // The days of its PnL, which stands in the group of as many; absent where there is none.
    std::optional<Eigen::Index> days;
    Measured measured = Measured::Yes;

    // Nothing better is to be had of it but by another measure, which changes what is stored.
    [[nodiscard]] bool is_settled() const { return days || measured == Measured::Never; }
  };

  // Members that can be compared with each other, in the order in which they joined.
  struct Group {
    explicit Group(Eigen::Index days) : series(days) {}

    MemberSeries series;
    std::vector<std::size_t> member_of_row;
  };

  // Rows of a group, from the member of that number on, in the order in which they joined.
  enum class Outdone { Yes, No };
  [[nodiscard]] bool is_outdone(const Group& group, std::size_t row, double daily_sharpe) const;
  [[nodiscard]] std::vector<std::size_t> rows_of(const Group& group, std::size_t first_member,
                                                 const Eigen::ArrayXd& pnl, Outdone outdone) const;
  [[nodiscard]] MemberComparison comparison_with(const Group& group) const;
  // The submissions of those that it outdoes and is like, from a member on.
  [[nodiscard]] std::vector<std::int64_t> alike_from(const Group& group, std::size_t first_member,
                                                     const Eigen::ArrayXd& pnl) const;

  void add_founder();
  // 1 where the first member is the founder, 0 where there is none.
  [[nodiscard]] std::ptrdiff_t founders() const;
  void read_members();
  void forget_members();
  // Takes out the members that are not among these submissions. False where that is not all that
  // has changed, or a member may be readable now: then all must be read anew.
  [[nodiscard]] bool keep_only(const std::vector<std::int64_t>& submissions);
  void take_out(const std::vector<std::size_t>& gone);
  void set_aside(const Member& member, const std::string& trouble);
  void note_aside(const Member& member, std::string why);
  void set_aside_others(Eigen::Index days);
  [[noreturn]] void refuse_other_days(Eigen::Index days);
  struct Remembered {
    Eigen::Index days = 0;
    double daily_sharpe = 0.0;
    PoolComparison comparison;
  };
  [[nodiscard]] PoolComparison& remembered(const Eigen::ArrayXd& pnl);
  // Takes the members that leave, by their places, out of what is known of a signal; false where
  // that cannot be said without them.
  [[nodiscard]] bool stands_without(const std::vector<std::size_t>& gone, Remembered& known) const;
  // Brings what is known of the signal up to the members of its days.
  void compare_with(const Group& group, const Eigen::ArrayXd& pnl, PoolComparison& known);
  // What is known of the signal, brought up to all members. There must be one.
  const PoolComparison& compared_with_all(const Eigen::ArrayXd& pnl);

  RunStore& store_;
  PoolIdentity identity_;
  Eigen::Index minimum_days_;
  PoolThresholds thresholds_;
  std::optional<Eigen::ArrayXd> founder_;
  std::vector<Member> members_;
  std::map<Eigen::Index, Group> groups_;  // By their days.
  bool has_other_days_ = false;           // A signal met members of other days than its own.
  std::vector<SetAsideMember> set_aside_;
  std::set<std::int64_t> told_aside_;  // By the number of the submission.
  std::int64_t last_settled_order_ = 0;
  std::optional<std::int64_t> seen_version_;                // Of the store's members.
  std::unordered_map<std::string, Remembered> remembered_;  // By the PnL's digest.
  std::deque<std::string> remembered_order_;                // The latest last.
};

}  // namespace varnholt::embedded
