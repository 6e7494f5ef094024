// The functions that work entry by entry: what they give for a day and an instrument depends on the
// values of that day and instrument only. The rules of panel_functions.hpp hold for them too, and
// an entry is NaN where any argument is.
#pragma once

#include <cstddef>

namespace varnholt::embedded {

enum class ElementFunction {
  Add,  // x + y
  Sub,
  Mul,
  Div,  // x / y, NaN where |y| is below kNearZero.
  Min,
  Max,
  Neg,
  Abs,
  Sign,         // -1, 0 or 1.
  Log,          // sign(x) ln(1 + |x|): defined everywhere, odd, and x itself near zero.
  Tanh,         // The hyperbolic tangent.
  Power,        // x^y; NaN where that is no real number.
  SignedPower,  // sign(x) |x|^y
  Ln,           // The natural logarithm; NaN where x <= 0.
  If,           // y where x is not 0, otherwise z. Only x and the one that is taken count.
  Clip,         // The nearest to x from y to z; NaN where y > z.
  // 1.0 where it holds and 0.0 where it does not. Values that are alike (alike.hpp) are equal.
  Greater,
  Less,
  GreaterOrEqual,
  LessOrEqual,
  Equal,
  NotEqual,
  // Of truth values: 0.0 is false, every other value is true. The result is 1.0 or 0.0.
  And,
  Or,
  Not,
};

inline constexpr std::size_t kMostElementInputs = 3;

// A divisor nearer to zero than this makes a quotient unknown.
inline constexpr double kNearZero = 1e-12;

// How many panels it takes.
[[nodiscard]] std::size_t inputs_of(ElementFunction function);

}  // namespace varnholt::embedded
