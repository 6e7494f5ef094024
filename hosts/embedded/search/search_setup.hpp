// What a search needs before its store is opened: everything is read and checked, and nothing is
// written.
#pragma once

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/process_side.hpp"
#include "hosts/embedded/pool/system_calls.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/search/search_options.hpp"
#include "hosts/embedded/system/interrupt.hpp"
#include "search_templates/genetic/driver/genetic_template.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"

namespace varnholt::embedded {

// The options must outlive it.
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
  genetic::TwisterGenerators generators_;
  genetic::GeneticTemplate config_;
};

}  // namespace varnholt::embedded
