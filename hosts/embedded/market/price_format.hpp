// How a price file is written: what its owner says of it, and what it shows itself.
//
// Only what cannot be read in two ways is read off the file. The rest is asked for, with the option
// that settles it: a guess would be right for years and wrong in the month that matters.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "hosts/embedded/market/calendar_date.hpp"

namespace varnholt::embedded {

// In the columns of a PriceFormat, what stands before the name of an own column, and before the
// header of one that is left out.
inline constexpr std::string_view kOwnFeature = "feature:";
inline constexpr std::string_view kOwnGroup = "group:";
inline constexpr std::string_view kLeftOut = "skip:";

// What the owner says. Empty is what the file shows.
struct PriceFormat {
  // By field ("date", "symbol", "close", ...), or by one of the words above with a name behind it,
  // the name of its column in the header.
  std::map<std::string, std::string, std::less<>> columns = {};
  std::string date_format = {};  // See DateFormat.
  char decimal = '\0';           // '.' or ','; none is what the file shows.
  std::string symbol = {};       // Of the one instrument of a file without a column for it.

  friend bool operator==(const PriceFormat&, const PriceFormat&) = default;
};

// A pattern of "yyyy", "mm" (a number) or "mon" (the English name's first three letters), "dd", and
// what stands between them: "dd/mm/yyyy", "yyyymmdd", "dd-mon-yyyy". A day or month of one digit is
// read where something stands behind it.
class DateFormat {
 public:
  // Throws std::invalid_argument, with the remedy, for a pattern without one of the three.
  explicit DateFormat(std::string pattern);

  [[nodiscard]] std::optional<Date> parse(std::string_view text) const;

 private:
  std::string pattern_;
};

// The name of a column as fields are found by: in lower case, without what is put around it, with
// an underscore for each blank, dot and hyphen inside. "<TICKER>" is "ticker", "Adj Close" is
// "adj_close".
[[nodiscard]] std::string column_key(std::string_view name);

// The field that columns of this name usually hold: "ticker" is "symbol". Empty for any other.
[[nodiscard]] std::string_view usual_field(std::string_view column_key);

// Whether columns of this name stand beside prices and are no part of them: dividends, splits, open
// interest, the length of a bar. They are left out without a word.
[[nodiscard]] bool is_beside_prices(std::string_view column_key);

// The character that separates the cells of a text: of comma, semicolon and tab the most frequent
// in its first line.
[[nodiscard]] char separator_of(std::string_view text);

}  // namespace varnholt::embedded
