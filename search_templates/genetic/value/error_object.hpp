// An error as a value: what rules read of an exception that they have caught.
#pragma once

#include <exception>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The host's own exception object where the error carries one; otherwise an object with the error's
// text as text form, its kind as type name, and the attributes that the error has.
[[nodiscard]] Value error_object(const std::exception& error);

// The same for whatever is on its way, an interrupt among it. Of one that is no ordinary error
// nothing is known here but that.
[[nodiscard]] Value error_object(const std::exception_ptr& error);

}  // namespace varnholt::genetic
