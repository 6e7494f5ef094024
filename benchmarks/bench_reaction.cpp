// The price of one pass of improvement: the peers of every source, and the choice of near misses,
// for 256, 1,024 and 4,096 results with graphs of some 20 nodes.
//
// A plain version runs beside the library's, which walks the graphs of every pair anew as the rules
// are written; both must give the same peers and the same choice with the same requests to the
// host. At 1,024 results the library's pass must be at least 10 times faster. Of 4,096 results the
// plain version ranks the peers of 64 sources alone, since all of them would take minutes; its time
// is scaled up. Times are of the processor.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "benchmarks/null_host.hpp"
#include "search_templates/genetic/reaction/near_misses.hpp"
#include "search_templates/genetic/reaction/peers.hpp"
#include "search_templates/genetic/settings/module_constants.hpp"
#include "tests/support/plain_improvement.hpp"

namespace varnholt::genetic::benchmarks {
namespace {

constexpr std::int64_t kBatchSize = 64;
constexpr std::size_t kSourcesOfTheLargest = 64;

// Answers from the record, and notes who asked for what in which order.
class NotingGates : public NullGates {
 public:
  [[nodiscard]] Value stats_gate_metrics(const Value& stats) override {
    note(stats);
    return stats;
  }

  void note(const Value& asked) {
    sequence = (sequence ^ reinterpret_cast<std::uintptr_t>(asked.counted())) * 0x100000001B3U;
    ++requests;
  }

  std::uint64_t requests = 0;
  std::uint64_t sequence = 0;
};

class NotingEliteness : public Eliteness {
 public:
  explicit NotingEliteness(NotingGates& notes) : notes_(notes) {}
  [[nodiscard]] Value score_candidate(const Value& candidate,
                                      const Mapping& /*keywords*/) override {
    notes_.note(candidate);
    return candidate.mapping().get("sharpe");
  }

 private:
  NotingGates& notes_;
};

class NotingHost : public NullHost {
 public:
  [[nodiscard]] Gates& gates() override { return notes; }
  [[nodiscard]] Eliteness& eliteness() override { return eliteness_; }

  NotingGates notes;

 private:
  NotingEliteness eliteness_{notes};
};

// Failed results whose graphs are all different; every fourth failed by its delta exposure.
class Results {
 public:
  explicit Results(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      const char* const reason = i % 4 == 0 ? "delta_exposure_max" : "turnover_max";
      const Mapping failure = {{"value", 1.0 + fraction()}, {"threshold", 1.0}};
      all.push_back(Mapping{{"graph", graph(20)},
                            {"stats", Mapping{{"delta_exposure", fraction()}}},
                            {"passes", false},
                            {"failures", Mapping{{reason, failure}}},
                            {"sharpe", 0.5 + fraction()},
                            {"quality_score", 0.5 + fraction()},
                            {"candidate_index", static_cast<std::int64_t>(i)},
                            {"improvement_depth", 0}});
    }
  }

  std::vector<Value> all;

 private:
  [[nodiscard]] double fraction() { return static_cast<double>(draw_() % 1000) / 1000.0; }

  // A random tree of so many nodes over 40 features.
  Value graph(std::size_t nodes) {
    List children;
    for (std::size_t left = nodes - 1; left > 0;) {
      const std::size_t size = 1 + draw_() % left;
      children.append(graph(size));
      left -= size;
    }
    const bool is_feature = children.empty();
    const std::string name = is_feature ? "feature_" + std::to_string(draw_() % 40)
                                        : "function_" + std::to_string(draw_() % 120);
    return Mapping{
        {"node", name}, {"type", is_feature ? "feature" : "rotation"}, {"children", children}};
  }

  std::mt19937_64 draw_{20240229};
};

template <typename Work>
double seconds(const Work& work) {
  const std::clock_t start = std::clock();
  work();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

[[noreturn]] void fail(const char* text) {
  std::fprintf(stderr, "bench_reaction: %s\n", text);
  std::exit(1);
}

void require_same(const List& found, const std::vector<Value>& expected) {
  if (found.size() != expected.size()) fail("the two differ in number");
  for (std::size_t i = 0; i < expected.size(); ++i)
    if (!same_object(found.at(i), expected[i])) fail("the two differ");
}

struct Times {
  double plain = 0.0;
  double own = 0.0;
};

// The library ranks the peers of all results, the plain version those of the first few, and its
// time is scaled up.
Times time_peers(const ReactionEnvironment& environment, NotingGates& notes,
                 const std::vector<Value>& results, std::size_t plain_sources) {
  std::vector<std::vector<Value>> expected;
  test::PlainImprovement plain(environment);
  notes.sequence = 0;
  Times times;
  times.plain = seconds([&] {
    for (std::size_t i = 0; i < plain_sources; ++i)
      expected.push_back(plain.peers(results, results[i]));
  });
  times.plain *= static_cast<double>(results.size()) / static_cast<double>(plain_sources);
  const std::uint64_t asked = std::exchange(notes.sequence, 0);
  std::uint64_t asked_for_the_first = 0;
  std::vector<List> found;
  times.own = seconds([&] {
    PeerRanking ranking(environment.host, results);
    for (std::size_t i = 0; i < results.size(); ++i) {
      List graphs = ranking.graphs_for(results[i]);
      if (i < plain_sources) found.push_back(graphs);
      if (i + 1 == plain_sources) asked_for_the_first = notes.sequence;
    }
  });
  if (asked_for_the_first != asked) fail("the peers are ranked with other requests");
  for (std::size_t i = 0; i < plain_sources; ++i)
    require_same(found[i], expected[i]);
  return times;
}

Times time_near_misses(const ReactionEnvironment& environment, NotingGates& notes,
                       const std::vector<Value>& results) {
  List list;
  for (const Value& result : results)
    list.append(result);
  notes.sequence = 0;
  Times times;
  std::vector<Value> expected;
  times.plain = seconds(
      [&] { expected = test::PlainImprovement(environment).near_misses(results, kBatchSize); });
  const std::uint64_t asked = std::exchange(notes.sequence, 0);
  List found;
  times.own =
      seconds([&] { found = select_actionable_near_miss_parents(environment, list, kBatchSize); });
  if (notes.sequence != asked) fail("the near misses are chosen with other requests");
  require_same(found, expected);
  return times;
}

void print_row(std::size_t count) {
  NotingHost host;
  const LoadedConstants constants(host.search_settings(), host.process_evaluation());
  NullContext context(Value(), nullptr);
  const ReactionEnvironment environment = {host, constants, context};
  const std::vector<Value> results = Results(count).all;
  const Times peers =
      time_peers(environment, host.notes, results, count > 1024 ? kSourcesOfTheLargest : count);
  const Times misses = time_near_misses(environment, host.notes, results);
  const double factor = (peers.plain + misses.plain) / (peers.own + misses.own);
  std::printf("%8zu %12.3f %12.4f %12.4f %12.4f %10.1f\n", count, peers.plain, peers.own,
              misses.plain, misses.own, factor);
  std::fflush(stdout);
  if (count == 1024 && factor < 10.0) fail("less than 10 times faster than the plain version");
}

}  // namespace
}  // namespace varnholt::genetic::benchmarks

int main() {
  std::printf("%8s %12s %12s %12s %12s %10s\n", "results", "plain peers", "peers s", "plain misses",
              "misses s", "faster");
  for (const std::size_t count : {256U, 1024U, 4096U})
    varnholt::genetic::benchmarks::print_row(count);
  return 0;
}
