#include "search_templates/genetic/host/search_context.hpp"

#include <string>

#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {
namespace {

[[noreturn]] void throw_missing(std::string_view name) {
  throw AttributeError("'SearchContext' object has no attribute '" + std::string(name) + "'");
}

}  // namespace

std::optional<Value> SearchContext::opaque_attribute(std::string_view name) {
  return attribute(name);
}

Value SearchContext::required_attribute(std::string_view name) {
  std::optional<Value> found = opaque_attribute(name);
  if (!found) throw_missing(name);
  return *std::move(found);
}

Callable SearchContext::required_safe_record() {
  Callable recorder = safe_record();
  if (!recorder) throw_missing("_safe_record");
  return recorder;
}

Callable SearchContext::find_submission_cancelled() {
  return make_callable([this](std::span<const Value> /*positional*/, const Mapping& /*keywords*/) {
    return Value(submission_cancelled());
  });
}

Value SearchContext::caught_object(const std::exception_ptr& error) {
  return error_object(error);
}

}  // namespace varnholt::genetic
