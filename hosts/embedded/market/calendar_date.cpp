#include "hosts/embedded/market/calendar_date.hpp"

namespace varnholt::embedded {
namespace {

// The number that `digits` spells, or nothing where one of them is no decimal digit.
std::optional<int> parse_digits(std::string_view digits) {
  int number = 0;
  for (const char digit : digits) {
    if (digit < '0' || digit > '9') return std::nullopt;
    number = number * 10 + (digit - '0');
  }
  return number;
}

std::string padded(unsigned number, std::size_t width) {
  std::string text = std::to_string(number);
  if (text.size() < width) text.insert(0, width - text.size(), '0');
  return text;
}

}  // namespace

std::optional<Date> parse_date(std::string_view text) {
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
  const auto year = parse_digits(text.substr(0, 4));
  const auto month = parse_digits(text.substr(5, 2));
  const auto day = parse_digits(text.substr(8, 2));
  if (!year || !month || !day || *year < 1000) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year{*year},
                                         std::chrono::month{static_cast<unsigned>(*month)},
                                         std::chrono::day{static_cast<unsigned>(*day)}};
  if (!date.ok()) return std::nullopt;
  return Date{date};
}

std::string date_text(Date date) {
  const std::chrono::year_month_day parts{date};
  return padded(static_cast<unsigned>(static_cast<int>(parts.year())), 4) + "-" +
         padded(static_cast<unsigned>(parts.month()), 2) + "-" +
         padded(static_cast<unsigned>(parts.day()), 2);
}

}  // namespace varnholt::embedded
