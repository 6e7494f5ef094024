// Turns one cell of a price file into its value.
#pragma once

#include <string>
#include <string_view>

#include "hosts/embedded/market/calendar_date.hpp"

namespace varnholt::embedded {

// What is wrong with a cell, as a clause that follows its value, and how to fix it. The reader of
// the file adds the place.
struct CellMistake {
  std::string problem;
  std::string remedy;
};

// Each of these throws CellMistake for an invalid cell.

// A day, written "yyyy-mm-dd".
[[nodiscard]] Date read_date_cell(std::string_view cell);

// The symbol of an instrument: one or more printable ASCII characters.
[[nodiscard]] std::string read_symbol_cell(std::string_view cell);

// A finite price above zero, or NaN for an empty cell.
[[nodiscard]] double read_price_cell(std::string_view cell);

// A finite volume of zero or more, or NaN for an empty cell.
[[nodiscard]] double read_volume_cell(std::string_view cell);

}  // namespace varnholt::embedded
