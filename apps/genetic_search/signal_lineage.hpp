// Where a stored signal comes from, several generations back.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "apps/genetic_search/json_events.hpp"
#include "apps/genetic_search/stored_signal.hpp"
#include "apps/genetic_search/text_layout.hpp"
#include "hosts/embedded/store/store_reader.hpp"

namespace varnholt::app {

// How many generations of parents are shown.
inline constexpr int kToldGenerations = 4;

// The plan by which a candidate was repaired.
struct AncestorRepair {
  std::string plan;
  std::string reason;
  std::string explanation;
  // The statistics of what was repaired; absent where they are not known.
  genetic::Value before;
};

// A candidate and how it came about.
struct Ancestor {
  std::string graph_key;
  // Of the candidate with this graph; absent when the run has none before its child.
  std::optional<std::string> eval_id;
  std::string expression;
  std::string origin;                  // As the store has it: "bred", "fresh" and so on.
  std::vector<std::string> operators;  // Of a bred one, in the order in which they were applied.
  std::optional<AncestorRepair> repair;
  genetic::Value statistics;  // A mapping, or absent.
  // Of a repair first what was repaired, then the peer that it was combined with, if any.
  //
  // Empty also where they are shown elsewhere in the tree, or are too many generations back.
  std::vector<Ancestor> parents;
  bool parents_are_above = false;
  bool parents_are_left_off = false;
};

// The tree of an evaluation of `store`.
[[nodiscard]] Ancestor ancestry(embedded::StoreReader& store,
                                const embedded::EvaluationOfRun& evaluation, Damages& damages);

// A line for each candidate, its parents below it and further in. Below the line of a repair stand
// what the plan means and the statistics that it changed, before and after. Ended.
[[nodiscard]] std::string ancestry_text(const Ancestor& root, Width width);

// {"eval_id","graph_key","origin","operators","repair","statistics","expression",
// "parents":[...]}; `repair` is {"plan","reason","explanation"} or null, `parents` is null where
// there are parents that are not shown here.
[[nodiscard]] Json ancestry_json(const Ancestor& root);

}  // namespace varnholt::app
