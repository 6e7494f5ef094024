// The gates over open data: thresholds as a mapping, statistics under their names.
//
// The search re-evaluates the gates of a failed candidate to learn what else is wrong with it. It
// holds the thresholds and the statistics as values, not as our structures.
#pragma once

#include <vector>

#include "hosts/embedded/gates/gates.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// A new mapping of gate name to threshold, in the order of the gate table. An entry of `overrides`
// replaces the threshold of the gate that it names, and an absent one takes the gate out of the
// set. genetic::ValueError for a name that no gate has and for a threshold that is not a number
// (NaN); genetic::TypeError for one of another type than a number.
[[nodiscard]] genetic::Mapping threshold_set(
    const GateThresholds& thresholds, const HardLimits& limits,
    const genetic::Mapping& overrides = genetic::Mapping());

// Every gate of the set that the metrics fail, in the order of the gate table. `metrics` is a
// mapping of metric name to number, or an object with one attribute a metric; `thresholds` a
// mapping of gate name to threshold. A gate without a threshold, or whose metric is missing or
// absent, is not judged; a metric that is not finite fails. Other entries of either are not looked
// at: a set may hold thresholds of gates that are judged elsewhere. genetic::TypeError for
// arguments of another kind, and for a threshold or metric of a judged gate that is not a number.
[[nodiscard]] std::vector<GateFailure> evaluate_threshold_gates(const genetic::Value& metrics,
                                                                const genetic::Value& thresholds);

}  // namespace varnholt::embedded
