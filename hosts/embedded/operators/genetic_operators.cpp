#include "hosts/embedded/operators/genetic_operators.hpp"

#include <algorithm>
#include <cmath>
#include <exception>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Callable;
using genetic::RandomGenerator;
using genetic::Value;

namespace {

using Rng = std::shared_ptr<RandomGenerator>;
using Parts = std::vector<const GraphPart*>;

// An index below `size`, or 0 without a generator.
std::size_t draw_index(const Rng& rng, std::size_t size) {
  return rng == nullptr ? 0 : genetic::random_below(*rng, size);
}

// Whether a draw falls into the share; without a generator it does.
bool draw_share(const Rng& rng, double share) {
  return rng == nullptr || rng->random() < share;
}

Parts data_parts(const std::vector<GraphPart>& parts, bool with_root) {
  Parts chosen;
  for (const GraphPart& part : parts) {
    if (part.is_data() && (with_root || !part.path.empty())) chosen.push_back(&part);
  }
  return chosen;
}

Parts without_constants(Parts parts) {
  std::erase_if(parts, [](const GraphPart* part) { return part->is_constant(); });
  return parts;
}

Parts rotations_of(const std::vector<GraphPart>& parts, bool with_root) {
  Parts rotations = data_parts(parts, with_root);
  std::erase_if(rotations, [](const GraphPart* part) { return part->type != kRotationType; });
  return rotations;
}

// The panels that a function takes.
Parts panels_of(const GraphPart& function, const std::vector<GraphPart>& parts) {
  Parts panels = data_parts(parts, false);
  std::erase_if(panels, [&above = function.path](const GraphPart* part) {
    const std::vector<std::size_t>& path = part->path;
    return path.size() != above.size() + 1 || !std::equal(above.begin(), above.end(), path.begin());
  });
  return panels;
}

// What may be put in the place of `site`. A constant takes the place of a constant only: beside
// another one it would leave a function without data.
Parts material_for(const GraphPart& site, const std::vector<GraphPart>& parts) {
  Parts chosen = data_parts(parts, true);
  return site.is_constant() ? chosen : without_constants(std::move(chosen));
}

// Where a part may be put: anywhere below the root, or at the root of a graph that is nothing else.
Parts sites(const std::vector<GraphPart>& parts) {
  Parts below_root = data_parts(parts, false);
  return below_root.empty() ? data_parts(parts, true) : below_root;
}

// Whether a part of this shape may be put there.
bool fits(const GraphPart& whole, const GraphPart& site, const GraphShape& part,
          const GraphLimits& limits) {
  const std::size_t nodes = whole.shape.node_count - site.shape.node_count + part.node_count;
  return nodes <= limits.max_nodes && site.depth_above() + part.depth <= limits.max_depth;
}

bool accepts(const Callable& validator, const Value& graph) {
  if (!validator) return true;
  try {
    // The validator gets a copy, since it may change what it is given.
    return genetic::truth(validator({genetic::deep_copy(graph)}));
  } catch (const std::exception&) {
    return false;  // A refusal: the operator tries again.
  }
}

std::vector<std::vector<GraphPart>> parts_of_each(const Value& graphs) {
  std::vector<std::vector<GraphPart>> parts;
  const auto walk = genetic::iterate(graphs);
  while (const std::optional<Value> graph = walk->next())
    parts.push_back(graph_parts(*graph));
  return parts;
}

// Whether two nodes can exchange their names.
bool same_sort(const GraphPart& left, const GraphPart& right) {
  return left.type == right.type && left.data_children == right.data_children &&
         left.settings == right.settings;
}

// What the function above a number takes. Its parts are few, and so is the need for this.
NumberRange range_of(const GraphPart& node, const std::vector<GraphPart>& parts,
                     const Vocabulary& vocabulary) {
  std::vector<std::size_t> above = node.path;
  above.pop_back();
  const auto owner = std::find_if(parts.begin(), parts.end(),
                                  [&above](const GraphPart& part) { return part.path == above; });
  const FunctionEntry* const function = vocabulary.find_function(owner->name);
  return function == nullptr ? NumberRange{} : function->range;
}

// The windows a step below and a step above the days.
std::vector<int> neighbouring_windows(int days, const std::vector<int>& windows) {
  std::vector<int> neighbours;
  const auto not_below = std::lower_bound(windows.begin(), windows.end(), days);
  const auto above = std::upper_bound(windows.begin(), windows.end(), days);
  if (not_below != windows.begin()) neighbours.push_back(*std::prev(not_below));
  if (above != windows.end()) neighbours.push_back(*above);
  return neighbours;
}

// The constants a step below and a step above the number; the sign stays. Zero steps to either side
// of the smallest.
std::vector<std::string> neighbouring_numbers(const GraphPart& node,
                                              const std::vector<double>& constants) {
  const std::optional<double> number = constant_value(node.name);
  std::vector<std::string> names;
  if (!number || constants.empty()) return names;
  if (*number == 0.0) return {number_text(-constants.front()), number_text(constants.front())};
  const double size = std::abs(*number);
  const auto above = std::upper_bound(constants.begin(), constants.end(), size);
  const auto not_below = std::lower_bound(constants.begin(), constants.end(), size);
  if (not_below != constants.begin()) {
    names.push_back(number_text(std::copysign(*std::prev(not_below), *number)));
  }
  if (above != constants.end()) names.push_back(number_text(std::copysign(*above, *number)));
  return names;
}

// The other names that the replacements have for a node of this sort, each once, in their order.
std::vector<std::string> other_names(const GraphPart& node,
                                     const std::vector<std::vector<GraphPart>>& replacements) {
  std::vector<std::string> names;
  for (const std::vector<GraphPart>& parts : replacements) {
    for (const GraphPart& part : parts) {
      if (!same_sort(node, part) || part.name == node.name) continue;
      if (std::find(names.begin(), names.end(), part.name) == names.end()) {
        names.push_back(part.name);
      }
    }
  }
  return names;
}

}  // namespace

Value GeneticOperators::first_accepted(const Value& parent, const Callable& validator,
                                       const std::function<std::optional<Value>()>& attempt) const {
  std::optional<Value> repeated;
  for (int i = 0; i < kTries; ++i) {
    std::optional<Value> made = attempt();
    if (!made) continue;
    Value child = making_.finished(*std::move(made));
    const bool is_repeated = repeats_ && repeats_(child);
    if (is_repeated && repeated) continue;
    if (!making_.fits_units(child, parent) || !accepts(validator, child)) continue;
    if (!is_repeated) return child;
    repeated = std::move(child);
  }
  return repeated ? *std::move(repeated) : genetic::deep_copy(parent);
}

GeneticOperators::Parts GeneticOperators::of_like_kind(const GraphPart& site,
                                                       const Parts& parts) const {
  const bool keeps_units = making_.keeps_units();
  const PartKind kind = kind_of_part(site, *vocabulary_, keeps_units);
  Parts like;
  for (const GraphPart* part : parts) {
    if (are_alike(kind, kind_of_part(*part, *vocabulary_, keeps_units))) like.push_back(part);
  }
  return like.empty() ? parts : like;
}

Value GeneticOperators::crossover(const Value& elite, const Value& mate, const Rng& rng,
                                  const Callable& validator) {
  const std::vector<GraphPart> elite_parts = graph_parts(elite);
  const std::vector<GraphPart> mate_parts = graph_parts(mate);
  const Parts places = sites(elite_parts);
  return first_accepted(elite, validator, [&]() -> std::optional<Value> {
    const GraphPart& site = *places[draw_index(rng, places.size())];
    Parts material = material_for(site, mate_parts);
    if (draw_share(rng, kLikeShare)) material = of_like_kind(site, material);
    const GraphPart& part = *material[draw_index(rng, material.size())];
    if (!fits(elite_parts.front(), site, part.shape, limits_)) return std::nullopt;
    return with_part(elite, site.path, part.node);
  });
}

Value GeneticOperators::point_mutation(const Value& elite, const Value& replacements,
                                       const Rng& rng, const Callable& validator) {
  const std::vector<GraphPart> parts = graph_parts(elite);
  const auto material = parts_of_each(replacements);
  return first_accepted(elite, validator, [&]() -> std::optional<Value> {
    const GraphPart& node = parts[draw_index(rng, parts.size())];
    const std::vector<std::string> names = new_names(node, parts, material, rng);
    if (names.empty()) return std::nullopt;
    return with_name(elite, node.path, names[draw_index(rng, names.size())]);
  });
}

std::vector<std::string> GeneticOperators::new_names(
    const GraphPart& node, const std::vector<GraphPart>& parts,
    const std::vector<std::vector<GraphPart>>& replacements, const Rng& rng) const {
  if (node.type == kWindowType) return new_windows(node, rng);
  if (node.type == kConstantType) return neighbouring_numbers(node, vocabulary_->constants);
  if (node.type != kNumberType) return other_names(node, replacements);
  const NumberRange range = range_of(node, parts, *vocabulary_);
  std::vector<std::string> names = neighbouring_numbers(node, vocabulary_->constants);
  std::erase_if(names, [&range](const std::string& name) {
    const double number = constant_value(name).value();
    return number < range.low || number > range.high;
  });
  return names;
}

// Signals of neighbouring windows are alike: a step refines, and a leap is for what it misses.
std::vector<std::string> GeneticOperators::new_windows(const GraphPart& node,
                                                       const Rng& rng) const {
  const std::optional<int> days = window_of(node.name);
  if (!days) return {};
  std::vector<int> windows = vocabulary_->windows;
  std::erase_if(windows, [&](int other) { return other == *days || other > limits_.max_window; });
  if (draw_share(rng, kNeighbourShare)) windows = neighbouring_windows(*days, windows);
  std::vector<std::string> names(windows.size());
  std::transform(windows.begin(), windows.end(), names.begin(),
                 [](int window) { return std::to_string(window); });
  return names;
}

Value GeneticOperators::subtree_mutation(const Value& elite, const Value& replacements,
                                         const Rng& rng, const Callable& validator) {
  const std::vector<GraphPart> parts = graph_parts(elite);
  const Parts places = sites(parts);
  const auto material = parts_of_each(replacements);
  if (material.empty()) return genetic::deep_copy(elite);
  return first_accepted(elite, validator, [&]() -> std::optional<Value> {
    const GraphPart& site = *places[draw_index(rng, places.size())];
    const Parts candidates = material_for(site, material[draw_index(rng, material.size())]);
    const GraphPart& part = *candidates[draw_index(rng, candidates.size())];
    if (!fits(parts.front(), site, part.shape, limits_)) return std::nullopt;
    return with_part(elite, site.path, part.node);
  });
}

Value GeneticOperators::insert_mutation(const Value& elite, const Value& replacements,
                                        const Rng& rng, const Callable& validator) const {
  const std::vector<GraphPart> parts = graph_parts(elite);
  const Parts places = without_constants(data_parts(parts, true));
  const auto material = parts_of_each(replacements);
  if (material.empty()) return genetic::deep_copy(elite);
  return first_accepted(elite, validator, [&]() -> std::optional<Value> {
    const GraphPart& site = *places[draw_index(rng, places.size())];
    const std::vector<GraphPart>& lender = material[draw_index(rng, material.size())];
    const Parts functions = rotations_of(lender, true);
    if (functions.empty()) return std::nullopt;
    const GraphPart& function = *functions[draw_index(rng, functions.size())];
    const Parts panels = panels_of(function, lender);
    const GraphPart& panel = *panels[draw_index(rng, panels.size())];
    const Value inserted = with_part(function.node, {panel.path.back()}, site.node);
    if (!fits(parts.front(), site, measure_graph(inserted), limits_)) return std::nullopt;
    return with_part(elite, site.path, inserted);
  });
}

Value GeneticOperators::hoist_mutation(const Value& elite, const Rng& rng,
                                       const Callable& validator) {
  const std::vector<GraphPart> parts = graph_parts(elite);
  const Parts rotations = rotations_of(parts, false);
  if (rotations.empty()) return genetic::deep_copy(elite);
  return first_accepted(elite, validator, [&]() -> std::optional<Value> {
    return genetic::deep_copy(rotations[draw_index(rng, rotations.size())]->node);
  });
}

}  // namespace varnholt::embedded
