// Numbers are written as CPython writes them.
//
// Method: the limits between the notations by hand, beside the thousands of doubles of
// python_forms_test.cpp; and every power of two with its neighbours must read back.
#include "search_templates/genetic/value/number_text.hpp"

#include <charconv>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace varnholt::genetic {
namespace {

using Limits = std::numeric_limits<double>;

std::string repr(double value) {
  std::string out;
  append_float_repr(out, value);
  return out;
}

std::string json(double value) {
  std::string out;
  append_float_json(out, value);
  return out;
}

std::string integer(std::int64_t value) {
  std::string out;
  append_integer(out, value);
  return out;
}

TEST(NumberText, KeepsAPointInWholeNumbers) {
  EXPECT_EQ(repr(0.0), "0.0");
  EXPECT_EQ(repr(-0.0), "-0.0");
  EXPECT_EQ(repr(1.0), "1.0");
  EXPECT_EQ(repr(-100.0), "-100.0");
  EXPECT_EQ(repr(9007199254740991.0), "9007199254740991.0");
  EXPECT_EQ(repr(9007199254740992.0), "9007199254740992.0");
  EXPECT_EQ(repr(9007199254740994.0), "9007199254740994.0");
}

TEST(NumberText, ChangesToPowersOfTenWhereCPythonDoes) {
  EXPECT_EQ(repr(1e-4), "0.0001");
  EXPECT_EQ(repr(std::nextafter(1e-4, 0.0)), "9.999999999999999e-05");
  EXPECT_EQ(repr(1e-5), "1e-05");
  EXPECT_EQ(repr(-1.5e-7), "-1.5e-07");
  EXPECT_EQ(repr(std::nextafter(1e16, 0.0)), "9999999999999998.0");
  EXPECT_EQ(repr(1e16), "1e+16");
  EXPECT_EQ(repr(-1e100), "-1e+100");
  EXPECT_EQ(repr(Limits::denorm_min()), "5e-324");
  EXPECT_EQ(repr(Limits::max()), "1.7976931348623157e+308");
}

TEST(NumberText, NamesWhatIsNoNumberInBothFlavours) {
  EXPECT_EQ(repr(Limits::infinity()), "inf");
  EXPECT_EQ(repr(-Limits::infinity()), "-inf");
  EXPECT_EQ(repr(Limits::quiet_NaN()), "nan");
  EXPECT_EQ(repr(-Limits::quiet_NaN()), "nan");
  EXPECT_EQ(json(Limits::infinity()), "Infinity");
  EXPECT_EQ(json(-Limits::infinity()), "-Infinity");
  EXPECT_EQ(json(Limits::quiet_NaN()), "NaN");
  EXPECT_EQ(json(0.1), "0.1");
}

TEST(NumberText, WritesIntegers) {
  EXPECT_EQ(integer(0), "0");
  EXPECT_EQ(integer(9), "9");
  EXPECT_EQ(integer(10), "10");
  EXPECT_EQ(integer(-1), "-1");
  EXPECT_EQ(integer(std::numeric_limits<std::int64_t>::max()), "9223372036854775807");
  EXPECT_EQ(integer(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
}

TEST(NumberText, AppendsBehindWhatIsThere) {
  std::string out = "[";
  append_float_repr(out, 0.5);
  append_float_json(out, 1e300);
  append_integer(out, 42);
  EXPECT_EQ(out, "[0.51e+30042");
}

TEST(NumberText, ReadsBackAroundEveryPowerOfTwo) {
  for (int exponent = -1074; exponent <= 1023; ++exponent) {
    const double power = std::ldexp(1.0, exponent);
    for (const double value : {std::nextafter(power, 0.0), power, std::nextafter(power, 1e308)}) {
      const std::string text = repr(value);
      double back = -1.0;
      const auto result = std::from_chars(text.data(), text.data() + text.size(), back);
      EXPECT_TRUE(result.ec == std::errc() && result.ptr == text.data() + text.size()) << text;
      EXPECT_EQ(back, value) << text;
      EXPECT_LE(text.size(), 24u) << text;
    }
  }
}

}  // namespace
}  // namespace varnholt::genetic
