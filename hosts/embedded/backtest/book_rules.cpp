#include "hosts/embedded/backtest/book_rules.hpp"

#include <stdexcept>

#include <fmt/format.h>

namespace varnholt::embedded {
namespace {

void require(bool holds, const std::string& text) {
  if (!holds) throw std::invalid_argument(text);
}

}  // namespace

// Each comparison is false for a NaN.
void check_book_rules(const BookRules& rules) {
  require(rules.cost_basis_points >= 0.0 && rules.cost_basis_points <= kLargestCosts,
          fmt::format("costs of {} basis points; give 0 to {}", rules.cost_basis_points,
                      kLargestCosts));
  require(rules.delay_days >= 0 && rules.delay_days <= kLongestDelayDays,
          fmt::format("a delay of {} days; give 0 to {}", rules.delay_days, kLongestDelayDays));
  require(rules.delisting_return >= kLeastDelistingReturn &&
              rules.delisting_return <= kLargestDelistingReturn,
          fmt::format("a delisting return of {}; give {} to {}", rules.delisting_return,
                      kLeastDelistingReturn, kLargestDelistingReturn));
  require(rules.least_known_share > 0.0 && rules.least_known_share <= 1.0,
          fmt::format("a least share of known days of {}; give a number above 0 and at most 1",
                      rules.least_known_share));
  require(rules.periods_per_year > 0.0 && rules.periods_per_year <= kMostPeriodsPerYear,
          fmt::format("{} periods a year; give a number above 0 and at most {}",
                      rules.periods_per_year, kMostPeriodsPerYear));
  require(!rules.neutralize.empty(), "weights neutralized by \"\"; give none, market or a group");
}

}  // namespace varnholt::embedded
