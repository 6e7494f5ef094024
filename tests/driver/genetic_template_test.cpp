// Goal: the template validates its settings in order, with the messages told, and its random stream
// goes on from batch to batch only through what is stored.
// Method: one bad setting at a time, pairs of bad settings for the order, and real generators.
#include "search_templates/genetic/driver/genetic_template.hpp"

#include <array>
#include <cmath>
#include <limits>

#include <gmock/gmock.h>

#include "tests/driver/search_harness.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// The kind and text of the error that `action` throws, or "no error".
template <typename Action>
std::string error_of(const Action& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.type_name() + ": " + error.text();
  }
  return "no error";
}

using Setting = Value TemplateArguments::*;

class GeneticTemplateTest : public testing::Test {
 protected:
  GeneticTemplate make(const TemplateArguments& given) { return {host.bundle(), constants, given}; }
  std::string error_with(Setting setting, const Value& value) {
    TemplateArguments bad = arguments;
    bad.*setting = value;
    return error_of([&] { static_cast<void>(make(bad)); });
  }

  ScriptedHost host;
  LoadedConstants constants{host.search_settings, host.process_evaluation};
  TemplateArguments arguments{4, Value(), 3, 0.25, 0.5, 0.125, Value(), 8, 96, 10, 600.0};
};

TEST_F(GeneticTemplateTest, HoldsItsSettings) {
  arguments.elite_fraction = "0.5";
  arguments.diversity_weight = 0;
  arguments.parsimony_weight = true;
  arguments.max_improvement_depth = Value();
  arguments.max_improvement_candidates = 0;
  arguments.process_timeout_seconds = 7;
  const GeneticTemplate config = make(arguments);
  EXPECT_EQ(config.batch_size(), 4);
  EXPECT_TRUE(config.initial_candidates().is_absent());
  EXPECT_TRUE(config.thawed_initial_candidates().is_absent());
  EXPECT_EQ(config.seed(), 20240229);
  EXPECT_EQ(config.restart_threshold(), 3);
  EXPECT_EQ(config.elite_fraction(), 0.5);
  EXPECT_EQ(config.diversity_weight(), 0.0);
  EXPECT_EQ(config.parsimony_weight(), 1.0);
  EXPECT_EQ(config.operator_rates(), constants.default_operator_rates());
  EXPECT_TRUE(config.max_improvement_depth().is_absent());
  EXPECT_EQ(config.max_improvement_candidates(), 0);  // A limit, not its absence.
  EXPECT_EQ(config.max_improvement_rounds(), 10);
  EXPECT_EQ(config.process_timeout_seconds(), 7.0);
}

TEST_F(GeneticTemplateTest, IntegersAreOfTheExactType) {
  struct Case {
    Setting setting;
    const char* name;
  };
  for (const Case& each : {Case{&TemplateArguments::batch_size, "batch_size"},
                           Case{&TemplateArguments::restart_threshold, "restart_threshold"}}) {
    const std::string start = "genetic " + std::string(each.name) + " must be ";
    for (const Value& value : {Value(true), Value(4.0), Value("4"), Value()})
      EXPECT_EQ(error_with(each.setting, value), "TypeError: " + start + "an integer");
    for (const Value& value : {Value(0), Value(-1)})
      EXPECT_EQ(error_with(each.setting, value), "ValueError: " + start + "positive");
    EXPECT_EQ(error_with(each.setting, 1), "no error");
  }
  for (const Case& each :
       {Case{&TemplateArguments::max_improvement_depth, "max_improvement_depth"},
        Case{&TemplateArguments::max_improvement_candidates, "max_improvement_candidates"},
        Case{&TemplateArguments::max_improvement_rounds, "max_improvement_rounds"}}) {
    const std::string start = "genetic " + std::string(each.name) + " must be ";
    for (const Value& value : {Value(false), Value(4.0), Value("4")})
      EXPECT_EQ(error_with(each.setting, value), "TypeError: " + start + "an integer or None");
    EXPECT_EQ(error_with(each.setting, -1), "ValueError: " + start + "non-negative");
    for (const Value& value : {Value(), Value(0), Value(1)})
      EXPECT_EQ(error_with(each.setting, value), "no error");
  }
}

TEST_F(GeneticTemplateTest, RealsAreConvertedAndFinite) {
  struct Case {
    Setting setting;
    const char* name;
    bool zero_is_allowed;
  };
  for (const Case& each :
       {Case{&TemplateArguments::elite_fraction, "elite_fraction", false},
        Case{&TemplateArguments::diversity_weight, "diversity_weight", true},
        Case{&TemplateArguments::parsimony_weight, "parsimony_weight", true},
        Case{&TemplateArguments::process_timeout_seconds, "process_timeout_seconds", false}}) {
    const std::string start = "genetic " + std::string(each.name) + " must be ";
    for (const Value& value : {Value("abc"), Value(), Value(List())})
      EXPECT_EQ(error_with(each.setting, value), "TypeError: " + start + "a finite number");
    for (const Value& value : {Value(kNan), Value(kInfinity), Value(-kInfinity), Value("nan")})
      EXPECT_EQ(error_with(each.setting, value), "ValueError: " + start + "finite");
    const std::string sign = each.zero_is_allowed ? "non-negative" : "positive";
    EXPECT_EQ(error_with(each.setting, -0.5), "ValueError: " + start + sign);
    for (const Value& zero : {Value(0), Value(-0.0)}) {
      EXPECT_EQ(error_with(each.setting, zero),
                each.zero_is_allowed ? "no error" : "ValueError: " + start + sign);
    }
    for (const Value& value : {Value(" 0.5 "), Value(true), Value(0.5)})
      EXPECT_EQ(error_with(each.setting, value), "no error");
  }
}

TEST_F(GeneticTemplateTest, EliteFractionIsAtMostOne) {
  EXPECT_EQ(error_with(&TemplateArguments::elite_fraction, 1.0), "no error");
  EXPECT_EQ(error_with(&TemplateArguments::elite_fraction, 1.0000001),
            "ValueError: genetic elite_fraction must be <= 1");
  EXPECT_EQ(error_with(&TemplateArguments::elite_fraction, "2"),
            "ValueError: genetic elite_fraction must be <= 1");
}

TEST_F(GeneticTemplateTest, OperatorRates) {
  const auto rates_of = [this](const Value& rates) {
    TemplateArguments given = arguments;
    given.operator_rates = rates;
    return repr(make(given).operator_rates());
  };
  const std::string defaults =
      "{'crossover': 0.4, 'subtree_mutation': 0.3, 'point_mutation': 0.2, 'hoist': 0.1}";
  EXPECT_EQ(rates_of(Value()), defaults);
  EXPECT_EQ(rates_of(Mapping()), defaults);
  EXPECT_EQ(rates_of(Mapping{{"hoist", "0.5"}, {"crossover", 0}}),
            "{'crossover': 0.0, 'subtree_mutation': 0.3, 'point_mutation': 0.2, 'hoist': 0.5}");

  const Setting rates = &TemplateArguments::operator_rates;
  EXPECT_EQ(error_with(rates, List()), "TypeError: genetic operator_rates must be a dictionary");
  EXPECT_EQ(error_with(rates, Mapping{{"z", 1}, {"hoist", "x"}, {1, 1}, {"a", 1}}),
            "ValueError: genetic operator_rates has unknown keys: 1, a, z");
  EXPECT_EQ(error_with(rates, Mapping{{"hoist", "x"}}),
            "TypeError: genetic operator_rates.hoist must be a finite number");
  EXPECT_EQ(error_with(rates, Mapping{{"hoist", -1}}),
            "ValueError: genetic operator_rates.hoist must be non-negative");
  EXPECT_EQ(
      error_with(
          rates,
          Mapping{{"crossover", 0}, {"subtree_mutation", 0}, {"point_mutation", 0}, {"hoist", 0}}),
      "ValueError: genetic operator_rates must contain at least one positive rate");
}

TEST_F(GeneticTemplateTest, OperatorRatesAreANewMappingAtEachRead) {
  const GeneticTemplate config = make(arguments);
  Mapping rates = config.operator_rates();
  rates.set("hoist", 9.0);
  EXPECT_EQ(config.operator_rates().at("hoist"), 0.1);
  EXPECT_EQ(constants.default_operator_rates().at("hoist"), 0.1);
}

TEST_F(GeneticTemplateTest, SettingsAreValidatedInOrder) {
  // With the settings from one on all bad, that one is named.
  struct Case {
    Setting setting;
    Value bad;
    const char* error;
  };
  const std::array cases = {
      Case{&TemplateArguments::batch_size, 0, "ValueError: genetic batch_size must be positive"},
      Case{&TemplateArguments::initial_candidates, Tuple(),
           "TypeError: genetic initial_candidates must be a list of graph dictionaries"},
      Case{&TemplateArguments::restart_threshold, 0,
           "ValueError: genetic restart_threshold must be positive"},
      Case{&TemplateArguments::elite_fraction, 2,
           "ValueError: genetic elite_fraction must be <= 1"},
      Case{&TemplateArguments::diversity_weight, -1,
           "ValueError: genetic diversity_weight must be non-negative"},
      Case{&TemplateArguments::parsimony_weight, -1,
           "ValueError: genetic parsimony_weight must be non-negative"},
      Case{&TemplateArguments::operator_rates, 1,
           "TypeError: genetic operator_rates must be a dictionary"},
      Case{&TemplateArguments::max_improvement_depth, -1,
           "ValueError: genetic max_improvement_depth must be non-negative"},
      Case{&TemplateArguments::max_improvement_candidates, -1,
           "ValueError: genetic max_improvement_candidates must be non-negative"},
      Case{&TemplateArguments::max_improvement_rounds, -1,
           "ValueError: genetic max_improvement_rounds must be non-negative"},
      Case{&TemplateArguments::process_timeout_seconds, 0,
           "ValueError: genetic process_timeout_seconds must be positive"}};
  for (std::size_t first = 0; first < cases.size(); ++first) {
    TemplateArguments bad = arguments;
    for (std::size_t i = first; i < cases.size(); ++i)
      bad.*(cases[i].setting) = cases[i].bad;
    host.log.clear();
    EXPECT_EQ(error_of([&] { static_cast<void>(make(bad)); }), cases[first].error);
    // The seed is drawn between the candidates and the restart threshold.
    EXPECT_EQ(host.log.count("secure_random.randbits"), first < 2 ? 0U : 1U);
  }
}

TEST_F(GeneticTemplateTest, BadSeedGraphEndsConstruction) {
  EXPECT_EQ(error_with(&TemplateArguments::initial_candidates, List{Mapping{{1, 2}}}),
            "TypeError: genetic initial candidate graph keys must be strings");
  EXPECT_EQ(error_with(&TemplateArguments::initial_candidates, List{Mapping{{"a", Tuple()}}}),
            "TypeError: genetic initial candidates must contain only plain graph data");
}

TEST_F(GeneticTemplateTest, SeedGraphsShareNothingWithTheirSourceNorTheirReaders) {
  const Mapping source{{"children", List{1, 2}}};
  arguments.initial_candidates = List{source};
  const GeneticTemplate config = make(arguments);
  source.at("children").list().append(3);
  Value read = config.thawed_initial_candidates();
  EXPECT_EQ(repr(read), "[{'children': [1, 2]}]");
  read.list().at(0).mapping().at("children").list().append(4);
  read.list().append("x");
  EXPECT_EQ(repr(config.thawed_initial_candidates()), "[{'children': [1, 2]}]");
  EXPECT_EQ(repr(config.initial_candidates()),
            "(('dict', (('children', ('list', (('scalar', 1), ('scalar', 2)))),)),)");
}

TEST_F(GeneticTemplateTest, EmptySeedsAreNoAbsentSeeds) {
  arguments.initial_candidates = List();
  const GeneticTemplate config = make(arguments);
  EXPECT_EQ(repr(config.initial_candidates()), "()");
  EXPECT_EQ(repr(config.thawed_initial_candidates()), "[]");
}

TEST_F(GeneticTemplateTest, DrawsAndSeedsInOrder) {
  host.log.clear();
  static_cast<void>(make(arguments));
  EXPECT_THAT(host.log.lines(),
              ElementsAre("secure_random.randbits(63)", "random_generators.seeded(20240229)",
                          "rng.getstate()"));
}

TEST_F(GeneticTemplateTest, SeedIsNeverZero) {
  host.secure_random.on_randbits = in_turn<std::uint64_t>({0, (std::uint64_t{1} << 63U) - 1, 1});
  EXPECT_EQ(generate_run_seed(host.secure_random), 1);
  EXPECT_EQ(generate_run_seed(host.secure_random), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(generate_run_seed(host.secure_random), 1);
}

TEST_F(GeneticTemplateTest, EachTemplateDrawsASeedOfItsOwn) {
  host.secure_random.on_randbits = in_turn<std::uint64_t>({11, 12});
  EXPECT_EQ(make(arguments).seed(), 11);
  EXPECT_EQ(make(arguments).seed(), 12);
}

TEST_F(GeneticTemplateTest, StreamIsThatOfAGeneratorWithTheSeed) {
  GeneticTemplate config = make(arguments);
  MersenneTwister expected(20240229U);
  EXPECT_EQ(config.rng_for_batch()->random(), expected.random());
}

TEST_F(GeneticTemplateTest, ClonesGiveTheSameStreamAndAdvanceNothing) {
  GeneticTemplate config = make(arguments);
  const Value state = config.rng_state();
  const auto first = config.rng_for_batch();
  const auto second = config.rng_for_batch();
  EXPECT_NE(first, second);
  const double number = first->random();
  EXPECT_EQ(second->random(), number);
  EXPECT_EQ(config.rng_for_batch()->random(), number);
  EXPECT_EQ(config.rng_state(), state);
}

TEST_F(GeneticTemplateTest, StoredStateGoesOn) {
  GeneticTemplate config = make(arguments);
  const auto rng = config.rng_for_batch();
  const double first = rng->random();
  config.store_rng_state(rng);
  const double second = rng->random();  // After the storing: forgotten.
  const auto next = config.rng_for_batch();
  EXPECT_EQ(next->random(), second);
  EXPECT_NE(first, second);
}

TEST_F(GeneticTemplateTest, NoGeneratorStoresNothing) {
  GeneticTemplate config = make(arguments);
  const Value state = config.rng_state();
  host.log.clear();
  config.store_rng_state(nullptr);
  EXPECT_EQ(config.rng_state(), state);
  EXPECT_THAT(host.log.lines(), ElementsAre());
}

TEST_F(GeneticTemplateTest, NoStateGivesNoGenerator) {
  host.log.clear();
  EXPECT_EQ(rng_from_state(host.random_generators, Value()), nullptr);
  EXPECT_THAT(host.log.lines(), ElementsAre());
  const Value state = managed_rng_state(host.random_generators, 5);
  MersenneTwister expected(5);
  EXPECT_EQ(rng_from_state(host.random_generators, state)->random(), expected.random());
}

}  // namespace
}  // namespace varnholt::genetic::test
