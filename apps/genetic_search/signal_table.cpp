#include "apps/genetic_search/signal_table.hpp"

#include <algorithm>
#include <cstddef>

#include <fmt/format.h>

namespace varnholt::app {
namespace {

constexpr std::size_t kGap = 2;
// Below this an expression beside the figures would be a narrow column of fragments.
constexpr std::size_t kNarrowestExpression = 30;
constexpr std::size_t kExpressionIndent = 6;

std::vector<std::size_t> column_widths(const std::vector<TableColumn>& columns,
                                       const std::vector<SignalRow>& rows) {
  std::vector<std::size_t> widths;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    std::size_t width = column_count(columns[i].heading);
    for (const SignalRow& row : rows)
      width = std::max(width, column_count(row.cells.at(i)));
    widths.push_back(width);
  }
  return widths;
}

std::string figures_row(const std::vector<TableColumn>& columns,
                        const std::vector<std::size_t>& widths,
                        const std::vector<std::string>& cells) {
  std::string row;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (i > 0) row += std::string(kGap, ' ');
    row += padded(cells[i], widths[i], columns[i].align);
  }
  return row;
}

std::string without_trailing_blanks(std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

}  // namespace

std::string signal_table_text(const std::vector<TableColumn>& columns,
                              const std::vector<SignalRow>& rows, Width width) {
  const std::vector<std::size_t> widths = column_widths(columns, rows);
  std::size_t beside = kGap;
  std::vector<std::string> headings;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    beside += widths[i] + (i > 0 ? kGap : 0);
    headings.push_back(columns[i].heading);
  }
  const bool is_below = width && *width < beside + kNarrowestExpression;
  const std::size_t indent = is_below ? kExpressionIndent : beside;
  const auto ended = [](const std::string& line) { return without_trailing_blanks(line) + "\n"; };

  const std::string heading = figures_row(columns, widths, headings);
  std::string text = ended(is_below ? heading : heading + "  expression");
  for (const SignalRow& row : rows) {
    std::string line = figures_row(columns, widths, row.cells);
    if (is_below) {
      text += ended(line);
      line = std::string(indent, ' ');
    } else {
      line += std::string(kGap, ' ');
    }
    for (const std::string& part : wrapped_beside(on_one_line(row.expression), width, indent)) {
      text += ended(line + part);
      line = std::string(indent, ' ');
    }
  }
  return text;
}

std::string two_digits(double figure) {
  return fmt::format("{:.2f}", figure);
}

}  // namespace varnholt::app
