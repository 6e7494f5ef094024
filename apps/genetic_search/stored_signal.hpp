// Stored evaluations, in the forms that the commands which show them share.
#pragma once

#include <optional>
#include <string>

#include "apps/genetic_search/json_events.hpp"
#include "hosts/embedded/market/price_source.hpp"
#include "hosts/embedded/store/store_reader.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::app {

// The evaluation, with its run. Throws UsageError where the store has none of this id.
[[nodiscard]] embedded::EvaluationOfRun required_evaluation(embedded::StoreReader& store,
                                                            const std::string& eval_id);

// Where the prices of a run were: the name of the file alone for one that does not say where.
[[nodiscard]] embedded::PriceSource stored_prices(const embedded::RunStart& run);

// The graph as a call; empty for a graph that is not of the vocabulary's form.
[[nodiscard]] std::string stored_expression(const std::string& graph_json);

// What of a store cannot be read. The rest is shown all the same, and these are told after it.
class Damages {
 public:
  void note(const std::string& trouble);
  // StoreError with the first of them, and how many there are.
  void throw_if_any(const embedded::StoreReader& store) const;

 private:
  std::string first_;
  int count_ = 0;
};

// A stored JSON text as a value. One that is damaged is noted under the name `what`, and absent.
[[nodiscard]] genetic::Value stored_json(const std::string& text, const std::string& what,
                                         Damages& damages);

// A figure of a statistics mapping; nothing where there are no statistics.
[[nodiscard]] std::optional<double> figure_of(const genetic::Value& statistics, genetic::Key name);

// The number with two digits, or "-".
[[nodiscard]] std::string figure_text(const std::optional<double>& figure);
// The number, or null.
[[nodiscard]] Json figure_json(const std::optional<double>& figure);

// "submitted", "waiting", "refused: correlation_exceeded".
[[nodiscard]] std::string state_text(const embedded::SubmissionRecord& submission);

// All of a submission but its payload: `state` is "queued", "submitted" or "refused".
[[nodiscard]] Json submission_json(const embedded::SubmissionRecord& submission);

}  // namespace varnholt::app
