#include "hosts/embedded/vocabulary/element_functions.hpp"

namespace varnholt::embedded {

std::size_t inputs_of(ElementFunction function) {
  switch (function) {
    case ElementFunction::Neg:
    case ElementFunction::Abs:
    case ElementFunction::Sign:
    case ElementFunction::Log:
    case ElementFunction::Tanh:
    case ElementFunction::Ln:
    case ElementFunction::Not:
      return 1;
    case ElementFunction::If:
    case ElementFunction::Clip:
      return 3;
    default:
      return 2;
  }
}

}  // namespace varnholt::embedded
