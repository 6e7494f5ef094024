// Turns one cell of a price file into its value.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hosts/embedded/market/calendar_date.hpp"
#include "hosts/embedded/market/price_format.hpp"

namespace varnholt::embedded {

// What is wrong with a cell, as a clause that follows its value, and how to fix it. The reader of
// the file adds the place.
struct CellMistake {
  std::string problem;
  std::string remedy;
};

// How the cells of one file are written.
struct CellFormat {
  char decimal = '.';
  std::optional<DateFormat> dates = {};  // Nothing is what cannot be read in two ways.
};

// Each of these throws CellMistake for an invalid cell.

// A day: by the format, or yyyy-mm-dd, yyyy/mm/dd, yyyy.mm.dd or yyyymmdd, all but the last with a
// midnight behind it, in any time zone.
[[nodiscard]] Date read_date_cell(std::string_view cell, const CellFormat& format);

// The symbol of an instrument: one or more printable ASCII characters.
[[nodiscard]] std::string read_symbol_cell(std::string_view cell);

// Whether the cell says that its value is not known: empty, or NaN, NA, N/A, #N/A, null, None or a
// hyphen, in any case.
[[nodiscard]] bool is_missing(std::string_view cell);

// A finite price above zero, or NaN for a missing one.
[[nodiscard]] double read_price_cell(std::string_view cell, const CellFormat& format);

// A finite volume of zero or more, or NaN for a missing one.
[[nodiscard]] double read_volume_cell(std::string_view cell, const CellFormat& format);

// Any finite number, or NaN for a missing one: of a column of the owner's own.
[[nodiscard]] double read_own_number_cell(std::string_view cell, const CellFormat& format);

}  // namespace varnholt::embedded
