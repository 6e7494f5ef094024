#include "hosts/embedded/vocabulary/group_functions.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>
#include <vector>

#include "hosts/embedded/vocabulary/day_values.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"

namespace varnholt::embedded {
namespace {

template <typename Function>
Panel each_group(const Panel& x, const GroupPanel& groups, Function function) {
  if (x.rows() != groups.rows() || x.cols() != groups.cols()) {
    throw std::invalid_argument(
        "a panel and groups of two shapes; take both from the same market data");
  }
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  // The group and the column of each known value; sorted, a group lies together, in the order of
  // the columns.
  std::vector<std::pair<int, Eigen::Index>> members;
  DayValues values;
  for (Eigen::Index day = 0; day < x.rows(); ++day) {
    members.clear();
    for (Eigen::Index column = 0; column < x.cols(); ++column) {
      const int group = groups(day, column);
      if (group != kNoGroup && !std::isnan(x(day, column))) members.emplace_back(group, column);
    }
    std::sort(members.begin(), members.end());
    for (std::size_t first = 0; first < members.size();) {
      std::size_t end = first;
      values.clear();
      for (; end < members.size() && members[end].first == members[first].first; ++end)
        values.push_back(x(day, members[end].second));
      function(values);
      for (std::size_t i = first; i < end; ++i)
        result(day, members[i].second) = finite_or_nan(values[i - first]);
      first = end;
    }
  }
  return result;
}

}  // namespace

Panel group_demean(const Panel& x, const GroupPanel& groups) {
  return each_group(x, groups, demean_values);
}

Panel group_rank(const Panel& x, const GroupPanel& groups) {
  Ranking ranking;
  return each_group(x, groups, [&ranking](DayValues& values) { ranking(values); });
}

Panel group_zscore(const Panel& x, const GroupPanel& groups) {
  return each_group(x, groups, zscore_values);
}

}  // namespace varnholt::embedded
