// The figures of a signal or of a book, in sample beside the hold-out.
#pragma once

#include <string>

#include "apps/genetic_search/json_events.hpp"
#include "hosts/embedded/backtest/out_of_sample.hpp"

namespace varnholt::app {

// A table with a head, and one line of such a table.
[[nodiscard]] std::string sample_figures_text(const embedded::SampleStatistics& statistics);
[[nodiscard]] std::string figures_line(const char* name, double in_sample, double holdout);

// {"in_sample": {...}, "holdout": {...}}, with every statistic by its name.
[[nodiscard]] Json sample_statistics_json(const embedded::SampleStatistics& statistics);

}  // namespace varnholt::app
