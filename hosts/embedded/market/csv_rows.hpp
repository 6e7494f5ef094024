// The rows of a CSV text, each with the line that it begins in.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace varnholt::embedded {

struct CsvRow {
  std::size_t line = 0;             // Counted from 1; a row in quotes may go on over further lines.
  std::vector<std::string> fields;  // Without quotes, and without blanks at either end.
};

// The rows of `text` in order. Cells are separated by commas and may stand in double quotes, in
// which "" is one quote (RFC 4180). A line ends with LF, CR LF or CR. Blank lines are no rows, and
// a byte order mark at the start is dropped. Throws PriceFileError, with `file` as the name to
// show, where a quote is misplaced or not closed.
[[nodiscard]] std::vector<CsvRow> read_csv_rows(std::string_view text, const std::string& file);

}  // namespace varnholt::embedded
