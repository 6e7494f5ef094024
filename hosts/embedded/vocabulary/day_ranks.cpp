#include "hosts/embedded/vocabulary/day_ranks.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/day_tiles.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/vector_kernels.hpp"

namespace varnholt::embedded {
namespace {

// A value of a day, and which column it is of.
struct Member {
  double value = 0.0;
  std::uint32_t column = 0;
  std::uint32_t coarse = 0;  // In the order of the values, but equal for values that are near.
};
using Members = std::vector<Member>;

bool is_less(const Member& a, const Member& b) {
  return a.value < b.value;
}

// With fewer values the tables of the radix sort cost more than comparisons do.
constexpr std::size_t kLeastForRadix = 50;
constexpr std::size_t kDigitBits = 8;
constexpr std::size_t kDigits = 32 / kDigitBits;
constexpr std::size_t kDigitValues = std::size_t{1} << kDigitBits;

// The upper half of the bits of a double, put in the order of the numbers: those of a negative one
// are turned, and the others come after it.
std::uint32_t coarse_of(double value) {
  std::uint64_t bits = 0;
  const double without_sign_of_zero = value + 0.0;
  std::memcpy(&bits, &without_sign_of_zero, sizeof bits);
  const auto upper = static_cast<std::uint32_t>(bits >> 32);
  constexpr std::uint32_t kSign = 0x80000000;
  return (upper & kSign) != 0 ? ~upper : upper | kSign;
}

// Sorts members; keeps its memory from one day to the next.
class MemberSort {
 public:
  void operator()(Members& members) {
    if (members.size() < kLeastForRadix) {
      std::sort(members.begin(), members.end(), is_less);
      return;
    }
    sort_coarsely(members);
    sort_finely(members);
  }

 private:
  // By the digits of the coarse number, the last one first; each pass keeps the order of the one
  // before it. A digit that all of them share needs none.
  void sort_coarsely(Members& members) {
    std::array<std::array<std::uint32_t, kDigitValues>, kDigits> counts{};
    for (Member& member : members) {
      member.coarse = coarse_of(member.value);
      for (std::size_t digit = 0; digit < kDigits; ++digit)
        ++counts[digit][digit_of(member, digit)];
    }
    other_.resize(members.size());
    for (std::size_t digit = 0; digit < kDigits; ++digit) {
      std::array<std::uint32_t, kDigitValues>& places = counts[digit];
      if (places[digit_of(members.front(), digit)] == members.size()) continue;
      std::uint32_t next = 0;
      for (std::uint32_t& place : places)
        next += std::exchange(place, next);
      for (const Member& member : members)
        other_[places[digit_of(member, digit)]++] = member;
      members.swap(other_);
    }
  }

  static std::size_t digit_of(const Member& member, std::size_t digit) {
    return (member.coarse >> (digit * kDigitBits)) % kDigitValues;
  }

  // Among those of one coarse number.
  static void sort_finely(Members& members) {
    for (auto first = members.begin(); first != members.end();) {
      auto end = first + 1;
      while (end != members.end() && end->coarse == first->coarse)
        ++end;
      if (end - first > 1) std::sort(first, end, is_less);
      first = end;
    }
  }

  Members other_;
};

// The ranks of sorted members, each given to `put(column, rank)`.
template <typename Put>
void rank_sorted(const Members& members, Put put) {
  const std::size_t count = members.size();
  if (count == 1) put(members.front().column, 0.5);
  for (std::size_t first = 0; count > 1 && first < count;) {
    std::size_t last = first;
    while (last + 1 < count && are_alike(members[last + 1].value, members[last].value))
      ++last;
    const double place = static_cast<double>(first + last) / 2.0;
    for (std::size_t i = first; i <= last; ++i)
      put(members[i].column, place / static_cast<double>(count - 1));
    first = last + 1;
  }
}

// The known values of the days of a tile, by day and group.
class TileMembers {
 public:
  explicit TileMembers(std::size_t groups) : groups_(groups), members_(groups * kTileDays) {}

  void take(const Panel& x, const GroupPanel* groups, const DayTile& tile) {
    for (Members& members : members_)
      members.clear();
    for (Eigen::Index column = 0; column < x.cols(); ++column) {
      const double* const from = tile.of_column(x, column);
      for (std::size_t day = 0; day < tile.days; ++day) {
        const Eigen::Index row = tile.first + static_cast<Eigen::Index>(day);
        const int group = groups == nullptr ? 0 : (*groups)(row, column);
        if (group == kNoGroup || std::isnan(from[day])) continue;
        members_[day * groups_ + static_cast<std::size_t>(group)].push_back(
            {from[day], static_cast<std::uint32_t>(column)});
      }
    }
  }

  [[nodiscard]] Members& of(std::size_t day, std::size_t group) {
    return members_[day * groups_ + group];
  }

 private:
  std::size_t groups_;
  std::vector<Members> members_;
};

// The values of kLanes days on from `first`; those behind the last day of the panel are not known.
class FewDays {
 public:
  FewDays(const Panel& x, Panel& result)
      : x_(x),
        result_(result),
        values_(static_cast<std::size_t>(x.cols()) * kLanes),
        ranks_(values_.size()) {}

  // Ranks them, and gives the days that are not ranked by that.
  std::array<bool, kLanes> rank(const VectorKernels& kernels, Eigen::Index first) {
    const auto columns = static_cast<std::size_t>(x_.cols());
    const auto days = static_cast<std::size_t>(x_.rows() - first);
    if (days >= kLanes) {
      const auto stride = static_cast<std::size_t>(x_.rows());
      return kernels.rank_few({x_.data() + first, stride, columns}, result_.data() + first);
    }
    std::fill(values_.begin(), values_.end(), kUnknown);
    copy(days, [&](std::size_t day, Eigen::Index column, std::size_t place) {
      values_[place] = x_(first + static_cast<Eigen::Index>(day), column);
    });
    const auto unsure = kernels.rank_few({values_.data(), kLanes, columns}, ranks_.data());
    copy(days, [&](std::size_t day, Eigen::Index column, std::size_t place) {
      result_(first + static_cast<Eigen::Index>(day), column) = ranks_[place];
    });
    return unsure;
  }

 private:
  template <typename Copy>
  void copy(std::size_t days, Copy copy_one) const {
    for (Eigen::Index column = 0; column < x_.cols(); ++column) {
      for (std::size_t day = 0; day < days; ++day)
        copy_one(day, column, static_cast<std::size_t>(column) * kLanes + day);
    }
  }

  const Panel& x_;
  Panel& result_;
  std::vector<double> values_;
  std::vector<double> ranks_;
};

// Ranks the days of a tile by sorting.
class SortedRanks {
 public:
  SortedRanks(const Panel& x, const GroupPanel* groups, std::size_t group_count)
      : x_(x), groups_(groups), group_count_(group_count), members_(group_count) {}

  void rank(const DayTile& tile, Panel& result) {
    members_.take(x_, groups_, tile);
    for (std::size_t day = 0; day < tile.days; ++day) {
      double* const to = result.data() + tile.first + static_cast<Eigen::Index>(day);
      for (std::size_t group = 0; group < group_count_; ++group) {
        sort_(members_.of(day, group));
        rank_sorted(members_.of(day, group), [&](std::uint32_t column, double rank) {
          to[static_cast<Eigen::Index>(column) * x_.rows()] = rank;
        });
      }
    }
  }

 private:
  const Panel& x_;
  const GroupPanel* groups_;
  std::size_t group_count_;
  TileMembers members_;
  MemberSort sort_;
};

// The ranks of so few instruments that each is compared with each.
Panel ranks_of_few(const Panel& x) {
  Panel result(x.rows(), x.cols());
  FewDays few(x, result);
  SortedRanks sorted(x, nullptr, 1);
  for (Eigen::Index first = 0; first < x.rows(); first += kLanes) {
    const auto unsure = few.rank(vector_kernels(), first);
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
      if (unsure[lane]) sorted.rank({first + static_cast<Eigen::Index>(lane), 1}, result);
    }
  }
  return result;
}

}  // namespace

Panel day_ranks(const Panel& x, const GroupPanel* groups) {
  const bool has_groups = groups != nullptr && groups->size() > 0;
  if (!has_groups && x.cols() <= static_cast<Eigen::Index>(kMostOfFew)) return ranks_of_few(x);
  const std::size_t group_count =
      has_groups ? static_cast<std::size_t>(std::max(groups->maxCoeff() + 1, 1)) : 1;
  Panel result = Panel::Constant(x.rows(), x.cols(), kUnknown);
  SortedRanks sorted(x, groups, group_count);
  for (const DayTile& tile : day_tiles(x))
    sorted.rank(tile, result);
  return result;
}

}  // namespace varnholt::embedded
