// A C++ function as an operation of the host.
#pragma once

#include "search_templates/genetic/host/function_callable.hpp"

namespace varnholt::embedded {

using genetic::make_callable;

}  // namespace varnholt::embedded
