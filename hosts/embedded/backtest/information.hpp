// How well a signal tells which instruments will do better than others: information coefficients.
//
// A position of a holding day t earns the return of each instrument from the close of day t to the
// close of day t + 1. With a delay of d days it is made of the signal of day t - d, at lag 1; at
// lag k of the signal k - 1 days earlier still:
//
//   ic(t, k) = corr_i(x(t - d - k + 1, i), close(t+1, i) / close(t, i) - 1)
//
// over the instruments whose signal is finite on the one day and whose closes are known on both of
// the others. A day with fewer than kLeastInstruments of them, or where either has no spread,
// counts nowhere. So no return counts that lies outside the holding days, and none twice.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include <Eigen/Core>

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

inline constexpr std::size_t kInformationLags = 20;
inline constexpr Eigen::Index kLeastInstruments = 3;

// The mean of ic(t) over the days that have one, and that mean over its standard error s / sqrt(n).
// NaN without a day; the t-value also for fewer than two days and without spread.
struct InformationCoefficient {
  double mean = 0.0;
  double t_value = 0.0;
  std::int64_t days = 0;
};

struct InformationFigures {
  // With Pearson's correlation, and with that of the ranks (C. Spearman, 1904; values that are
  // alike share the mean of their ranks), at lag 1.
  InformationCoefficient pearson;
  InformationCoefficient rank;
  // The means with Pearson's correlation at lags 1 to 20.
  std::array<double, kInformationLags> by_lag = {};
};

// Of the holding days first_day .. first_day + day_count - 1, which the closes must hold.
[[nodiscard]] InformationFigures information_figures(const Panel& signal, const Panel& close,
                                                     int delay_days, Eigen::Index first_day,
                                                     Eigen::Index day_count);

}  // namespace varnholt::embedded
