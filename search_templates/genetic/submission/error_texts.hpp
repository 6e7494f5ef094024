// The texts of errors that more than one room of submission throws.
#pragma once

#include <string_view>

namespace varnholt::genetic {

inline constexpr std::string_view kMissingSerializedTiming =
    "genetic candidate is missing serialized backtest timing";

}  // namespace varnholt::genetic
