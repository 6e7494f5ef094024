#include "hosts/embedded/vocabulary/rolled.hpp"

#include "hosts/embedded/vocabulary/panel_checks.hpp"

namespace varnholt::embedded {

Panel rolled(RollingFunction function, const Panel& x, const Window& window) {
  return rolled(function, x, x, window);
}

Panel rolled(RollingFunction function, const Panel& x, const Panel& y, const Window& window) {
  require_window(window.days);
  require_same_shape(x, y);
  if (window.days > x.rows()) return Panel::Constant(x.rows(), x.cols(), kUnknown);
  Panel result(x.rows(), x.cols());
  vector_kernels().roll({function, {&x, &y}, window}, result);
  return result;
}

}  // namespace varnholt::embedded
