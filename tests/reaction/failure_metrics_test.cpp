// Goal: the value and the threshold of a failure, in whichever layout it is recorded; the sharpe
// that a result missed; and which results would pass if they were reversed.
//
// Method: a table for each rule, and the scripted host's log for what it is asked.
#include "search_templates/genetic/reaction/failure_metrics.hpp"

#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

// A subclass of the text type.
class HostText : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "HostText"; }
  [[nodiscard]] bool is_instance_of(Kind kind) const override { return kind == Kind::kText; }
  [[nodiscard]] std::string repr() const override { return "host text"; }
};

// An interrupt of the host: no ordinary error.
struct Interrupt {};

std::string shown(const MetricPair& pair) {
  return repr(Tuple{pair.value, pair.threshold});
}

class FailureMetricPair : public testing::Test {
 protected:
  FailureMetricPair() {
    host.json_reader.on_read = [this](const Value& text) -> Value {
      if (const std::optional<Value> value = documents.find(text)) return *value;
      throw ValueError("not JSON");
    };
  }
  std::string pair_of(const Value& failure) {
    host.log.clear();
    return shown(failure_metric_pair(host.json_reader, failure));
  }

  Mapping documents{{"{both}", Mapping{{"value", 3}, {"threshold", 4}}},
                    {"{value}", Mapping{{"value", "3"}}},
                    {"{nested}", Mapping{{"detail", Mapping{{"value", 3}, {"threshold", 4}}}}},
                    {"[3, 4]", List{3, 4}},
                    {"null", Value()},
                    {"5", 5}};
  ScriptedHost host;
};

TEST_F(FailureMetricPair, IsThatOfTheFailureOrElseOfItsDetail) {
  const Value detail = Mapping{{"value", 8}, {"threshold", 9}};
  struct Case {
    Value failure;
    std::string pair;
  };
  const Case cases[] = {
      {Mapping{{"value", 1}, {"threshold", 2}}, "(1, 2)"},
      {Mapping{{"value", 1}, {"threshold", 2}, {"detail", detail}}, "(1, 2)"},
      // One of its own is enough; the other is not looked for in the detail.
      {Mapping{{"threshold", 1.5}, {"detail", detail}}, "(None, 1.5)"},
      {Mapping{{"value", Value()}, {"threshold", 1.5}, {"detail", detail}}, "(None, 1.5)"},
      {Mapping{{"value", 1}, {"threshold", Value()}, {"detail", detail}}, "(1, None)"},
      // Only absence counts, not truth; and nothing is converted.
      {Mapping{{"value", 0}, {"detail", detail}}, "(0, None)"},
      {Mapping{{"threshold", false}, {"detail", detail}}, "(None, False)"},
      {Mapping{{"value", ""}, {"detail", detail}}, "('', None)"},
      {Mapping{{"value", "0.5"}, {"threshold", List{1}}}, "('0.5', [1])"},
      {Mapping{{"detail", detail}}, "(8, 9)"},
      {Mapping{{"value", Value()}, {"threshold", Value()}, {"detail", detail}}, "(8, 9)"},
      {Mapping{{"detail", Mapping{{"threshold", "9"}}}}, "(None, '9')"},
      {Mapping{{"detail", Mapping()}}, "(None, None)"},
      {Mapping{{"detail", make_object<Ledger>(Mapping{{"value", 8}})}}, "(8, None)"},
      {make_object<Ledger>(Mapping{{"value", 1}, {"threshold", 2}}), "(1, 2)"},
      // The detail of a detail does not count.
      {Mapping{{"detail", Mapping{{"detail", detail}}}}, "(None, None)"},
      // Texts that hold the detail.
      {Mapping{{"detail", "{both}"}}, "(3, 4)"},
      {Mapping{{"detail", "{value}"}}, "('3', None)"},
      {Mapping{{"detail", "{nested}"}}, "(None, None)"},
      {Mapping{{"detail", "[3, 4]"}}, "(None, None)"},
      {Mapping{{"detail", "null"}}, "(None, None)"},
      {Mapping{{"detail", "5"}}, "(None, None)"},
      {Mapping{{"detail", "turnover is too high"}}, "(None, None)"},
      {Mapping{{"detail", ""}}, "(None, None)"},
      // Whatever else a detail may be.
      {Mapping{{"detail", List{8, 9}}}, "(None, None)"},
      {Mapping{{"detail", 7}}, "(None, None)"},
      {Mapping{{"detail", scripted_object(Mapping{{"value", 8}})}}, "(None, None)"},
      {Mapping{{"reason", "sharpe_min"}}, "(None, None)"},
      {Mapping(), "(None, None)"},
      // And a failure.
      {Value(), "(None, None)"},
      {"{both}", "(None, None)"},
      {List{1, 2}, "(None, None)"},
      {scripted_object(Mapping{{"value", 1}, {"threshold", 2}}), "(None, None)"},
  };
  for (const Case& test_case : cases) {
    SCOPED_TRACE(repr(test_case.failure));
    EXPECT_EQ(pair_of(test_case.failure), test_case.pair);
    EXPECT_EQ(pair_of(as_host_containers(test_case.failure)), test_case.pair);
  }
}

TEST_F(FailureMetricPair, ReadsATextOnlyWhenItMust) {
  EXPECT_EQ(pair_of(Mapping{{"detail", "{both}"}}), "(3, 4)");
  EXPECT_THAT(host.log.lines(), ElementsAre("json_reader.read('{both}')"));
  for (const Value& failure :
       {Value(Mapping{{"value", 0}, {"detail", "{both}"}}),
        Value(Mapping{{"threshold", 1.5}, {"detail", "{both}"}}), Value(Mapping{{"value", 1}}),
        Value(Mapping{{"detail", Mapping()}}), Value("{both}")}) {
    static_cast<void>(pair_of(failure));
    EXPECT_THAT(host.log.lines(), ElementsAre()) << repr(failure);
  }
}

TEST_F(FailureMetricPair, HandsTheReaderTheTextItself) {
  const Value text = make_object<HostText>();
  host.json_reader.on_read = [&](const Value& given) -> Value {
    EXPECT_TRUE(same_object(given, text));
    return Mapping{{"value", 6}};
  };
  EXPECT_EQ(pair_of(Mapping{{"detail", text}}), "(6, None)");
  EXPECT_EQ(host.log.count("json_reader.read"), 1U);
}

TEST_F(FailureMetricPair, GivesTheValuesThemselves) {
  const Value nan(std::nan(""));
  EXPECT_TRUE(
      same_object(failure_metric_pair(host.json_reader, Mapping{{"value", nan}}).value, nan));
}

TEST_F(FailureMetricPair, EveryOrdinaryFailureOfTheReaderIsNoDetail) {
  const Value failure = Mapping{{"detail", "text"}};
  host.json_reader.on_read = failing(RecursionError("too deep"));
  EXPECT_EQ(pair_of(failure), "(None, None)");
  host.json_reader.on_read = failing(AttributeError("no reader"));
  EXPECT_EQ(pair_of(failure), "(None, None)");
  host.json_reader.on_read = failing(std::bad_alloc());
  EXPECT_EQ(pair_of(failure), "(None, None)");
  host.json_reader.on_read = [](const Value&) -> Value { throw Interrupt(); };
  EXPECT_THROW(static_cast<void>(pair_of(failure)), Interrupt);
}

class ResultMetrics : public testing::Test {
 protected:
  void measured(const Value& metrics) { host.engine.on_stats_gate_metrics = always(metrics); }
  std::string sharpe_pair(const Value& result) {
    return shown(sharpe_reaction_metric_pair(host.engine, host.json_reader, result));
  }

  ScriptedHost host;
};

TEST_F(ResultMetrics, AreThoseOfTheStatisticsOrOfTheResult) {
  const Value metrics = Mapping{{"sharpe", 1}};
  measured(metrics);
  const auto asked_with = [&](const Value& result) {
    host.log.clear();
    EXPECT_TRUE(same_object(stats_gate_metrics_for_result(host.engine, result), metrics));
    EXPECT_EQ(host.log.lines().size(), 1U);
    return host.log.lines().back();
  };
  EXPECT_EQ(asked_with(Mapping{{"stats", "s"}}), "engine.stats_gate_metrics('s')");
  // Only absence counts, not truth.
  EXPECT_EQ(asked_with(Mapping{{"stats", 0}}), "engine.stats_gate_metrics(0)");
  EXPECT_EQ(asked_with(make_object<Ledger>(Mapping{{"stats", "s"}})),
            "engine.stats_gate_metrics('s')");
  EXPECT_EQ(asked_with(Mapping{{"stats", Value()}}), "engine.stats_gate_metrics({'stats': None})");
  EXPECT_EQ(asked_with(Mapping{{"sharpe", 2}}), "engine.stats_gate_metrics({'sharpe': 2})");
  EXPECT_EQ(asked_with("text"), "engine.stats_gate_metrics('text')");
  EXPECT_EQ(asked_with(Value()), "engine.stats_gate_metrics(None)");

  const Mapping whole;
  host.engine.on_stats_gate_metrics = [&](const Value& given) {
    EXPECT_TRUE(same_object(given, whole));
    return Value();
  };
  static_cast<void>(stats_gate_metrics_for_result(host.engine, whole));
  host.engine.on_stats_gate_metrics = failing(KeyError("metric"));
  EXPECT_THROW(static_cast<void>(stats_gate_metrics_for_result(host.engine, whole)), KeyError);
}

Value failure(const Value& value, const Value& threshold) {
  return Mapping{{"value", value}, {"threshold", threshold}};
}

TEST_F(ResultMetrics, OfTheSharpeComeFromRecordThenHostThenFailures) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  struct Case {
    Value sharpe;
    Value measured;
    Value failures;
    std::string pair;
  };
  const Value second = "gross_returns_sharpe_below_min";
  const Case cases[] = {
      {1, 2, Value(), "(1.0, None)"},
      {Value(), 2, Value(), "(2.0, None)"},
      {Value(), Value(), Value(), "(None, None)"},
      {"none", -2.0, Value(), "(-2.0, None)"},
      {"-0.5", -2.0, Value(), "(-0.5, None)"},
      {true, -2.0, Value(), "(1.0, None)"},
      {0, -2.0, Value(), "(0.0, None)"},
      // A NaN is a value.
      {std::nan(""), -2.0, Value(), "(nan, None)"},
      {"nan", -2.0, Value(), "(nan, None)"},
      {Value(), "inf", Value(), "(inf, None)"},
      {to_integer("1" + std::string(400, '0')), -2.0, Value(), "(-2.0, None)"},
      // Failures that are no mapping, or have neither reason.
      {1, 2, List{"sharpe_min"}, "(1.0, None)"},
      {1, 2, "sharpe_min", "(1.0, None)"},
      {1, 2, Mapping{{"turnover_max", failure(5, 6)}}, "(1.0, None)"},
      {1, 2, Mapping{{"sharpe_min", "text"}}, "(1.0, None)"},
      // The first threshold that is a number, in the order of the table.
      {1, 2, Mapping{{"sharpe_min", failure(5, 6)}}, "(1.0, 6.0)"},
      {1, 2, Mapping{{second, failure(5, 7)}}, "(1.0, 7.0)"},
      {1, 2, Mapping{{second, failure(5, 7)}, {"sharpe_min", failure(5, 6)}}, "(1.0, 6.0)"},
      {1, 2, Mapping{{second, failure(5, 7)}, {"sharpe_min", failure(5, Value())}}, "(1.0, 7.0)"},
      {1, 2, Mapping{{second, failure(5, 7)}, {"sharpe_min", failure(5, "high")}}, "(1.0, 7.0)"},
      {1, 2, Mapping{{"sharpe_min", failure(5, "0.5")}}, "(1.0, 0.5)"},
      {1, 2, Mapping{{"sharpe_min", failure(5, false)}}, "(1.0, 0.0)"},
      {1, 2, Mapping{{second, failure(5, 7)}, {"sharpe_min", failure(5, "nan")}}, "(1.0, nan)"},
      {1, 2, Mapping{{"sharpe_min", Mapping{{"detail", failure(5, 6)}}}}, "(1.0, 6.0)"},
      // The value of a failure where there is no other: the first that is one.
      {Value(), Value(), Mapping{{"sharpe_min", failure(5, 6)}}, "(5.0, 6.0)"},
      {Value(), "x", Mapping{{"sharpe_min", failure("-5", Value())}}, "(-5.0, None)"},
      {Value(), Value(), Mapping{{"sharpe_min", failure(4, Value())}, {second, failure(5, 7)}},
       "(4.0, 7.0)"},
      {Value(), Value(), Mapping{{"sharpe_min", failure("x", Value())}, {second, failure(5, 7)}},
       "(5.0, 7.0)"},
      // A failure behind the threshold is not looked at.
      {Value(), Value(), Mapping{{"sharpe_min", failure("x", 6)}, {second, failure(5, 7)}},
       "(None, 6.0)"},
      {Value(), Value(), Mapping{{"sharpe_min", failure(kInfinity, -kInfinity)}}, "(inf, -inf)"},
  };
  for (const Case& test_case : cases) {
    const Value result =
        Mapping{{"sharpe", test_case.sharpe}, {"failures", test_case.failures}, {"stats", "s"}};
    SCOPED_TRACE(repr(result) + " measured " + repr(test_case.measured));
    measured(Mapping{{"sharpe", test_case.measured}});
    EXPECT_EQ(sharpe_pair(result), test_case.pair);
    EXPECT_EQ(sharpe_pair(as_host_containers(result)), test_case.pair);
    EXPECT_EQ(repr(sharpe_reaction_value(host.engine, host.json_reader, result)),
              test_case.pair.substr(1, test_case.pair.find(',') - 1));
  }
}

TEST_F(ResultMetrics, AreAskedForAlsoWhenTheRecordHasASharpe) {
  measured(Mapping());
  EXPECT_EQ(sharpe_pair(Mapping{{"sharpe", 1}, {"stats", "s"}}), "(1.0, None)");
  EXPECT_THAT(host.log.lines(), ElementsAre("engine.stats_gate_metrics('s')"));
  host.engine.on_stats_gate_metrics = failing(RuntimeError("gone"));
  EXPECT_EQ(error_of([&] { return sharpe_pair(Mapping{{"sharpe", 1}}); }), "RuntimeError: gone");
}

TEST_F(ResultMetrics, OfWhatIsNoRecordFailInTheRead) {
  EXPECT_EQ(error_of([&] { return sharpe_pair("text"); }),
            "AttributeError: 'str' object has no attribute 'get'");
  EXPECT_THAT(host.log.lines(), ElementsAre());
  measured(Value());
  EXPECT_EQ(error_of([&] { return sharpe_pair(Mapping()); }),
            "AttributeError: 'NoneType' object has no attribute 'get'");
}

// A result that is not a mapping but has such an operation is read through it, and has no failures.
TEST_F(ResultMetrics, OfAnObjectAreReadThroughItsOwnOperation) {
  class Getter : public HostObject {
   public:
    [[nodiscard]] std::string type_name() const override { return "Getter"; }
    [[nodiscard]] Value get(const Value& key) const override {
      if (key == Value("failures")) return Mapping{{"sharpe_min", failure(5, 6)}};
      return key == Value("sharpe") ? Value(-3) : Value();
    }
  };
  measured(make_object<Getter>());
  EXPECT_EQ(sharpe_pair(make_object<Getter>()), "(-3.0, None)");
  EXPECT_EQ(sharpe_pair(Mapping()), "(-3.0, None)");
}

TEST_F(ResultMetrics, TellWhatWouldPassWhenReversed) {
  struct Case {
    Value value;
    Value threshold;
    bool answer;
  };
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const Case cases[] = {{-1.0, 1.0, true},          {-0.99, 1.0, false},
                        {-1.01, 1.0, true},         {1.5, 1.0, false},
                        {-1.0, -0.5, false},        {-1.0, 0.0, true},
                        {-1.0, -0.0, true},         {0.0, 0.0, false},
                        {-0.0, 0.0, false},         {-kInfinity, kInfinity, true},
                        {-5e-324, 0, true},         {"-2", "1.5", true},
                        {-2, true, true},           {Value(), 1.0, false},
                        {-2.0, Value(), false},     {-2.0, "high", false},
                        {std::nan(""), 1.0, false}, {-2.0, std::nan(""), false}};
  for (const Case& test_case : cases) {
    for (const char* reason : {"sharpe_min", "gross_returns_sharpe_below_min"}) {
      const Value result =
          Mapping{{"failures", Mapping{{reason, failure(test_case.value, test_case.threshold)}}}};
      EXPECT_EQ(is_negative_sharpe_reaction_candidate(host.engine, host.json_reader, result),
                test_case.answer)
          << repr(result);
    }
  }
}

TEST_F(ResultMetrics, AreNotAskedForWithoutASharpeFailure) {
  for (const Value& result :
       {Value(Mapping{{"sharpe", -9}}), Value("text"),
        Value(Mapping{{"sharpe", -9}, {"failures", Mapping{{"turnover_max", failure(-9, 1)}}}})}) {
    EXPECT_FALSE(is_negative_sharpe_reaction_candidate(host.engine, host.json_reader, result));
  }
  EXPECT_THAT(host.log.lines(), ElementsAre());
  // A result that passes may still have one.
  const Value passing = Mapping{
      {"passes", true}, {"sharpe", -9}, {"failures", Mapping{{"sharpe_min", failure(-9, 1)}}}};
  EXPECT_TRUE(is_negative_sharpe_reaction_candidate(host.engine, host.json_reader, passing));
}

}  // namespace
}  // namespace varnholt::genetic::test
