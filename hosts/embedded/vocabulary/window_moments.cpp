// The functions of window_functions.hpp that are made of moments.
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/rolled.hpp"
#include "hosts/embedded/vocabulary/window_functions.hpp"

namespace varnholt::embedded {
Panel ts_skew(const Panel& x, const Window& window) {
  return rolled(RollingFunction::kSkew, x, window);
}

Panel ts_kurtosis(const Panel& x, const Window& window) {
  return rolled(RollingFunction::kKurtosis, x, window);
}

Panel ts_slope(const Panel& x, const Panel& y, const Window& window) {
  return rolled(RollingFunction::kSlope, x, y, window);
}

Panel ts_residual(const Panel& x, const Panel& y, const Window& window) {
  return rolled(RollingFunction::kResidual, x, y, window);
}

}  // namespace varnholt::embedded
