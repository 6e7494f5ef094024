// Goal: the end of a run tells its metrics, its best signals, why nothing passed and why it ended.
// Method: hand-made summaries; the table at several widths.
#include "apps/genetic_search/report.hpp"

#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/genetic_search/text_layout.hpp"
#include "tests/apps/genetic_search/samples.hpp"

namespace varnholt::app::test {
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
            "days    in sample 2451, to 2009-11-27; hold-out 817, from 2009-11-30\n"
            "book    traded at the close of the signal, not neutralized, costs 5 basis points, "
            "delisting return 0, windows 100 % known, 252 periods a year as the dates tell\n"
            "store   runs.db, run 7\n"
            "pool    \"signals\", market 1, era 3\n"
            "search  batches of 32, 2 jobs, seed 123\n\n");
}

TEST(Report, TellsThatTheSplitIsKept) {
  embedded::SearchStarted started = samples::started();
  started.split_is_kept = true;
  EXPECT_THAT(started_text(started, std::nullopt),
              HasSubstr("hold-out 817, from 2009-11-30, as the signal pool keeps it\n"));
}

TEST(Report, TellsWhatWasMeasuredOnThePricesOfTheRun) {
  EXPECT_EQ(measuring_text({.members = 40, .done = 12}),
            "measuring the signals of the pool on these prices: 12/40");
  EXPECT_EQ(measured_text({.members = 40, .done = 40}, std::nullopt),
            "40 signals of the signal pool are from other prices or rules: 40 measured anew on "
            "these\n");
  EXPECT_EQ(measured_text({.members = 1, .done = 1, .failed = 1}, std::nullopt),
            "1 signal of the signal pool is from other prices or rules: 0 measured anew on these, "
            "1 cannot be\n");
  EXPECT_EQ(measured_text({.members = 40, .done = 12, .failed = 2}, std::nullopt),
            "40 signals of the signal pool are from other prices or rules: 10 measured anew on "
            "these, 2 cannot be, 28 left for the next run\n");
}

TEST(Report, WrapsWhatIsSearchedToTheTerminal) {
  EXPECT_EQ(started_text(samples::started(), 40),
            "prices  prices.csv: 4 instruments, 3268\n"
            "        days, 2000-03-01 to 2013-03-01\n"
            "days    in sample 2451, to 2009-11-27;\n"
            "        hold-out 817, from 2009-11-30\n"
            "book    traded at the close of the\n"
            "        signal, not neutralized, costs 5\n"
            "        basis points, delisting return\n"
            "        0, windows 100 % known, 252\n"
            "        periods a year as the dates tell\n"
            "store   runs.db, run 7\n"
            "pool    \"signals\", market 1, era 3\n"
            "search  batches of 32, 2 jobs, seed 123\n\n");
}

TEST(Report, TellsHowSignalsAreTraded) {
  EXPECT_EQ(book_text({.cost_basis_points = 2.5,
                       .delay_days = 1,
                       .delisting_return = -0.3,
                       .least_known_share = 0.8,
                       .periods_per_year = 365,
                       .neutralize = "market"},
                      false),
            "traded 1 day after the close of the signal, neutralized across the market, costs 2.5 "
            "basis points, delisting return -0.3, windows 80 % known, 365 periods a year");
}

TEST(Report, TellsTheGroupThatIsNeutralized) {
  EXPECT_THAT(book_text({.neutralize = "sector"}, false),
              HasSubstr(", neutralized within each sector, "));
}

TEST(Report, TellsWhatOneInstrumentLeavesOut) {
  embedded::SearchStarted started = samples::started();
  started.instruments = 1;
  EXPECT_THAT(started_text(started, std::nullopt),
              HasSubstr("note    there is one instrument: fresh expressions have no functions "
                        "across instruments\n"));
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

TEST(Report, HasARowForEachOfTheBest) {
  EXPECT_EQ(best_signals_text(samples::summary().best, std::nullopt),
            "  id  sharpe  gross  return %  turnover  drawdown %  quality  expression\n"
            "7-17    1.23   1.50      12.3     0.250        33.3     1.32  "
            "arith_add(cross_rank(ts_delta(close, 5)), volume)\n"
            " 7-5    1.23   1.50      12.3     0.250        33.3     0.80  "
            "arith_add(cross_rank(ts_delta(close, 5)), volume)\n");
}

TEST(Report, FitsTerminalsFromTheWidthOfTheFiguresOn) {
  for (std::size_t width = 62; width < 140; ++width) {
    std::istringstream lines(summary_text(samples::summary(), {}, samples::started(), width));
    for (std::string line; std::getline(lines, line);)
      EXPECT_LE(column_count(line), width) << line;
  }
}

TEST(Report, ShowsASignalWithoutStatistics) {
  embedded::CandidateRecorded signal = samples::passing(17, 1.0);
  signal.statistics.reset();
  EXPECT_THAT(best_signals_text({signal}, std::nullopt), HasSubstr("\n7-17       -      -  "));
}

TEST(Report, TellsWhyNothingPassedAndWhatToChange) {
  embedded::SearchProgress progress = samples::progress();
  progress.passing = 0;
  SearchOptions options;
  options.config.gates.min_sharpe = 0.3;
  EXPECT_EQ(nothing_passed_text(progress, options),
            "No signal passed. Why 96 candidates failed, and what lets more of them through:\n"
            "      60  sharpe_min                      lower --min-sharpe below 0.3\n"
            "      20  turnover_max                    raise --max-turnover above 1.5\n"
            "       4  worker_timeout                  raise --timeout above 60\n");
}

TEST(Report, TellsHowNearTheBestCameToEachGate) {
  embedded::SearchProgress progress = samples::progress();
  progress.passing = 0;
  progress.nearest_misses = {{"sharpe_min", {"7-3", 0.2871, 0.3}},
                             {"turnover_max", {"7-9", 1.5, 1}}};
  EXPECT_THAT(
      nothing_passed_text(progress, {}),
      HasSubstr("How near those that failed a gate came to it:\n"
                "          sharpe_min                      0.2871 where 0.3 is the limit "
                "(7-3)\n"
                "          turnover_max                    1.5 where 1 is the limit (7-9)\n"));
}

TEST(Report, KnowsTheOptionOfEachGate) {
  SearchOptions options;
  options.config.gates = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6};
  EXPECT_EQ(remedy_for("abs_weight_sum_mean_below_min", options),
            "lower --min-gross-exposure below 0.1");
  EXPECT_EQ(remedy_for("turnover_max", options), "raise --max-turnover above 0.2");
  EXPECT_EQ(remedy_for("max_weight_max", options), "raise --max-weight above 0.3");
  EXPECT_EQ(remedy_for("delta_exposure_max", options), "raise --max-net-exposure above 0.4");
  EXPECT_EQ(remedy_for("gross_returns_sharpe_below_min", options),
            "lower --min-gross-sharpe below 0.5");
  EXPECT_EQ(remedy_for("sharpe_min", options), "lower --min-sharpe below 0.6");
  EXPECT_THAT(remedy_for("worker_timeout", options), HasSubstr("raise --timeout above 60"));
  EXPECT_EQ(remedy_for("worker_failed", options), "");
  options.worker_memory_limit_bytes = 1;
  EXPECT_THAT(remedy_for("worker_failed", options), HasSubstr("--worker-memory"));
  EXPECT_EQ(remedy_for("another", options), "");
}

TEST(Report, KnowsTheKeyOfWhatHasNoOption) {
  SearchOptions options;
  options.config.limits = {1.5, 0.5, 0.25};
  options.config.pool.correlation_max = 0.6;
  options.config.pool.novelty_min = 0.1;
  EXPECT_EQ(remedy_for("turnover_exceeded", options),
            "raise limits.turnover in --config above 1.5");
  EXPECT_EQ(remedy_for("max_weight_exceeded", options),
            "raise limits.max_weight in --config above 0.5");
  EXPECT_EQ(remedy_for("delta_exposure_exceeded", options),
            "raise limits.delta_exposure in --config above 0.25");
  EXPECT_EQ(
      remedy_for("correlation_exceeded", options),
      "begin another signal pool with --pool NAME, or raise pool.correlation_max in --config above "
      "0.6");
  EXPECT_EQ(remedy_for("pnl_mi_below_threshold", options),
            "begin another signal pool with --pool NAME, or lower pool.novelty_min in --config "
            "below 0.1");
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
  const std::string text =
      summary_text(samples::summary(), options, samples::started(), std::nullopt);
  EXPECT_THAT(text, AllOf(HasSubstr("Metrics\n"), HasSubstr("Best in sample (2 of 12 that passed)"),
                          HasSubstr("Everything is stored in my/runs.db, run 7.\n"
                                    "The run ended after 3 generations and 4.0 seconds: the limit "
                                    "of 3 generations was reached.\n")));
  EXPECT_THAT(text, Not(HasSubstr("No signal passed")));
}

TEST(Report, TellsThePoolAfterTheBestAndBeforeTheEnd) {
  const std::string text = summary_text(samples::summary(), {}, samples::started(), std::nullopt);
  const std::size_t best = text.find("Best in sample");
  const std::size_t pool = text.find("Submitted to the signal pool");
  EXPECT_LT(best, pool);
  EXPECT_LT(pool, text.find("Everything is stored"));
}

TEST(Report, ShowsNoTableWhereNothingPassedOrNoneWasAskedFor) {
  SearchSummary summary = samples::summary();
  summary.best.clear();
  EXPECT_THAT(summary_text(summary, {}, samples::started(), std::nullopt),
              AllOf(Not(HasSubstr("Best in sample")), Not(HasSubstr("No signal passed"))));
  summary.progress.passing = 0;
  EXPECT_THAT(summary_text(summary, {}, samples::started(), std::nullopt),
              HasSubstr("No signal passed"));
}

}  // namespace
}  // namespace varnholt::app::test
