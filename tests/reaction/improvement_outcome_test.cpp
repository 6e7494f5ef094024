// Goal: which reasons end the search, and which exhaust a generation's near misses.
// Method: every reason against every kind of count.
#include "search_templates/genetic/reaction/improvement_outcome.hpp"

#include <gtest/gtest.h>

namespace varnholt::genetic::test {
namespace {

TEST(ImprovementTerminalEndsSearch, ForTheMissingForkAlone) {
  EXPECT_TRUE(improvement_terminal_ends_search("fork_unavailable"));
  for (const char* reason :
       {"duplicate", "stopped", "max_improvement_candidates", "max_improvement_depth",
        "max_improvement_rounds", "no_improvement", "", "Fork_unavailable"}) {
    EXPECT_FALSE(improvement_terminal_ends_search(reason)) << reason;
  }
  EXPECT_FALSE(improvement_terminal_ends_search(Value()));
}

TEST(ImprovementTerminalExhaustsNearMisses, LimitsOnlyAfterSomethingWasImproved) {
  for (const char* reason : {"max_improvement_candidates", "max_improvement_rounds"}) {
    EXPECT_FALSE(improvement_terminal_exhausts_near_misses(reason, 0, 0)) << reason;
    EXPECT_TRUE(improvement_terminal_exhausts_near_misses(reason, 1, 0)) << reason;
    EXPECT_TRUE(improvement_terminal_exhausts_near_misses(reason, 0, 1)) << reason;
    EXPECT_TRUE(improvement_terminal_exhausts_near_misses(reason, 2, 3)) << reason;
    EXPECT_FALSE(improvement_terminal_exhausts_near_misses(reason, -1, -1)) << reason;
  }
}

TEST(ImprovementTerminalExhaustsNearMisses, OtherReasonsWhateverTheCounts) {
  for (const std::int64_t count : {0, 5}) {
    for (const char* reason : {"duplicate", "max_improvement_depth", "no_improvement"})
      EXPECT_TRUE(improvement_terminal_exhausts_near_misses(reason, count, count)) << reason;
    for (const char* reason : {"stopped", "fork_unavailable", "unknown", ""})
      EXPECT_FALSE(improvement_terminal_exhausts_near_misses(reason, count, count)) << reason;
    EXPECT_FALSE(improvement_terminal_exhausts_near_misses(Value(), count, count));
  }
}

}  // namespace
}  // namespace varnholt::genetic::test
