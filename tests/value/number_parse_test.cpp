// Texts are read as numbers where CPython reads them, and refused in its words elsewhere.
//
// Method: one case by hand for each rule of the two grammars, beside the random texts of
// python_forms_test.cpp. The limit of digits stands here because its message differs between
// versions of CPython; the words are those of 3.11.
#include "search_templates/genetic/value/number_parse.hpp"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// The text of the ValueError, or the empty text if there is none.
template <typename Convert>
std::string error_of(Convert convert, const std::string& text) {
  try {
    static_cast<void>(convert(text));
  } catch (const ValueError& error) {
    return error.text();
  }
  return "";
}

std::string float_error(const std::string& text) {
  return error_of(float_from_text, text);
}
std::string integer_error(const std::string& text) {
  return error_of(integer_from_text, text);
}

std::int64_t small(const std::string& text) {
  return std::get<std::int64_t>(integer_from_text(text));
}

std::string large(const std::string& text) {
  return std::get<BigInteger>(integer_from_text(text)).to_decimal();
}

std::string too_many_digits(int digits) {
  return "Exceeds the limit (4300 digits) for integer string conversion: value has " +
         std::to_string(digits) + " digits; use sys.set_int_max_str_digits() to increase the limit";
}

TEST(FloatFromText, ReadsEveryShapeOfADecimalNumber) {
  EXPECT_EQ(float_from_text("0.5"), 0.5);
  EXPECT_EQ(float_from_text("5."), 5.0);
  EXPECT_EQ(float_from_text(".5"), 0.5);
  EXPECT_EQ(float_from_text("+1.e2"), 100.0);
  EXPECT_EQ(float_from_text("-12E-1"), -1.2);
  EXPECT_EQ(float_from_text("1e+0000000000000000000002"), 100.0);
  EXPECT_TRUE(std::signbit(float_from_text("-0")));
}

TEST(FloatFromText, TakesOffWhiteSpaceButNotTheSeparatorsOfAscii) {
  EXPECT_EQ(float_from_text(" \t\n\v\f\r1 "), 1.0);
  EXPECT_EQ(float_from_text("\xE2\x80\x83"
                            "1\xC2\x85"),
            1.0);
  EXPECT_EQ(float_error("\x1c"
                        "1"),
            R"(could not convert string to float: '\x1c1')");
  EXPECT_EQ(float_error("1 2"), "could not convert string to float: '1 2'");
  EXPECT_EQ(float_error(" "), "could not convert string to float: ' '");
}

TEST(FloatFromText, ReadsDigitsOfAnyScript) {
  EXPECT_EQ(float_from_text("\xD9\xA1\xD9\xA2.\xEF\xBC\x95"), 12.5);  // Arabic 1 and 2, wide 5.
  EXPECT_EQ(float_error("\xC2\xB2"), "could not convert string to float: '\xC2\xB2'");
}

TEST(FloatFromText, AllowsSingleUnderscoresBetweenDigits) {
  EXPECT_EQ(float_from_text("1_000.2_5e1_0"), 1000.25e10);
  for (const char* text : {"_1", "1_", "1__0", "1_.5", "1._5", "1_e5", "1e_5", "1e5_", "+_1"}) {
    EXPECT_EQ(float_error(text), "could not convert string to float: '" + std::string(text) + "'");
  }
}

TEST(FloatFromText, ReadsTheNamesInAnyCase) {
  EXPECT_EQ(float_from_text("inf"), kInfinity);
  EXPECT_EQ(float_from_text("-Infinity"), -kInfinity);
  EXPECT_TRUE(std::isnan(float_from_text(" +NaN ")));
  for (const char* text : {"infi", "nan()", "i_nf", "+-inf", "in f"}) {
    EXPECT_NE(float_error(text), "") << text;
  }
}

TEST(FloatFromText, RefusesWhatOnlyLooksLikeANumber) {
  for (const char* text : {"", "+", ".", "e5", ".e5", "1e", "1e+", "0x10", "1,5", "1.2.3", "--1"}) {
    EXPECT_EQ(float_error(text), "could not convert string to float: '" + std::string(text) + "'");
  }
  EXPECT_EQ(float_error(std::string("1\0", 2)), R"(could not convert string to float: '1\x00')");
  EXPECT_EQ(float_error("it's"), "could not convert string to float: \"it's\"");
}

TEST(FloatFromText, RoundsCorrectlyAndLeavesTheRangeWithItsSign) {
  EXPECT_EQ(float_from_text("9007199254740993"), 9007199254740992.0);
  EXPECT_EQ(float_from_text("9007199254740993.00000000000000000000000000001"), 9007199254740994.0);
  EXPECT_EQ(float_from_text("1.7976931348623158e308"), 1.7976931348623157e308);
  EXPECT_EQ(float_from_text("1.7976931348623159e308"), kInfinity);
  EXPECT_EQ(float_from_text("-1e999999999999999999999999"), -kInfinity);
  EXPECT_EQ(float_from_text("2.5e-324"), 5e-324);
  EXPECT_EQ(float_from_text("4e-320"), 4e-320);
  EXPECT_EQ(float_from_text("2e-324"), 0.0);
  EXPECT_TRUE(std::signbit(float_from_text("-1e-999999999999999999999999")));
  EXPECT_EQ(float_from_text("0e999999999999999999999999"), 0.0);
}

TEST(FloatFromText, UndoesManyZerosByAPowerOfTen) {
  constexpr int kZeros = 700'000;
  const std::string zeros(kZeros, '0');
  EXPECT_EQ(float_from_text("0." + zeros + "125e" + std::to_string(kZeros)), 0.125);
  EXPECT_EQ(float_from_text("125" + zeros + "e-" + std::to_string(kZeros)), 125.0);
  // Out of range all the same, although digits and power pull apart.
  EXPECT_EQ(float_from_text("0." + zeros.substr(0, 70'000) + "1e7000000"), kInfinity);
  EXPECT_EQ(float_from_text("1" + zeros.substr(0, 70'000) + "e-7000000"), 0.0);
  EXPECT_EQ(float_from_text("0." + zeros + "1e700400"), kInfinity);
  EXPECT_EQ(float_from_text("1" + zeros + "e-700400"), 0.0);
  EXPECT_EQ(float_from_text(zeros + "1." + zeros + "e-700400"), 0.0);
  EXPECT_EQ(float_from_text(zeros + ".1e-400"), 0.0);
  EXPECT_EQ(float_from_text("1" + zeros), kInfinity);
  EXPECT_EQ(float_from_text("0." + zeros + "1"), 0.0);
}

TEST(IntegerFromText, ReadsSignsSpacesUnderscoresAndScripts) {
  EXPECT_EQ(small("0"), 0);
  EXPECT_EQ(small(" -12\n"), -12);
  EXPECT_EQ(small("+0_0_7"), 7);
  EXPECT_EQ(small("\xE2\x80\x83\xD9\xA1\xEF\xBC\x95\xE2\x80\x83"), 15);
}

TEST(IntegerFromText, GoesBeyond64BitsOnlyWhereItMust) {
  EXPECT_EQ(small("999999999999999999"), 999999999999999999);
  EXPECT_EQ(small("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(small("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(small("0000000000000000000000000000001"), 1);
  EXPECT_EQ(large("9223372036854775808"), "9223372036854775808");
  EXPECT_EQ(large("-9223372036854775809"), "-9223372036854775809");
  EXPECT_EQ(large("1_00000_00000_00000_00000"), "100000000000000000000");
}

TEST(IntegerFromText, RefusesWhatIsNoInteger) {
  for (const char* text : {"", " ", "+", "1.5", "1e5", "abc", "inf", "_1", "1_", "1__0", "+_1",
                           "- 1", "--1", "1 2", "0x10"}) {
    EXPECT_EQ(integer_error(text),
              "invalid literal for int() with base 10: '" + std::string(text) + "'");
  }
  EXPECT_EQ(integer_error(std::string("1\0", 2)),
            R"(invalid literal for int() with base 10: '1\x00')");
  EXPECT_EQ(integer_error("1\x1c"), R"(invalid literal for int() with base 10: '1\x1c')");
}

TEST(IntegerFromText, CutsTheTextInTheMessageAfterItsCharacters) {
  std::string text;
  for (int i = 0; i < 250; ++i)
    text += "\xC3\xA9";
  const std::string start = "invalid literal for int() with base 10: ";
  EXPECT_EQ(integer_error(text), start + "'" + text.substr(0, 2 * 199));
  EXPECT_EQ(integer_error(std::string(198, 'x')), start + "'" + std::string(198, 'x') + "'");
  EXPECT_EQ(integer_error(std::string(199, 'x')), start + "'" + std::string(199, 'x'));
}

TEST(IntegerFromText, LimitsTheDigitsBeforeItLooksBehindThem) {
  EXPECT_EQ(large(std::string(4300, '7')), std::string(4300, '7'));
  EXPECT_EQ(integer_error(std::string(4301, '7')), too_many_digits(4301));
  EXPECT_EQ(integer_error(std::string(4301, '0')), too_many_digits(4301));
  EXPECT_EQ(integer_error("-" + std::string(5000, '1') + "x"), too_many_digits(5000));
  std::string spaced = "1";
  for (int i = 0; i < 4300; ++i)
    spaced += "_1";
  EXPECT_EQ(integer_error(spaced), too_many_digits(4301));
  // A misplaced underscore is found while the digits are counted, so it comes first.
  EXPECT_EQ(integer_error("1__" + std::string(5000, '1')).substr(0, 15), "invalid literal");
  EXPECT_EQ(integer_error(std::string(5000, '1') + "_").substr(0, 15), "invalid literal");
}

}  // namespace
}  // namespace varnholt::genetic
