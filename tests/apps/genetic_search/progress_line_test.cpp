// Goal: the progress of a search is told whole where there is room, and within the width always.
// Method: hand-made progress at all widths; the drawn line at hand-made times.
#include "apps/genetic_search/progress_line.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/genetic_search/text_layout.hpp"
#include "tests/apps/genetic_search/samples.hpp"

namespace varnholt::app::test {
namespace {

TEST(ProgressLine, TellsEverythingWhereThereIsRoom) {
  EXPECT_EQ(live_progress_text(samples::progress(), {12, 32}, 200),
            "gen 4 12/32 | 96 cand 24.0/s | 12 pass | best 1.32 "
            "arith_add(cross_rank(ts_delta(close, 5)), volume)"
            " | fail sharpe_min 60, turnover_max 20, worker_timeout 4");
}

TEST(ProgressLine, ShortensTheExpressionFirst) {
  EXPECT_EQ(live_progress_text(samples::progress(), {12, 32}, 130),
            "gen 4 12/32 | 96 cand 24.0/s | 12 pass | best 1.32 arith_add(cross_rank..."
            " | fail sharpe_min 60, turnover_max 20, worker_timeout 4");
}

embedded::SearchProgress with_repairs() {
  embedded::SearchProgress progress = samples::progress();
  progress.repair_rounds = 6;
  progress.repaired_in_generation = 9;
  progress.repairs = {{"rank", {50, 1, 0}}, {"reverse", {30, 20, 5}}};
  return progress;
}

TEST(ProgressLine, TellsRoundsRepairsAndRescues) {
  embedded::SearchProgress progress = with_repairs();
  EXPECT_THAT(live_progress_text(progress, {12, 32}, 200),
              testing::StartsWith("gen 4 12/32 | 96 cand 24.0/s | 12 pass | 80 repaired "
                                  "21 rescued | best 1.32 arith_add(cross_rank(ts_delta"));
  progress.round_under_way = 2;
  EXPECT_THAT(live_progress_text(progress, {5, 32}, 200),
              testing::StartsWith("gen 4 round 2 5 | 96 cand 24.0/s | 12 pass | 80 repaired "));
  EXPECT_EQ(generation_text(with_repairs()),
            "generation 3: 18 fresh and 14 bred and 9 repaired, 96 candidates in all, 24.0 a "
            "second, 12 passing, 21 rescued in 6 rounds, best 1.32 (7-17), failures: "
            "sharpe_min 60, turnover_max 20, worker_timeout 4\n");
}

TEST(ProgressLine, KeepsWhatMattersInEightyColumns) {
  EXPECT_EQ(live_progress_text(with_repairs(), {12, 32, 41.2}, 80),
            "gen 4 12/32 | 96 cand 24.0/s | 0:42 left | 12 pass | best 1.32 arith_add(cros...");
  embedded::SearchProgress late = with_repairs();
  late.generation = 9999;
  late.candidates = 1'280'000;
  late.elapsed_seconds = 9000.0;
  late.passing = 420'000;
  late.round_under_way = 10;
  EXPECT_EQ(live_progress_text(late, {96, 32, 35'999.5}, 80),
            "gen 10000 round 10 96 | 1280000 cand 142.2/s | 10:00:00 left | 420000 pass");
}

TEST(ProgressLine, TellsTheTimeThatIsLeftByTheLimitThatIsNearest) {
  const auto left = [](const RunLimits& limits, const embedded::SearchProgress& progress) {
    return seconds_left(limits, progress, 3.0);
  };
  // 96 candidates and 3 generations in 4 seconds, the generations in the first 3 of them.
  const embedded::SearchProgress progress = samples::progress();
  EXPECT_EQ(left({}, progress), std::nullopt);
  EXPECT_DOUBLE_EQ(left({10, {}, {}}, progress).value(), 6.0);
  EXPECT_DOUBLE_EQ(left({{}, 144, {}}, progress).value(), 2.0);
  EXPECT_DOUBLE_EQ(left({{}, {}, 9.0}, progress).value(), 5.0);
  EXPECT_DOUBLE_EQ(left({10, 144, 9.0}, progress).value(), 2.0);
  EXPECT_DOUBLE_EQ(left({3, {}, {}}, progress).value(), 0.0);
  EXPECT_EQ(left({10, 144, {}}, {}), std::nullopt) << "no pace yet";
  EXPECT_EQ(clock_text(6.2), "0:07");
  EXPECT_EQ(clock_text(750.0), "12:30");
  EXPECT_EQ(clock_text(3725.0), "1:02:05");
}

TEST(ProgressLine, FitsEveryWidth) {
  for (std::size_t width = 0; width < 160; ++width) {
    EXPECT_LE(column_count(live_progress_text(with_repairs(), {12, 32}, width)), width);
  }
  for (std::size_t width = 0; width < 160; ++width) {
    EXPECT_LE(column_count(live_progress_text(samples::progress(), {12, 32}, width)), width);
  }
}

TEST(ProgressLine, SaysNothingOfABestOrFailuresThatAreNotThere) {
  EXPECT_EQ(live_progress_text({}, {0, 32}, 200), "gen 1 0/32 | 0 cand 0.0/s | 0 pass");
}

TEST(ProgressLine, KeepsControlCharactersOffTheTerminal) {
  embedded::SearchProgress progress = samples::progress();
  progress.failures = {{"a\x1b[2Jb", 1}};
  progress.best->expression = "x\ny";
  const std::string line = live_progress_text(progress, {0, 32}, 200);
  EXPECT_EQ(line.find('\x1b'), std::string::npos);
  EXPECT_EQ(line.find('\n'), std::string::npos);
}

TEST(ProgressLine, ListsTheMostFrequentFailuresFirst) {
  EXPECT_EQ(failures_text({{"a", 1}, {"b", 9}, {"c", 5}, {"d", 5}}, 2),
            "b 9, c 5, 2 other reasons 6");
  EXPECT_EQ(failures_text({{"a", 1}, {"b", 9}}, 1), "b 9, 1 other reason 1");
  EXPECT_EQ(failures_text({}, 3), "");
}

TEST(ProgressLine, HasALineForACompletedGeneration) {
  EXPECT_EQ(generation_text(samples::progress()),
            "generation 3: 18 fresh and 14 bred, 96 candidates in all, 24.0 a second, 12 passing, "
            "best 1.32 (7-17), failures: "
            "sharpe_min 60, turnover_max 20, worker_timeout 4\n");
}

TEST(ProgressLine, SaysWhereTheSearchBeganAnew) {
  embedded::SearchProgress progress = samples::progress();
  progress.bred_in_generation = 0;
  EXPECT_THAT(generation_text(progress), testing::HasSubstr("12 passing, begun anew, best"));
  progress.generation = 1;  // The first generation has nothing to breed from.
  EXPECT_THAT(generation_text(progress), testing::Not(testing::HasSubstr("anew")));
}

TEST(LiveLine, IsDrawnOverItselfAndErasedOnce) {
  LiveLine line;
  EXPECT_EQ(line.erase(), "");
  EXPECT_EQ(line.draw("abc", 0.0), "\r\x1b[Kabc");
  EXPECT_EQ(line.erase(), "\r\x1b[K");
  EXPECT_EQ(line.erase(), "");
}

TEST(LiveLine, IsDrawnTenTimesASecondAtMost) {
  LiveLine line;
  int drawn = 0;
  for (int millisecond = 0; millisecond < 2000; ++millisecond) {
    const double now = static_cast<double>(millisecond) / 1000.0;
    const bool too_soon = line.is_too_soon(now);
    EXPECT_EQ(line.draw("abc", now).has_value(), !too_soon);
    drawn += too_soon ? 0 : 1;
    if (millisecond % 10 == 0) static_cast<void>(line.erase());
  }
  EXPECT_LE(drawn, 20);
  EXPECT_GE(drawn, 18);
}

}  // namespace
}  // namespace varnholt::app::test
