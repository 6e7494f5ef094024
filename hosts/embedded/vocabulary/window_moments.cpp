// The functions of window_functions.hpp that are made of moments.
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/rolled.hpp"
#include "hosts/embedded/vocabulary/window_functions.hpp"

namespace varnholt::embedded {

Panel ts_skew(const Panel& x, const Window& window) {
  return rolled(RollingFunction::Skew, x, window);
}

Panel ts_kurtosis(const Panel& x, const Window& window) {
  return rolled(RollingFunction::Kurtosis, x, window);
}

Panel ts_slope(const Panel& x, const Panel& y, const Window& window) {
  return rolled(RollingFunction::Slope, x, y, window);
}

Panel ts_residual(const Panel& x, const Panel& y, const Window& window) {
  return rolled(RollingFunction::Residual, x, y, window);
}

}  // namespace varnholt::embedded
