// What people and machines are told of luck: the sentence for each case, and the members.
#include "apps/genetic_search/luck_text.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/genetic_search/json_events.hpp"

namespace varnholt::app {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

embedded::RunLuck luck() {
  embedded::RunLuck luck;
  luck.spread.trials = 19'167;
  luck.spread.independent = 15'000.5;
  luck.expected_maximum_sharpe = 1.2949;
  luck.best = embedded::JudgedSignal{"1-369", 1.05, 0.125, -0.5, 0.25};
  luck.deflated_sharpe = 0.25;
  luck.confidence = 0.5;
  return luck;
}

TEST(LuckText, SaysItInOneSentence) {
  EXPECT_EQ(
      luck_text(luck(), std::nullopt),
      "19,167 expressions were tried; the best of so many would reach a Sharpe ratio of about "
      "1.29 by chance; the best here, 1-369, has 1.05, and 0.12 on the hold-out: nothing "
      "found that luck does not explain.\n");
  embedded::RunLuck skill = luck();
  skill.confidence = 0.9876;
  skill.better_than_luck = true;
  EXPECT_THAT(luck_text(skill, std::nullopt),
              HasSubstr(": better than luck, with a confidence of 0.988.\n"));
}

TEST(LuckText, SaysWhereThereIsNothingToJudge) {
  embedded::RunLuck none = luck();
  none.best.reset();
  none.spread.trials = 1;
  EXPECT_EQ(luck_text(none, std::nullopt),
            "1 expression was tried; the best of so many would reach a Sharpe ratio of about 1.29 "
            "by chance; no signal was submitted that could be held against it.\n");
  none.spread.trials = 0;
  EXPECT_EQ(luck_text(none, std::nullopt), "");
}

TEST(LuckText, SetsTheSamplesSideBySide) {
  embedded::RunLuck told = luck();
  told.signals = 3;
  told.mean_in_sample_sharpe = 0.75;
  told.mean_holdout_sharpe = -0.25;
  EXPECT_THAT(luck_text(told, std::nullopt),
              HasSubstr("\nThe submitted signals have a mean Sharpe ratio of 0.75 in sample and of "
                        "-0.25 on the hold-out.\n"));
  EXPECT_THAT(luck_text(told, std::nullopt), Not(HasSubstr("halve")));
  told.sample_correlation = 0.5;
  told.overfitting_probability = 0.456;
  EXPECT_THAT(luck_text(told, std::nullopt),
              HasSubstr("on the hold-out; the correlation of the two is 0.50.\n"));
  EXPECT_THAT(luck_text(told, std::nullopt), HasSubstr(" in 46 % of the ways to halve them.\n"));
}

TEST(LuckText, MachinesHaveAllMembers) {
  EXPECT_EQ(luck_json(luck()).dump(),
            R"({"trials":19167,"independent_trials":15000.5,"sampled_trials":0,)"
            R"("expected_maximum_sharpe":1.2949,"better_than_luck":false,"best":)"
            R"({"eval_id":"1-369","in_sample_sharpe":1.05,"holdout_sharpe":0.125,)"
            R"("deflated_sharpe":0.25,"confidence":0.5},"overfitting_probability":null,)"
            R"("signals":0,"mean_in_sample_sharpe":0.0,"mean_holdout_sharpe":0.0,)"
            R"("sample_correlation":null})");
  embedded::RunLuck none = luck();
  none.best.reset();
  EXPECT_EQ(luck_json(none)["best"], nullptr);
}

}  // namespace
}  // namespace varnholt::app
