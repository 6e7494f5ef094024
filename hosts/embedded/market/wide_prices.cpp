#include "hosts/embedded/market/wide_prices.hpp"

#include <map>
#include <optional>
#include <string>

#include "hosts/embedded/market/price_panel.hpp"

namespace varnholt::embedded {
namespace {

// The columns that hold closes, in the order of their symbols.
std::map<std::string, std::size_t> find_columns(const PriceRows& rows, std::size_t date_column) {
  std::map<std::string, std::size_t> columns;
  for (std::size_t column = 0; column < rows.header().size(); ++column) {
    if (column == date_column) continue;
    try {
      columns.emplace(read_symbol_cell(rows.header()[column]), column);
    } catch (const CellMistake& mistake) {
      throw PriceFileError(rows.header_place(column), mistake.problem, mistake.remedy);
    }
  }
  if (columns.empty()) {
    throw PriceFileError({.file = rows.file(), .line = rows.header_line()},
                         "the header names no instrument beside \"date\"",
                         "add one column of closes an instrument, or the columns symbol and close");
  }
  return columns;
}

struct WideRow {
  std::size_t line = 0;
  std::size_t number = 0;
};

struct WideRows {
  std::map<Date, WideRow> by_date;
  std::vector<double> closes;  // Row after row, each in the order of the symbols.
};

WideRows read_rows(PriceRows& rows, std::size_t date_column,
                   const std::map<std::string, std::size_t>& columns) {
  WideRows table;
  std::vector<double> closes(columns.size());
  while (rows.next()) {
    const std::optional<Date> date = rows.read(date_column, read_date_cell);
    std::size_t instrument = 0;
    for (const auto& [symbol, column] : columns)
      closes[instrument++] = rows.read(column, read_price_cell).value_or(0.0);
    if (!rows.is_good()) continue;
    const WideRow row = {rows.line(), table.by_date.size()};
    const auto [entry, is_new] = table.by_date.emplace(*date, row);
    if (!is_new) {
      rows.note(PriceFileError(
          rows.place(date_column),
          "is given a second time (first in line " + std::to_string(entry->second.line) + ")",
          "keep one row a day"));
      continue;
    }
    check_panel_size(rows.file(), table.by_date.size(), columns.size());
    table.closes.insert(table.closes.end(), closes.begin(), closes.end());
  }
  return table;
}

}  // namespace

MarketData read_wide_prices(PriceRows& rows) {
  const std::size_t date_column = rows.find("date");
  if (date_column == PriceRows::kNoColumn) throw missing_column(rows, "date");
  // "open" and "low" are tickers of listed companies, "close" is not: such a file is a long one of
  // a single instrument that does not say which.
  if (rows.find("close") != PriceRows::kNoColumn) throw missing_column(rows, "symbol");
  const std::map<std::string, std::size_t> columns = find_columns(rows, date_column);
  const WideRows table = read_rows(rows, date_column, columns);

  MarketData data;
  for (const auto& [symbol, column] : columns)
    data.symbols.push_back(symbol);
  data.close = empty_panel(table.by_date.size(), columns.size());
  for (const auto& [date, row] : table.by_date) {
    const auto day = static_cast<Eigen::Index>(data.dates.size());
    data.dates.push_back(date);
    const double* const closes = table.closes.data() + row.number * columns.size();
    for (std::size_t instrument = 0; instrument < columns.size(); ++instrument) {
      data.close(day, static_cast<Eigen::Index>(instrument)) = closes[instrument];
    }
  }
  return data;
}

}  // namespace varnholt::embedded
