#include "apps/genetic_search/price_options.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "hosts/embedded/market/own_columns.hpp"

namespace varnholt::app {
namespace {

constexpr auto kFields = std::to_array<std::string_view>(
    {"date", "symbol", "open", "high", "low", "close", "volume", "vwap", "cap", "sector",
     "industry", "subindustry", "country"});
constexpr std::string_view kSkip = "skip";

// Whether a column can be given to this: a field, or a column of the owner's own.
bool is_field(std::string_view field) {
  for (const std::string_view own : {embedded::kOwnFeature, embedded::kOwnGroup}) {
    if (field.starts_with(own)) return embedded::is_own_name(field.substr(own.size()));
  }
  return field == kSkip || std::find(kFields.begin(), kFields.end(), field) != kFields.end();
}

// "close=LAST,date=Day"
void read_columns(const std::string& text, embedded::PriceFormat& format) {
  std::string_view rest = text;
  while (true) {
    const std::string_view pair = rest.substr(0, rest.find(','));
    const std::size_t sign = pair.find('=');
    const std::string_view field = pair.substr(0, sign);
    if (sign == std::string_view::npos || sign + 1 == pair.size() || !is_field(field)) {
      throw UsageError(
          fmt::format("--columns wants FIELD=NAME, with commas between, and as a field one of {}, "
                      "feature:OWN or group:OWN with a name of small letters, digits and "
                      "underscores, or skip; not \"{}\"",
                      fmt::join(kFields, ", "), on_one_line(pair)));
    }
    const std::string name(pair.substr(sign + 1));
    // More than one column may be left out.
    format.columns[field == kSkip ? std::string(embedded::kLeftOut) + name : std::string(field)] =
        name;
    if (pair.size() == rest.size()) return;
    rest.remove_prefix(pair.size() + 1);
  }
}

void read_date_format(const std::string& text, embedded::PriceFormat& format) {
  try {
    (void)embedded::DateFormat(text);
  } catch (const std::invalid_argument& error) {
    throw UsageError(fmt::format("--date-format: {}", on_one_line(error.what())));
  }
  format.date_format = text;
}

void read_decimal(const std::string& text, embedded::PriceFormat& format) {
  if (text != "point" && text != "comma") {
    throw UsageError(fmt::format("--decimal wants point or comma, not \"{}\"", on_one_line(text)));
  }
  format.decimal = text == "comma" ? ',' : '.';
}

}  // namespace

void add_needed_prices(Options& options, embedded::PriceSource& prices) {
  options.prices("The prices, as CSV: a file or a folder; again for more files. Needed.",
                 Options::Following::IsArgument, prices);
}

void add_run_prices(Options& options, std::optional<embedded::PriceSource>& prices) {
  options.prices(
      "The prices of the run, named as they were then, with --prices before each file. Default: "
      "where they were when the run began.",
      Options::Following::IsArgument, prices);
}

void add_price_options(Options& options, embedded::PriceFormat& format) {
  options.read(
      "--columns", "FIELD=NAME,...",
      fmt::format("Which columns of the price file hold {}; feature:OWN=NAME and group:OWN=NAME "
                  "make features and groups of others, skip=NAME leaves one out. Default: by "
                  "their names.",
                  fmt::join(kFields, ", ")),
      [&format](const std::string& text) { read_columns(text, format); });
  options.read("--date-format", "FORM",
               "How days are written, with yyyy, mm or mon, and dd: dd/mm/yyyy. Default: "
               "yyyy-mm-dd, or what cannot be read in two ways.",
               [&format](const std::string& text) { read_date_format(text, format); });
  options.read("--decimal", "SIGN",
               "The decimal sign of the price file, point or comma. Default: as its numbers tell.",
               [&format](const std::string& text) { read_decimal(text, format); });
  options.text("--symbol", "NAME",
               "The instrument of a price file that does not say it. Default: the file's name.",
               format.symbol);
}

}  // namespace varnholt::app
