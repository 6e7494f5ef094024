// Guards in the place of what only the parent may do, while a child evaluates.
//
// A child inherits the whole search context, and must persist nothing. So each parent-only
// operation of the context is replaced on the host's own object, and put back afterwards.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/replaceable_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// What stood under a name before.
struct ReplacedOperation {
  std::string operation_name;
  // Whether the value was the object's own; otherwise it came from its class.
  bool had_instance_value = false;
  Value original;
};

// Puts `replacement` onto the object under the name, and tells what stood there; nothing, and no
// change, when there is no such operation: then there is nothing to guard. RuntimeError "cannot
// disable parent-only operation <name> in child process", with the refusal as its cause, for an
// object that cannot be written: a guard that cannot be installed stops the evaluation.
[[nodiscard]] std::optional<ReplacedOperation> replace_child_parent_operation(
    ReplaceableObject& object, std::string_view operation_name, const Value& replacement);

// Puts back what stood there. A value of the object's own is set again; otherwise the object's own
// is deleted, so that its class shows through, and one that has been deleted meanwhile is none.
void restore_child_parent_operation(ReplaceableObject& object,
                                    const std::optional<ReplacedOperation>& state);

// RuntimeError "child process cannot call parent-only operation <name>".
[[noreturn]] void fail_child_parent_operation(std::string_view operation_name);

// An operation that takes any arguments and fails so.
[[nodiscard]] Callable forbid_child_parent_operation(std::string_view operation_name);

}  // namespace varnholt::genetic
