// The rows of one price file below its header, and the place of each cell.
#pragma once

#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/market/csv_rows.hpp"
#include "hosts/embedded/market/price_cells.hpp"
#include "hosts/embedded/market/price_file_error.hpp"

namespace varnholt::embedded {

// The header has at least one column, each with a name, and no name twice.
class PriceRows {
 public:
  static constexpr std::size_t kNoColumn = std::numeric_limits<std::size_t>::max();

  // Reads the header. Throws PriceFileError where there is none, or not such a one. The text has to
  // outlive this object. `check` is called every few lines; what it throws ends the reading.
  PriceRows(std::string_view text, std::string file, const InterruptCheck& check = {});

  [[nodiscard]] const std::string& file() const { return file_; }
  [[nodiscard]] const std::vector<std::string>& header() const { return header_; }
  [[nodiscard]] std::size_t header_line() const { return header_line_; }
  [[nodiscard]] PricePlace header_place(std::size_t column) const;

  // The first column whose name is `name` once it is in lower case, or kNoColumn.
  [[nodiscard]] std::size_t find(std::string_view name) const;

  // As many rows as the text can have at most.
  [[nodiscard]] std::size_t row_bound() const { return row_bound_; }

  // Goes on to the next row below the header; false at the end. Throws PriceFileError where it has
  // more or fewer cells than the header, and where there is no row at all.
  [[nodiscard]] bool next();

  // About the row that `next` has found.
  [[nodiscard]] std::size_t line() const { return reader_.row().line; }
  [[nodiscard]] std::string_view cell(std::size_t column) const {
    return reader_.row().cells[column];
  }
  [[nodiscard]] PricePlace place(std::size_t column) const;

  // What `read_cell` makes of a cell of the row; its CellMistake becomes a PriceFileError with the
  // place of the cell.
  template <typename ReadCell>
  [[nodiscard]] auto read(std::size_t column, ReadCell read_cell) const {
    try {
      return read_cell(cell(column));
    } catch (const CellMistake& mistake) {
      throw PriceFileError(place(column), mistake.problem, mistake.remedy);
    }
  }

 private:
  void check_header() const;

  std::string file_;
  CsvReader reader_;
  std::vector<std::string> header_;
  std::size_t header_line_ = 0;
  std::size_t row_bound_ = 0;
  bool has_rows_ = false;
};

}  // namespace varnholt::embedded
