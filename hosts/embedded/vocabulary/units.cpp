#include "hosts/embedded/vocabulary/units.hpp"

#include <array>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace varnholt::embedded {
namespace {

// Beyond these a power has no use, and the exponents of several could overflow.
constexpr int kGreatestExponent = 1000;

bool is_pure(const Unit& unit) {
  return unit.currency == 0 && unit.shares == 0;
}

Unit combined(const Unit& left, const Unit& right, int sign) {
  Unit unit;
  unit.currency = left.currency + sign * right.currency;
  unit.shares = left.shares + sign * right.shares;
  if (std::abs(unit.currency) > kGreatestExponent || std::abs(unit.shares) > kGreatestExponent) {
    return kFitsAll;
  }
  return unit;
}

constexpr auto kNames =
    std::to_array<std::pair<Unit, std::string_view>>({{kPrice, "price"},
                                                      {kVolume, "volume"},
                                                      {kMoney, "money"},
                                                      {kReturn, "return"},
                                                      {kPureNumber, "pure number"},
                                                      {kFitsAll, "any unit"}});

}  // namespace

bool are_alike(const Unit& left, const Unit& right) {
  return left.fits_all || right.fits_all || left == right;
}

Unit unit_product(const Unit& left, const Unit& right) {
  if (left.fits_all) return right;
  if (right.fits_all) return left;
  Unit unit = combined(left, right, 1);
  unit.is_return = is_pure(left) && is_pure(right) && (left.is_return || right.is_return);
  return unit;
}

Unit unit_quotient(const Unit& left, const Unit& right) {
  if (right.fits_all) return left;
  Unit unit = combined(left.fits_all ? kPureNumber : left, right, -1);
  unit.is_return = is_pure(left) && is_pure(right) && left.is_return && !right.is_return;
  return unit;
}

Unit unit_power(const Unit& unit, double exponent) {
  if (unit.fits_all) return unit;
  if (is_pure(unit)) return unit.is_return && exponent != 1.0 ? kPureNumber : unit;
  const double currency = unit.currency * exponent;
  const double shares = unit.shares * exponent;
  const bool has_unit = std::abs(currency) <= kGreatestExponent &&
                        std::abs(shares) <= kGreatestExponent && currency == std::floor(currency) &&
                        shares == std::floor(shares);
  if (!has_unit) return kFitsAll;
  return {static_cast<int>(currency), static_cast<int>(shares)};
}

std::string unit_name(const Unit& unit) {
  for (const auto& [named, name] : kNames) {
    if (unit == named) return std::string(name);
  }
  return "a unit of its own";
}

std::string unit_rule_text(UnitRule rule) {
  switch (rule) {
    case UnitRule::Number:
      return "pure number";
    case UnitRule::OfFirst:
      return "that of x";
    case UnitRule::Alike:
      return "that of all, alike";
    case UnitRule::AlikeNumber:
      return "pure number, of alike";
    case UnitRule::AlikeChoices:
      return "that of y and z, alike";
    case UnitRule::Product:
      return "that of x times that of y";
    case UnitRule::Quotient:
      return "that of x by that of y";
    case UnitRule::Power:
      return "that of x to the number y";
    case UnitRule::DaysPower:
      return "that of x to the n";
  }
  return {};
}

}  // namespace varnholt::embedded
