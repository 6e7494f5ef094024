// What the walks over one graph cost: its copies, its structural key, its canonical text.
//
// Two ways to run it:
//
//   bench_structural_key                   measures time, with the options of Google Benchmark
//   bench_structural_key --case NAME N     runs one case N times and nothing else, for
//                                          scripts/count_instructions.sh
//   bench_structural_key --list            names the cases
//   bench_structural_key --size            tells the bytes that a key holds besides its own object
//
// Instruction counts repeat exactly where times do not, so budgets are told in instructions.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>

#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {
namespace {

// One node as a host that reads its graphs from JSON has it: every text is an object of its own.
Value node(const char* name, const char* type, std::initializer_list<Value> children) {
  Mapping made(3);
  made.set(std::string("node"), std::string(name));
  made.set(std::string("type"), std::string(type));
  made.set(std::string("children"), List(children));
  return made;
}

Value feature(const char* name) {
  return node(name, "feature", {});
}

// A signal of 20 nodes in six levels, of the shape that searches breed.
Value usual_graph() {
  const Value momentum =
      node("rank", "operator",
           {node("subtract", "operator",
                 {node("ts_mean_20", "operator", {feature("close")}),
                  node("ts_mean_60", "operator", {node("log", "operator", {feature("close")})})})});
  const Value liquidity =
      node("divide", "operator",
           {node("ts_sum_10", "operator",
                 {node("multiply", "operator", {feature("volume"), feature("vwap")})}),
            node("ts_std_20", "operator", {feature("returns")})});
  return node(
      "multiply", "operator",
      {node("add", "operator", {momentum, liquidity}),
       node("if_else", "operator", {feature("market_cap"), feature("high"), feature("low")})});
}

struct Case {
  std::string_view name;
  void (*run)(const Value& graph);
};

constexpr Case kCases[] = {
    {"plain_copy",
     [](const Value& graph) { benchmark::DoNotOptimize(plain_graph_data(graph).counted()); }},
    {"deep_copy", [](const Value& graph) { benchmark::DoNotOptimize(deep_copy(graph).counted()); }},
    {"structural_key",
     [](const Value& graph) { benchmark::DoNotOptimize(structural_key(graph).hash()); }},
    {"canonical_text",
     [](const Value& graph) { benchmark::DoNotOptimize(canonical_graph_string(graph).data()); }},
    {"freeze",
     [](const Value& graph) { benchmark::DoNotOptimize(freeze_graph_data(graph).counted()); }},
};

int run_case(std::string_view name, std::int64_t repetitions) {
  const Value graph = usual_graph();
  for (const Case& wanted : kCases) {
    if (wanted.name != name) continue;
    for (std::int64_t i = 0; i < repetitions; ++i)
      wanted.run(graph);
    return EXIT_SUCCESS;
  }
  std::cerr << "there is no case \"" << name << "\"; --list names them\n";
  return EXIT_FAILURE;
}

void measure_times() {
  for (const Case& wanted : kCases) {
    benchmark::RegisterBenchmark(std::string(wanted.name).c_str(),
                                 [&wanted](benchmark::State& state) {
                                   const Value graph = usual_graph();
                                   for (auto _ : state)
                                     wanted.run(graph);
                                 });
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}

}  // namespace
}  // namespace varnholt::genetic

int main(int argc, char** argv) {
  using varnholt::genetic::kCases;
  const std::string_view option = argc > 1 ? argv[1] : "";
  if (option == "--list") {
    for (const auto& known : kCases)
      std::cout << known.name << '\n';
    return EXIT_SUCCESS;
  }
  if (option == "--size") {
    using varnholt::genetic::structural_key;
    std::cout << structural_key(varnholt::genetic::usual_graph()).encoded_size() << '\n';
    return EXIT_SUCCESS;
  }
  if (option == "--case") {
    if (argc != 4) {
      std::cerr << "usage: " << argv[0] << " --case NAME REPETITIONS\n";
      return EXIT_FAILURE;
    }
    return varnholt::genetic::run_case(argv[2], std::atoll(argv[3]));
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
  varnholt::genetic::measure_times();
  return EXIT_SUCCESS;
}
