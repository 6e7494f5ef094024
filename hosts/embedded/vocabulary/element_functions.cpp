#include "hosts/embedded/vocabulary/element_functions.hpp"

#include <array>

#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/vector_kernels.hpp"

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

void map_into(ElementFunction function, std::span<const Panel* const> inputs, Panel& result) {
  Entries entries{{}, result.data(), static_cast<std::size_t>(result.size())};
  for (std::size_t i = 0; i < inputs_of(function); ++i) {
    require_same_shape(*inputs[i], result);
    entries.inputs.at(i) = inputs[i]->data();
  }
  vector_kernels().map(function, entries);
}

Panel mapped(ElementFunction function, std::span<const Panel* const> inputs) {
  Panel result(inputs[0]->rows(), inputs[0]->cols());
  map_into(function, inputs, result);
  return result;
}

Panel mapped(ElementFunction function, const Panel& x) {
  return mapped(function, std::array{&x});
}

Panel mapped(ElementFunction function, const Panel& x, const Panel& y) {
  return mapped(function, std::array{&x, &y});
}

}  // namespace varnholt::embedded
