#include "hosts/embedded/market/long_prices.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "hosts/embedded/market/numbered.hpp"
#include "hosts/embedded/market/own_columns.hpp"
#include "hosts/embedded/market/price_panel.hpp"

namespace varnholt::embedded {
namespace {

enum Field : std::size_t { kOpen, kHigh, kLow, kClose, kVolume, kVwap, kCap, kFieldCount };
constexpr std::array<std::string_view, kFieldCount> kFieldNames = {"open",   "high", "low", "close",
                                                                   "volume", "vwap", "cap"};
struct LongColumns {
  std::size_t date = PriceRows::kNoColumn;
  std::size_t symbol = PriceRows::kNoColumn;
  std::array<std::size_t, kFieldCount> fields{};
  // Where the close is an adjusted one: the raw one beside it, by which the others are adjusted.
  std::size_t raw_close = PriceRows::kNoColumn;
  std::size_t left_out = PriceRows::kNoColumn;  // The adjusted close, where the raw one is meant.

  [[nodiscard]] bool has(std::size_t field) const { return fields[field] != PriceRows::kNoColumn; }
};

// An adjusted close in the place of the raw one changes every return: the owner has to say it.
void find_close(const PriceRows& rows, LongColumns& columns) {
  const std::size_t adjusted = rows.find("adj_close");
  if (adjusted == PriceRows::kNoColumn) return;
  std::size_t& close = columns.fields[kClose];
  if (close == PriceRows::kNoColumn) {
    close = adjusted;
  } else if (!rows.format().columns.contains("close")) {
    throw PriceFileError(rows.header_place(adjusted), "is an adjusted close beside a raw one",
                         "say which is meant with --columns close=NAME; the adjusted one scales "
                         "open, high and low too");
  } else if (close == adjusted) {
    columns.raw_close = rows.find_usual("close");
  } else {
    columns.left_out = adjusted;
  }
}

LongColumns find_columns(const PriceRows& rows) {
  LongColumns columns;
  columns.date = rows.find("date");
  columns.symbol = rows.find("symbol");
  for (std::size_t field = 0; field < kFieldCount; ++field) {
    columns.fields[field] = rows.find(kFieldNames[field]);
  }
  find_close(rows, columns);
  if (columns.date == PriceRows::kNoColumn) throw missing_column(rows, "date");
  if (!columns.has(kClose)) throw missing_column(rows, "close");
  return columns;
}

// The columns that are not of the prices themselves.
std::vector<OwnColumn> own_columns_of(const PriceRows& rows, const LongColumns& columns) {
  std::vector<bool> is_known(rows.header().size());
  for (std::size_t column = 0; column < is_known.size(); ++column) {
    is_known[column] = column == columns.date || column == columns.symbol ||
                       column == columns.raw_close || column == columns.left_out ||
                       std::count(columns.fields.begin(), columns.fields.end(), column) > 0;
  }
  return find_own_columns(rows, is_known);
}

struct DateHash {
  std::size_t operator()(Date date) const {
    return std::hash<Date::rep>{}(date.time_since_epoch().count());
  }
};

// The line of each row. Rows mostly stand in lines that follow one another: only where they do not
// is one kept.
class RowLines {
 public:
  void add(std::size_t line) {
    if (row_count_ == 0 || line != last_ + 1) breaks_.push_back({row_count_, line});
    last_ = line;
    ++row_count_;
  }

  [[nodiscard]] std::size_t operator[](std::size_t row) const {
    const auto after =
        std::upper_bound(breaks_.begin(), breaks_.end(), row,
                         [](std::size_t wanted, const Break& at) { return wanted < at.row; });
    const Break& at = *std::prev(after);
    return at.line + (row - at.row);
  }

 private:
  struct Break {
    std::size_t row = 0;
    std::size_t line = 0;
  };
  std::vector<Break> breaks_;
  std::size_t row_count_ = 0;
  std::size_t last_ = 0;
};

// What the rows hold, a column each, so that each can be let go once its panel is made.
struct LongRows {
  Numbered<Date, DateHash> dates;
  Numbered<std::string> symbols;
  std::vector<std::uint32_t> date_numbers;
  std::vector<std::uint32_t> symbol_numbers;
  RowLines lines;
  std::array<std::vector<double>, kFieldCount> values;
  std::vector<OwnColumn> own;
  // By symbol and date: whether there has been such a row.
  std::vector<std::vector<bool>> is_given;
};

std::array<double, kFieldCount> read_values(PriceRows& rows, const LongColumns& columns) {
  constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
  std::array<double, kFieldCount> values{};
  values.fill(kUnknown);
  for (std::size_t field = 0; field < kFieldCount; ++field) {
    if (!columns.has(field)) continue;
    const auto value = field == kVolume ? rows.read(columns.fields[field], read_volume_cell)
                                        : rows.read(columns.fields[field], read_price_cell);
    values[field] = value.value_or(kUnknown);
  }
  if (columns.raw_close != PriceRows::kNoColumn) {
    const double raw = rows.read(columns.raw_close, read_price_cell).value_or(kUnknown);
    for (const std::size_t field : {kOpen, kHigh, kLow, kVwap})
      values[field] *= values[kClose] / raw;
    // So that price times volume stays the money that changed hands.
    values[kVolume] *= raw / values[kClose];
  }
  if (values[kHigh] < values[kLow]) {
    const std::string low(rows.cell(columns.fields[kLow]));
    rows.note(PriceFileError(rows.place(columns.fields[kHigh]),
                             "is a high below the low of the same day, \"" + low + "\"",
                             "correct one of the two, or leave both cells empty"));
  }
  return values;
}

// The line of the row with this day and symbol, which there is.
std::size_t line_of(const LongRows& table, std::uint32_t date, std::uint32_t symbol) {
  std::size_t row = 0;
  while (table.date_numbers[row] != date || table.symbol_numbers[row] != symbol)
    ++row;
  return table.lines[row];
}

std::optional<std::uint32_t> number_of_symbol(LongRows& table, PriceRows& rows,
                                              const LongColumns& columns) {
  if (columns.symbol == PriceRows::kNoColumn) {
    const std::string symbol = rows.symbol_of_file();
    return table.symbols.number(symbol, [&] { return std::optional(read_symbol_cell(symbol)); });
  }
  return table.symbols.number(rows.cell(columns.symbol),
                              [&] { return rows.read(columns.symbol, read_symbol_cell); });
}

void add_row(LongRows& table, PriceRows& rows, const LongColumns& columns) {
  const auto date_number = table.dates.number(
      rows.cell(columns.date), [&] { return rows.read(columns.date, read_date_cell); });
  const auto symbol_number = number_of_symbol(table, rows, columns);
  const std::array<double, kFieldCount> values = read_values(rows, columns);
  for (OwnColumn& own : table.own)
    own.read(rows);
  if (!rows.is_good()) return;
  check_panel_size(rows.file(), table.dates.size(), table.symbols.size());
  const std::uint32_t date = *date_number;
  const std::uint32_t symbol = *symbol_number;

  table.is_given.resize(table.symbols.size());
  std::vector<bool>& days = table.is_given[symbol];
  if (days.size() <= date) days.resize(2 * table.dates.size());
  if (days[date]) {
    return rows.note(PriceFileError(rows.place(columns.date),
                                    "is given a second time for \"" + table.symbols[symbol] +
                                        "\" (first in line " +
                                        std::to_string(line_of(table, date, symbol)) + ")",
                                    "keep one row a day and instrument"));
  }
  days[date] = true;
  table.lines.add(rows.line());

  table.date_numbers.push_back(date);
  table.symbol_numbers.push_back(symbol);
  for (std::size_t field = 0; field < kFieldCount; ++field) {
    if (columns.has(field)) table.values[field].push_back(values[field]);
  }
  for (OwnColumn& own : table.own)
    own.keep();
}

LongRows read_rows(PriceRows& rows, const LongColumns& columns) {
  LongRows table;
  table.own = own_columns_of(rows, columns);
  table.date_numbers.reserve(rows.likely_rows());
  table.symbol_numbers.reserve(rows.likely_rows());
  for (std::size_t field = 0; field < kFieldCount; ++field) {
    if (columns.has(field)) table.values[field].reserve(rows.likely_rows());
  }
  while (rows.next())
    add_row(table, rows, columns);
  return table;
}

}  // namespace

PriceTable read_long_prices(PriceRows& rows) {
  const LongColumns columns = find_columns(rows);
  LongRows table = read_rows(rows, columns);

  PriceTable read{.file = rows.file()};
  MarketData& data = read.data;
  data.dates = table.dates.sorted();
  data.symbols = table.symbols.sorted();
  const std::vector<Eigen::Index> days = table.dates.places(data.dates);
  const std::vector<Eigen::Index> instruments = table.symbols.places(data.symbols);
  const auto place = [&](auto& panel, const auto& values) {
    for (std::size_t row = 0; row < values.size(); ++row)
      panel(days[table.date_numbers[row]], instruments[table.symbol_numbers[row]]) = values[row];
  };

  const std::array<std::optional<Panel>*, kFieldCount> optional_panels = {
      &data.open, &data.high, &data.low, nullptr, &data.volume, &data.vwap, &data.cap};
  for (std::size_t field = 0; field < kFieldCount; ++field) {
    if (!columns.has(field)) continue;
    Panel& panel = field == kClose ? data.close : optional_panels[field]->emplace();
    panel = empty_panel(data.dates.size(), data.symbols.size());
    place(panel, std::exchange(table.values[field], {}));
  }
  for (OwnColumn& own : table.own) {
    if (own.kind() == OwnKind::Number) {
      Panel& panel = data.features.emplace(own.name(), Panel()).first->second;
      panel = empty_panel(data.dates.size(), data.symbols.size());
      place(panel, own.take_numbers());
    } else if (own.kind() == OwnKind::Group) {
      GroupPanel& panel = data.groups.emplace(own.name(), GroupPanel()).first->second;
      panel = GroupPanel::Constant(data.close.rows(), data.close.cols(), kNoGroup);
      place(panel, own.take_groups());
      read.group_names.emplace(own.name(), own.group_names());
    }
  }
  read.lines = LinePanel::Zero(data.close.rows(), data.close.cols());
  for (std::size_t row = 0; row < table.date_numbers.size(); ++row) {
    read.lines(days[table.date_numbers[row]], instruments[table.symbol_numbers[row]]) =
        static_cast<std::uint32_t>(table.lines[row]);
  }
  return read;
}

}  // namespace varnholt::embedded
