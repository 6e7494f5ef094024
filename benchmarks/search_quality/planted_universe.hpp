// Markets with one hidden effect, of which it is known what can be earned by it.
//
// A market has instruments in four sectors. The daily return of each is the sum of a drifting
// market, its sector and its own noise, with Student's t noise of five degrees of freedom; a part
// of it is made overnight. Volume has a memory and rises with the size of the return. On top of
// that the return of day t + 2 is moved by the effect's signal of day t, scaled to one: what a
// signal of that day, traded a day later, can earn. The size of the effect is set so that the
// oracle, which is that signal, has a given Sharpe ratio after costs over all days.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <Eigen/Core>

#include "hosts/embedded/backtest/book_rules.hpp"
#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded::search_quality {

struct Effect {
  std::string_view name;
  std::string_view formula;  // Of the signal that tells the returns.
  bool is_neutral;           // Has no net exposure by itself, whatever the rules.
};
[[nodiscard]] std::span<const Effect> effects();
// Throws std::invalid_argument for a name that none of them has.
[[nodiscard]] const Effect& effect_of(std::string_view name);

struct UniverseShape {
  Eigen::Index instruments = 60;
  Eigen::Index searched_days = 1500;
  Eigen::Index holdout_days = 500;
  // Of the same market, later, which no run gets to see.
  Eigen::Index fresh_days = 2500;

  [[nodiscard]] Eigen::Index known_days() const { return searched_days + holdout_days; }
  [[nodiscard]] Eigen::Index days() const { return known_days() + fresh_days; }
};

struct Universe {
  MarketData data;  // All days.
  Panel oracle;     // The weights of every day.
};

// Equal seeds give equal markets. The oracle trades by the rules, as a run does: also what it knows
// of the market as a whole is lost where weights are neutralized. The oracle's Sharpe ratio is
// drawn from 1.6 to 2.4.
[[nodiscard]] Universe plant(const Effect& effect, std::uint64_t seed, const UniverseShape& shape,
                             const BookRules& rules);

}  // namespace varnholt::embedded::search_quality
