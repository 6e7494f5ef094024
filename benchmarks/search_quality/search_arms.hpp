// The searches that are compared: the default one, and others that differ from it in what is looked
// at.
//
// An arm is a name of the table, with settings behind it where there are any:
// "ours+batch_size=256+repairs=0".
#pragma once

#include <cstdint>
#include <string>

#include "hosts/embedded/search/search_options.hpp"

namespace varnholt::embedded::search_quality {

// One job, so many backtests, and no prices yet. Throws std::invalid_argument for an arm that is
// not known, with the names of those that are.
[[nodiscard]] SearchOptions options_of(const std::string& arm, std::int64_t backtests,
                                       std::uint64_t seed);

// "ours|fresh|..." and "batch_size|...".
[[nodiscard]] std::string arm_names();
[[nodiscard]] std::string setting_names();

}  // namespace varnholt::embedded::search_quality
