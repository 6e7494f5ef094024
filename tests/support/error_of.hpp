// An expected error as text, so that a test compares kind and message in one line.
#pragma once

#include <exception>
#include <string>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic::test {

// "TypeError: message" of the error that leaves `action`, "no error" when none does.
template <typename Action>
[[nodiscard]] std::string error_of(const Action& action) {
  try {
    static_cast<void>(action());
  } catch (const Error& error) {
    return error.type_name() + ": " + error.text();
  } catch (const std::exception& error) {
    return std::string("std::exception: ") + error.what();
  }
  return "no error";
}

}  // namespace varnholt::genetic::test
