// Goal: which failures make a result worth repairing.
//
// Method: every reason of the tables against every question, then whatever else a record may hold
// under `passes` and `failures`; objects of the host write down what they are asked.
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

const char* const kReactionReasons[] = {"turnover_max",
                                        "turnover_exceeded",
                                        "max_weight_max",
                                        "max_weight_exceeded",
                                        "delta_exposure_max",
                                        "delta_exposure_exceeded",
                                        "abs_weight_sum_mean_below_min",
                                        "sharpe_min",
                                        "gross_returns_sharpe_below_min"};
const char* const kGateReasons[] = {"correlation_exceeded", "pnl_mi_below_threshold"};

// An object that is not a mapping but answers like one, and writes down what it is asked.
class Answerer : public HostObject {
 public:
  Answerer(CallLog& log, Mapping entries) : log_(log), entries_(std::move(entries)) {}

  [[nodiscard]] std::string type_name() const override { return "Answerer"; }
  [[nodiscard]] Value get(const Value& key) const override {
    log_.add("get", {key});
    return entries_.get(key);
  }
  [[nodiscard]] bool contains(const Value& item) const override {
    log_.add("contains", {item});
    return entries_.contains(item);
  }

 private:
  CallLog& log_;
  Mapping entries_;
};

Value failed_with(const Value& failures) {
  return Mapping{{"passes", false}, {"failures", failures}};
}

// The answers to the three questions, as "reaction gate either".
std::string answers(const Value& result) {
  const auto word = [](bool answer) { return answer ? "yes" : "no"; };
  return std::string(word(has_reaction_failure(result))) + " " +
         word(has_gate_near_miss_failure(result)) + " " +
         word(has_actionable_near_miss_failure(result));
}

TEST(FailureReasons, EachCountsForItsOwnQuestion) {
  for (const char* reason : kReactionReasons)
    EXPECT_EQ(answers(failed_with(Mapping{{reason, Mapping()}})), "yes no yes") << reason;
  for (const char* reason : kGateReasons)
    EXPECT_EQ(answers(failed_with(Mapping{{reason, Mapping()}})), "no yes yes") << reason;
  for (const char* reason : {"evaluate_exception", "pnl_mi", "missing_is_correlation", "sharpe",
                             "Sharpe_min", "sharpe_min ", ""}) {
    EXPECT_EQ(answers(failed_with(Mapping{{reason, Mapping()}})), "no no no") << reason;
  }
  EXPECT_EQ(answers(failed_with(Mapping{{"other", 1}, {"pnl_mi_below_threshold", 1}, {"z", 1}})),
            "no yes yes");
  EXPECT_EQ(answers(failed_with(Mapping{{"correlation_exceeded", 1}, {"sharpe_min", Value()}})),
            "yes yes yes");
}

TEST(FailureReasons, OfAResultThatPassesCountForNothing) {
  const Value failures = Mapping{{"sharpe_min", 1}, {"correlation_exceeded", 1}};
  for (const Value& passes : {Value(true), Value(1), Value("yes"), Value(List{0})})
    EXPECT_EQ(answers(Mapping{{"passes", passes}, {"failures", failures}}), "no no no");
  for (const Value& passes : {Value(false), Value(0), Value(""), Value()})
    EXPECT_EQ(answers(Mapping{{"passes", passes}, {"failures", failures}}), "yes yes yes");
  // A missing one counts as false.
  EXPECT_EQ(answers(Mapping{{"failures", failures}}), "yes yes yes");
  EXPECT_EQ(answers(as_host_containers(Mapping{{"failures", failures}})), "yes yes yes");
}

TEST(FailureReasons, AreMembersOfWhateverFailuresIs) {
  struct Case {
    Value failures;
    std::string answer;
  };
  const Case cases[] = {
      {Value(), "no no no"},
      {Mapping(), "no no no"},
      {List(), "no no no"},
      {0, "no no no"},
      {"", "no no no"},
      {List{"x", "sharpe_min"}, "yes no yes"},
      {Tuple{"correlation_exceeded"}, "no yes yes"},
      {as_host_containers(List{"sharpe_min"}), "yes no yes"},
      // A part of a text.
      {"failed: sharpe_min, correlation_exceeded", "yes yes yes"},
      {"sharpe", "no no no"},
      // The values of a mapping are no reasons.
      {Mapping{{"reason", "sharpe_min"}}, "no no no"},
  };
  for (const Case& test_case : cases)
    EXPECT_EQ(answers(failed_with(test_case.failures)), test_case.answer)
        << repr(test_case.failures);
  EXPECT_EQ(answers(Mapping()), "no no no");
}

TEST(FailureReasons, WhatCannotBeLookedIntoFails) {
  for (const auto question :
       {has_reaction_failure, has_gate_near_miss_failure, has_actionable_near_miss_failure}) {
    EXPECT_EQ(error_of([&] { return question(failed_with(5)); }),
              "TypeError: argument of type 'int' is not iterable");
    EXPECT_EQ(error_of([&] { return question(failed_with(scripted_object(Mapping()))); }),
              "TypeError: argument of type 'Record' is not iterable");
    EXPECT_EQ(error_of([&] { return question("no record"); }),
              "AttributeError: 'str' object has no attribute 'get'");
    EXPECT_EQ(error_of([&] { return question(Value()); }),
              "AttributeError: 'NoneType' object has no attribute 'get'");
  }
}

TEST(FailureReasons, AreAskedForInTheOrderOfTheTable) {
  CallLog log;
  const Value failures = make_object<Answerer>(log, Mapping());
  EXPECT_FALSE(has_reaction_failure(failed_with(failures)));
  std::vector<std::string> lines;
  for (const char* reason : kReactionReasons)
    lines.push_back("contains('" + std::string(reason) + "')");
  EXPECT_THAT(log.lines(), ElementsAreArray(lines));

  // Up to the first that is there.
  log.clear();
  EXPECT_TRUE(has_reaction_failure(
      failed_with(make_object<Answerer>(log, Mapping{{"turnover_exceeded", 1}}))));
  EXPECT_THAT(log.lines(),
              ElementsAre("contains('turnover_max')", "contains('turnover_exceeded')"));
}

TEST(FailureReasons, OfAnObjectAreReadThroughItsOwnOperation) {
  CallLog log;
  const Value gate = make_object<Answerer>(
      log, Mapping{{"passes", 0}, {"failures", Mapping{{"correlation_exceeded", 1}}}});
  EXPECT_TRUE(has_actionable_near_miss_failure(gate));
  // The reaction failures are tried first.
  EXPECT_THAT(log.lines(),
              ElementsAre("get('passes')", "get('failures')", "get('passes')", "get('failures')"));
  log.clear();
  const Value reaction = make_object<Answerer>(log, Mapping{{"failures", Tuple{"sharpe_min"}}});
  EXPECT_TRUE(has_actionable_near_miss_failure(reaction));
  EXPECT_THAT(log.lines(), ElementsAre("get('passes')", "get('failures')"));
  log.clear();
  EXPECT_FALSE(has_reaction_failure(make_object<Answerer>(log, Mapping{{"passes", 1}})));
  EXPECT_THAT(log.lines(), ElementsAre("get('passes')"));
}

// The question with names of one's own: passing does not count, and only mappings do.
bool asked(const Value& result, const Value& names) {
  return has_failure_reason(result, names);
}

TEST(HasFailureReason, LooksForTheNamesAmongTheKeysOfTheFailures) {
  const Value failures = Mapping{{"sharpe_min", 1}, {7, 1}};
  const Value result = Mapping{{"passes", true}, {"failures", failures}};
  EXPECT_TRUE(asked(result, List{"sharpe_min"}));
  EXPECT_TRUE(asked(result, Tuple{"other", "sharpe_min"}));
  EXPECT_TRUE(asked(result, Mapping{{"sharpe_min", 0}}));
  EXPECT_TRUE(asked(result, Tuple{7.0}));
  EXPECT_FALSE(asked(result, Tuple{"other", "sharpe"}));
  EXPECT_FALSE(asked(result, Tuple()));
  // The characters of a text are names.
  EXPECT_FALSE(asked(result, "sharpe_min"));
  EXPECT_TRUE(asked(Mapping{{"failures", Mapping{{"a", 1}}}}, "xa"));
  EXPECT_TRUE(asked(as_host_containers(result), Tuple{"sharpe_min"}));
  // Whatever stands under it.
  EXPECT_TRUE(asked(failed_with(Mapping{{"a", Value()}}), Tuple{"a"}));
  EXPECT_TRUE(
      has_failure_reason(failed_with(Mapping{{"sharpe_min", 0}}), SHARPE_REACTION_FAILURE_REASONS));

  EXPECT_TRUE(has_failure_reason(result, SHARPE_REACTION_FAILURE_REASONS));
  EXPECT_FALSE(has_failure_reason(result, GATE_NEAR_MISS_FAILURE_REASONS));
  EXPECT_TRUE(has_failure_reason(Mapping{{"failures", Mapping{{"pnl_mi_below_threshold", 0}}}},
                                 GATE_NEAR_MISS_FAILURE_REASONS));
}

TEST(HasFailureReason, IsFalseWithoutAMappingOfFailures) {
  const Value results[] = {Value(),
                           5,
                           "sharpe_min",
                           List{"sharpe_min"},
                           scripted_object(Mapping{{"failures", Mapping{{"sharpe_min", 1}}}}),
                           Mapping(),
                           failed_with(Value()),
                           failed_with("sharpe_min"),
                           failed_with(List{"sharpe_min"}),
                           failed_with(7)};
  for (const Value& result : results) {
    EXPECT_FALSE(has_failure_reason(result, SHARPE_REACTION_FAILURE_REASONS)) << repr(result);
    EXPECT_FALSE(asked(result, Tuple{"sharpe_min"})) << repr(result);
    // Then the names are not looked at.
    EXPECT_FALSE(asked(result, 5)) << repr(result);
  }
}

TEST(HasFailureReason, FailsForNamesThatAreNone) {
  const Value result = failed_with(Mapping{{"sharpe_min", 1}});
  EXPECT_EQ(error_of([&] { return asked(result, 5); }), "TypeError: 'int' object is not iterable");
  EXPECT_EQ(error_of([&] { return asked(result, Tuple{List()}); }),
            "TypeError: unhashable type: 'list'");
  EXPECT_EQ(error_of([&] { return asked(failed_with(Mapping()), Tuple{List()}); }),
            "TypeError: unhashable type: 'list'");
  // Not reached behind one that is there.
  EXPECT_TRUE(asked(result, Tuple{"sharpe_min", List()}));
}

}  // namespace
}  // namespace varnholt::genetic::test
