// Random generations of candidate results for the tests of improvement: failures near and far,
// structures that repeat, ties in every figure.
#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic::test {

class RandomResults {
 public:
  explicit RandomResults(std::uint64_t seed) : draw_(seed) {}

  [[nodiscard]] std::size_t below(std::size_t bound) { return draw_() % bound; }

  // A tree of up to four levels over eight features, often met before.
  [[nodiscard]] Value graph(int depth = 3) {
    if (depth == 0 || below(3) == 0) {
      return Mapping{{"node", std::string(1, static_cast<char>('a' + below(8)))},
                     {"type", "feature"}};
    }
    List children;
    for (std::size_t left = 1 + below(2); left > 0; --left)
      children.append(graph(depth - 1));
    const std::array<const char*, 3> names = {"arithmetic_add", "ts_mean_5", "comparison_gt"};
    return Mapping{
        {"node", names.at(below(names.size()))}, {"type", "rotation"}, {"children", children}};
  }

  [[nodiscard]] Mapping failures() {
    Mapping failures;
    for (std::size_t left = below(4); left > 0; --left) {
      // A quarter and its multiples, so that sums of violations tie.
      failures.set(reason(), Mapping{{"value", 0.25 * static_cast<double>(below(9))},
                                     {"threshold", 0.5 * static_cast<double>(1 + below(2))}});
    }
    return failures;
  }

  [[nodiscard]] Value result() {
    const auto number = static_cast<std::int64_t>(made_++);
    return Mapping{
        {"graph", graph()},
        {"passes", below(8) == 0},
        {"failures", failures()},
        {"sharpe", 0.5 * (static_cast<double>(below(6)) - 1.0)},
        {"quality_score", 0.5 * (static_cast<double>(below(6)) - 1.0)},
        {"candidate_index", number / 2},
        {"improvement_depth", static_cast<std::int64_t>(below(3))},
        {"metrics", Mapping{{"delta_exposure", 0.25 * static_cast<double>(below(4))},
                            {"max_weight", 0.25 * static_cast<double>(below(4))}}},
        {"score", 0.5 * static_cast<double>(below(4))},
    };
  }

  [[nodiscard]] std::vector<Value> results(std::size_t count) {
    std::vector<Value> results;
    while (results.size() < count)
      results.push_back(result());
    return results;
  }

  // What a host answers about a result: the figures that stand in it.
  [[nodiscard]] static Value metrics_of(const Value& result) {
    return result.mapping().get("metrics", Mapping());
  }
  [[nodiscard]] static Value score_of(const Value& candidate, const Mapping& /*keywords*/) {
    return candidate.mapping().at("score");
  }

 private:
  [[nodiscard]] Key reason() {
    const std::size_t reason = below(REACTION_FAILURE_REASONS.size() + 2);
    return reason < REACTION_FAILURE_REASONS.size()
               ? REACTION_FAILURE_REASONS.at(reason)
               : GATE_NEAR_MISS_FAILURE_REASONS.at(reason - REACTION_FAILURE_REASONS.size());
  }

  std::mt19937_64 draw_;
  std::uint64_t made_ = 0;
};

}  // namespace varnholt::genetic::test
