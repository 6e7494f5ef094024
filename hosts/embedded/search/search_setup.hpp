// What a search needs before its store is opened: everything is read and checked, and nothing is
// written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/known_structures.hpp"
#include "hosts/embedded/host/process_side.hpp"
#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/search_options.hpp"
#include "hosts/embedded/system/interrupt.hpp"
#include "hosts/embedded/vocabulary/graph_making.hpp"
#include "search_templates/genetic/driver/genetic_template.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// What the search begins with: the graphs of the seeds file, and after them, as far as the batch
// has room, the best of the earlier signals that are within the limits of this run. They alone are
// evaluated once more, because a search breeds from what it has evaluated itself.
struct SearchBeginning {
  std::optional<genetic::List> seeds;  // Absent where there are none.
  std::int64_t earlier_signals = 0;    // Of them.
  // The keys of the structures that are not evaluated again.
  std::vector<std::string> structures;
};

// The options must outlive it.
// What is done to the graphs that a search with these options makes.
[[nodiscard]] GraphMakingOptions making_options(const SearchOptions& options,
                                                const BookRules& book);

class SearchSetup {
 public:
  // Throws for bad input: std::invalid_argument, what RunData and read_seed_graphs throw, and the
  // template's genetic::TypeError and genetic::ValueError. What `check` throws leaves the reading
  // of a file.
  explicit SearchSetup(const SearchOptions& options, const InterruptCheck& check = {});
  SearchSetup(const SearchSetup&) = delete;
  SearchSetup& operator=(const SearchSetup&) = delete;
  ~SearchSetup();

  [[nodiscard]] int jobs() const { return jobs_; }
  [[nodiscard]] const RunData& data() const { return data_; }
  // Over the days that the search sees.
  [[nodiscard]] const Evaluator& evaluator() const { return evaluator_; }
  [[nodiscard]] ProcessSide& process() { return process_; }
  [[nodiscard]] SystemCalls& system() { return system_; }
  // The template with its random stream.
  [[nodiscard]] genetic::GeneticTemplate& config() { return config_; }

  // What is not evaluated again, and how many of the earlier signals the search begins with.
  [[nodiscard]] KnownStructures& known() { return known_; }
  [[nodiscard]] std::int64_t earlier_signals() const { return beginning_.earlier_signals; }

  // An evaluator over the whole history, the hold-out among it. Takes the history: this is the last
  // that is done with it.
  [[nodiscard]] Evaluator take_whole_history();

 private:
  int jobs_;
  RunData data_;
  EvaluatorOptions evaluator_options_;
  Evaluator evaluator_;
  RealSystemCalls system_;
  ProcessSide process_;
  SearchBeginning beginning_;
  KnownStructures known_;
  genetic::TwisterGenerators generators_;
  genetic::GeneticTemplate config_;
};

}  // namespace varnholt::embedded
