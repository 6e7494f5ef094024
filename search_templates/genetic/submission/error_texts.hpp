// The texts of errors that are thrown in more than one place.
#pragma once

#include <string_view>

namespace varnholt::genetic {

inline constexpr std::string_view kMissingSerializedTiming =
    "genetic candidate is missing serialized backtest timing";

// A result of a process names its candidate behind it.
inline constexpr std::string_view kPersistenceFailed =
    "genetic candidate parent evaluation persistence failed";

}  // namespace varnholt::genetic
