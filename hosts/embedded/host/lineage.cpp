#include "hosts/embedded/host/lineage.hpp"

#include <algorithm>
#include <utility>

#include "hosts/embedded/system/digest.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/population/elite_derivation.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Mapping;
using genetic::StructuralKey;
using genetic::Value;

namespace {

constexpr std::string_view kCrossover = "crossover";
constexpr std::string_view kPointMutation = "point_mutation";
constexpr std::string_view kSubtreeMutation = "subtree_mutation";
constexpr std::string_view kHoistMutation = "hoist_mutation";

const char* name_of(Origin origin) {
  switch (origin) {
    case Origin::Bred:
      return "bred";
    case Origin::Seed:
      return "seed";
    case Origin::Fresh:
      return "fresh";
    case Origin::Repaired:
      return "repaired";
    case Origin::Unknown:
      break;
  }
  return "unknown";
}

genetic::List texts(const std::vector<std::string>& items) {
  genetic::List list(items.size());
  for (const std::string& item : items)
    list.append(item);
  return list;
}

// The graph key of each, once.
std::vector<std::string> graph_keys(const std::vector<Value>& graphs) {
  std::vector<std::string> keys;
  for (const Value& graph : graphs) {
    std::string key = sha256_hex(genetic::canonical_graph_string(graph));
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(std::move(key));
  }
  return keys;
}

class NotedGraphs : public genetic::ValueIterator {
 public:
  NotedGraphs(std::unique_ptr<genetic::ValueIterator> walk, Lineage& lineage)
      : walk_(std::move(walk)), lineage_(lineage) {}

  [[nodiscard]] std::optional<Value> next() override {
    std::optional<Value> graph = walk_->next();
    if (graph) lineage_.note_fresh(*graph);
    return graph;
  }

 private:
  std::unique_ptr<genetic::ValueIterator> walk_;
  Lineage& lineage_;
};

}  // namespace

std::string lineage_json(const GraphOrigin& origin) {
  Mapping lineage{{"origin", name_of(origin.origin)}};
  if (origin.origin == Origin::Bred) {
    lineage.set("operators", texts(origin.operators));
    lineage.set("parents", texts(origin.parents));
  }
  if (origin.repair) {
    lineage.set("parents", texts(origin.parents));
    lineage.set("plan", origin.repair->plan);
    lineage.set("reason", origin.repair->reason);
    lineage.set("explanation", origin.repair->explanation);
    lineage.set("depth", origin.repair->depth);
  }
  return genetic::json_text(lineage);
}

void Lineage::note_offspring(std::string_view operation, const Value& graph,
                             std::vector<Value> parents) {
  if (operation == kCrossover && is_step_of_last(parents.front())) {
    // What the first step made is no candidate: it lives on in the second.
    Offspring& last = offspring_.back();
    last.graph = graph;
    last.operators.emplace_back(operation);
    last.parents.insert(last.parents.end(), parents.begin() + 1, parents.end());
    return;
  }
  offspring_.push_back({graph, {std::string(operation)}, std::move(parents)});
  offspring_index_.reset();
}

// The search crosses a mutated child with its mate right after the mutation: the elite of such a
// crossover is the child itself, or a copy of what a hoist gave.
bool Lineage::is_step_of_last(const Value& elite) const {
  if (offspring_.empty() || offspring_index_) return false;
  const Offspring& last = offspring_.back();
  if (last.operators.back() == kCrossover) return false;
  if (genetic::same_object(elite, last.graph)) return true;
  if (last.operators.back() != kHoistMutation) return false;
  if (genetic::same_object(elite, last.parents.front())) return false;
  const std::vector<StructuralKey> keys = structures(last);
  return std::find(keys.begin(), keys.end(), genetic::structural_key(elite)) != keys.end();
}

std::vector<StructuralKey> Lineage::structures(const Offspring& offspring) {
  std::vector<StructuralKey> keys = {genetic::structural_key(offspring.graph)};
  if (offspring.operators.back() != kHoistMutation) return keys;
  // Of a hoist the search takes a copy, and changes the root of that: what was noted does not show
  // it.
  const Value& elite = offspring.parents.front();
  if (const std::optional<Mapping> root = genetic::as_mapping(elite)) {
    keys.push_back(genetic::structural_key(genetic::restore_elite_root_node(
        genetic::deep_copy(offspring.graph), root->get(genetic::keys::kNode),
        genetic::data_graph_child_count(elite), {})));
  }
  return keys;
}

void Lineage::note_fresh(const Value& graph) {
  fresh_.push_back(graph);
  fresh_keys_.reset();
}

void Lineage::note_seed(const Value& graph) {
  seeds_.insert(genetic::structural_key(graph));
}

void Lineage::note_repair(const Value& graph, std::vector<Value> parents, RepairNote repair) {
  repairs_.try_emplace(genetic::structural_key(graph),
                       Repair{std::move(parents), std::move(repair)});
  has_new_repairs_ = true;
}

const Lineage::Offspring* Lineage::breeding_of(const StructuralKey& key) {
  if (!offspring_index_) {
    offspring_index_.emplace();
    for (std::size_t i = 0; i < offspring_.size(); ++i) {
      for (StructuralKey& structure : structures(offspring_[i]))
        offspring_index_->try_emplace(std::move(structure), i);
    }
  }
  const auto place = offspring_index_->find(key);
  return place == offspring_index_->end() ? nullptr : &offspring_[place->second];
}

bool Lineage::is_fresh(const StructuralKey& key) {
  if (!fresh_keys_) {
    fresh_keys_.emplace();
    for (const Value& graph : fresh_)
      fresh_keys_->insert(genetic::structural_key(graph));
  }
  return fresh_keys_->contains(key);
}

bool Lineage::is_bred(const Value& graph) {
  return breeding_of(genetic::structural_key(graph)) != nullptr;
}

GraphOrigin Lineage::origin_of(const Value& graph) {
  const StructuralKey key = genetic::structural_key(graph);
  GraphOrigin found;
  if (const auto repair = repairs_.find(key); repair != repairs_.end()) {
    found.origin = Origin::Repaired;
    found.parents = graph_keys(repair->second.parents);
    found.repair = repair->second.note;
    has_new_repairs_ = false;
  } else if (const Offspring* offspring = breeding_of(key)) {
    found.origin = Origin::Bred;
    found.operators = offspring->operators;
    found.parents = graph_keys(offspring->parents);
  } else if (seeds_.contains(key)) {
    found.origin = Origin::Seed;
  } else if (is_fresh(key)) {
    found.origin = Origin::Fresh;
  }
  return found;
}

void Lineage::next_generation() {
  offspring_.clear();
  fresh_.clear();
  repairs_.clear();
  has_new_repairs_ = false;
  offspring_index_.reset();
  fresh_keys_.reset();
}

Value ObservedOperators::crossover(const Value& elite, const Value& mate,
                                   const std::shared_ptr<genetic::RandomGenerator>& rng,
                                   const genetic::Callable& validator) {
  Value child = operators_.crossover(elite, mate, rng, validator);
  lineage_.note_offspring(kCrossover, child, {elite, mate});
  return child;
}

Value ObservedOperators::point_mutation(const Value& elite, const Value& replacements,
                                        const std::shared_ptr<genetic::RandomGenerator>& rng,
                                        const genetic::Callable& validator) {
  Value child = operators_.point_mutation(elite, replacements, rng, validator);
  lineage_.note_offspring(kPointMutation, child, {elite});
  return child;
}

Value ObservedOperators::subtree_mutation(const Value& elite, const Value& replacements,
                                          const std::shared_ptr<genetic::RandomGenerator>& rng,
                                          const genetic::Callable& validator) {
  Value child = operators_.subtree_mutation(elite, replacements, rng, validator);
  lineage_.note_offspring(kSubtreeMutation, child, {elite});
  return child;
}

Value ObservedOperators::hoist_mutation(const Value& elite,
                                        const std::shared_ptr<genetic::RandomGenerator>& rng,
                                        const genetic::Callable& validator) {
  Value child = operators_.hoist_mutation(elite, rng, validator);
  lineage_.note_offspring(kHoistMutation, child, {elite});
  return child;
}

std::unique_ptr<genetic::ValueIterator> ObservedRandomGraphs::random_weighted_graphs(
    genetic::SearchContext& context, const std::shared_ptr<genetic::RandomGenerator>& rng,
    const Mapping& log_context, std::string_view template_name) {
  auto walk = source_.random_weighted_graphs(context, rng, log_context, template_name);
  if (walk == nullptr) return nullptr;
  return std::make_unique<NotedGraphs>(std::move(walk), lineage_);
}

}  // namespace varnholt::embedded
