// The parent pool as its rules read, and nothing saved: every score is asked for and every pair of
// graphs is walked again each time. What the library's pool is compared with, and how slow it is.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/host/eliteness.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic::test {

// Candidates are native mappings with plain graphs; scores are numbers.
class PlainParentPool {
 public:
  PlainParentPool(Eliteness& eliteness, double diversity_weight, double parsimony_weight)
      : eliteness_(eliteness),
        diversity_weight_(diversity_weight),
        parsimony_weight_(parsimony_weight) {}

  [[nodiscard]] std::vector<Value> pick(const std::vector<Value>& prior, double elite_fraction) {
    const std::vector<Value> unique = ranked(best_of_each_structure(prior));
    if (unique.empty()) return {};
    const std::size_t target_size = target_of(unique.size(), elite_fraction);
    if (diversity_weight_ <= 0.0) {
      return {unique.begin(), unique.begin() + static_cast<std::ptrdiff_t>(target_size)};
    }

    std::vector<Value> selected = {unique[0]};
    std::vector<Value> remaining;
    for (std::size_t i = 1; i < unique.size(); ++i)
      if (!contains(selected, unique[i])) remaining.push_back(unique[i]);
    while (selected.size() < target_size && !remaining.empty()) {
      const Value winner = greatest(remaining, selected);
      selected.push_back(winner);
      remaining.erase(std::find_if(remaining.begin(), remaining.end(), [&](const Value& item) {
        return is_same_or_equal(item, winner);
      }));
    }
    for (const Value& item : unique) {
      if (selected.size() >= target_size) break;
      if (!contains(selected, item)) selected.push_back(item);
    }
    return selected;
  }

  [[nodiscard]] static double similarity(const Value& left, const Value& right) {
    const std::vector<std::string_view> left_names = names_of(left);
    const std::vector<std::string_view> right_names = names_of(right);
    std::vector<std::string_view> shared;
    std::set_intersection(left_names.begin(), left_names.end(), right_names.begin(),
                          right_names.end(), std::back_inserter(shared));
    const std::size_t all = left_names.size() + right_names.size() - shared.size();
    if (all == 0) return 0.0;
    return static_cast<double>(shared.size()) / static_cast<double>(all);
  }

  [[nodiscard]] static double redundancy(const Value& candidate,
                                         const std::vector<Value>& selected) {
    const Value correlation = candidate.mapping().get("correlation");
    double redundancy = 0.0;
    if (!correlation.is_absent()) {
      if (!std::isfinite(to_float(correlation))) throw ValueError("not finite");
      redundancy = std::fabs(to_float(correlation));
    }
    for (const Value& other : selected) {
      const double overlap =
          similarity(candidate.mapping().get("graph"), other.mapping().get("graph"));
      if (overlap > redundancy) redundancy = overlap;
    }
    return redundancy;
  }

 private:
  // Both for the winner of a pass: the adjusted score, and the score with the caller's weight.
  using Rank = std::pair<double, double>;

  double score(const Value& candidate, double diversity_weight) {
    return to_float(eliteness_.score_candidate(
        candidate, {{"sibling_correlations", Tuple()},
                    {"pool_correlation", candidate.mapping().get("correlation")},
                    {"diversity_weight", diversity_weight},
                    {"parsimony_weight", parsimony_weight_}}));
  }

  std::vector<Value> best_of_each_structure(const std::vector<Value>& prior) {
    std::vector<std::pair<StructuralKey, Value>> best;
    for (const Value& item : prior) {
      const Value graph = item.mapping().get("graph");
      if (graph.is_absent()) continue;
      const StructuralKey key = structural_key(graph);
      const auto current = std::find_if(best.begin(), best.end(),
                                        [&](const auto& entry) { return entry.first == key; });
      if (current == best.end()) {
        best.emplace_back(key, item);
        continue;
      }
      const double item_score = score(item, diversity_weight_);
      if (item_score > score(current->second, diversity_weight_)) current->second = item;
    }
    std::vector<Value> values;
    for (const auto& entry : best)
      values.push_back(entry.second);
    return values;
  }

  // An insertion behind all that are at least as good.
  std::vector<Value> ranked(const std::vector<Value>& candidates) {
    std::vector<std::pair<double, Value>> scored;
    for (const Value& candidate : candidates)
      scored.emplace_back(score(candidate, diversity_weight_), candidate);
    std::vector<std::pair<double, Value>> sorted;
    for (const auto& entry : scored) {
      auto place = sorted.end();
      while (place != sorted.begin() && std::prev(place)->first < entry.first)
        --place;
      sorted.insert(place, entry);
    }
    std::vector<Value> values;
    for (const auto& entry : sorted)
      values.push_back(entry.second);
    return values;
  }

  static std::size_t target_of(std::size_t size, double elite_fraction) {
    const double exact = static_cast<double>(size) * elite_fraction;
    double rounded = std::floor(exact);
    const double rest = exact - rounded;
    if (rest > 0.5 || (rest == 0.5 && std::fmod(rounded, 2.0) != 0.0)) rounded += 1.0;
    if (rounded < 3.0) return std::min<std::size_t>(size, 3);
    return rounded > static_cast<double>(size) ? size : static_cast<std::size_t>(rounded);
  }

  Value greatest(const std::vector<Value>& remaining, const std::vector<Value>& selected) {
    std::optional<Rank> best_rank;
    Value best;
    for (const Value& item : remaining) {
      double adjusted = score(item, 0.0);
      adjusted -= redundancy(item, selected) * 5.0 * diversity_weight_;
      const Rank rank = {adjusted, score(item, diversity_weight_)};
      const bool is_greater =
          !best_rank || (rank.first != best_rank->first ? rank.first > best_rank->first
                                                        : rank.second > best_rank->second);
      if (!is_greater) continue;
      best_rank = rank;
      best = item;
    }
    return best;
  }

  static bool contains(const std::vector<Value>& candidates, const Value& candidate) {
    return std::any_of(candidates.begin(), candidates.end(),
                       [&](const Value& other) { return is_same_or_equal(other, candidate); });
  }

  static std::vector<std::string_view> names_of(const Value& graph) {
    std::vector<std::string_view> names;
    collect_names(graph, names);
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
  }
  static void collect_names(const Value& graph, std::vector<std::string_view>& names) {
    Value children = graph;
    if (graph.is_mapping()) {
      const Value name = graph.mapping().get("node");
      // The text lives as long as the graph.
      if (name.is_text() && !name.text().empty()) names.push_back(name.text());
      children = graph.mapping().get("children");
    }
    if (!children.is_list()) return;
    for (const Value& child : children.list().native_items())
      collect_names(child, names);
  }

  Eliteness& eliteness_;
  double diversity_weight_;
  double parsimony_weight_;
};

}  // namespace varnholt::genetic::test
