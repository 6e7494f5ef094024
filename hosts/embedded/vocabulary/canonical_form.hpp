// One graph for all that are computed alike: what says the same twice is said once.
//
// Two graphs with one value on every day are two candidates to a search, which evaluates both and
// finds the second in its pool already. So the graphs that the host makes (fresh ones, children,
// repairs, seeds) are brought to one form first. Each step keeps the value bit by bit, NaN where it
// was and nowhere else, for any panels; only the sign of a zero may change, which no function and
// no book can tell. What would round otherwise, such as (x + 1) + 2 and x + 3, stays as it is. No
// step makes a graph larger or deeper. The steps, with C and D for constants and f for a function:
//
//   x + 0, x - 0, x * 1, x / 1, x ^ 1, signed_power(x, 1)  ->  x
//   C + x and x - C: the constant is not negative;  C * x with C = -1, x / -1, 0 - x  ->  -x
//   -(-x)  ->  x;  -(x - y)  ->  y - x;  -(C * x), -(C / x), -(x / C), -(C + x): into the constant
//   x + -y  ->  x - y;  x - -y  ->  x + y;  -x * -y  ->  x * y, likewise for / and ts_covariance
//   f(-x)  ->  -f(x) for odd f, or into the difference or the constant below: f(y - x)
//   f(-x)  ->  f(x) and f(x - y), f(y - x) alike for even f: arith_abs, ts_std, ts_kurtosis
//   ts_min(-x)  ->  -ts_max(x), likewise arith_min and the places of the least and the greatest
//   f(f(x))  ->  f(x) for cross_rank, group_rank, arith_abs and arith_sign
//   |x|  ->  x where x is never negative;  sign(x)  ->  x where x is 0 or 1
//   min(x, x)  ->  x;  min(x, min(x, y))  ->  min(x, y);  min(C, min(D, x)): one constant; and max
//   y if c else y  is left: it is not known where c is not
//   f(x, 1 day)  ->  x for means, sums, extremes and others over one day
//   ts_delay(ts_delay(x, n), m)  ->  ts_delay(x, n + m), within the longest window
//   ts_max(ts_max(x, n), m)  ->  ts_max(x, n + m - 1), likewise ts_min, where all days of the three
//       windows must be known: with fewer the windows forgive other gaps
//   x + y, x * y, min, max, ==, !=, and, or, ts_covariance, ts_correlation: the panels in order;
//   x < y as y > x
//
// A panel comes before another by its name, then by its own children. A step whose result has a
// function that the user has switched off is left out.
#pragma once

#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

struct CanonicalOptions {
  int max_window = kLongestWindow;  // In days; windows that are merged become no longer.
  // As in the rules of the book: it decides which windows can be merged.
  double least_known_share = 1.0;
};

// A new graph, which shares nothing with `graph`. The form of a form is itself. `graph` follows the
// rules of graph_check.hpp, and so does the form.
[[nodiscard]] genetic::Value canonical_form(const genetic::Value& graph,
                                            const Vocabulary& vocabulary,
                                            const CanonicalOptions& options = {});

}  // namespace varnholt::embedded
