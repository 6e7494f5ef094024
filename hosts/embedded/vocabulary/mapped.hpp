// The panels of functions that work entry by entry.
#pragma once

#include <span>

#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/vocabulary/element_functions.hpp"

namespace varnholt::embedded {

// The panel of a function of so many inputs at least; panels of two shapes are
// std::invalid_argument.
[[nodiscard]] Panel mapped(ElementFunction function, std::span<const Panel* const> inputs);
[[nodiscard]] Panel mapped(ElementFunction function, const Panel& x);
[[nodiscard]] Panel mapped(ElementFunction function, const Panel& x, const Panel& y);

// The same into a panel of that shape, which may be one of the inputs.
void map_into(ElementFunction function, std::span<const Panel* const> inputs, Panel& result);

}  // namespace varnholt::embedded
