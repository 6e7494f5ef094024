// Panels in tiles of a few days, for what is added up across the instruments.
//
// A panel lies instrument after instrument. Adding up a day at a time would take one number from
// each of many places; adding up all days at a time goes through the panel once for every step. A
// tile of some days of all instruments stays in the cache from step to step, and the days of one
// instrument, which lie together, are worked on side by side.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// The most days of a tile; of many instruments a tile has fewer, down to what lies in a cache line.
inline constexpr std::size_t kTileDays = 64;
inline constexpr Eigen::Index kFewestTileDays = 8;
inline constexpr Eigen::Index kTileCells = 32768;

// How long memory takes to answer, in columns that are worked on meanwhile.
inline constexpr Eigen::Index kColumnsAhead = 16;

// One number for each day of a tile.
using DaySums = std::array<double, kTileDays>;

struct DayTile {
  Eigen::Index first = 0;
  std::size_t days = 0;  // At most kTileDays.

  template <typename AnyPanel>
  [[nodiscard]] auto* of_column(AnyPanel& panel, Eigen::Index column) const {
    return panel.data() + column * panel.rows() + first;
  }

  // Asks for the days of a column that comes soon after this one. Columns lie further apart than a
  // processor looks ahead by itself, and of many there are more than its cache holds.
  template <typename AnyPanel>
  void expect_after(const AnyPanel& panel, Eigen::Index column) const {
    if (column + kColumnsAhead >= panel.cols()) return;
    const auto* const coming = of_column(panel, column + kColumnsAhead);
    __builtin_prefetch(coming);
    __builtin_prefetch(coming + days - 1);
  }
};

// All days of the panel, in order.
[[nodiscard]] inline std::vector<DayTile> day_tiles(const Panel& panel) {
  std::vector<DayTile> tiles;
  const auto tile_days = std::clamp(kTileCells / std::max<Eigen::Index>(panel.cols(), 1),
                                    kFewestTileDays, static_cast<Eigen::Index>(kTileDays));
  tiles.reserve(static_cast<std::size_t>(panel.rows() / tile_days + 1));
  for (Eigen::Index first = 0; first < panel.rows(); first += tile_days) {
    const Eigen::Index days = std::min(tile_days, panel.rows() - first);
    tiles.push_back({first, static_cast<std::size_t>(days)});
  }
  return tiles;
}

}  // namespace varnholt::embedded
