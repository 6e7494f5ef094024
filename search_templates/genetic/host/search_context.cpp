#include "search_templates/genetic/host/search_context.hpp"

#include <string>

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

std::shared_ptr<AttemptTracker> SearchContext::tracker() {
  throw_missing(context_names::kTracker.view());
}

bool SearchContext::submission_cancelled() {
  throw_missing(context_names::kSubmissionCancelled.view());
}

}  // namespace varnholt::genetic
