// Which days of a panel are folded side by side: see rolling_lanes.hpp.
#pragma once

#include <vector>

#include <Eigen/Core>

namespace varnholt::embedded {

// Some consecutive blocks of one column.
struct Strand {
  Eigen::Index column = 0;
  Eigen::Index first_block = 0;
  Eigen::Index end_block = 0;
};

// All blocks of a panel, in strands of nearly equal lengths, so many that the lanes are filled.
[[nodiscard]] std::vector<Strand> strands_of(Eigen::Index days, Eigen::Index columns,
                                             Eigen::Index window);

}  // namespace varnholt::embedded
