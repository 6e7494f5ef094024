// "genetic-search doctor": whether this machine can search, how well, and what to change.
#pragma once

#include <string>

#include "apps/genetic_search/output.hpp"
#include "hosts/embedded/pool/machine_check.hpp"

namespace varnholt::app {

// The page that is written: what the machine has, and what to change.
[[nodiscard]] std::string machine_page(const embedded::MachineFacts& facts);

// Looks at this machine. Returns whether it can search. Throws OutputError.
[[nodiscard]] bool doctor_command(Output& output);

}  // namespace varnholt::app
