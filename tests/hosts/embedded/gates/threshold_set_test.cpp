// Gates over open data: they judge as the gates over structures do, and refuse anything but a
// number. Method: mappings written out; the statistics of random books judged in both ways.
#include "hosts/embedded/gates/threshold_set.hpp"

#include <limits>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/host/statistics_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/gates/gate_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Value;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

Mapping some_set(const Mapping& overrides = Mapping()) {
  return threshold_set(some_gates(), some_limits(), overrides);
}

template <typename Error, typename Function>
std::string refusal(Function&& function) {
  try {
    static_cast<void>(function());
  } catch (const Error& error) {
    return error.what();
  }
  return "accepted";
}

TEST(ThresholdSet, HasEveryGateInTheOrderOfTheTable) {
  EXPECT_EQ(genetic::repr(some_set()),
            "{'turnover_limit': 1.5, 'max_weight_limit': 0.9, 'delta_exposure_limit': 0.75, "
            "'abs_weight_sum_mean_min': 0.5, 'turnover_max': 0.5, 'max_weight_max': 0.6, "
            "'delta_exposure_max': 0.3, 'gross_returns_sharpe_min': 1.0, 'sharpe_min': 0.8}");
}

TEST(ThresholdSet, TakesOverridesAndLeavesThemAsTheyAre) {
  const Mapping overrides{{"sharpe_min", 2}, {"turnover_limit", Value()}, {"turnover_max", 0.25}};
  const Mapping set = some_set(overrides);
  EXPECT_TRUE(set.at("sharpe_min").is_real());
  EXPECT_EQ(set.at("sharpe_min").real(), 2.0);
  EXPECT_EQ(set.at("turnover_max").real(), 0.25);
  EXPECT_FALSE(set.contains("turnover_limit"));
  EXPECT_EQ(set.size(), 8U);
  EXPECT_EQ(overrides.size(), 3U);
  EXPECT_TRUE(overrides.at("sharpe_min").is_integer());
}

TEST(ThresholdSet, WithNoGateLeftIsFalse) {
  Mapping none;
  for (const Gate& gate : gate_table())
    none.set(gate.name, Value());
  EXPECT_FALSE(genetic::truth(some_set(none)));
  EXPECT_TRUE(genetic::truth(some_set()));
}

TEST(ThresholdSet, RefusesWhatItDoesNotKnow) {
  EXPECT_THAT(refusal<genetic::ValueError>([] {
                return some_set({{"sharp_min", 1.0}});
              }),
              HasSubstr("no gate is called 'sharp_min'; the gates are turnover_limit, "));
  EXPECT_THAT(refusal<genetic::ValueError>([] {
                return some_set({{7, 1.0}});
              }),
              HasSubstr("no gate is called 7;"));
  EXPECT_EQ(refusal<genetic::TypeError>([] {
              return some_set({{"sharpe_min", "1.0"}});
            }),
            "the threshold \"sharpe_min\" must be a number, not str");
  EXPECT_EQ(refusal<genetic::TypeError>([] {
              return some_set({{"sharpe_min", true}});
            }),
            "the threshold \"sharpe_min\" must be a number, not bool");
  EXPECT_EQ(refusal<genetic::ValueError>([] {
              return some_set({{"sharpe_min", kNan}});
            }),
            "the threshold \"sharpe_min\" must be a number, not NaN");
}

TEST(EvaluateThresholdGates, JudgesWhatHasBothAMetricAndAThreshold) {
  const Mapping metrics{{"sharpe", 0.5}, {"turnover", Value()}, {"colour", "red"}};
  EXPECT_THAT(reasons_of(evaluate_threshold_gates(metrics, some_set())), ElementsAre("sharpe_min"));
  EXPECT_TRUE(evaluate_threshold_gates(Mapping(), some_set()).empty());
  EXPECT_TRUE(evaluate_threshold_gates(metrics, Mapping()).empty());
  EXPECT_TRUE(evaluate_threshold_gates(metrics, some_set({{"sharpe_min", Value()}})).empty());
  // A threshold of a gate that is judged elsewhere.
  EXPECT_TRUE(evaluate_threshold_gates(metrics, Mapping{{"is_pnl_mi_threshold", 0.2}}).empty());
}

TEST(EvaluateThresholdGates, KeepsTheOrderOfTheTableWhateverThatOfTheMappings) {
  const Mapping metrics{{"sharpe", 0}, {"turnover", 2}};
  const Mapping thresholds{{"sharpe_min", 1}, {"turnover_max", 1}, {"turnover_limit", 1}};
  const auto failures = evaluate_threshold_gates(metrics, thresholds);
  EXPECT_THAT(reasons_of(failures), ElementsAre("turnover_exceeded", "turnover_max", "sharpe_min"));
  EXPECT_EQ(failures.back().actual, 0.0);
  EXPECT_EQ(failures.back().threshold, 1.0);
}

TEST(EvaluateThresholdGates, FailsWhatIsNotFinite) {
  for (const double value : {kNan, kInfinity, -kInfinity}) {
    SCOPED_TRACE(value);
    EXPECT_THAT(reasons_of(evaluate_threshold_gates(Mapping{{"sharpe", value}}, some_set())),
                ElementsAre("sharpe_min"));
    EXPECT_THAT(reasons_of(evaluate_threshold_gates(Mapping{{"turnover", value}}, some_set())),
                ElementsAre("turnover_exceeded", "turnover_max"));
  }
}

TEST(EvaluateThresholdGates, RefusesWhatIsNoNumberAndNoMapping) {
  EXPECT_EQ(refusal<genetic::TypeError>([] {
              return evaluate_threshold_gates(Mapping{{"sharpe", "1.0"}}, some_set());
            }),
            "the metric \"sharpe\" must be a number, not str");
  EXPECT_EQ(
      refusal<genetic::TypeError>([] {
        return evaluate_threshold_gates(Mapping{{"sharpe", 1.0}}, Mapping{{"sharpe_min", false}});
      }),
      "the threshold \"sharpe_min\" must be a number, not bool");
  EXPECT_EQ(
      refusal<genetic::TypeError>([] { return evaluate_threshold_gates(List(), some_set()); }),
      "the metrics must be a mapping or an object with attributes, not list");
  EXPECT_EQ(refusal<genetic::TypeError>([] { return evaluate_threshold_gates(Mapping(), 1.0); }),
            "the threshold set must be a mapping, not float");
}

TEST(EvaluateThresholdGates, JudgesAsTheGatesOverStructuresDo) {
  std::mt19937_64 engine(77);
  SCOPED_TRACE("seed 77");
  const auto uniform = [&engine](double low, double high) {
    return low + (high - low) * static_cast<double>(engine() >> 11) * 0x1p-53;
  };
  for (int round = 0; round < 200; ++round) {
    BacktestStatistics statistics;
    statistics.sharpe = uniform(0, 2);
    statistics.gross_returns_sharpe = uniform(0, 2);
    statistics.turnover = uniform(0, 2);
    statistics.max_weight = uniform(0, 1);
    statistics.delta_exposure = uniform(0, 1);
    statistics.abs_weight_sum_mean = uniform(0, 1);
    const auto expected = failed_gates(statistics, some_gates(), some_limits());
    const std::vector<Value> forms = {statistics_mapping(statistics),
                                      genetic::make_object<StatisticsObject>(statistics)};
    for (const Value& metrics : forms) {
      const auto failures = evaluate_threshold_gates(metrics, some_set());
      ASSERT_EQ(failures.size(), expected.size());
      for (std::size_t i = 0; i < failures.size(); ++i) {
        ASSERT_EQ(failures[i].reason.view(), expected[i].reason.view());
        ASSERT_EQ(failures[i].actual, expected[i].actual);
        ASSERT_EQ(failures[i].threshold, expected[i].threshold);
        ASSERT_EQ(failures[i].detail, expected[i].detail);
      }
    }
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
