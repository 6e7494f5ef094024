// The host's process pool.
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <nanobind/nanobind.h>

#include "hosts/python/host/module_globals.hpp"
#include "search_templates/genetic/host/process_evaluation.hpp"

namespace varnholt::python {

namespace nb = nanobind;

class PythonWorkerResolution : public genetic::WorkerResolution {
 public:
  explicit PythonWorkerResolution(nb::object resolution) : resolution_(std::move(resolution)) {}

  [[nodiscard]] const nb::object& object() const noexcept { return resolution_; }
  [[nodiscard]] genetic::Value resolved() const override;

 private:
  nb::object resolution_;
};

// `_process_evaluation`.
class PythonProcessEvaluation : public genetic::ProcessEvaluation {
 public:
  explicit PythonProcessEvaluation(const ModuleGlobals& globals) : globals_(globals) {}

  [[nodiscard]] genetic::Value default_search_template_timeout_seconds() override;
  [[nodiscard]] genetic::Value default_worker_memory_limit_bytes() override;
  [[nodiscard]] genetic::Value terminal_worker_failed() override;
  [[nodiscard]] genetic::Value terminal_worker_timeout() override;
  [[nodiscard]] genetic::Value terminal_process_priority_failed() override;
  [[nodiscard]] genetic::Value terminal_memory_budget_exceeded() override;

  [[nodiscard]] std::optional<genetic::Value> as_error(const std::exception& error) override;
  [[nodiscard]] std::optional<genetic::Value> as_caught_error(
      const std::exception_ptr& error) override;

  [[nodiscard]] std::unique_ptr<genetic::WorkerResolution> resolve_process_worker_count_details(
      const std::function<genetic::Value()>& requested,
      const genetic::Value& candidate_count) override;
  void log_worker_count_reduction(genetic::Logger& logger,
                                  const genetic::WorkerResolution& resolution,
                                  std::string_view scope, genetic::SearchContext& cache_owner,
                                  std::string_view detail) override;

  void prefetch_candidate_features(genetic::SearchContext& context,
                                   const genetic::List& graphs) override;
  [[nodiscard]] genetic::Value candidate_evaluation(const genetic::Value& candidate_index,
                                                    const genetic::Value& graph) override;
  [[nodiscard]] std::unique_ptr<genetic::ConfiguredPool> configure(
      const std::function<genetic::ProcessEvaluationConfig()>& config) override;

 private:
  [[nodiscard]] std::optional<genetic::Value> matching(const nb::object& exception) const;
  [[nodiscard]] genetic::Value constant(const char* name) const;

  const ModuleGlobals& globals_;
};

}  // namespace varnholt::python
