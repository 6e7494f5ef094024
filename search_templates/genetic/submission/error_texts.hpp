// The texts of errors that are thrown in more than one place.
#pragma once

#include <string_view>

namespace varnholt::genetic {

inline constexpr std::string_view kMissingSerializedTiming =
    "genetic candidate is missing serialized backtest timing";

// For a result of a process the candidate's index follows.
inline constexpr std::string_view kPersistenceFailed =
    "genetic candidate parent evaluation persistence failed";

}  // namespace varnholt::genetic
