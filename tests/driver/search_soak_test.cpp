// Goal: a long run keeps nothing but what it must: memory and descriptors stay flat, the counters
// of the metrics record add up, and every candidate is recorded once.
//
// Method: 2,000 generations with repairs on a small scripted market, whose figures come from a
// graph's name alone; memory is what the allocator says is in use.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <unordered_set>

#include <gmock/gmock.h>
#include <malloc.h>

#include "tests/driver/search_harness.hpp"

namespace varnholt::genetic::test {
namespace {

constexpr int kGenerations = 2000;
// From here on everything that grows to its size has grown.
constexpr int kSettled = 200;
// What a run keeps of a candidate that has left its generation: the structural key in its set.
constexpr double kBytesOfACandidate = 300.0;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAllocatorTells = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAllocatorTells = false;
#else
constexpr bool kAllocatorTells = true;
#endif
#else
constexpr bool kAllocatorTells = true;
#endif

double bytes_in_use() {
  return static_cast<double>(mallinfo2().uordblks);
}

std::size_t open_descriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

// A figure from 0 up to `bound` that a name has in this market.
std::size_t figure(const std::string& name, const char* what, std::size_t bound) {
  return std::hash<std::string>()(name + what) % bound;
}

Mapping outcome_of(const Value& graph) {
  const std::string name = name_of(graph);
  if (figure(name, "passes", 10) == 0) return passing(graph);
  Mapping result = failing_for(graph, figure(name, "reason", 3) == 0 ? "other" : "turnover_max");
  const double value = 1.0 + 0.01 * static_cast<double>(figure(name, "violation", 100));
  const Value reason = result.at("failures").mapping().contains("other") ? "other" : "turnover_max";
  result.set("failures", Mapping{{reason, Mapping{{"value", value}, {"threshold", 1.0}}}});
  result.set("sharpe", 0.01 * static_cast<double>(figure(name, "sharpe", 100)));
  return result;
}

Value plans_for(const Value& result, const ReactionRequest& request) {
  List plans;
  const std::string name = name_of(result.mapping().at("graph"));
  for (const char* plan : {"a", "b", "c"}) {
    if (figure(name, plan, 2) == 0) continue;
    // Names that do not grow, so that some are met again.
    const std::string child = "r" + std::to_string(figure(name + plan, "child", 1U << 30U));
    plans.append(Mapping{{"graph", graph_named(child)},
                         {"source_result", result},
                         {"reaction_plan", plan},
                         {"improvement_depth", request.improvement_depth}});
  }
  return plans;
}

TEST(SearchSoak, TwoThousandGenerationsStayFlatAndAddUp) {
  SearchHarness search(4);
  search.host.log.mute();
  search.on_outcome = outcome_of;
  search.host.reaction_planning.on_derive_reaction_improvements = plans_for;
  std::unordered_set<std::string> recorded;
  std::int64_t record_calls = 0;
  search.on_record([&](std::span<const Value> positional, const Mapping&) {
    ++record_calls;
    recorded.insert(name_of(positional[0]));
    return Value("id");
  });

  double settled_bytes = 0.0;
  double final_bytes = 0.0;
  std::size_t settled_candidates = 0;
  std::size_t settled_descriptors = 0;
  search.stop_event->on_wait = [&, generation = 0](double) mutable {
    ++generation;
    if (generation == kSettled) {
      // The test's own set is given its final size, so that it does not count.
      recorded.reserve(400'000);
      settled_bytes = bytes_in_use();
      settled_candidates = recorded.size();
      settled_descriptors = open_descriptors();
    }
    if (generation == kGenerations) final_bytes = bytes_in_use();
    return generation == kGenerations;
  };
  search.run();

  ASSERT_EQ(search.metrics.size(), 1U);
  const Mapping metrics = search.metrics[0];
  const std::int64_t candidates = metrics.at("candidate_count").integer();
  EXPECT_EQ(metrics.at("terminal_reason"), "stopped");
  EXPECT_EQ(static_cast<std::int64_t>(recorded.size()), candidates);
  EXPECT_EQ(record_calls, candidates);
  EXPECT_EQ(metrics.at("unique_graph_count"), candidates);
  EXPECT_EQ(metrics.at("generated_graph_count").integer(),
            candidates + metrics.at("duplicate_graph_count").integer());
  EXPECT_GT(metrics.at("improvement_round_count").integer(), kGenerations);
  EXPECT_GT(candidates, 4 * kGenerations);
  EXPECT_EQ(open_descriptors(), settled_descriptors);
  if (kAllocatorTells) {
    const double grown = final_bytes - settled_bytes;
    const auto kept = static_cast<double>(recorded.size() - settled_candidates);
    EXPECT_LT(grown / kept, kBytesOfACandidate);
  }
}

}  // namespace
}  // namespace varnholt::genetic::test
