// The host's log.
#pragma once

#include <exception>
#include <initializer_list>
#include <string_view>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Called in parent and child. A message is a format with one `%s` for each value, which the host
// fills in when it writes the message: a log that groups messages by their format keeps doing so.
// A host that keeps no log overrides nothing.
class Logger {
 public:
  virtual ~Logger() = default;

  virtual void error(std::string_view /*format*/, std::initializer_list<Value> /*values*/) {}
  virtual void warning(std::string_view /*format*/, std::initializer_list<Value> /*values*/) {}
  // A warning with the error that led to it, traceback included where the host has one.
  virtual void warning_with_error(std::string_view /*text*/, const std::exception_ptr& /*error*/) {}
};

}  // namespace varnholt::genetic
