// The search's log messages, filled in and handed to whoever asked for them.
#pragma once

#include <exception>
#include <functional>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "hosts/embedded/host/search_events.hpp"
#include "search_templates/genetic/host/logger.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class EmbeddedLogger : public genetic::Logger {
 public:
  using Sink = std::function<void(LogLevel, std::string_view)>;

  explicit EmbeddedLogger(Sink sink) : sink_(std::move(sink)) {}

  void error(std::string_view format, std::initializer_list<genetic::Value> values) override;
  void warning(std::string_view format, std::initializer_list<genetic::Value> values) override;
  void warning_with_error(std::string_view text, const std::exception_ptr& error) override;

 private:
  Sink sink_;
};

}  // namespace varnholt::embedded
