#include <utility>

#include "hosts/embedded/vocabulary/formula.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view without_comment(std::string_view line) {
  return line.substr(0, line.find('#'));
}

bool is_blank(std::string_view text) {
  return text.find_first_not_of(kBlanks) == std::string_view::npos;
}

bool is_name_character(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '_';
}

// Takes "NAME =" from the beginning of a formula. Blanks take its place, so that every column stays
// what it is in the file.
std::string take_name(std::string& text) {
  std::size_t end = 0;
  while (end < text.size() && is_name_character(text[end]))
    ++end;
  const std::size_t sign = text.find_first_not_of(kBlanks, end);
  const bool is_named = end > 0 && sign != std::string::npos && text[sign] == '=' &&
                        (sign + 1 == text.size() || text[sign + 1] != '=');
  if (!is_named) return {};
  std::string name = text.substr(0, end);
  text.replace(0, sign + 1, sign + 1, ' ');
  return name;
}

}  // namespace

std::vector<FormulaLine> formula_lines(std::string_view text) {
  std::vector<FormulaLine> formulas;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    const std::string_view line = without_comment(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    const bool continues =
        !formulas.empty() && !line.empty() && kBlanks.find(line.front()) != std::string_view::npos;
    if (continues || (is_blank(line) && !formulas.empty())) {
      // Lines without a formula count too, for the places of those below them.
      formulas.back().text.append("\n").append(line);
    } else if (!is_blank(line)) {
      formulas.push_back({{}, std::string(line), number});
    }
  }
  for (FormulaLine& formula : formulas) {
    while (!formula.text.empty() && (formula.text.back() == '\n' ||
                                     kBlanks.find(formula.text.back()) != std::string::npos)) {
      formula.text.pop_back();
    }
    formula.name = take_name(formula.text);
  }
  return formulas;
}

}  // namespace varnholt::embedded
