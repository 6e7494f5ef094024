// Batches of candidates straight through the embedded pool.
#pragma once

#include "search_templates/genetic/host/batch_evaluator.hpp"
#include "search_templates/genetic/host/host.hpp"

namespace varnholt::embedded {

// Each candidate runs in a child of its own, and what becomes of it comes back as its result
// record: the search records and submits it. There is no ledger of attempts, because the store has
// no rows for attempts yet: the evaluation record alone tells of an attempt.
class DirectBatches : public genetic::BatchEvaluator {
 public:
  // The host must outlive this object.
  explicit DirectBatches(genetic::Host& host) : host_(host) {}

  [[nodiscard]] genetic::Value evaluate_candidate_batch(
      genetic::SearchContext& context, const genetic::Value& batch,
      const genetic::Value& process_timeout_seconds) override;

 private:
  [[nodiscard]] genetic::List work_items(const genetic::Value& batch);
  [[nodiscard]] genetic::ProcessEvaluationConfig configuration(
      genetic::SearchContext& context, const genetic::Value& process_timeout_seconds);

  genetic::Host& host_;
};

}  // namespace varnholt::embedded
