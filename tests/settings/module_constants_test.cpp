// The module's default settings: each host setting is read once, at load, and the rates are copied.
#include "search_templates/genetic/settings/module_constants.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::ScriptedHost;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(LoadedConstants, ReadEachHostSettingOnceAndInOrder) {
  ScriptedHost host;
  const LoadedConstants constants(host.search_settings, host.process_evaluation);
  EXPECT_THAT(host.log.lines(), ElementsAre("search_settings.default_batch_size",
                                            "search_settings.default_restart_threshold",
                                            "search_settings.default_elite_fraction",
                                            "search_settings.default_diversity_weight",
                                            "search_settings.default_parsimony_weight",
                                            "search_settings.default_operator_rates",
                                            "process_evaluation.terminal_worker_failed",
                                            "process_evaluation.terminal_worker_timeout"));
  host.log.clear();
  EXPECT_EQ(constants.default_batch_size().integer(), 4);
  EXPECT_EQ(constants.default_restart_threshold().integer(), 3);
  EXPECT_EQ(constants.default_elite_fraction().real(), 0.25);
  EXPECT_EQ(constants.default_diversity_weight().real(), 0.5);
  EXPECT_EQ(constants.default_parsimony_weight().real(), 0.125);
  EXPECT_EQ(constants.default_operator_rates().size(), 4U);
  EXPECT_EQ(constants.default_max_improvement_depth().integer(), 8);
  EXPECT_EQ(constants.default_max_improvement_candidates().integer(), 96);
  EXPECT_EQ(constants.default_max_improvement_rounds().integer(), 10);
  EXPECT_THAT(host.log.lines(), IsEmpty());
}

TEST(LoadedConstants, OperatorRatesAreAPrivateCopy) {
  ScriptedHost host;
  Mapping rates{{"crossover", 1.0}};
  host.search_settings.on_default_operator_rates = always(rates);
  const LoadedConstants constants(host.search_settings, host.process_evaluation);
  rates.set("crossover", 2.0);
  EXPECT_EQ(constants.default_operator_rates().at("crossover").real(), 1.0);
}

TEST(LoadedConstants, OperatorRatesMayBePairsAndMustBeAMapping) {
  ScriptedHost host;
  host.search_settings.on_default_operator_rates = always(List{Tuple{"a", 1}});
  EXPECT_EQ(
      repr(LoadedConstants(host.search_settings, host.process_evaluation).default_operator_rates()),
      "{'a': 1}");
  host.search_settings.on_default_operator_rates = always(7);
  EXPECT_EQ(
      test::error_of([&] {
        return LoadedConstants(host.search_settings, host.process_evaluation).default_batch_size();
      }),
      "TypeError: 'int' object is not iterable");
}

TEST(LoadedConstants, KnowTheFailuresOfWorkerProcesses) {
  ScriptedHost host;
  const LoadedConstants constants(host.search_settings, host.process_evaluation);
  EXPECT_TRUE(constants.is_process_terminal_failure_reason("worker_failed"));
  EXPECT_TRUE(constants.is_process_terminal_failure_reason("worker_timeout"));
  EXPECT_FALSE(constants.is_process_terminal_failure_reason("memory_budget_exceeded"));
  EXPECT_FALSE(constants.is_process_terminal_failure_reason(Value()));
}

}  // namespace
}  // namespace varnholt::genetic
