// Tables of signals: figures in columns, and the expression beside or below them.
#pragma once

#include <string>
#include <vector>

#include "apps/genetic_search/text_layout.hpp"

namespace varnholt::app {

struct TableColumn {
  std::string heading;
  Align align = Align::Right;
};

struct SignalRow {
  std::vector<std::string> cells;  // One a column.
  std::string expression;
};

// A line of headings and a row for each signal. Columns are as wide as their widest cell, with two
// blanks between them. The expression is wrapped beside the figures; where a terminal leaves too
// little room for that, it stands below them.
[[nodiscard]] std::string signal_table_text(const std::vector<TableColumn>& columns,
                                            const std::vector<SignalRow>& rows, Width width);

// A figure with two digits behind the point.
[[nodiscard]] std::string two_digits(double figure);

}  // namespace varnholt::app
