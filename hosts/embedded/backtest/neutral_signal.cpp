#include "hosts/embedded/backtest/neutral_signal.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/tile_sums.hpp"
#include "hosts/embedded/vocabulary/widest_vectors.hpp"

namespace varnholt::embedded {
namespace {

// Sums of large or of small values would overflow, or lose what is left after the mean: so each day
// is divided by its greatest value, and a day of zeros by one.
DaySums divisors_of_days(const Panel& signal, const DayTile& tile) {
  DaySums greatest{};
  for (Eigen::Index column = 0; column < signal.cols(); ++column) {
    const double* const from = tile.of_column(signal, column);
    tile.expect_after(signal, column);
    for (std::size_t day = 0; day < tile.days; ++day) {
      const double size = std::abs(from[day]);
      greatest[day] = std::isfinite(size) && size > greatest[day] ? size : greatest[day];
    }
  }
  for (double& value : greatest)
    value = value == 0.0 ? 1.0 : value;
  return greatest;
}

// What is known of the groups of a tile.
template <typename Groups>
struct TileFigures {
  explicit TileFigures(std::size_t groups)
      : counts(groups), means(groups), squares(groups), deviations(groups) {}

  typename Groups::Sums counts;
  typename Groups::Sums means;
  typename Groups::Sums squares;
  typename Groups::Sums deviations;
};

// In the place of the signal.
template <typename Groups>
void neutralize_tile(Panel& panel, const DayTile& tile, const Groups& groups,
                     TileFigures<Groups>& figures) {
  const DaySums divisors = divisors_of_days(panel, tile);
  figures.squares.clear();
  figures.deviations.clear();
  each_entry(panel, tile, groups, panel,
             [&divisors](const TileEntry& entry, double value, double& scaled) {
               const double share = value / divisors[entry.day];
               scaled = entry.is_member ? share : kUnknown;
             });
  find_means(panel, tile, groups, panel, figures.counts, figures.means);
  each_entry(panel, tile, groups, panel,
             [mean = figures.means.data(), square = figures.squares.data(),
              spread = figures.deviations.data()](const TileEntry& entry, double scaled,
                                                  double& /*result*/) {
               const double deviation = scaled - mean[entry.place];
               square[entry.place] += entry.is_member ? scaled * scaled : 0.0;
               spread[entry.place] += entry.is_member ? deviation * deviation : 0.0;
             });
  each_entry(
      panel, tile, groups, panel,
      [mean = figures.means.data(), square = figures.squares.data(),
       spread = figures.deviations.data()](const TileEntry& entry, double scaled, double& result) {
        const double none = scaled - scaled;  // Not known where that is not.
        const double deviation = scaled - mean[entry.place];
        const double rounding = kConstantTolerance * square[entry.place];
        result = spread[entry.place] <= rounding ? none : deviation;
      });
}

// What follows for the days of a tile is done while they are in the cache.
template <typename Groups>
void neutralize(Panel& panel, const Groups& groups, TileStep then) {
  TileFigures<Groups> figures(groups.count());
  for (const DayTile& tile : day_tiles(panel)) {
    in_widest_vectors([&] { neutralize_tile(panel, tile, groups, figures); });
    if (then != nullptr) then(tile, panel);
  }
}

}  // namespace

Panel neutral_signal(Panel signal, const GroupPanel* groups, TileStep then) {
  if (groups != nullptr && (groups->rows() != signal.rows() || groups->cols() != signal.cols())) {
    throw std::invalid_argument(
        "a signal and groups of two shapes; take both from the same market data");
  }
  if (groups == nullptr) {
    neutralize(signal, OneGroup(), then);
  } else {
    neutralize(signal, ManyGroups(*groups), then);
  }
  return signal;
}

bool is_neutral_by_group(const BookRules& rules) {
  return rules.neutralize != kNeutralizeNone && rules.neutralize != kNeutralizeMarket;
}

void require_neutral_group(const BookRules& rules, const std::vector<std::string>& groups) {
  if (!is_neutral_by_group(rules)) return;
  if (std::find(groups.begin(), groups.end(), rules.neutralize) != groups.end()) return;
  throw std::invalid_argument(fmt::format(
      "the prices have no column \"{}\" whose groups weights can be neutralized by; give prices "
      "that have it, or neutralize by {}",
      rules.neutralize,
      groups.empty() ? std::string("none or market")
                     : fmt::format("none, market or {}", fmt::join(groups, " or "))));
}

}  // namespace varnholt::embedded
