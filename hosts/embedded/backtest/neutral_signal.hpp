// What all instruments of a day have in common, taken out of a signal before weights are made of
// it.
//
//   z(t,i) = x(t,i) - mean_j x(t,j)
//
// over the instruments j of the market, or of the group of i on that day, whose signal is known.
// The weights are z scaled to one unit of gross exposure, so that buys and sells of the market, or
// of each group, are the same. An instrument whose signal is not known has no weight, nor has one
// without a group. Where an instrument is the only one that is known, or where the values are the
// same but for rounding (kConstantTolerance), nothing is left: z is 0.
#pragma once

#include <string>
#include <vector>

#include "hosts/embedded/backtest/book_rules.hpp"
#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/vocabulary/day_tiles.hpp"

namespace varnholt::embedded {

// What is done with the days of a tile in their place, while they are in the cache.
using TileStep = void (*)(const DayTile& tile, Panel& panel);

// Each day divided by its greatest absolute value, and then z; NaN where that is not known. Without
// groups the market is one. Each tile is taken through `then`, if there is such a step.
[[nodiscard]] Panel neutral_signal(Panel signal, const GroupPanel* groups = nullptr,
                                   TileStep then = nullptr);

// Whether the rules name a group.
[[nodiscard]] bool is_neutral_by_group(const BookRules& rules);

// Throws std::invalid_argument, with the remedy, where they name one that is not among `groups`.
void require_neutral_group(const BookRules& rules, const std::vector<std::string>& groups);

}  // namespace varnholt::embedded
