// Signals of one thought, as the host offers them among the random graphs.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "hosts/embedded/archive/signal_archive.hpp"
#include "hosts/embedded/host/lineage.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class SimpleFormOffers {
 public:
  // A form that was evaluated, or offered for this batch before, is drawn again, but not for ever.
  static constexpr int kTries = 8;

  // The archive and the lineage must outlive the object.
  SimpleFormOffers(std::vector<genetic::Value> forms, const SignalArchive& archive,
                   const Lineage& lineage);

  // Whether each was evaluated, as far as draws have met them.
  [[nodiscard]] bool is_empty() const { return forms_.empty(); }

  // A form that was not evaluated in this run nor offered for this batch before; nothing where
  // every try meets one that was. One draw a try.
  [[nodiscard]] std::optional<genetic::Value> next(genetic::RandomGenerator& generator);

 private:
  struct Form {
    genetic::Value graph;
    std::int64_t offered_in = -1;  // The batch that it was offered for last.
  };

  std::vector<Form> forms_;
  const SignalArchive& archive_;
  const Lineage& lineage_;
};

}  // namespace varnholt::embedded
