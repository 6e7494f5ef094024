// Random graphs in a vocabulary: what a search begins with.
#pragma once

#include <cstddef>

#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

struct RandomGraphOptions {
  int max_depth = 5;           // As check_graph counts it.
  std::size_t max_nodes = 25;  // As check_graph counts it.
  int max_window = 120;        // In days; longer windows of the vocabulary are not chosen.
  double leaf_share = 0.3;     // How often a node below the root is a feature by choice.
  // How often a panel beside the first of an arithmetic function or a comparison is a constant.
  double constant_share = 0.0;
  // Whether what is added or compared is of one unit (units.hpp).
  bool keeps_units = false;
};

inline constexpr int kMostRedraws = 1000;
inline constexpr int kMostPanelRedraws = 20;

// A graph that check_graph accepts, within the limits of `options`.
//
// It is grown from the root down. The root is a rotation wherever the limits allow one. Below it, a
// node is a feature with the chance `leaf_share`, or where no rotation fits into what is left of
// the depth and of the nodes. Features and rotations are chosen with chances in proportion to their
// weights, among those that fit; a formula of the user's own counts as a feature, with all of its
// nodes. Windows, groups, numbers and constants are all alike. A subtree that others follow may use
// half of the nodes that are left, the last what remains then.
//
// Draws from `generator` alone, in the order of the nodes (each node before its children, children
// from left to right): `random()` for feature or rotation where both are possible, `random()` for
// which one, `random()` for whether a panel is a constant where `constant_share` is above 0, and
// `random_below` for a constant, a group, a number or a window. So one stream gives one sequence of
// graphs.
//
// Where units are kept, a panel of a function that adds or compares is drawn again, with all of its
// draws, while it is not like the panels before it: kMostPanelRedraws times; where that does not
// help, the whole graph is. Both together happen kMostRedraws times at most. What then mixes units
// still, because the graph is very large or the vocabulary leaves no other choice, comes out as it
// is, and so do formulas of the user's own.
//
// Throws std::invalid_argument for a limit below 1, a share outside 0 to 1, or a vocabulary without
// features.
[[nodiscard]] genetic::Value random_graph(genetic::RandomGenerator& generator,
                                          const Vocabulary& vocabulary,
                                          const RandomGraphOptions& options = {});

}  // namespace varnholt::embedded
