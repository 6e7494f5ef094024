// The host's source of random graphs.
#pragma once

#include <memory>
#include <string_view>

#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class RandomWeighted {
 public:
  virtual ~RandomWeighted() = default;

  // An iterator over random graphs, endless or not, that draws from `rng` alone, or null. Made anew
  // for each request, advanced no further than asked, and released when the request is done.
  [[nodiscard]] virtual std::unique_ptr<ValueIterator> random_weighted_graphs(
      SearchContext& context, const std::shared_ptr<RandomGenerator>& rng,
      const Mapping& log_context, std::string_view template_name) = 0;
};

}  // namespace varnholt::genetic
