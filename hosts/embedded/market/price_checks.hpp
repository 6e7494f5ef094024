// Checks for what makes a backtest lie: prices that can be read, and that are wrong all the same.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// The thresholds of the checks below, each told in the check's own text.
inline constexpr std::size_t kStaleDays = 10;
inline constexpr double kRangeTolerance = 1e-4;
inline constexpr double kSplitTolerance = 0.05;
inline constexpr double kLongBarDays = 4.0;
inline constexpr std::size_t kEarlyEndDays = 5;
inline constexpr double kCommonShare = 0.8;

// Something that a check found.
struct PriceFinding {
  std::string symbol;  // Empty for what concerns all instruments.
  Date first;
  Date last;
  double figure = 0.0;  // What is compared with the threshold.
  std::string text;     // The same in words, without symbol and dates.
};

struct PriceCheck {
  std::string_view name;
  std::string_view threshold;  // What is found, as a clause.
  std::string_view remedy;
  // `today` is the day on which the check is made.
  std::vector<PriceFinding> (*find)(const MarketData& data, Date today);
};

struct CheckedPrices {
  const PriceCheck* check = nullptr;
  std::vector<PriceFinding> findings;  // By symbol, then date.
};

// What each check finds in these prices, of which there is a day at least: all checks, in the order
// in which they are told.
[[nodiscard]] std::vector<CheckedPrices> run_price_checks(const MarketData& data, Date today);

// The findings as lines for a reader, each ended: of each check that found something its name, its
// first `list_limit` findings, and its remedy. Empty where nothing was found.
[[nodiscard]] std::string price_checks_text(const std::vector<CheckedPrices>& checked,
                                            std::size_t list_limit);

}  // namespace varnholt::embedded
