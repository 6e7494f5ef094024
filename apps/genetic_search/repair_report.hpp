// What repairs brought, plan by plan.
#pragma once

#include <map>
#include <string>

#include "hosts/embedded/host/search_events.hpp"

namespace varnholt::app {

// A row a plan, those that rescued most first, and a row for all of them. Empty without repairs.
//   Repairs
//   plan             tried  rescued  rate %  submitted
//   reverse             31       28    90.3          4
[[nodiscard]] std::string repairs_text(const embedded::SearchProgress& progress);

}  // namespace varnholt::app
