#include "hosts/embedded/vocabulary/day_ranks.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/day_tiles.hpp"
#include "hosts/embedded/vocabulary/ordered_bits.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/vector_kernels.hpp"

namespace varnholt::embedded {
namespace {

// A column whose value of the day is known.
struct Member {
  std::uint32_t column = 0;
  std::uint32_t coarse = 0;  // In the order of the values, but equal for values that are near.
};

// With fewer values the tables of the radix sort cost more than comparisons do.
constexpr std::size_t kLeastForRadix = 20;
// From so many values on fewer digits pay, whose tables are larger.
constexpr std::size_t kLeastForLargeTables = 1000;

// Members by the value of their columns; keeps its memory from one day to the next.
class MemberSort {
 public:
  explicit MemberSort(std::size_t columns) : bits_(columns), other_(columns), sorted_(columns) {}

  void operator()(Member* members, std::size_t count, const double* values) {
    values_ = values;
    if (count < kLeastForRadix) {
      sort_by_values(members, members + count);
    } else if (count < kLeastForLargeTables) {
      sort_coarsely<8, 3>(members, count);
    } else {
      sort_coarsely<11, 2>(members, count);
    }
    copy_values(members, 0, count);
    if (count >= kLeastForRadix) sort_finely(members, count);
  }

  // The values in the order of the members that were sorted last.
  [[nodiscard]] const double* sorted() const { return sorted_.data(); }

 private:
  template <unsigned kBits, unsigned kDigits>
  struct Tables {
    static constexpr std::size_t kSize = std::size_t{1} << kBits;
    std::array<std::array<std::uint32_t, kSize>, kDigits> places{};

    static std::size_t digit_of(const Member& member, unsigned digit) {
      return (member.coarse >> (digit * kBits)) % kSize;
    }
  };

  // By the digits of the coarse number, the last one first; each pass keeps the order of the one
  // before it. A digit that all of them share needs none.
  template <unsigned kBits, unsigned kDigits>
  void sort_coarsely(Member* members, std::size_t count) {
    Tables<kBits, kDigits> tables;
    set_coarse_numbers(members, count, kBits * kDigits);
    for (std::size_t i = 0; i < count; ++i) {
      for (unsigned digit = 0; digit < kDigits; ++digit)
        ++tables.places[digit][tables.digit_of(members[i], digit)];
    }
    Member* from = members;
    Member* to = other_.data();
    for (unsigned digit = 0; digit < kDigits; ++digit) {
      auto& places = tables.places[digit];
      if (places[tables.digit_of(*from, digit)] == count) continue;
      std::uint32_t next = 0;
      for (std::uint32_t& place : places)
        next += std::exchange(place, next);
      for (std::size_t i = 0; i < count; ++i)
        to[places[tables.digit_of(from[i], digit)]++] = from[i];
      std::swap(from, to);
    }
    if (from != members) std::copy(from, from + count, members);
  }

  // Counted from the least value on, in as fine steps as so many bits can tell.
  void set_coarse_numbers(Member* members, std::size_t count, int bits) {
    std::uint64_t least = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t greatest = 0;
    for (std::size_t i = 0; i < count; ++i) {
      bits_[i] = ordered_bits(values_[members[i].column]);
      least = std::min(least, bits_[i]);
      greatest = std::max(greatest, bits_[i]);
    }
    const int dropped = std::max(64 - std::countl_zero(greatest - least) - bits, 0);
    for (std::size_t i = 0; i < count; ++i)
      members[i].coarse = static_cast<std::uint32_t>((bits_[i] - least) >> dropped);
  }

  // Among those of one coarse number.
  void sort_finely(Member* members, std::size_t count) {
    for (std::size_t i = 1; i < count; ++i) {
      if (!(sorted_[i] < sorted_[i - 1])) continue;
      const std::uint32_t coarse = members[i].coarse;
      std::size_t first = i - 1;
      while (first > 0 && members[first - 1].coarse == coarse)
        --first;
      while (i < count && members[i].coarse == coarse)
        ++i;
      sort_by_values(members + first, members + i);
      copy_values(members, first, i);
    }
  }

  void sort_by_values(Member* first, Member* end) const {
    std::sort(first, end, [values = values_](const Member& a, const Member& b) {
      return values[a.column] < values[b.column];
    });
  }

  void copy_values(const Member* members, std::size_t first, std::size_t end) {
    for (std::size_t i = first; i < end; ++i)
      sorted_[i] = values_[members[i].column];
  }

  const double* values_ = nullptr;
  std::vector<std::uint64_t> bits_;
  std::vector<Member> other_;
  std::vector<double> sorted_;
};

// The ranks of sorted values, each given to `put(place, rank)`.
template <typename Put>
void rank_sorted(const double* sorted, std::size_t count, Put put) {
  if (count == 1) return put(std::size_t{0}, 0.5);
  const auto others = static_cast<double>(count) - 1.0;
  std::size_t alike = 0;
  for (std::size_t i = 1; i < count; ++i)
    alike += are_alike(sorted[i], sorted[i - 1]) ? 1 : 0;
  if (alike == 0) {
    for (std::size_t i = 0; i < count; ++i)
      put(i, static_cast<double>(i) / others);
    return;
  }
  for (std::size_t first = 0; first < count;) {
    std::size_t last = first;
    while (last + 1 < count && are_alike(sorted[last + 1], sorted[last]))
      ++last;
    const double rank = static_cast<double>(first + last) / 2.0 / others;
    for (std::size_t i = first; i <= last; ++i)
      put(i, rank);
    first = last + 1;
  }
}

// Ranks a day in the place of its values; keeps its memory from one day to the next.
class DaySort {
 public:
  DaySort(std::size_t columns, std::size_t groups)
      : columns_(columns), members_(columns), ends_(groups), sort_(columns) {}

  // All are one group.
  void rank(double* values) {
    std::size_t count = 0;
    for (std::size_t column = 0; column < columns_; ++column) {
      members_[count].column = static_cast<std::uint32_t>(column);
      count += std::isnan(values[column]) ? 0 : 1;
    }
    rank_members(values, 0, count);
  }

  // Each within its group; what is in none has no rank.
  void rank(double* values, const int* groups) {
    std::fill(ends_.begin(), ends_.end(), 0);
    for (std::size_t column = 0; column < columns_; ++column) {
      if (groups[column] == kNoGroup) values[column] = kUnknown;
      if (!std::isnan(values[column])) ++ends_[static_cast<std::size_t>(groups[column])];
    }
    std::size_t next = 0;
    for (std::size_t& end : ends_)
      next += std::exchange(end, next);
    for (std::size_t column = 0; column < columns_; ++column) {
      if (std::isnan(values[column])) continue;
      std::size_t& place = ends_[static_cast<std::size_t>(groups[column])];
      members_[place++].column = static_cast<std::uint32_t>(column);
    }
    std::size_t first = 0;
    for (const std::size_t end : ends_)
      rank_members(values, std::exchange(first, end), end);
  }

 private:
  void rank_members(double* values, std::size_t first, std::size_t end) {
    if (first == end) return;
    Member* const members = members_.data() + first;
    sort_(members, end - first, values);
    rank_sorted(sort_.sorted(), end - first,
                [&](std::size_t place, double rank) { values[members[place].column] = rank; });
  }

  std::size_t columns_;
  std::vector<Member> members_;
  std::vector<std::size_t> ends_;  // Of the groups, among the members.
  MemberSort sort_;
};

// The days of a tile, each with its entries side by side. In the panel itself each value of a day,
// and each rank, lies in a line of memory of its own.
template <typename Entry>
class TileRows {
 public:
  using Entries = Eigen::Array<Entry, Eigen::Dynamic, Eigen::Dynamic>;

  void take(const Entries& panel, const DayTile& tile) {
    columns_ = panel.cols();
    entries_.resize(tile.days * static_cast<std::size_t>(columns_));
    for (Eigen::Index column = 0; column < columns_; ++column) {
      const Entry* const from = tile.of_column(panel, column);
      tile.expect_after(panel, column);
      for (std::size_t day = 0; day < tile.days; ++day)
        of(day)[column] = from[day];
    }
  }

  void give(const DayTile& tile, Entries& panel) {
    for (Eigen::Index column = 0; column < columns_; ++column) {
      Entry* const to = tile.of_column(panel, column);
      tile.expect_after(panel, column);
      for (std::size_t day = 0; day < tile.days; ++day)
        to[day] = of(day)[column];
    }
  }

  [[nodiscard]] Entry* of(std::size_t day) {
    return entries_.data() + static_cast<Eigen::Index>(day) * columns_;
  }

 private:
  Eigen::Index columns_ = 0;
  std::vector<Entry> entries_;
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
      : x_(x), groups_(groups), sort_(static_cast<std::size_t>(x.cols()), group_count) {}

  void rank(const DayTile& tile, Panel& result) {
    rows_.take(x_, tile);
    if (groups_ != nullptr) group_rows_.take(*groups_, tile);
    for (std::size_t day = 0; day < tile.days; ++day) {
      if (groups_ == nullptr) {
        sort_.rank(rows_.of(day));
      } else {
        sort_.rank(rows_.of(day), group_rows_.of(day));
      }
    }
    rows_.give(tile, result);
  }

 private:
  const Panel& x_;
  const GroupPanel* groups_;
  TileRows<double> rows_;
  TileRows<int> group_rows_;
  DaySort sort_;
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
  Panel result(x.rows(), x.cols());
  SortedRanks sorted(x, has_groups ? groups : nullptr, group_count);
  for (const DayTile& tile : day_tiles(x))
    sorted.rank(tile, result);
  return result;
}

}  // namespace varnholt::embedded
