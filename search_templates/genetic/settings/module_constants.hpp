// The module's own default settings: what the host's settings were when the module was loaded.
//
// They are read where they are used, since a host may replace them on the module afterwards; the
// default arguments of `with_config` keep the values of load time all the same.
#pragma once

#include "search_templates/genetic/host/process_evaluation.hpp"
#include "search_templates/genetic/host/search_settings.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class ModuleConstants {
 public:
  virtual ~ModuleConstants() = default;

  [[nodiscard]] virtual Value default_batch_size() const = 0;
  [[nodiscard]] virtual Value default_restart_threshold() const = 0;
  [[nodiscard]] virtual Value default_elite_fraction() const = 0;
  [[nodiscard]] virtual Value default_diversity_weight() const = 0;
  [[nodiscard]] virtual Value default_parsimony_weight() const = 0;
  [[nodiscard]] virtual Mapping default_operator_rates() const = 0;
  [[nodiscard]] virtual Value default_max_improvement_depth() const = 0;
  [[nodiscard]] virtual Value default_max_improvement_candidates() const = 0;
  [[nodiscard]] virtual Value default_max_improvement_rounds() const = 0;
  [[nodiscard]] virtual Value default_max_reaction_plans_per_source() const = 0;
  [[nodiscard]] virtual Value default_max_actionable_near_miss_parents() const = 0;

  // The failures that concern a worker process and not its candidate.
  [[nodiscard]] virtual bool is_process_terminal_failure_reason(const Value& reason) const = 0;
};

// The constants as read at load: each host setting once, in this order.
class LoadedConstants : public ModuleConstants {
 public:
  LoadedConstants(SearchSettings& settings, ProcessEvaluation& process_evaluation);

  [[nodiscard]] Value default_batch_size() const override { return batch_size_; }
  [[nodiscard]] Value default_restart_threshold() const override { return restart_threshold_; }
  [[nodiscard]] Value default_elite_fraction() const override { return elite_fraction_; }
  [[nodiscard]] Value default_diversity_weight() const override { return diversity_weight_; }
  [[nodiscard]] Value default_parsimony_weight() const override { return parsimony_weight_; }
  [[nodiscard]] Mapping default_operator_rates() const override { return operator_rates_; }
  [[nodiscard]] Value default_max_improvement_depth() const override;
  [[nodiscard]] Value default_max_improvement_candidates() const override;
  [[nodiscard]] Value default_max_improvement_rounds() const override;
  [[nodiscard]] Value default_max_reaction_plans_per_source() const override;
  [[nodiscard]] Value default_max_actionable_near_miss_parents() const override;
  [[nodiscard]] bool is_process_terminal_failure_reason(const Value& reason) const override;

 private:
  Value batch_size_;
  Value restart_threshold_;
  Value elite_fraction_;
  Value diversity_weight_;
  Value parsimony_weight_;
  Mapping operator_rates_;
  Value worker_failed_;
  Value worker_timeout_;
};

}  // namespace varnholt::genetic
