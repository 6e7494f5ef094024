// What it costs the library to record one candidate and to submit it where it passes, with a host
// that does nothing (null_host.hpp) and graphs of 20 nodes.
//
//   bench_recording                    timings, by Google Benchmark
//   bench_recording --case NAME N      records N candidates of one kind, for
//                                      scripts/count_recording_instructions.sh
//   bench_recording --list             names the kinds
//
// A generation is what is measured: recording and submission run over it twice, as in a search. The
// records are made and freed outside of what is measured, in untimed_records().
#include <array>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>

#include "benchmarks/null_host.hpp"
#include "search_templates/genetic/submission/recording.hpp"
#include "search_templates/genetic/submission/submitting.hpp"

namespace varnholt::genetic::benchmarks {
namespace {

constexpr std::int64_t kGeneration = 64;

Value feature(const std::string& name) {
  return Mapping{{"node", name}, {"type", "feature"}, {"children", List()}};
}

// A left-leaning tree of ten features under nine sums and a rank, told from others by its number.
Value graph_number(std::int64_t number) {
  Value graph = feature("feature_" + std::to_string(number));
  for (int i = 0; i < 9; ++i) {
    graph = Mapping{{"node", std::string("arithmetic_add")},
                    {"type", std::string("rotation")},
                    {"children", List{graph, feature("close_" + std::to_string(i))}}};
  }
  return Mapping{{"node", "cs_rank"}, {"type", "rotation"}, {"children", List{graph}}};
}

Mapping timing() {
  return {{"seconds", 0.25}, {"graph_key", "key"}};
}

// A result as a child's evaluation leaves it.
Mapping result_record(std::int64_t number, bool passes) {
  Mapping result{{"graph", graph_number(number)},
                 {"stats", make_object<FixedStatistics>()},
                 {"passes", passes},
                 {"failures", Mapping()},
                 {"eval_id", Value()},
                 {"submission_payload", Value()},
                 {"attempt_evidence", Value()},
                 {"per_column_stats", Value()},
                 {"tracking_metric_kwargs", Mapping()},
                 {"sharpe", 1.25},
                 {"quality_score", 0.75},
                 {"correlation", 0.5},
                 {"candidate_index", number},
                 {"worker_pid", 4321},
                 {"elapsed_simulation_seconds", 0.25},
                 {"process_attempt", 1}};
  if (!passes) {
    result.set("failures", Mapping{{"sharpe_min", Mapping{{"reason", "sharpe_min"}}}});
  }
  return result;
}

Mapping failed(std::int64_t number) {
  return result_record(number, false);
}
Mapping failed_after_backtest(std::int64_t number) {
  Mapping result = failed(number);
  result.set("backtest_timing", timing());
  result.set("attempt_evidence",
             Mapping{{"backtest_completed", true}, {"backtest_timing", timing()}});
  return result;
}
Mapping passing(std::int64_t number) {
  Mapping result = result_record(number, true);
  result.set("backtest_timing", timing());
  return result;
}
Mapping passing_with_payload(std::int64_t number) {
  Mapping result = passing(number);
  result.set("submission_payload", Mapping{{"submission_type", "signal"}, {"eval_id", Value()}});
  return result;
}

struct Kind {
  std::string_view name;
  Mapping (*make)(std::int64_t number);
};
constexpr std::array kKinds = {
    Kind{"failed", failed}, Kind{"failed_after_backtest", failed_after_backtest},
    Kind{"passing", passing}, Kind{"passing_with_payload", passing_with_payload}};

// The generation before is freed here, and the next one made.
[[gnu::noinline]] void untimed_records(List& records, const Kind& kind) {
  records = List(kGeneration);
  for (std::int64_t i = 0; i < kGeneration; ++i)
    records.append(kind.make(i));
}

void record_generations(const Kind& kind, std::int64_t generations) {
  NullHost host;
  NullContext context(Value(), nullptr);
  List records;
  for (std::int64_t i = 0; i < generations; ++i) {
    untimed_records(records, kind);
    for (int pass = 0; pass < 2; ++pass) {
      record_candidate_results_in_parent(host, context, records);
      submit_submittable_candidates(host, context, records);
    }
  }
  untimed_records(records, kind);
}

void time_recording(benchmark::State& state, const Kind& kind) {
  constexpr std::int64_t kGenerations = 16;
  for ([[maybe_unused]] const auto turn : state)
    record_generations(kind, kGenerations);
  state.SetItemsProcessed(state.iterations() * kGenerations * kGeneration);
}

int run_case(std::string_view name, std::int64_t candidates) {
  for (const Kind& kind : kKinds) {
    if (kind.name != name) continue;
    record_generations(kind, candidates / kGeneration);
    return 0;
  }
  std::cerr << "there is no kind " << name << "; --list names them\n";
  return 2;
}

int list_kinds() {
  for (const Kind& kind : kKinds)
    std::cout << kind.name << '\n';
  return 0;
}

}  // namespace
}  // namespace varnholt::genetic::benchmarks

int main(int argc, char** argv) {
  using namespace varnholt::genetic::benchmarks;  // NOLINT(google-build-using-namespace)
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() == 1 && arguments[0] == "--list") return list_kinds();
  if (arguments.size() == 3 && arguments[0] == "--case") {
    return run_case(arguments[1], std::stoll(arguments[2]));
  }
  for (const Kind& kind : kKinds) {
    benchmark::RegisterBenchmark(std::string(kind.name).c_str(), time_recording, kind);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
