// Goal: a run tells what it submitted, beside the market, on the days seen and on those held out.
// Method: hand-made summaries, the whole text compared.
#include "apps/genetic_search/pool_report.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/apps/genetic_search/samples.hpp"

namespace varnholt::app::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(PoolReport, PutsEachSignalBesideTheMarket) {
  EXPECT_EQ(
      pool_text(samples::summary(), samples::started(), std::nullopt),
      "Submitted to the signal pool \"signals\": 2 signals, beside the market, by Sharpe ratio\n"
      "    id  in sample  hold-out  novelty  correlation  expression\n"
      "  7-17       1.23      0.40     0.75         0.12  cross_rank(ts_delta(close, 5))\n"
      "   7-5       0.80     -0.25     0.75         0.12  cross_rank(ts_delta(close, 5))\n"
      "market       0.51      0.62        -            -  the same weight in every instrument, "
      "long "
      "only\n"
      "In sample are the 2451 days from 2000-03-01 to 2009-11-27, which the search saw; hold-out "
      "are the 817 days from 2009-11-30 to 2013-03-01, which it never saw.\n"
      "Submissions: 2 submitted, 5 refused (correlation_exceeded 4, pnl_mi_below_threshold 1), 1 "
      "waiting.\n"
      "More of one: genetic-search show runs.db 7-17\n");
}

TEST(PoolReport, TellsTheMarketWhereNothingWasSubmitted) {
  embedded::SearchSummary summary = samples::summary();
  summary.submitted.clear();
  summary.submissions = {};
  const std::string text = pool_text(summary, samples::started(), std::nullopt);
  EXPECT_THAT(text,
              HasSubstr("No signal was submitted to the signal pool \"signals\". The market"));
  EXPECT_THAT(text, HasSubstr("\nmarket       0.51      0.62  "));
  EXPECT_THAT(text, HasSubstr("\nSubmissions: 0 submitted, 0 refused, 0 waiting.\n"));
  EXPECT_THAT(text, Not(HasSubstr("More of one")));
}

TEST(PoolReport, ListsTheTenBestAndSaysWhereTheRestIs) {
  embedded::SearchSummary summary = samples::summary();
  const embedded::SubmittedSignal one = summary.submitted.front();
  summary.submitted.clear();
  for (int i = 1; i <= 12; ++i) {
    summary.submitted.push_back(one);
    summary.submitted.back().eval_id = "7-" + std::to_string(i);
    summary.submitted.back().statistics.in_sample.sharpe = i;
  }
  const std::string text = pool_text(summary, samples::started(), std::nullopt);
  EXPECT_THAT(text, HasSubstr(": 12 signals, beside the market"));
  EXPECT_LT(text.find("  7-12 "), text.find("  7-11 "));
  EXPECT_THAT(text, HasSubstr("   7-3 "));
  EXPECT_THAT(text, Not(HasSubstr("   7-2 ")));
  EXPECT_THAT(text,
              HasSubstr("These are the best 10 in sample. All of them: genetic-search signals "
                        "runs.db --run 7 --sort sharpe\n"));
  EXPECT_THAT(text, HasSubstr("More of one: genetic-search show runs.db 7-12\n"));
}

TEST(PoolReport, NamesTheLeftOversOfEarlierRuns) {
  embedded::SearchSummary summary = samples::summary();
  summary.submissions.of_earlier_runs = 1;
  EXPECT_THAT(pool_text(summary, samples::started(), std::nullopt),
              HasSubstr(" 1 waiting, left-overs of earlier runs among them.\n"));
}

TEST(PoolReport, CountsTheMembersThatBetterOnesHaveReplaced) {
  embedded::SearchSummary summary = samples::summary();
  summary.submissions.replaced = 1;
  EXPECT_THAT(pool_text(summary, samples::started(), std::nullopt),
              HasSubstr(" 1 waiting; 1 signal left the pool for a better one.\n"));
}

TEST(PoolReport, KeepsControlCharactersOffTheTerminal) {
  embedded::SearchStarted started = samples::started();
  started.signal_pool_name = "a\x1b[2J";
  embedded::SearchSummary summary = samples::summary();
  summary.submitted.front().expression = "x\ny";
  const std::string text = pool_text(summary, started, std::nullopt);
  EXPECT_EQ(text.find('\x1b'), std::string::npos);
  EXPECT_THAT(text, HasSubstr("x?y"));
}

}  // namespace
}  // namespace varnholt::app::test
