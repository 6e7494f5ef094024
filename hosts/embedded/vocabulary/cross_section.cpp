// The functions of panel_functions.hpp that work across the instruments of a day.
#include <cmath>
#include <limits>

#include "hosts/embedded/vocabulary/day_ranks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/tile_sums.hpp"
#include "hosts/embedded/vocabulary/widest_vectors.hpp"

namespace varnholt::embedded {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

}  // namespace

Panel cross_rank(const Panel& x) {
  return day_ranks(x, nullptr);
}

Panel cross_winsorize(const Panel& x, double spreads) {
  constexpr OneGroup kAll;
  Panel result(x.rows(), x.cols());
  OneGroupSums counts(1);
  OneGroupSums means(1);
  OneGroupSums deviations(1);
  OneGroupSums lows(1);
  OneGroupSums highs(1);
  for (const DayTile& tile : day_tiles(x)) {
    in_widest_vectors([&] {
      find_means(x, tile, kAll, result, counts, means);
      deviations.clear();
      each_entry(x, tile, kAll, result,
                 [mean = means.data(), spread = deviations.data()](
                     const TileEntry& entry, double value, double& /*result*/) {
                   const double deviation = value - mean[entry.place];
                   spread[entry.place] += entry.is_member ? deviation * deviation : 0.0;
                 });
      for (std::size_t day = 0; day < tile.days; ++day) {
        const double count = counts.data()[day];
        const double reach = spreads * std::sqrt(deviations.data()[day] / (count - 1.0));
        lows.data()[day] = count < 2.0 ? -kInfinity : means.data()[day] - reach;
        highs.data()[day] = count < 2.0 ? kInfinity : means.data()[day] + reach;
      }
      each_entry(x, tile, kAll, result,
                 [low = lows.data(), high = highs.data()](const TileEntry& entry, double value,
                                                          double& kept) {
                   const double least = low[entry.place];
                   const double most = high[entry.place];
                   const double above = value < least ? least : value;
                   const double within = most < value ? most : above;
                   kept = entry.is_member ? finite_or_nan(within) : kUnknown;
                 });
    });
  }
  return result;
}

Panel cross_zscore(const Panel& x) {
  return standardized(x, OneGroup());
}

Panel cross_demean(const Panel& x) {
  return demeaned(x, OneGroup());
}

Panel cross_scale(const Panel& x) {
  constexpr OneGroup kAll;
  Panel result(x.rows(), x.cols());
  OneGroupSums gross(1);
  for (const DayTile& tile : day_tiles(x)) {
    in_widest_vectors([&] {
      gross.clear();
      each_entry(x, tile, kAll, result,
                 [sum = gross.data()](const TileEntry& entry, double value, double& /*result*/) {
                   sum[entry.place] += entry.is_member ? std::abs(value) : 0.0;
                 });
      // A day of zeros is divided by one. An overflow of the sum would turn the whole day into
      // zeros that look like values.
      for (std::size_t day = 0; day < gross.size(); ++day) {
        double& sum = gross.data()[day];
        sum = sum == 0.0 ? 1.0 : finite_or_nan(sum);
      }
      each_entry(x, tile, kAll, result,
                 [sum = gross.data()](const TileEntry& entry, double value, double& share) {
                   const double of_gross = finite_or_nan(value / sum[entry.place]);
                   share = entry.is_member ? of_gross : kUnknown;
                 });
    });
  }
  return result;
}

}  // namespace varnholt::embedded
