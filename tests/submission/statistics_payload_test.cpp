// Goal: a submission carries the statistics that the host makes, that very mapping, or else those
// that stand in the attributes of the candidate's statistics.
//
// Method: tables over what the host's operation gives and over the attributes; the reads stand in
// the scripted host's log.
#include "search_templates/genetic/submission/statistics_payload.hpp"

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

const char* const kZeros =
    "{'sharpe': 0.0, 'annualized_returns': 0.0, 'turnover': 0.0, 'drawdown': 0.0, "
    "'quality_score': 0.0}";

// An interrupt of the host: no ordinary error.
struct Interrupt {};

// An object of a subclass of the mapping type that is false, although it is one.
class EmptyLedger : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "EmptyLedger"; }
  [[nodiscard]] bool truth() const override { return false; }
  [[nodiscard]] std::optional<Mapping> as_mapping() const override { return Mapping(); }
};

class StatisticsPayload : public testing::Test {
 protected:
  void build(ScriptedCallable::Function answer) {
    host.engine.on_find_submitted_stats_payload_from_backtest =
        always(scripted_callable(host.log, "build", std::move(answer)));
  }
  Value payload_of(const Mapping& candidate) {
    host.log.clear();
    return candidate_stats_payload(host.engine, host.context, candidate);
  }
  // The payload of a candidate whose statistics have these attributes.
  std::string plain(Mapping attributes) {
    return repr(payload_of({{"stats", scripted_object(std::move(attributes))}}));
  }

  ScriptedHost host;
};

TEST_F(StatisticsPayload, IsTheHostsMappingItself) {
  host.context.on_attribute = [](std::string_view name) -> std::optional<Value> {
    return name == "era_config" ? std::optional<Value>("era") : std::nullopt;
  };
  for (const Value& made :
       {Value(Mapping{{"sharpe", "any"}}), Value(Mapping()), as_host_containers(Mapping{{"k", 1}}),
        Value(make_object<EmptyLedger>())}) {
    build(always(Value(Tuple{made, "the reason is ignored"})));
    EXPECT_TRUE(same_object(payload_of({{"stats", "s"}}), made)) << repr(made);
    EXPECT_THAT(host.log.lines(),
                ElementsAre("engine.find_submitted_stats_payload_from_backtest",
                            "context.attribute('_era_config')", "context.attribute('era_config')",
                            "build('s', 'era')"));
    build(always(Value(List{made, Value()})));
    EXPECT_TRUE(same_object(payload_of(Mapping()), made));
    EXPECT_EQ(host.log.lines().back(), "build(None, 'era')");
  }
}

TEST_F(StatisticsPayload, IsThePlainOneWhereTheHostMakesNone) {
  for (const Value& made :
       {Value(Tuple{Value(), "reason"}), Value(Tuple{List(), 1}), Value(Tuple{"text", 1}),
        // What cannot be unpacked counts as none.
        Value(), Value(5), Value(Tuple{Mapping()}), Value(Tuple{Mapping(), 1, 2}),
        Value(Mapping{{"sharpe", 1}})}) {
    build(always(made));
    EXPECT_EQ(repr(payload_of(Mapping())), kZeros) << repr(made);
    EXPECT_EQ(host.log.count("build"), 1U);
  }
  host.engine.on_find_submitted_stats_payload_from_backtest = always(Callable());
  EXPECT_EQ(repr(payload_of(Mapping())), kZeros);
  EXPECT_THAT(host.log.lines(), ElementsAre("engine.find_submitted_stats_payload_from_backtest"));
}

TEST_F(StatisticsPayload, OrdinaryFailuresOfTheHostLeadToThePlainOne) {
  build([](auto, const auto&) -> Value { throw KeyError("no matrix"); });
  EXPECT_EQ(repr(payload_of(Mapping())), kZeros);
  build([](auto, const auto&) -> Value { throw std::out_of_range("gone"); });
  EXPECT_EQ(repr(payload_of(Mapping())), kZeros);
  build([](auto, const auto&) -> Value { throw Interrupt(); });
  EXPECT_THROW(static_cast<void>(payload_of(Mapping())), Interrupt);
  // The read of the configuration is guarded too.
  build(always(Value(Tuple{Mapping(), 1})));
  host.context.on_attribute = failing(ValueError("broken property"));
  EXPECT_EQ(repr(payload_of(Mapping())), kZeros);
  EXPECT_EQ(host.log.count("build"), 0U);
  host.context.on_attribute = [](std::string_view) -> std::optional<Value> { throw Interrupt(); };
  EXPECT_THROW(static_cast<void>(payload_of(Mapping())), Interrupt);
  // The look-up of the operation is not.
  host.engine.on_find_submitted_stats_payload_from_backtest = failing(KeyError("no engine"));
  EXPECT_THROW(static_cast<void>(payload_of(Mapping())), KeyError);
}

TEST_F(StatisticsPayload, ReadsTheAttributesInTheirOrder) {
  static_cast<void>(payload_of({{"stats", scripted_object(Mapping(), &host.log, "stats")}}));
  // The quality score's fallback is read first.
  EXPECT_THAT(host.log.lines(),
              ElementsAre("engine.find_submitted_stats_payload_from_backtest", "stats.sharpe",
                          "stats.annualized_returns", "stats.turnover", "stats.drawdown",
                          "stats.sharpe", "stats.quality_score", "stats.correlation"));
}

TEST_F(StatisticsPayload, HoldsTheAttributesAsReals) {
  EXPECT_EQ(plain({{"sharpe", 1},
                   {"annualized_returns", "0.5"},
                   {"turnover", true},
                   {"drawdown", to_integer("100000000000000000000")},
                   {"quality_score", -0.0},
                   {"correlation", "0.25"},
                   {"other", 9}}),
            "{'sharpe': 1.0, 'annualized_returns': 0.5, 'turnover': 1.0, 'drawdown': 1e+20, "
            "'quality_score': -0.0, 'correlation': 0.25}");
  // Nothing is asked of their finiteness, but of the correlation's.
  EXPECT_EQ(plain({{"sharpe", "nan"}, {"turnover", "inf"}}),
            "{'sharpe': nan, 'annualized_returns': 0.0, 'turnover': inf, 'drawdown': 0.0, "
            "'quality_score': nan}");
}

TEST_F(StatisticsPayload, TakesTheSharpeForAMissingQuality) {
  EXPECT_EQ(plain({{"sharpe", 1.5}}),
            "{'sharpe': 1.5, 'annualized_returns': 0.0, 'turnover': 0.0, 'drawdown': 0.0, "
            "'quality_score': 1.5}");
  EXPECT_EQ(plain({{"sharpe", 1.5}, {"quality_score", 0}}),
            "{'sharpe': 1.5, 'annualized_returns': 0.0, 'turnover': 0.0, 'drawdown': 0.0, "
            "'quality_score': 0.0}");
  EXPECT_EQ(plain({{"quality_score", 2}}),
            "{'sharpe': 0.0, 'annualized_returns': 0.0, 'turnover': 0.0, 'drawdown': 0.0, "
            "'quality_score': 2.0}");
}

TEST_F(StatisticsPayload, LeavesAnAbsentCorrelationOut) {
  EXPECT_EQ(plain({{"correlation", Value()}}), kZeros);
  EXPECT_EQ(
      plain({{"correlation", 0}}),
      std::string(kZeros).substr(0, std::string(kZeros).size() - 1) + ", 'correlation': 0.0}");
}

TEST_F(StatisticsPayload, OfStatisticsWithoutAttributesIsAllZeros) {
  // The entries of a mapping are no attributes.
  for (const Value& stats : {Value(), Value(5), Value("text"), Value(Mapping{{"sharpe", 1}}),
                             Value(scripted_object(Mapping()))}) {
    EXPECT_EQ(repr(payload_of({{"stats", stats}})), kZeros) << repr(stats);
  }
  EXPECT_EQ(repr(payload_of(as_host_containers(Mapping{{"graph", 1}}).mapping())), kZeros);
  // A new mapping each time.
  const Mapping candidate;
  EXPECT_FALSE(same_object(payload_of(candidate), payload_of(candidate)));
}

TEST_F(StatisticsPayload, DoesNotTolerateWhatIsNoNumber) {
  for (const char* name :
       {"sharpe", "annualized_returns", "turnover", "drawdown", "quality_score"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(error_of([&] {
                return plain({{name, "high"}});
              }),
              "ValueError: could not convert string to float: 'high'");
    // An absent attribute is not a missing one.
    EXPECT_EQ(error_of([&] {
                return plain({{name, Value()}});
              }),
              "TypeError: float() argument must be a string or a real number, not 'NoneType'");
    EXPECT_EQ(error_of([&] {
                return plain({{name, to_integer("1" + std::string(400, '0'))}});
              }),
              "OverflowError: int too large to convert to float");
  }
  for (const Value& correlation :
       {Value("high"), Value(std::nan("")), Value(std::numeric_limits<double>::infinity()),
        Value(List()), to_integer("1" + std::string(400, '0'))}) {
    EXPECT_EQ(error_of([&] {
                return plain({{"correlation", correlation}});
              }),
              "ValueError: candidate correlation must be a finite number or None")
        << repr(correlation);
  }
}

TEST_F(StatisticsPayload, LetsAFailingAttributePass) {
  class Broken : public HostObject {
   public:
    [[nodiscard]] std::string type_name() const override { return "Broken"; }
    [[nodiscard]] std::optional<Value> attribute(std::string_view /*name*/) const override {
      throw RuntimeError("broken property");
    }
  };
  EXPECT_EQ(error_of([&] {
              return payload_of({{"stats", make_object<Broken>()}});
            }),
            "RuntimeError: broken property");
}

}  // namespace
}  // namespace varnholt::genetic::test
