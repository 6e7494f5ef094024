#include "hosts/embedded/market/price_cells.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <system_error>

namespace varnholt::embedded {
namespace {

constexpr const char* kNumberRemedy =
    "write a decimal number such as 101.25, or leave the cell empty where the value is not known";

// The number that at most 15 digits with or without a point spell; nothing for any other text. Both
// parts of the quotient are exact, so that it is rounded once, as it is by from_chars.
std::optional<double> short_number_of(std::string_view text) {
  constexpr std::size_t kMostDigits = 15;
  constexpr std::array<double, kMostDigits + 1> kPowers = {
      1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  if (text.empty() || text.size() > kMostDigits + 1) return std::nullopt;
  std::uint64_t digits = 0;
  std::size_t count = 0;
  std::size_t decimals = 0;
  bool has_point = false;
  for (const char c : text) {
    if (c >= '0' && c <= '9') {
      digits = 10 * digits + static_cast<std::uint64_t>(c - '0');
      ++count;
      if (has_point) ++decimals;
    } else if (c == '.' && !has_point) {
      has_point = true;
    } else {
      return std::nullopt;
    }
  }
  if (count == 0 || count > kMostDigits) return std::nullopt;
  return static_cast<double>(digits) / kPowers[decimals];
}

// The number that the text spells with a decimal point.
double number_of(std::string_view text) {
  if (const auto number = short_number_of(text)) return *number;
  double number = 0.0;
  // "+1" is a number to people, and none to from_chars.
  if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
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

// The number in a cell that is not missing.
double read_number(std::string_view cell, const CellFormat& format) {
  const std::size_t comma = cell.find(',');
  if (comma == std::string_view::npos) {
    if (format.decimal == '.' || cell.find('.') == std::string_view::npos) return number_of(cell);
    throw CellMistake{"has a decimal point where the file has decimal commas",
                      "write the numbers without separators of thousands"};
  }
  const bool is_decimal = format.decimal == ',' &&
                          cell.find_first_of(",.", comma + 1) == std::string_view::npos &&
                          cell.find('.') == std::string_view::npos;
  if (!is_decimal) {
    throw CellMistake{"is not a number, or has separators of thousands",
                      "write a decimal number such as 1234.5"};
  }
  std::string text(cell);
  text[comma] = '.';
  return number_of(text);
}

// "00:00", "00:00:00", "00:00:00.000", each with "Z", "+01:00" or "-0500" behind it or not.
bool is_midnight(std::string_view time) {
  if (!time.starts_with("00:00")) return false;
  time.remove_prefix(5);
  if (time.starts_with(":00")) time.remove_prefix(3);
  if (time.starts_with(".")) {
    time.remove_prefix(1);
    while (time.starts_with("0"))
      time.remove_prefix(1);
  }
  while (time.starts_with(" "))
    time.remove_prefix(1);
  if (time.empty() || time == "Z" || time == "UTC") return true;
  const bool is_offset = time.front() == '+' || time.front() == '-';
  return is_offset && time.size() <= 6 &&
         time.find_first_not_of("0123456789:", 1) == std::string_view::npos;
}

// A day that is written with a time of midnight is that day: many programs write it so.
std::string_view without_midnight(std::string_view cell) {
  constexpr std::size_t kDateSize = 10;
  if (cell.size() <= kDateSize + 1 || (cell[kDateSize] != ' ' && cell[kDateSize] != 'T')) {
    return cell;
  }
  if (is_midnight(cell.substr(kDateSize + 1))) return cell.substr(0, kDateSize);
  throw CellMistake{"is a moment within a day; intraday prices are not read",
                    "give one row a day, with the day as yyyy-mm-dd"};
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// "01/02/2003", "1.2.2003": a day and a month, and nobody knows which is which.
bool is_of_uncertain_order(std::string_view cell) {
  const std::size_t first = cell.find_first_of("/.-");
  const std::size_t second = cell.find_first_of("/.-", first + 1);
  if (first == std::string_view::npos || second == std::string_view::npos) return false;
  const auto digits = [](std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), is_digit);
  };
  return first <= 2 && second - first - 1 <= 2 && digits(cell.substr(0, first)) &&
         digits(cell.substr(first + 1, second - first - 1)) && digits(cell.substr(second + 1));
}

}  // namespace

Date read_date_cell(std::string_view cell, const CellFormat& format) {
  if (format.dates) {
    const std::optional<Date> date = format.dates->parse(cell);
    if (date) return *date;
    throw CellMistake{"is not a day of the form that --date-format gives",
                      "correct the cell, or the form"};
  }
  const std::string_view day = without_midnight(cell);
  std::optional<Date> date = parse_date(day);
  constexpr std::size_t kCompactSize = 8;
  if (!date && day.size() == kCompactSize && std::all_of(day.begin(), day.end(), is_digit)) {
    date = parse_date(std::string(day.substr(0, 4))
                          .append("-")
                          .append(day.substr(4, 2))
                          .append("-")
                          .append(day.substr(6)));
  }
  constexpr std::size_t kDateSize = 10;
  if (!date && day.size() == kDateSize && day[4] == day[7] && (day[4] == '/' || day[4] == '.')) {
    std::string dashes(day);
    dashes[4] = dashes[7] = '-';
    date = parse_date(dashes);
  }
  if (date) return *date;
  if (is_of_uncertain_order(day)) {
    throw CellMistake{"is a day whose order is not certain",
                      "say what it means with --date-format dd/mm/yyyy, or mm/dd/yyyy, with the "
                      "signs that stand in the file"};
  }
  throw CellMistake{"is not a calendar date",
                    "write an existing day as yyyy-mm-dd, for example 2013-03-01, or say how it is "
                    "written with --date-format"};
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

bool is_missing(std::string_view cell) {
  if (cell.empty()) return true;
  if (is_digit(cell.front())) return false;
  std::string word(cell.substr(0, 8));
  std::transform(word.begin(), word.end(), word.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  constexpr auto kWords =
      std::to_array<std::string_view>({"nan", "na", "n/a", "#n/a", "null", "none", "-", "<na>"});
  return std::find(kWords.begin(), kWords.end(), word) != kWords.end();
}

double read_price_cell(std::string_view cell, const CellFormat& format) {
  if (is_missing(cell)) return std::numeric_limits<double>::quiet_NaN();
  const double price = read_number(cell, format);
  if (price <= 0.0) {
    throw CellMistake{"is not a price above zero",
                      "correct the price, or leave the cell empty where it is not known"};
  }
  return price;
}

double read_volume_cell(std::string_view cell, const CellFormat& format) {
  if (is_missing(cell)) return std::numeric_limits<double>::quiet_NaN();
  const double volume = read_number(cell, format);
  if (volume < 0.0) {
    throw CellMistake{"is a negative volume",
                      "correct it, or leave the cell empty where it is not known"};
  }
  return volume;
}

double read_own_number_cell(std::string_view cell, const CellFormat& format) {
  if (is_missing(cell)) return std::numeric_limits<double>::quiet_NaN();
  try {
    return read_number(cell, format);
  } catch (CellMistake& mistake) {
    mistake.remedy +=
        "; where the column holds names, say so with --columns group:NAME=HEADER, and where it is "
        "not wanted, skip=HEADER";
    throw;
  }
}

}  // namespace varnholt::embedded
