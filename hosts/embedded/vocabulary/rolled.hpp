// The panels of functions that roll, by the rules of panel_functions.hpp.
#pragma once

#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/vector_kernels.hpp"

namespace varnholt::embedded {

[[nodiscard]] Panel rolled(RollingFunction function, const Panel& x, const Window& window);
[[nodiscard]] Panel rolled(RollingFunction function, const Panel& x, const Panel& y,
                           const Window& window);

}  // namespace varnholt::embedded
