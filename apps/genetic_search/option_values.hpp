// Reads the values of options.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::app {

// Which numbers an option takes.
struct WholeRange {
  std::int64_t least;
  std::int64_t most;
};

struct RealRange {
  double least;
  double most;
  bool above_least = false;  // Whether `least` itself is refused.
};

// The value of `option` that `text` writes: decimal digits, with a sign where the range has room
// for one. Throws UsageError that names option, text and range.
[[nodiscard]] std::int64_t whole_number(const std::string& option, const std::string& text,
                                        WholeRange range);

// As above, for a decimal number such as "0.3", "-1" or "1e-3".
[[nodiscard]] double real_number(const std::string& option, const std::string& text,
                                 RealRange range);

// The text itself, where it is a decimal number in ASCII: the template's own conversion takes
// digits of other scripts as well, and it is the one that judges the value.
[[nodiscard]] std::string plain_number(const std::string& option, const std::string& text);

// Rates written as "crossover=0.4,hoist_mutation=0", as a mapping of name to the rate's text. Which
// names and rates there may be is decided by the template. Throws UsageError for another form, and
// for a rate that plain_number refuses.
[[nodiscard]] genetic::Value rate_list(const std::string& option, const std::string& text);

// Puts a blank before each formula that begins with a minus, "-1 * close", "-rank(close)" or
// "-returns", so that it is no option to the parser. Options and negative numbers stay.
void put_blank_before_minus(std::vector<std::string>& arguments);

}  // namespace varnholt::app
