#include "hosts/embedded/market/price_cells.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace varnholt::embedded {
namespace {

constexpr const char* kNumberRemedy =
    "write a decimal number such as 101.25, or leave the cell empty where the value is not known";

// The number in a cell that is not empty.
double read_number(std::string_view cell) {
  double number = 0.0;
  const char* const end = cell.data() + cell.size();
  const auto [stop, error] = std::from_chars(cell.data(), end, number);
  if (error == std::errc::result_out_of_range) {
    throw CellMistake{"is beyond the range of numbers", kNumberRemedy};
  }
  if (error != std::errc() || stop != end) {
    throw CellMistake{"is not a number", kNumberRemedy};
  }
  if (!std::isfinite(number)) {
    throw CellMistake{"is not a finite number", kNumberRemedy};
  }
  return number;
}

}  // namespace

// A day that is written with a time of midnight is that day: many programs write it so.
std::string_view without_midnight(std::string_view cell) {
  constexpr std::size_t kDateSize = 10;
  if (cell.size() <= kDateSize + 1 || (cell[kDateSize] != ' ' && cell[kDateSize] != 'T')) {
    return cell;
  }
  const std::string_view day = cell.substr(0, kDateSize);
  std::string_view time = cell.substr(kDateSize + 1);
  if (!parse_date(day)) return cell;
  for (const std::string_view midnight : {"00:00", "00:00:00", "00:00:00Z", "00:00:00+00:00"}) {
    if (time == midnight) return day;
  }
  throw CellMistake{"is a moment within a day; intraday prices are not read",
                    "give one row a day, with the day as yyyy-mm-dd"};
}

Date read_date_cell(std::string_view cell) {
  const std::optional<Date> date = parse_date(without_midnight(cell));
  if (!date) {
    throw CellMistake{"is not a calendar date",
                      "write an existing day as yyyy-mm-dd, for example 2013-03-01"};
  }
  return *date;
}

std::string read_symbol_cell(std::string_view cell) {
  if (cell.empty()) {
    throw CellMistake{"names no instrument",
                      "give the symbol of the instrument that this row belongs to"};
  }
  const bool printable =
      std::all_of(cell.begin(), cell.end(), [](char c) { return c >= 0x20 && c < 0x7f; });
  if (!printable) {
    throw CellMistake{"is not a symbol of printable ASCII characters",
                      "use a ticker made of letters, digits and signs"};
  }
  return std::string(cell);
}

double read_price_cell(std::string_view cell) {
  if (cell.empty()) return std::numeric_limits<double>::quiet_NaN();
  const double price = read_number(cell);
  if (price <= 0.0) {
    throw CellMistake{"is not a price above zero",
                      "correct the price, or leave the cell empty where it is not known"};
  }
  return price;
}

double read_volume_cell(std::string_view cell) {
  if (cell.empty()) return std::numeric_limits<double>::quiet_NaN();
  const double volume = read_number(cell);
  if (volume < 0.0) {
    throw CellMistake{"is a negative volume",
                      "correct it, or leave the cell empty where it is not known"};
  }
  return volume;
}

}  // namespace varnholt::embedded
