#include "hosts/embedded/vocabulary/formula_error.hpp"

#include <algorithm>

namespace varnholt::embedded {
namespace {

// The line that holds the place, short enough to be seen at once, and the caret below it.
struct Excerpt {
  std::size_t line = 0;    // From 0, in the formula.
  std::size_t column = 0;  // From 0.
  std::string text;
  std::size_t caret = 0;
};

Excerpt excerpt_at(std::string_view formula, std::size_t offset) {
  constexpr std::size_t kBefore = 40;
  constexpr std::size_t kShown = 80;
  offset = std::min(offset, formula.size());
  const std::string_view before = formula.substr(0, offset);
  const std::size_t line_end = before.rfind('\n');
  const std::size_t begin = line_end == std::string_view::npos ? 0 : line_end + 1;
  Excerpt excerpt;
  excerpt.line = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
  excerpt.column = offset - begin;
  std::string_view line = formula.substr(begin);
  line = line.substr(0, line.find('\n'));
  const std::size_t first = excerpt.column > kBefore ? excerpt.column - kBefore : 0;
  const std::string_view shown = line.substr(first, kShown);
  excerpt.caret = excerpt.column - first;
  if (first > 0) {
    excerpt.text = "...";
    excerpt.caret += 3;
  }
  for (const char character : shown) {
    const bool is_plain = character >= 0x20 && character < 0x7f;
    excerpt.text += is_plain ? character : (character == '\t' ? ' ' : '?');
  }
  if (first + shown.size() < line.size()) excerpt.text += "...";
  return excerpt;
}

std::string error_text(std::string_view formula, std::size_t offset, std::size_t first_line,
                       const std::string& problem, const std::string& remedy) {
  const Excerpt excerpt = excerpt_at(formula, offset);
  std::string text = "line " + std::to_string(first_line + excerpt.line) + ", column " +
                     std::to_string(excerpt.column + 1) + ": " + problem + "; " + remedy;
  text.append("\n  ").append(excerpt.text);
  text.append("\n  ").append(std::string(excerpt.caret, ' ')).append("^");
  return text;
}

}  // namespace

FormulaError::FormulaError(std::string_view formula, std::size_t offset, std::size_t first_line,
                           const std::string& problem, const std::string& remedy)
    : ValueError(error_text(formula, offset, first_line, problem, remedy)) {}

}  // namespace varnholt::embedded
