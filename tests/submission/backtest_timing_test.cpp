// Goal: a timing is validated, bound to its graph, and the same on every road; a bad one is a
// RuntimeError with its cause, and every other failure of the host passes.
// Method: scripted rules for timings; the decision tables row by row, and the ordered log of calls.
#include "search_templates/genetic/submission/backtest_timing.hpp"

#include <cmath>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kMissing =
    "RuntimeError: genetic candidate is missing serialized backtest timing";
constexpr const char* kRoadsDisagree =
    "RuntimeError: genetic candidate attempt evidence backtest timing disagrees with submission "
    "payload backtest timing";

// "TypeError: message" of the cause that an error carries.
template <typename Action>
std::string cause_of(const Action& action) {
  try {
    static_cast<void>(action());
  } catch (const std::exception& error) {
    return error_of([&] { return std::rethrow_if_nested(error), 0; });
  }
  return "no error";
}

Mapping timing_of(const Value& seconds) {
  return {{"seconds", seconds}};
}

class BacktestTiming : public testing::Test {
 protected:
  ScriptedHost host;
  BacktestTimings& timings = host.backtest_timings;
};

// Which failures are turned -------------------------------------------------------------------

struct ValidatingCall {
  const char* name;
  ScriptedBacktestTimings::Operation ScriptedBacktestTimings::*operation;
  std::function<Value(BacktestTimings&)> call;
};

const std::vector<ValidatingCall>& validating_calls() {
  static const std::vector<ValidatingCall> calls = {
      {"validated_process_backtest_timing", &ScriptedBacktestTimings::on_validate,
       [](BacktestTimings& timings) { return validated_process_backtest_timing(timings, "t"); }},
      {"validated_graph_process_backtest_timing", &ScriptedBacktestTimings::on_validate_process,
       [](BacktestTimings& timings) {
         return validated_graph_process_backtest_timing(timings, "g", "t");
       }},
      {"validated_graph_backtest_timing", &ScriptedBacktestTimings::on_validate_graph,
       [](BacktestTimings& timings) { return validated_graph_backtest_timing(timings, "g", "t"); }},
      {"graph_bound_process_backtest_timing", &ScriptedBacktestTimings::on_validate_graph,
       [](BacktestTimings& timings) {
         return graph_bound_process_backtest_timing(timings, "g", "t");
       }},
      {"consumed_process_backtest_timing", &ScriptedBacktestTimings::on_consume,
       [](BacktestTimings& timings) {
         return consumed_process_backtest_timing(timings, "g", Value());
       }},
      {"consumed_process_backtest_timing with a timing", &ScriptedBacktestTimings::on_consume,
       [](BacktestTimings& timings) {
         return consumed_process_backtest_timing(timings, "g", Mapping{{"backtest_timing", "t"}});
       }},
  };
  return calls;
}

struct Interrupt {};

TEST_F(BacktestTiming, ThreeKindsOfFailureAreTurnedAndTheOthersPass) {
  const std::string turned = "RuntimeError: genetic candidate has invalid backtest timing: bad";
  struct Row {
    ScriptedBacktestTimings::Operation answer;
    std::string error;
    std::string cause;
  };
  const std::vector<Row> table = {
      {failing(TypeError("bad")), turned, "TypeError: bad"},
      {failing(ValueError("bad")), turned, "ValueError: bad"},
      {failing(OverflowError("bad")), turned, "OverflowError: bad"},
      {failing(KeyError("bad")), "KeyError: bad", "no error"},
      {failing(IndexError("bad")), "IndexError: bad", "no error"},
      {failing(AttributeError("bad")), "AttributeError: bad", "no error"},
      {failing(RuntimeError("bad")), "RuntimeError: bad", "no error"},
      {failing(std::out_of_range("bad")), "std::exception: bad", "no error"},
  };
  for (const ValidatingCall& validating : validating_calls()) {
    for (const Row& row : table) {
      SCOPED_TRACE(std::string(validating.name) + ", " + row.error + ", " + row.cause);
      host.backtest_timings.*validating.operation = row.answer;
      EXPECT_EQ(error_of([&] { return validating.call(timings); }), row.error);
      EXPECT_EQ(cause_of([&] { return validating.call(timings); }), row.cause);
    }
    host.backtest_timings.*validating.operation = failing(Interrupt());
    EXPECT_THROW(static_cast<void>(validating.call(timings)), Interrupt) << validating.name;
  }
}

// A kind of its own below ValueError, as a decoding error is.
class NarrowError : public ValueError {
 public:
  using ValueError::ValueError;
};

TEST_F(BacktestTiming, KindsBelowTheThreeAreTurnedToo) {
  host.backtest_timings.on_validate = failing(NarrowError("narrow"));
  EXPECT_EQ(error_of([&] { return validated_process_backtest_timing(timings, "t"); }),
            "RuntimeError: genetic candidate has invalid backtest timing: narrow");
}

// A host that lacks an operation fails in the look-up, and with an error that a bad timing has too.
class WithoutOperations : public BacktestTimings {
 public:
  [[nodiscard]] Callable validate_backtest_timing_payload() override { return lacking(); }
  [[nodiscard]] Callable validate_graph_backtest_timing_payload() override { return lacking(); }
  [[nodiscard]] Callable validate_process_backtest_timing_payload() override { return lacking(); }
  [[nodiscard]] Callable consume_recorded_backtest_timing_payload() override { return lacking(); }
  [[nodiscard]] Callable graph_timing_key() override { return lacking(); }

 private:
  [[nodiscard]] static Callable lacking() { throw ValueError("not loaded"); }
};

TEST_F(BacktestTiming, FailureOfTheLookUpIsNoBadTiming) {
  WithoutOperations without;
  for (const ValidatingCall& validating : validating_calls())
    EXPECT_EQ(error_of([&] { return validating.call(without); }), "ValueError: not loaded")
        << validating.name;
}

// What the operations are told ----------------------------------------------------------------

TEST_F(BacktestTiming, EachValidatingCallGivesTheHostsVeryAnswer) {
  const Mapping answer{{"normalised", true}};
  host.backtest_timings.on_validate = always(Value(answer));
  host.backtest_timings.on_validate_graph = always(Value(answer));
  host.backtest_timings.on_validate_process = always(Value(answer));
  host.backtest_timings.on_consume = always(Value(answer));
  for (const ValidatingCall& validating : validating_calls())
    EXPECT_TRUE(same_object(validating.call(timings), answer)) << validating.name;
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre("timings.validate_backtest_timing_payload('t')",
                  "timings.validate_process_backtest_timing_payload('g', 't')",
                  "timings.validate_graph_backtest_timing_payload('g', 't')",
                  "timings.validate_graph_backtest_timing_payload('g', 't')",
                  "timings.graph_timing_key('g')",
                  "timings.consume_recorded_backtest_timing_payload('g', include_identity=True)",
                  "timings.consume_recorded_backtest_timing_payload('g', 't', "
                  "include_identity=True)"));
  EXPECT_EQ(repr(answer), "{'normalised': True, 'graph_key': 'graph key'}");
}

TEST_F(BacktestTiming, ConsumingGetsTheTimingWhereThePayloadHasTheKey) {
  struct Row {
    Value payload;
    const char* arguments;
  };
  const std::vector<Row> table = {
      {Value(), "('g', include_identity=True)"},
      {Mapping(), "('g', include_identity=True)"},
      {"backtest_timing", "('g', include_identity=True)"},
      {List{"backtest_timing"}, "('g', include_identity=True)"},
      {Mapping{{"backtest_timing", Value()}}, "('g', None, include_identity=True)"},
      {Mapping{{"backtest_timing", Mapping()}}, "('g', {}, include_identity=True)"},
      {Mapping{{"backtest_timing", "t"}}, "('g', 't', include_identity=True)"},
  };
  for (const Row& row : table) {
    host.log.clear();
    static_cast<void>(consumed_process_backtest_timing(timings, "g", row.payload));
    EXPECT_THAT(host.log.lines(), ElementsAre("timings.consume_recorded_backtest_timing_payload" +
                                              std::string(row.arguments)));
  }
}

TEST_F(BacktestTiming, BindingWritesTheKeyIntoTheHostsOwnMapping) {
  const Mapping timing = timing_of(1.0);
  const Value bound = graph_bound_process_backtest_timing(timings, "g", timing);
  // The scripted validator returns its argument, which therefore changes.
  EXPECT_TRUE(same_object(bound, timing));
  EXPECT_EQ(repr(timing), "{'seconds': 1.0, 'graph_key': 'graph key'}");
}

TEST_F(BacktestTiming, FailuresOfTheKeyAndOfItsWritingPass) {
  const Mapping timing = timing_of(1.0);
  host.backtest_timings.on_graph_timing_key = failing(TypeError("no graph"));
  EXPECT_EQ(error_of([&] { return graph_bound_process_backtest_timing(timings, "g", timing); }),
            "TypeError: no graph");
  EXPECT_EQ(repr(timing), "{'seconds': 1.0}");
  host.backtest_timings.on_graph_timing_key = always(Value("key"));
  host.backtest_timings.on_validate_graph = always(Value(5));
  EXPECT_EQ(error_of([&] { return graph_bound_process_backtest_timing(timings, "g", timing); }),
            "TypeError: 'int' object does not support item assignment");
}

// The timing for a candidate's record ---------------------------------------------------------

TEST_F(BacktestTiming, EvidenceComesFirstAndIsComparedWhereThePayloadHasTheKey) {
  host.backtest_timings.on_validate_graph = [](std::span<const Value> values, const Mapping&) {
    if (values[1].is_absent()) throw TypeError("no timing");
    return deep_copy(values[1]);
  };
  host.backtest_timings.on_consume = always(Value("consumed"));
  const Value evidence = Mapping{{"backtest_timing", timing_of(1)}};
  const std::string bound = "{'seconds': 1, 'graph_key': 'graph key'}";
  struct Row {
    const char* what;
    Value attempt_evidence;
    Value payload;
    std::string outcome;
  };
  const std::vector<Row> table = {
      {"no evidence", Value(), Value(), "'consumed'"},
      {"evidence without timing", Mapping(), Value(), "'consumed'"},
      {"absent timing", Mapping{{"backtest_timing", Value()}}, Value(), "'consumed'"},
      {"evidence that is no mapping", "backtest_timing", Value(), "'consumed'"},
      {"evidence alone", evidence, Value(), bound},
      {"payload without timing", evidence, Mapping(), bound},
      {"payload that is no mapping", evidence, "backtest_timing", bound},
      {"equal timings", evidence, Mapping{{"backtest_timing", timing_of(1.0)}}, bound},
      {"unequal timings", evidence, Mapping{{"backtest_timing", timing_of(2)}}, kRoadsDisagree},
      {"absent under a present key", evidence, Mapping{{"backtest_timing", Value()}},
       "RuntimeError: genetic candidate has invalid backtest timing: no timing"},
      {"an empty timing counts", Mapping{{"backtest_timing", Mapping()}}, Value(),
       "{'graph_key': 'graph key'}"},
  };
  for (const Row& row : table) {
    SCOPED_TRACE(row.what);
    std::string outcome;
    const std::string error = error_of([&] {
      outcome = repr(process_backtest_timing(timings, "g", row.attempt_evidence, row.payload));
      return 0;
    });
    EXPECT_EQ(error == "no error" ? outcome : error, row.outcome);
  }
}

TEST_F(BacktestTiming, BothTimingsAreBoundBeforeTheyAreCompared) {
  EXPECT_EQ(error_of([&] {
              return process_backtest_timing(timings, "g",
                                             Mapping{{"backtest_timing", timing_of(1)}},
                                             Mapping{{"backtest_timing", timing_of(2)}});
            }),
            kRoadsDisagree);
  EXPECT_THAT(
      host.log.names(),
      ElementsAre("timings.validate_graph_backtest_timing_payload", "timings.graph_timing_key",
                  "timings.validate_graph_backtest_timing_payload", "timings.graph_timing_key"));
  // Nothing is consumed where there is evidence.
  EXPECT_EQ(host.log.count("timings.consume_recorded_backtest_timing_payload"), 0U);
}

TEST_F(BacktestTiming, ConsumingGetsTheAbsentTimingOfAPresentKey) {
  static_cast<void>(
      process_backtest_timing(timings, "g", Value(), Mapping{{"backtest_timing", Value()}}));
  EXPECT_THAT(host.log.lines(),
              ElementsAre("timings.consume_recorded_backtest_timing_payload('g', None, "
                          "include_identity=True)"));
}

// The one timing of a candidate ---------------------------------------------------------------

TEST_F(BacktestTiming, RoadsOfACandidateMustAgree) {
  const Value one = timing_of(1);
  const Value two = timing_of(2);
  const Value none;
  const std::string evidence_disagrees =
      "RuntimeError: genetic candidate backtest timing disagrees with attempt evidence backtest "
      "timing";
  const std::string payload_disagrees =
      "RuntimeError: genetic candidate backtest timing disagrees with submission payload backtest "
      "timing";
  struct Row {
    Value candidate;
    Value attempt_evidence;
    Value payload;
    std::string outcome;
  };
  const std::vector<Row> table = {
      {none, none, none, kMissing},
      {one, none, none, "{'seconds': 1}"},
      {none, one, none, "{'seconds': 1}"},
      {none, none, one, "{'seconds': 1}"},
      {one, one, none, "{'seconds': 1}"},
      {one, none, one, "{'seconds': 1}"},
      {none, one, one, "{'seconds': 1}"},
      {one, one, one, "{'seconds': 1}"},
      {one, timing_of(1.0), timing_of(true), "{'seconds': 1}"},
      {one, two, none, evidence_disagrees},
      {one, none, two, payload_disagrees},
      {none, one, two, payload_disagrees},
      {one, two, two, evidence_disagrees},
      {one, two, one, evidence_disagrees},
      {one, one, two, payload_disagrees},
      {Mapping(), none, none, "{}"},  // An empty timing is one.
  };
  for (const Row& row : table) {
    const Mapping candidate{
        {"graph", "g"},
        {"backtest_timing", row.candidate},
        {"attempt_evidence", Mapping{{"backtest_timing", row.attempt_evidence}}},
        {"submission_payload", Mapping{{"backtest_timing", row.payload}}}};
    const std::string before = repr(candidate);
    SCOPED_TRACE(before);
    std::string outcome;
    const std::string error = error_of([&] {
      outcome = repr(candidate_backtest_timing_payload(timings, candidate));
      return 0;
    });
    EXPECT_EQ(error == "no error" ? outcome : error, row.outcome);
    EXPECT_EQ(repr(candidate), before);  // Whatever comes of it.
  }
}

// An object of the host that says it equals whatever it is compared with.
class EqualToAll : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "Any"; }
  [[nodiscard]] bool equals(const Value& /*other*/) const override { return true; }
};

TEST_F(BacktestTiming, EachRoadIsComparedWithTheFirst) {
  const Mapping candidate{
      {"backtest_timing", timing_of(1)},
      {"attempt_evidence", Mapping{{"backtest_timing", make_object<EqualToAll>()}}},
      {"submission_payload", Mapping{{"backtest_timing", timing_of(2)}}}};
  EXPECT_EQ(error_of([&] { return candidate_backtest_timing_payload(timings, candidate); }),
            "RuntimeError: genetic candidate backtest timing disagrees with submission payload "
            "backtest timing");
}

TEST_F(BacktestTiming, SourcesThatAreNoMappingsHaveNoTiming) {
  const Mapping candidate{{"attempt_evidence", "backtest_timing"}, {"submission_payload", 5}};
  EXPECT_EQ(error_of([&] { return candidate_backtest_timing_payload(timings, candidate); }),
            kMissing);
  EXPECT_EQ(error_of([&] { return candidate_backtest_timing_payload(timings, Mapping()); }),
            kMissing);
  EXPECT_THAT(host.log.lines(), IsEmpty());
}

TEST_F(BacktestTiming, AllAreValidatedBeforeAnyIsComparedAndTheGraphComesLast) {
  Mapping candidate{{"graph", "g"},
                    {"backtest_timing", timing_of(1)},
                    {"attempt_evidence", Mapping{{"backtest_timing", timing_of(2)}}},
                    {"submission_payload", Mapping{{"backtest_timing", timing_of(3)}}}};
  static_cast<void>(
      error_of([&] { return candidate_backtest_timing_payload(timings, candidate, true); }));
  const std::string validate = "timings.validate_backtest_timing_payload";
  EXPECT_THAT(host.log.lines(),
              ElementsAre(validate + "({'seconds': 1})", validate + "({'seconds': 2})",
                          validate + "({'seconds': 3})"));

  // They agree once they are normalised; the graph is checked with the first of them alone.
  host.log.clear();
  const Mapping normalised{{"seconds", "normalised"}};
  host.backtest_timings.on_validate = always(Value(normalised));
  static_cast<void>(candidate_backtest_timing_payload(timings, candidate, true));
  static_cast<void>(candidate_backtest_timing_payload(timings, candidate, false));
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre(
          validate + "({'seconds': 1})", validate + "({'seconds': 2})",
          validate + "({'seconds': 3})",
          "timings.validate_process_backtest_timing_payload('g', {'seconds': 'normalised'})",
          validate + "({'seconds': 1})", validate + "({'seconds': 2})",
          validate + "({'seconds': 3})",
          "timings.validate_graph_backtest_timing_payload('g', {'seconds': 'normalised'})"));
}

TEST_F(BacktestTiming, GraphsValidatorMayNormaliseOnceMore) {
  host.backtest_timings.on_validate_graph = always(Value("for the graph"));
  EXPECT_EQ(candidate_backtest_timing_payload(timings, Mapping{{"backtest_timing", timing_of(1)}}),
            "for the graph");
  EXPECT_EQ(host.log.lines().back(),
            "timings.validate_graph_backtest_timing_payload(None, {'seconds': 1})");
}

TEST_F(BacktestTiming, EqualityOfTimingsIsTheHostLanguages) {
  const Value nan = std::nan("");
  const auto agree = [&](const Value& left, const Value& right) {
    return error_of([&] {
             return candidate_backtest_timing_payload(
                 timings, Mapping{{"backtest_timing", left},
                                  {"attempt_evidence", Mapping{{"backtest_timing", right}}}});
           }) == "no error";
  };
  EXPECT_TRUE(agree(Mapping{{"a", 1}, {"b", 2}}, Mapping{{"b", 2.0}, {"a", true}}));
  EXPECT_FALSE(agree(Mapping{{"a", 1}}, Mapping{{"a", 1}, {"b", Value()}}));
  EXPECT_FALSE(agree(timing_of("1"), timing_of(1)));
  // A NaN agrees with itself alone.
  EXPECT_FALSE(agree(timing_of(nan), timing_of(Value(std::nan("")))));
  const Mapping shared = timing_of(nan);
  EXPECT_TRUE(agree(shared, shared));
  EXPECT_TRUE(agree(timing_of(nan), timing_of(nan)));
}

}  // namespace
}  // namespace varnholt::genetic::test
