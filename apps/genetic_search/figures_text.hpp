// The figures of one signal as a page shows them.
#pragma once

#include <string>
#include <string_view>

#include "apps/genetic_search/text_layout.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::app {

// What is stored of a signal on one sample: the statistics of its backtest, and all figures by
// their names. Either may be absent.
struct StoredFigures {
  genetic::Value statistics;
  genetic::Value figures;

  // A figure by its name; absent where it is not known.
  [[nodiscard]] genetic::Value figure(std::string_view name) const;
};

// A table for each group of figures, in sample beside the hold-out, and where they are stored the
// information coefficients by lag and a table by year. What neither sample has is left out, and so
// are units that the terminal has no room for. Every line is ended.
[[nodiscard]] std::string signal_figures_text(const StoredFigures& in_sample,
                                              const StoredFigures& holdout, Width width);

}  // namespace varnholt::app
