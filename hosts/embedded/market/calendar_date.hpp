// Calendar days as the price files write them.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace varnholt::embedded {

// A day of the Gregorian calendar. Ordered, and counted in days since 1970-01-01.
using Date = std::chrono::sys_days;

// The day that an ISO 8601 text "yyyy-mm-dd" names: exactly ten characters, years 1000 to 9999.
// Nothing for another form, and nothing for a day that the calendar does not have (2011-02-29).
[[nodiscard]] std::optional<Date> parse_date(std::string_view text);

// The day as "yyyy-mm-dd".
[[nodiscard]] std::string date_text(Date date);

}  // namespace varnholt::embedded
