// The rows of one price file below its header, and the place of each cell.
#pragma once

#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/market/csv_rows.hpp"
#include "hosts/embedded/market/price_cells.hpp"
#include "hosts/embedded/market/price_file_error.hpp"

namespace varnholt::embedded {

// The header has at least one column, each with a name, and no name twice.
//
// Mistakes in the rows are collected, so that whoever corrects the file sees them all: the reading
// goes on behind them, and fails at the end of the file, or at the last of kMostMistakes.
class PriceRows {
 public:
  static constexpr std::size_t kNoColumn = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t kMostMistakes = 20;

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

  // Goes on to the next row below the header that has as many cells; false at the end. Throws
  // PriceFileError at the end where there was a mistake, and where there is no row at all.
  [[nodiscard]] bool next();

  // Takes a mistake of the row down. Throws PriceFileError when there are enough.
  void note(PriceFileError mistake);
  // Whether the row has none so far.
  [[nodiscard]] bool is_good() const { return is_good_; }

  // About the row that `next` has found.
  [[nodiscard]] std::size_t line() const { return reader_.row().line; }
  [[nodiscard]] std::string_view cell(std::size_t column) const {
    return reader_.row().cells[column];
  }
  [[nodiscard]] PricePlace place(std::size_t column) const;

  // What `read_cell` makes of a cell of the row. Its CellMistake is noted with the place of the
  // cell, and there is nothing then.
  template <typename ReadCell>
  [[nodiscard]] auto read(std::size_t column, ReadCell read_cell)
      -> std::optional<decltype(read_cell(std::string_view()))> {
    try {
      return read_cell(cell(column));
    } catch (const CellMistake& mistake) {
      note(PriceFileError(place(column), mistake.problem, mistake.remedy));
      return std::nullopt;
    }
  }

 private:
  void check_header() const;
  [[nodiscard]] bool read_row();
  [[noreturn]] void fail(const std::string& more) const;

  std::string file_;
  CsvReader reader_;
  std::vector<std::string> header_;
  std::size_t header_line_ = 0;
  std::size_t row_bound_ = 0;
  bool has_rows_ = false;
  bool is_good_ = true;
  std::vector<PriceFileError> mistakes_;
};

}  // namespace varnholt::embedded
