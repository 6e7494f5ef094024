// Goal: the way from a failed result to passing is measured as the rules say, in every figure that
// a failure may hold. Method: tables of failures and of pairs of results.
#include "search_templates/genetic/reaction/failure_progress.hpp"

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const Value kNan = std::nan("");

class FailureProgressTest : public testing::Test {
 protected:
  double violation(const Value& reason, const Value& failure) {
    return failure_violation(host.json_reader, reason, failure);
  }
  double missed(const Value& reason, const Value& value, const Value& threshold) {
    return violation(reason, Mapping{{"value", value}, {"threshold", threshold}});
  }
  FailureProgress progress(const Value& result) {
    return failure_progress_key(host.json_reader, result);
  }
  bool improved(const Value& result, const Value& source) {
    return is_improved_result(host.json_reader, result, source);
  }

  ScriptedHost host;
};

using FailureViolation = FailureProgressTest;
using FailureProgressKey = FailureProgressTest;
using IsImprovedResult = FailureProgressTest;

TEST_F(FailureViolation, IsTheShareOfTheThresholdByWhichItIsMissed) {
  EXPECT_EQ(missed("sharpe_min", 0.5, 1.0), 0.5);
  EXPECT_EQ(missed("turnover_max", 1.5, 1.0), 0.5);
  EXPECT_EQ(missed("turnover_max", 1.5, 0.5), 2.0);
  EXPECT_EQ(missed("turnover_max", -1.0, -2.0), 0.5);
  EXPECT_EQ(missed("sharpe_min", 1.0, 1.0), 0.0);
  EXPECT_EQ(missed("sharpe_min", 2.0, 1.0), 0.0);
  EXPECT_EQ(missed("turnover_max", 0.5, 1.0), 0.0);
}

TEST_F(FailureViolation, OnlyTheMinimaMissFromBelow) {
  for (const Key reason : REACTION_FAILURE_REASONS) {
    const bool is_minimum = is_member(MINIMUM_FAILURE_REASONS, reason);
    EXPECT_EQ(missed(reason, 0.5, 1.0), is_minimum ? 0.5 : 0.0) << reason.view();
    EXPECT_EQ(missed(reason, 1.5, 1.0), is_minimum ? 0.0 : 0.5) << reason.view();
  }
  EXPECT_EQ(missed("pnl_mi_below_threshold", 0.25, 0.5), 0.5);
  EXPECT_EQ(missed("correlation_exceeded", 0.25, 0.5), 0.0);
  EXPECT_EQ(missed("whatever", 3.0, 2.0), 0.5);
  EXPECT_EQ(missed(5, 3.0, 2.0), 0.5);
}

TEST_F(FailureViolation, ThresholdsNearZeroAreNoScale) {
  EXPECT_EQ(missed("turnover_max", 0.25, 0.0), 0.25);
  EXPECT_EQ(missed("turnover_max", 1.0, 1e-12), 1.0 - 1e-12);
  EXPECT_EQ(missed("turnover_max", 1.0, -1e-12), 1.0 + 1e-12);
  EXPECT_EQ(missed("turnover_max", 1.0, 2e-12), (1.0 - 2e-12) / 2e-12);
}

TEST_F(FailureViolation, WhatIsNoMappingIsOneAndWhatHasNoNumbersIsZero) {
  for (const Value& failure : {Value(), Value("text"), Value(5), Value(List{}), Value(true)})
    EXPECT_EQ(violation("sharpe_min", failure), 1.0) << repr(failure);
  EXPECT_EQ(violation("sharpe_min", Mapping()), 0.0);
  EXPECT_EQ(missed("turnover_max", "x", "y"), 0.0);
  EXPECT_EQ(missed("turnover_max", "1.5", "1"), 0.5);
  EXPECT_EQ(missed("turnover_max", 0.75, Value()), 0.75);
  EXPECT_EQ(missed("turnover_max", Value(), -2.0), 1.0);
  EXPECT_EQ(missed("turnover_max", true, 0.5), 1.0);
}

TEST_F(FailureViolation, LooksIntoTheDetailWhereTheRecordHasNoFigures) {
  const Mapping figures = {{"value", 1.5}, {"threshold", 1.0}};
  EXPECT_EQ(violation("turnover_max", Mapping{{"detail", figures}}), 0.5);
  EXPECT_EQ(violation("turnover_max", Mapping{{"value", 0}, {"detail", figures}}), 0.0);
}

TEST_F(FailureViolation, NaNAndInfinitiesAreKept) {
  EXPECT_TRUE(std::isnan(missed("turnover_max", kNan, 1.0)));
  EXPECT_TRUE(std::isnan(missed("turnover_max", 1.0, kNan)));
  EXPECT_TRUE(std::isnan(missed("turnover_max", kInfinity, kInfinity)));
  EXPECT_EQ(missed("turnover_max", kInfinity, 1.0), kInfinity);
  EXPECT_EQ(missed("turnover_max", 1.0, kInfinity), 0.0);
  EXPECT_EQ(missed("sharpe_min", -kInfinity, 1.0), kInfinity);
}

TEST_F(FailureViolation, ReasonThatCannotBeInASetFails) {
  EXPECT_EQ(error_of([&] { return violation(List{}, Mapping()); }),
            "TypeError: unhashable type: 'list'");
  EXPECT_EQ(violation(List{}, 5), 1.0);
}

Mapping miss(double value, double threshold = 1.0) {
  return {{"value", value}, {"threshold", threshold}};
}

TEST_F(FailureProgressKey, CountsAndSumsInTheOrderOfTheFailures) {
  const FailureProgress two = progress(
      Mapping{{"failures", Mapping{{"turnover_max", miss(1.5)}, {"sharpe_min", miss(0.75)}}}});
  EXPECT_EQ(two.failure_count, 2);
  EXPECT_EQ(two.total_violation, 0.75);
  // The sum of reals depends on the order of its terms.
  const FailureProgress rising = progress(
      Mapping{{"failures",
               Mapping{{"a", miss(2e-17, 0.0)}, {"b", miss(2e-17, 0.0)}, {"c", miss(1.0, 0.0)}}}});
  const FailureProgress falling = progress(
      Mapping{{"failures",
               Mapping{{"c", miss(1.0, 0.0)}, {"b", miss(2e-17, 0.0)}, {"a", miss(2e-17, 0.0)}}}});
  EXPECT_EQ(falling.total_violation, 1.0);
  EXPECT_EQ(rising.total_violation, (2e-17 + 2e-17) + 1.0);
}

TEST_F(FailureProgressKey, IsZeroForAPassAndForWhatHasNoMappingOfFailures) {
  const Mapping failures = {{"turnover_max", miss(1.5)}};
  const std::vector<Mapping> results = {
      {{"passes", true}, {"failures", failures}},
      {{"passes", 1}, {"failures", failures}},
      Mapping(),
      {{"failures", Value()}},
      {{"failures", Mapping()}},
      {{"failures", List{"turnover_max"}}},
      {{"failures", "turnover_max"}},
      {{"failures", 0}},
  };
  for (const Mapping& result : results) {
    EXPECT_EQ(progress(result).failure_count, 0) << repr(result);
    EXPECT_EQ(progress(result).total_violation, 0.0) << repr(result);
  }
  EXPECT_EQ(progress(Mapping{{"passes", false}, {"failures", failures}}).failure_count, 1);
}

TEST_F(FailureProgressKey, ResultThatCannotBeReadFails) {
  EXPECT_EQ(error_of([&] { return progress(5).failure_count; }),
            "AttributeError: 'int' object has no attribute 'get'");
}

TEST(FailureProgressOrder, FewerFailuresBeatAnyViolation) {
  EXPECT_TRUE((FailureProgress{1, 9.0}).is_less_than({2, 0.0}));
  EXPECT_TRUE((FailureProgress{1, 0.5}).is_less_than({1, 0.75}));
  EXPECT_FALSE((FailureProgress{1, 0.5}).is_less_than({1, 0.5}));
  const double nan = std::nan("");
  EXPECT_FALSE((FailureProgress{1, nan}).is_less_than({1, 0.5}));
  EXPECT_FALSE((FailureProgress{1, 0.5}).is_less_than({1, nan}));
  EXPECT_TRUE((FailureProgress{1, nan}).is_less_than({2, 0.5}));
}

Mapping failed(const Mapping& failures, double quality = 0.0) {
  return {{"passes", false}, {"failures", failures}, {"quality_score", quality}};
}

TEST_F(IsImprovedResult, PassingBeatsFailingAndNotPassing) {
  const Mapping passing = {{"passes", true}, {"quality_score", 0.1}};
  const Mapping failing = failed({{"turnover_max", miss(1.5)}}, 9.0);
  EXPECT_TRUE(improved(passing, failing));
  EXPECT_FALSE(improved(failing, passing));
  EXPECT_FALSE(improved(passing, passing));
  EXPECT_TRUE(improved(Mapping{{"passes", true}, {"quality_score", 0.2}}, passing));
}

TEST_F(IsImprovedResult, ProgressDecidesBeforeQuality) {
  const Mapping near = failed({{"turnover_max", miss(1.25)}}, 0.0);
  const Mapping far = failed({{"turnover_max", miss(1.5)}}, 9.0);
  EXPECT_TRUE(improved(near, far));
  EXPECT_FALSE(improved(far, near));
  const Mapping two = failed({{"turnover_max", miss(1.0)}, {"sharpe_min", miss(1.0)}}, 9.0);
  EXPECT_TRUE(improved(far, two));
  EXPECT_FALSE(improved(two, far));
}

TEST_F(IsImprovedResult, EqualProgressNeedsStrictlyBetterQuality) {
  const Mapping failures = {{"turnover_max", miss(1.25)}};
  EXPECT_TRUE(improved(failed(failures, 0.5), failed(failures, 0.25)));
  EXPECT_FALSE(improved(failed(failures, 0.5), failed(failures, 0.5)));
  EXPECT_FALSE(improved(failed(failures, 0.25), failed(failures, 0.5)));
  EXPECT_FALSE(improved(failed(failures, std::nan("")), failed(failures, 0.5)));
  EXPECT_FALSE(improved(failed(failures, 0.5), failed(failures, std::nan(""))));
}

TEST_F(IsImprovedResult, ViolationThatIsNoNumberLeavesItToTheQuality) {
  const Mapping unknown = {{"turnover_max", Mapping{{"value", kNan}, {"threshold", 1.0}}}};
  const Mapping known = {{"turnover_max", miss(1.25)}};
  EXPECT_TRUE(improved(failed(unknown, 0.5), failed(known, 0.25)));
  EXPECT_FALSE(improved(failed(unknown, 0.25), failed(known, 0.5)));
}

TEST_F(IsImprovedResult, FailuresThatAreNoMappingCountAsThoseOfAPass) {
  const Mapping odd = {{"failures", List{"turnover_max"}}, {"quality_score", 0.5}};
  EXPECT_TRUE(improved(odd, failed({{"turnover_max", miss(1.25)}}, 9.0)));
  EXPECT_TRUE(improved(odd, Mapping{{"passes", true}, {"quality_score", 0.25}}));
}

TEST(FailureSignature, IsTheSortedTupleOfTheTexts) {
  const auto signature = [](const Value& failures) {
    return repr(failure_signature(Mapping{{"failures", failures}}));
  };
  EXPECT_EQ(signature(Mapping{{"turnover_max", 1}, {"sharpe_min", 2}, {"b", 3}, {"B", 4}}),
            "('B', 'b', 'sharpe_min', 'turnover_max')");
  EXPECT_EQ(signature(Mapping{{5, 1}, {"a", 1}, {Value(), 1}, {Tuple{"x"}, 1}}), "('a',)");
  EXPECT_EQ(signature(Mapping{{"\xC3\xA9", 1}, {"z", 1}, {"\xF0\x9F\x98\x80", 1}}),
            "('z', '\xC3\xA9', '\xF0\x9F\x98\x80')");
  for (const Value& failures : {Value(), Value(List{"a"}), Value("a"), Value(Mapping()), Value(0)})
    EXPECT_EQ(signature(failures), "()") << repr(failures);
}

TEST(FailureSignature, DoesNotAskWhetherTheResultPasses) {
  EXPECT_EQ(repr(failure_signature(Mapping{{"passes", true}, {"failures", Mapping{{"a", 1}}}})),
            "('a',)");
  EXPECT_EQ(repr(failure_signature(Mapping())), "()");
}

}  // namespace
}  // namespace varnholt::genetic::test
