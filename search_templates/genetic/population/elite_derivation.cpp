#include "search_templates/genetic/population/elite_derivation.hpp"

#include <algorithm>
#include <array>
#include <exception>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "search_templates/genetic/context/context_limits.hpp"
#include "search_templates/genetic/graph/node_types.hpp"
#include "search_templates/genetic/population/parent_scoring.hpp"
#include "search_templates/genetic/population/score_order.hpp"
#include "search_templates/genetic/settings/operator_rates.hpp"
#include "search_templates/genetic/value/arithmetic.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr Key kCrossover = key<"crossover">();
constexpr Key kPointMutation = key<"point_mutation">();
constexpr Key kSubtreeMutation = key<"subtree_mutation">();
constexpr Key kHoistMutation = key<"hoist_mutation">();
constexpr auto kOperators =
    std::to_array({kCrossover, kPointMutation, kSubtreeMutation, kHoistMutation});

// What keeps the worst parent's chance above zero.
constexpr double kWeightFloor = 0.001;
constexpr std::int64_t kReplacements = 3;

Value rate_of(const Mapping& rates, Key name) {
  return rates.get(name, 0.0);
}

List first_parents(const List& parents, const Value& elite_fraction) {
  const auto size = static_cast<std::int64_t>(parents.size());
  const std::int64_t count =
      std::clamp<std::int64_t>(saturated_integer(rounded(times(size, elite_fraction))), 1, size);
  List eligible(static_cast<std::size_t>(count));
  for (std::int64_t i = 0; i < count; ++i)
    eligible.append(parents.at(static_cast<std::size_t>(i)));
  return eligible;
}

struct ParentIndices {
  std::int64_t elite = 0;
  std::int64_t mate = 0;
};

ParentIndices choose_parents(Eliteness& eliteness, const List& eligible, RandomGenerator* rng,
                             const DerivationSettings& settings) {
  if (compares(Comparison::kAtLeast, settings.elite_fraction, 1.0) && eligible.size() >= 2) {
    return {static_cast<std::int64_t>(eligible.size()) - 1, 0};
  }
  ParentIndices indices;
  indices.elite = weighted_parent_index(eliteness, eligible, rng, settings.diversity_weight,
                                        settings.parsimony_weight);
  indices.mate = weighted_parent_index(eliteness, eligible, rng, settings.diversity_weight,
                                       settings.parsimony_weight);
  return indices;
}

Value graph_of(const List& parents, std::int64_t index) {
  return item(parents.at(static_cast<std::size_t>(index)), keys::kGraph);
}

// One offspring on its way.
class Derivation {
 public:
  Derivation(GeneticOps& ops, Callable validator, Value elite, Value mate,
             std::shared_ptr<RandomGenerator> rng)
      : ops_(ops),
        validator_(std::move(validator)),
        elite_(std::move(elite)),
        mate_(std::move(mate)),
        rng_(std::move(rng)) {
    if (const std::optional<Mapping> mapping = as_mapping(elite_)) {
      root_node_ = mapping->get(keys::kNode);
    }
    data_child_count_ = data_graph_child_count(elite_);
  }

  Value apply(Key operation, const Value& replacements) {
    if (is(operation, kCrossover)) return ops_.crossover(elite_, mate_, rng_, validator_);
    if (is(operation, kPointMutation) && truth(replacements)) {
      return ops_.point_mutation(elite_, replacements, rng_, validator_);
    }
    if (is(operation, kSubtreeMutation) && truth(replacements)) {
      return ops_.subtree_mutation(elite_, replacements, rng_, validator_);
    }
    // A mutation without replacements leaves the elite as it is. Only here is the child validated:
    // the other operators have the validator themselves.
    const Value hoisted =
        is(operation, kHoistMutation) ? ops_.hoist_mutation(elite_, rng_, validator_) : elite_;
    Value child = deep_copy(hoisted);
    if (validator_) validator_({child});
    return child;
  }

  Value with_root(const Value& child) {
    return restore_elite_root_node(child, root_node_, data_child_count_, validator_);
  }

  Value crossed_with_mate(const Value& child) {
    return with_root(ops_.crossover(child, mate_, rng_, validator_));
  }

  static bool is(Key left, Key right) { return left.view() == right.view(); }

 private:
  GeneticOps& ops_;
  Callable validator_;
  Value elite_;
  Value mate_;
  std::shared_ptr<RandomGenerator> rng_;
  Value root_node_;
  std::int64_t data_child_count_ = 0;
};

}  // namespace

Key choose_operator(const Mapping& operator_rates, RandomGenerator* rng) {
  const Value total = sum_of_rates(operator_rates);
  if (at_most(total, 0.0)) throw ValueError(kNoPositiveRate);
  const Value target = rng == nullptr ? Value(0.0) : times(rng->random(), total);
  Value running = 0.0;
  for (const Key name : kOperators) {
    const Value rate = rate_of(operator_rates, name);
    running = plus(running, rate);
    if (at_most(target, running) && greater(rate, 0.0)) return name;
  }
  // A leftover of rounding can pass all four.
  for (const Key name : kOperators) {
    if (greater(rate_of(operator_rates, name), 0.0)) return name;
  }
  throw ValueError(kNoPositiveRate);  // Unknown names alone carry the total.
}

std::int64_t weighted_parent_index(Eliteness& eliteness, const List& parents, RandomGenerator* rng,
                                   const Value& diversity_weight, const Value& parsimony_weight) {
  if (parents.empty()) throw ValueError("parent selection requires at least one parent");
  if (rng == nullptr || parents.size() == 1) return 0;

  std::vector<Value> scores;
  ListCursor cursor(parents);
  while (const std::optional<Value> parent = cursor.next()) {
    scores.push_back(candidate_eliteness(eliteness, *parent, diversity_weight, parsimony_weight));
  }
  const Value floor =
      *std::min_element(scores.begin(), scores.end(),
                        [](const Value& left, const Value& right) { return less(left, right); });
  std::vector<Value> weights;
  weights.reserve(scores.size());
  for (const Value& score : scores)
    weights.push_back(plus(minus(score, floor), kWeightFloor));
  Value total = 0;
  for (const Value& weight : weights)
    total = plus(total, weight);
  const Value target = times(rng->random(), total);
  Value running = 0.0;
  for (std::size_t index = 0; index < weights.size(); ++index) {
    running = plus(running, weights[index]);
    if (at_most(target, running)) return static_cast<std::int64_t>(index);
  }
  return static_cast<std::int64_t>(weights.size()) - 1;
}

std::int64_t data_graph_child_count(const Value& graph) {
  const std::optional<Mapping> mapping = as_mapping(graph);
  if (!mapping) return 0;
  std::int64_t count = 0;
  const auto walk = iterate(mapping->get(keys::kChildren, Tuple()));
  while (const std::optional<Value> child = walk->next()) {
    const std::optional<Mapping> node = as_mapping(*child);
    if (!node) continue;
    const Value type = node->get(keys::kType);
    if (is_same_or_equal(type, node_types::kFeature) ||
        is_same_or_equal(type, node_types::kRotation))
      ++count;
  }
  return count;
}

Value restore_elite_root_node(const Value& child, const Value& elite_root_node,
                              const Value& elite_data_child_count, const Callable& validator) {
  std::optional<Mapping> node = as_mapping(child);
  if (!node || !truth(elite_root_node)) return child;
  const Value data_child_count = data_graph_child_count(child);
  if (!(data_child_count == elite_data_child_count)) return child;
  const Value original_node = node->get(keys::kNode);
  node->set(keys::kNode, elite_root_node);
  if (!validator) return child;
  try {
    validator({child});
  } catch (const std::exception&) {
    // The child keeps its own root; a child without one gets an absent one. What the validator then
    // throws is thrown while its first refusal is being handled.
    node->set(keys::kNode, original_node);
    validator({child});
  }
  return child;
}

Value elite_derived_graph(const SearchEnvironment& environment, SearchContext& context,
                          const List& parents, const std::shared_ptr<RandomGenerator>& rng,
                          const DerivationSettings& settings) {
  if (parents.empty()) throw ValueError("elite-derived graph requires at least one parent");
  Host& host = environment.host;
  Callable validator = graph_validator(context);
  const Mapping rates = complete_operator_rates(settings.operator_rates,
                                                environment.constants.default_operator_rates());
  const List eligible = first_parents(parents, settings.elite_fraction);
  const ParentIndices indices = choose_parents(host.eliteness(), eligible, rng.get(), settings);
  const Value elite = graph_of(eligible, indices.elite);
  const Value mate = graph_of(eligible, indices.mate);
  Derivation offspring(host.genetic_ops(), std::move(validator), elite, mate, rng);

  // Drawn before the operator is known, whether or not it uses them.
  const Value replacements =
      fresh_random_candidates_for_rng(environment.fresh_candidates, context, kReplacements, rng);
  const Key operation = choose_operator(rates, rng.get());
  const std::array operators = {operation, kCrossover};
  std::size_t applied = 1;
  Value child = offspring.with_root(offspring.apply(operation, replacements));

  // The rates are reals: they have been validated.
  const double crossover_rate = to_float(rate_of(rates, kCrossover));
  if (!Derivation::is(operation, kCrossover) && crossover_rate > 0.0 && rng != nullptr &&
      rng->random() < std::min(crossover_rate, 1.0)) {
    applied = 2;
    child = offspring.crossed_with_mate(child);
  }
  if (GenerationObserver* const observer = host.generation_observer()) {
    observer->on_offspring(child, std::span(operators).first(applied), elite, mate);
  }
  return child;
}

}  // namespace varnholt::genetic
