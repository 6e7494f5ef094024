// What two daily PnL series tell of each other, at a glance: from tables of equal parts.
//
// The estimate by neighbours (pnl_measures.hpp) costs a millisecond a pair. Most pairs have next to
// nothing to do with each other, which a coarse table shows in two microseconds. Where it leaves a
// doubt, because the pair may be alike on a few days only, a finer one needs five.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/signal_pool/normal_scores.hpp"

namespace varnholt::embedded {

// For series of so many days.
class PartTable {
 public:
  static constexpr Eigen::Index kMostParts = 16;

  explicit PartTable(Eigen::Index days);

  // The parts that a series is cut into: as many as leave ten days a cell, from 2 to kMostParts.
  [[nodiscard]] Eigen::Index parts() const noexcept { return parts_; }
  // Those of the finer table, which cuts each part into as many equal ones as leave a cell about
  // one day, at most 16.
  [[nodiscard]] Eigen::Index finer_parts() const noexcept { return parts_ * cuts_; }

  // For each day the parts that its value falls into, from 0: of the finer ones that of
  // place * finer_parts / days. A byte has the part in its upper half, and in its lower half which
  // of that part's finer ones it is.
  void write_parts(const NormalScores& scores, std::span<std::uint8_t> parts_of_day) const;

  // The mutual information of the two parts in nats, from the counts of days in the cells, less
  // what chance alone gives (G. Miller, "Note on the bias of information estimates", 1955):
  //   I = sum over the cells of (c / n) ln(c n / (r q)) - (parts - 1)^2 / (2 n),
  // c, r and q being the days of a cell, of its row and of its column, and n all of them. Cutting
  // into parts can only lose information, so but for chance it is less than the series have in
  // common. It may be slightly negative.
  [[nodiscard]] double information(std::span<const std::uint8_t> left,
                                   std::span<const std::uint8_t> right) const;

  // What the cell of each day tells, ln(c n / (r q)): information() is the mean of it, less what
  // chance gives.
  [[nodiscard]] Eigen::ArrayXd information_of_days(std::span<const std::uint8_t> left,
                                                   std::span<const std::uint8_t> right) const;

  // As information(), of the finer table. With a day a cell, counts say too little of chance to
  // take it off, so that the entropy of the cells is estimated another way (P. Grassberger,
  // "Entropy estimates from insufficient samplings", 2003): ln n - sum over the cells of
  // (c / n) G(c), where
  //   G(1) = -gamma - ln 2,  G(2) = 2 + G(1),  G(2m + 1) = G(2m),  G(2m + 2) = G(2m) + 2/(2m + 1),
  // gamma being Euler's constant.
  [[nodiscard]] double finer_information(std::span<const std::uint8_t> left,
                                         std::span<const std::uint8_t> right) const;

 private:
  // The days of a row or column of so many, by n ln n of each, over both: equal parts are the same
  // of any series.
  [[nodiscard]] double rows_and_columns(Eigen::Index parts) const;
  [[nodiscard]] Eigen::Index days_in(Eigen::Index part, Eigen::Index parts) const;
  [[nodiscard]] std::uint8_t as_byte(Eigen::Index finer_part) const;

  Eigen::Index days_;
  Eigen::Index parts_;
  Eigen::Index cuts_;            // Of a part into finer ones.
  std::vector<double> n_log_n_;  // Of 0 .. days.
  double rows_and_columns_ = 0.0;
  double finer_rows_and_columns_ = 0.0;
  // By how much one more day adds to c G(c), for a cell of 0 .. days - 1.
  std::vector<double> added_by_day_;
  std::array<std::uint8_t, 256> finer_part_;  // Of what write_parts() writes.
};

}  // namespace varnholt::embedded
