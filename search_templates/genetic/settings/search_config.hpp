// The settings of one search as its parts read them, and its stream of random numbers.
#pragma once

#include <memory>

#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The search's one stream of random numbers, held as a state between the batches. A batch fetches a
// clone, draws from it, and stores it once, after its last draw; draws from a clone that is not
// stored are forgotten.
class RandomStream {
 public:
  virtual ~RandomStream() = default;

  // Null when there is no state.
  [[nodiscard]] virtual std::shared_ptr<RandomGenerator> rng_for_batch() = 0;
  // A null generator leaves the state as it is.
  virtual void store_rng_state(const std::shared_ptr<RandomGenerator>& rng) = 0;
};

// Every setting is read at the moment it is asked for. Integers are values, since the host's
// language accepts integers of any size.
class SearchConfig : public RandomStream {
 public:
  [[nodiscard]] virtual Value batch_size() const = 0;
  // Absent, or a sequence of frozen graphs.
  [[nodiscard]] virtual Value initial_candidates() const = 0;
  [[nodiscard]] virtual Value seed() const = 0;
  [[nodiscard]] virtual Value restart_threshold() const = 0;
  [[nodiscard]] virtual Value elite_fraction() const = 0;
  [[nodiscard]] virtual Value diversity_weight() const = 0;
  [[nodiscard]] virtual Value parsimony_weight() const = 0;
  [[nodiscard]] virtual Mapping operator_rates() const = 0;
  // Absent, or an integer from 0. Absent is no limit; 0 is a limit.
  [[nodiscard]] virtual Value max_improvement_depth() const = 0;
  [[nodiscard]] virtual Value max_improvement_candidates() const = 0;
  [[nodiscard]] virtual Value max_improvement_rounds() const = 0;
  [[nodiscard]] virtual Value process_timeout_seconds() const = 0;
};

}  // namespace varnholt::genetic
