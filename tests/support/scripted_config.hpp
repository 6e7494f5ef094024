// The settings of a search as a test sets them, with a random stream that logs every access.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "search_templates/genetic/settings/search_config.hpp"
#include "tests/support/scripted_answers.hpp"
#include "tests/support/scripted_random.hpp"

namespace varnholt::genetic::test {

// Settings are plain members, read without a line in the log. `rng_for_batch` hands out a clone of
// the stored generator, `store_rng_state` stores the draws of one.
class ScriptedConfig : public SearchConfig {
 public:
  explicit ScriptedConfig(CallLog& log) : log_(log) {}

  struct Settings {
    Value batch_size = 4;
    Value initial_candidates;
    Value seed = 1;
    Value restart_threshold = 3;
    double elite_fraction = 0.25;
    double diversity_weight = 0.5;
    double parsimony_weight = 0.125;
    Mapping operator_rates = {{"crossover", 1.0}};
    Value max_improvement_depth = 8;
    Value max_improvement_candidates = 96;
    Value max_improvement_rounds = 10;
    double process_timeout_seconds = 600.0;
  };
  Settings settings;
  std::function<std::shared_ptr<RandomGenerator>()> on_rng_for_batch = [this] {
    return std::make_shared<ScriptedGenerator>(log_, MersenneTwister(1));
  };

  [[nodiscard]] std::shared_ptr<RandomGenerator> rng_for_batch() override {
    log_.add("config.rng_for_batch()");
    return on_rng_for_batch();
  }
  void store_rng_state(const std::shared_ptr<RandomGenerator>& rng) override {
    log_.add("config.store_rng_state", {rng == nullptr ? Value() : Value("rng")});
    stored = rng;
  }
  // What was stored last.
  std::shared_ptr<RandomGenerator> stored;

  [[nodiscard]] Value batch_size() const override { return settings.batch_size; }
  [[nodiscard]] Value initial_candidates() const override { return settings.initial_candidates; }
  [[nodiscard]] Value seed() const override { return settings.seed; }
  [[nodiscard]] Value restart_threshold() const override { return settings.restart_threshold; }
  [[nodiscard]] Value elite_fraction() const override { return settings.elite_fraction; }
  [[nodiscard]] Value diversity_weight() const override { return settings.diversity_weight; }
  [[nodiscard]] Value parsimony_weight() const override { return settings.parsimony_weight; }
  [[nodiscard]] Mapping operator_rates() const override { return settings.operator_rates; }
  [[nodiscard]] Value max_improvement_depth() const override {
    return settings.max_improvement_depth;
  }
  [[nodiscard]] Value max_improvement_candidates() const override {
    return settings.max_improvement_candidates;
  }
  [[nodiscard]] Value max_improvement_rounds() const override {
    return settings.max_improvement_rounds;
  }
  [[nodiscard]] Value process_timeout_seconds() const override {
    return settings.process_timeout_seconds;
  }

 private:
  CallLog& log_;
};

}  // namespace varnholt::genetic::test
