// Fresh random graphs, and the hook that lets a host put another source in their place.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/host/random_weighted.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The source of fresh random graphs that the search asks. A host may replace it on the module.
class FreshCandidates {
 public:
  virtual ~FreshCandidates() = default;

  // A sequence of at most `count` graphs. A replacement may return more; what its callers do with
  // those is told there.
  [[nodiscard]] virtual Value draw(SearchContext& context, std::int64_t count,
                                   const std::shared_ptr<RandomGenerator>& rng) = 0;

  // A replacement's parameters; nothing for the module's own source, and when they cannot be told.
  [[nodiscard]] virtual std::optional<std::vector<Parameter>> replacement_signature() {
    return std::nullopt;
  }
  // Asked only of a replacement that does not take the generator.
  [[nodiscard]] virtual Value draw_without_rng(SearchContext& context, std::int64_t count) {
    return draw(context, count, nullptr);
  }
};

// Asks the source for graphs, without the generator where a replacement does not take one: where no
// parameter is named "rng", of whatever kind, or takes any keyword.
[[nodiscard]] Value fresh_random_candidates_for_rng(FreshCandidates& source, SearchContext& context,
                                                    std::int64_t count,
                                                    const std::shared_ptr<RandomGenerator>& rng);

// The source that asks the host's generator of random graphs. It is advanced no further than asked,
// so that no extra random draws are made, and released before the graphs are returned.
[[nodiscard]] List fresh_random_candidates(RandomWeighted& random_weighted, SearchContext& context,
                                           std::int64_t count,
                                           const std::shared_ptr<RandomGenerator>& rng);

// fresh_random_candidates as the module's default source.
class HostFreshCandidates : public FreshCandidates {
 public:
  explicit HostFreshCandidates(RandomWeighted& random_weighted)
      : random_weighted_(random_weighted) {}

  [[nodiscard]] Value draw(SearchContext& context, std::int64_t count,
                           const std::shared_ptr<RandomGenerator>& rng) override {
    return fresh_random_candidates(random_weighted_, context, count, rng);
  }

 private:
  RandomWeighted& random_weighted_;
};

}  // namespace varnholt::genetic
