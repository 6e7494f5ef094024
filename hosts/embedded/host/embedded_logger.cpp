#include "hosts/embedded/host/embedded_logger.hpp"

#include <string>

#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Value;

namespace {

// Fills each "%s" of the format with the next value's text.
std::string formatted(std::string_view format, std::initializer_list<Value> values) {
  std::string text;
  const auto* value = values.begin();
  while (!format.empty()) {
    const std::size_t hole = format.find("%s");
    text += format.substr(0, hole);
    if (hole == std::string_view::npos) break;
    if (value != values.end()) text += genetic::str(*value++);
    format.remove_prefix(hole + 2);
  }
  return text;
}

std::string error_text(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "an error without text";
  }
}

}  // namespace

void EmbeddedLogger::error(std::string_view format, std::initializer_list<Value> values) {
  sink_(LogLevel::Error, formatted(format, values));
}

void EmbeddedLogger::warning(std::string_view format, std::initializer_list<Value> values) {
  sink_(LogLevel::Warning, formatted(format, values));
}

void EmbeddedLogger::warning_with_error(std::string_view text, const std::exception_ptr& error) {
  sink_(LogLevel::Warning, std::string(text) + ": " + error_text(error));
}

}  // namespace varnholt::embedded
