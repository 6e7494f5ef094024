// Sums over the instruments of a day, or of a group of them, for a tile of days at a time.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "hosts/embedded/vocabulary/day_tiles.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/widest_vectors.hpp"

namespace varnholt::embedded {

// One number for each group on each day of a tile. Of one group they lie on the stack, where a
// compiler knows that nothing else points to them, and vectorises.
class OneGroupSums {
 public:
  explicit OneGroupSums(std::size_t /*groups*/) {}

  void clear() { values_.fill(0.0); }
  [[nodiscard]] double* data() { return values_.data(); }
  [[nodiscard]] static std::size_t size() { return kTileDays; }

 private:
  DaySums values_{};
};

class ManyGroupSums {
 public:
  explicit ManyGroupSums(std::size_t groups) : values_(groups * kTileDays) {}

  void clear() { std::fill(values_.begin(), values_.end(), 0.0); }
  [[nodiscard]] double* data() { return values_.data(); }
  [[nodiscard]] std::size_t size() const { return values_.size(); }

 private:
  std::vector<double> values_;
};

// All instruments are one group.
struct OneGroup {
  using Sums = OneGroupSums;
  [[nodiscard]] static std::size_t count() { return 1; }
  [[nodiscard]] static int of(Eigen::Index /*day*/, Eigen::Index /*column*/) { return 0; }
};

// The groups of a panel, which must outlive the object.
class ManyGroups {
 public:
  using Sums = ManyGroupSums;
  explicit ManyGroups(const GroupPanel& groups)
      : groups_(groups), count_(groups.size() == 0 ? 1 : std::max(groups.maxCoeff() + 1, 1)) {}

  [[nodiscard]] std::size_t count() const { return static_cast<std::size_t>(count_); }
  [[nodiscard]] int of(Eigen::Index day, Eigen::Index column) const { return groups_(day, column); }

 private:
  const GroupPanel& groups_;
  int count_;
};

struct TileEntry {
  std::size_t place = 0;   // Where the sums have its group on its day.
  std::size_t day = 0;     // Of the tile.
  bool is_member = false;  // Of its group: false for what is not known or in none.
};

// Calls `function(entry, value, result)` for every entry of a tile: instrument after instrument, so
// that a group is added up in the order of the columns. What is no member must change no sum, and
// adding 0 to one that begins with 0 does not. So the loop needs no branch, and is vectorised where
// what is chosen from has been read before.
template <typename Groups, typename Function>
[[gnu::always_inline]] inline void each_entry(const Panel& x, const DayTile& tile,
                                              const Groups& groups, Panel& result,
                                              Function function) {
  for (Eigen::Index column = 0; column < x.cols(); ++column) {
    const double* const from = tile.of_column(x, column);
    double* const to = tile.of_column(result, column);
    tile.expect_after(x, column);
    tile.expect_after(result, column);
    for (std::size_t day = 0; day < tile.days; ++day) {
      const int group = groups.of(tile.first + static_cast<Eigen::Index>(day), column);
      const bool is_member = group != kNoGroup && std::isfinite(from[day]);
      const std::size_t place = static_cast<std::size_t>(group < 0 ? 0 : group) * kTileDays + day;
      function({place, day, is_member}, from[day], to[day]);
    }
  }
}

// How many members the groups of a tile have, and the mean of each.
template <typename Groups>
[[gnu::always_inline]] inline void find_means(const Panel& x, const DayTile& tile,
                                              const Groups& groups, Panel& scratch,
                                              typename Groups::Sums& counts,
                                              typename Groups::Sums& means) {
  counts.clear();
  means.clear();
  each_entry(x, tile, groups, scratch,
             [count = counts.data(), mean = means.data()](const TileEntry& entry, double value,
                                                          double& /*result*/) {
               count[entry.place] += entry.is_member ? 1.0 : 0.0;
               mean[entry.place] += entry.is_member ? value : 0.0;
             });
  for (std::size_t i = 0; i < means.size(); ++i)
    means.data()[i] /= counts.data()[i];
}

// x - mean of its group.
template <typename Groups>
Panel demeaned(const Panel& x, const Groups& groups) {
  Panel result(x.rows(), x.cols());
  typename Groups::Sums counts(groups.count());
  typename Groups::Sums means(groups.count());
  for (const DayTile& tile : day_tiles(x)) {
    in_widest_vectors([&] {
      find_means(x, tile, groups, result, counts, means);
      each_entry(x, tile, groups, result,
                 [mean = means.data()](const TileEntry& entry, double value, double& centred) {
                   const double deviation = finite_or_nan(value - mean[entry.place]);
                   centred = entry.is_member ? deviation : kUnknown;
                 });
    });
  }
  return result;
}

// (x - mean) / s of its group; NaN for a group of one, and for one that is constant.
template <typename Groups>
Panel standardized(const Panel& x, const Groups& groups) {
  Panel result(x.rows(), x.cols());
  typename Groups::Sums counts(groups.count());
  typename Groups::Sums means(groups.count());
  typename Groups::Sums squares(groups.count());
  typename Groups::Sums deviations(groups.count());
  for (const DayTile& tile : day_tiles(x)) {
    in_widest_vectors([&] {
      find_means(x, tile, groups, result, counts, means);
      squares.clear();
      deviations.clear();
      each_entry(x, tile, groups, result,
                 [mean = means.data(), square = squares.data(), spread = deviations.data()](
                     const TileEntry& entry, double value, double& centred) {
                   const double deviation = value - mean[entry.place];
                   centred = entry.is_member ? deviation : kUnknown;
                   square[entry.place] += entry.is_member ? value * value : 0.0;
                   spread[entry.place] += entry.is_member ? deviation * deviation : 0.0;
                 });
      for (std::size_t i = 0; i < deviations.size(); ++i) {
        double& spread = deviations.data()[i];
        const double count = counts.data()[i];
        const bool is_constant = count < 2.0 || spread <= kConstantTolerance * squares.data()[i];
        spread = is_constant ? kUnknown : std::sqrt(spread / (count - 1.0));
      }
      each_entry(
          result, tile, groups, result,
          [spread = deviations.data()](const TileEntry& entry, double centred, double& score) {
            score = finite_or_nan(centred / spread[entry.place]);
          });
    });
  }
  return result;
}

}  // namespace varnholt::embedded
