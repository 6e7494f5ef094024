// The report of a run comes out the same whatever becomes of its workers. Pieces of work that tell
// their process, lose it, throw or wait are given to real workers.
#include "hosts/embedded/search/report_workers.hpp"

#include <csignal>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/backtest/out_of_sample.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/luck/deflated_sharpe.hpp"
#include "hosts/embedded/luck/overfitting.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/run_luck.hpp"
#include "tests/hosts/embedded/search/run_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

class ReportWorkersTest : public ::testing::Test {
 protected:
  // The items whose results were taken, in the order in which they were, with the results.
  struct Taken {
    std::vector<std::size_t> order;
    std::map<std::size_t, std::string> results;
  };

  Taken run(std::size_t items, const Work& work, int jobs = 2, StopQuestion is_cut = {}) {
    Taken taken;
    ReportWorkers(system_, {.jobs = jobs}, std::move(is_cut))
        .run(items, work, [&taken](std::size_t index, const std::string& result) {
          taken.order.push_back(index);
          taken.results[index] = result;
        });
    return taken;
  }

  static void expect_no_children() {
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
  }

  RealSystemCalls system_;
  pid_t here_ = ::getpid();
};

std::vector<std::size_t> count_to(std::size_t end) {
  std::vector<std::size_t> order;
  for (std::size_t index = 0; index < end; ++index)
    order.push_back(index);
  return order;
}

TEST_F(ReportWorkersTest, ResultsAreTakenInTheOrderOfTheItemsForAnyNumberOfJobs) {
  for (const int jobs : {1, 2, 4}) {
    const Taken taken = run(
        40,
        [this](const WorkItem& item) {
          // The first of them are the last to be done.
          if (item.index < 2) ::usleep(20'000);
          return fmt::format("{} {}", item.index, ::getpid() != here_);
        },
        jobs);
    EXPECT_EQ(taken.order, count_to(40)) << jobs;
    for (const auto& [index, result] : taken.results)
      EXPECT_EQ(result, fmt::format("{} true", index)) << "made in a worker";
  }
  expect_no_children();
}

TEST_F(ReportWorkersTest, WithoutItemsNothingIsAsked) {
  const Taken taken = run(
      0, [](const WorkItem&) { return std::string(); }, 2,
      []() -> bool { throw std::logic_error("asked"); });
  EXPECT_TRUE(taken.order.empty());
}

TEST_F(ReportWorkersTest, APieceWhoseWorkerIsLostIsMadeHere) {
  const Taken taken = run(40, [this](const WorkItem& item) {
    const bool is_worker = ::getpid() != here_;
    if (is_worker && item.index % 7 == 3) ::raise(SIGKILL);
    return fmt::format("{}", is_worker);
  });
  EXPECT_EQ(taken.order, count_to(40));
  for (const auto& [index, result] : taken.results)
    EXPECT_EQ(result, index % 7 == 3 ? "false" : "true") << index;
  expect_no_children();
}

TEST_F(ReportWorkersTest, AnErrorOfTheWorkLeavesAsItIs) {
  struct OwnError : std::runtime_error {
    using std::runtime_error::runtime_error;
  };
  Taken taken;
  const Work work = [](const WorkItem& item) -> std::string {
    if (item.index == 5) throw OwnError("of item 5");
    return {};
  };
  try {
    taken = run(40, work);
    FAIL() << "nothing was thrown";
  } catch (const OwnError& error) {
    EXPECT_STREQ(error.what(), "of item 5");
  }
  expect_no_children();
}

TEST_F(ReportWorkersTest, WhatIsCutOffIsLeftOutAndNotAskedForAgain) {
  int asked = 0;
  ReportWorkers workers(system_, {.jobs = 2}, [&asked] { return ++asked > 0; });
  for (int times = 0; times < 2; ++times) {
    workers.run(
        4, [](const WorkItem&) { return std::string("made"); },
        [](std::size_t, const std::string&) { FAIL() << "it was cut before it began"; });
  }
  EXPECT_EQ(asked, 1);
}

TEST_F(ReportWorkersTest, WhatWasDoneBeforeTheCutIsTaken) {
  bool is_cut = false;
  Taken taken;
  ReportWorkers workers(system_, {.jobs = 1}, [&is_cut] { return is_cut; });
  const Work work = [](const WorkItem& item) {
    // Until it is killed.
    while (item.index == 3)
      ::usleep(1'000);
    return std::to_string(item.index);
  };
  workers.run(6, work, [&](std::size_t index, const std::string& result) {
    taken.results[index] = result;
    is_cut = taken.results.size() == 3;
  });
  EXPECT_EQ(taken.results, (std::map<std::size_t, std::string>{{0, "0"}, {1, "1"}, {2, "2"}}));
  expect_no_children();
}

TEST_F(ReportWorkersTest, TheSecondInterruptEndsItAtOnce) {
  const Work work = [](const WorkItem&) -> std::string {
    for (;;)
      ::pause();
  };
  int asked = 0;
  const StopQuestion question = [&asked]() -> bool {
    if (++asked > 2) throw InterruptedAtOnce();
    return false;
  };
  EXPECT_THROW(static_cast<void>(run(4, work, 2, question)), InterruptedAtOnce);
  expect_no_children();
}

// The chapter on luck, made by workers, is what its definition says.
class RunLuckTest : public SearchRunTest {};

TEST_F(RunLuckTest, TheSampleIsTheDailyPnlOfTheTrials) {
  const SearchSummary summary = run_search(long_options(), observer_, interrupt_);
  const MarketData whole = read_price_file(long_options().prices);
  const EraPlan plan = split_eras(whole.dates, long_options().config.eras);
  const Evaluator evaluator(whole,
                            {.book = RunData(long_options()).book, .judges_both_signs = true});
  SqliteRunStore store(long_options().database.string());
  const std::vector<TrialRecord> trials = store.trials(summary.run_id);
  ASSERT_GE(trials.size(), 10U);
  ASSERT_LE(trials.size(), kSampledTrials);

  Eigen::ArrayXXd sample(plan.seen_days() - 1, static_cast<Eigen::Index>(trials.size()));
  for (std::size_t i = 0; i < trials.size(); ++i) {
    const genetic::Value graph =
        read_json(store.find_evaluation(trials[i].eval_id)->evaluation.graph_json);
    const Panel weights = evaluator.weights(evaluator.signal(evaluator.compile(graph)));
    sample.col(static_cast<Eigen::Index>(i)) =
        in_sample_backtest(weights, evaluator.close(), evaluator.options().book, plan).net_returns;
  }
  EXPECT_EQ(summary.luck.sampled_trials, static_cast<std::int64_t>(trials.size()));
  EXPECT_EQ(summary.luck.overfitting_probability, overfitting_probability(sample));
  EXPECT_EQ(summary.luck.spread.independent,
            independent_trials(sample, 2 * static_cast<std::int64_t>(trials.size())));
}

TEST_F(RunLuckTest, ItIsTheSameForAnyNumberOfJobs) {
  SearchOptions of_one = long_options();
  of_one.jobs = 1;
  const SearchSummary one = run_search(of_one, observer_, interrupt_);
  ASSERT_FALSE(one.submitted.empty());
  for (const int jobs : {2, 4}) {
    SearchOptions of_many = long_options();
    of_many.jobs = jobs;
    of_many.database = in_folder(fmt::format("of_{}.db", jobs).c_str());
    RecordingObserver observer;
    const SearchSummary many = run_search(of_many, observer, interrupt_);
    EXPECT_EQ(many.luck.spread.independent, one.luck.spread.independent) << jobs;
    EXPECT_EQ(many.luck.overfitting_probability, one.luck.overfitting_probability) << jobs;
    EXPECT_EQ(many.luck.confidence, one.luck.confidence) << jobs;
    ASSERT_EQ(many.submitted.size(), one.submitted.size());
    for (std::size_t i = 0; i < one.submitted.size(); ++i) {
      EXPECT_EQ(many.submitted[i].statistics.holdout.sharpe,
                one.submitted[i].statistics.holdout.sharpe);
      EXPECT_EQ(many.submitted[i].in_sample_estimate.error,
                one.submitted[i].in_sample_estimate.error);
    }
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
