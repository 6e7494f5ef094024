// What one candidate costs the library itself, from the composed batch to the recorded result and,
// where it passes, to its submission, with a host that does nothing (null_host.hpp) and graphs of
// 20 nodes.
//
//   bench_spine                            timings, by Google Benchmark
//   scripts/count_spine_instructions.sh    instructions a candidate, by callgrind
//   bench_spine run WORK BATCH GENERATIONS MARK...    one run, for that script
//
// WORK is "passing" or "failing": whole searches whose candidates all pass, or all fail by what no
// repair addresses (bench_search.cpp has those that are repaired); or
// "baseline": the same steps as plainly as a general JSON library allows, in baseline_generation().
// At the start of each generation MARK the function reached_mark() is called, which callgrind can
// be told to dump at. Graphs are made and freed outside of what is measured, in untimed_graphs().
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include "benchmarks/whole_search.hpp"

namespace varnholt::genetic::benchmarks {

// The baseline: what a straightforward program does for a failing candidate with a general JSON
// value (nlohmann::ordered_json): the graph's text is the key, made once for the batch and once for
// the run, the graph is copied deeply once, and the record is one JSON object of the same
// entries. ----------------------------------------------------------------

using Json = nlohmann::ordered_json;

struct JsonNode {
  template <typename... Children>
  Json operator()(const std::string& name, const char* type, Children... children) const {
    Json below = Json::array();
    (below.push_back(std::move(children)), ...);
    return {{"node", name}, {"type", type}, {"children", std::move(below)}};
  }
};

class PlainGraphs {
 public:
  [[gnu::noinline]] const std::vector<Json>& untimed_graphs(std::int64_t count) {
    graphs_.clear();
    for (std::int64_t i = 0; i < count; ++i)
      graphs_.push_back(numbered_graph(next_++, JsonNode()));
    return graphs_;
  }

 private:
  std::int64_t next_ = 0;
  std::vector<Json> graphs_;
};

[[gnu::noinline]] std::string plain_recorder(const Json& /*result*/, const std::string& reason) {
  return reason.empty() ? "none" : "evaluation-id";
}

Json plain_record(const Json& graph) {
  const Json failure = {{"reason", "sharpe_min"}};
  Json record = {{"graph", graph},
                 {"stats", nullptr},
                 {"passes", false},
                 {"failures", {{"sharpe_min", failure}}},
                 {"eval_id", nullptr},
                 {"submission_payload", nullptr},
                 {"attempt_evidence", {{"backtest_completed", true}}},
                 {"per_column_stats", nullptr},
                 {"tracking_metric_kwargs",
                  {{"failure_reason", "sharpe_min"}, {"failure_detail", "1.25 < 1.5"}}},
                 {"sharpe", 1.25},
                 {"quality_score", 0.75},
                 {"correlation", 0.5}};
  record["worker_pid"] = 4321;
  record["elapsed_simulation_seconds"] = 0.25;
  record["process_attempt"] = 1;
  return record;
}

class Baseline {
 public:
  Baseline(std::int64_t batch_size, std::int64_t generations, std::vector<std::int64_t> marks)
      : batch_size_(batch_size), count_(generations, std::move(marks)) {}

  void run() {
    seen_.clear();
    count_.reset();
    count_.note_start();
    while (!count_.is_set()) {
      baseline_generation();
      static_cast<void>(count_.wait(0.0));
    }
  }

 private:
  void baseline_generation() {
    std::unordered_set<std::string> local;
    std::vector<Json> results;
    for (const Json& graph : graphs_.untimed_graphs(batch_size_)) {
      if (!local.insert(graph.dump()).second || !seen_.insert(graph.dump()).second) continue;
      results.push_back(plain_record(graph));
    }
    std::int64_t index = 0;
    for (Json& result : results) {
      result["candidate_index"] = index++;
      result["improvement_depth"] = 0;
      result["eval_id"] = plain_recorder(result, result["failures"].begin().key());
      result["_parent_recorded"] = true;
      elapsed_ += result["elapsed_simulation_seconds"].get<double>();
    }
    benchmark::DoNotOptimize(elapsed_);
  }

  std::int64_t batch_size_;
  GenerationCount count_;
  PlainGraphs graphs_;
  std::unordered_set<std::string> seen_;
  double elapsed_ = 0.0;
};

// Timings. The making of the graphs is part of them, and stands beside them alone. ---------------

constexpr std::int64_t kTimedCandidates = 4096;

template <typename Work>
void time_candidates(benchmark::State& state, Work work) {
  for ([[maybe_unused]] const auto turn : state)
    work.run();
  state.SetItemsProcessed(state.iterations() * kTimedCandidates);
}

void time_search(benchmark::State& state, const std::string& work) {
  const std::int64_t batch_size = state.range(0);
  time_candidates(state, Spine(work, batch_size, kTimedCandidates / batch_size, {}));
}
void time_baseline(benchmark::State& state) {
  const std::int64_t batch_size = state.range(0);
  time_candidates(state, Baseline(batch_size, kTimedCandidates / batch_size, {}));
}
void time_graphs(benchmark::State& state) {
  NumberedGraphs graphs;
  for ([[maybe_unused]] const auto turn : state)
    benchmark::DoNotOptimize(graphs.untimed_graphs(state.range(0)));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK_CAPTURE(time_search, failing, std::string("failing"))->Arg(64)->Arg(1024);
BENCHMARK_CAPTURE(time_search, passing, std::string("passing"))->Arg(64)->Arg(1024);
BENCHMARK(time_baseline)->Arg(64)->Arg(1024);
BENCHMARK(time_graphs)->Arg(64);

int run_once(const std::vector<std::string>& arguments) {
  if (arguments.size() < 3) {
    std::cerr << "usage: bench_spine run passing|failing|baseline BATCH GENERATIONS MARK...\n";
    return 2;
  }
  const std::int64_t batch_size = std::stoll(arguments[1]);
  const std::int64_t generations = std::stoll(arguments[2]);
  std::vector<std::int64_t> marks;
  for (std::size_t i = 3; i < arguments.size(); ++i)
    marks.push_back(std::stoll(arguments[i]));
  if (arguments[0] == "baseline") {
    Baseline(batch_size, generations, marks).run();
  } else {
    Spine(arguments[0], batch_size, generations, marks).run();
  }
  return 0;
}

}  // namespace varnholt::genetic::benchmarks

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (!arguments.empty() && arguments[0] == "run") {
    return varnholt::genetic::benchmarks::run_once({arguments.begin() + 1, arguments.end()});
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
