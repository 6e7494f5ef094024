#include "hosts/embedded/host/lineage.hpp"

#include <algorithm>
#include <utility>

#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/vocabulary/opposite_graph.hpp"
#include "search_templates/genetic/graph/canonical_text.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Mapping;
using genetic::StructuralKey;
using genetic::Value;

namespace {

constexpr std::string_view kCrossover = "crossover";

const char* text_of(Origin origin) {
  switch (origin) {
    case Origin::Bred:
      return "bred";
    case Origin::Seed:
      return "seed";
    case Origin::Fresh:
      return "fresh";
    case Origin::Known:
      return "known";
    case Origin::Repaired:
      return "repaired";
    case Origin::Unknown:
      break;
  }
  return "unknown";
}

genetic::List texts(const std::vector<std::string>& items) {
  genetic::List list(items.size());
  for (const std::string& item : items)
    list.append(item);
  return list;
}

// The graph key of each, once.
std::vector<std::string> graph_keys(const std::vector<Value>& graphs) {
  std::vector<std::string> keys;
  for (const Value& graph : graphs) {
    std::string key = sha256_hex(genetic::canonical_graph_string(graph));
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(std::move(key));
  }
  return keys;
}

}  // namespace

std::string lineage_json(const GraphOrigin& origin) {
  Mapping lineage{{"origin", text_of(origin.origin)}};
  if (origin.origin == Origin::Bred) {
    lineage.set("operators", texts(origin.operators));
    lineage.set("parents", texts(origin.parents));
  }
  if (origin.repair) {
    lineage.set("parents", texts(origin.parents));
    lineage.set("plan", origin.repair->plan);
    lineage.set("reason", origin.repair->reason);
    lineage.set("explanation", origin.repair->explanation);
    lineage.set("depth", origin.repair->depth);
  }
  if (!origin.formula.empty()) lineage.set("formula", origin.formula);
  if (origin.is_as_opposite) lineage.set("orientation", -1);
  return genetic::json_text(lineage);
}

void Lineage::note_seed(const Value& graph) {
  announced_.push_back({graph, {Origin::Seed, {}, {}}});
}

void Lineage::note_offspring(const Value& graph, std::span<const genetic::Key> operators,
                             const Value& elite, const Value& mate) {
  Source source{Origin::Bred, {}, {elite}};
  for (const genetic::Key operation : operators)
    source.operators.emplace_back(operation.view());
  if (source.operators.back() == kCrossover) source.parents.push_back(mate);
  announced_.push_back({graph, std::move(source)});
}

void Lineage::note_archive_offspring(const Value& graph, genetic::Key operation, const Value& elite,
                                     const Value& mate) {
  Source source{Origin::Bred, {std::string(operation.view())}, {elite}, CandidateSource::Archive};
  if (!mate.is_absent()) source.parents.push_back(mate);
  offered_.insert_or_assign(genetic::structural_key(graph), std::move(source));
}

void Lineage::note_formula(const Value& graph, const std::string& name) {
  offered_.insert_or_assign(genetic::structural_key(graph),
                            Source{Origin::Known, {}, {}, CandidateSource::Known, name});
}

void Lineage::note_formula_offspring(const Value& graph, genetic::Key operation, const Value& elite,
                                     const std::string& name) {
  offered_.insert_or_assign(
      genetic::structural_key(graph),
      Source{Origin::Bred, {std::string(operation.view())}, {elite}, CandidateSource::Known, name});
}

void Lineage::note_batch(const genetic::List& graphs) {
  genetic::ListCursor cursor(graphs);
  while (const std::optional<Value> graph = cursor.next()) {
    Source source = source_of(*graph);
    if (source.origin == Origin::Known) tried_formulas_.insert(source.formula);
    batch_.insert_or_assign(genetic::structural_key(*graph), std::move(source));
  }
  ++batches_;
  announced_.clear();
  offered_.clear();
}

Lineage::Source Lineage::source_of(const Value& graph) const {
  const auto found =
      std::find_if(announced_.begin(), announced_.end(), [&graph](const Announced& announced) {
        return genetic::same_object(announced.graph, graph);
      });
  if (found != announced_.end()) return found->source;
  // The search may take a copy of what it was offered.
  if (!offered_.empty()) {
    const auto offered = offered_.find(genetic::structural_key(graph));
    if (offered != offered_.end()) return offered->second;
  }
  return {Origin::Fresh, {}, {}, CandidateSource::Random};
}

void Lineage::note_repair(const Value& graph, std::vector<Value> parents, RepairNote repair) {
  repairs_.try_emplace(genetic::structural_key(graph),
                       Repair{std::move(parents), std::move(repair)});
  has_new_repairs_ = true;
}

void Lineage::note_opposite(const Value& graph) {
  opposites_.insert(genetic::structural_key(graph));
}

Value Lineage::as_recorded(const Value& graph) const {
  const bool is_opposite =
      !opposites_.empty() && opposites_.contains(genetic::structural_key(graph));
  return is_opposite ? opposite_graph(graph) : graph;
}

GraphOrigin Lineage::origin_of(const Value& graph) {
  const StructuralKey key = genetic::structural_key(graph);
  GraphOrigin found;
  if (const auto repair = repairs_.find(key); repair != repairs_.end()) {
    found.origin = Origin::Repaired;
    found.parents = graph_keys(repair->second.parents);
    found.repair = repair->second.note;
    has_new_repairs_ = false;
  } else if (const auto source = batch_.find(key); source != batch_.end()) {
    found.origin = source->second.origin;
    found.operators = source->second.operators;
    found.source = source->second.source;
    found.formula = source->second.formula;
    found.parents = graph_keys(source->second.parents);
  }
  found.is_as_opposite = !opposites_.empty() && opposites_.contains(key);
  return found;
}

void Lineage::next_generation() {
  announced_.clear();
  offered_.clear();
  batch_.clear();
  repairs_.clear();
  opposites_.clear();
  has_new_repairs_ = false;
}

}  // namespace varnholt::embedded
