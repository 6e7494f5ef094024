// How a signal is computed where prices are missing, how its weights are traded, and how its daily
// figures become annual ones.
#pragma once

#include <string>
#include <string_view>

namespace varnholt::embedded {

// What is taken out of the weights of a day (neutral_signal.hpp): nothing, the mean of the market,
// or, for the name of a group such as "sector", the mean of each group of that name.
inline constexpr std::string_view kNeutralizeNone = "none";
inline constexpr std::string_view kNeutralizeMarket = "market";

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
  std::string neutralize = std::string(kNeutralizeNone);

  friend bool operator==(const BookRules&, const BookRules&) = default;
};

// From so many instruments on a run takes the market out of its weights where nothing else is said.
// With few instruments the mean is largely the instrument itself.
inline constexpr int kLeastNeutralInstruments = 10;

inline constexpr double kLargestCosts = 10'000.0;
inline constexpr int kLongestDelayDays = 250;
inline constexpr double kLeastDelistingReturn = -1.0;
inline constexpr double kLargestDelistingReturn = 10.0;
inline constexpr double kMostPeriodsPerYear = 366.0;

// Throws std::invalid_argument, with the remedy, for a rule out of these bounds.
void check_book_rules(const BookRules& rules);

}  // namespace varnholt::embedded
