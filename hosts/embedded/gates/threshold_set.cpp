#include "hosts/embedded/gates/threshold_set.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {
namespace {

using genetic::Key;
using genetic::Kind;
using genetic::Mapping;
using genetic::Value;

// A text that says a number is no number here, and neither is a truth value: both are mistakes of
// whoever filled the mapping.
double number_of(const Value& value, std::string_view what, std::string_view name) {
  const Kind kind = genetic::exact_kind(value);
  if (kind != Kind::kInteger && kind != Kind::kReal) {
    throw genetic::TypeError(fmt::format("the {} \"{}\" must be a number, not {}", what, name,
                                         genetic::type_name(value)));
  }
  return genetic::to_float(value);
}

std::string gate_names() {
  std::string names;
  for (const Gate& gate : gate_table()) {
    if (!names.empty()) names += ", ";
    names += gate.name.view();
  }
  return names;
}

void check_names(const Mapping& overrides) {
  genetic::MappingCursor cursor(overrides);
  while (const auto entry = cursor.next()) {
    const auto has_name = [&entry](const Gate& gate) {
      return genetic::is_same_or_equal(gate.name, entry->key);
    };
    if (std::none_of(gate_table().begin(), gate_table().end(), has_name)) {
      throw genetic::ValueError(fmt::format("no gate is called {}; the gates are {}",
                                            genetic::repr(entry->key), gate_names()));
    }
  }
}

}  // namespace

Mapping threshold_set(const GateThresholds& thresholds, const HardLimits& limits,
                      const Mapping& overrides) {
  check_names(overrides);
  Mapping set(gate_table().size());
  for (const Gate& gate : gate_table()) {
    const std::optional<Value> replacement = overrides.find(gate.name);
    if (!replacement) {
      set.set(gate.name, gate.threshold(thresholds, limits));
    } else if (!replacement->is_absent()) {
      const double threshold = number_of(*replacement, "threshold", gate.name.view());
      if (std::isnan(threshold)) {
        throw genetic::ValueError(
            fmt::format("the threshold \"{}\" must be a number, not NaN", gate.name.view()));
      }
      set.set(gate.name, threshold);
    }
  }
  return set;
}

std::vector<GateFailure> evaluate_threshold_gates(const Value& metrics, const Value& thresholds) {
  if (!metrics.is_object() && !genetic::as_mapping(metrics)) {
    throw genetic::TypeError("the metrics must be a mapping or an object with attributes, not " +
                             genetic::type_name(metrics));
  }
  const std::optional<Mapping> set = genetic::as_mapping(thresholds);
  if (!set) {
    throw genetic::TypeError("the threshold set must be a mapping, not " +
                             genetic::type_name(thresholds));
  }
  std::vector<GateFailure> failures;
  for (const Gate& gate : gate_table()) {
    const Value threshold = set->get(gate.name);
    const Value metric = genetic::field_value(metrics, gate.metric);
    if (threshold.is_absent() || metric.is_absent()) continue;
    if (auto failure = judge_gate(gate, number_of(metric, "metric", gate.metric.view()),
                                  number_of(threshold, "threshold", gate.name.view()))) {
      failures.push_back(std::move(*failure));
    }
  }
  return failures;
}

}  // namespace varnholt::embedded
