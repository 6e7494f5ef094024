#include "hosts/embedded/host/fresh_sources.hpp"

#include <vector>

#include "hosts/embedded/host/simple_forms.hpp"

namespace varnholt::embedded {

using genetic::RandomGenerator;
using genetic::Value;

namespace {

GraphLimits limits_of(const RandomGraphOptions& options) {
  return {options.max_depth, options.max_nodes, options.max_window};
}

}  // namespace

FreshSources::FreshSources(SignalArchive& archive, Lineage& lineage, const Vocabulary& vocabulary,
                           const RandomGraphOptions& options, const GraphMaking& making,
                           const FreshSettings& settings)
    : archive_(archive),
      breeds_(settings.breeds_from_archive),
      operators_(vocabulary, limits_of(options), making),
      material_(vocabulary, options, breeds_ ? &archive : nullptr),
      breeding_(archive, lineage, operators_, material_),
      known_(settings.offers_known_formulas ? known_graphs(vocabulary, limits_of(options), making)
                                            : std::vector<KnownGraph>(),
             archive, lineage, operators_, material_),
      simple_(settings.offers_simple_forms ? simple_forms(vocabulary, limits_of(options), making)
                                           : std::vector<Value>(),
              archive, lineage) {}

std::optional<Value> FreshSources::next(const std::shared_ptr<RandomGenerator>& generator) {
  const bool breeds = breeds_ && archive_.has_parents();
  if (generator == nullptr || (!breeds && known_.is_empty() && simple_.is_empty())) {
    return std::nullopt;
  }
  const double draw = generator->random();
  const double known = known_share();
  if (draw < known) return known_.next(generator);
  const double bred = breeds ? (1.0 - known) * archive_.shares().bred() : 0.0;
  if (draw < known + bred) return breeding_.offspring(generator);
  const double simple = (1.0 - known - bred) * kSimpleShare;
  if (draw < known + bred + simple) return simple_.next(*generator);
  return std::nullopt;
}

double FreshSources::known_share() const {
  if (known_.is_empty()) return 0.0;
  return known_.has_untried() ? kUntriedShare : archive_.shares().known();
}

}  // namespace varnholt::embedded
