// Timings: the normal form, and each field's failures.
// Method: one good timing, spoilt in one field at a time, against the whole message.
#include "hosts/embedded/timing/backtest_timing.hpp"

#include <cmath>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/timing/timing_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::OverflowError;
using genetic::TypeError;
using genetic::Value;
using genetic::ValueError;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

Mapping with(const char* name, const Value& value) {
  Mapping timing = some_timing();
  timing.set(name, value);
  return timing;
}

Mapping without(const char* name) {
  Mapping timing = some_timing();
  timing.erase(name);
  return timing;
}

template <typename Error>
std::string refused(const Value& timing) {
  return refusal<Error>([&timing] { return validate_backtest_timing_payload(timing); });
}

// An integer of many digits, which no field holds.
Value huge(int digits) {
  return genetic::to_integer(
      Value(std::string("1") + std::string(static_cast<size_t>(digits), '0')));
}

TEST(GraphTimingKey, IsADigestOfTheGraph) {
  EXPECT_THAT(graph_timing_key(some_graph()), MatchesRegex("[0-9a-f]+"));
  EXPECT_EQ(graph_timing_key(some_graph()).size(), 64U);
  EXPECT_EQ(graph_timing_key(some_graph()), graph_timing_key(genetic::deep_copy(some_graph())));
  EXPECT_NE(graph_timing_key(some_graph()), graph_timing_key(other_graph()));
  EXPECT_EQ(graph_timing_key(Value()),
            "74234e98afe7498fb5daf1f36ac2d78acc339464f950703b8c019892f982b90b");  // Of "null".
}

TEST(BacktestTiming, IsANewMappingInOrder) {
  const Mapping given{{"process_started", 99},   {"cpu_seconds", 0},
                      {"process_id", 4711},      {"started_at", 1000},
                      {"elapsed_seconds", -0.0}, {"graph_key", graph_timing_key(some_graph())}};
  const Mapping before = genetic::shallow_copy(given);
  const Mapping normal = validate_backtest_timing_payload(given);
  EXPECT_EQ(genetic::repr(normal),
            "{'graph_key': '" + graph_timing_key(some_graph()) +
                "', 'started_at': 1000.0, 'elapsed_seconds': 0.0, 'cpu_seconds': 0.0, "
                "'process_id': 4711, 'process_started': 99}");
  EXPECT_FALSE(genetic::same_object(normal, given));
  EXPECT_EQ(genetic::repr(given), genetic::repr(before));
}

TEST(BacktestTiming, HasOneNormalForm) {
  const Mapping once = validate_backtest_timing_payload(some_timing());
  EXPECT_EQ(genetic::repr(once), genetic::repr(some_timing()));
  EXPECT_EQ(genetic::repr(validate_backtest_timing_payload(once)), genetic::repr(once));
  EXPECT_EQ(genetic::repr(validate_graph_backtest_timing_payload(some_graph(), once)),
            genetic::repr(once));
  EXPECT_EQ(genetic::repr(validate_process_backtest_timing_payload(some_graph(), once)),
            genetic::repr(once));
}

TEST(BacktestTiming, MayBeWithoutProcessIdentity) {
  const Mapping rest = without_process_identity(some_timing());
  EXPECT_EQ(rest.size(), 4U);
  EXPECT_EQ(genetic::repr(validate_graph_backtest_timing_payload(some_graph(), rest)),
            genetic::repr(rest));
  EXPECT_EQ(refusal<ValueError>(
                [&] { return validate_process_backtest_timing_payload(some_graph(), rest); }),
            "backtest timing is missing process_id");
  EXPECT_EQ(refused<ValueError>(without("process_id")), "backtest timing is missing process_id");
  EXPECT_EQ(refused<ValueError>(without("process_started")),
            "backtest timing is missing process_started");
}

TEST(BacktestTiming, IsAMapping) {
  EXPECT_EQ(refused<TypeError>(Value()), "backtest timing must be a mapping, not NoneType");
  EXPECT_EQ(refused<TypeError>("0.5"), "backtest timing must be a mapping, not str");
  EXPECT_EQ(refused<TypeError>(List()), "backtest timing must be a mapping, not list");
}

TEST(BacktestTiming, HasAllItsFieldsAndNoOther) {
  for (const char* const name : {"graph_key", "started_at", "elapsed_seconds", "cpu_seconds"}) {
    EXPECT_EQ(refused<ValueError>(without(name)),
              std::string("backtest timing is missing ") + name);
  }
  EXPECT_EQ(refused<ValueError>(Mapping()), "backtest timing is missing graph_key");
  EXPECT_EQ(refused<ValueError>(with("ended_at", 1.0)), "backtest timing has no field 'ended_at'");
  Mapping numbered = some_timing();
  numbered.set(7, 1.0);
  EXPECT_EQ(refused<ValueError>(numbered), "backtest timing has no field 7");
}

TEST(BacktestTiming, GraphKeyIsADigest) {
  EXPECT_EQ(refused<TypeError>(with("graph_key", 12)),
            "backtest timing graph_key must be a text, not int");
  EXPECT_EQ(refused<TypeError>(with("graph_key", Value())),
            "backtest timing graph_key must be a text, not NoneType");
  EXPECT_EQ(refused<ValueError>(with("graph_key", "abc")),
            "backtest timing graph_key must be 64 lower-case hexadecimal digits, not 'abc'");
  for (const std::string& key :
       {std::string(63, 'a'), std::string(65, 'a'), std::string(64, 'A'), std::string(64, 'g')}) {
    EXPECT_THAT(refused<ValueError>(with("graph_key", key)),
                StartsWith("backtest timing graph_key "));
  }
  EXPECT_THAT(refused<ValueError>(with("graph_key", std::string(100'000, 'a'))),
              HasSubstr("not 'a longer text'"));
}

TEST(BacktestTiming, SecondsAreFiniteAndNotNegative) {
  for (const std::string name : {"started_at", "elapsed_seconds", "cpu_seconds"}) {
    SCOPED_TRACE(name);
    const std::string start = "backtest timing " + name + " must be ";
    const auto spoilt = [&name](const Value& value) { return with(name.c_str(), value); };
    EXPECT_EQ(refused<TypeError>(spoilt("1.0")), start + "a number, not str");
    EXPECT_EQ(refused<TypeError>(spoilt(true)), start + "a number, not bool");
    EXPECT_EQ(refused<TypeError>(spoilt(Value())), start + "a number, not NoneType");
    EXPECT_EQ(refused<ValueError>(spoilt(-0.5)), start + "finite seconds of 0 or more, not -0.5");
    EXPECT_EQ(refused<ValueError>(spoilt(kNan)), start + "finite seconds of 0 or more, not nan");
    EXPECT_EQ(refused<ValueError>(spoilt(kInfinity)),
              start + "finite seconds of 0 or more, not inf");
    EXPECT_THAT(refused<OverflowError>(spoilt(huge(400))),
                StartsWith("backtest timing " + name + " is too large: "));
    EXPECT_EQ(validate_backtest_timing_payload(spoilt(huge(20))).at(name).real(), 1e20);
    EXPECT_EQ(validate_backtest_timing_payload(spoilt(0)).at(name).real(), 0.0);
  }
}

TEST(BacktestTiming, ProcessNumbersAreIntegers) {
  for (const std::string name : {"process_id", "process_started"}) {
    SCOPED_TRACE(name);
    const auto spoilt = [&name](const Value& value) { return with(name.c_str(), value); };
    EXPECT_EQ(refused<TypeError>(spoilt(1.0)),
              "backtest timing " + name + " must be an integer, not float");
    EXPECT_EQ(refused<TypeError>(spoilt(true)),
              "backtest timing " + name + " must be an integer, not bool");
    EXPECT_EQ(refused<TypeError>(spoilt(Value())),
              "backtest timing " + name + " must be an integer, not NoneType");
    EXPECT_EQ(refused<OverflowError>(spoilt(huge(30))),
              "backtest timing " + name + " does not fit into 64 bits");
  }
  EXPECT_EQ(refused<ValueError>(with("process_id", 0)),
            "backtest timing process_id must be 1 or more, not 0");
  EXPECT_EQ(refused<ValueError>(with("process_started", -1)),
            "backtest timing process_started must be 0 or more, not -1");
  EXPECT_EQ(refused<ValueError>(with("process_started", 0)), "accepted");
}

TEST(BacktestTiming, OfAnotherGraphIsRefused) {
  for (const bool with_process : {false, true}) {
    const std::string text = refusal<ValueError>([with_process] {
      return with_process ? validate_process_backtest_timing_payload(other_graph(), some_timing())
                          : validate_graph_backtest_timing_payload(other_graph(), some_timing());
    });
    EXPECT_EQ(text, "backtest timing graph_key " + graph_timing_key(some_graph()) +
                        " is of another graph; the graph's is " + graph_timing_key(other_graph()));
  }
}

TEST(BacktestTiming, IsCheckedBeforeItsGraph) {
  EXPECT_EQ(refusal<TypeError>(
                [] { return validate_graph_backtest_timing_payload(other_graph(), Value()); }),
            "backtest timing must be a mapping, not NoneType");
  EXPECT_EQ(refusal<ValueError>([] {
              return validate_process_backtest_timing_payload(other_graph(),
                                                              with("cpu_seconds", -1));
            }),
            "backtest timing cpu_seconds must be finite seconds of 0 or more, not -1");
}

}  // namespace
}  // namespace varnholt::embedded::test
