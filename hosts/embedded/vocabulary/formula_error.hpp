// What is wrong with a formula, and where.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::embedded {

// A formula that cannot be read. The text is "PLACE: PROBLEM; REMEDY", and below it the line of the
// formula with a caret under the place, which is a line and a column, both from 1.
class FormulaError : public genetic::ValueError {
 public:
  // `offset` counts the bytes before the place; the formula begins in `first_line`.
  FormulaError(std::string_view formula, std::size_t offset, std::size_t first_line,
               const std::string& problem, const std::string& remedy);
};

}  // namespace varnholt::embedded
