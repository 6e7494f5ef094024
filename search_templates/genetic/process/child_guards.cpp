#include "search_templates/genetic/process/child_guards.hpp"

#include <exception>
#include <span>
#include <utility>

#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::genetic {
namespace {

constexpr const char* kForbidden = "child process cannot call parent-only operation ";

std::string cannot_disable(std::string_view operation_name) {
  return "cannot disable parent-only operation " + std::string(operation_name) +
         " in child process";
}

// What is replaced. A value that is not the object's own is read once more.
ReplacedOperation standing_operation(ReplaceableObject& object, std::string_view operation_name) {
  ReplacedOperation standing;
  standing.operation_name = operation_name;
  if (std::optional<Value> own = object.instance_value(operation_name)) {
    standing.had_instance_value = true;
    standing.original = *std::move(own);
    return standing;
  }
  standing.original = object.required_attribute(operation_name);
  return standing;
}

}  // namespace

std::optional<ReplacedOperation> replace_child_parent_operation(ReplaceableObject& object,
                                                                std::string_view operation_name,
                                                                const Value& replacement) {
  if (!object.attribute(operation_name)) return std::nullopt;
  ReplacedOperation standing = standing_operation(object, operation_name);
  catching(
      {ErrorKind::kAttributeError, ErrorKind::kTypeError},
      [&] { object.set_attribute(operation_name, replacement); },
      [&](const Error&) { std::throw_with_nested(RuntimeError(cannot_disable(operation_name))); });
  return standing;
}

void restore_child_parent_operation(ReplaceableObject& object,
                                    const std::optional<ReplacedOperation>& state) {
  if (!state) return;
  if (state->had_instance_value) {
    object.set_attribute(state->operation_name, state->original);
    return;
  }
  catching(
      {ErrorKind::kAttributeError}, [&] { object.delete_attribute(state->operation_name); },
      [](const Error&) {});
}

void fail_child_parent_operation(std::string_view operation_name) {
  throw RuntimeError(kForbidden + std::string(operation_name));
}

Callable forbid_child_parent_operation(std::string_view operation_name) {
  return make_callable([name = std::string(operation_name)](std::span<const Value> /*positional*/,
                                                            const Mapping& /*keywords*/) -> Value {
    fail_child_parent_operation(name);
  });
}

}  // namespace varnholt::genetic
