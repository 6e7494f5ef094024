// Where the candidates of a generation come from: bred from parents, seeds of the run, drawn
// afresh, known formulas, or repairs of what failed.
//
// The search tells which of the graphs that it evaluates next are seeds and which were bred, of
// whom and how; all others were drawn afresh. What is repaired the host's own planner knows. A
// candidate is found again by its structure: its result comes back from another process.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "hosts/embedded/archive/source_shares.hpp"
#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/host/generation_observer.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

enum class Origin { Bred, Seed, Fresh, Known, Repaired, Unknown };

// The plan by which a graph was repaired.
struct RepairNote {
  std::string plan;
  std::string reason;  // The failure that it is meant for.
  std::string explanation;
  std::int64_t depth = 1;  // How many repairs in a row led to the graph.
};

struct GraphOrigin {
  Origin origin = Origin::Unknown;
  // Of a bred graph: the operators in the order in which they were applied, one or two
  // ("point_mutation", then "crossover" with the mate), and the graph keys of the elite and the
  // mate, each once. Graphs that only lent a part to a mutation are not parents.
  std::vector<std::string> operators;
  //
  // Of a repair the signal that was repaired, and the peer that it was combined with, if any.
  std::vector<std::string> parents;
  std::optional<RepairNote> repair = {};
  CandidateSource source = CandidateSource::Other;
  // The name of the known formula that the graph is, or that it was bred of.
  std::string formula = {};
  bool is_as_opposite = false;  // What was recorded is the opposite of the graph.
};

// {"operators":["crossover"],"origin":"bred","parents":["<graph key>","<graph key>"]} for a bred
// graph, {"depth":1,"explanation":"...","origin":"repaired","parents":["<graph key>"],
// "plan":"reverse","reason":"sharpe_min"} for a repair, {"origin":"seed"} and so on for the others;
// with "orientation":-1 where the opposite was recorded, and "formula":"<name>" of what is a known
// formula or was bred from one.
[[nodiscard]] std::string lineage_json(const GraphOrigin& origin);

class Lineage {
 public:
  // As the search tells it (GenerationObserver), seeds and offspring before the batch.
  void note_seed(const genetic::Value& graph);
  void note_offspring(const genetic::Value& graph, std::span<const genetic::Key> operators,
                      const genetic::Value& elite, const genetic::Value& mate);
  // Among the random graphs the host offers known formulas, and some that it has bred itself, most
  // of which the search only takes parts of. Without a mate there is one parent.
  void note_archive_offspring(const genetic::Value& graph, genetic::Key operation,
                              const genetic::Value& elite, const genetic::Value& mate);
  void note_formula(const genetic::Value& graph, const std::string& name);
  void note_formula_offspring(const genetic::Value& graph, genetic::Key operation,
                              const genetic::Value& elite, const std::string& name);
  void note_batch(const genetic::List& graphs);
  // How many batches there were, and whether the formula of that name was in one as it is.
  [[nodiscard]] std::int64_t batches() const { return batches_; }
  [[nodiscard]] bool has_tried_formula(const std::string& name) const {
    return tried_formulas_.contains(name);
  }
  // The planner made `graph` of `parents`, the failed signal first. The search evaluates the
  // repairs of a generation after its batch, round by round.
  void note_repair(const genetic::Value& graph, std::vector<genetic::Value> parents,
                   RepairNote repair);

  // The opposite of `graph` was recorded in its place, because it is what earns.
  void note_opposite(const genetic::Value& graph);
  // The graph of what was recorded for `graph` in this generation.
  [[nodiscard]] genetic::Value as_recorded(const genetic::Value& graph) const;

  // Asked of graphs of this generation. A structure that was evaluated in the batch and is asked
  // about again is a repair: of several repairs the first counts.
  [[nodiscard]] GraphOrigin origin_of(const genetic::Value& graph);

  // Whether repairs were planned of which none was asked about with origin_of yet.
  [[nodiscard]] bool has_new_repairs() const { return has_new_repairs_; }

  void next_generation();

 private:
  struct Source {
    Origin origin = Origin::Fresh;
    std::vector<std::string> operators;
    std::vector<genetic::Value> parents;
    CandidateSource source = CandidateSource::Other;
    std::string formula = {};
  };
  struct Announced {
    genetic::Value graph;
    Source source;
  };
  struct Repair {
    std::vector<genetic::Value> parents;
    RepairNote note;
  };
  template <typename Note>
  using ByStructure = std::unordered_map<genetic::StructuralKey, Note, genetic::StructuralKeyHash>;

  // What was told of this very graph.
  [[nodiscard]] Source source_of(const genetic::Value& graph) const;

  std::vector<Announced> announced_;  // For the batch that is being made.
  ByStructure<Source> offered_;       // Likewise, by the host.
  ByStructure<Source> batch_;
  ByStructure<Repair> repairs_;
  genetic::StructuralKeySet opposites_;
  bool has_new_repairs_ = false;
  std::int64_t batches_ = 0;
  std::unordered_set<std::string> tried_formulas_;
};

}  // namespace varnholt::embedded
