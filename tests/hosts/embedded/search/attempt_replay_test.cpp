// Goal: an attempt that is replayed gives the recorded statistics again, and what differs is told.
// Method: a whole search, then the replay of each of its evaluations; statistics that are changed.
#include "hosts/embedded/search/attempt_replay.hpp"

#include <algorithm>

#include <gmock/gmock.h>

#include "hosts/embedded/search/signal_export.hpp"
#include "tests/hosts/embedded/search/run_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

class AttemptReplay : public SearchRunTest {
 protected:
  AttemptReplay() {
    // So many that some repeat the behaviour of others.
    SearchOptions searched = options();
    searched.batch_size = 16;
    searched.generations = 4;
    static_cast<void>(run_search(searched, observer_, interrupt_));
    SqliteRunStore store(searched.database.string());
    run_ = store.find_run(1).value();
    for (const CandidateRecorded& candidate : observer_.recorded)
      evaluations_.push_back(store.find_evaluation(candidate.eval_id)->evaluation);
    prices_ = read_run_prices(run_.start.price_path, run_.start);
  }

  [[nodiscard]] Replay replayed(const std::string& graph_json,
                                const std::string& statistics_json) const {
    AttemptRecord attempt;
    attempt.start.graph_json = graph_json;
    return replay_attempt(attempt, run_, statistics_json, prices_);
  }
  [[nodiscard]] static bool is_repeat(const EvaluationRecord& row) {
    return row.failure_reason == "behaviour_repeated";
  }
  [[nodiscard]] const EvaluationRecord& with_statistics() const {
    return *std::find_if(evaluations_.begin(), evaluations_.end(),
                         [](const EvaluationRecord& row) { return row.statistics_json != "null"; });
  }

  RunRecord run_;
  std::vector<EvaluationRecord> evaluations_;
  MarketData prices_;
};

TEST_F(AttemptReplay, GivesTheRecordedStatisticsAgain) {
  ASSERT_FALSE(evaluations_.empty());
  for (const EvaluationRecord& row : evaluations_) {
    SCOPED_TRACE(row.graph_json);
    if (is_repeat(row)) continue;
    const Replay replay = replayed(row.graph_json, row.statistics_json);
    EXPECT_EQ(replay.is_equal, true);
    for (const ReplayedFigure& figure : replay.figures) {
      EXPECT_EQ(figure.recorded, figure.replayed) << figure.name << " to the last digit";
    }
  }
}

TEST_F(AttemptReplay, OfARepeatThereIsNothingToCompareButWhatItRepeats) {
  int repeats = 0;
  for (const EvaluationRecord& row : evaluations_) {
    if (!is_repeat(row)) continue;
    SCOPED_TRACE(row.graph_json);
    ++repeats;
    const Replay replay = replayed(row.graph_json, row.statistics_json);
    EXPECT_FALSE(replay.is_equal.has_value());
    EXPECT_FALSE(replay.figures.empty());
    const std::size_t number = row.failure_detail->find_first_of("0123456789");
    const auto candidate = std::stoul(row.failure_detail->substr(number));
    const EvaluationRecord& earlier = evaluations_.at(candidate - 1);
    for (const ReplayedFigure& figure : replayed(row.graph_json, earlier.statistics_json).figures) {
      EXPECT_NEAR(figure.recorded.value(), figure.replayed.value(), 1e-6) << figure.name;
    }
  }
  EXPECT_GT(repeats, 0);
}

TEST_F(AttemptReplay, TellsWhichFigureDiffers) {
  std::string changed = with_statistics().statistics_json;
  const std::size_t at = changed.find("\"holding_days\":") + 15;
  changed.insert(at, "9");
  const Replay replay = replayed(with_statistics().graph_json, changed);
  EXPECT_EQ(replay.is_equal, false);
  for (const ReplayedFigure& figure : replay.figures) {
    EXPECT_EQ(figure.is_equal, figure.name != "holding_days") << figure.name;
  }
}

TEST_F(AttemptReplay, ABacktestThatFailsAgainIsEqualToNoStatistics) {
  const Replay replay = replayed(R"({"node":"no such feature","type":"feature"})", "null");
  EXPECT_EQ(replay.is_equal, true);
  EXPECT_THAT(replay.figures, IsEmpty());
  EXPECT_THAT(replay.failure, HasSubstr("no such feature"));
}

TEST_F(AttemptReplay, ABacktestThatFailsNowDiffers) {
  const Replay replay =
      replayed(R"({"node":"no such feature","type":"feature"})", with_statistics().statistics_json);
  EXPECT_EQ(replay.is_equal, false);
  EXPECT_FALSE(replay.figures.empty());
  EXPECT_EQ(replay.figures.front().replayed, std::nullopt);
}

TEST_F(AttemptReplay, WithoutRecordedStatisticsThereIsNothingToCompare) {
  const Replay replay = replayed(with_statistics().graph_json, "null");
  EXPECT_EQ(replay.is_equal, std::nullopt);
  EXPECT_FALSE(replay.figures.empty());
  EXPECT_EQ(replay.figures.front().recorded, std::nullopt);
  EXPECT_TRUE(replay.figures.front().replayed.has_value());
}

}  // namespace
}  // namespace varnholt::embedded::test
