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

// Row 0 is the header: at least one column, each with a name, and no name twice. There is at least
// one row below it.
class PriceTable {
 public:
  static constexpr std::size_t kNoColumn = std::numeric_limits<std::size_t>::max();

  // Throws PriceFileError where there is no such header or no row.
  PriceTable(std::vector<CsvRow> rows, std::string file);

  [[nodiscard]] const std::string& file() const { return file_; }
  [[nodiscard]] const std::vector<std::string>& header() const { return rows_.front().fields; }
  [[nodiscard]] std::size_t row_count() const { return rows_.size(); }  // With the header.
  [[nodiscard]] std::size_t line(std::size_t row) const { return rows_[row].line; }
  [[nodiscard]] PricePlace place(std::size_t row, std::size_t column) const;

  // The first column whose name is `name` once it is in lower case, or kNoColumn.
  [[nodiscard]] std::size_t find(std::string_view name) const;

  // Throws PriceFileError where the row has more or fewer cells than the header.
  void check_width(std::size_t row) const;

  // What `read_cell` makes of a cell of a row whose width was checked; its CellMistake becomes a
  // PriceFileError with the place of the cell.
  template <typename ReadCell>
  [[nodiscard]] auto read(std::size_t row, std::size_t column, ReadCell read_cell) const {
    try {
      return read_cell(rows_[row].fields[column]);
    } catch (const CellMistake& mistake) {
      throw PriceFileError(place(row, column), mistake.problem, mistake.remedy);
    }
  }

 private:
  void check_header() const;

  std::vector<CsvRow> rows_;
  std::string file_;
};

}  // namespace varnholt::embedded
