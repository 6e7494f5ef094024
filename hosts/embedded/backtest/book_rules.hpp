// How a signal is computed where prices are missing, how its weights are traded, and how its daily
// figures become annual ones.
#pragma once

namespace varnholt::embedded {

struct BookRules {
  // In basis points (1/10,000) of what is traded.
  double cost_basis_points = 5.0;
  // Days from the close that a signal is made of to the close at which it is traded; 0 trades at
  // the very close that it uses, which nobody can do exactly.
  int delay_days = 0;
  // What a position earns, as a fraction of its last price, on the day after the last close of an
  // instrument whose prices end before the history does: 0 pays the last price out, -1 is a loss of
  // all of it.
  double delisting_return = 0.0;
  // The share of a window's days whose values must be known; see panel_functions.hpp.
  double least_known_share = 1.0;
  // Days of prices in a year: 252 for daily bars of an exchange.
  double periods_per_year = 252.0;

  friend bool operator==(const BookRules&, const BookRules&) = default;
};

inline constexpr double kLargestCosts = 10'000.0;
inline constexpr int kLongestDelayDays = 250;
inline constexpr double kLeastDelistingReturn = -1.0;
inline constexpr double kLargestDelistingReturn = 10.0;
inline constexpr double kMostPeriodsPerYear = 366.0;

// Throws std::invalid_argument, with the remedy, for a rule out of these bounds.
void check_book_rules(const BookRules& rules);

}  // namespace varnholt::embedded
