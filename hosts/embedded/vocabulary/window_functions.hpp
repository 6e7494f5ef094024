// Further functions over time: shifts, products, places, the shape of a window, and lines through
// it. The rules of panel_functions.hpp hold for them too, for gaps in a window as well: a missing
// day is left out, and the others keep their places.
#pragma once

#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {

// The value as many days ago as the window has. Only that day needs to be known.
[[nodiscard]] Panel ts_delay(const Panel& x, const Window& window);

[[nodiscard]] Panel ts_product(const Panel& x, const Window& window);

// The place of the greatest (least) value in the window, 1 for the oldest day and the days of the
// window for today; of the values that are alike (alike.hpp) to the greatest that of the oldest.
[[nodiscard]] Panel ts_argmax(const Panel& x, const Window& window);
[[nodiscard]] Panel ts_argmin(const Panel& x, const Window& window);

// The mean with the weights 1 for today, r for the day before, r^2 for the one before that, where
// r = (d - 1) / (d + 1) for a window of d days. Beyond its window nothing counts.
[[nodiscard]] Panel ts_ema(const Panel& x, const Window& window);

// The value below which the share `share` (from 0 to 1) of the window lies: in the sorted window,
// counted from 0, that of the place share (n - 1), linear between two values.
[[nodiscard]] Panel ts_quantile(const Panel& x, double share, const Window& window);

// The adjusted coefficients of Fisher and Pearson, with n known days and the sample standard
// deviation s:
//
//   skewness   n / ((n-1)(n-2)) sum ((x - mean) / s)^3
//   kurtosis   n (n+1) / ((n-1)(n-2)(n-3)) sum ((x - mean) / s)^4 - 3 (n-1)^2 / ((n-2)(n-3))
//
// NaN for a constant window, and where n is too small for the divisor.
[[nodiscard]] Panel ts_skew(const Panel& x, const Window& window);
[[nodiscard]] Panel ts_kurtosis(const Panel& x, const Window& window);

// The line x = a + b y with the least squares over the window: b, and today's x less the line at
// today's y. NaN where y is constant.
[[nodiscard]] Panel ts_slope(const Panel& x, const Panel& y, const Window& window);
[[nodiscard]] Panel ts_residual(const Panel& x, const Panel& y, const Window& window);

}  // namespace varnholt::embedded
