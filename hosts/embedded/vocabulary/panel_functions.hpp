// The functions that signals are made of: each turns panels into a panel of the same shape. Those
// that work entry by entry stand in element_functions.hpp.
//
// A panel has one row a day and one column an instrument (see market_data.hpp). These rules hold
// for every function:
//
// - Entries are finite or NaN, and NaN means "not known". Where a result would not be finite
//   (an overflow, a division by next to nothing) it is NaN.
// - A result for a day depends on that day and on days before it, never on later ones. That holds
//   to the last bit: cutting off the end of the history leaves every other entry as it was. So no
//   loop here lets the number of rows decide in what order numbers are added.
// - Sums go through the instruments in the order of the columns, and through days from a grid
//   that is fixed at the first row, so equal input gives equal bits.
//
// Panels of two shapes and windows below 1 are std::invalid_argument.
#pragma once

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// How far a function over time looks back, and on how many of these days a value must be known.
struct Window {
  // All days must be known. Meant to convert: a number of days is a window.
  Window(Eigen::Index all_days) : days(all_days), least_known(all_days) {}
  // The share is above 0 and at most 1; the days that it comes to are rounded up.
  Window(Eigen::Index all_days, double least_known_share);

  Eigen::Index days;
  Eigen::Index least_known;
};

// --- Across the instruments, day by day. -------------------------------------------------------
// n is the number of instruments whose value is known that day; the others stay NaN.

// The place among the known values, 0.0 for the least and 1.0 for the greatest. Values that are
// alike (alike.hpp), each to the next in order, share the mean of their places. One known value has
// the rank 0.5.
[[nodiscard]] Panel cross_rank(const Panel& x);

// (x - mean) / s with the sample standard deviation s (divisor n - 1). NaN for the whole day where
// n < 2 or where the values are constant (see kConstantTolerance).
[[nodiscard]] Panel cross_zscore(const Panel& x);

// x - mean.
[[nodiscard]] Panel cross_demean(const Panel& x);

// x / sum |x|, so that the absolute values add up to 1. A day of nothing but zeros stays zero.
[[nodiscard]] Panel cross_scale(const Panel& x);

// x, but no further than `spreads` sample standard deviations (divisor n - 1) from the mean; as it
// is where n < 2.
[[nodiscard]] Panel cross_winsorize(const Panel& x, double spreads);

// --- Over time, instrument by instrument. ------------------------------------------------------
// The window is today and the window - 1 days before it. The result is NaN where today is not
// known, where fewer of the window's days are known than it asks for, and until the window lies
// behind the first known day of the instrument: what is missing in between may be left out, and a
// history that has only begun is not one with gaps. n is the number of known days; with two panels,
// of the days on which both are.

[[nodiscard]] Panel ts_mean(const Panel& x, const Window& window);

// The sum of the known values: a day that is missing adds nothing.
[[nodiscard]] Panel ts_sum(const Panel& x, const Window& window);
[[nodiscard]] Panel ts_min(const Panel& x, const Window& window);
[[nodiscard]] Panel ts_max(const Panel& x, const Window& window);

// The sample standard deviation (divisor n - 1); exactly 0 for a constant window, NaN where n
// is 1.
[[nodiscard]] Panel ts_std(const Panel& x, const Window& window);

// (today - mean) / s with the sample standard deviation s; NaN where s is 0.
[[nodiscard]] Panel ts_zscore(const Panel& x, const Window& window);

// The place of today's value in the window, 0.0 for the least and 1.0 for the greatest: each value
// that is less counts 1, each that is alike (alike.hpp) counts 1/2. 0.5 where n is 1.
[[nodiscard]] Panel ts_rank(const Panel& x, const Window& window);

// Today less the value `window` days ago. Only these two need to be known.
[[nodiscard]] Panel ts_delta(const Panel& x, const Window& window);

// The mean with linearly decaying weights: window for today, window - 1 for the day before, ... 1
// for the oldest day, divided by the sum of those of the known days.
[[nodiscard]] Panel ts_decay(const Panel& x, const Window& window);

// The sample covariance (divisor n - 1) of two panels; NaN where n is 1.
[[nodiscard]] Panel ts_covariance(const Panel& x, const Panel& y, const Window& window);

// Pearson's correlation of two panels, within -1 to 1. NaN where either is constant.
[[nodiscard]] Panel ts_correlation(const Panel& x, const Panel& y, const Window& window);

// Values count as constant where the sum of their squared deviations from the mean is at most this
// share of the sum of their squares: a spread of 1e-12 of their size is rounding, not a spread.
inline constexpr double kConstantTolerance = 1e-24;

}  // namespace varnholt::embedded
