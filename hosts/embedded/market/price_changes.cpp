#include "hosts/embedded/market/price_changes.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace varnholt::embedded {
namespace {

// The places of what two ascending lists have in common, and what only one of them has.
template <typename Item>
struct Overlap {
  struct Place {
    Eigen::Index before = 0;
    Eigen::Index now = 0;
  };
  std::vector<Place> common;
  std::vector<Item> gone;
  std::vector<Item> added;

  Overlap(const std::vector<Item>& before, const std::vector<Item>& now) {
    std::size_t b = 0;
    std::size_t n = 0;
    while (b < before.size() || n < now.size()) {
      if (n == now.size() || (b < before.size() && before[b] < now[n])) {
        gone.push_back(before[b++]);
      } else if (b == before.size() || now[n] < before[b]) {
        added.push_back(now[n++]);
      } else {
        common.push_back({static_cast<Eigen::Index>(b++), static_cast<Eigen::Index>(n++)});
      }
    }
  }
};

bool is_larger(const ReturnChange& change, const std::optional<ReturnChange>& largest) {
  const double difference = std::abs(change.now - change.before);
  if (!(difference > kSameReturn)) return false;
  return !largest || difference > std::abs(largest->now - largest->before);
}

}  // namespace

PriceChanges price_changes(const MarketData& before, const MarketData& now) {
  const Overlap<Date> days(before.dates, now.dates);
  const Overlap<std::string> instruments(before.symbols, now.symbols);
  PriceChanges changes;
  changes.days_added = static_cast<std::int64_t>(days.added.size());
  changes.days_gone = static_cast<std::int64_t>(days.gone.size());
  changes.instruments_added = instruments.added;
  changes.instruments_gone = instruments.gone;
  for (const auto& column : instruments.common) {
    double close_before = std::numeric_limits<double>::quiet_NaN();
    double close_now = close_before;
    for (const auto& day : days.common) {
      const double was = before.close(day.before, column.before);
      const double is = now.close(day.now, column.now);
      if (std::isnan(was) && !std::isnan(is)) ++changes.closes_added;
      if (!std::isnan(was) && std::isnan(is)) ++changes.closes_gone;
      // A change with an unknown close is no number, and not larger than any.
      const ReturnChange change = {before.symbols[static_cast<std::size_t>(column.before)],
                                   before.dates[static_cast<std::size_t>(day.before)],
                                   was / close_before - 1.0, is / close_now - 1.0};
      if (is_larger(change, changes.largest)) changes.largest = change;
      close_before = was;
      close_now = is;
    }
  }
  return changes;
}

}  // namespace varnholt::embedded
