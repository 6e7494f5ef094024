// Graphs as people write them.
//
//   -1 * rank(delta(close, 5)) / stddev(returns, 20)
//
// A formula is made of numbers, features, calls of functions, the operators below, and parentheses.
// From the loosest to the tightest:
//
//   c ? x : y           y where the condition is 0, otherwise x
//   ||  or              logic_or
//   &&  and             logic_and
//   <  >  <=  >=  ==  !=   comparisons, one in a row
//   +  -
//   *  /
//   -  +  !  not        before their operand
//   ^  **               a power, from the right: a^b^c is a^(b^c), and -a^b is -(a^b)
//
// Each operator stands for a function: x + y is arith_add(x, y), -x is arith_neg(x). Arithmetic on
// numbers alone is done at once: (1 - 0.2) is the number 0.8. Functions and features are called by
// their names or by the other names of formula_words.hpp, whatever their case. A window is a whole
// number of days, a group a bare name.
//
// What expression_text writes is such a formula, of the same graph.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/vocabulary/formula_error.hpp"
#include "hosts/embedded/vocabulary/graph_shape.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The graph of a formula, which check_graph accepts. Throws FormulaError for any other text.
[[nodiscard]] genetic::Value parse_formula(std::string_view text, const Vocabulary& vocabulary,
                                           const GraphLimits& limits = {},
                                           std::size_t first_line = 1);

// One formula of a text of several.
struct FormulaLine {
  std::string name;  // What stands before "=", if anything.
  std::string text;  // With the ends of its lines, so that places can be told.
  std::size_t first_line = 1;
};

// The formulas of a text. Each begins a line; lines that begin with a blank continue it. It may
// have a name before it, "reversal = -delta(close, 5)". What follows a "#" is a comment.
[[nodiscard]] std::vector<FormulaLine> formula_lines(std::string_view text);

}  // namespace varnholt::embedded
