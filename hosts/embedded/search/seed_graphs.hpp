// Graphs to begin a search with, from a file.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "hosts/embedded/system/interrupt.hpp"
#include "hosts/embedded/vocabulary/graph_check.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// A seeds file that cannot be used. The text names the file, the graph in it and the remedy.
class SeedFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The graphs of a file, each of this vocabulary and within `limits`. The file holds formulas as
// formula_lines reads them, or a JSON list of graphs:
//
//   reversal = -1 * rank(delta(close, 5))    # a name and a comment may stand there
//   ts_mean(returns, 20)
//
//   [{"node": "cross_rank", "type": "rotation",
//     "children": [{"node": "close", "type": "feature", "children": []}]}]
//
// Throws SeedFileError, and what `check` throws while the file is read.
[[nodiscard]] genetic::List read_seed_graphs(const std::filesystem::path& path,
                                             const Vocabulary& vocabulary,
                                             const GraphLimits& limits,
                                             const InterruptCheck& check = {});

// The same for a text, with `name` as the name of the file in messages.
[[nodiscard]] genetic::List parse_seed_graphs(std::string_view text, const std::string& name,
                                              const Vocabulary& vocabulary,
                                              const GraphLimits& limits);

}  // namespace varnholt::embedded
