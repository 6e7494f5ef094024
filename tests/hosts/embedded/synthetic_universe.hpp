// Synthetic prices: a made-up universe for benchmarks and tests, larger than the sample data.
//
// Nothing here is a market. The returns have the features that decide how long an evaluation takes
// and whether it behaves (common factors, fat tails, late starts, gaps), and no more.
#pragma once

#include <cstdint>

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded::test {

struct SyntheticUniverseOptions {
  Eigen::Index instruments = 500;
  Eigen::Index days = 2500;
  Eigen::Index factors = 5;
  std::uint64_t seed = 1;
  double late_start_share = 0.2;  // Of the instruments; they start within the first half.
  double gap_share = 0.002;       // Of the instrument days; all columns are missing then.
};

// Prices with all columns on weekdays from 2000-01-03 on, for instruments "SYN0001", "SYN0002", ...
//
//   factor k on day t         f(k,t) = 0.004 z    (of the first, the market: 0.009 z)
//   return of i on day t      r(i,t) = 0.0003 + sum_k b(i,k) f(k,t) + s(i) h(i,t) z
//   loadings                  b(i,0) = 1 + 0.3 z, b(i,k) = z
//   own scale                 s(i) uniform in 0.008..0.025
//   fat tails                 h = 3 on one day in thirty, else 1
//
// and each return is kept within -0.4 to 0.4. Every z is a new draw of a nearly normal number, the
// sum of twelve uniform numbers less six (variance 1, never beyond 6). Only additions,
// multiplications, divisions and comparisons of doubles are used, and the 53 upper bits of
// std::mt19937_64, so one seed gives the same bits everywhere.
//
// Throws std::invalid_argument for options that make no universe.
[[nodiscard]] MarketData make_synthetic_universe(const SyntheticUniverseOptions& options);

}  // namespace varnholt::embedded::test
