// The ranks of days of few, some and many instruments, and of groups of them, have the bits of
// their definition, however the values lie.
// Method: panels of each kind of values and of sizes on either side of every limit, beside a sort
// of each day by values alone.
#include "hosts/embedded/vocabulary/day_ranks.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using Draw = std::function<double(std::mt19937_64& engine)>;

double normal(std::mt19937_64& engine) {
  return std::normal_distribution<double>()(engine);
}

// How values may lie: each is hard on one way to sort by bits.
std::vector<std::pair<std::string, Draw>> kinds_of_values() {
  return {
      {"of both signs", normal},
      {"of all sizes", [](std::mt19937_64& engine) { return std::exp(100.0 * normal(engine)); }},
      {"close together", [](std::mt19937_64& engine) { return 100.0 + 1e-6 * normal(engine); }},
      {"hardly apart", [](std::mt19937_64& engine) { return 1.0 + 1e-9 * normal(engine); }},
      {"with an outlier",
       [](std::mt19937_64& engine) { return engine() % 500 == 0 ? 1e200 : normal(engine); }},
      {"often equal",
       [](std::mt19937_64& engine) { return 0.1 * static_cast<double>(engine() % 7) - 0.3; }},
      {"all equal", [](std::mt19937_64& /*engine*/) { return 5.0; }},
      {"zeros of both signs",
       [](std::mt19937_64& engine) { return engine() % 2 == 0 ? -0.0 : 0.0; }},
  };
}

// Of the columns of one group, in place of their values.
void rank_by_definition(const std::vector<Eigen::Index>& columns, const Panel& x, Eigen::Index day,
                        Panel& ranks) {
  std::vector<std::pair<double, Eigen::Index>> members;
  members.reserve(columns.size());
  for (const Eigen::Index column : columns)
    members.emplace_back(x(day, column), column);
  std::sort(members.begin(), members.end());
  const auto others = static_cast<double>(members.size()) - 1.0;
  for (std::size_t first = 0; first < members.size();) {
    std::size_t last = first;
    while (last + 1 < members.size() && are_alike(members[last].first, members[last + 1].first))
      ++last;
    const double place = static_cast<double>(first + last) / 2.0;
    for (std::size_t i = first; i <= last; ++i)
      ranks(day, members[i].second) = others == 0.0 ? 0.5 : place / others;
    first = last + 1;
  }
}

Panel ranks_by_definition(const Panel& x, const GroupPanel& groups) {
  Panel ranks = Panel::Constant(x.rows(), x.cols(), kNan);
  for (Eigen::Index day = 0; day < x.rows(); ++day) {
    std::map<int, std::vector<Eigen::Index>> columns;
    for (Eigen::Index column = 0; column < x.cols(); ++column) {
      const int group = groups(day, column);
      if (group != kNoGroup && !std::isnan(x(day, column))) columns[group].push_back(column);
    }
    for (const auto& [group, members] : columns)
      rank_by_definition(members, x, day, ranks);
  }
  return ranks;
}

class DayRanksOfColumns : public testing::TestWithParam<int> {
 protected:
  static constexpr Eigen::Index kDays = 13;  // No multiple of the days of a tile.

  Panel drawn(const Draw& draw) {
    Panel x(kDays, GetParam());
    for (double& value : x.reshaped())
      value = engine_() % 50 == 0 ? kNan : draw(engine_);
    x.row(3).setConstant(kNan);
    x.row(4).setConstant(kNan);
    x(4, 0) = 7.0;
    return x;
  }

  std::mt19937_64 engine_{11};
};

TEST_P(DayRanksOfColumns, OfAllInstrumentsAreThoseOfTheirDefinition) {
  const GroupPanel one = GroupPanel::Zero(kDays, GetParam());
  for (const auto& [kind, draw] : kinds_of_values()) {
    SCOPED_TRACE(kind);
    const Panel x = drawn(draw);
    EXPECT_TRUE(begins_with(ranks_by_definition(x, one), day_ranks(x, nullptr)));
  }
}

TEST_P(DayRanksOfColumns, OfGroupsAreThoseOfTheirDefinition) {
  for (const int group_count : {1, 3, 40}) {
    GroupPanel groups(kDays, GetParam());
    for (int& group : groups.reshaped())
      group = static_cast<int>(engine_() % static_cast<unsigned>(group_count + 1)) - 1;
    for (const auto& [kind, draw] : kinds_of_values()) {
      SCOPED_TRACE(kind + ", groups: " + std::to_string(group_count));
      const Panel x = drawn(draw);
      EXPECT_TRUE(begins_with(ranks_by_definition(x, groups), day_ranks(x, &groups)));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, DayRanksOfColumns,
                         testing::Values(1, 2, 19, 21, 32, 33, 70, 600, 1010, 3000));

}  // namespace
}  // namespace varnholt::embedded::test
