// Calculating and comparing with numbers of every kind. Goal: the answers of the host's language.
// Method: hand-made cases, and an object that notes what it is asked.
#include "search_templates/genetic/value/arithmetic.hpp"

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;
using ::testing::ElementsAre;

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();

TEST(Arithmetic, KeepsIntegersExact) {
  EXPECT_EQ(repr(plus(2, 3)), "5");
  EXPECT_EQ(repr(minus(2, 3)), "-1");
  EXPECT_EQ(repr(times(2, 3)), "6");
  EXPECT_EQ(repr(plus(true, 1)), "2");
  EXPECT_EQ(repr(plus(kLargest, 1)), "9223372036854775808");
  EXPECT_EQ(repr(minus(kSmallest, 1)), "-9223372036854775809");
  EXPECT_EQ(repr(minus(kSmallest, -1)), "-9223372036854775807");
  // A product beyond 64 bits becomes a real.
  EXPECT_EQ(times(kLargest, 2), 0x1p64);
}

TEST(Arithmetic, OfARealIsAReal) {
  EXPECT_EQ(repr(plus(1, 0.5)), "1.5");
  EXPECT_EQ(repr(minus(0.5, true)), "-0.5");
  EXPECT_EQ(repr(times(2.0, 3)), "6.0");
  EXPECT_EQ(plus(to_integer("9223372036854775808"), 0.5), 0x1p63);
  EXPECT_EQ(repr(plus(std::nan(""), 1)), "nan");
}

TEST(Arithmetic, RefusesWhatIsNoNumber) {
  EXPECT_EQ(error_of([] { return plus(1, "a"); }),
            "TypeError: unsupported operand type(s) for +: 'int' and 'str'");
  EXPECT_EQ(error_of([] { return minus(Value(), 1.0); }),
            "TypeError: unsupported operand type(s) for -: 'NoneType' and 'float'");
  EXPECT_EQ(error_of([] { return times(List(), 1.0); }),
            "TypeError: unsupported operand type(s) for *: 'list' and 'float'");
}

TEST(Comparison, OfNumbersOfEveryKind) {
  EXPECT_TRUE(at_most(1, 1.0));
  EXPECT_FALSE(at_most(1.5, 1));
  EXPECT_TRUE(greater(true, 0.5));
  EXPECT_TRUE(compares(Comparison::kAtLeast, 2, 2));
  EXPECT_TRUE(compares(Comparison::kLess, -0.5, false));
  for (const Comparison comparison :
       {Comparison::kLess, Comparison::kAtMost, Comparison::kGreater, Comparison::kAtLeast}) {
    EXPECT_FALSE(compares(comparison, std::nan(""), 1.0));
    EXPECT_FALSE(compares(comparison, 1, std::nan("")));
  }
}

TEST(Comparison, NamesItsSignAndItsOperandsInThatOrder) {
  EXPECT_EQ(error_of([] { return at_most("a", 1); }),
            "TypeError: '<=' not supported between instances of 'str' and 'int'");
  EXPECT_EQ(error_of([] { return greater(1, Value()); }),
            "TypeError: '>' not supported between instances of 'int' and 'NoneType'");
}

// Notes its questions and answers with 7, or true.
class Asked : public HostObject {
 public:
  explicit Asked(std::vector<std::string>& questions) : questions_(questions) {}

  [[nodiscard]] std::string type_name() const override { return "Asked"; }
  [[nodiscard]] std::optional<Value> calculate(Arithmetic operation, const Value& other,
                                               bool reversed) const override {
    note("+-*"[static_cast<int>(operation)], other, reversed);
    return 7;
  }
  [[nodiscard]] std::optional<bool> compare(Comparison comparison, const Value& other,
                                            bool reversed) const override {
    note("<l>g"[static_cast<int>(comparison)], other, reversed);
    return true;
  }

 private:
  void note(char sign, const Value& other, bool reversed) const {
    const std::string text = genetic::repr(other);
    questions_.push_back(reversed ? text + sign + "this" : "this" + (sign + text));
  }

  std::vector<std::string>& questions_;
};

TEST(Arithmetic, AsksAnObjectOnEitherSide) {
  std::vector<std::string> questions;
  const Value object = make_object<Asked>(questions);
  EXPECT_EQ(plus(object, 1), 7);
  EXPECT_EQ(minus(1.5, object), 7);
  EXPECT_EQ(times(object, 2), 7);
  EXPECT_TRUE(at_most(object, 3));
  EXPECT_TRUE(greater(3, object));
  EXPECT_THAT(questions, ElementsAre("this+1", "1.5-this", "this*2", "thisl3", "3>this"));
}

TEST(Rounded, GivesTheNearestIntegerWithTiesToEven) {
  EXPECT_EQ(repr(rounded(2.5)), "2");
  EXPECT_EQ(repr(rounded(3.5)), "4");
  EXPECT_EQ(repr(rounded(-1.5)), "-2");
  EXPECT_EQ(repr(rounded(2.4999999)), "2");
  EXPECT_EQ(repr(rounded(7)), "7");
  EXPECT_EQ(repr(rounded(true)), "1");
  EXPECT_EQ(repr(rounded(1e19)), "10000000000000000000");
  EXPECT_EQ(error_of([] { return rounded(std::nan("")); }),
            "ValueError: cannot convert float NaN to integer");
  EXPECT_EQ(error_of([] { return rounded(-std::numeric_limits<double>::infinity()); }),
            "OverflowError: cannot convert float infinity to integer");
  EXPECT_EQ(error_of([] { return rounded("1"); }),
            "TypeError: type str doesn't define __round__ method");
}

}  // namespace
}  // namespace varnholt::genetic
