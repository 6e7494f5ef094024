#include "hosts/embedded/vocabulary/strands.hpp"

#include <algorithm>
#include <numeric>

#include "hosts/embedded/vocabulary/lane_vector.hpp"

namespace varnholt::embedded {
namespace {

// With so many columns the last lanes that stay empty do not weigh.
constexpr Eigen::Index kManyColumns = 64;

Eigen::Index strands_a_column(Eigen::Index columns) {
  const auto lanes = static_cast<Eigen::Index>(kLanes);
  return columns >= kManyColumns ? 1 : lanes / std::gcd(lanes, columns);
}

}  // namespace

std::vector<Strand> strands_of(Eigen::Index days, Eigen::Index columns, Eigen::Index window) {
  const Eigen::Index blocks = (days + window - 1) / window;
  const Eigen::Index wanted = std::max<Eigen::Index>(1, strands_a_column(columns));
  const Eigen::Index length = std::max<Eigen::Index>(1, (blocks + wanted - 1) / wanted);
  std::vector<Strand> strands;
  strands.reserve(static_cast<std::size_t>(columns * wanted));
  for (Eigen::Index column = 0; column < columns; ++column) {
    for (Eigen::Index first = 0; first < blocks; first += length)
      strands.push_back({column, first, std::min(first + length, blocks)});
  }
  return strands;
}

}  // namespace varnholt::embedded
