// The stop event of a search: each limit sets it, it keeps its first cause, and the second
// interrupt leaves at once.
#include "hosts/embedded/host/search_stop.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

class SearchStopTest : public ::testing::Test {
 protected:
  SearchStop stop(const StopLimits& limits) { return {limits, interrupt_}; }

  InterruptFlag interrupt_;
};

TEST_F(SearchStopTest, WithoutALimitItIsNeverSet) {
  SearchStop event = stop({});
  EXPECT_FALSE(event.is_set());
  EXPECT_FALSE(event.wait(0.0));
  EXPECT_EQ(event.cause(), StopCause::None);
}

TEST_F(SearchStopTest, NobodyIsWaitedFor) {
  SearchStop event = stop({});
  EXPECT_FALSE(event.wait(1e6));
  interrupt_.requests = 1;
  EXPECT_TRUE(event.wait(1e6));
}

TEST_F(SearchStopTest, GenerationsAreCountedAsTheyEnd) {
  SearchStop event = stop({.generations = 2});
  event.count_generation();
  EXPECT_FALSE(event.wait(0.0));
  EXPECT_FALSE(event.is_set());
  event.count_generation();
  EXPECT_TRUE(event.wait(1000.0));  // Set, so it does not wait.
  EXPECT_EQ(event.cause(), StopCause::Generations);
  EXPECT_FALSE(event.cancels_evaluations());
}

TEST_F(SearchStopTest, CandidatesAreCountedAsTheyAreRecorded) {
  SearchStop event = stop({.candidates = 2});
  event.count_candidate();
  EXPECT_FALSE(event.is_set());
  event.count_candidate();
  EXPECT_FALSE(event.cancels_evaluations());  // The batch is completed.
  EXPECT_TRUE(event.is_set());
  EXPECT_EQ(event.cause(), StopCause::Candidates);
}

TEST_F(SearchStopTest, TheLimitInSecondsCancelsEvaluations) {
  SearchStop event = stop({.seconds = 1e-9});
  EXPECT_TRUE(event.cancels_evaluations());
  EXPECT_TRUE(event.is_set());
  EXPECT_EQ(event.cause(), StopCause::Seconds);
}

TEST_F(SearchStopTest, BeforeTheRunTheFirstInterruptLeavesAtOnce) {
  EXPECT_NO_THROW(stop({.seconds = 1000.0}).check_before_run());
  EXPECT_THROW(stop({.seconds = 1e-9}).check_before_run(), TimeIsOver);
  interrupt_.requests = 1;
  EXPECT_THROW(stop({.seconds = 1e-9}).check_before_run(), InterruptedAtOnce);
}

TEST_F(SearchStopTest, TheTimeOfTheRunCountsFromItsBeginningAndTheLimitFromBefore) {
  SearchStop event = stop({.seconds = 0.01});
  while (!event.cancels_evaluations()) {
  }
  const double before = event.elapsed_seconds();
  event.begin_run();
  EXPECT_LT(event.elapsed_seconds(), before);
  EXPECT_TRUE(event.cancels_evaluations());
}

TEST_F(SearchStopTest, AReportIsCutShortByAFurtherInterruptOrWhenItsShareOfTheTimeIsOver) {
  const SearchStop event = stop({});
  EXPECT_FALSE(event.ends_report(0));
  // At least a second is left to the report after the search's own time.
  EXPECT_FALSE(stop({.seconds = 1e-9}).ends_report(0));
  interrupt_.requests = 1;
  EXPECT_FALSE(event.ends_report(1)) << "it has stopped the search, and the end is told";
  EXPECT_TRUE(event.ends_report(0));
  interrupt_.requests = 2;
  EXPECT_THROW(static_cast<void>(event.ends_report(1)), InterruptedAtOnce);
}

TEST_F(SearchStopTest, TheFirstCauseStays) {
  SearchStop event = stop({.candidates = 1});
  event.count_candidate();
  EXPECT_TRUE(event.is_set());
  interrupt_.requests = 1;
  EXPECT_TRUE(event.is_set());
  EXPECT_EQ(event.cause(), StopCause::Candidates);
}

TEST_F(SearchStopTest, AnInterruptStopsAndTheSecondLeavesAtOnce) {
  SearchStop event = stop({});
  interrupt_.requests = 1;
  EXPECT_TRUE(event.cancels_evaluations());
  EXPECT_TRUE(event.is_set());
  EXPECT_EQ(event.cause(), StopCause::Signal);
  interrupt_.requests = 2;
  EXPECT_THROW(static_cast<void>(event.is_set()), InterruptedAtOnce);
  EXPECT_TRUE(event.cancels_evaluations()) << "attempts are closed all the same";
  EXPECT_THROW(static_cast<void>(event.wait(0.0)), InterruptedAtOnce);
}

}  // namespace
}  // namespace varnholt::embedded::test
