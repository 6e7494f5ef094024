#include "hosts/embedded/market/price_file.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <set>
#include <utility>

#include "hosts/embedded/market/csv_rows.hpp"
#include "hosts/embedded/market/price_cells.hpp"
#include "hosts/embedded/market/price_table.hpp"
#include "hosts/embedded/system/read_file.hpp"

namespace varnholt::embedded {
namespace {

enum Field : std::size_t { kOpen, kHigh, kLow, kClose, kVolume, kFieldCount };
constexpr std::array<std::string_view, kFieldCount> kFieldNames = {"open", "high", "low", "close",
                                                                   "volume"};

PriceFileError missing_column(const PriceTable& table, const std::string& name) {
  return PriceFileError({.file = table.file(), .line = table.line(0)},
                        "the header has no column \"" + name + "\"",
                        "a long file needs date, symbol and close, a wide file date and one column "
                        "of closes an instrument, with commas between them");
}

// An all-NaN panel for `days` and `instruments`, refused where it would not fit.
Panel empty_panel(const PriceTable& table, std::size_t days, std::size_t instruments) {
  if (days * instruments > static_cast<std::size_t>(kMaximumPriceCells)) {
    throw PriceFileError({.file = table.file()},
                         "spans " + std::to_string(days) + " days and " +
                             std::to_string(instruments) + " instruments, which is beyond " +
                             std::to_string(kMaximumPriceCells) + " cells",
                         "check that date and symbol are the columns meant, or split the file");
  }
  return Panel::Constant(static_cast<Eigen::Index>(days), static_cast<Eigen::Index>(instruments),
                         std::numeric_limits<double>::quiet_NaN());
}

template <typename Key>
Eigen::Index position(const std::vector<Key>& sorted, const Key& key) {
  return std::lower_bound(sorted.begin(), sorted.end(), key) - sorted.begin();
}

// One row of a long file.
struct LongRow {
  Date date;
  std::string symbol;
  std::array<double, kFieldCount> values{};
};

struct LongColumns {
  std::size_t date = PriceTable::kNoColumn;
  std::size_t symbol = PriceTable::kNoColumn;
  std::array<std::size_t, kFieldCount> fields{};
};

LongColumns find_long_columns(const PriceTable& table) {
  LongColumns columns;
  columns.date = table.find("date");
  columns.symbol = table.find("symbol");
  for (std::size_t field = 0; field < kFieldCount; ++field) {
    columns.fields[field] = table.find(kFieldNames[field]);
  }
  if (columns.date == PriceTable::kNoColumn) throw missing_column(table, "date");
  if (columns.fields[kClose] == PriceTable::kNoColumn) throw missing_column(table, "close");
  for (std::size_t column = 0; column < table.header().size(); ++column) {
    const bool known = column == columns.date || column == columns.symbol ||
                       std::count(columns.fields.begin(), columns.fields.end(), column) > 0;
    if (!known) {
      throw PriceFileError(table.place(0, column), "is not a column of a long price file",
                           "remove it, or rename it to one of date, symbol, open, high, low, "
                           "close, volume");
    }
  }
  return columns;
}

LongRow read_long_row(const PriceTable& table, const LongColumns& columns, std::size_t row) {
  LongRow result;
  result.date = table.read(row, columns.date, read_date_cell);
  result.symbol = table.read(row, columns.symbol, read_symbol_cell);
  for (std::size_t field = 0; field < kFieldCount; ++field) {
    const std::size_t column = columns.fields[field];
    if (column == PriceTable::kNoColumn) {
      result.values[field] = std::numeric_limits<double>::quiet_NaN();
    } else if (field == kVolume) {
      result.values[field] = table.read(row, column, read_volume_cell);
    } else {
      result.values[field] = table.read(row, column, read_price_cell);
    }
  }
  if (result.values[kHigh] < result.values[kLow]) {
    const std::string& low = table.place(row, columns.fields[kLow]).value;
    throw PriceFileError(table.place(row, columns.fields[kHigh]),
                         "is a high below the low of the same day, \"" + low + "\"",
                         "correct one of the two, or leave both cells empty");
  }
  return result;
}

MarketData read_long(const PriceTable& table) {
  const LongColumns columns = find_long_columns(table);
  std::vector<LongRow> rows;
  std::map<std::pair<Date, std::string>, std::size_t> first_lines;
  std::set<Date> dates;
  std::set<std::string> symbols;
  rows.reserve(table.row_count() - 1);
  for (std::size_t row = 1; row < table.row_count(); ++row) {
    table.check_width(row);
    rows.push_back(read_long_row(table, columns, row));
    const LongRow& read = rows.back();
    const auto [entry, is_new] =
        first_lines.emplace(std::pair(read.date, read.symbol), table.line(row));
    if (!is_new) {
      throw PriceFileError(table.place(row, columns.date),
                           "is given a second time for \"" + read.symbol + "\" (first in line " +
                               std::to_string(entry->second) + ")",
                           "keep one row a day and instrument");
    }
    dates.insert(read.date);
    symbols.insert(read.symbol);
  }

  MarketData data;
  data.dates.assign(dates.begin(), dates.end());
  data.symbols.assign(symbols.begin(), symbols.end());
  const Panel empty = empty_panel(table, dates.size(), symbols.size());
  data.close = empty;
  const std::array<std::optional<Panel>*, kFieldCount> optional_panels = {
      &data.open, &data.high, &data.low, nullptr, &data.volume};
  std::array<Panel*, kFieldCount> panels{};
  for (std::size_t field = 0; field < kFieldCount; ++field) {
    if (field == kClose) {
      panels[field] = &data.close;
    } else if (columns.fields[field] != PriceTable::kNoColumn) {
      panels[field] = &optional_panels[field]->emplace(empty);
    }
  }
  for (const LongRow& row : rows) {
    const Eigen::Index day = position(data.dates, row.date);
    const Eigen::Index instrument = position(data.symbols, row.symbol);
    for (std::size_t field = 0; field < kFieldCount; ++field) {
      if (panels[field] != nullptr) (*panels[field])(day, instrument) = row.values[field];
    }
  }
  return data;
}

// The columns of a wide file that hold closes, in the order of their symbols.
std::map<std::string, std::size_t> find_wide_columns(const PriceTable& table,
                                                     std::size_t date_column) {
  std::map<std::string, std::size_t> columns;
  for (std::size_t column = 0; column < table.header().size(); ++column) {
    if (column == date_column) continue;
    columns.emplace(table.read(0, column, read_symbol_cell), column);
  }
  if (columns.empty()) {
    throw PriceFileError({.file = table.file(), .line = table.line(0)},
                         "the header names no instrument beside \"date\"",
                         "add one column of closes an instrument, or the columns symbol and close");
  }
  return columns;
}

MarketData read_wide(const PriceTable& table) {
  const std::size_t date_column = table.find("date");
  if (date_column == PriceTable::kNoColumn) throw missing_column(table, "date");
  // "open" and "low" are tickers of listed companies, "close" is not: such a file is a long one of
  // a single instrument that does not say which.
  if (table.find("close") != PriceTable::kNoColumn) throw missing_column(table, "symbol");
  const std::map<std::string, std::size_t> columns = find_wide_columns(table, date_column);

  struct WideRow {
    std::size_t line;
    std::vector<double> closes;  // In the order of the symbols.
  };
  std::map<Date, WideRow> rows;
  for (std::size_t row = 1; row < table.row_count(); ++row) {
    table.check_width(row);
    const Date date = table.read(row, date_column, read_date_cell);
    const auto [entry, is_new] = rows.emplace(date, WideRow{table.line(row), {}});
    if (!is_new) {
      throw PriceFileError(
          table.place(row, date_column),
          "is given a second time (first in line " + std::to_string(entry->second.line) + ")",
          "keep one row a day");
    }
    for (const auto& [symbol, column] : columns) {
      entry->second.closes.push_back(table.read(row, column, read_price_cell));
    }
  }

  MarketData data;
  data.close = empty_panel(table, rows.size(), columns.size());
  for (const auto& [symbol, column] : columns)
    data.symbols.push_back(symbol);
  for (const auto& [date, row] : rows) {
    const auto day = static_cast<Eigen::Index>(data.dates.size());
    data.dates.push_back(date);
    for (std::size_t instrument = 0; instrument < row.closes.size(); ++instrument) {
      data.close(day, static_cast<Eigen::Index>(instrument)) = row.closes[instrument];
    }
  }
  return data;
}

}  // namespace

MarketData read_price_text(std::string_view text, const std::string& name) {
  const PriceTable table(read_csv_rows(text, name), name);
  return table.find("symbol") != PriceTable::kNoColumn ? read_long(table) : read_wide(table);
}

MarketData read_price_file(const std::filesystem::path& path) {
  return read_price_text(read_price_bytes(path), path.string());
}

std::string read_price_bytes(const std::filesystem::path& path) {
  FileBytes file = read_file(path, kLargestPriceBytes);
  if (file.trouble == ReadTrouble::None) return std::move(file.bytes);
  const char* const remedy = file.trouble == ReadTrouble::IsFolder
                                 ? "name a CSV file of daily prices"
                                 : "check the path, and that you may read the file";
  throw PriceFileError({.file = path.string()}, file.trouble_text(), remedy);
}

}  // namespace varnholt::embedded
