// Which days a search sees: those up to the end of its era, and never the hold-out.
// Method: the same search on two price files that differ only in days that it must not see.
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/market/eras.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/search/run_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::Value;

// The days of small_universe: three eras of 50 and a hold-out of 50.
constexpr std::int64_t kEraDays = 50;
constexpr std::int64_t kDays = 200;

class SearchRunErasTest : public SearchRunTest {
 protected:
  // A search in an era on prices that are others from `first_changed` on.
  SearchOptions changed_from(Eigen::Index first_changed, int era) const {
    MarketData data = small_universe();
    for (Eigen::Index day = first_changed; day < data.day_count(); ++day) {
      for (Eigen::Index column = 0; column < data.instrument_count(); ++column) {
        const double factor = (day + column) % 2 == 0 ? 1.3 : 0.8;
        data.close(day, column) *= factor;
      }
    }
    const std::string name = "changed-from-" + std::to_string(first_changed);
    write_prices(in_folder((name + ".csv").c_str()), data);
    SearchOptions options = era_options(era);
    options.prices = in_folder((name + ".csv").c_str());
    options.database = in_folder((name + ".db").c_str());
    return options;
  }
  SearchOptions era_options(int era) const {
    SearchOptions options = long_options();
    options.config.eras.era = era;
    options.config.pool.minimum_days = 20;
    return options;
  }
  static std::size_t distinct_structures(const std::vector<SubmissionRecord>& submissions) {
    std::set<std::string> structures;
    for (const SubmissionRecord& submission : submissions)
      structures.insert(submission.graph_key);
    return structures.size();
  }
  // Everything that was found in sample, as one text.
  static std::string found(const RecordingObserver& observer, const SearchSummary& summary) {
    std::string text;
    for (const CandidateRecorded& candidate : observer.recorded) {
      text += candidate.eval_id + ' ' + candidate.expression + ' ' + candidate.failure_reason +
              ' ' + candidate.failure_detail;
      if (candidate.statistics) text += genetic::repr(statistics_mapping(*candidate.statistics));
      text += '\n';
    }
    for (const SettledSignal& signal : observer.settled) {
      text += signal.eval_id + ' ' + signal.refusal_detail + ' ' + genetic::repr(signal.novelty) +
              ' ' + genetic::repr(signal.correlation) + '\n';
    }
    for (const SubmittedSignal& signal : summary.submitted) {
      text += signal.eval_id + genetic::repr(statistics_mapping(signal.statistics.in_sample));
    }
    return text + genetic::repr(statistics_mapping(summary.market.in_sample));
  }
};

TEST_F(SearchRunErasTest, TheHoldOutIsNeverSeen) {
  const SearchSummary summary = run_search(era_options(3), observer_, interrupt_);
  ASSERT_GE(summary.submitted.size(), 2U);
  RecordingObserver other_observer;
  const SearchSummary other = run_search(changed_from(3 * kEraDays, 3), other_observer, interrupt_);
  EXPECT_EQ(found(other_observer, other), found(observer_, summary));
  // What is told of the hold-out is told of it, and only of it.
  EXPECT_NE(other.market.holdout.sharpe, summary.market.holdout.sharpe);
  EXPECT_NE(other.submitted[0].statistics.holdout.sharpe,
            summary.submitted[0].statistics.holdout.sharpe);
}

TEST_F(SearchRunErasTest, TheLastSeenDayIsSeen) {
  const SearchSummary summary = run_search(era_options(3), observer_, interrupt_);
  RecordingObserver other_observer;
  const SearchSummary other =
      run_search(changed_from(3 * kEraDays - 1, 3), other_observer, interrupt_);
  EXPECT_NE(found(other_observer, other), found(observer_, summary));
}

TEST_F(SearchRunErasTest, AnEarlierEraSeesNothingAfterItsEnd) {
  const SearchSummary summary = run_search(era_options(2), observer_, interrupt_);
  ASSERT_FALSE(summary.submitted.empty());
  RecordingObserver other_observer;
  const SearchSummary other = run_search(changed_from(2 * kEraDays, 2), other_observer, interrupt_);
  EXPECT_EQ(found(other_observer, other), found(observer_, summary));
}

TEST_F(SearchRunErasTest, TellsItsEraAndRecordsIt) {
  const SearchSummary summary = run_search(era_options(2), observer_, interrupt_);
  const SearchStarted& started = observer_.started.at(0);
  EXPECT_EQ(started.era_number, 2);
  EXPECT_EQ(started.market_id, 1);
  EXPECT_EQ(started.days, kDays);
  EXPECT_EQ(started.seen_days, 2 * kEraDays);
  EXPECT_EQ(started.holdout_days, kEraDays);
  const MarketData data = small_universe();
  EXPECT_EQ(started.last_seen_date, date_text(data.dates[2 * kEraDays - 1]));
  EXPECT_EQ(started.first_holdout_date, date_text(data.dates[3 * kEraDays]));

  SqliteRunStore store(options().database.string());
  EXPECT_EQ(store.find_run(summary.run_id)->start.era_number, 2);
  for (const CandidateRecorded& candidate : observer_.recorded) {
    EXPECT_EQ(store.find_evaluation(candidate.eval_id)->evaluation.era_number, 2);
  }
  for (const SubmissionRecord& submission : submissions(options()))
    EXPECT_EQ(submission.pool.era_number, 2);
}

TEST_F(SearchRunErasTest, TheMarketIsTheEqualWeightBookOfTheSameDays) {
  const SearchSummary summary = run_search(era_options(2), observer_, interrupt_);
  const MarketData data = small_universe();
  const EraPlan plan = split_eras(data.dates, era_options(2).config.eras);
  const SampleStatistics expected =
      sample_statistics(equal_weights(data.close), data.close, RunData(era_options(2)).book, plan);
  EXPECT_EQ(summary.market.in_sample.sharpe, expected.in_sample.sharpe);
  EXPECT_EQ(summary.market.in_sample.holding_days, 2 * kEraDays - 1);
  EXPECT_EQ(summary.market.holdout.sharpe, expected.holdout.sharpe);
  EXPECT_EQ(summary.market.holdout.holding_days, kEraDays);
}

TEST_F(SearchRunErasTest, ErasOfOneHistoryShareAPoolWhoseMembersAreMeasuredInEach) {
  const SearchSummary first = run_search(era_options(3), observer_, interrupt_);
  ASSERT_FALSE(first.submitted.empty());
  RecordingObserver second;
  static_cast<void>(run_search(era_options(2), second, interrupt_));
  ASSERT_EQ(second.measured.size(), 1U);
  EXPECT_EQ(second.measured[0].members, static_cast<std::int64_t>(first.submitted.size()));
  EXPECT_EQ(second.measured[0].done, second.measured[0].members);
  EXPECT_EQ(second.measured[0].failed, 0);
  // They are what a run in that era would have found of them.
  const MarketData whole = small_universe();
  const RunData data(era_options(2));
  const Evaluator evaluator(whole.first_days(2 * kEraDays), {.book = data.book});
  SqliteRunStore store(options().database.string());
  for (const SubmissionPnl& member :
       store.submissions().members(pool_identity(era_options(2), data))) {
    if (!member.eval_id.starts_with("1-")) continue;
    const Value graph = read_json(store.find_evaluation(member.eval_id)->evaluation.graph_json);
    const Eigen::ArrayXd expected = evaluator.evaluate(graph).backtest.net_returns;
    ASSERT_TRUE(member.pnl.has_value());
    EXPECT_EQ(*member.pnl, std::vector<double>(expected.begin(), expected.end()));
  }
  EXPECT_EQ(distinct_structures(submissions(options(), SubmissionState::Submitted)),
            submissions(options(), SubmissionState::Submitted).size());
}

}  // namespace
}  // namespace varnholt::embedded::test
