// Open data comes out of its bytes as it went in, and bytes that are none are refused.
// Method: values of every kind, seeded random ones, and every cut of their bytes.
#include "hosts/embedded/host/value_wire.hpp"

#include <bit>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/big_integer.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/native_objects.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Tuple;
using genetic::Value;

std::string bytes_of(const Value& value) {
  std::string bytes;
  append_value(bytes, value);
  return bytes;
}

Value back(const Value& value) {
  const std::string bytes = bytes_of(value);
  ValueReader reader(bytes);
  Value read = reader.next();
  EXPECT_TRUE(reader.is_at_end());
  return read;
}

TEST(ValueWire, BringsEveryKindBack) {
  for (const Value& value :
       {Value(), Value(true), Value(false), Value(std::numeric_limits<std::int64_t>::min()),
        Value(0.1), Value(""), Value(std::string("a\0\xff", 3)), Value(List()), Value(Mapping()),
        Value(List{1, List{2.5, "x"}, Mapping{{"k", List()}}})}) {
    const Value read = back(value);
    EXPECT_EQ(read.kind(), value.kind());
    EXPECT_EQ(genetic::repr(read), genetic::repr(value));
  }
}

TEST(ValueWire, BringsEveryBitOfARealBack) {
  for (const double real : {-0.0, 0.1, 5e-324, std::numeric_limits<double>::max(),
                            std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(std::bit_cast<std::uint64_t>(back(real).real()), std::bit_cast<std::uint64_t>(real));
  }
}

TEST(ValueWire, KeepsTheOrderOfKeysAndKeysThatAreNoTexts) {
  const Mapping mapping{{"z", 1}, {7, "seven"}, {Value(), 2}, {"a", 3}};
  EXPECT_EQ(genetic::repr(back(mapping)), "{'z': 1, 7: 'seven', None: 2, 'a': 3}");
}

TEST(ValueWire, ATupleArrivesAsAList) {
  EXPECT_EQ(genetic::repr(back(Tuple{1, Tuple{2}})), "[1, [2]]");
}

TEST(ValueWire, AnIntegerBeyond64BitsComesBack) {
  const std::string digits = "123456789012345678901234567890";
  const Value large = genetic::make_object<genetic::BigIntegerObject>(
      genetic::BigInteger::from_decimal_digits(digits, true));
  EXPECT_EQ(genetic::repr(back(List{large})), "[-" + digits + "]");
}

TEST(ValueWire, OnlyScalarsAreScalars) {
  std::string bytes;
  EXPECT_TRUE(append_scalar(bytes, "text"));
  const std::string before = bytes;
  EXPECT_FALSE(append_scalar(bytes, List()));
  EXPECT_FALSE(append_scalar(bytes, Mapping()));
  EXPECT_FALSE(append_scalar(bytes, Tuple()));
  EXPECT_EQ(bytes, before);
}

Value random_value(std::mt19937& random, int depth) {
  switch (random() % (depth > 0 ? 7 : 5)) {
    case 0:
      return {};
    case 1:
      return random() % 2 == 0;
    case 2:
      return static_cast<std::int64_t>(random());
    case 3:
      return static_cast<double>(random()) / 7.0;
    case 4:
      return std::string(random() % 20, static_cast<char>('a' + random() % 26));
    case 5: {
      List list;
      for (auto left = random() % 5; left > 0; --left)
        list.append(random_value(random, depth - 1));
      return list;
    }
    default: {
      Mapping mapping;
      for (auto left = random() % 5; left > 0; --left)
        mapping.set(random_value(random, 0), random_value(random, depth - 1));
      return mapping;
    }
  }
}

TEST(ValueWire, RandomValuesComeBackAndTheirCutBytesAreRefused) {
  for (unsigned seed = 1; seed <= 200; ++seed) {
    std::mt19937 random(seed);
    const Value value = random_value(random, 4);
    EXPECT_EQ(genetic::repr(back(value)), genetic::repr(value)) << seed;
    const std::string bytes = bytes_of(value);
    for (std::size_t cut = 0; cut < bytes.size(); cut += 1 + bytes.size() / 50) {
      ValueReader reader(std::string_view(bytes).substr(0, cut));
      EXPECT_THROW(static_cast<void>(reader.next()), genetic::ValueError) << seed << " at " << cut;
    }
  }
}

TEST(ValueWire, RefusesOtherBytes) {
  for (const char* const bytes : {"?", "s\x05\0\0\0", "m\xff\xff\xff\xff"}) {
    ValueReader reader(bytes);
    EXPECT_THROW(static_cast<void>(reader.next()), genetic::ValueError) << bytes;
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
