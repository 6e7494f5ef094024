#include "apps/genetic_search/option_values.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

#include "apps/genetic_search/text_layout.hpp"
#include "apps/genetic_search/usage_error.hpp"

namespace varnholt::app {
namespace {

[[noreturn]] void refuse(const std::string& option, const std::string& text,
                         const std::string& wanted) {
  throw UsageError(
      fmt::format("{} wants {}, not \"{}\"", option, wanted, cut_to_width(on_one_line(text), 40)));
}

// A leading "+" is common on a command line, but nothing that from_chars reads.
std::string_view without_plus(std::string_view text) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  return text;
}

// Whether the whole text is one number, which `value` holds then.
template <typename Number>
bool reads_as(std::string_view text, Number& value) {
  text = without_plus(text);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size();
}

std::string in_words(WholeRange range) {
  if (range.most == std::numeric_limits<std::int64_t>::max()) {
    return fmt::format("a whole number from {}", range.least);
  }
  return fmt::format("a whole number from {} to {}", range.least, range.most);
}

std::string in_words(RealRange range) {
  const bool from = std::isfinite(range.least);
  const bool to = std::isfinite(range.most);
  if (!from && !to) return "a number";
  if (!from) return fmt::format("a number up to {}", range.most);
  const std::string start =
      fmt::format("a number {} {}", range.above_least ? "above" : "from", range.least);
  return to ? fmt::format("{} to {}", start, range.most) : start;
}

// Neither an option nor the negative number of one.
bool is_formula_with_minus(const std::string& argument) {
  if (argument.size() < 3 || argument[0] != '-' || argument[1] == '-') return false;
  const bool begins_name =
      (argument[1] >= 'a' && argument[1] <= 'z') || (argument[1] >= 'A' && argument[1] <= 'Z');
  return begins_name || argument.find_first_of(" (*") != std::string::npos;
}

}  // namespace

std::int64_t whole_number(const std::string& option, const std::string& text, WholeRange range) {
  std::int64_t value = 0;
  if (!reads_as(text, value) || value < range.least || value > range.most) {
    refuse(option, text, in_words(range));
  }
  return value;
}

double real_number(const std::string& option, const std::string& text, RealRange range) {
  double value = 0.0;
  if (!reads_as(text, value) || !std::isfinite(value) || value < range.least ||
      value > range.most || (range.above_least && value == range.least)) {
    refuse(option, text, in_words(range));
  }
  return value;
}

std::string plain_number(const std::string& option, const std::string& text) {
  double ignored = 0.0;
  if (!reads_as(text, ignored)) refuse(option, text, "a number in decimal digits");
  return text;
}

genetic::Value rate_list(const std::string& option, const std::string& text) {
  genetic::Mapping rates;
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    const std::string rate = text.substr(start, end - start);
    const std::size_t equals = rate.find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == rate.size()) {
      throw UsageError(fmt::format(
          "{} wants rates such as crossover=0.4,hoist_mutation=0.1, not \"{}\"", option, rate));
    }
    rates.set(rate.substr(0, equals), plain_number(option, rate.substr(equals + 1)));
    start = end + 1;
  }
  return rates;
}

void put_blank_before_minus(std::vector<std::string>& arguments) {
  for (std::string& argument : arguments) {
    if (is_formula_with_minus(argument)) argument.insert(0, 1, ' ');
  }
}

}  // namespace varnholt::app
