// Integers of any size are read, shown, compared, hashed and rounded exactly.
//
// Method: edges by hand, among them ties of rounding, beside the random
// integers of python_forms_test.cpp; doubles of every exponent go to an integer and back.
#include "search_templates/genetic/value/big_integer.hpp"

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/number_hash.hpp"
#include "tests/support/python_process.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

BigInteger big(std::string_view digits, bool negative = false) {
  return BigInteger::from_decimal_digits(digits, negative);
}

TEST(BigInteger, ShowsTheDigitsItWasReadFrom) {
  EXPECT_EQ(BigInteger().to_decimal(), "0");
  EXPECT_EQ(big("").to_decimal(), "0");
  EXPECT_EQ(big("000").to_decimal(), "0");
  EXPECT_EQ(big("1000000000").to_decimal(), "1000000000");
  EXPECT_EQ(big("4294967296").to_decimal(), "4294967296");
  EXPECT_EQ(big("123456789000000000000000001", true).to_decimal(), "-123456789000000000000000001");
  std::string out = "n=";
  big("00018446744073709551616").append_decimal(out);
  EXPECT_EQ(out, "n=18446744073709551616");
}

TEST(BigInteger, HasOneZero) {
  EXPECT_TRUE(big("0", true).is_zero());
  EXPECT_FALSE(big("0", true).is_negative());
  EXPECT_EQ(big("0", true), BigInteger(0));
  EXPECT_EQ(BigInteger::from_double_truncated(-0.5), BigInteger());
}

TEST(BigInteger, GivesBackWhat64BitsHold) {
  for (const std::int64_t value :
       {std::int64_t{0}, std::int64_t{-1}, std::int64_t{4294967296}, kLargest, kSmallest}) {
    EXPECT_EQ(BigInteger(value).to_int64(), value);
    EXPECT_EQ(BigInteger(value).to_decimal(), std::to_string(value));
  }
  EXPECT_EQ(big("9223372036854775808").to_int64(), std::nullopt);
  EXPECT_EQ(big("9223372036854775809", true).to_int64(), std::nullopt);
  EXPECT_EQ(big("18446744073709551616").to_int64(), std::nullopt);
}

TEST(BigInteger, TruncatesDoublesTowardsZero) {
  EXPECT_EQ(BigInteger::from_double_truncated(1.9), BigInteger(1));
  EXPECT_EQ(BigInteger::from_double_truncated(-1.9), BigInteger(-1));
  EXPECT_EQ(BigInteger::from_double_truncated(1e22).to_decimal(), "10000000000000000000000");
  EXPECT_EQ(BigInteger::from_double_truncated(-0x1p100).to_decimal(),
            "-1267650600228229401496703205376");
  EXPECT_THROW(
      {
        try {
          static_cast<void>(integer_from_double(std::nan("")));
        } catch (const ValueError& error) {
          EXPECT_EQ(error.text(), "cannot convert float NaN to integer");
          throw;
        }
      },
      ValueError);
  EXPECT_THROW(
      {
        try {
          static_cast<void>(integer_from_double(-kInfinity));
        } catch (const OverflowError& error) {
          EXPECT_EQ(error.text(), "cannot convert float infinity to integer");
          throw;
        }
      },
      OverflowError);
}

TEST(BigInteger, IsTheSmallKindWhereThatHoldsTheValue) {
  EXPECT_EQ(std::get<std::int64_t>(integer_from_double(-0x1p63)), kSmallest);
  EXPECT_EQ(std::get<BigInteger>(integer_from_double(0x1p63)), big("9223372036854775808"));
  EXPECT_EQ(std::get<std::int64_t>(to_integer(big("9223372036854775807"))), kLargest);
  EXPECT_EQ(std::get<BigInteger>(to_integer(big("9223372036854775808"))),
            big("9223372036854775808"));
}

TEST(BigInteger, RoundsToTheNearestDoubleAndTiesToTheEvenOne) {
  EXPECT_EQ(BigInteger(0).to_double(), 0.0);
  EXPECT_EQ(big("9007199254740993").to_double(), 9007199254740992.0);
  EXPECT_EQ(big("9007199254740995").to_double(), 9007199254740996.0);
  // 2**100 + 2**47 lies half-way; one more does not, although it is 47 bits away.
  EXPECT_EQ(big("1267650600228229542234191560704").to_double(), 0x1p100);
  EXPECT_EQ(big("1267650600228229542234191560705", true).to_double(), -0x1.0000000000001p100);
}

TEST(BigInteger, OverflowsWhereRoundingLeavesTheDoubles) {
  const BigInteger largest = BigInteger::from_double_truncated(0x1.fffffffffffffp1023);
  EXPECT_EQ(largest.to_double(), 0x1.fffffffffffffp1023);
  // 2**1024 - 2**970 is the first that rounds up to 2**1024.
  const std::string first_over =
      "179769313486231580793728971405303415079934132710037826936173778980444968292764750946649017"
      "977587207096330286416692887910946555547851940402630657488671505820681908902000708383676273"
      "854845817711531764475730270069855571366959622842914819860834936475292719074168444365510704"
      "342711559699508093042880177904174497792";
  std::string below = first_over;
  below.replace(below.size() - 3, 3, "791");
  EXPECT_EQ(big(below).to_double(), 0x1.fffffffffffffp1023);
  EXPECT_THROW(static_cast<void>(big(first_over).to_double()), OverflowError);
  try {
    static_cast<void>(big(std::string(4000, '9'), true).to_double());
    ADD_FAILURE() << "no error";
  } catch (const OverflowError& error) {
    EXPECT_EQ(error.text(), "int too large to convert to float");
  }
}

TEST(BigInteger, IsOrderedBySignThenSize) {
  const BigInteger ascending[] = {big("36893488147419103232", true),
                                  big("18446744073709551616", true),
                                  BigInteger(kSmallest),
                                  BigInteger(-1),
                                  BigInteger(0),
                                  BigInteger(1),
                                  big("18446744073709551615"),
                                  big("18446744073709551616"),
                                  big("18446744073709551617")};
  for (std::size_t i = 0; i < std::size(ascending); ++i) {
    for (std::size_t j = 0; j < std::size(ascending); ++j) {
      EXPECT_EQ(ascending[i] <=> ascending[j], i <=> j) << i << " " << j;
      EXPECT_EQ(ascending[i] == ascending[j], i == j) << i << " " << j;
    }
  }
}

TEST(BigInteger, IsComparedExactlyWithOtherKinds) {
  const BigInteger value = big("9223372036854775808");
  EXPECT_EQ(compare_exactly(value, kLargest), std::strong_ordering::greater);
  EXPECT_EQ(compare_exactly(big("9223372036854775809", true), kSmallest),
            std::strong_ordering::less);
  EXPECT_EQ(compare_exactly(BigInteger(7), std::int64_t{7}), std::strong_ordering::equal);
  EXPECT_EQ(compare_exactly(value, 0x1p63), std::partial_ordering::equivalent);
  EXPECT_EQ(compare_exactly(big("9223372036854775809"), 0x1p63), std::partial_ordering::greater);
  EXPECT_EQ(compare_exactly(BigInteger(1), 1.5), std::partial_ordering::less);
  EXPECT_EQ(compare_exactly(BigInteger(-1), -1.5), std::partial_ordering::greater);
  EXPECT_EQ(compare_exactly(value, kInfinity), std::partial_ordering::less);
  EXPECT_EQ(compare_exactly(value, -kInfinity), std::partial_ordering::greater);
  EXPECT_EQ(compare_exactly(value, std::nan("")), std::partial_ordering::unordered);
}

TEST(BigInteger, IsTurnedIntoItsOpposite) {
  EXPECT_EQ(big("18446744073709551616").negated(), big("18446744073709551616", true));
  EXPECT_EQ(big("18446744073709551616", true).negated(), big("18446744073709551616"));
  EXPECT_EQ(BigInteger(kSmallest).negated().to_decimal(), "9223372036854775808");
  EXPECT_EQ(BigInteger(0).negated(), BigInteger(0));
  EXPECT_FALSE(BigInteger(0).negated().is_negative());
  const BigInteger seven(7);
  EXPECT_EQ(seven.negated().negated(), seven);
  EXPECT_EQ(seven, BigInteger(7));
}

TEST(BigInteger, IsCountedOn) {
  EXPECT_EQ(big("18446744073709551615").plus(1), big("18446744073709551616"));
  EXPECT_EQ(big("18446744073709551616").plus(-1), big("18446744073709551615"));
  EXPECT_EQ(big("18446744073709551616", true).plus(1), big("18446744073709551615", true));
  EXPECT_EQ(big("18446744073709551615", true).plus(-1), big("18446744073709551616", true));
  EXPECT_EQ(BigInteger(5).plus(-7), BigInteger(-2));
  EXPECT_EQ(BigInteger(-5).plus(7), BigInteger(2));
  EXPECT_EQ(BigInteger(-5).plus(5), BigInteger(0));
  EXPECT_FALSE(BigInteger(-5).plus(5).is_negative());
  EXPECT_EQ(BigInteger(0).plus(kSmallest), BigInteger(kSmallest));
  EXPECT_EQ(BigInteger(kSmallest).plus(kSmallest).to_decimal(), "-18446744073709551616");
  EXPECT_EQ(big("1" + std::string(60, '0')).plus(-1).to_decimal(), std::string(60, '9'));
  EXPECT_EQ(big("9223372036854775808").plus(kSmallest), BigInteger(0));
  EXPECT_EQ(big("20000000000000000000").plus(kSmallest).to_decimal(), "10776627963145224192");
}

TEST(BigInteger, HashesAsCPython) {
  EXPECT_EQ(BigInteger(0).hash(), 0);
  EXPECT_EQ(BigInteger(-1).hash(), -2);
  EXPECT_EQ(big("2305843009213693951").hash(), 0);
  EXPECT_EQ(big("2305843009213693952", true).hash(), -2);
  EXPECT_EQ(big("1" + std::string(50, '0')).hash(), 619332571178673746);
  EXPECT_EQ(big("1" + std::string(50, '0'), true).hash(), -619332571178673746);
}

TEST(BigInteger, GoesToADoubleOfEveryExponentAndBack) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  std::mt19937_64 random(seed);
  for (int exponent = 0; exponent < 1024; ++exponent) {
    for (int round = 0; round < 4; ++round) {
      const std::uint64_t fraction = random() >> (round == 0 ? 12 : 12 + random() % 52);
      const double power =
          std::ldexp(1.0 + std::ldexp(static_cast<double>(fraction), -52), exponent);
      const double value = std::trunc(round % 2 == 0 ? power : -power);
      const BigInteger integer = BigInteger::from_double_truncated(value);
      EXPECT_EQ(integer.to_double(), value);
      EXPECT_EQ(integer.hash(), hash_real(value));
      EXPECT_EQ(compare_exactly(integer, value), std::partial_ordering::equivalent);
      const std::string text = integer.to_decimal();
      const bool negative = value < 0;
      EXPECT_EQ(big(std::string_view(text).substr(negative ? 1 : 0), negative), integer);
    }
  }
}

}  // namespace
}  // namespace varnholt::genetic
