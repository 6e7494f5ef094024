// Settings that live in Python: a template's, the module's constants, the host's defaults.
#pragma once

#include <memory>
#include <utility>

#include <nanobind/nanobind.h>

#include "hosts/python/host/module_globals.hpp"
#include "search_templates/genetic/host/search_settings.hpp"
#include "search_templates/genetic/settings/module_constants.hpp"
#include "search_templates/genetic/settings/search_config.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// Over a template, or any object that has a template's private attributes.
class PythonSearchConfig : public genetic::SearchConfig {
 public:
  explicit PythonSearchConfig(nb::object config) : config_(std::move(config)) {}

  [[nodiscard]] genetic::Value batch_size() const override;
  [[nodiscard]] genetic::Value initial_candidates() const override;
  [[nodiscard]] genetic::Value seed() const override;
  [[nodiscard]] genetic::Value restart_threshold() const override;
  [[nodiscard]] genetic::Value elite_fraction() const override;
  [[nodiscard]] genetic::Value diversity_weight() const override;
  [[nodiscard]] genetic::Value parsimony_weight() const override;
  [[nodiscard]] genetic::Mapping operator_rates() const override;
  [[nodiscard]] genetic::Value max_improvement_depth() const override;
  [[nodiscard]] genetic::Value max_improvement_candidates() const override;
  [[nodiscard]] genetic::Value max_improvement_rounds() const override;
  [[nodiscard]] genetic::Value process_timeout_seconds() const override;

  [[nodiscard]] std::shared_ptr<genetic::RandomGenerator> rng_for_batch() override;
  void store_rng_state(const std::shared_ptr<genetic::RandomGenerator>& rng) override;

 private:
  [[nodiscard]] genetic::Value setting(const char* name) const;

  nb::object config_;
};

// The constants as they stand in the module now.
class PythonModuleConstants : public genetic::ModuleConstants {
 public:
  explicit PythonModuleConstants(const ModuleGlobals& globals) : globals_(globals) {}

  [[nodiscard]] genetic::Value default_batch_size() const override;
  [[nodiscard]] genetic::Value default_restart_threshold() const override;
  [[nodiscard]] genetic::Value default_elite_fraction() const override;
  [[nodiscard]] genetic::Value default_diversity_weight() const override;
  [[nodiscard]] genetic::Value default_parsimony_weight() const override;
  [[nodiscard]] genetic::Mapping default_operator_rates() const override;
  [[nodiscard]] genetic::Value default_max_improvement_depth() const override;
  [[nodiscard]] genetic::Value default_max_improvement_candidates() const override;
  [[nodiscard]] genetic::Value default_max_improvement_rounds() const override;
  [[nodiscard]] genetic::Value default_max_reaction_plans_per_source() const override;
  [[nodiscard]] genetic::Value default_max_actionable_near_miss_parents() const override;
  [[nodiscard]] bool is_process_terminal_failure_reason(
      const genetic::Value& reason) const override;

 private:
  const ModuleGlobals& globals_;
};

// `_search_settings`.
class PythonSearchSettings : public genetic::SearchSettings {
 public:
  explicit PythonSearchSettings(const ModuleGlobals& globals) : globals_(globals) {}

  [[nodiscard]] genetic::Value default_batch_size() override;
  [[nodiscard]] genetic::Value default_restart_threshold() override;
  [[nodiscard]] genetic::Value default_elite_fraction() override;
  [[nodiscard]] genetic::Value default_diversity_weight() override;
  [[nodiscard]] genetic::Value default_parsimony_weight() override;
  [[nodiscard]] genetic::Value default_operator_rates() override;
  [[nodiscard]] genetic::Value default_process_priority() override;

 private:
  [[nodiscard]] genetic::Value setting(const char* name) const;

  const ModuleGlobals& globals_;
};

}  // namespace varnholt::python
