// How one set of prices differs from an earlier one: days and instruments that came or went, and
// what happened to the history where both have it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// A return from one common day to the next that is another now.
struct ReturnChange {
  std::string symbol;
  Date date;  // The later of the two days.
  double before = 0.0;
  double now = 0.0;
};

struct PriceChanges {
  std::int64_t days_added = 0;
  std::int64_t days_gone = 0;
  std::vector<std::string> instruments_added;
  std::vector<std::string> instruments_gone;
  // Of the days and instruments that both have: closes that only one of them knows.
  std::int64_t closes_added = 0;
  std::int64_t closes_gone = 0;
  // The return that changed most, by its absolute difference. History that was adjusted anew by one
  // factor has other closes and the same returns. Nothing where none changed by more than
  // kSameReturn.
  std::optional<ReturnChange> largest;

  [[nodiscard]] bool history_is_the_same() const {
    return days_gone == 0 && instruments_gone.empty() && closes_added == 0 && closes_gone == 0 &&
           !largest;
  }
};

// Returns that differ by less are the same but for the rounding of the prices they are made of.
inline constexpr double kSameReturn = 1e-6;

[[nodiscard]] PriceChanges price_changes(const MarketData& before, const MarketData& now);

}  // namespace varnholt::embedded
