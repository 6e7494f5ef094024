// How a new signal is compared with the members of its pool.
//
//   correlation  The greatest absolute one with any member, by pearson_correlation(). One product
//                of the matrix of all members finds it, and it is computed anew by the definition.
//   information  The greatest mutual information with any member, estimated by neighbours
//                (mutual_information()). A table of equal parts tells a part of it for each member
//                (part_table.hpp), and neighbours are asked of the member that correlates most, of
//                the one that the table tells most of, and of any where the tables leave a doubt:
//                where it tells at least kDoubt of what would refuse the signal, and the finer one
//                kFinerDoubt. These they are asked of until they are sure that it is less. Over
//                fewer than kFewestTabledDays a table tells too little, and they are asked of all.
//   novelty      That of this information.
//
// So each member is looked at, and what neighbours are not asked of is far from refusing. A
// dependence that is finer than the parts of the table is not seen, unless it is with the member
// that correlates most.
//
// Two things end it before: where any novelty will do, the information is only that of a Gaussian
// pair with this correlation; and the first member beside which the novelty is too low is enough,
// the rest are not asked. The measure says how many were.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/signal_pool/member_series.hpp"
#include "hosts/embedded/signal_pool/pool_gates.hpp"

namespace varnholt::embedded {

// With fewer days than this the cells of a table are too few.
inline constexpr Eigen::Index kFewestTabledDays = 500;
// Of pairs that neighbours refuse a table shows at least a quarter of what refuses, over 500 days
// and more: that little where the two are alike on a fifth of the days and have nothing in common
// on the rest. Of smooth dependence it shows nine tenths.
inline constexpr double kDoubt = 0.25;
// The finer table shows more of it there, and of smooth dependence nearly all. What it misses would
// be refused by next to nothing.
inline constexpr double kFinerDoubt = 0.6;
// From here on neighbours look at every day, whatever the finer table tells.
inline constexpr double kNearlyRefused = 0.5;

// The mutual information with a member.
struct MemberInformation {
  double information = 0.0;
  std::string eval_id;
};

// What a signal comes to against the first members of a pool. It may be made in one process and
// taken over by another, which knows the same ones.
struct PoolComparison {
  std::int64_t members = 0;      // How many it was compared with ...
  std::int64_t last_member = 0;  // ... and the number of the last one's submission.
  PoolMeasure measure;
  // What the measure's information is the greatest of: that of the members in doubt, that of the
  // one that correlates most, and that of the one that the table tells most of, namely `told`.
  std::optional<MemberInformation> of_doubtful = {};
  std::optional<MemberInformation> of_nearest = {};
  std::optional<MemberInformation> of_told = {};
  double told = 0.0;
  // The submissions of the members that it outdoes and is like, in the order in which they joined;
  // absent where it does not pass.
  std::optional<std::vector<std::int64_t>> alike = {};
};

class MemberComparison {
 public:
  using NameOfRow = std::function<const std::string&(std::size_t row)>;

  // The series must outlive the object, and must not grow. `eval_id` names the member of a row.
  MemberComparison(const MemberSeries& series, NameOfRow eval_id)
      : series_(series), eval_id_(std::move(eval_id)) {}

  using Rows = std::span<const std::size_t>;

  // Adds what these rows say, in ascending order, to what is known of others before them.
  void add(const Eigen::ArrayXd& pnl, Rows rows, double least_novelty, PoolComparison& known) const;

  // Those of the rows beside which the signal would not pass novelty and correlation.
  [[nodiscard]] std::vector<std::size_t> alike(const Eigen::ArrayXd& pnl, Rows rows,
                                               const PoolThresholds& thresholds) const;

 private:
  // Of the rows that correlate more than all before, the one that does most.
  [[nodiscard]] std::optional<std::size_t> find_nearest(const ComparedSignal& signal, Rows rows,
                                                        PoolMeasure& measure) const;
  void add_information(const ComparedSignal& signal, Rows rows, std::optional<std::size_t> nearest,
                       double least_novelty, PoolComparison& known) const;
  [[nodiscard]] bool has_tables() const { return series_.days() >= kFewestTabledDays; }
  // The information with a row of which the table tells `told`; nothing where that, the finer table
  // or the first days leave no doubt that it does not refuse.
  [[nodiscard]] std::optional<double> information_in_doubt(const ComparedSignal& signal,
                                                           std::size_t row, double told,
                                                           double refusing) const;

  const MemberSeries& series_;
  NameOfRow eval_id_;
};

}  // namespace varnholt::embedded
