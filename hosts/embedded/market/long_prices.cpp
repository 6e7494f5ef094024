#include "hosts/embedded/market/long_prices.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "hosts/embedded/market/price_panel.hpp"

namespace varnholt::embedded {
namespace {

enum Field : std::size_t { kOpen, kHigh, kLow, kClose, kVolume, kVwap, kCap, kFieldCount };
constexpr std::array<std::string_view, kFieldCount> kFieldNames = {"open",   "high", "low", "close",
                                                                   "volume", "vwap", "cap"};
// Columns of names, which instruments are grouped by.
constexpr auto kGroupNames =
    std::to_array<std::string_view>({"sector", "industry", "subindustry", "country"});

struct LongColumns {
  std::size_t date = PriceRows::kNoColumn;
  std::size_t symbol = PriceRows::kNoColumn;
  std::array<std::size_t, kFieldCount> fields{};
  std::array<std::size_t, kGroupNames.size()> groups{};
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
  for (std::size_t group = 0; group < kGroupNames.size(); ++group)
    columns.groups[group] = rows.find(kGroupNames[group]);
  find_close(rows, columns);
  if (columns.date == PriceRows::kNoColumn) throw missing_column(rows, "date");
  if (!columns.has(kClose)) throw missing_column(rows, "close");
  for (std::size_t column = 0; column < rows.header().size(); ++column) {
    const bool known = column == columns.date || column == columns.symbol ||
                       column == columns.raw_close || column == columns.left_out ||
                       is_beside_prices(column_key(rows.header()[column])) ||
                       std::count(columns.fields.begin(), columns.fields.end(), column) > 0 ||
                       std::count(columns.groups.begin(), columns.groups.end(), column) > 0;
    if (!known) {
      throw PriceFileError(rows.header_place(column), "is not a column of a long price file",
                           "remove it, or say with --columns which of date, symbol, open, high, "
                           "low, close, volume, vwap, cap, sector, industry, subindustry and "
                           "country it is");
    }
  }
  return columns;
}

// The keys of a file in the order in which they appear; each is known by its number.
template <typename Key, typename Hash = std::hash<Key>>
class Numbered {
 public:
  // The number of what `text` is, which `read` turns into a key where it is new; nothing where it
  // has none. Files are sorted by day or by symbol, so that most rows have one of the two in common
  // with the row before.
  template <typename Read>
  std::optional<std::uint32_t> number(std::string_view text, const Read& read) {
    if (has_last_ && text == last_text_) return last_;
    const std::optional<Key> key = read();
    if (!key) return std::nullopt;
    const auto [entry, is_new] = numbers_.emplace(*key, static_cast<std::uint32_t>(keys_.size()));
    if (is_new) keys_.push_back(*key);
    last_text_ = text;
    last_ = entry->second;
    has_last_ = true;
    return last_;
  }

  [[nodiscard]] std::size_t size() const { return keys_.size(); }
  [[nodiscard]] const Key& operator[](std::size_t number) const { return keys_[number]; }

  // The keys in ascending order, and the place of each number in it.
  [[nodiscard]] std::vector<Key> sorted() const {
    std::vector<Key> keys = keys_;
    std::sort(keys.begin(), keys.end());
    return keys;
  }
  [[nodiscard]] std::vector<Eigen::Index> places(const std::vector<Key>& sorted) const {
    std::vector<Eigen::Index> places;
    places.reserve(keys_.size());
    for (const Key& key : keys_) {
      places.push_back(std::lower_bound(sorted.begin(), sorted.end(), key) - sorted.begin());
    }
    return places;
  }

 private:
  std::unordered_map<Key, std::uint32_t, Hash> numbers_;
  std::vector<Key> keys_;
  std::string last_text_;
  std::uint32_t last_ = 0;
  bool has_last_ = false;
};

struct DateHash {
  std::size_t operator()(Date date) const {
    return std::hash<Date::rep>{}(date.time_since_epoch().count());
  }
};

// What the rows hold, a column each, so that each can be let go once its panel is made.
struct LongRows {
  Numbered<Date, DateHash> dates;
  Numbered<std::string> symbols;
  std::vector<std::uint32_t> date_numbers;
  std::vector<std::uint32_t> symbol_numbers;
  std::array<std::vector<double>, kFieldCount> values;
  std::array<Numbered<std::string>, kGroupNames.size()> group_names;
  std::array<std::vector<int>, kGroupNames.size()> groups;
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

bool is_row_of(const CsvRow& row, const LongColumns& columns, Date date, const std::string& symbol,
               const CellFormat& format) {
  const bool is_of_one = columns.symbol == PriceRows::kNoColumn;
  if (row.cells.size() <= std::max(columns.date, is_of_one ? 0 : columns.symbol)) return false;
  try {
    return (is_of_one || row.cells[columns.symbol] == symbol) &&
           read_date_cell(row.cells[columns.date], format) == date;
  } catch (const CellMistake&) {
    return false;  // Noted when it was read.
  }
}

// The line in which a day and symbol stand first. The file is read again for it, so that no line
// number has to be kept for rows that nobody asks about.
std::size_t first_line(std::string_view text, const LongColumns& columns, Date date,
                       const std::string& symbol, const PriceRows& rows) {
  CsvReader reader(text, "", {}, rows.separator());
  while (reader.next() && !is_row_of(reader.row(), columns, date, symbol, rows.cell_format())) {
  }
  return reader.row().line;
}

// An empty cell is no group.
int group_number(Numbered<std::string>& names, std::string_view cell) {
  if (cell.empty()) return kNoGroup;
  return static_cast<int>(*names.number(cell, [&] { return std::optional(std::string(cell)); }));
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

void add_row(LongRows& table, PriceRows& rows, const LongColumns& columns, std::string_view text) {
  const auto date_number = table.dates.number(
      rows.cell(columns.date), [&] { return rows.read(columns.date, read_date_cell); });
  const auto symbol_number = number_of_symbol(table, rows, columns);
  const std::array<double, kFieldCount> values = read_values(rows, columns);
  if (!rows.is_good()) return;
  check_panel_size(rows.file(), table.dates.size(), table.symbols.size());
  const std::uint32_t date = *date_number;
  const std::uint32_t symbol = *symbol_number;

  table.is_given.resize(table.symbols.size());
  std::vector<bool>& days = table.is_given[symbol];
  if (days.size() <= date) days.resize(table.dates.size());
  if (days[date]) {
    const std::size_t line =
        first_line(text, columns, table.dates[date], table.symbols[symbol], rows);
    return rows.note(PriceFileError(rows.place(columns.date),
                                    "is given a second time for \"" + table.symbols[symbol] +
                                        "\" (first in line " + std::to_string(line) + ")",
                                    "keep one row a day and instrument"));
  }
  days[date] = true;

  table.date_numbers.push_back(date);
  table.symbol_numbers.push_back(symbol);
  for (std::size_t field = 0; field < kFieldCount; ++field) {
    if (columns.has(field)) table.values[field].push_back(values[field]);
  }
  for (std::size_t group = 0; group < kGroupNames.size(); ++group) {
    if (columns.groups[group] == PriceRows::kNoColumn) continue;
    table.groups[group].push_back(
        group_number(table.group_names[group], rows.cell(columns.groups[group])));
  }
}

LongRows read_rows(PriceRows& rows, const LongColumns& columns, std::string_view text) {
  LongRows table;
  table.date_numbers.reserve(rows.row_bound());
  table.symbol_numbers.reserve(rows.row_bound());
  for (std::size_t field = 0; field < kFieldCount; ++field) {
    if (columns.has(field)) table.values[field].reserve(rows.row_bound());
  }
  while (rows.next())
    add_row(table, rows, columns, text);
  return table;
}

}  // namespace

MarketData read_long_prices(PriceRows& rows, std::string_view text) {
  const LongColumns columns = find_columns(rows);
  LongRows table = read_rows(rows, columns, text);

  MarketData data;
  data.dates = table.dates.sorted();
  data.symbols = table.symbols.sorted();
  const std::vector<Eigen::Index> days = table.dates.places(data.dates);
  const std::vector<Eigen::Index> instruments = table.symbols.places(data.symbols);

  const std::array<std::optional<Panel>*, kFieldCount> optional_panels = {
      &data.open, &data.high, &data.low, nullptr, &data.volume, &data.vwap, &data.cap};
  for (std::size_t field = 0; field < kFieldCount; ++field) {
    if (!columns.has(field)) continue;
    Panel& panel = field == kClose ? data.close : optional_panels[field]->emplace();
    panel = empty_panel(data.dates.size(), data.symbols.size());
    const std::vector<double> values = std::exchange(table.values[field], {});
    for (std::size_t row = 0; row < values.size(); ++row) {
      panel(days[table.date_numbers[row]], instruments[table.symbol_numbers[row]]) = values[row];
    }
  }
  for (std::size_t group = 0; group < kGroupNames.size(); ++group) {
    const std::vector<int> numbers = std::exchange(table.groups[group], {});
    if (numbers.empty()) continue;
    GroupPanel panel = GroupPanel::Constant(data.close.rows(), data.close.cols(), kNoGroup);
    for (std::size_t row = 0; row < numbers.size(); ++row)
      panel(days[table.date_numbers[row]], instruments[table.symbol_numbers[row]]) = numbers[row];
    data.groups.emplace(kGroupNames[group], std::move(panel));
  }
  return data;
}

}  // namespace varnholt::embedded
