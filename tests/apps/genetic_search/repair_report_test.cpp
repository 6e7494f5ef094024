// Goal: the end of a run tells of each plan how often it was tried, rescued and submitted.
// Method: hand-made counts.
#include "apps/genetic_search/repair_report.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/genetic_search/report.hpp"
#include "tests/apps/genetic_search/samples.hpp"

namespace varnholt::app::test {
namespace {

TEST(RepairReport, PutsWhatRescuedMostFirst) {
  embedded::SearchProgress progress;
  progress.repairs = {{"demean", {40, 2, 0}}, {"rank", {3, 2, 1}}, {"reverse", {31, 28, 4}}};
  EXPECT_EQ(repairs_text(progress),
            "Repairs, and how many of them passed\n"
            "plan     tried  rescued  rate %  submitted\n"
            "reverse     31       28    90.3          4\n"
            "demean      40        2     5.0          0\n"
            "rank         3        2    66.7          1\n"
            "all         74       32    43.2          5\n");
}

TEST(RepairReport, IsEmptyWithoutRepairs) {
  EXPECT_EQ(repairs_text({}), "");
}

TEST(RepairReport, DividesByNothing) {
  embedded::SearchProgress progress;
  progress.repairs = {{"rank", {0, 0, 0}}};
  EXPECT_THAT(repairs_text(progress), testing::HasSubstr("rank      0        0     0.0"));
}

TEST(RepairReport, StandsInTheEndOfARunBetweenTheBestAndThePool) {
  embedded::SearchSummary summary = samples::summary();
  EXPECT_THAT(summary_text(summary, {}, samples::started(), std::nullopt),
              testing::Not(testing::HasSubstr("Repairs,")));
  summary.progress.repairs = {{"reverse", {31, 28, 4}}};
  const std::string text = summary_text(summary, {}, samples::started(), std::nullopt);
  EXPECT_LT(text.find("Best in sample"), text.find("Repairs,"));
  EXPECT_LT(text.find("Repairs,"), text.find("Submitted to the signal pool"));
}

}  // namespace
}  // namespace varnholt::app::test
