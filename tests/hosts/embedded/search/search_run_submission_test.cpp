// What a whole search submits: signals that pass every gate and differ from each other, each once,
// whatever run handed them in and however that one ended.
// Method: searches on a small synthetic universe, judged by what is in their store afterwards and
// by evaluating again; a run that is killed with payloads in its queue.
#include <algorithm>
#include <csignal>
#include <map>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/market/eras.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/signal_report.hpp"
#include "hosts/embedded/signal_pool/pnl_measures.hpp"
#include "hosts/embedded/signal_pool/pool_gates.hpp"
#include "hosts/embedded/store/sqlite_database.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/search/run_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
using genetic::Value;

class SearchRunSubmissionTest : public SearchRunTest {
 protected:
  // The days that a search sees, evaluated anew.
  static Evaluator seen(const SearchOptions& options) {
    const MarketData whole = read_price_file(options.prices);
    const EraPlan plan = split_eras(whole.dates, options.config.eras);
    return Evaluator(whole.first_days(plan.seen_days()), {.book = RunData(options).book});
  }
  static Value graph_of(const SubmissionRecord& submission) {
    return read_json(submission.payload_json).mapping().at(keys::kGraph);
  }
  // The structures of the submissions that were not refused, of any run.
  static std::multiset<std::string> accepted_structures(const SearchOptions& options) {
    std::multiset<std::string> structures;
    for (const SubmissionRecord& submission : submissions(options, SubmissionState::Submitted))
      structures.insert(submission.graph_key);
    return structures;
  }
  static void expect_each_pair_differs(const SearchOptions& options) {
    const Evaluator evaluator = seen(options);
    const PoolThresholds thresholds{options.config.pool.novelty_min,
                                    options.config.pool.correlation_max};
    std::vector<Eigen::ArrayXd> pnls;
    for (const SubmissionRecord& submission : submissions(options, SubmissionState::Submitted))
      pnls.push_back(evaluator.evaluate(graph_of(submission)).backtest.net_returns);
    ASSERT_GE(pnls.size(), 2U);
    for (std::size_t i = 0; i < pnls.size(); ++i) {
      for (std::size_t j = 0; j < i; ++j) {
        EXPECT_LE(std::abs(pearson_correlation(pnls[i], pnls[j])), thresholds.max_correlation);
        EXPECT_GE(novelty_of(mutual_information(pnls[i], pnls[j])), thresholds.min_novelty);
      }
    }
  }
};

TEST_F(SearchRunSubmissionTest, SubmittedSignalsPassEveryGateAndDifferFromEachOther) {
  SearchOptions gated = long_options();
  gated.config.gates.min_sharpe = 0.0;
  gated.config.gates.max_turnover = 1.2;
  gated.config.gates.max_delta_exposure = 0.9;
  const SearchSummary summary = run_search(gated, observer_, interrupt_);
  ASSERT_GE(summary.submitted.size(), 2U);
  const Evaluator evaluator = seen(gated);
  const std::vector<SubmissionRecord> submitted = submissions(gated, SubmissionState::Submitted);
  ASSERT_EQ(submitted.size(), summary.submitted.size());
  for (std::size_t i = 0; i < submitted.size(); ++i) {
    const Value graph = graph_of(submitted[i]);
    SCOPED_TRACE(expression_text(graph));
    const BacktestStatistics statistics = evaluator.evaluate(graph).backtest.statistics;
    EXPECT_TRUE(failed_gates(statistics, gated.config.gates, gated.config.limits).empty());
    EXPECT_EQ(summary.submitted[i].eval_id, submitted[i].eval_id);
    EXPECT_EQ(summary.submitted[i].expression, expression_text(graph));
    EXPECT_TRUE(Value(statistics_mapping(summary.submitted[i].statistics.in_sample)) ==
                Value(statistics_mapping(statistics)));
    EXPECT_GE(submitted[i].settlement->novelty, gated.config.pool.novelty_min);
    EXPECT_LE(submitted[i].settlement->correlation, gated.config.pool.correlation_max);
    EXPECT_EQ(summary.submitted[i].novelty, submitted[i].settlement->novelty);
    EXPECT_EQ(summary.submitted[i].correlation, submitted[i].settlement->correlation);
  }
  expect_each_pair_differs(gated);
}

TEST_F(SearchRunSubmissionTest, EachPassingStructureIsSubmittedExactlyOnce) {
  const SearchSummary summary = run_search(long_options(), observer_, interrupt_);
  std::multiset<std::string> passing;
  for (const CandidateRecorded& candidate : observer_.recorded) {
    if (candidate.passed) passing.insert(candidate.eval_id);
  }
  std::multiset<std::string> submitted;
  std::multiset<std::string> structures;
  for (const SubmissionRecord& submission : submissions(long_options())) {
    submitted.insert(submission.eval_id);
    structures.insert(submission.graph_key);
    EXPECT_NE(submission.state, SubmissionState::Queued);
  }
  EXPECT_GE(passing.size(), 3U);
  EXPECT_EQ(submitted, passing);
  EXPECT_EQ(std::set(structures.begin(), structures.end()).size(), structures.size());
  // What was told is what is in the store.
  std::int64_t refused = 0;
  for (const auto& [reason, count] : summary.submissions.refused)
    refused += count;
  EXPECT_EQ(summary.submissions.submitted + refused, static_cast<std::int64_t>(passing.size()));
  EXPECT_EQ(summary.submissions.submitted - summary.submissions.replaced,
            static_cast<std::int64_t>(summary.submitted.size()));
  EXPECT_EQ(summary.submissions.waiting, 0);
}

TEST_F(SearchRunSubmissionTest, OppositesThatEarnAreRecordedAndSubmittedInTheirPlace) {
  static_cast<void>(run_search(long_options(), observer_, interrupt_));
  SqliteRunStore store(long_options().database.string());
  int turned_round = 0;
  for (const SubmissionRecord& submission : submissions(long_options())) {
    const EvaluationRecord row = store.find_evaluation(submission.eval_id)->evaluation;
    const bool is_opposite = read_json(row.lineage_json).mapping().contains("orientation");
    turned_round += is_opposite ? 1 : 0;
    const std::string own_key = sha256_hex(row.graph_json);
    EXPECT_EQ(row.graph_key == own_key, !is_opposite) << "the key is that of what was tried";
  }
  EXPECT_GT(turned_round, 0);
  for (const CandidateRecorded& candidate : observer_.recorded) {
    if (!candidate.statistics) continue;
    EXPECT_GE(candidate.statistics->gross_returns_sharpe, 0.0);
  }
}

TEST_F(SearchRunSubmissionTest, EverySubmissionsEvaluationIsRecordedAsWhatItWas) {
  static_cast<void>(run_search(long_options(), observer_, interrupt_));
  const Evaluator evaluator = seen(long_options());
  SqliteRunStore store(long_options().database.string());
  for (const SubmissionRecord& submission : submissions(long_options())) {
    const auto found = store.find_evaluation(submission.eval_id);
    ASSERT_TRUE(found.has_value()) << submission.eval_id;
    EXPECT_TRUE(found->evaluation.passed);
    EXPECT_FALSE(found->evaluation.failure_reason.has_value());
    EXPECT_EQ(found->evaluation.graph_key, submission.graph_key);
    EXPECT_EQ(found->evaluation.market_id, 1);
    EXPECT_EQ(found->evaluation.era_number, 3);
    EXPECT_TRUE(read_json(found->evaluation.graph_json) == graph_of(submission));
    // The very figures of the graph that is stored, also where the opposite was tried.
    const BacktestStatistics statistics =
        evaluator.evaluate(graph_of(submission)).backtest.statistics;
    EXPECT_TRUE(read_json(found->evaluation.statistics_json) ==
                Value(statistics_mapping(statistics)));
    const bool is_member = submission.state == SubmissionState::Submitted;
    EXPECT_EQ(found->evaluation.holdout_statistics_json.has_value(), is_member);
  }
}

TEST_F(SearchRunSubmissionTest, AReportThatIsCutShortHasTheStoredStatisticsOfTheRest) {
  const SearchSummary summary = run_search(long_options(), observer_, interrupt_);
  ASSERT_GE(summary.submitted.size(), 2U);
  const MarketData whole = read_price_file(long_options().prices);
  const EraPlan plan = split_eras(whole.dates, long_options().config.eras);
  const BookRules book = RunData(long_options()).book;
  const Evaluator evaluator(whole, {.book = book});
  const FigureTaker taker(evaluator.close(), whole.dates, plan, book);
  SqliteRunStore store(long_options().database.string());
  RealSystemCalls system;
  int asked = 0;
  ReportWorkers workers(system, {}, [&asked] { return ++asked > 0; });
  const std::vector<SubmittedSignal> cut =
      report_submitted_signals(store, summary.run_id, evaluator, taker, workers);
  ASSERT_EQ(cut.size(), summary.submitted.size());
  EXPECT_EQ(asked, 1) << "once it is cut short, it stays so";
  for (std::size_t i = 0; i < cut.size(); ++i) {
    EXPECT_FALSE(cut[i].has_holdout);
    EXPECT_EQ(cut[i].eval_id, summary.submitted[i].eval_id);
    EXPECT_EQ(cut[i].expression, summary.submitted[i].expression);
    EXPECT_EQ(cut[i].novelty, summary.submitted[i].novelty);
    EXPECT_EQ(cut[i].statistics.in_sample.sharpe, summary.submitted[i].statistics.in_sample.sharpe);
  }
}

TEST_F(SearchRunSubmissionTest, TheObserverIsToldOfEverySettlementAfterItsRecord) {
  SearchOptions options = long_options();
  options.generations = 30;  // Until something better takes a member's place.
  static_cast<void>(run_search(options, observer_, interrupt_));
  std::map<std::string, SubmissionRecord> settled;
  for (const SubmissionRecord& submission : submissions(long_options()))
    settled.emplace(submission.eval_id, submission);
  ASSERT_EQ(observer_.settled.size(), settled.size());
  std::set<std::string> replaced;
  for (const SettledSignal& told : observer_.settled)
    replaced.insert(told.replaced.begin(), told.replaced.end());
  EXPECT_FALSE(replaced.empty());
  for (const SettledSignal& told : observer_.settled) {
    const SubmissionRecord& submission = settled.at(told.eval_id);
    const std::string reason = submission.settlement->refusal_reason.value_or("");
    const bool has_left = told.submitted && replaced.contains(told.eval_id);
    EXPECT_EQ(told.submitted && !has_left, submission.state == SubmissionState::Submitted);
    EXPECT_EQ(has_left ? std::string(kReplacedByBetter) : told.refusal_reason, reason);
    EXPECT_EQ(told.novelty, submission.settlement->novelty);
  }
}

TEST_F(SearchRunSubmissionTest, ASecondRunSubmitsNothingThatIsThere) {
  SearchOptions options = long_options();
  options.config.pool.replaces_weaker = false;  // The second run may find something better.
  static_cast<void>(run_search(options, observer_, interrupt_));
  const std::multiset<std::string> before = accepted_structures(long_options());
  ASSERT_GE(before.size(), 2U);
  RecordingObserver second;
  const SearchSummary summary = run_search(options, second, interrupt_);
  EXPECT_EQ(summary.run_id, 2);
  // The same seed meets the same structures, and the pool knows them.
  SqliteRunStore store(long_options().database.string());
  std::int64_t met_again = 0;
  for (const CandidateRecorded& candidate : second.recorded) {
    const auto row = store.find_evaluation(candidate.eval_id);
    if (!before.contains(row->evaluation.graph_key)) continue;
    ++met_again;
    EXPECT_FALSE(candidate.passed) << candidate.expression;
    EXPECT_EQ(candidate.failure_reason, "pnl_mi_below_threshold") << candidate.expression;
  }
  EXPECT_GT(met_again, 0);
  const std::multiset<std::string> after = accepted_structures(long_options());
  EXPECT_EQ(std::set(after.begin(), after.end()).size(), after.size());
  EXPECT_TRUE(std::includes(after.begin(), after.end(), before.begin(), before.end()));
  expect_each_pair_differs(long_options());
}

TEST_F(SearchRunSubmissionTest, AnotherPoolStartsEmpty) {
  static_cast<void>(run_search(options(), observer_, interrupt_));
  SearchOptions other = options();
  other.config.pool.name = "others";
  RecordingObserver second;
  const SearchSummary summary = run_search(other, second, interrupt_);
  EXPECT_EQ(expressions_of(second), expressions_of(observer_));
  ASSERT_EQ(second.settled.size(), observer_.settled.size());
  EXPECT_EQ(second.started[0].signal_pool_name, "others");
  EXPECT_FALSE(summary.submitted.empty());
}

std::vector<SubmissionRecord> by_evaluation(std::vector<SubmissionRecord> submissions) {
  std::sort(submissions.begin(), submissions.end(),
            [](const SubmissionRecord& left, const SubmissionRecord& right) {
              return left.eval_id < right.eval_id;
            });
  return submissions;
}

TEST_F(SearchRunSubmissionTest, TheSameSeedRepeatsTheSubmissions) {
  static_cast<void>(run_search(long_options(), observer_, interrupt_));
  // With another number of workers too.
  SearchOptions elsewhere = long_options();
  elsewhere.database = in_folder("again.db");
  elsewhere.jobs = 1;
  RecordingObserver again;
  static_cast<void>(run_search(elsewhere, again, interrupt_));
  EXPECT_EQ(expressions_of(again), expressions_of(observer_));
  // One worker enqueues at the end of a batch, several do as results come in.
  const std::vector<SubmissionRecord> first = by_evaluation(submissions(long_options()));
  const std::vector<SubmissionRecord> second = by_evaluation(submissions(elsewhere));
  ASSERT_FALSE(first.empty());
  ASSERT_EQ(first.size(), second.size());
  for (std::size_t i = 0; i < first.size(); ++i) {
    EXPECT_EQ(first[i].eval_id, second[i].eval_id);
    EXPECT_EQ(first[i].graph_key, second[i].graph_key);
    EXPECT_EQ(first[i].state, second[i].state);
    EXPECT_EQ(first[i].settlement->novelty, second[i].settlement->novelty);
    EXPECT_EQ(first[i].settlement->correlation, second[i].settlement->correlation);
    EXPECT_EQ(first[i].pool, second[i].pool);
  }
  ASSERT_EQ(again.settled.size(), observer_.settled.size());
  for (std::size_t i = 0; i < again.settled.size(); ++i)
    EXPECT_EQ(again.settled[i].eval_id, observer_.settled[i].eval_id) << "settled in one order";
}

TEST_F(SearchRunSubmissionTest, AnErrorInTheMiddleLeavesTheRestToTheNextRun) {
  // The first settlement fails: all that passed in the first generation is still queued.
  static_cast<void>(SqliteRunStore(options().database.string()));
  {
    SqliteDatabase database(options().database.string(), 1000);
    database.execute(
        "CREATE TRIGGER broken BEFORE UPDATE OF state ON submissions "
        "BEGIN SELECT RAISE(ABORT, 'broken on purpose'); END",
        "breaking the file");
  }
  EXPECT_THROW(static_cast<void>(run_search(options(), observer_, interrupt_)), StoreError);
  {
    SqliteDatabase database(options().database.string(), 1000);
    database.execute("DROP TRIGGER broken", "repairing the file");
  }
  const std::vector<SubmissionRecord> left = submissions(options(), SubmissionState::Queued);
  ASSERT_FALSE(left.empty());
  RecordingObserver second;
  const SearchSummary summary = run_search(options(), second, interrupt_);
  EXPECT_TRUE(submissions(options(), SubmissionState::Queued).empty());
  ASSERT_GE(second.settled.size(), left.size());
  EXPECT_TRUE(second.settled[0].eval_id.starts_with("1-")) << "what was left comes first";
  // The summary lists the run's own signals; those of the earlier run are counted only.
  for (const SubmittedSignal& signal : summary.submitted)
    EXPECT_TRUE(signal.eval_id.starts_with("2-")) << signal.eval_id;
}

// Remembers how many candidates had been recorded when each settlement was told.
class OrderObserver : public RecordingObserver {
 public:
  void on_settled(const SettledSignal& signal) override {
    recorded_before[signal.eval_id] = recorded.size();
    RecordingObserver::on_settled(signal);
  }
  std::map<std::string, std::size_t> recorded_before;
};

// Kills the child while this process holds the store's lock and payloads are queued, so that
// nothing more of them can be settled. False when the child ended before that came about.
bool kill_with_queued_payloads(pid_t child, const std::string& path) {
  SqliteDatabase database(path, 10'000);
  const char* const count = "SELECT COUNT(*) FROM submissions WHERE state = 'queued'";
  while (true) {
    int status = 0;
    if (waitpid(child, &status, WNOHANG) == child) return false;
    if (database.query_integer(count, "counting") == 0) {
      usleep(500);
      continue;
    }
    const SqliteTransaction lock(database, "stopping the child");
    if (database.query_integer(count, "counting") == 0) continue;
    kill(child, SIGKILL);
    return waitpid(child, &status, 0) == child && WIFSIGNALED(status);
  }
}

TEST_F(SearchRunSubmissionTest, WhatAKilledRunLeftIsSettledByTheNextBeforeItMeasures) {
  SearchOptions endless = long_options();
  endless.generations = 1000;
  static_cast<void>(SqliteRunStore(endless.database.string()));  // There for both processes.
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    RecordingObserver observer;
    static_cast<void>(run_search(endless, observer, interrupt_));
    _exit(0);
  }
  ASSERT_TRUE(kill_with_queued_payloads(child, endless.database.string()));
  std::vector<std::string> left;
  {
    SqliteDatabase database(endless.database.string(), 1000);
    ASSERT_GT(database.query_integer("SELECT COUNT(*) FROM submissions WHERE state = 'queued'",
                                     "counting"),
              0);
    EXPECT_EQ(
        database.query_integer("SELECT COUNT(*) FROM runs WHERE ended_at IS NOT NULL", "counting"),
        0);
  }
  for (const SubmissionRecord& submission : submissions(endless, SubmissionState::Queued))
    left.push_back(submission.eval_id);

  OrderObserver next;
  const SearchSummary summary = run_search(long_options(), next, interrupt_);
  EXPECT_TRUE(submissions(endless, SubmissionState::Queued).empty());
  for (const std::string& eval_id : left) {
    ASSERT_TRUE(next.recorded_before.contains(eval_id)) << eval_id;
    EXPECT_EQ(next.recorded_before.at(eval_id), 0U) << "settled before anything was measured";
  }
  SqliteRunStore store(endless.database.string());
  EXPECT_EQ(store.find_run(1)->terminal_reason, kInterrupted);
  EXPECT_EQ(store.find_run(2)->terminal_reason, "stopped");
  const std::multiset<std::string> structures = accepted_structures(endless);
  EXPECT_EQ(std::set(structures.begin(), structures.end()).size(), structures.size());
  expect_each_pair_differs(endless);
}

}  // namespace
}  // namespace varnholt::embedded::test
