// How many lives of attempts a store takes a second: created, dispatched, in its backtest, ended,
// one transaction a step; the ends put on the disk together, as a run does it. The first argument
// is the folder of the file: on a memory file system a sync costs nothing.
//
//   lives       what the search's calls cost, with ends that survive a loss of power
//   no sync     the same without putting them on the disk: they survive the process's death only
//   each synced every end on the disk before the next attempt begins
//   recorded    each life ended by the record of its evaluation, in one transaction
//   by batch    the same, with the ends and records of so many lives in one transaction: what a run
//               that is killed would then lose
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include "hosts/embedded/attempts/end_sync.hpp"
#include "hosts/embedded/store/run_store.hpp"
#include "hosts/embedded/system/wall_clock.hpp"

namespace {

using varnholt::embedded::AttemptEndRow;
using varnholt::embedded::AttemptStep;
using varnholt::embedded::AttemptTable;
using varnholt::embedded::EndSync;
using varnholt::embedded::EvaluationRecord;
using varnholt::embedded::NewAttemptRow;
using varnholt::embedded::RunStore;

std::filesystem::path folder = std::filesystem::temp_directory_path();

// A graph of 20 nodes and the texts of a run's own attempts have about these lengths.
constexpr std::size_t kGraphBytes = 900;
constexpr std::size_t kStatisticsBytes = 330;

class Bench {
 public:
  Bench() : path_(folder / ("bench_attempts_" + std::to_string(::getpid()) + ".db")) {
    remove();
    store_ = varnholt::embedded::open_run_store(path_.string());
    run_ = store_->begin_run({});
    attempt_.run = run_;
    attempt_.source_path = "search_signal";
    attempt_.graph_json = std::string(kGraphBytes, 'g');
    attempt_.algorithm = "genetic";
    attempt_.data_shape_json = R"({"columns":10,"rows":1})";
    attempt_.expected_columns_json = std::string(180, 'c');
    attempt_.eval_type = "signal";
    end_.terminal_disposition = "rejected";
    end_.backtest_completed = true;
    end_.generated_stats_json = std::string(kStatisticsBytes, 's');
    end_.per_column_inventory_json = std::string(240, 'i');
    end_.threshold_gate_json = std::string(400, 't');
    end_.failure_category = "quality";
    end_.failure_reason = "sharpe_min";
    end_.failure_detail = "sharpe 0.12 is below 0.3";
    end_.classification_source = "parent_recorder";
  }
  ~Bench() {
    store_.reset();
    remove();
  }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  std::int64_t begin_one() {
    const double now = varnholt::embedded::wall_clock_seconds();
    attempt_.graph_key = "key" + std::to_string(++lives_);
    attempt_.rotation_identifier = "candidate-" + std::to_string(lives_ % 32);
    const std::int64_t id = attempts().create(attempt_, now);
    attempts().mark(id, AttemptStep::Dispatched, now);
    attempts().mark(id, AttemptStep::BacktestStarted, now);
    return id;
  }
  void end_one(std::int64_t id) {
    attempts().end(id, end_, varnholt::embedded::wall_clock_seconds());
  }
  // The latest lives, which have these numbers.
  void end_with_records(const std::vector<std::int64_t>& ids) {
    store_->under_lock("recording", [&] {
      std::int64_t life = lives_ - static_cast<std::int64_t>(ids.size());
      for (const std::int64_t id : ids) {
        EvaluationRecord record;
        record.candidate_number = ++life;
        record.graph_key = "key" + std::to_string(life);
        record.graph_json = attempt_.graph_json;
        record.statistics_json = end_.generated_stats_json;
        store_->record_evaluations(run_, {record});
        end_one(id);
      }
      return RunStore::LockedWork::Keep;
    });
  }
  AttemptTable& attempts() { return store_->attempts(); }

 private:
  void remove() const {
    for (const char* end : {"", "-wal", "-shm"})
      std::filesystem::remove(path_.string() + end);
  }

  std::filesystem::path path_;
  std::unique_ptr<RunStore> store_;
  std::int64_t run_ = 0;
  std::int64_t lives_ = 0;
  NewAttemptRow attempt_;
  AttemptEndRow end_;
};

void lives(benchmark::State& state) {
  Bench bench;
  EndSync sync(bench.attempts());
  for (auto _ : state) {
    bench.end_one(bench.begin_one());
    sync.note_end();
  }
  sync.sync();
  state.SetItemsProcessed(state.iterations());
}

void lives_not_synced(benchmark::State& state) {
  Bench bench;
  for (auto _ : state)
    bench.end_one(bench.begin_one());
  state.SetItemsProcessed(state.iterations());
}

void lives_each_synced(benchmark::State& state) {
  Bench bench;
  for (auto _ : state) {
    bench.end_one(bench.begin_one());
    bench.attempts().sync();
  }
  state.SetItemsProcessed(state.iterations());
}

void lives_recorded(benchmark::State& state) {
  Bench bench;
  EndSync sync(bench.attempts());
  for (auto _ : state) {
    bench.end_with_records({bench.begin_one()});
    sync.note_end();
  }
  sync.sync();
  state.SetItemsProcessed(state.iterations());
}

void lives_recorded_by_batch(benchmark::State& state) {
  Bench bench;
  EndSync sync(bench.attempts());
  std::vector<std::int64_t> ids(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    for (std::int64_t& id : ids)
      id = bench.begin_one();
    bench.end_with_records(ids);
    for (std::size_t i = 0; i < ids.size(); ++i)
      sync.note_end();
  }
  sync.sync();
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(lives)->Name("lives")->Iterations(10'000)->UseRealTime();
BENCHMARK(lives_recorded)->Name("recorded")->Iterations(10'000)->UseRealTime();
BENCHMARK(lives_recorded_by_batch)->Name("by batch")->Arg(32)->Iterations(312)->UseRealTime();
BENCHMARK(lives_not_synced)->Name("no sync")->Iterations(10'000)->UseRealTime();
BENCHMARK(lives_each_synced)->Name("each synced")->Iterations(300)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (argc > 1) folder = argv[1];
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
