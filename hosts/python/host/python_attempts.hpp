// The host's attempt tracker, its markers of attempts, and its accounts of them.
#pragma once

#include <utility>

#include <nanobind/nanobind.h>

#include "hosts/python/host/module_globals.hpp"
#include "search_templates/genetic/host/attempt_accounting.hpp"
#include "search_templates/genetic/host/attempt_markers.hpp"
#include "search_templates/genetic/host/attempt_tracker.hpp"

namespace varnholt::python {

namespace nb = nanobind;

// `ctx._tracker`. The fields of an attempt are keyword arguments, in the order of the structs.
class PythonAttemptTracker : public genetic::AttemptTracker {
 public:
  explicit PythonAttemptTracker(nb::object tracker) : tracker_(std::move(tracker)) {}

  [[nodiscard]] Create create_simulation_attempt() override;
  [[nodiscard]] Finalize finalize_simulation_attempt() override;
  void mark_simulation_attempt_dispatched(const genetic::Value& attempt_id) override;
  void mark_simulation_attempt_backtest_started(const genetic::Value& attempt_id) override;

 private:
  nb::object tracker_;
};

// Attributes of `_engine`.
class PythonAttemptMarkers : public genetic::AttemptMarkers {
 public:
  explicit PythonAttemptMarkers(const ModuleGlobals& globals) : globals_(globals) {}

  [[nodiscard]] Write write_evaluation_attempt_marker() override;
  [[nodiscard]] Clear clear_evaluation_attempt_marker() override;
  [[nodiscard]] DataShape attempt_declared_data_shape() override;

 private:
  const ModuleGlobals& globals_;
};

// The host's module of accounts, imported at each call: loading our module does not need it.
class PythonAttemptAccounting : public genetic::AttemptAccounting {
 public:
  [[nodiscard]] genetic::Value build_column_inventory(
      const genetic::Value& expected_columns, const genetic::Value& per_column_stats) override;
  [[nodiscard]] genetic::Value json_ready(const genetic::Value& value) override;
};

}  // namespace varnholt::python
