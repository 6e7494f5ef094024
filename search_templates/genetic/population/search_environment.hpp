// What a search needs besides its context and settings.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/population/fresh_candidates.hpp"
#include "search_templates/genetic/settings/module_constants.hpp"

namespace varnholt::genetic {

struct SearchEnvironment {
  Host& host;
  const ModuleConstants& constants;
  FreshCandidates& fresh_candidates;
};

}  // namespace varnholt::genetic
