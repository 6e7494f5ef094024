// Goal: a result is recorded once, with what the host's recorder must be told, and is marked only
// when the record was written.
// Method: a scripted recorder, its arguments, and the record afterwards.
#include "search_templates/genetic/submission/recording.hpp"

#include <gmock/gmock.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

TEST(CandidateRejectionReason, IsTheFirstKeyAsItStands) {
  const auto reason = [](const Value& failures) {
    return candidate_rejection_reason(Mapping{{"failures", failures}});
  };
  EXPECT_EQ(reason(Mapping{{"z", 1}, {"a", 2}}), "z");
  EXPECT_EQ(reason(Mapping{{7, 1}}), 7);
  for (const Value& none : {Value(), Value(Mapping()), Value(List{"a"}), Value("text"), Value(0)})
    EXPECT_TRUE(reason(none).is_absent()) << repr(none);
  EXPECT_TRUE(candidate_rejection_reason(Mapping()).is_absent());
  EXPECT_THROW(static_cast<void>(candidate_rejection_reason("no record")), AttributeError);
}

class Recording : public testing::Test {
 protected:
  // The recorder's answers, in order.
  void recorder(std::initializer_list<Value> answers) {
    host.context.on_safe_record =
        always(scripted_callable(host.log, "safe_record", in_turn(answers)));
  }

  ScriptedHost host;
};

TEST_F(Recording, FailingResultIsToldWithItsReason) {
  recorder({"id"});
  Mapping result{{"graph", "g"},
                 {"passes", false},
                 {"failures", Mapping{{"sharpe_min", 1}, {"turnover_max", 2}}},
                 {"stats", "s"},
                 {"per_column_stats", "columns"},
                 {"elapsed_simulation_seconds", 1.5},
                 {"tracking_metric_kwargs", Mapping{{"k", "v"}}}};
  EXPECT_TRUE(record_candidate_result_in_parent(host.context, result));
  EXPECT_THAT(host.log.lines(),
              ElementsAre("context.safe_record",
                          "safe_record('g', False, rejection_reason='sharpe_min', stats='s', "
                          "per_column_stats='columns', expression_elapsed_seconds=1.5, "
                          "tracking_metric_kwargs={'k': 'v'})",
                          "context.last_evaluation_record"));
  EXPECT_EQ(result.at("_parent_recorded"), true);
  EXPECT_EQ(result.at("eval_id"), "id");
}

TEST_F(Recording, PassingResultHasNoReasonAndMissingEntriesAreAbsent) {
  recorder({"id"});
  EXPECT_TRUE(record_candidate_result_in_parent(
      host.context, Mapping{{"passes", 1}, {"failures", Mapping{{"odd", 1}}}}));
  EXPECT_EQ(host.log.lines().at(1),
            "safe_record(None, True, rejection_reason=None, stats=None, per_column_stats=None, "
            "expression_elapsed_seconds=None, tracking_metric_kwargs={})");
}

TEST_F(Recording, FalseTrackingValuesBecomeANewMapping) {
  for (const Value& none : {Value(), Value(Mapping()), Value(0)}) {
    recorder({"id"});
    host.log.clear();
    EXPECT_TRUE(
        record_candidate_result_in_parent(host.context, Mapping{{"tracking_metric_kwargs", none}}));
    EXPECT_EQ(host.log.lines().at(1),
              "safe_record(None, False, rejection_reason=None, stats=None, per_column_stats=None, "
              "expression_elapsed_seconds=None, tracking_metric_kwargs={})");
  }
}

TEST_F(Recording, SecondTimeAsksTheHostNothing) {
  recorder({"id"});
  const Mapping result{{"passes", true}};
  EXPECT_TRUE(record_candidate_result_in_parent(host.context, result));
  host.log.clear();
  EXPECT_TRUE(record_candidate_result_in_parent(host.context, result));
  EXPECT_THAT(host.log.lines(), ElementsAre());
  // The mark is read by its truth.
  recorder({"id"});
  EXPECT_TRUE(record_candidate_result_in_parent(host.context, Mapping{{"_parent_recorded", 0}}));
  EXPECT_EQ(host.log.count("safe_record"), 1U);
}

TEST_F(Recording, ARecordMaySucceedWithoutAnId) {
  recorder({Value()});
  host.context.on_last_evaluation_record =
      always(std::optional<Value>(Mapping{{"recording_succeeded", true}}));
  const Mapping result{{"eval_id", "before"}};
  EXPECT_TRUE(record_candidate_result_in_parent(host.context, result));
  EXPECT_EQ(result.at("_parent_recorded"), true);
  EXPECT_EQ(result.at("eval_id"), "before");
}

TEST_F(Recording, WithoutIdAndWithoutSuccessNothingIsMarked) {
  for (const std::optional<Value>& last :
       std::vector<std::optional<Value>>{std::nullopt, Value(), Value("text"), Value(Mapping()),
                                         Value(Mapping{{"recording_succeeded", 0}})}) {
    recorder({Value()});
    host.context.on_last_evaluation_record = always(last);
    const Mapping result{{"passes", true}};
    EXPECT_FALSE(record_candidate_result_in_parent(host.context, result));
    EXPECT_EQ(repr(result), "{'passes': True}");
  }
}

TEST_F(Recording, AFalseIdIsAnId) {
  recorder({0});
  const Mapping result;
  EXPECT_TRUE(record_candidate_result_in_parent(host.context, result));
  EXPECT_EQ(result.at("eval_id"), 0);
}

TEST_F(Recording, MissingRecorderIsAnError) {
  try {
    static_cast<void>(record_candidate_result_in_parent(host.context, Mapping()));
    FAIL() << "no error";
  } catch (const RuntimeError& error) {
    EXPECT_EQ(error.text(), "genetic search requires the canonical SearchContext recorder");
  }
}

TEST_F(Recording, RecordersErrorPassesAndNothingIsMarked) {
  host.context.on_safe_record =
      always(scripted_callable(host.log, "safe_record", [](const auto&, const Mapping&) -> Value {
        throw ValueError("locked");
      }));
  const Mapping result;
  EXPECT_THROW(static_cast<void>(record_candidate_result_in_parent(host.context, result)),
               ValueError);
  EXPECT_TRUE(result.empty());
}

TEST_F(Recording, BatchIsRecordedInOrderUpToTheFirstThatFails) {
  recorder({"a", Value(), "c"});
  const Mapping first{{"graph", 1}};
  const Mapping second{{"graph", 2}};
  const Mapping third{{"graph", 3}};
  try {
    record_candidate_results_in_parent(host.context, List{first, second, third});
    FAIL() << "no error";
  } catch (const RuntimeError& error) {
    EXPECT_EQ(error.text(), "genetic candidate parent evaluation persistence failed");
  }
  EXPECT_EQ(first.at("eval_id"), "a");
  EXPECT_FALSE(second.contains("_parent_recorded"));
  EXPECT_FALSE(third.contains("_parent_recorded"));
  EXPECT_EQ(host.log.count("safe_record"), 2U);
  EXPECT_NO_THROW(record_candidate_results_in_parent(host.context, List()));
}

}  // namespace
}  // namespace varnholt::genetic::test
