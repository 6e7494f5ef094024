#include "hosts/embedded/market/price_format.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <utility>

namespace varnholt::embedded {
namespace {

constexpr std::string_view kYear = "yyyy";
constexpr std::string_view kMonth = "mm";
constexpr std::string_view kMonthName = "mon";
constexpr std::string_view kDay = "dd";

constexpr auto kMonthNames = std::to_array<std::string_view>(
    {"jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"});

struct UsualName {
  std::string_view key;
  std::string_view field;
};
// What exports of vendors, brokers and libraries call their columns.
constexpr auto kUsualNames = std::to_array<UsualName>({
    {"date", "date"},
    {"day", "date"},
    {"datetime", "date"},
    {"timestamp", "date"},
    {"trade_date", "date"},
    {"trading_day", "date"},
    {"dtyyyymmdd", "date"},
    {"symbol", "symbol"},
    {"ticker", "symbol"},
    {"sym", "symbol"},
    {"instrument", "symbol"},
    {"ric", "symbol"},
    {"isin", "symbol"},
    {"permno", "symbol"},
    {"open", "open"},
    {"open_price", "open"},
    {"px_open", "open"},
    {"high", "high"},
    {"high_price", "high"},
    {"px_high", "high"},
    {"low", "low"},
    {"low_price", "low"},
    {"px_low", "low"},
    {"close", "close"},
    {"close_price", "close"},
    {"px_last", "close"},
    {"last", "close"},
    {"close/last", "close"},
    {"adj_close", "adj_close"},
    {"adjclose", "adj_close"},
    {"adjusted_close", "adj_close"},
    {"close_adj", "adj_close"},
    {"volume", "volume"},
    {"vol", "volume"},
    {"px_volume", "volume"},
    {"vwap", "vwap"},
    {"cap", "cap"},
    {"market_cap", "cap"},
    {"sector", "sector"},
    {"industry", "industry"},
    {"subindustry", "subindustry"},
    {"country", "country"},
});

constexpr auto kBesidePrices =
    std::to_array<std::string_view>({"dividends", "stock_splits", "capital_gains", "per", "time",
                                     "openint", "open_interest", "unnamed:_0", "index"});

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// Takes up to `most` digits off the text; nothing where there are fewer than `least`.
std::optional<int> take_number(std::string_view& text, std::size_t least, std::size_t most) {
  int number = 0;
  std::size_t count = 0;
  while (count < most && count < text.size() && is_digit(text[count]))
    number = 10 * number + (text[count++] - '0');
  if (count < least) return std::nullopt;
  text.remove_prefix(count);
  return number;
}

std::optional<int> take_month_name(std::string_view& text) {
  std::string name(text.substr(0, kMonthName.size()));
  std::transform(name.begin(), name.end(), name.begin(), lower);
  const auto found = std::find(kMonthNames.begin(), kMonthNames.end(), name);
  if (found == kMonthNames.end()) return std::nullopt;
  text.remove_prefix(kMonthName.size());
  return static_cast<int>(found - kMonthNames.begin()) + 1;
}

}  // namespace

DateFormat::DateFormat(std::string pattern) : pattern_(std::move(pattern)) {
  const auto has = [this](std::string_view part) {
    return pattern_.find(part) != std::string::npos;
  };
  if (has(kYear) && has(kDay) && has(kMonth) != has(kMonthName)) return;
  throw std::invalid_argument("\"" + pattern_ +
                              "\" is no form of a day; write it with yyyy, mm or mon, and dd, for "
                              "example dd/mm/yyyy");
}

std::optional<Date> DateFormat::parse(std::string_view text) const {
  std::string_view pattern = pattern_;
  std::optional<int> year;
  std::optional<int> month;
  std::optional<int> day;
  // A number of one digit would not tell where the next begins that stands right behind it.
  const auto least = [&pattern](std::size_t size) {
    return pattern.size() > size && std::string_view("ymd").find(pattern[size]) != std::string::npos
               ? 2U
               : 1U;
  };
  while (!pattern.empty()) {
    if (pattern.starts_with(kYear)) {
      year = take_number(text, kYear.size(), kYear.size());
      if (!year) return std::nullopt;
      pattern.remove_prefix(kYear.size());
    } else if (pattern.starts_with(kMonthName)) {
      month = take_month_name(text);
      if (!month) return std::nullopt;
      pattern.remove_prefix(kMonthName.size());
    } else if (pattern.starts_with(kMonth)) {
      month = take_number(text, least(kMonth.size()), kMonth.size());
      if (!month) return std::nullopt;
      pattern.remove_prefix(kMonth.size());
    } else if (pattern.starts_with(kDay)) {
      day = take_number(text, least(kDay.size()), kDay.size());
      if (!day) return std::nullopt;
      pattern.remove_prefix(kDay.size());
    } else {
      if (text.empty() || text.front() != pattern.front()) return std::nullopt;
      text.remove_prefix(1);
      pattern.remove_prefix(1);
    }
  }
  if (!text.empty()) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year{*year},
                                         std::chrono::month{static_cast<unsigned>(*month)},
                                         std::chrono::day{static_cast<unsigned>(*day)}};
  constexpr int kFirstYear = 1000;
  if (!date.ok() || *year < kFirstYear) return std::nullopt;
  return Date{date};
}

std::string column_key(std::string_view name) {
  while (!name.empty() && std::string_view("<[ '").find(name.front()) != std::string::npos)
    name.remove_prefix(1);
  while (!name.empty() && std::string_view(">] '").find(name.back()) != std::string::npos)
    name.remove_suffix(1);
  std::string key;
  for (const char c : name)
    key += c == ' ' || c == '.' || c == '-' ? '_' : lower(c);
  return key;
}

std::string_view usual_field(std::string_view column_key) {
  const auto found = std::find_if(kUsualNames.begin(), kUsualNames.end(),
                                  [&](const UsualName& row) { return row.key == column_key; });
  return found == kUsualNames.end() ? std::string_view() : found->field;
}

bool is_beside_prices(std::string_view column_key) {
  return std::find(kBesidePrices.begin(), kBesidePrices.end(), column_key) != kBesidePrices.end();
}

char separator_of(std::string_view text) {
  // Of equally frequent ones the later: a comma may stand inside a number.
  constexpr std::string_view kSeparators = ",;\t";
  std::array<std::size_t, kSeparators.size()> counts{};
  bool is_quoted = false;
  const std::size_t begin = std::min(text.find_first_not_of("\r\n"), text.size());
  for (const char c : text.substr(begin)) {
    if (c == '"') is_quoted = !is_quoted;
    if (is_quoted) continue;
    if (c == '\n' || c == '\r') break;
    const std::size_t place = kSeparators.find(c);
    if (place != std::string_view::npos) ++counts[place];
  }
  std::size_t most = 0;
  for (std::size_t i = 1; i < counts.size(); ++i) {
    if (counts[i] > 0 && counts[i] >= counts[most]) most = i;
  }
  return kSeparators[most];
}

}  // namespace varnholt::embedded
