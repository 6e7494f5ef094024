#include "hosts/embedded/market/price_rows.hpp"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

namespace varnholt::embedded {
namespace {

// About as many lines as the text has, by those of its beginning: a little more than there are
// where all are alike.
std::size_t likely_lines(std::string_view text) {
  constexpr std::size_t kLookedAt = std::size_t{1} << 16U;
  const std::string_view beginning = text.substr(0, kLookedAt);
  // Lines end with LF, CR LF or CR.
  const auto count = [beginning](char end) {
    return std::count(beginning.begin(), beginning.end(), end);
  };
  const auto lines = static_cast<double>(std::max(count('\n'), count('\r')) + 1);
  const double share = static_cast<double>(text.size()) / static_cast<double>(beginning.size() + 1);
  constexpr double kMargin = 1.05;
  return static_cast<std::size_t>(kMargin * lines * std::max(share, 1.0)) + 1;
}

bool is_nameless(std::string_view name) {
  const std::string key = column_key(name);
  return key.empty() || key == "unnamed:_0" || key == "index";
}

// Whether all columns but the first are named as fields of prices are.
bool are_fields(const std::vector<std::string>& header) {
  return std::all_of(header.begin() + 1, header.end(), [](const std::string& name) {
    const std::string_view field = usual_field(column_key(name));
    return !field.empty() && field != "date" && field != "symbol";
  });
}

// Whether none but the first is empty or a number, as symbols are not and prices are.
bool are_names(const std::vector<std::string>& header) {
  return std::none_of(header.begin() + 1, header.end(), [](const std::string& name) {
    return is_missing(name) || name.find_first_not_of("0123456789.,-+eE") == std::string::npos;
  });
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// The digits behind the one comma of a number; nothing for any other cell.
std::optional<std::size_t> digits_behind_comma(std::string_view cell) {
  const std::size_t comma = cell.find(',');
  if (comma == std::string_view::npos || comma == 0) return std::nullopt;
  const std::string_view before = cell.substr(cell.front() == '-' ? 1 : 0, comma);
  const std::string_view behind = cell.substr(comma + 1);
  const auto is_number = [](std::string_view text) {
    return std::all_of(text.begin(), text.end(), is_digit);
  };
  if (behind.empty() || !is_number(behind) || !is_digit(before.front())) return std::nullopt;
  return behind.size();
}

// Whether there is a next row. A mistake in it is told when it is read for its prices.
bool is_readable(CsvReader& reader) {
  try {
    return reader.next();
  } catch (const PriceFileError&) {
    return false;
  }
}

// The decimal sign of the numbers in the first rows. 1,25 has a comma for it; 1,250 may be one
// thousand or one and a quarter, which is asked for where no other number tells.
char decimal_of(std::string_view text, const std::string& file, char separator) {
  constexpr int kRowsLookedAt = 1000;
  constexpr std::size_t kThousands = 3;
  CsvReader reader(text, file, {}, separator);
  std::optional<PriceFileError> uncertain;
  for (int row = 0; row < kRowsLookedAt && is_readable(reader); ++row) {
    for (std::size_t column = 0; column < reader.row().cells.size(); ++column) {
      const std::string_view cell = reader.row().cells[column];
      const auto digits = digits_behind_comma(cell);
      if (!digits) continue;
      if (*digits != kThousands) return ',';
      if (uncertain) continue;
      uncertain.emplace(PricePlace{file, reader.row().line, column + 1, "", std::string(cell)},
                        "may be thousands or a decimal comma",
                        "say what the commas in numbers are with --decimal comma, or write the "
                        "numbers without separators of thousands");
    }
  }
  if (uncertain) throw PriceFileError(*uncertain);
  return '.';
}

}  // namespace

PriceRows::PriceRows(std::string_view text, std::string file, const PriceFormat& format,
                     const InterruptCheck& check)
    : file_(std::move(file)),
      format_(format),
      separator_(separator_of(text)),
      reader_(text, file_, check, separator_),
      likely_rows_(likely_lines(text)) {
  if (!format.date_format.empty()) cell_format_.dates.emplace(format.date_format);
  if (!reader_.next()) {
    throw PriceFileError({.file = file_}, "holds no header and no prices",
                         "begin it with a row such as date,symbol,open,high,low,close,volume");
  }
  header_.assign(reader_.row().cells.begin(), reader_.row().cells.end());
  header_line_ = reader_.row().line;
  read_second_header(text);
  check_header();
  cell_format_.decimal =
      format.decimal != '\0' ? format.decimal : decimal_of(text, file_, separator_);
}

PricePlace PriceRows::header_place(std::size_t column) const {
  return {file_, header_line_, column + 1, "", header_[column]};
}

std::size_t PriceRows::named_column(std::string_view field, const std::string& name) const {
  for (std::size_t column = 0; column < header_.size(); ++column) {
    if (header_[column] == name) return column;
  }
  for (std::size_t column = 0; column < header_.size(); ++column) {
    if (column_key(header_[column]) == column_key(name)) return column;
  }
  throw PriceFileError({.file = file_, .line = header_line_},
                       "the header has no column \"" + name + "\" for " + std::string(field),
                       "name one that it has with --columns");
}

std::size_t PriceRows::find(std::string_view field) const {
  if (const auto named = format_.columns.find(field); named != format_.columns.end()) {
    return named_column(field, named->second);
  }
  return find_usual(field);
}

std::string PriceRows::symbol_of_file() const {
  if (!format_.symbol.empty()) return format_.symbol;
  const std::string name = std::filesystem::path(file_).filename().string();
  return name.substr(0, name.find('.', 1));
}

bool PriceRows::is_left_out(std::string_view key) const {
  return std::any_of(format_.columns.begin(), format_.columns.end(), [&](const auto& column) {
    return column.first.starts_with(kLeftOut) && column_key(column.second) == key;
  });
}

std::size_t PriceRows::find_usual(std::string_view field) const {
  std::size_t found = kNoColumn;
  for (std::size_t column = 0; column < header_.size(); ++column) {
    const std::string key = column_key(header_[column]);
    if (is_left_out(key)) continue;
    if (key != field && usual_field(key) != field) continue;
    if (found != kNoColumn) {
      throw PriceFileError(
          header_place(column),
          "may be the " + std::string(field) + " as well as \"" + header_[found] + "\"",
          "say which it is with --columns " + std::string(field) + "=NAME");
    }
    found = column;
  }
  // What programs write that give the days no name.
  if (found == kNoColumn && field == "date" && is_nameless(header_.front())) return 0;
  return found;
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
  mistakes_.throw_if_any();
  if (has_rows_) return false;
  throw PriceFileError({.file = file_}, "holds a header but no prices",
                       "add the rows with the prices below the header");
}

void PriceRows::note(const PriceFileError& mistake) {
  is_good_ = false;
  mistakes_.add(mistake);
}

// Behind a misplaced quote nobody knows where a row ends: that mistake is the last.
bool PriceRows::read_row() {
  try {
    return reader_.next();
  } catch (const PriceFileError& mistake) {
    mistakes_.add(mistake);
    mistakes_.throw_if_any();
    throw;
  }
}

PricePlace PriceRows::place(std::size_t column) const {
  return {file_, line(), column + 1, header_[column], std::string(cell(column))};
}

// A frame with two levels of columns has a row of fields and one of symbols, in either order, and
// often a third in which only the index is named.
void PriceRows::read_second_header(std::string_view text) {
  CsvReader ahead(text, file_, {}, separator_);
  if (!is_readable(ahead) || !is_readable(ahead)) return;
  const std::vector<std::string> second(ahead.row().cells.begin(), ahead.row().cells.end());
  if (second.size() != header_.size() || header_.size() < 2) return;
  // A day stands in front of prices, whatever is wrong with them.
  if (!second.front().empty() && is_digit(second.front().front())) return;
  const bool fields_are_first = are_fields(header_) && are_names(second);
  if (!fields_are_first && !(are_fields(second) && are_names(header_))) return;
  fields_ = fields_are_first ? header_ : second;
  symbols_ = fields_are_first ? second : header_;
  header_.front() = "date";  // Whatever is said above the index, it is the days.
  for (std::size_t column = 1; column < header_.size(); ++column)
    header_[column] = fields_[column] + " " + symbols_[column];
  (void)reader_.next();
  if (!is_readable(ahead)) return;
  const auto& third = ahead.row().cells;
  const bool names_the_index =
      !third.empty() && usual_field(column_key(third.front())) == "date" &&
      std::all_of(third.begin() + 1, third.end(), [](auto cell) { return cell.empty(); });
  if (names_the_index) (void)reader_.next();
}

void PriceRows::check_header() const {
  std::map<std::string, std::size_t> seen;
  for (std::size_t column = 0; column < header_.size(); ++column) {
    if (header_[column].empty() && column > 0) {
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
