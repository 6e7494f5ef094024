// What a set of prices holds: instruments, dates, gaps, and moves that look like mistakes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// One instrument. Its history runs from its first close to its last; a day inside without a close
// is a gap, the days of the file before and after it are a late start and an early end.
struct InstrumentSummary {
  std::string symbol;
  std::size_t close_count = 0;
  std::optional<Date> first_close;  // Nothing where the instrument has no close at all.
  std::optional<Date> last_close;
  std::size_t gap_count = 0;        // Days inside the history without a close.
  std::size_t late_start_days = 0;  // Days of the file before the first close.
  std::size_t early_end_days = 0;   // Days of the file after the last close.
  double jump_threshold = 0.0;      // See PriceJump.
};

// Consecutive days of the file without a close, inside the history of an instrument.
struct PriceGap {
  std::string symbol;
  Date first;
  Date last;
  std::size_t days = 0;
};

// A move from one known close to the next (over a gap, if there is one) that is likelier to be a
// split, a wrong digit or another instrument than a market move: the absolute log return is above
//   max(kJumpFloor, kJumpDeviations * MAD)
// where MAD is the median absolute deviation of the instrument's log returns from their median,
// without a factor for normality. The MAD is taken because a jump hardly moves it, while it would
// raise a standard deviation enough to hide itself.
struct PriceJump {
  std::string symbol;
  Date from_date;
  Date to_date;
  double from = 0.0;
  double to = 0.0;
  double log_return = 0.0;
};

inline constexpr double kJumpFloor = 0.35;
inline constexpr double kJumpDeviations = 15.0;

struct PriceReport {
  std::vector<std::string> columns;  // The panels that are there: "close" and any of the others.
  std::size_t day_count = 0;
  std::optional<Date> first_date;
  std::optional<Date> last_date;
  std::vector<InstrumentSummary> instruments;  // By symbol.
  std::vector<PriceGap> gaps;                  // By symbol, then date.
  std::vector<PriceJump> jumps;                // By symbol, then date.
};

[[nodiscard]] PriceReport make_price_report(const MarketData& data);

// The report as lines for a reader, each ended. Of each kind of finding the first `list_limit` are
// listed and the rest are counted.
[[nodiscard]] std::string price_report_text(const PriceReport& report, std::size_t list_limit = 20);

}  // namespace varnholt::embedded
