// One offspring from the parent pool.
//
// The order of the random draws is behaviour, since the same stream must yield the same offspring:
// elite index, mate index, three fresh replacements, operator, the operator's own draws, the test
// for a crossover in addition, that crossover's own draws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/population/search_environment.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// An operator's name by its rate: one draw, or the first with a positive rate without a generator.
// The draw ranges over the sum of all rates, unknown names included. ValueError "genetic
// operator_rates must contain at least one positive rate".
[[nodiscard]] Key choose_operator(const Mapping& operator_rates, RandomGenerator* rng);

// A parent's index by its score: one draw, or 0 without a generator or with one parent. The worst
// parent's weight is kept above zero. ValueError "parent selection requires at least one parent".
[[nodiscard]] std::int64_t weighted_parent_index(Eliteness& eliteness, const List& parents,
                                                 RandomGenerator* rng,
                                                 const Value& diversity_weight,
                                                 const Value& parsimony_weight);

// The children of a graph that are features or rotations; 0 for anything but a mapping.
[[nodiscard]] std::int64_t data_graph_child_count(const Value& graph);

// Puts the elite's root node on `child`, in place, where the child has as many data children; takes
// it back when the validator refuses it. Returns `child`. What the validator throws for the child's
// own root propagates.
Value restore_elite_root_node(const Value& child, const Value& elite_root_node,
                              const Value& elite_data_child_count, const Callable& validator);

struct DerivationSettings {
  Value operator_rates;  // Absent or a mapping; the module's defaults replace missing entries.
  Value elite_fraction = 0.0;
  Value diversity_weight = 0.0;
  Value parsimony_weight = 0.0;
};

// A graph bred from `parents`, best first. With an elite fraction of 1.0 and two or more parents no
// parent is drawn: the elite is the last, on purpose, and its mate the first. ValueError
// "elite-derived graph requires at least one parent"; what the host's operators throw propagates.
[[nodiscard]] Value elite_derived_graph(const SearchEnvironment& environment,
                                        SearchContext& context, const List& parents,
                                        const std::shared_ptr<RandomGenerator>& rng,
                                        const DerivationSettings& settings);

}  // namespace varnholt::genetic
