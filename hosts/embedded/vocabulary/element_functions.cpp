#include "hosts/embedded/vocabulary/element_functions.hpp"

#include <stdexcept>

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
    // Named one by one, so that the compiler asks how many a new function takes.
    case ElementFunction::Add:
    case ElementFunction::Sub:
    case ElementFunction::Mul:
    case ElementFunction::Div:
    case ElementFunction::Min:
    case ElementFunction::Max:
    case ElementFunction::Power:
    case ElementFunction::SignedPower:
    case ElementFunction::Greater:
    case ElementFunction::Less:
    case ElementFunction::GreaterOrEqual:
    case ElementFunction::LessOrEqual:
    case ElementFunction::Equal:
    case ElementFunction::NotEqual:
    case ElementFunction::And:
    case ElementFunction::Or:
      return 2;
  }
  throw std::logic_error("there is no such function of entries");
}

}  // namespace varnholt::embedded
