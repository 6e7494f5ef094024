// What two daily PnL series tell of each other, at a glance: from a table of equal parts.
//
// The estimate by neighbours (pnl_measures.hpp) costs a millisecond a pair. Most pairs have next to
// nothing to do with each other, which a coarse table shows in two microseconds.
#pragma once

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

  // For each day the part that its value falls into, from 0: place * parts / days.
  void write_parts(const NormalScores& scores, std::span<std::uint8_t> parts_of_day) const;

  // The mutual information of the two parts in nats, from the counts of days in the cells, less
  // what chance alone gives (G. Miller, "Note on the bias of information estimates", 1955):
  //   I = sum over the cells of (c / n) ln(c n / (r q)) - (parts - 1)^2 / (2 n),
  // c, r and q being the days of a cell, of its row and of its column, and n all of them. Cutting
  // into parts can only lose information, so but for chance it is less than the series have in
  // common. It may be slightly negative.
  [[nodiscard]] double information(std::span<const std::uint8_t> left,
                                   std::span<const std::uint8_t> right) const;

 private:
  Eigen::Index days_;
  Eigen::Index parts_;
  std::vector<double> n_log_n_;  // Of 0 .. days.
  double rows_and_columns_;      // Their sum of n ln n: equal parts are the same of any series.
};

}  // namespace varnholt::embedded
