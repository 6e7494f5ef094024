// What the numbers of a panel measure, so that a price is not added to a return.
//
// A unit is a product of powers of the file's currency and of shares: a price is currency by share,
// a volume is shares, money is currency. A return is a number of neither, and so is every other
// pure number (a rank, a ratio of two prices), but of other size: the two are told apart.
#pragma once

#include <string>

namespace varnholt::embedded {

struct Unit {
  int currency = 0;
  int shares = 0;
  bool is_return = false;  // Where both are 0.
  bool fits_all = false;   // A constant, and what has no unit of these.

  friend bool operator==(const Unit&, const Unit&) = default;
};

inline constexpr Unit kPureNumber = {};
inline constexpr Unit kPrice = {1, -1};
inline constexpr Unit kVolume = {0, 1};
inline constexpr Unit kMoney = {1, 0};
inline constexpr Unit kReturn = {0, 0, true};
inline constexpr Unit kFitsAll = {0, 0, false, true};

// Whether the two may be added and compared.
[[nodiscard]] bool are_alike(const Unit& left, const Unit& right);

// A number leaves a return a return; of two returns the product is one, and the quotient a number.
[[nodiscard]] Unit unit_product(const Unit& left, const Unit& right);
[[nodiscard]] Unit unit_quotient(const Unit& left, const Unit& right);
[[nodiscard]] Unit unit_power(const Unit& unit, double exponent);

// "price", or "a unit of its own" for what has no name.
[[nodiscard]] std::string unit_name(const Unit& unit);

// What a function makes of the units of its panels.
enum class UnitRule {
  Number,        // A pure number, whatever the panels are.
  OfFirst,       // That of the first panel; others may be of any unit.
  Alike,         // All panels are alike, and the result is like them.
  AlikeNumber,   // All panels are alike, and the result is a pure number.
  AlikeChoices,  // The panels behind the first are alike, and the result is like them.
  Product,       // Of the two panels.
  Quotient,
  Power,      // The first panel to the constant that is the second.
  DaysPower,  // The panel to as many days as the window has.
};

[[nodiscard]] std::string unit_rule_text(UnitRule rule);

}  // namespace varnholt::embedded
