#include "hosts/embedded/market/price_rows.hpp"

#include <algorithm>
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

// Lines end with LF, CR LF or CR: the more frequent of the two characters bounds them.
std::size_t count_lines(std::string_view text) {
  const auto count = [text](char end) { return std::count(text.begin(), text.end(), end); };
  return static_cast<std::size_t>(std::max(count('\n'), count('\r'))) + 1;
}

}  // namespace

PriceRows::PriceRows(std::string_view text, std::string file, const InterruptCheck& check)
    : file_(std::move(file)), reader_(text, file_, check), row_bound_(count_lines(text)) {
  if (!reader_.next()) {
    throw PriceFileError({.file = file_}, "holds no header and no prices",
                         "begin it with a row such as date,symbol,open,high,low,close,volume");
  }
  header_.assign(reader_.row().cells.begin(), reader_.row().cells.end());
  header_line_ = reader_.row().line;
  check_header();
}

PricePlace PriceRows::header_place(std::size_t column) const {
  return {file_, header_line_, column + 1, "", header_[column]};
}

std::size_t PriceRows::find(std::string_view name) const {
  for (std::size_t column = 0; column < header_.size(); ++column) {
    if (lower_case(header_[column]) == name) return column;
  }
  return kNoColumn;
}

bool PriceRows::next() {
  while (read_row()) {
    has_rows_ = true;
    is_good_ = true;
    const std::size_t cells = reader_.row().cells.size();
    if (cells == header_.size()) return true;
    note(PriceFileError({.file = file_, .line = line()},
                        "the row has " + std::to_string(cells) + " cells where the header has " +
                            std::to_string(header_.size()),
                        "give it one cell a column; an empty cell is a gap"));
  }
  if (!mistakes_.empty()) fail("");
  if (has_rows_) return false;
  throw PriceFileError({.file = file_}, "holds a header but no prices",
                       "add the rows with the prices below the header");
}

void PriceRows::note(PriceFileError mistake) {
  is_good_ = false;
  mistakes_.push_back(std::move(mistake));
  if (mistakes_.size() < kMostMistakes) return;
  fail(file_ + ": read no further after " + std::to_string(kMostMistakes) +
       " mistakes; there may be more");
}

// Behind a misplaced quote nobody knows where a row ends: that mistake is the last.
bool PriceRows::read_row() {
  try {
    return reader_.next();
  } catch (const PriceFileError& mistake) {
    mistakes_.push_back(mistake);
    fail("");
  }
}

void PriceRows::fail(const std::string& more) const {
  if (mistakes_.size() == 1) throw PriceFileError(mistakes_.front());
  throw PriceFileError(mistakes_, more);
}

PricePlace PriceRows::place(std::size_t column) const {
  return {file_, line(), column + 1, header_[column], std::string(cell(column))};
}

void PriceRows::check_header() const {
  std::map<std::string, std::size_t> seen;
  for (std::size_t column = 0; column < header_.size(); ++column) {
    if (header_[column].empty()) {
      throw PriceFileError(header_place(column), "is no name for a column",
                           "give every column of the header a name");
    }
    const auto [entry, is_new] = seen.emplace(header_[column], column);
    if (!is_new) {
      throw PriceFileError(header_place(column),
                           "is also the name of column " + std::to_string(entry->second + 1),
                           "remove or rename one of the two");
    }
  }
}

}  // namespace varnholt::embedded
