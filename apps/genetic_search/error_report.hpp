// Errors as the user sees them.
#pragma once

#include <exception>
#include <string>

namespace varnholt::app {

// Whether the error says that the input is wrong: the command line, a setting, the price file, or
// an invalid store. The same kinds of error can come from a search that has begun; then the input
// is not to blame.
[[nodiscard]] bool is_about_input(const std::exception& error);

// The error's text on one line, and after it those of the errors that led to it.
[[nodiscard]] std::string error_text(const std::exception& error);

}  // namespace varnholt::app
