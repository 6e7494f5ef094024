// The settings of a search on the embedded host, where the user says nothing.
#pragma once

#include <cstdint>

#include "search_templates/genetic/host/search_settings.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class SearchDefaults : public genetic::SearchSettings {
 public:
  // The search uses the fraction twice: it takes this share of the candidates as parents, and of
  // these, the best first, the same share again each time that it chooses two. A quarter makes
  // three of a dozen parents and one of the three, which is then crossed with itself.
  [[nodiscard]] genetic::Value default_elite_fraction() override { return 0.9; }
};

// Repairs of a generation's near misses: one for so many candidates of its batch, or a part of so
// many. More of them, such as the search's own default of three for each, take the backtests away
// from what is new and fit the days searched, so that the pool's book earns less on later ones
// (docs/search-quality.md).
inline constexpr std::int64_t kCandidatesARepair = 16;

}  // namespace varnholt::embedded
