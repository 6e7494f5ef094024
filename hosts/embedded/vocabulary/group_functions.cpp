#include "hosts/embedded/vocabulary/group_functions.hpp"

#include <stdexcept>

#include "hosts/embedded/vocabulary/day_ranks.hpp"
#include "hosts/embedded/vocabulary/tile_sums.hpp"

namespace varnholt::embedded {
namespace {

const GroupPanel& of_shape(const GroupPanel& groups, const Panel& x) {
  if (x.rows() == groups.rows() && x.cols() == groups.cols()) return groups;
  throw std::invalid_argument(
      "a panel and groups of two shapes; take both from the same market data");
}

}  // namespace

Panel group_demean(const Panel& x, const GroupPanel& groups) {
  return demeaned(x, ManyGroups(of_shape(groups, x)));
}

Panel group_rank(const Panel& x, const GroupPanel& groups) {
  return day_ranks(x, &of_shape(groups, x));
}

Panel group_zscore(const Panel& x, const GroupPanel& groups) {
  return standardized(x, ManyGroups(of_shape(groups, x)));
}

}  // namespace varnholt::embedded
