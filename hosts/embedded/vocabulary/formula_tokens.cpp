#include "hosts/embedded/vocabulary/formula_tokens.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <system_error>

#include "hosts/embedded/vocabulary/formula_error.hpp"
#include "hosts/embedded/vocabulary/graph_node.hpp"

namespace varnholt::embedded {
namespace {

// Two characters before one: the longer sign is the one that is meant.
constexpr auto kSigns =
    std::to_array<std::string_view>({"**", "<=", ">=", "==", "!=", "&&", "||", "+", "-", "*",
                                     "/",  "^",  "(",  ")",  ",",  "?",  ":",  "!", "<", ">"});

bool is_digit(char character) {
  return character >= '0' && character <= '9';
}

bool begins_name(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         character == '_';
}

bool is_blank(char character) {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

}  // namespace

FormulaTokens::FormulaTokens(std::string_view formula, std::size_t first_line)
    : formula_(formula), first_line_(first_line) {
  advance();
}

void FormulaTokens::refuse(std::size_t offset, std::string_view problem,
                           std::string_view remedy) const {
  throw FormulaError(formula_, offset, first_line_, std::string(problem), std::string(remedy));
}

void FormulaTokens::advance() {
  std::size_t begin = current_.offset + current_.text.size();
  while (begin < formula_.size() && is_blank(formula_[begin]))
    ++begin;
  current_ = {TokenKind::End, {}, begin, 0.0};
  const std::string_view rest = formula_.substr(begin);
  if (rest.empty()) return;
  const bool is_fraction = rest.size() > 1 && rest[0] == '.' && is_digit(rest[1]);
  if (is_digit(rest[0]) || is_fraction) return read_number();
  if (begins_name(rest[0])) {
    // A dot joins the words of a name, as in IndClass.sector.
    std::size_t end = 1;
    while (end < rest.size() &&
           (begins_name(rest[end]) || is_digit(rest[end]) || rest[end] == '.')) {
      ++end;
    }
    current_ = {TokenKind::Name, rest.substr(0, end), begin, 0.0};
    return;
  }
  const auto* const sign =
      std::find_if(kSigns.begin(), kSigns.end(),
                   [rest](std::string_view candidate) { return rest.starts_with(candidate); });
  if (sign == kSigns.end()) {
    refuse(begin, "\"" + shown_name(rest.substr(0, 1)) + "\" has no meaning here",
           "write names, numbers, commas, parentheses and the operators + - * / ^ < > <= >= == != "
           "&& || ! ? :");
  }
  current_ = {TokenKind::Sign, rest.substr(0, sign->size()), begin, 0.0};
}

void FormulaTokens::read_number() {
  const std::size_t begin = current_.offset;
  const std::string_view rest = formula_.substr(begin);
  double number = 0.0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  const auto length = static_cast<std::size_t>(end - rest.data());
  if (error != std::errc() || !std::isfinite(number)) {
    refuse(begin, "\"" + shown_name(rest.substr(0, length)) + "\" is too large or too small",
           "write a number that a double holds");
  }
  if (length < rest.size() && (begins_name(rest[length]) || rest[length] == '.')) {
    refuse(begin + length, "the number ends here and something else begins",
           "write an operator or a comma between the two");
  }
  current_ = {TokenKind::Number, rest.substr(0, length), begin, number};
}

}  // namespace varnholt::embedded
