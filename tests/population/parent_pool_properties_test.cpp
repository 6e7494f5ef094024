// The pool of parents on random populations. Method: the library's pool against a plain one that
// follows the rules pair by pair; parents and the exact sequence of score requests must be alike.
#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/population/parent_pool.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/plain_parent_pool.hpp"
#include "tests/support/recording_eliteness.hpp"

namespace varnholt::genetic {
namespace {

using test::PlainParentPool;
using test::RecordingEliteness;

// Small graphs over few names, so that structures repeat and overlap; scores of few levels, so that
// ties are common. A score belongs to the candidate itself: equal records may have different ones.
class Population {
 public:
  explicit Population(std::uint64_t seed) : draw_(seed) {}

  std::vector<Value> candidates(bool numbered) {
    std::vector<Value> candidates;
    for (std::size_t count = below(30); candidates.size() < count;) {
      if (!candidates.empty() && below(10) == 0) {
        candidates.push_back(candidates[below(candidates.size())]);  // The same record once more.
        continue;
      }
      if (!numbered && !candidates.empty() && below(4) == 0) {
        candidates.push_back(twin(candidates[below(candidates.size())]));
        continue;
      }
      Mapping record;
      if (below(12) > 0) record.set("graph", below(20) > 0 ? graph(3) : Value());
      if (below(3) > 0) record.set("correlation", quantised(8) - 1.0);
      if (numbered) record.set("number", static_cast<std::int64_t>(candidates.size()));
      candidates.push_back(record);
    }
    return candidates;
  }
  double one_of(const std::vector<double>& values) { return values[below(values.size())]; }

  // Two scores of a candidate, with and without a diversity weight.
  double score(const Value& candidate, double diversity_weight) {
    auto [entry, is_new] = scores_.try_emplace(candidate.counted());
    if (is_new) entry->second = {quantised(3), quantised(3)};
    return diversity_weight == 0.0 ? entry->second.first : entry->second.second;
  }

 private:
  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(draw_() % bound); }
  double quantised(std::size_t levels) { return 0.25 * static_cast<double>(below(levels + 1)); }

  // An equal record of another structure: the keys of its graph stand in another order.
  static Value twin(const Value& candidate) {
    Mapping record = shallow_copy(candidate.mapping());
    const Value graph = record.get("graph");
    if (!graph.is_mapping()) return candidate;
    const auto entries = graph.mapping().native_entries();
    Mapping reversed;
    for (std::size_t i = entries.size(); i > 0; --i)
      reversed.set(entries[i - 1].key, entries[i - 1].value);
    record.set("graph", reversed);
    return record;
  }

  Value graph(int depth) {
    List children;
    if (depth > 0)
      for (std::size_t count = below(3); count > 0; --count)
        children.append(graph(depth - 1));
    const char* const names[] = {"add", "sub", "close", "open", ""};
    const Value name = names[below(5)];
    if (below(8) == 0) return children;
    if (below(4) == 0) return Mapping{{"children", children}, {"node", name}};
    return Mapping{{"node", name}, {"children", children}};
  }

  std::mt19937_64 draw_;
  std::map<const void*, std::pair<double, double>> scores_;
};

List list_of(const std::vector<Value>& values) {
  List list;
  for (const Value& value : values)
    list.append(value);
  return list;
}

struct Arguments {
  std::vector<Value> candidates;
  double elite_fraction = 0.0;
  double diversity_weight = 0.0;
};

Arguments random_arguments(Population& population, bool numbered) {
  Arguments arguments;
  arguments.candidates = population.candidates(numbered);
  arguments.elite_fraction = population.one_of({0.0, 0.1, 0.25, 0.5, 0.75, 1.0, 1.5});
  arguments.diversity_weight = population.one_of({-0.5, 0.0, 0.1, 0.5, 2.0});
  return arguments;
}

std::size_t structures(const Arguments& arguments) {
  StructuralKeySet keys;
  for (const Value& candidate : arguments.candidates) {
    const Value graph = candidate.mapping().get("graph");
    if (!graph.is_absent()) keys.insert(structural_key(graph));
  }
  return keys.size();
}

TEST(ParentPoolProperties, EqualsThePlainPool) {
  int repeated_parents = 0;
  int dropped_for_good = 0;
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    Population population(seed);
    const Arguments arguments = random_arguments(population, seed % 2 == 0);
    const auto score = [&](const Value& candidate, double diversity_weight) {
      return Value(population.score(candidate, diversity_weight));
    };
    RecordingEliteness plain(score);
    const std::vector<Value> expected = PlainParentPool(plain, arguments.diversity_weight, 0.25)
                                            .pick(arguments.candidates, arguments.elite_fraction);
    RecordingEliteness fast(score);
    const List parents =
        diverse_parent_pool(fast, list_of(arguments.candidates), arguments.elite_fraction,
                            arguments.diversity_weight, 0.25);

    ASSERT_EQ(parents.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
      EXPECT_TRUE(same_object(parents.at(i), expected[i])) << i;
    ASSERT_EQ(fast.calls.size(), plain.calls.size());
    for (std::size_t i = 0; i < plain.calls.size(); ++i)
      ASSERT_TRUE(fast.calls[i] == plain.calls[i]) << i;

    std::map<const void*, int> places;
    bool repeated = false;
    for (const Value& parent : expected)
      repeated = ++places[parent.counted()] > 1 || repeated;
    repeated_parents += repeated ? 1 : 0;
    dropped_for_good +=
        arguments.elite_fraction >= 1.0 && places.size() < structures(arguments) ? 1 : 0;
  }
  // The populations reach the odd corners: a parent chosen twice, one that never comes back.
  EXPECT_GT(repeated_parents, 0);
  EXPECT_GT(dropped_for_good, 0);
}

TEST(ParentPoolProperties, IsAPureFunction) {
  for (std::uint64_t seed = 0; seed < 100; ++seed) {
    SCOPED_TRACE(seed);
    Population population(seed);
    const Arguments arguments = random_arguments(population, false);
    RecordingEliteness eliteness([&](const Value& candidate, double diversity_weight) {
      return Value(population.score(candidate, diversity_weight));
    });
    const List prior = list_of(arguments.candidates);
    const std::string before = repr(prior);
    const List first = diverse_parent_pool(eliteness, prior, arguments.elite_fraction,
                                           arguments.diversity_weight, 0.25);
    const List second = diverse_parent_pool(eliteness, prior, arguments.elite_fraction,
                                            arguments.diversity_weight, 0.25);
    EXPECT_EQ(repr(prior), before);
    ASSERT_EQ(first.size(), second.size());
    for (std::size_t i = 0; i < first.size(); ++i)
      EXPECT_TRUE(same_object(first.at(i), second.at(i)));
  }
}

TEST(ParentPoolProperties, NoTwoParentsShareAStructure) {
  for (std::uint64_t seed = 0; seed < 100; ++seed) {
    SCOPED_TRACE(seed);
    Population population(seed);
    const Arguments arguments = random_arguments(population, true);
    RecordingEliteness eliteness([&](const Value& candidate, double diversity_weight) {
      return Value(population.score(candidate, diversity_weight));
    });
    const List parents =
        diverse_parent_pool(eliteness, list_of(arguments.candidates), arguments.elite_fraction,
                            arguments.diversity_weight, 0.25);
    StructuralKeySet keys;
    for (std::size_t i = 0; i < parents.size(); ++i)
      EXPECT_TRUE(keys.insert(structural_key(parents.at(i).mapping().at("graph"))).second);
  }
}

TEST(ParentPoolProperties, AdjustedScoresEqualThePlainOnes) {
  for (std::uint64_t seed = 0; seed < 100; ++seed) {
    SCOPED_TRACE(seed);
    Population population(seed);
    const std::vector<Value> candidates = population.candidates(false);
    const std::vector<Value> selected(
        candidates.begin(),
        candidates.begin() + static_cast<std::ptrdiff_t>(candidates.size() / 3));
    for (const Value& candidate : candidates) {
      EXPECT_EQ(selected_redundancy(candidate, list_of(selected)),
                PlainParentPool::redundancy(candidate, selected));
    }
  }
}

}  // namespace
}  // namespace varnholt::genetic
