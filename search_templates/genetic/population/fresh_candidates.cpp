#include "search_templates/genetic/population/fresh_candidates.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include "search_templates/genetic/settings/constants.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {

List fresh_random_candidates(RandomWeighted& random_weighted, SearchContext& context,
                             const Value& count, const std::shared_ptr<RandomGenerator>& rng) {
  List candidates;
  const std::unique_ptr<ValueIterator> graphs = random_weighted.random_weighted_graphs(
      context, rng, genetic_random_weighted_log_context(), "genetic");
  if (graphs == nullptr) return candidates;
  const std::int64_t wanted = saturated_integer(count);
  for (std::int64_t index = 0; index < wanted; ++index) {
    std::optional<Value> graph = graphs->next();
    if (!graph) break;
    candidates.append(*std::move(graph));
  }
  return candidates;
}

Value fresh_random_candidates_for_rng(FreshCandidates& source, SearchContext& context,
                                      std::int64_t count,
                                      const std::shared_ptr<RandomGenerator>& rng) {
  const std::optional<std::vector<Parameter>> signature = source.replacement_signature();
  const auto takes_rng = [](const Parameter& parameter) {
    return parameter.name == "rng" || parameter.kind == ParameterKind::kVariableKeyword;
  };
  if (signature && std::none_of(signature->begin(), signature->end(), takes_rng)) {
    return source.draw_without_rng(context, count);
  }
  return source.draw(context, count, rng);
}

}  // namespace varnholt::genetic
