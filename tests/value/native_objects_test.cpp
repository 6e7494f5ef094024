// A NaN and integers beyond 64 bits: numbers that are objects. Method: each against numbers of
// every kind, by hand; random ones are compared with CPython in python_semantics_test.
#include "search_templates/genetic/value/native_objects.hpp"

#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;

const char* const kHuge = "100000000000000000000";

TEST(NotANumber, IsANumberWithoutOrder) {
  const Value nan(std::nan(""));
  for (const Value& other : {Value(true), Value(1), Value(-1.5), to_integer(kHuge), nan}) {
    EXPECT_FALSE(less(nan, other));
    EXPECT_FALSE(less(other, nan));
    EXPECT_FALSE(nan == other);
    EXPECT_FALSE(other == nan);
  }
  EXPECT_TRUE(std::isnan(to_float(nan)));
  EXPECT_EQ(error_of([&] { return to_integer(nan); }),
            "ValueError: cannot convert float NaN to integer");
  EXPECT_EQ(repr(nan), "nan");
  EXPECT_TRUE(truth(nan));
  // The opposite is another object, which no container takes for the same.
  const Value opposite = nan.object().negated();
  EXPECT_TRUE(std::isnan(to_float(opposite)));
  EXPECT_FALSE(is_same_or_equal(opposite, nan));
}

TEST(BigInteger, ComparesWithNumbersOfEveryKind) {
  const Value huge = to_integer(kHuge);
  EXPECT_TRUE(huge == to_integer(kHuge));
  EXPECT_TRUE(huge == Value(1e20));
  EXPECT_TRUE(Value(1e20) == huge);
  EXPECT_FALSE(huge == Value(1));
  EXPECT_FALSE(huge == Value(true));
  EXPECT_FALSE(huge == Value(kHuge));
  EXPECT_TRUE(less(true, huge));
  EXPECT_TRUE(less(1, huge));
  EXPECT_TRUE(less(huge, std::numeric_limits<double>::infinity()));
  EXPECT_TRUE(less(to_integer("-" + std::string(kHuge)), huge));
  EXPECT_FALSE(less(huge, huge));
  EXPECT_EQ(hash(huge), hash(1e20));
  EXPECT_EQ(error_of([&] { return less(huge, "a"); }),
            "TypeError: '<' not supported between instances of 'int' and 'str'");
  EXPECT_EQ(error_of([&] { return less(test::scripted_object(Mapping()), huge); }),
            "TypeError: '<' not supported between instances of 'Record' and 'int'");
}

TEST(BigInteger, ConvertsAsAnInteger) {
  const Value huge = to_integer(kHuge);
  EXPECT_EQ(to_float(huge), 1e20);
  EXPECT_TRUE(same_object(to_integer(huge), huge));
  EXPECT_EQ(str(huge), kHuge);
  EXPECT_EQ(str(huge.object().negated()), "-" + std::string(kHuge));
  EXPECT_TRUE(same_object(to_integer("9223372036854775808").object().negated(),
                          std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(error_of([] { return to_float(to_integer("1" + std::string(400, '0'))); }),
            "OverflowError: int too large to convert to float");
}

}  // namespace
}  // namespace varnholt::genetic
