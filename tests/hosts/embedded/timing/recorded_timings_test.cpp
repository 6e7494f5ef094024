// Recorded timings: one for a graph, given out once, and only as this process measured it.
// Method: small sequences of record and consume; a random sequence against a plain list.
#include "hosts/embedded/timing/recorded_timings.hpp"

#include <map>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/timing/timing_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Mapping;
using genetic::TypeError;
using genetic::Value;
using genetic::ValueError;
using ::testing::HasSubstr;

Mapping slower_timing() {
  Mapping timing = some_timing();
  timing.set("elapsed_seconds", 0.5);
  return timing;
}

class Recorded : public ::testing::Test {
 protected:
  Recorded() : timings_(some_process()) { timings_.record(some_graph(), some_timing()); }

  RecordedTimings timings_;
};

TEST_F(Recorded, IsGivenOutOnce) {
  EXPECT_TRUE(timings_.consume(some_graph(), true) == Value(some_timing()));
  EXPECT_TRUE(timings_.consume(some_graph(), true).is_absent());
  EXPECT_EQ(timings_.size(), 0U);
}

TEST_F(Recorded, IsOfItsGraphAlone) {
  EXPECT_TRUE(timings_.consume(other_graph(), true).is_absent());
  EXPECT_EQ(timings_.size(), 1U);
}

TEST_F(Recorded, ComesWithoutIdentityWhereNoneIsAskedFor) {
  EXPECT_TRUE(timings_.consume(some_graph(), false) ==
              Value(without_process_identity(some_timing())));
  EXPECT_EQ(timings_.size(), 0U);
}

TEST_F(Recorded, IsReplacedByALaterOne) {
  timings_.record(some_graph(), slower_timing());
  EXPECT_EQ(timings_.size(), 1U);
  EXPECT_TRUE(timings_.consume(some_graph(), true) == Value(slower_timing()));
}

TEST_F(Recorded, IsKeptAsItWasMeasured) {
  Mapping timing = some_timing();
  timings_.record(some_graph(), timing);
  timing.set("elapsed_seconds", "spoilt");
  EXPECT_TRUE(timings_.consume(some_graph(), true) == Value(some_timing()));
}

TEST_F(Recorded, EqualToTheGivenOneIsConsumed) {
  EXPECT_TRUE(timings_.consume(some_graph(), some_timing(), true) == Value(some_timing()));
  EXPECT_EQ(timings_.size(), 0U);
}

TEST_F(Recorded, IsWholeWhereTheGivenOneHasNoIdentity) {
  const Value given = without_process_identity(some_timing());
  EXPECT_TRUE(timings_.consume(some_graph(), given, true) == Value(some_timing()));
}

TEST_F(Recorded, LosesItsIdentityWhereNoneIsAskedForThoughOneIsGiven) {
  EXPECT_TRUE(timings_.consume(some_graph(), some_timing(), false) ==
              Value(without_process_identity(some_timing())));
}

TEST_F(Recorded, DisagreeingWithTheGivenOneStays) {
  EXPECT_THAT(
      refusal<ValueError>([&] { return timings_.consume(some_graph(), slower_timing(), true); }),
      HasSubstr("disagrees with the one that was recorded, {'graph_key': "));
  Mapping of_another_process = some_timing();
  of_another_process.set("process_id", 4712);
  EXPECT_THAT(refusal<ValueError>(
                  [&] { return timings_.consume(some_graph(), of_another_process, false); }),
              HasSubstr("disagrees"));
  EXPECT_EQ(timings_.size(), 1U);
}

TEST_F(Recorded, NoneIsGivenByAnAbsentOne) {
  EXPECT_TRUE(timings_.consume(some_graph(), Value(), true) == Value(some_timing()));
  EXPECT_TRUE(timings_.consume(some_graph(), Value(), true).is_absent());
}

TEST_F(Recorded, AGivenOneIsCheckedAlsoWhereNoneIsRecorded) {
  const Value graph = other_graph();
  EXPECT_EQ(refusal<TypeError>([&] { return timings_.consume(graph, 1.0, true); }),
            "backtest timing must be a mapping, not float");
  EXPECT_THAT(refusal<ValueError>([&] { return timings_.consume(graph, some_timing(), true); }),
              HasSubstr("is of another graph"));
  Mapping timing = some_timing();
  timing.set("graph_key", graph_timing_key(graph));
  timing.set("started_at", 1000);
  const Value taken = timings_.consume(graph, timing, true);
  EXPECT_TRUE(taken.mapping().at("started_at").is_real());
  EXPECT_FALSE(genetic::same_object(taken, timing));
  EXPECT_TRUE(timings_.consume(graph, timing, false) ==
              Value(without_process_identity(validate_backtest_timing_payload(timing))));
  EXPECT_EQ(timings_.size(), 1U);
}

TEST_F(Recorded, MustBeMeasuredInThisProcess) {
  Mapping timing = some_timing();
  timing.set("process_id", 4712);
  EXPECT_EQ(refusal<ValueError>([&] {
              timings_.record(some_graph(), timing);
              return 0;
            }),
            "backtest timing was measured in process 4712 (started 99), but this is process 4711 "
            "(started 99); record it where it was measured");
  timing = some_timing();
  timing.set("process_started", 98);
  EXPECT_THROW(timings_.record(some_graph(), timing), ValueError);
  EXPECT_THROW(timings_.record(some_graph(), without_process_identity(some_timing())), ValueError);
  EXPECT_THROW(timings_.record(other_graph(), some_timing()), ValueError);
  EXPECT_TRUE(timings_.consume(some_graph(), true) == Value(some_timing()));
}

TEST_F(Recorded, OfTheParentAreForgottenInAChild) {
  ProcessIdentity child = some_process();
  child.pid = 4712;
  timings_.enter_process(child);
  EXPECT_TRUE(timings_.consume(some_graph(), true).is_absent());
  EXPECT_THROW(timings_.record(some_graph(), some_timing()), ValueError);
  Mapping timing = some_timing();
  timing.set("process_id", 4712);
  timings_.record(some_graph(), timing);
  EXPECT_TRUE(timings_.consume(some_graph(), true) == Value(timing));
}

TEST(RecordedTimings, BehaveAsAListOfTheLastOfEachGraph) {
  std::mt19937_64 engine(31);
  SCOPED_TRACE("seed 31");
  RecordedTimings timings(some_process());
  std::map<int, Mapping> expected;
  for (int step = 0; step < 400; ++step) {
    const int number = static_cast<int>(engine() % 5);
    const Value graph = feature("f" + std::to_string(number));
    if (engine() % 2 == 0) {
      Mapping timing = some_timing();
      timing.set("graph_key", graph_timing_key(graph));
      timing.set("elapsed_seconds", static_cast<double>(step));
      timings.record(graph, timing);
      expected.insert_or_assign(number, timing);
    } else {
      const auto found = expected.find(number);
      const Value timing = timings.consume(graph, true);
      ASSERT_EQ(timing.is_absent(), found == expected.end());
      if (found == expected.end()) continue;
      ASSERT_TRUE(timing == Value(found->second));
      expected.erase(found);
    }
    ASSERT_EQ(timings.size(), expected.size());
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
