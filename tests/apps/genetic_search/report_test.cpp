// Goal: the end of a run tells its metrics, its best signals, why nothing passed and why it ended.
// Method: hand-made summaries; the table at several widths.
#include "apps/genetic_search/report.hpp"

#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/genetic_search/text_layout.hpp"
#include "tests/apps/genetic_search/samples.hpp"

namespace varnholt::app {
namespace {

using embedded::SearchOptions;
using embedded::SearchSummary;
using embedded::StopCause;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(Report, TellsWhatIsSearched) {
  EXPECT_EQ(started_text(samples::started(), std::nullopt),
            "prices  prices.csv: 4 instruments, 3268 days, 2000-03-01 to 2013-03-01\n"
            "store   runs.db, run 7\n"
            "search  batches of 32, 2 jobs, seed 123\n\n");
}

TEST(Report, WrapsWhatIsSearchedToTheTerminal) {
  EXPECT_EQ(started_text(samples::started(), 40),
            "prices  prices.csv: 4 instruments, 3268\n"
            "        days, 2000-03-01 to 2013-03-01\n"
            "store   runs.db, run 7\n"
            "search  batches of 32, 2 jobs, seed 123\n\n");
}

TEST(Report, ListsTheMetricsRecordInItsOrder) {
  const std::string text = metrics_text(samples::metrics(), std::nullopt);
  EXPECT_THAT(text, AllOf(HasSubstr("  batch_size                  32\n"),
                          HasSubstr("  unique_ratio                0.96\n"),
                          HasSubstr("  terminal_reason             stopped\n"),
                          HasSubstr("seed=123, process_count=2, tie_semantics=score_desc")));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 13);
  EXPECT_LT(text.find("batch_size"), text.find("process_count"));
}

TEST(Report, PutsAWholeSignalOnOneLineWhereThereIsNoTerminal) {
  EXPECT_EQ(best_signals_text(samples::summary().best, std::nullopt),
            "rank     id sharpe  gross return % turnover drawdown % quality  expression\n"
            "   1     17   1.23   1.50     12.3    0.250       33.3    1.32  "
            "arith_add(cross_rank(ts_delta(close, 5)), volume)\n"
            "   2      5   1.23   1.50     12.3    0.250       33.3    0.80  "
            "arith_add(cross_rank(ts_delta(close, 5)), volume)\n");
}

TEST(Report, WrapsTheExpressionBesideTheFigures) {
  EXPECT_EQ(best_signals_text({samples::passing(17, 1.32)}, 100),
            "rank     id sharpe  gross return % turnover drawdown % quality  expression\n"
            "   1     17   1.23   1.50     12.3    0.250       33.3    1.32  "
            "arith_add(cross_rank(ts_delta(close,\n"
            "                                                                5)), volume)\n");
}

TEST(Report, PutsTheExpressionBelowTheFiguresOnANarrowTerminal) {
  EXPECT_EQ(best_signals_text({samples::passing(17, 1.32)}, 80),
            "rank     id sharpe  gross return % turnover drawdown % quality\n"
            "   1     17   1.23   1.50     12.3    0.250       33.3    1.32\n"
            "      arith_add(cross_rank(ts_delta(close, 5)), volume)\n");
}

TEST(Report, FitsTerminalsFromTheWidthOfTheFiguresOn) {
  for (std::size_t width = 62; width < 140; ++width) {
    std::istringstream lines(best_signals_text(samples::summary().best, width));
    for (std::string line; std::getline(lines, line);)
      EXPECT_LE(column_count(line), width) << line;
    std::istringstream metrics(metrics_text(samples::metrics(), width));
    for (std::string line; std::getline(metrics, line);)
      EXPECT_LE(column_count(line), width) << line;
  }
}

TEST(Report, ShowsASignalWithoutStatistics) {
  embedded::CandidateRecorded signal = samples::passing(17, 1.0);
  signal.statistics.reset();
  EXPECT_THAT(best_signals_text({signal}, std::nullopt), HasSubstr("   1     17      -      -  "));
}

TEST(Report, TellsWhyNothingPassedAndWhatToChange) {
  embedded::SearchProgress progress = samples::progress();
  progress.passing = 0;
  SearchOptions options;
  options.gates.min_sharpe = 0.3;
  EXPECT_EQ(nothing_passed_text(progress, options),
            "No signal passed. Why 96 candidates failed, and what lets more of them through:\n"
            "      60  sharpe_min                      lower --min-sharpe below 0.3\n"
            "      20  turnover_max                    raise --max-turnover above 1\n"
            "       4  worker_timeout                  raise --timeout above 60\n");
}

TEST(Report, KnowsTheOptionOfEachGate) {
  SearchOptions options;
  options.gates = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6};
  EXPECT_EQ(mend_for("abs_weight_sum_mean_below_min", options),
            "lower --min-gross-exposure below 0.1");
  EXPECT_EQ(mend_for("turnover_max", options), "raise --max-turnover above 0.2");
  EXPECT_EQ(mend_for("max_weight_max", options), "raise --max-weight above 0.3");
  EXPECT_EQ(mend_for("delta_exposure_max", options), "raise --max-net-exposure above 0.4");
  EXPECT_EQ(mend_for("gross_returns_sharpe_below_min", options),
            "lower --min-gross-sharpe below 0.5");
  EXPECT_EQ(mend_for("sharpe_min", options), "lower --min-sharpe below 0.6");
  EXPECT_THAT(mend_for("worker_timeout", options), HasSubstr("raise --timeout above 60"));
  EXPECT_EQ(mend_for("worker_failed", options), "");
  options.worker_memory_limit_bytes = 1;
  EXPECT_THAT(mend_for("worker_failed", options), HasSubstr("--worker-memory"));
  EXPECT_EQ(mend_for("another", options), "");
}

TEST(Report, ListsAReasonWithoutARemedy) {
  embedded::SearchProgress progress;
  progress.candidates = 1;
  progress.failures = {{"another", 1}};
  EXPECT_THAT(nothing_passed_text(progress, {}),
              AllOf(HasSubstr("Why 1 candidate failed"), HasSubstr("       1  another\n")));
  EXPECT_EQ(nothing_passed_text({}, {}), "No candidate was evaluated.\n");
}

TEST(Report, TellsInWordsWhyTheRunEnded) {
  SearchSummary summary = samples::summary();
  SearchOptions options;
  options.generations = 3;
  options.candidates = 1;
  options.seconds = 1.5;
  EXPECT_EQ(end_in_words(summary, options), "the limit of 3 generations was reached");
  summary.stop_cause = StopCause::Candidates;
  EXPECT_EQ(end_in_words(summary, options), "the limit of 1 candidate was reached");
  summary.stop_cause = StopCause::Seconds;
  EXPECT_EQ(end_in_words(summary, options), "the limit of 1.5 seconds was reached");
  summary.stop_cause = StopCause::Signal;
  EXPECT_EQ(end_in_words(summary, options), "it was stopped by a signal");
  summary.stop_cause = StopCause::None;
  summary.metrics = samples::metrics("duplicate");
  EXPECT_THAT(end_in_words(summary, options), HasSubstr("had been seen before; for more of them"));
  summary.metrics = samples::metrics("fork_unavailable");
  EXPECT_EQ(end_in_words(summary, options), "the search gave the reason fork_unavailable");
}

TEST(Report, EndsWithTheStoreAndTheReason) {
  SearchOptions options;
  options.generations = 3;
  options.database = "my/runs.db";
  const std::string text = summary_text(samples::summary(), options, std::nullopt);
  EXPECT_THAT(text, AllOf(HasSubstr("Metrics\n"), HasSubstr("Best signals (2 of 12 that passed)"),
                          HasSubstr("Everything is stored in my/runs.db, run 7.\n"
                                    "The run ended after 3 generations and 4.0 seconds: the limit "
                                    "of 3 generations was reached.\n")));
  EXPECT_THAT(text, Not(HasSubstr("No signal passed")));
}

TEST(Report, ShowsNoTableWhereNothingPassedOrNoneWasAskedFor) {
  SearchSummary summary = samples::summary();
  summary.best.clear();
  EXPECT_THAT(summary_text(summary, {}, std::nullopt),
              AllOf(Not(HasSubstr("Best signals")), Not(HasSubstr("No signal passed"))));
  summary.progress.passing = 0;
  EXPECT_THAT(summary_text(summary, {}, std::nullopt), HasSubstr("No signal passed"));
}

}  // namespace
}  // namespace varnholt::app
