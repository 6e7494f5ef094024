#include "apps/genetic_search/signal_lineage.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>

#include <fmt/format.h>

#include "apps/genetic_search/stored_signal.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::app {
namespace {

using embedded::EvaluationOfRun;
using genetic::Key;
using genetic::key;
using genetic::Mapping;
using genetic::Value;

constexpr Key kOrigin = key<"origin">();
constexpr Key kOperators = key<"operators">();
constexpr Key kParents = key<"parents">();

constexpr Key kPlan = key<"plan">();
constexpr Key kReason = key<"reason">();
constexpr Key kExplanation = key<"explanation">();

constexpr std::size_t kShownKey = 12;

// What repairs are about, in the order in which it is told.
constexpr auto kRepairedFigures = std::to_array(
    {key<"sharpe">(), key<"gross_returns_sharpe">(), key<"turnover">(), key<"max_weight">(),
     key<"delta_exposure">(), key<"abs_weight_sum_mean">(), key<"quality_score">()});

std::vector<std::string> texts(const Value& list) {
  std::vector<std::string> found;
  if (!list.is_list()) return found;
  for (std::size_t i = 0; i < list.list().size(); ++i)
    found.push_back(genetic::str(list.list().at(i)));
  return found;
}

class Tree {
 public:
  Tree(embedded::StoreReader& store, std::int64_t run, Damages& damages)
      : store_(store), damages_(damages), first_candidates_(store.first_candidates(run)) {}

  Ancestor of(const EvaluationOfRun& found, int generations) {
    const embedded::EvaluationRecord& evaluation = found.evaluation;
    const Value lineage =
        stored_json(evaluation.lineage_json, "the lineage of " + evaluation.eval_id, damages_);
    Ancestor ancestor;
    ancestor.graph_key = evaluation.graph_key;
    ancestor.eval_id = evaluation.eval_id;
    ancestor.expression = stored_expression(evaluation.graph_json);
    ancestor.statistics = statistics_of(evaluation);
    ancestor.origin = "unknown";
    if (!lineage.is_mapping()) return ancestor;
    const Mapping& entries = lineage.mapping();
    ancestor.origin = genetic::str(entries.get(kOrigin));
    ancestor.operators = texts(entries.get(kOperators));
    const std::vector<std::string> parents = texts(entries.get(kParents));
    if (entries.contains(kPlan)) ancestor.repair = repair_of(found, entries, parents);
    if (parents.empty()) return ancestor;
    if (generations == 0) {
      ancestor.parents_are_left_off = true;
    } else if (!told_.insert(evaluation.eval_id).second) {
      ancestor.parents_are_above = true;
    } else {
      for (const std::string& parent : parents)
        ancestor.parents.push_back(parent_of(found, parent, generations - 1));
    }
    return ancestor;
  }

 private:
  // The candidate with that graph, if the run had one before the child.
  std::optional<EvaluationOfRun> before(const EvaluationOfRun& child,
                                        const std::string& graph_key) {
    const auto place = first_candidates_.find(graph_key);
    if (place == first_candidates_.end() || place->second >= child.evaluation.candidate_number) {
      return std::nullopt;
    }
    return store_.find_evaluation(embedded::eval_id_of(child.run.id, place->second));
  }

  Value statistics_of(const embedded::EvaluationRecord& evaluation) {
    Value statistics = stored_json(evaluation.statistics_json,
                                   "the statistics of " + evaluation.eval_id, damages_);
    return statistics.is_mapping() ? statistics : Value();
  }

  AncestorRepair repair_of(const EvaluationOfRun& child, const Mapping& lineage,
                           const std::vector<std::string>& parents) {
    AncestorRepair repair{genetic::str(lineage.get(kPlan)),
                          genetic::str(lineage.get(kReason)),
                          genetic::str(lineage.get(kExplanation)),
                          {}};
    if (parents.empty()) return repair;
    const std::optional<EvaluationOfRun> source = before(child, parents.front());
    if (source) repair.before = statistics_of(source->evaluation);
    return repair;
  }

  Ancestor parent_of(const EvaluationOfRun& child, const std::string& graph_key, int generations) {
    const std::optional<EvaluationOfRun> parent = before(child, graph_key);
    if (parent) return of(*parent, generations);
    Ancestor unknown;
    unknown.graph_key = graph_key;
    unknown.origin = "unknown";
    return unknown;
  }

  embedded::StoreReader& store_;
  Damages& damages_;
  std::map<std::string, std::int64_t> first_candidates_;
  std::set<std::string> told_;  // Those whose parents stand in the tree.
};

std::string origin_text(const Ancestor& ancestor) {
  if (!ancestor.eval_id) return "not in this run";
  std::string text = on_one_line(ancestor.origin);
  if (!ancestor.operators.empty()) {
    text += " by ";
    for (std::size_t i = 0; i < ancestor.operators.size(); ++i)
      text += (i > 0 ? ", then " : "") + on_one_line(ancestor.operators[i]);
  }
  if (ancestor.repair) {
    text += fmt::format(" by {} for {}", on_one_line(ancestor.repair->plan),
                        on_one_line(ancestor.repair->reason));
  }
  if (ancestor.parents_are_above) text += ", parents as above";
  if (ancestor.parents_are_left_off) text += ", parents not told";
  return text;
}

// "sharpe -0.612 -> 0.534, turnover 0.12 -> 0.08": the figures that differ as they are written.
std::string changes_text(const Value& before, const Value& after) {
  std::string text;
  for (const Key figure : kRepairedFigures) {
    const std::optional<double> from = figure_of(before, figure);
    const std::optional<double> to = figure_of(after, figure);
    if (!from || !to) continue;
    const std::string told = fmt::format("{:.3g}", *from);
    const std::string changed = fmt::format("{:.3g}", *to);
    if (told == changed) continue;
    text += fmt::format("{}{} {} -> {}", text.empty() ? "" : ", ", figure.view(), told, changed);
  }
  return text;
}

std::string repair_text(const Ancestor& ancestor, const std::string& indent, Width width) {
  std::string text = entry_text(indent, on_one_line(ancestor.repair->explanation), width);
  const std::string changes = changes_text(ancestor.repair->before, ancestor.statistics);
  if (!changes.empty()) text += entry_text(indent, changes, width);
  return text;
}

std::string ancestry_text(const Ancestor& ancestor, std::size_t depth, Width width) {
  const std::string name =
      ancestor.eval_id ? *ancestor.eval_id : "graph " + ancestor.graph_key.substr(0, kShownKey);
  std::string text = entry_text(
      std::string(2 * depth + 2, ' ') + name + "  ",
      fmt::format("{}{}{}", origin_text(ancestor), ancestor.expression.empty() ? "" : ": ",
                  on_one_line(ancestor.expression)),
      width);
  if (ancestor.repair) text += repair_text(ancestor, std::string(2 * depth + 6, ' '), width);
  for (const Ancestor& parent : ancestor.parents)
    text += ancestry_text(parent, depth + 1, width);
  return text;
}

}  // namespace

Ancestor ancestry(embedded::StoreReader& store, const EvaluationOfRun& evaluation,
                  Damages& damages) {
  return Tree(store, evaluation.run.id, damages).of(evaluation, kToldGenerations);
}

std::string ancestry_text(const Ancestor& root, Width width) {
  return ancestry_text(root, 0, width);
}

Json ancestry_json(const Ancestor& root) {
  Json parents = Json::array();
  for (const Ancestor& parent : root.parents)
    parents.push_back(ancestry_json(parent));
  if (root.parents_are_above || root.parents_are_left_off) parents = nullptr;
  Json repair = nullptr;
  if (root.repair) {
    repair = {{"plan", root.repair->plan},
              {"reason", root.repair->reason},
              {"explanation", root.repair->explanation}};
  }
  return {{"eval_id", root.eval_id ? Json(*root.eval_id) : Json(nullptr)},
          {"graph_key", root.graph_key},
          {"origin", root.origin},
          {"operators", root.operators},
          {"repair", repair},
          {"statistics", to_json(root.statistics)},
          {"expression", root.expression.empty() ? Json(nullptr) : Json(root.expression)},
          {"parents", parents}};
}

}  // namespace varnholt::app
