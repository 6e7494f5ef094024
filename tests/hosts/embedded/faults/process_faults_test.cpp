// Goal: whatever happens to the workers of a batch, and when, each attempt ends once, each
// candidate has at most one record, the store is sound, and no process and no descriptor is left.
// Method: batches of one to eight candidates through the real ledger, pool, store and forks, half
// of them with several candidates a child. In four of five batches children are struck at random
// stages by random faults; in some the search is stopped or interrupted at a random moment, or
// right before a dispatch. After each batch an independent reader looks at the store, and the
// process at itself.
//
// A failing batch prints its seed. VARNHOLT_FAULT_SEED repeats it, VARNHOLT_FAULT_RUNS sets how
// many batches each test runs (docs/reliability.md).
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "hosts/embedded/host/embedded_host.hpp"
#include "hosts/embedded/search/run_recorder.hpp"
#include "hosts/embedded/system/machine_limits.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "search_templates/genetic/process/batch_evaluation.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/faults/faulty_process.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/support/store_invariants.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Value;
using ::testing::IsEmpty;

// Beyond what a healthy evaluation of the small universe takes. A fork with the sanitizer's shadow
// memory takes a hundred times as long.
constexpr double kTimeoutSeconds = kUnderAddressSanitizer ? 1.0 : 0.06;
constexpr std::uint64_t kBatches = kUnderAddressSanitizer ? 10 : 500;
constexpr std::uint64_t kWorkerMemoryBytes = std::uint64_t{256} * 1024 * 1024;
constexpr int kBatchesAStore = 20;

std::uint64_t number_from(const char* variable, std::uint64_t fallback) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? fallback : std::strtoull(text, nullptr, 10);
}

std::size_t descriptor_count() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    ++count;
  return count;
}

bool has_children() {
  return ::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

// Stops the search after so many looks at it, or leaves it at once after so many records.
class InterruptingRecorder : public ResultRecorder {
 public:
  InterruptingRecorder(ResultRecorder& recorder, InterruptFlag& interrupt)
      : recorder_(recorder), interrupt_(interrupt) {}

  void stop_after(int looks) { looks_ = looks; }
  void leave_after(int records) { records_ = records; }
  Value record(const Value& graph, bool passed, const Mapping& keywords,
               const ActiveAttempt& attempt) override {
    Value id = recorder_.record(graph, passed, keywords, attempt);
    if (records_ && (*records_)-- == 0) throw InterruptedAtOnce();
    return id;
  }
  void record_metrics(const Mapping& metrics) override { recorder_.record_metrics(metrics); }
  void tick() override {
    recorder_.tick();
    if (looks_ && (*looks_)-- == 0) interrupt_.requests = 1;
  }
  [[nodiscard]] std::shared_ptr<EmbeddedTracker> tracker() override { return recorder_.tracker(); }
  [[nodiscard]] Value run_id() override { return recorder_.run_id(); }

 private:
  ResultRecorder& recorder_;
  InterruptFlag& interrupt_;
  std::optional<int> looks_;
  std::optional<int> records_;
};

class ProcessFaults : public FolderTest, public ::testing::WithParamInterface<int> {
 protected:
  // One run of one batch on the store; what it leaves is checked.
  void run_batch(std::uint64_t seed) {
    SCOPED_TRACE("VARNHOLT_FAULT_RUNS=1 VARNHOLT_FAULT_SEED=" + std::to_string(seed));
    random_.seed(seed);
    system_.seed(seed);
    const bool is_calm = draw(5) == 0;
    system_.set_rates(is_calm ? 0.0 : 0.4, draw(3) == 0);
    const std::string path = in_folder("runs.db").string();
    const std::size_t descriptors = descriptor_count();
    std::int64_t run = 0;
    std::optional<std::size_t> results;
    {
      SqliteRunStore store(path);
      run = search(store, results);
    }
    EXPECT_FALSE(has_children());
    EXPECT_EQ(descriptor_count(), descriptors);
    EXPECT_THAT(store_violations(path), IsEmpty());
    check_records(path, run, results);
  }

  std::uint64_t first_seed() {
    return number_from("VARNHOLT_FAULT_SEED",
                       static_cast<std::uint64_t>(GetParam()) * 1'000'000 + 1);
  }

  int stopped_ = 0;
  int interrupted_ = 0;
  int candidates_ = 0;

 private:
  int draw(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }

  std::int64_t search(SqliteRunStore& store, std::optional<std::size_t>& results) {
    InterruptFlag interrupt;
    const auto stop = std::make_shared<SearchStop>(StopLimits{}, interrupt);
    Lineage lineage;
    RecordingObserver observer;
    RunStart start{1.0, 1, "{}", "prices.csv", "ab12", "0.1.0"};
    start.market_id = pool_identity_.market_id;
    start.era_number = pool_identity_.era_number;
    RunRecorder recorder(store, observer, lineage, *stop, {10, open_gates(), {}, pool_identity_},
                         start);
    InterruptingRecorder interrupting(recorder, interrupt);
    const int ending = draw(10);
    if (ending == 0) interrupting.stop_after(draw(60));
    if (ending == 1) interrupting.leave_after(draw(4));
    if (ending == 2) system_.interrupt_before_fork(draw(8), interrupt, 1 + draw(2));

    SignalSubmission submission(store, evaluator_, pool_identity_, PoolSettings{});
    const Isolation isolation = draw(2) == 0 ? Isolation::Candidate : Isolation::Chunk;
    system_.set_candidates_per_worker(isolation == Isolation::Chunk ? 4 : 1);
    ProcessSide process(system_, 60.0, isolation);
    HostSettings settings;
    settings.gates = open_gates();
    settings.log = [](LogLevel, std::string_view) {};
    settings.seed = 5;
    EmbeddedHost host(process, evaluator_.vocabulary(), lineage, submission, settings);
    FaultyContext context(evaluator_, context_settings(), stop, interrupting, submission, process,
                          system_);
    const List batch = make_batch();
    candidates_ += static_cast<int>(batch.size());
    try {
      results =
          genetic::evaluate_candidate_batch(host, context, batch, kTimeoutSeconds).list().size();
      if (stop->is_set()) ++stopped_;
    } catch (const InterruptedAtOnce&) {
      ++interrupted_;
    }
    system_.interrupt_no_more();
    recorder.settled(submission.sync());
    recorder.end("completed");
    return recorder.run();
  }

  [[nodiscard]] ContextSettings context_settings() {
    ContextSettings settings;
    settings.jobs = 1 + draw(3);
    settings.gates = open_gates();
    settings.pool = pool_identity_;
    // The sanitizer's shadow needs more address space than any limit allows.
    if (!kUnderAddressSanitizer) {
      settings.worker_memory_limit_bytes =
          static_cast<std::int64_t>(mapped_bytes().value_or(0) + kWorkerMemoryBytes);
    }
    return settings;
  }

  List make_batch() {
    genetic::TwisterGenerator generator{genetic::MersenneTwister(random_())};
    List batch;
    std::set<std::string> there;
    const auto size = static_cast<std::size_t>(1 + draw(8));
    while (batch.size() < size) {
      const Value graph = random_graph(generator, evaluator_.vocabulary(),
                                       {.max_depth = 3, .max_nodes = 8, .max_window = 10});
      if (there.insert(genetic::canonical_graph_string(graph)).second) batch.append(graph);
    }
    return batch;
  }

  static void check_records(const std::string& path, std::int64_t run,
                            const std::optional<std::size_t>& results) {
    SqliteDatabase reader(path, 1000);
    const std::string of_run = " WHERE run_id = " + std::to_string(run);
    const auto count = [&](const std::string& what) {
      return reader.query_integer(("SELECT " + what + " FROM evaluations" + of_run).c_str(),
                                  "counting");
    };
    const std::int64_t records = count("count(*)");
    EXPECT_EQ(count("count(DISTINCT graph_key)"), records) << "a candidate has two records";
    // A search that is interrupted at once returns nothing of what it has recorded.
    if (results) {
      EXPECT_EQ(static_cast<std::size_t>(records), *results);
    }
  }

  std::mt19937_64 random_;
  FaultySystem system_;
  Evaluator evaluator_{small_universe()};
  PoolIdentity pool_identity_{"alpha", 7, 3, "data"};
};

TEST_P(ProcessFaults, LeaveASoundStoreAndNothingBehind) {
  const std::uint64_t runs = number_from("VARNHOLT_FAULT_RUNS", kBatches);
  for (std::uint64_t i = 0; i < runs && !HasFailure(); ++i) {
    if (i % kBatchesAStore == 0) {
      for (const char* const name : {"runs.db", "runs.db-wal", "runs.db-shm"})
        std::filesystem::remove(in_folder(name));
    }
    run_batch(first_seed() + i);
  }
  if (runs >= 100) {
    EXPECT_GT(stopped_, 0);
    EXPECT_GT(interrupted_, 0);
  }
  RecordProperty("candidates", candidates_);
  RecordProperty("stopped", stopped_);
  RecordProperty("interrupted", interrupted_);
}

INSTANTIATE_TEST_SUITE_P(Seeds, ProcessFaults, ::testing::Range(1, 5));

}  // namespace
}  // namespace varnholt::embedded::test
