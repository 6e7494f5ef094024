// Why a candidate failed: the numbers of its statistics, the failure of an exception, and the
// reason derived from a record or by the host, with the host's calls in their order. Method: a
// scripted host whose calls are all logged.
#include <cmath>
#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/evaluation/candidate_result.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::error_of;
using test::failing;
using test::scripted_callable;
using test::scripted_object;
using test::ScriptedHost;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const std::string kBadCorrelation =
    "ValueError: candidate correlation must be a finite number or None";

std::string repr_of(const EvaluationFailure& failure) {
  return repr(Tuple{failure.reason, failure.detail});
}
std::string repr_of(const DerivedFailure& failure) {
  return repr(Tuple{failure.reason, failure.detail, failure.tracking_metric_kwargs});
}
std::string repr_of(const StatisticsNumbers& numbers) {
  return repr(Tuple{numbers.sharpe, numbers.quality_score, numbers.correlation});
}
// Fails in its own conversion with an error that nobody tolerates.
class Stubborn : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Stubborn"; }
  [[nodiscard]] double to_float() const override { throw RuntimeError("not now"); }
};

TEST(Number, ConvertsOrGivesTheFallbackAsItIs) {
  EXPECT_EQ(repr(number("x")), "0.0");
  EXPECT_EQ(repr(number("x", 5)), "5");
  EXPECT_EQ(repr(number("x", "fallback")), "'fallback'");
  EXPECT_EQ(repr(number(Value())), "0.0");
  EXPECT_EQ(repr(number("nan")), "nan");
  EXPECT_EQ(repr(number(true)), "1.0");
  EXPECT_EQ(repr(number(3)), "3.0");
  EXPECT_EQ(repr(number(-kInfinity)), "-inf");
  EXPECT_EQ(repr(number(to_integer("1" + std::string(400, '0')))), "0.0");
  EXPECT_EQ(repr(number(List{})), "0.0");
  EXPECT_EQ(error_of([] { return number(make_object<Stubborn>()); }), "RuntimeError: not now");
}

TEST(OptionalCorrelation, IsAbsentOrAFiniteNumber) {
  EXPECT_TRUE(optional_correlation(Value()).is_absent());
  EXPECT_EQ(repr(optional_correlation("0.5")), "0.5");
  EXPECT_EQ(repr(optional_correlation(1)), "1.0");
  EXPECT_EQ(repr(optional_correlation(-0.0)), "-0.0");
  for (const Value& value :
       {Value(std::nan("")), Value(kInfinity), Value(-kInfinity), Value("abc"), Value("inf"),
        Value(List{}), scripted_object(Mapping()), to_integer("1" + std::string(400, '0'))}) {
    EXPECT_EQ(error_of([&] { return optional_correlation(value); }), kBadCorrelation);
  }
  EXPECT_EQ(error_of([] { return optional_correlation(make_object<Stubborn>()); }),
            "RuntimeError: not now");
}

TEST(StatisticsNumbersTest, AreReadFromAttributesAlone) {
  EXPECT_EQ(repr_of(statistics_numbers(
                scripted_object({{"sharpe", 1}, {"quality_score", "2"}, {"correlation", 0.5}}))),
            "(1.0, 2.0, 0.5)");
  EXPECT_EQ(repr_of(statistics_numbers(
                Mapping{{"sharpe", 1}, {"quality_score", 2}, {"correlation", 0.5}})),
            "(0.0, 0.0, None)");
  EXPECT_EQ(repr_of(statistics_numbers(Value())), "(0.0, 0.0, None)");
}

TEST(StatisticsNumbersTest, QualityFallsBackToSharpeWhenItIsMissingAlone) {
  EXPECT_EQ(repr_of(statistics_numbers(scripted_object({{"sharpe", 1.5}}))), "(1.5, 1.5, None)");
  // An absent quality score is no missing one.
  EXPECT_EQ(
      repr_of(statistics_numbers(scripted_object({{"sharpe", 1}, {"quality_score", Value()}}))),
      "(1.0, 0.0, None)");
  EXPECT_EQ(repr_of(statistics_numbers(scripted_object({{"quality_score", 2}}))),
            "(0.0, 2.0, None)");
}

TEST(StatisticsNumbersTest, SharpeIsReadAgainForTheFallback) {
  test::CallLog log;
  static_cast<void>(statistics_numbers(scripted_object({{"quality_score", 2}}, &log, "stats")));
  EXPECT_THAT(log.lines(), ElementsAre("stats.sharpe", "stats.sharpe", "stats.quality_score",
                                       "stats.correlation"));
}

class CandidateFailure : public ::testing::Test {
 protected:
  [[nodiscard]] std::string derived(const Mapping& record, const Value& stats = Value()) {
    return repr_of(derive_candidate_failure(host_.context, record, stats));
  }
  // The host's operation that derives a reason, answering by `function`.
  void set_derive(test::ScriptedCallable::Function function) {
    host_.context.on_derive_rejection_reason_detail =
        always(scripted_callable(host_.log, "derive", std::move(function)));
  }

  ScriptedHost host_;
  Value stats_ = scripted_object({{"sharpe", 1.5}}, nullptr, "Stats");
};

// The failure of an exception.

TEST_F(CandidateFailure, AnExceptionIsAnEvaluatorsFailure) {
  EXPECT_EQ(repr_of(evaluation_exception_failure(host_.engine, error_object(KeyError("'x'")))),
            R"(('evaluate_exception', "'x'"))");
  EXPECT_THAT(host_.log.names(), ElementsAre("engine.is_sdk_runtime_not_ready_error"));
}

TEST_F(CandidateFailure, ARuntimeThatIsNotReadyIsToldWithItsCause) {
  host_.engine.on_is_sdk_runtime_not_ready_error = always(true);
  host_.engine.on_sdk_runtime_not_ready_rejection_detail = always("Runtime not ready.");
  EXPECT_EQ(
      repr_of(evaluation_exception_failure(host_.engine, error_object(RuntimeError("warming up")))),
      "('sdk_runtime_not_ready', 'Runtime not ready. Cause: RuntimeError: warming up')");
  host_.engine.on_sdk_runtime_not_ready_rejection_detail = always(7);
  EXPECT_EQ(repr_of(evaluation_exception_failure(host_.engine, error_object(RuntimeError("")))),
            "('sdk_runtime_not_ready', '7 Cause: RuntimeError: ')");
}

// An object that logs the reading of its texts.
class LoggedText : public HostObject {
 public:
  LoggedText(test::CallLog& log, std::string name) : log_(log), name_(std::move(name)) {}
  [[nodiscard]] std::string type_name() const override {
    log_.add("type of " + name_);
    return "Type";
  }
  [[nodiscard]] std::string str() const override {
    log_.add("text of " + name_);
    return name_;
  }

 private:
  test::CallLog& log_;
  std::string name_;
};

TEST_F(CandidateFailure, ARuntimeThatIsNotReadyIsToldFromLeftToRight) {
  host_.engine.on_is_sdk_runtime_not_ready_error = [](const Value&) { return true; };
  host_.engine.on_sdk_runtime_not_ready_rejection_detail =
      always(Value(make_object<LoggedText>(host_.log, "detail")));
  const Value error = make_object<LoggedText>(host_.log, "error");
  EXPECT_EQ(evaluation_exception_failure(host_.engine, error).detail.text(),
            "detail Cause: Type: error");
  EXPECT_THAT(host_.log.lines(),
              ElementsAre("text of error", "engine.is_sdk_runtime_not_ready_error('error')",
                          "engine.sdk_runtime_not_ready_rejection_detail()", "text of detail",
                          "type of error", "text of error"));
}

// The derived failure.

TEST_F(CandidateFailure, ARejectionReasonIsTheReason) {
  EXPECT_EQ(derived({{"rejection_reason", "sharpe_min"}}),
            "('sharpe_min', None, {'failure_reason': 'sharpe_min'})");
  EXPECT_EQ(derived({{"rejection_reason", "sharpe_min"},
                     {"tracking_metric_kwargs", Mapping{{"x", 1}, {"failure_detail", "low"}}}},
                    stats_),
            "('sharpe_min', 'low', {'x': 1, 'failure_detail': 'low', "
            "'failure_reason': 'sharpe_min'})");
  EXPECT_THAT(host_.log.lines(), IsEmpty());
}

TEST_F(CandidateFailure, ARejectionReasonIsReturnedAlthoughTheTrackingKeepsAnother) {
  EXPECT_EQ(derived({{"rejection_reason", "a"},
                     {"tracking_metric_kwargs", Mapping{{"failure_reason", "b"}}}}),
            "('a', None, {'failure_reason': 'b'})");
  // A key that is there keeps even an absent value.
  EXPECT_EQ(derived({{"rejection_reason", "a"},
                     {"tracking_metric_kwargs", Mapping{{"failure_reason", Value()}}}}),
            "('a', None, {'failure_reason': None})");
}

TEST_F(CandidateFailure, TheRecordsOwnTrackingIsNeverWritten) {
  const Mapping tracking{{"x", 1}};
  DerivedFailure failure = derive_candidate_failure(
      host_.context, {{"rejection_reason", "a"}, {"tracking_metric_kwargs", tracking}}, Value());
  failure.tracking_metric_kwargs.set("y", 2);
  EXPECT_EQ(repr(tracking), "{'x': 1}");
}

TEST_F(CandidateFailure, TrackingThatIsFalseIsEmptyAndOtherTrackingMustBeAMapping) {
  for (const Value& nothing : {Value(), Value(0), Value(""), Value(List{}), Value(Mapping{})}) {
    EXPECT_EQ(derived({{"tracking_metric_kwargs", nothing}}), "(None, None, {})");
  }
  EXPECT_EQ(derived({{"tracking_metric_kwargs", List{Tuple{"failure_reason", "b"}}}}),
            "('b', None, {'failure_reason': 'b'})");
  EXPECT_EQ(error_of([&] {
              return derived({{"tracking_metric_kwargs", 5}});
            }),
            "TypeError: 'int' object is not iterable");
}

TEST_F(CandidateFailure, ATrackedReasonIsUsedAsText) {
  EXPECT_EQ(derived({{"tracking_metric_kwargs",
                      Mapping{{"failure_reason", 7}, {"failure_detail", List{1}}}}},
                    stats_),
            "('7', [1], {'failure_reason': 7, 'failure_detail': [1]})");
  // An empty rejection reason is no reason.
  EXPECT_EQ(derived({{"rejection_reason", ""},
                     {"tracking_metric_kwargs", Mapping{{"failure_reason", "b"}}}}),
            "('b', None, {'failure_reason': 'b'})");
  EXPECT_THAT(host_.log.lines(), IsEmpty());
}

TEST_F(CandidateFailure, NothingIsDerivedForAPassOrWithoutStatistics) {
  set_derive(always(Tuple{"derived", "detail"}));
  EXPECT_EQ(derived({{"passed", true}}, stats_), "(None, None, {})");
  EXPECT_EQ(derived({{"passed", 1}, {"rejection_reason", Value()}}, stats_), "(None, None, {})");
  EXPECT_EQ(derived(Mapping()), "(None, None, {})");
  EXPECT_THAT(host_.log.lines(), IsEmpty());
}

TEST_F(CandidateFailure, AReasonIsDerivedFromStatistics) {
  set_derive(always(Tuple{"turnover_max", "0.9 > 0.5"}));
  EXPECT_EQ(derived(Mapping(), stats_),
            "('turnover_max', '0.9 > 0.5', {'failure_reason': 'turnover_max', "
            "'failure_detail': '0.9 > 0.5'})");
  EXPECT_THAT(host_.log.lines(), ElementsAre("context.derive_rejection_reason_detail",
                                             "derive(<Stats object>, include_correlation=False)"));
}

TEST_F(CandidateFailure, ADerivedPairIsReturnedWhateverTheTrackingHolds) {
  set_derive(always(List{"a", "new"}));
  EXPECT_EQ(derived({{"tracking_metric_kwargs",
                      Mapping{{"failure_detail", "old"}, {"failure_reason", ""}}}},
                    stats_),
            "('a', 'new', {'failure_detail': 'old', 'failure_reason': ''})");
  set_derive(always(Tuple{"a", Value()}));
  EXPECT_EQ(derived(Mapping(), stats_), "('a', None, {'failure_reason': 'a'})");
}

TEST_F(CandidateFailure, AnEmptyDerivedReasonIsNotAbsent) {
  set_derive(always(Tuple{"", "detail"}));
  EXPECT_EQ(derived(Mapping(), stats_),
            "('', 'detail', {'failure_reason': '', 'failure_detail': 'detail'})");
}

TEST_F(CandidateFailure, AnEvaluatorsExceptionWithStatisticsIsInferredFromThem) {
  set_derive(always(Tuple{"sharpe_min", "low"}));
  const Mapping record{{"rejection_reason", "evaluate_exception"}};
  EXPECT_EQ(derived(record, stats_),
            "('sharpe_min', 'low', {'failure_reason': 'sharpe_min', 'failure_detail': 'low'})");
  // Without statistics, or for one that passed, the reason stands.
  EXPECT_EQ(derived(record),
            "('evaluate_exception', None, {'failure_reason': 'evaluate_exception'})");
  EXPECT_EQ(derived({{"rejection_reason", "evaluate_exception"}, {"passed", true}}, stats_),
            "('evaluate_exception', None, {'failure_reason': 'evaluate_exception'})");
  EXPECT_EQ(host_.log.count("derive"), 1U);
}

TEST_F(CandidateFailure, ATrackedReasonComesBeforeTheDerivation) {
  set_derive(always(Tuple{"sharpe_min", "low"}));
  EXPECT_EQ(derived({{"rejection_reason", "evaluate_exception"},
                     {"tracking_metric_kwargs", Mapping{{"failure_reason", "tracked"}}}},
                    stats_),
            "('tracked', None, {'failure_reason': 'tracked'})");
  EXPECT_EQ(host_.log.count("derive"), 0U);
}

TEST_F(CandidateFailure, WithoutADerivedReasonTheRejectionReasonStands) {
  const Mapping record{{"rejection_reason", "evaluate_exception"},
                       {"tracking_metric_kwargs", Mapping{{"failure_detail", "text"}}}};
  const std::string fallback =
      "('evaluate_exception', 'text', {'failure_detail': 'text', "
      "'failure_reason': 'evaluate_exception'})";
  EXPECT_EQ(derived(record, stats_), fallback);  // There is no such operation.
  set_derive(always(Tuple{Value(), "ignored"}));
  EXPECT_EQ(derived(record, stats_), fallback);
  set_derive(failing(RuntimeError("x")));
  EXPECT_EQ(derived(record, stats_), fallback);
  EXPECT_EQ(derived(Mapping(), stats_), "(None, None, {})");
}

TEST_F(CandidateFailure, OnlyATypeErrorLeadsToASecondCall) {
  set_derive([](std::span<const Value>, const Mapping& keywords) -> Value {
    if (!keywords.empty()) throw TypeError("unexpected keyword");
    return Tuple{"second", "call"};
  });
  EXPECT_EQ(derived(Mapping(), stats_),
            "('second', 'call', {'failure_reason': 'second', 'failure_detail': 'call'})");
  EXPECT_THAT(host_.log.lines(), ElementsAre("context.derive_rejection_reason_detail",
                                             "derive(<Stats object>, include_correlation=False)",
                                             "derive(<Stats object>)"));
}

TEST_F(CandidateFailure, TheSecondCallComesWhileTheFirstOnesErrorIsHandled) {
  host_.context.on_handling = logged_handling(host_.log);
  set_derive([](std::span<const Value>, const Mapping& keywords) -> Value {
    if (!keywords.empty()) throw TypeError("unexpected keyword");
    throw KeyError("second");
  });
  static_cast<void>(derived(Mapping(), stats_));
  EXPECT_THAT(host_.log.lines(), ElementsAre("context.derive_rejection_reason_detail",
                                             "derive(<Stats object>, include_correlation=False)",
                                             "context.handling('TypeError: unexpected keyword')",
                                             "derive(<Stats object>)", "handled"));
}

TEST_F(CandidateFailure, WhatIsNoPairCountsAsAFailureOfItsCall) {
  // Whether a second call follows tells the two kinds of failure apart.
  const auto calls_for = [&](const Value& answer) {
    set_derive(always(answer));
    host_.log.clear();
    EXPECT_EQ(derived(Mapping(), stats_), "(None, None, {})");
    return host_.log.count("derive");
  };
  EXPECT_EQ(calls_for(5), 2U);
  EXPECT_EQ(calls_for(Value()), 2U);
  EXPECT_EQ(calls_for(Tuple{}), 1U);
  EXPECT_EQ(calls_for(Tuple{"a"}), 1U);
  EXPECT_EQ(calls_for(Tuple{"a", "b", "c"}), 1U);
  EXPECT_EQ(calls_for("abc"), 1U);
}

TEST_F(CandidateFailure, ASecondCallMayFailInAnyWay) {
  set_derive(failing(TypeError("always")));
  EXPECT_EQ(derived(Mapping(), stats_), "(None, None, {})");
  EXPECT_EQ(host_.log.count("derive"), 2U);
  set_derive(failing(OverflowError("x")));
  EXPECT_EQ(derived(Mapping(), stats_), "(None, None, {})");
  EXPECT_EQ(host_.log.count("derive"), 3U);
  // The second answer is unpacked under the same guard.
  set_derive([](std::span<const Value>, const Mapping& keywords) -> Value {
    if (!keywords.empty()) throw TypeError("unexpected keyword");
    return Tuple{"alone"};
  });
  EXPECT_EQ(derived(Mapping(), stats_), "(None, None, {})");
}

struct Interrupt {};

TEST_F(CandidateFailure, AnInterruptOfTheDerivationPasses) {
  set_derive([](std::span<const Value>, const Mapping&) -> Value { throw Interrupt(); });
  EXPECT_THROW(static_cast<void>(derived(Mapping(), stats_)), Interrupt);
}

}  // namespace
}  // namespace varnholt::genetic
