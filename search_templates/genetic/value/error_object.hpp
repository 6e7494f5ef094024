// An error as a value: what rules read of an exception that they have caught.
#pragma once

#include <exception>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The host's own exception object where the error carries one; otherwise an object with the error's
// text as text form, its kind as type name, and the attributes that the error has.
[[nodiscard]] Value error_object(const std::exception& error);

}  // namespace varnholt::genetic
