#include "search_templates/genetic/host/operation_table.hpp"

#include <string>

#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {
namespace {

[[noreturn]] void throw_unknown(std::string_view name) {
  throw AttributeError("there is no operation '" + std::string(name) +
                       "' to replace: give it to the table first");
}

}  // namespace

std::optional<Value> OperationTable::attribute(std::string_view name) {
  std::optional<Value> replacement = replacements_.find(name);
  return replacement ? replacement : operations_.find(name);
}

Value OperationTable::required_attribute(std::string_view name) {
  std::optional<Value> found = attribute(name);
  if (!found) throw_unknown(name);
  return *std::move(found);
}

std::optional<Value> OperationTable::instance_value(std::string_view name) {
  return replacements_.find(name);
}

void OperationTable::set_attribute(std::string_view name, const Value& value) {
  if (!operations_.contains(name)) throw_unknown(name);
  replacements_.set(name, value);
}

void OperationTable::delete_attribute(std::string_view name) {
  if (!replacements_.erase(name)) {
    throw AttributeError("operation '" + std::string(name) + "' has not been replaced");
  }
}

}  // namespace varnholt::genetic
