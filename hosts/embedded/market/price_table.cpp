#include "hosts/embedded/market/price_table.hpp"

#include <map>
#include <utility>

namespace varnholt::embedded {
namespace {

std::string lower_case(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

}  // namespace

PriceTable::PriceTable(std::vector<CsvRow> rows, std::string file)
    : rows_(std::move(rows)), file_(std::move(file)) {
  if (rows_.empty()) {
    throw PriceFileError({.file = file_}, "holds no header and no prices",
                         "begin it with a row such as date,symbol,open,high,low,close,volume");
  }
  check_header();
  if (rows_.size() == 1) {
    throw PriceFileError({.file = file_}, "holds a header but no prices",
                         "add the rows with the prices below the header");
  }
}

PricePlace PriceTable::place(std::size_t row, std::size_t column) const {
  return {file_, rows_[row].line, column + 1, row == 0 ? "" : header()[column],
          rows_[row].fields[column]};
}

std::size_t PriceTable::find(std::string_view name) const {
  for (std::size_t column = 0; column < header().size(); ++column) {
    if (lower_case(header()[column]) == name) return column;
  }
  return kNoColumn;
}

void PriceTable::check_width(std::size_t row) const {
  if (rows_[row].fields.size() == header().size()) return;
  throw PriceFileError({.file = file_, .line = rows_[row].line},
                       "the row has " + std::to_string(rows_[row].fields.size()) +
                           " cells where the header has " + std::to_string(header().size()),
                       "give it one cell a column; an empty cell is a gap");
}

void PriceTable::check_header() const {
  std::map<std::string, std::size_t> seen;
  for (std::size_t column = 0; column < header().size(); ++column) {
    if (header()[column].empty()) {
      throw PriceFileError(place(0, column), "is no name for a column",
                           "give every column of the header a name");
    }
    const auto [entry, is_new] = seen.emplace(header()[column], column);
    if (!is_new) {
      throw PriceFileError(place(0, column),
                           "is also the name of column " + std::to_string(entry->second + 1),
                           "remove or rename one of the two");
    }
  }
}

}  // namespace varnholt::embedded
