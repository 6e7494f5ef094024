#include "hosts/embedded/vocabulary/mapped.hpp"

#include <array>
#include <cstddef>

#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/vector_kernels.hpp"

namespace varnholt::embedded {

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
