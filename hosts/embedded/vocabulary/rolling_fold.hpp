// A rolling aggregate in constant time per day, without subtraction.
//
// The usual running sum adds the value that comes in and subtracts the one that goes out; its
// rounding errors pile up over the whole history, and a value of 1e12 leaves an error for ever.
// Here the days are cut into blocks of one window's length. A window then covers the end of one
// block and the beginning of the next, and its aggregate is the fold of a suffix of the former with
// a prefix of the latter, both built one value at a time (the method of van Herk, 1992, and of Gil
// and Werman, 1993, for running minima; it serves for every associative fold). Nothing outside the
// window enters its aggregate, so neither a NaN nor a rounding error outlives its window, and
// nothing after the last day of the window does either.
#pragma once

#include <algorithm>
#include <vector>

#include <Eigen/Core>

namespace varnholt::embedded {

// Calls `result(day, aggregate)` for each day that is to have one.
//
//   lift(day)        the aggregate of one day
//   combine(a, b)    the aggregate of the days of a followed by those of b; associative
//   has_result(day)  whether the day is to have one; asked once a day, in order, and false for the
//                    first window - 1 days
template <typename Lift, typename Combine, typename HasResult, typename Result>
void rolling_fold(Eigen::Index days, Eigen::Index window, Lift lift, Combine combine,
                  HasResult has_result, Result result) {
  using Aggregate = decltype(lift(Eigen::Index{0}));
  // suffixes[i]: the fold of the previous block from its day i to its end.
  std::vector<Aggregate> suffixes(static_cast<std::size_t>(std::min(window, days)));
  for (Eigen::Index block = 0; block < days; block += window) {
    const Eigen::Index end = std::min(block + window, days);
    Aggregate prefix{};
    for (Eigen::Index day = block; day < end; ++day) {
      prefix = day == block ? lift(day) : combine(prefix, lift(day));
      if (!has_result(day)) continue;
      const Eigen::Index offset = day + 1 - block;  // How much of the window lies in this block.
      result(day, offset == window ? prefix
                                   : combine(suffixes[static_cast<std::size_t>(offset)], prefix));
    }
    if (end - block < window) break;
    for (Eigen::Index i = window - 1; i >= 0; --i) {
      const auto place = static_cast<std::size_t>(i);
      suffixes[place] =
          i == window - 1 ? lift(block + i) : combine(lift(block + i), suffixes[place + 1]);
    }
  }
}

}  // namespace varnholt::embedded
