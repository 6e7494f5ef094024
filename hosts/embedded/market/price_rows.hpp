// The rows of one price file below its header, and the place of each cell.
#pragma once

#include <concepts>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosts/embedded/market/csv_rows.hpp"
#include "hosts/embedded/market/price_cells.hpp"
#include "hosts/embedded/market/price_file_error.hpp"
#include "hosts/embedded/market/price_format.hpp"

namespace varnholt::embedded {

// The header has at least one column, each with a name, and no name twice.
//
// Mistakes in the rows are collected, so that whoever corrects the file sees them all: the reading
// goes on behind them, and fails at the end of the file, or when there are enough.
class PriceRows {
 public:
  static constexpr std::size_t kNoColumn = std::numeric_limits<std::size_t>::max();

  // Reads the header, and how the cells below it are written. Throws PriceFileError where there is
  // none, where it is not such a one, and where something can be read in two ways. The text has to
  // outlive this object. `check` is called every few lines; what it throws ends the reading.
  PriceRows(std::string_view text, std::string file, const PriceFormat& format = {},
            const InterruptCheck& check = {});

  // See CsvReader.
  void tell_passed(std::function<void(std::size_t bytes)> passed) {
    reader_.tell_passed(std::move(passed));
  }

  [[nodiscard]] const std::string& file() const { return file_; }
  [[nodiscard]] const std::vector<std::string>& header() const { return header_; }
  [[nodiscard]] std::size_t header_line() const { return header_line_; }
  [[nodiscard]] PricePlace header_place(std::size_t column) const;

  // The column of a field, or kNoColumn: the one that the format names, else the one that has the
  // field's name or one that is usual for it. PriceFileError where there are two.
  [[nodiscard]] std::size_t find(std::string_view field) const;

  // The same by the usual names alone, whatever the format says.
  [[nodiscard]] std::size_t find_usual(std::string_view field) const;

  // The symbol of the one instrument of a file that has no column for it: what the format says,
  // else the file's name without its folder and what stands behind its first dot.
  [[nodiscard]] std::string symbol_of_file() const;

  // Of a header of two rows, the field and the symbol of each column behind the first; empty
  // otherwise.
  [[nodiscard]] const std::vector<std::string>& fields() const { return fields_; }
  [[nodiscard]] const std::vector<std::string>& symbols() const { return symbols_; }

  // What the format says.
  [[nodiscard]] const PriceFormat& format() const { return format_; }

  // About as many rows as there are, to set memory aside for.
  [[nodiscard]] std::size_t likely_rows() const { return likely_rows_; }

  // Goes on to the next row below the header that has as many cells; false at the end. Throws
  // PriceFileError at the end where there was a mistake, and where there is no row at all.
  [[nodiscard]] bool next();

  // Takes a mistake of the row down. Throws PriceFileError when there are enough.
  void note(const PriceFileError& mistake);
  // Whether the row has none so far.
  [[nodiscard]] bool is_good() const { return is_good_; }

  // About the row that `next` has found.
  [[nodiscard]] std::size_t line() const { return reader_.row().line; }
  [[nodiscard]] std::string_view cell(std::size_t column) const {
    return reader_.row().cells[column];
  }
  [[nodiscard]] PricePlace place(std::size_t column) const;

  // What `read_cell` makes of a cell of the row, which it may ask the format for. Its CellMistake
  // is noted with the place of the cell, and there is nothing then.
  template <typename ReadCell>
  requires std::invocable<ReadCell, std::string_view, const CellFormat&>
  [[nodiscard]] auto read(std::size_t column, ReadCell read_cell) {
    return read(column, [&](std::string_view text) { return read_cell(text, cell_format_); });
  }
  template <typename ReadCell>
  requires std::invocable<ReadCell, std::string_view>
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
  void read_second_header(std::string_view text);
  void check_header() const;
  [[nodiscard]] bool read_row();
  // Whether the format leaves out columns of this key.
  [[nodiscard]] bool is_left_out(std::string_view key) const;
  [[nodiscard]] std::size_t named_column(std::string_view field, const std::string& name) const;

  std::string file_;
  PriceFormat format_;
  char separator_;
  CsvReader reader_;
  CellFormat cell_format_;
  std::vector<std::string> header_;
  std::vector<std::string> fields_;
  std::vector<std::string> symbols_;
  std::size_t header_line_ = 0;
  std::size_t likely_rows_ = 0;
  bool has_rows_ = false;
  bool is_good_ = true;
  MistakeList mistakes_;
};

}  // namespace varnholt::embedded
