// Units: which are alike, and what products, quotients and powers of them are.
// Method: the cases that formulas are made of.
#include "hosts/embedded/vocabulary/units.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

TEST(Units, OnlyTheSameAreAlikeAndWhatFitsAll) {
  const Unit units[] = {kPrice, kVolume, kMoney, kReturn, kPureNumber};
  for (const Unit& left : units) {
    for (const Unit& right : units)
      EXPECT_EQ(are_alike(left, right), left == right);
    EXPECT_TRUE(are_alike(left, kFitsAll));
    EXPECT_TRUE(are_alike(kFitsAll, left));
  }
}

TEST(Units, ProductsAndQuotientsFollowTheDimensions) {
  EXPECT_EQ(unit_product(kPrice, kVolume), kMoney);
  EXPECT_EQ(unit_quotient(kMoney, kVolume), kPrice);
  EXPECT_EQ(unit_quotient(kPrice, kPrice), kPureNumber);
  EXPECT_EQ(unit_product(kReturn, kPrice), kPrice);
  EXPECT_EQ(unit_quotient(kPrice, kReturn), kPrice);
  EXPECT_EQ(unit_product(unit_quotient(kPureNumber, kPrice), kPrice), kPureNumber);
  EXPECT_EQ(unit_name(unit_product(kPrice, kPrice)), "a unit of its own");
}

TEST(Units, ANumberLeavesAReturnAReturn) {
  EXPECT_EQ(unit_product(kReturn, kPureNumber), kReturn);
  EXPECT_EQ(unit_product(kPureNumber, kReturn), kReturn);
  EXPECT_EQ(unit_product(kReturn, kReturn), kReturn);
  EXPECT_EQ(unit_quotient(kReturn, kPureNumber), kReturn);
  EXPECT_EQ(unit_quotient(kReturn, kReturn), kPureNumber);
  EXPECT_EQ(unit_quotient(kPureNumber, kReturn), kPureNumber);
}

TEST(Units, AConstantChangesNoneButWhereItIsDivided) {
  EXPECT_EQ(unit_product(kFitsAll, kPrice), kPrice);
  EXPECT_EQ(unit_product(kPrice, kFitsAll), kPrice);
  EXPECT_EQ(unit_quotient(kPrice, kFitsAll), kPrice);
  EXPECT_EQ(unit_quotient(kFitsAll, kPrice), unit_quotient(kPureNumber, kPrice));
}

TEST(Units, PowersOfWholeExponentsHaveAUnit) {
  EXPECT_EQ(unit_power(kPrice, 2.0), unit_product(kPrice, kPrice));
  EXPECT_EQ(unit_power(unit_product(kPrice, kPrice), 0.5), kPrice);
  EXPECT_EQ(unit_power(kPrice, -1.0), unit_quotient(kPureNumber, kPrice));
  EXPECT_EQ(unit_power(kPrice, 0.5), kFitsAll);
  EXPECT_EQ(unit_power(kPureNumber, 0.5), kPureNumber);
  EXPECT_EQ(unit_power(kReturn, 1.0), kReturn);
  EXPECT_EQ(unit_power(kReturn, 2.0), kPureNumber);
  EXPECT_EQ(unit_power(kPrice, 1e9), kFitsAll) << "no exponent overflows";
  Unit many = kPrice;
  for (int i = 0; i < 64; ++i)
    many = unit_product(many, many);
  EXPECT_EQ(many, kFitsAll);
}

}  // namespace
}  // namespace varnholt::embedded::test
