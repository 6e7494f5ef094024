// Goal: what is read at load, what at each call, and what a host may replace on the module.
// Method: a scripted host whose settings change between load and call, and constants of the test's
// own.
#include "search_templates/genetic/driver/module.hpp"

#include <gmock/gmock.h>

#include "search_templates/genetic/settings/constants.hpp"
#include "tests/driver/search_harness.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

TEST(Module, ReadsTheHostsSettingsOnceAtLoad) {
  ScriptedHost host;
  const Module module(host.bundle());
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre(
          "search_settings.default_batch_size", "search_settings.default_restart_threshold",
          "search_settings.default_elite_fraction", "search_settings.default_diversity_weight",
          "search_settings.default_parsimony_weight", "search_settings.default_operator_rates",
          "process_evaluation.terminal_worker_failed", "process_evaluation.terminal_worker_timeout",
          "process_evaluation.default_search_template_timeout_seconds"));
  host.log.clear();
  static_cast<void>(module.with_config(module.default_arguments()));
  EXPECT_THAT(host.log.names(),
              ElementsAre("secure_random.randbits", "random_generators.seeded", "rng.getstate"));
}

TEST(Module, DefaultArgumentsAreTheDefaults) {
  ScriptedHost host;
  const Module module(host.bundle());
  const TemplateArguments& defaults = module.default_arguments();
  EXPECT_EQ(defaults.batch_size, 4);
  EXPECT_TRUE(defaults.initial_candidates.is_absent());
  EXPECT_EQ(defaults.restart_threshold, 3);
  EXPECT_EQ(defaults.elite_fraction, 0.25);
  EXPECT_EQ(defaults.diversity_weight, 0.5);
  EXPECT_EQ(defaults.parsimony_weight, 0.125);
  EXPECT_TRUE(defaults.operator_rates.is_absent());
  EXPECT_EQ(defaults.max_improvement_depth, 8);
  EXPECT_EQ(defaults.max_improvement_candidates, 96);
  EXPECT_EQ(defaults.max_improvement_rounds, 10);
  EXPECT_EQ(defaults.process_timeout_seconds, 600.0);

  const GeneticTemplate config = module.with_config(defaults);
  EXPECT_EQ(config.batch_size(), 4);
  EXPECT_EQ(config.restart_threshold(), 3);
  EXPECT_EQ(config.elite_fraction(), 0.25);
  EXPECT_EQ(config.diversity_weight(), 0.5);
  EXPECT_EQ(config.parsimony_weight(), 0.125);
  EXPECT_EQ(config.max_improvement_depth(), DEFAULT_MAX_IMPROVEMENT_DEPTH);
  EXPECT_EQ(config.max_improvement_candidates(), DEFAULT_MAX_IMPROVEMENT_CANDIDATES);
  EXPECT_EQ(config.max_improvement_rounds(), DEFAULT_MAX_IMPROVEMENT_ROUNDS);
  EXPECT_EQ(config.process_timeout_seconds(), 600.0);
}

TEST(Module, OnlyTheTimeOutIsReadAnewFromTheHost) {
  ScriptedHost host;
  const Module module(host.bundle());
  host.search_settings.on_default_batch_size = always(99);
  host.process_evaluation.on_default_search_template_timeout_seconds = always(1.5);
  EXPECT_EQ(module.constants().default_batch_size(), 4);
  EXPECT_EQ(module.default_process_timeout_seconds(), 1.5);
  EXPECT_EQ(module.default_arguments().process_timeout_seconds, 600.0);
  EXPECT_EQ(module.with_config(module.default_arguments()).process_timeout_seconds(), 600.0);
}

TEST(Module, TheRatesAreAPrivateCopy) {
  ScriptedHost host;
  Mapping rates{{"crossover", 1.0}};
  host.search_settings.on_default_operator_rates = always(rates);
  const Module module(host.bundle());
  rates.set("crossover", 5.0);
  EXPECT_EQ(repr(module.constants().default_operator_rates()), "{'crossover': 1.0}");
}

TEST(Module, RatesThatAreNoMappingFailAtLoad) {
  ScriptedHost host;
  host.search_settings.on_default_operator_rates = always(3);
  EXPECT_THROW(Module{host.bundle()}, TypeError);
}

// The constants of a host that replaces them on the module after load.
class ReplacedConstants : public LoadedConstants {
 public:
  explicit ReplacedConstants(ScriptedHost& host)
      : LoadedConstants(host.search_settings, host.process_evaluation) {}

  Value batch_size = 4;
  Mapping operator_rates{{"crossover", 0.5}};

  [[nodiscard]] Value default_batch_size() const override { return batch_size; }
  [[nodiscard]] Mapping default_operator_rates() const override { return operator_rates; }
};

TEST(Module, ReplacedConstantsChangeTheModulesSettingsButNotItsDefaultArguments) {
  ScriptedHost host;
  auto owned = std::make_unique<ReplacedConstants>(host);
  ReplacedConstants& constants = *owned;
  const Module module(host.bundle(), std::move(owned),
                      std::make_unique<HostFreshCandidates>(host.random_weighted));
  constants.batch_size = 32;
  constants.operator_rates = Mapping{{"hoist", 2.0}};
  EXPECT_EQ(module.constants().default_batch_size(), 32);
  const GeneticTemplate config = module.with_config(module.default_arguments());
  EXPECT_EQ(config.batch_size(), 4);
  // The rates are no default argument: they are copied when a template is made.
  EXPECT_EQ(repr(config.operator_rates()), "{'hoist': 2.0}");
}

TEST(Module, GeneticRunsATemplateOfItsOwnWithAllDefaults) {
  SearchHarness search;
  search.stop_event->on_is_set = always(true);
  search.host.secure_random.on_randbits = in_turn<std::uint64_t>({5, 6});
  search.module.genetic(search.host.context);
  search.module.genetic(search.host.context);
  ASSERT_EQ(search.metrics.size(), 2U);
  EXPECT_EQ(search.metrics[0].at("seed"), 5);
  EXPECT_EQ(search.metrics[1].at("seed"), 6);
  EXPECT_EQ(search.metrics[0].at("batch_size"), 4);
}

TEST(Module, BadDefaultsFailBeforeAnyWork) {
  ScriptedHost host;
  host.search_settings.on_default_batch_size = always(0);
  Module module(host.bundle());
  host.log.clear();
  EXPECT_THROW(module.genetic(host.context), ValueError);
  EXPECT_THAT(host.log.lines(), ElementsAre());
}

TEST(Module, SourceOfFreshCandidatesCanBeReplaced) {
  SearchHarness search;
  search.stop_at_pause(1);
  const auto draw =
      std::make_shared<ScriptedFreshCandidates::Draw>(always(Value(graphs_named({"replaced"}))));
  search.module.replace_fresh_candidates(
      std::make_unique<ScriptedFreshCandidates>(search.host.log, draw));
  std::vector<std::string> evaluated;
  search.on_outcome = [&evaluated](const Value& graph) {
    evaluated.push_back(name_of(graph));
    return passing(graph);
  };
  search.run();
  EXPECT_THAT(evaluated, ElementsAre("replaced"));
  EXPECT_EQ(search.module.fresh_candidates().draw(search.host.context, 1, nullptr),
            Value(graphs_named({"replaced"})));
}

TEST(Module, TwoModulesKnowNothingOfEachOther) {
  ScriptedHost one;
  ScriptedHost other;
  other.search_settings.on_default_batch_size = always(9);
  const Module first(one.bundle());
  const Module second(other.bundle());
  EXPECT_EQ(first.default_arguments().batch_size, 4);
  EXPECT_EQ(second.default_arguments().batch_size, 9);
  EXPECT_EQ(&first.host(), &one.bundle());
  EXPECT_EQ(&second.host(), &other.bundle());
}

// A configuration that is no template: whatever answers like one can be run.
class OwnConfig : public GeneticTemplate {
 public:
  OwnConfig(Host& host, const ModuleConstants& constants, const TemplateArguments& arguments)
      : GeneticTemplate(host, constants, arguments) {}

  [[nodiscard]] Value seed() const override { return "my seed"; }
  [[nodiscard]] Value restart_threshold() const override { return 0; }
};

TEST(Module, RunsAnythingThatAnswersLikeATemplate) {
  SearchHarness search;
  search.stop_at_pause(3);
  TemplateArguments arguments = search.module.default_arguments();
  arguments.batch_size = 1;
  OwnConfig config(search.host.bundle(), search.module.constants(), arguments);
  search.host.log.clear();
  search.module.run(search.host.context, config);
  EXPECT_EQ(search.metrics.at(0).at("seed"), "my seed");
  // A threshold of 0, which a template refuses, restarts after every generation.
  EXPECT_THAT(search.draws(), ElementsAre("(1)", "(2)", "(2)"));
}

}  // namespace
}  // namespace varnholt::genetic::test
