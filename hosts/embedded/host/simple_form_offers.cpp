#include "hosts/embedded/host/simple_form_offers.hpp"

#include <utility>

namespace varnholt::embedded {

using genetic::RandomGenerator;
using genetic::Value;

SimpleFormOffers::SimpleFormOffers(std::vector<Value> forms, const SignalArchive& archive,
                                   const Lineage& lineage)
    : archive_(archive), lineage_(lineage) {
  forms_.reserve(forms.size());
  for (Value& graph : forms)
    forms_.push_back({std::move(graph)});
}

std::optional<Value> SimpleFormOffers::next(RandomGenerator& generator) {
  for (int attempt = 0; attempt < kTries && !forms_.empty(); ++attempt) {
    Form& form = forms_[genetic::random_below(generator, forms_.size())];
    if (archive_.has_met(form.graph)) {
      std::swap(form, forms_.back());
      forms_.pop_back();
      continue;
    }
    // Most of what is offered only lends its parts, and may come again in another batch.
    if (std::exchange(form.offered_in, lineage_.batches()) != lineage_.batches()) return form.graph;
  }
  return std::nullopt;
}

}  // namespace varnholt::embedded
