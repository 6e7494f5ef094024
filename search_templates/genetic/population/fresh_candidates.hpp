// Fresh random graphs, and the hook by which a host replaces their source.
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

// The search's source of fresh random graphs. A host may replace it on the module.
class FreshCandidates {
 public:
  virtual ~FreshCandidates() = default;

  // A sequence of at most `count` graphs. A replacement may return more; each caller documents what
  // it does with those.
  [[nodiscard]] virtual Value draw(SearchContext& context, std::int64_t count,
                                   const std::shared_ptr<RandomGenerator>& rng) = 0;

  // A replacement's parameters; nothing for the module's own source, and when they are unknown.
  [[nodiscard]] virtual std::optional<std::vector<Parameter>> replacement_signature() {
    return std::nullopt;
  }
  // Called only for a replacement that does not take the generator.
  [[nodiscard]] virtual Value draw_without_rng(SearchContext& context, std::int64_t count) {
    return draw(context, count, nullptr);
  }
};

// Asks the source for graphs, without the generator where a replacement does not take one: where no
// parameter is named "rng", of whatever kind, or takes any keyword.
[[nodiscard]] Value fresh_random_candidates_for_rng(FreshCandidates& source, SearchContext& context,
                                                    std::int64_t count,
                                                    const std::shared_ptr<RandomGenerator>& rng);

// The source that takes graphs from the host's generator. The generator is advanced no further than
// needed, so that no extra random draws are made, and released before the graphs are returned.
// The count is looked at when there is a generator: TypeError for what is none.
[[nodiscard]] List fresh_random_candidates(RandomWeighted& random_weighted, SearchContext& context,
                                           const Value& count,
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
