// A whole search on a small synthetic universe: it records every outcome, repeats from its seed,
// refuses bad input before anything is written, and leaves its rows when it is killed.
#include "hosts/embedded/search/search_run.hpp"

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/known_behaviours.hpp"
#include "hosts/embedded/market/price_file_error.hpp"
#include "hosts/embedded/store/sqlite_run_store.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/search/run_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

namespace keys = genetic::keys;
using genetic::Mapping;

TEST_F(SearchRunTest, RecordsEveryOutcomeAndOneMetricsRecord) {
  const SearchSummary summary = run_search(options(), observer_, interrupt_);
  EXPECT_EQ(summary.stop_cause, StopCause::Generations);
  EXPECT_EQ(summary.progress.generation, 2);
  ASSERT_EQ(observer_.started.size(), 1U);
  EXPECT_EQ(observer_.started[0].instruments, 5);
  EXPECT_EQ(observer_.started[0].days, 200);
  EXPECT_EQ(observer_.started[0].seed, 21);
  ASSERT_EQ(observer_.metrics.size(), 1U);
  const Mapping metrics = observer_.metrics[0].mapping();
  EXPECT_EQ(metrics.size(), 14U) << "those of the search, and the digest of its results";
  EXPECT_EQ(metrics.at(keys::kTerminalReason).text(), "stopped");
  const auto candidates = static_cast<std::int64_t>(observer_.recorded.size());
  EXPECT_EQ(metrics.at(keys::kCandidateCount).integer(), candidates);
  EXPECT_EQ(summary.progress.candidates, candidates);

  SqliteRunStore store(options().database.string());
  EXPECT_EQ(store.evaluation_count(summary.run_id), candidates);
  EXPECT_EQ(store.metrics(summary.run_id).size(), 1U);
  EXPECT_EQ(store.find_run(summary.run_id)->terminal_reason, "stopped");
  EXPECT_EQ(store.find_run(summary.run_id)->start.seed, 21);
}

TEST_F(SearchRunTest, TellsTheBestSignalsInOrder) {
  const SearchSummary summary = run_search(options(), observer_, interrupt_);
  ASSERT_FALSE(summary.best.empty());
  for (std::size_t i = 0; i < summary.best.size(); ++i) {
    EXPECT_TRUE(summary.best[i].passed);
    EXPECT_FALSE(summary.best[i].expression.empty());
    if (i > 0) {
      EXPECT_GE(summary.best[i - 1].statistics->quality_score,
                summary.best[i].statistics->quality_score);
    }
  }
  EXPECT_EQ(summary.progress.best->eval_id, summary.best[0].eval_id);
  SqliteRunStore store(options().database.string());
  EXPECT_EQ(store.best_signals(summary.run_id, 1)[0].eval_id, summary.best[0].eval_id);
}

TEST_F(SearchRunTest, AnyNumberOfJobsFindsTheSame) {
  const auto digest_of = [this](int jobs, std::uint64_t seed,
                                Isolation isolation = Isolation::Candidate) {
    SearchOptions searched = options();
    searched.database = in_folder("jobs.db");
    searched.jobs = jobs;
    searched.seed = seed;
    // So many that some repeat the behaviour of others.
    searched.batch_size = 16;
    searched.generations = 4;
    searched.isolation = isolation;
    RecordingObserver observer;
    const SearchSummary summary = run_search(searched, observer, interrupt_);
    EXPECT_TRUE(summary.progress.failures.contains("behaviour_repeated"));
    std::filesystem::remove(searched.database);
    return genetic::str(observer.metrics.at(0).mapping().at("results_digest"));
  };
  const std::string one = digest_of(1, 21);
  EXPECT_EQ(one.size(), 64U);
  EXPECT_EQ(digest_of(2, 21), one);
  EXPECT_EQ(digest_of(4, 21), one);
  EXPECT_EQ(digest_of(1, 21, Isolation::Chunk), one);
  EXPECT_EQ(digest_of(2, 21, Isolation::Chunk), one);
  EXPECT_EQ(digest_of(4, 21, Isolation::Chunk), one);
  EXPECT_NE(digest_of(2, 22), one);
}

TEST_F(SearchRunTest, WhatRepeatsAnEarlierBehaviourIsNoSignal) {
  SearchOptions searched = options();
  searched.batch_size = 16;
  searched.generations = 4;
  const SearchSummary summary = run_search(searched, observer_, interrupt_);
  std::int64_t repeats = 0;
  for (const CandidateRecorded& candidate : observer_.recorded) {
    if (candidate.failure_reason != kBehaviourRepeated.view()) continue;
    ++repeats;
    EXPECT_FALSE(candidate.statistics);
    constexpr std::string_view kBefore = "it wants to hold every day what candidate ";
    ASSERT_EQ(candidate.failure_detail.find(kBefore), 0U) << candidate.failure_detail;
    const auto earlier = std::stoll(candidate.failure_detail.substr(kBefore.size()));
    ASSERT_LT(earlier, candidate.candidate_number);
    EXPECT_TRUE(observer_.recorded[static_cast<std::size_t>(earlier - 1)].statistics);
  }
  EXPECT_GT(repeats, 0);
  EXPECT_EQ(summary.progress.failures.at("behaviour_repeated"), repeats);
  SqliteRunStore store(searched.database.string());
  for (const AttemptRecord& attempt : store.attempts().list({})) {
    if (!attempt.end || attempt.end->failure_reason != "behaviour_repeated") continue;
    EXPECT_EQ(attempt.end->terminal_disposition, "rejected");
    EXPECT_EQ(attempt.end->failure_category, "novelty");
    EXPECT_FALSE(attempt.end->backtest_completed);
  }
}

TEST_F(SearchRunTest, TheMetricsTellTheNumberOfWorkersWhateverTheyShare) {
  for (const Isolation isolation : {Isolation::Candidate, Isolation::Chunk}) {
    SearchOptions searched = options();
    searched.database = in_folder("workers.db");
    searched.jobs = 1;
    searched.isolation = isolation;
    RecordingObserver observer;
    static_cast<void>(run_search(searched, observer, interrupt_));
    std::filesystem::remove(searched.database);
    const Mapping metrics = observer.metrics.at(0).mapping();
    EXPECT_EQ(metrics.at("process_count").integer(), 1);
    EXPECT_EQ(metrics.at("determinism_metadata").mapping().at("process_count").integer(), 1);
  }
}

TEST_F(SearchRunTest, TheSameSeedRepeatsARunAndAnotherDoesNot) {
  static_cast<void>(run_search(options(), observer_, interrupt_));
  // On a store of its own: the signals of the first run would be in the pool of this one.
  RecordingObserver again;
  SearchOptions changed = options();
  changed.database = in_folder("again.db");
  static_cast<void>(run_search(changed, again, interrupt_));
  EXPECT_EQ(expressions_of(again), expressions_of(observer_));
  RecordingObserver other;
  changed.database = in_folder("other.db");
  changed.seed = 22;
  static_cast<void>(run_search(changed, other, interrupt_));
  EXPECT_NE(expressions_of(other), expressions_of(observer_));
}

TEST_F(SearchRunTest, BreedsFromWhatPassed) {
  SearchOptions longer = options();
  longer.batch_size = 12;
  longer.generations = 4;
  static_cast<void>(run_search(longer, observer_, interrupt_));
  ASSERT_EQ(observer_.generations.size(), 4U);
  EXPECT_EQ(observer_.generations[0].bred_in_generation, 0);
  std::int64_t bred = 0;
  for (const SearchProgress& progress : observer_.generations) {
    bred += progress.bred_in_generation;
    EXPECT_LE(progress.bred_in_generation, 12);
  }
  EXPECT_GT(bred, 0);
  std::int64_t recorded_as_bred = 0;
  for (const CandidateRecorded& candidate : observer_.recorded) {
    if (candidate.bred) ++recorded_as_bred;
  }
  EXPECT_EQ(recorded_as_bred, bred);
}

TEST_F(SearchRunTest, StoresTheSettingsThatRepeatIt) {
  const std::string seeds = R"([{"children":[],"node":"close","type":"feature"}])";
  std::ofstream(in_folder("seeds.json")) << seeds;
  SearchOptions set = options();
  set.restart_threshold = 3;
  set.elite_fraction = 0.5;
  set.diversity_weight = "0.125";
  set.parsimony_weight = 0.0;
  set.operator_rates = Mapping{{"crossover", 0.0}};
  set.seeds = in_folder("seeds.json");
  const SearchSummary summary = run_search(set, observer_, interrupt_);
  SqliteRunStore store(set.database.string());
  Mapping stored = read_json(store.find_run(summary.run_id)->start.settings_json).mapping();
  // What the configuration file says is the matter of its own tests.
  for (const char* table : {"gates", "pool", "eras"})
    EXPECT_TRUE(stored.erase(table)) << table;
  EXPECT_EQ(genetic::json_text(stored),
            R"({"batch_size":6,"candidates":null,"cost_basis_points":5.0,"delay_days":1,)"
            R"("delisting_return":0.0,"diversity_weight":0.125,)"
            R"("elite_fraction":0.5,"generations":2,"has_archive":true,)"
            R"("has_known_formulas":true,"has_simple_forms":true,"initial_candidates":)" +
                seeds +
                R"(,"isolation":"chunk","jobs":2,"judges_both_signs":true,"leaf_share":0.3,)"
                R"("least_known_share":0.8,"max_depth":5,)"
                R"("max_improvement_candidates":1,)"
                R"("max_improvement_depth":8,"max_improvement_rounds":10,"max_nodes":25,)"
                R"("max_window":120,"neutralize":"none",)"
                R"("operator_rates":{"crossover":0.0,"hoist_mutation":0.1,)"
                R"("point_mutation":0.3,"subtree_mutation":0.2},"parsimony_weight":0.0,)"
                R"("periods_per_year":252.0,"price_format":{},"price_paths":[],)"
                R"("restart_threshold":3,"seconds":null,)"
                R"("timeout_seconds":60.0,"vocabulary":{},"worker_memory_limit_bytes":null})");
}

TEST_F(SearchRunTest, TheTemplateJudgesItsOwnSettings) {
  SearchOptions bad = options();
  bad.elite_fraction = genetic::Value("1.5");
  try {
    static_cast<void>(run_search(bad, observer_, interrupt_));
    FAIL() << "an elite fraction above 1 must be refused";
  } catch (const genetic::ValueError& error) {
    EXPECT_EQ(error.text(), "genetic elite_fraction must be <= 1");
  }
  EXPECT_FALSE(std::filesystem::exists(bad.database));
}

TEST_F(SearchRunTest, NoStructureIsEvaluatedTwice) {
  SearchOptions longer = options();
  longer.generations = 5;
  // Otherwise a signal and its opposite are recorded as the same one.
  longer.is_as_written = true;
  const SearchSummary summary = run_search(longer, observer_, interrupt_);
  std::vector<std::string> expressions = expressions_of(observer_);
  std::sort(expressions.begin(), expressions.end());
  EXPECT_EQ(std::adjacent_find(expressions.begin(), expressions.end()), expressions.end());
  EXPECT_EQ(summary.progress.candidates, static_cast<std::int64_t>(expressions.size()));
}

TEST_F(SearchRunTest, TheLimitOfCandidatesCompletesItsBatch) {
  SearchOptions limited = options();
  limited.generations.reset();
  limited.candidates = 1;
  const SearchSummary summary = run_search(limited, observer_, interrupt_);
  EXPECT_EQ(summary.stop_cause, StopCause::Candidates);
  EXPECT_EQ(summary.progress.candidates, 6);
}

// Interrupts come when the run has begun.
class InterruptingObserver : public RecordingObserver {
 public:
  InterruptingObserver(InterruptFlag& interrupt, int requests)
      : interrupt_(interrupt), requests_(requests) {}
  void on_started(const SearchStarted& /*event*/) override { interrupt_.requests = requests_; }

 private:
  InterruptFlag& interrupt_;
  int requests_;
};

TEST_F(SearchRunTest, AnInterruptBeforeTheRunStoresNothing) {
  interrupt_.requests = 1;
  EXPECT_THROW(static_cast<void>(run_search(options(), observer_, interrupt_)), InterruptedAtOnce);
  EXPECT_FALSE(std::filesystem::exists(options().database));
}

TEST_F(SearchRunTest, AnInterruptAtItsBeginningRecordsNothingButTheMetrics) {
  InterruptingObserver observer(interrupt_, 1);
  const SearchSummary summary = run_search(options(), observer, interrupt_);
  EXPECT_EQ(summary.stop_cause, StopCause::Signal);
  EXPECT_EQ(summary.progress.candidates, 0);
  EXPECT_EQ(summary.metrics.mapping().at(keys::kCandidateCount).integer(), 0);
}

TEST_F(SearchRunTest, TheSecondInterruptLeavesTheRunMarked) {
  InterruptingObserver observer(interrupt_, 2);
  EXPECT_THROW(static_cast<void>(run_search(options(), observer, interrupt_)), InterruptedAtOnce);
  SqliteRunStore store(options().database.string());
  EXPECT_EQ(store.runs()[0].terminal_reason, "interrupted");
  EXPECT_TRUE(store.interrupted_runs().empty());
}

// Between the run's row and its first generation.
class RefusingObserver : public RecordingObserver {
 public:
  void on_started(const SearchStarted& /*event*/) override {
    throw std::runtime_error("the terminal is gone");
  }
};

TEST_F(SearchRunTest, AnErrorAtItsBeginningEndsTheRunAsFailed) {
  RefusingObserver observer;
  EXPECT_THROW(static_cast<void>(run_search(options(), observer, interrupt_)), std::runtime_error);
  SqliteRunStore store(options().database.string());
  ASSERT_EQ(store.runs().size(), 1U);
  EXPECT_EQ(store.runs()[0].terminal_reason, "failed");
}

class ThrowingObserver : public RecordingObserver {
 public:
  void on_recorded(const CandidateRecorded& /*candidate*/) override {
    throw std::runtime_error("the terminal is gone");
  }
};

TEST_F(SearchRunTest, AnErrorOfTheObserverLeavesAndMarksTheRun) {
  ThrowingObserver observer;
  EXPECT_THROW(static_cast<void>(run_search(options(), observer, interrupt_)), std::runtime_error);
  SqliteRunStore store(options().database.string());
  EXPECT_EQ(store.runs()[0].terminal_reason, "failed");
  EXPECT_EQ(store.evaluation_count(1), 1);  // Recorded before the observer was told.
}

TEST_F(SearchRunTest, BadInputWritesNothing) {
  const auto refused = [&](const SearchOptions& bad) {
    EXPECT_ANY_THROW(static_cast<void>(run_search(bad, observer_, interrupt_)));
    EXPECT_FALSE(std::filesystem::exists(bad.database));
  };
  SearchOptions bad = options();
  bad.jobs = 0;
  refused(bad);
  bad = options();
  bad.batch_size = genetic::Value("six");
  EXPECT_THROW(static_cast<void>(run_search(bad, observer_, interrupt_)), genetic::TypeError);
  refused(bad);
  bad = options();
  bad.timeout_seconds = 0.0;
  EXPECT_THROW(static_cast<void>(run_search(bad, observer_, interrupt_)), genetic::ValueError);
  refused(bad);
  bad = options();
  bad.prices = in_folder("missing.csv");
  EXPECT_THROW(static_cast<void>(run_search(bad, observer_, interrupt_)), PriceFileError);
  refused(bad);
  EXPECT_TRUE(observer_.started.empty());
}

class KillingObserver : public RecordingObserver {
 public:
  void on_recorded(const CandidateRecorded& candidate) override {
    if (candidate.candidate_number == 4) raise(SIGKILL);
  }
};

TEST_F(SearchRunTest, RowsAreThereAfterAKillAndTheRunIsSweptOnce) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    KillingObserver observer;
    static_cast<void>(run_search(options(), observer, interrupt_));
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  SqliteRunStore store(options().database.string());
  EXPECT_EQ(store.evaluation_count(1), 4);
  EXPECT_THAT(store.interrupted_runs(), ::testing::ElementsAre(1));
  SqliteRunStore second(options().database.string());
  EXPECT_TRUE(second.interrupted_runs().empty());
}

}  // namespace
}  // namespace varnholt::embedded::test
