#include "hosts/embedded/market/wide_prices.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/embedded/market/price_panel.hpp"

namespace varnholt::embedded {
namespace {

constexpr auto kFields =
    std::to_array<std::string_view>({"close", "open", "high", "low", "volume"});
constexpr std::size_t kClose = 0;
constexpr std::size_t kVolume = 4;

struct WideColumn {
  std::size_t column = 0;
  std::size_t instrument = 0;
  std::size_t field = kClose;
};

struct WideColumns {
  std::vector<std::string> symbols;  // Ascending.
  std::vector<WideColumn> columns;   // In the order of the file.
};

std::string symbol_in_header(const PriceRows& rows, std::size_t column) {
  const std::string& name = rows.symbols().empty() ? rows.header()[column] : rows.symbols()[column];
  try {
    return read_symbol_cell(name);
  } catch (const CellMistake& mistake) {
    throw PriceFileError(rows.header_place(column), mistake.problem, mistake.remedy);
  }
}

// The field of a column; nothing for one that is left out.
std::optional<std::size_t> field_of(const PriceRows& rows, std::size_t column, bool has_close) {
  if (rows.fields().empty()) return kClose;
  const std::string_view field = usual_field(column_key(rows.fields()[column]));
  if (field == "adj_close") {
    if (!has_close) return kClose;
    throw PriceFileError(rows.header_place(column), "is an adjusted close beside a raw one",
                         "keep one of the two");
  }
  const auto found = std::find(kFields.begin(), kFields.end(), field);
  if (found == kFields.end()) return std::nullopt;
  return static_cast<std::size_t>(found - kFields.begin());
}

WideColumns find_columns(const PriceRows& rows, std::size_t date_column) {
  const bool has_close =
      std::any_of(rows.fields().begin(), rows.fields().end(),
                  [](const std::string& name) { return usual_field(column_key(name)) == "close"; });
  WideColumns wide;
  for (std::size_t column = 0; column < rows.header().size(); ++column) {
    if (column != date_column) wide.symbols.push_back(symbol_in_header(rows, column));
  }
  std::sort(wide.symbols.begin(), wide.symbols.end());
  wide.symbols.erase(std::unique(wide.symbols.begin(), wide.symbols.end()), wide.symbols.end());
  for (std::size_t column = 0; column < rows.header().size(); ++column) {
    if (column == date_column) continue;
    const std::string symbol = symbol_in_header(rows, column);
    const auto place = std::lower_bound(wide.symbols.begin(), wide.symbols.end(), symbol);
    if (const auto field = field_of(rows, column, has_close)) {
      wide.columns.push_back(
          {column, static_cast<std::size_t>(place - wide.symbols.begin()), *field});
    }
  }
  const bool any_close = std::any_of(wide.columns.begin(), wide.columns.end(),
                                     [](const WideColumn& row) { return row.field == kClose; });
  if (any_close) return wide;
  throw PriceFileError({.file = rows.file(), .line = rows.header_line()},
                       "the header names no instrument beside \"date\"",
                       "add one column of closes an instrument, or the columns symbol and close");
}

struct WideRow {
  std::size_t line = 0;
  std::size_t number = 0;
};

struct WideRows {
  std::map<Date, WideRow> by_date;
  std::vector<double> values;  // Row after row, each in the order of the columns.
};

WideRows read_rows(PriceRows& rows, std::size_t date_column, const WideColumns& wide) {
  WideRows table;
  std::vector<double> values(wide.columns.size());
  while (rows.next()) {
    const std::optional<Date> date = rows.read(date_column, read_date_cell);
    for (std::size_t i = 0; i < wide.columns.size(); ++i) {
      const WideColumn& column = wide.columns[i];
      const auto value = column.field == kVolume ? rows.read(column.column, read_volume_cell)
                                                 : rows.read(column.column, read_price_cell);
      values[i] = value.value_or(0.0);
    }
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
    check_panel_size(rows.file(), table.by_date.size(), wide.columns.size());
    table.values.insert(table.values.end(), values.begin(), values.end());
  }
  return table;
}

}  // namespace

PriceTable read_wide_prices(PriceRows& rows) {
  const std::size_t date_column = rows.find("date");
  if (date_column == PriceRows::kNoColumn) throw missing_column(rows, "date");
  const WideColumns wide = find_columns(rows, date_column);
  const WideRows table = read_rows(rows, date_column, wide);

  PriceTable read{.file = rows.file()};
  MarketData& data = read.data;
  data.symbols = wide.symbols;
  const auto empty = [&] { return empty_panel(table.by_date.size(), wide.symbols.size()); };
  data.close = empty();
  const std::array<std::optional<Panel>*, kFields.size()> optional_panels = {
      nullptr, &data.open, &data.high, &data.low, &data.volume};
  std::array<Panel*, kFields.size()> panels = {&data.close};
  for (const WideColumn& column : wide.columns) {
    Panel*& panel = panels[column.field];
    if (panel == nullptr) panel = &optional_panels[column.field]->emplace(empty());
  }
  read.lines = LinePanel::Zero(static_cast<Eigen::Index>(table.by_date.size()),
                               static_cast<Eigen::Index>(wide.symbols.size()));
  for (const auto& [date, row] : table.by_date) {
    const auto day = static_cast<Eigen::Index>(data.dates.size());
    data.dates.push_back(date);
    const double* const values = table.values.data() + row.number * wide.columns.size();
    for (std::size_t i = 0; i < wide.columns.size(); ++i) {
      const WideColumn& column = wide.columns[i];
      (*panels[column.field])(day, static_cast<Eigen::Index>(column.instrument)) = values[i];
    }
    read.lines.row(day).setConstant(static_cast<std::uint32_t>(row.line));
  }
  return read;
}

}  // namespace varnholt::embedded
