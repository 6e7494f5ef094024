// Batches of candidates, with a ledger and callbacks that are Python objects.
#pragma once

#include <memory>
#include <utility>

#include <nanobind/nanobind.h>

#include "hosts/python/host/module_globals.hpp"
#include "search_templates/genetic/host/batch_evaluator.hpp"
#include "search_templates/genetic/process/batch_parts.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// The module's `_ProcessAttemptLedger`, its bound methods, and Python functions that hold what they
// need as closures do, so that the collector sees it and a host may keep them.
class PythonBatchParts : public genetic::BatchParts {
 public:
  PythonBatchParts(const ModuleGlobals& globals, nb::object context)
      : globals_(globals), context_(std::move(context)) {}

  [[nodiscard]] std::shared_ptr<genetic::AttemptLedger> attempt_ledger(
      const genetic::List& indexed_batch) override;
  [[nodiscard]] genetic::Callable simulate(const genetic::Value& found_pnl_paths) override;
  [[nodiscard]] genetic::Callable completed_result_callback(
      bool stream_submissions, const genetic::StreamedResults& streamed) override;
  [[nodiscard]] genetic::Callable pre_dispatch() override;
  [[nodiscard]] genetic::Callable lifecycle() override;
  [[nodiscard]] genetic::Callable progress() override;
  [[nodiscard]] genetic::Callable poll_backtest_boundaries() override;

 private:
  const ModuleGlobals& globals_;
  nb::object context_;
  nb::object ledger_;
};

// The module's `_evaluate_candidate_batch`, as it stands there when a search calls it.
class PythonBatchEvaluator : public genetic::BatchEvaluator {
 public:
  explicit PythonBatchEvaluator(const ModuleGlobals& globals) : globals_(globals) {}

  [[nodiscard]] genetic::Value evaluate_candidate_batch(
      genetic::SearchContext& context, const genetic::Value& batch,
      const genetic::Value& process_timeout_seconds) override;

 private:
  const ModuleGlobals& globals_;
};

}  // namespace varnholt::python
