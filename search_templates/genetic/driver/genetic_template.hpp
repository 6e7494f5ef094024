// The template: one search's settings, validated once, and its stream of random numbers.
#pragma once

#include <memory>

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/settings/module_constants.hpp"
#include "search_templates/genetic/settings/search_config.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The settings as a caller gives them, not yet validated.
struct TemplateArguments {
  Value batch_size;
  Value initial_candidates;
  Value restart_threshold;
  Value elite_fraction;
  Value diversity_weight;
  Value parsimony_weight;
  Value operator_rates;
  Value max_improvement_depth;
  Value max_improvement_candidates;
  Value max_improvement_rounds;
  Value process_timeout_seconds;
};

// The arguments that a caller leaves out: the module's default settings, read in this order, and
// the host's time-out.
[[nodiscard]] TemplateArguments default_template_arguments(const ModuleConstants& constants,
                                                           ProcessEvaluation& process_evaluation);

// Immutable but for the random state, which goes on from batch to batch, and from one run of the
// same template to the next. Each template draws a seed of its own: there is no argument for it.
class GeneticTemplate : public SearchConfig {
 public:
  // Validates in the order of the arguments; the seed is drawn between the candidates and the
  // restart threshold. The first bad setting ends construction with its TypeError or ValueError,
  // before any work of a search. An elite fraction of exactly 1.0 is allowed.
  GeneticTemplate(Host& host, const ModuleConstants& constants, const TemplateArguments& arguments)
      : GeneticTemplate(host.random_generators(), host.secure_random(), constants, arguments) {}
  // The same for a host of which no more is there yet. `generators` must outlive the template.
  GeneticTemplate(RandomGenerators& generators, SecureRandom& secure_random,
                  const ModuleConstants& constants, const TemplateArguments& arguments);

  [[nodiscard]] Value batch_size() const override { return batch_size_; }
  [[nodiscard]] Value initial_candidates() const override { return initial_candidates_; }
  [[nodiscard]] Value seed() const override { return seed_; }
  [[nodiscard]] Value restart_threshold() const override { return restart_threshold_; }
  [[nodiscard]] Value elite_fraction() const override { return elite_fraction_; }
  [[nodiscard]] Value diversity_weight() const override { return diversity_weight_; }
  [[nodiscard]] Value parsimony_weight() const override { return parsimony_weight_; }
  // A new mapping at each call.
  [[nodiscard]] Mapping operator_rates() const override;
  [[nodiscard]] Value max_improvement_depth() const override { return max_improvement_depth_; }
  [[nodiscard]] Value max_improvement_candidates() const override {
    return max_improvement_candidates_;
  }
  [[nodiscard]] Value max_improvement_rounds() const override { return max_improvement_rounds_; }
  [[nodiscard]] Value process_timeout_seconds() const override { return process_timeout_seconds_; }

  // The seed graphs as new plain values, which share nothing with the template; absent without any.
  [[nodiscard]] Value thawed_initial_candidates() const;
  // The current state of the generator, opaque.
  [[nodiscard]] const Value& rng_state() const { return rng_state_; }

  // A new generator on the current state: advancing it does not advance the template.
  [[nodiscard]] std::shared_ptr<RandomGenerator> rng_for_batch() override;
  // The one permitted change after construction.
  void store_rng_state(const std::shared_ptr<RandomGenerator>& rng) override;

 private:
  RandomGenerators& generators_;
  Value batch_size_;
  Value initial_candidates_;
  Value seed_;
  Value rng_state_;
  Value restart_threshold_;
  Value elite_fraction_;
  Value diversity_weight_;
  Value parsimony_weight_;
  Mapping operator_rates_;
  Value max_improvement_depth_;
  Value max_improvement_candidates_;
  Value max_improvement_rounds_;
  Value process_timeout_seconds_;
};

// A seed from the host's secure random bits: 63 of them, and 1 in place of 0.
[[nodiscard]] Value generate_run_seed(SecureRandom& secure_random);

// The state of a new generator with that seed.
[[nodiscard]] Value managed_rng_state(RandomGenerators& generators, const Value& seed);

// A clone on `state`; null for an absent one.
[[nodiscard]] std::shared_ptr<RandomGenerator> rng_from_state(RandomGenerators& generators,
                                                              const Value& state);

}  // namespace varnholt::genetic
