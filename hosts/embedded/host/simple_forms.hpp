// Signals of one thought: what a search may go through before it draws at random.
#pragma once

#include <vector>

#include "hosts/embedded/vocabulary/graph_making.hpp"
#include "hosts/embedded/vocabulary/graph_shape.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// With x and y features that are drawn, n one of kSimpleWindows, and f the functions of one panel
// and a window, g those of two, that are drawn:
//
//   f(x, n)         a feature over some days
//   x / f(x, n)     today beside these days
//   g(x, y, n)      two features together
//   ts_mean(x / y, n)
//
// each as its rank among the instruments, where that is drawn. Left out is what tells instruments
// apart by a price or a number of shares, which any split changes, what mixes units, and what is
// beyond the limits; a window is the nearest that is drawn. Each structure once, finished by
// `making`.
[[nodiscard]] std::vector<genetic::Value> simple_forms(const Vocabulary& vocabulary,
                                                       const GraphLimits& limits,
                                                       const GraphMaking& making);

// A week, a month and a quarter: what works for a window works for its neighbours too, which
// mutations try.
inline constexpr int kSimpleWindows[] = {5, 20, 60};

}  // namespace varnholt::embedded
