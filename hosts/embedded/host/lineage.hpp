// Where the candidates of a generation come from: bred from parents, seeds of the run, fresh, or
// repairs of what failed.
//
// The search hands graphs on without their origin. The host knows it all the same, because every
// offspring is made by its operators, every fresh graph by its source and every repair by its
// planner: a candidate is bred when an operator made its structure since the generation began, and
// so on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/host/genetic_ops.hpp"
#include "search_templates/genetic/host/random_weighted.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

enum class Origin { Bred, Seed, Fresh, Repaired, Unknown };

// The plan by which a graph was repaired.
struct RepairNote {
  std::string plan;
  std::string reason;  // The failure that it is meant for.
  std::string explanation;
  std::int64_t depth = 1;  // How many repairs lie between the graph and one that is none.
};

struct GraphOrigin {
  Origin origin = Origin::Unknown;
  // Of a bred graph: the operators in the order in which they were applied, one or two
  // ("point_mutation", then "crossover" with the mate), and the graph keys of the elite and the
  // mate, each once. Graphs that only lent a part to a mutation are no parents.
  std::vector<std::string> operators;
  //
  // Of a repair the signal that was repaired, and the peer that it was combined with, if any.
  std::vector<std::string> parents;
  std::optional<RepairNote> repair = {};
};

// {"operators":["crossover"],"origin":"bred","parents":["<graph key>","<graph key>"]} for a bred
// graph, {"depth":1,"explanation":"...","origin":"repaired","parents":["<graph key>"],
// "plan":"reverse","reason":"sharpe_min"} for a repair, {"origin":"seed"} and so on for the others.
[[nodiscard]] std::string lineage_json(const GraphOrigin& origin);

class Lineage {
 public:
  // An operator made `graph` of `parents`, the elite first. The search may still change the root of
  // the graph in place, cross it with a mate, and put the elite's root on a copy of what a hoist
  // gave; all of that is seen.
  void note_offspring(std::string_view operation, const genetic::Value& graph,
                      std::vector<genetic::Value> parents);
  // Also of graphs that only lend a part to a mutation.
  void note_fresh(const genetic::Value& graph);
  // For the whole run.
  void note_seed(const genetic::Value& graph);
  // The planner made `graph` of `parents`, the failed signal first. The search evaluates the
  // repairs of a generation after its batch, round by round.
  void note_repair(const genetic::Value& graph, std::vector<genetic::Value> parents,
                   RepairNote repair);

  // Asked when the graphs that it is asked about are made and changed no more. A structure that has
  // several origins is repaired rather than bred, for what the batch has evaluated is no repair any
  // more; bred rather than a seed, and a seed rather than fresh. Of several breedings or repairs
  // the first counts.
  [[nodiscard]] bool is_bred(const genetic::Value& graph);
  [[nodiscard]] GraphOrigin origin_of(const genetic::Value& graph);

  // Whether repairs were planned of which none was asked about with origin_of yet.
  [[nodiscard]] bool has_new_repairs() const { return has_new_repairs_; }

  void next_generation();

 private:
  struct Offspring {
    genetic::Value graph;
    std::vector<std::string> operators;
    std::vector<genetic::Value> parents;
  };
  using Index = std::unordered_map<genetic::StructuralKey, std::size_t, genetic::StructuralKeyHash>;

  [[nodiscard]] bool is_step_of_last(const genetic::Value& elite) const;
  // The structures that the search may have made of it.
  [[nodiscard]] static std::vector<genetic::StructuralKey> structures(const Offspring& offspring);
  [[nodiscard]] const Offspring* breeding_of(const genetic::StructuralKey& key);
  [[nodiscard]] bool is_fresh(const genetic::StructuralKey& key);

  struct Repair {
    std::vector<genetic::Value> parents;
    RepairNote note;
  };

  std::vector<Offspring> offspring_;
  std::vector<genetic::Value> fresh_;
  std::unordered_map<genetic::StructuralKey, Repair, genetic::StructuralKeyHash> repairs_;
  bool has_new_repairs_ = false;
  genetic::StructuralKeySet seeds_;
  // Made when they are first asked for, and again after a note.
  std::optional<Index> offspring_index_;
  std::optional<genetic::StructuralKeySet> fresh_keys_;
};

// Passes every call on, and notes what comes back.
class ObservedOperators : public genetic::GeneticOps {
 public:
  // Both must outlive the object.
  ObservedOperators(genetic::GeneticOps& operators, Lineage& lineage)
      : operators_(operators), lineage_(lineage) {}

  [[nodiscard]] genetic::Value crossover(const genetic::Value& elite, const genetic::Value& mate,
                                         const std::shared_ptr<genetic::RandomGenerator>& rng,
                                         const genetic::Callable& validator) override;
  [[nodiscard]] genetic::Value point_mutation(const genetic::Value& elite,
                                              const genetic::Value& replacements,
                                              const std::shared_ptr<genetic::RandomGenerator>& rng,
                                              const genetic::Callable& validator) override;
  [[nodiscard]] genetic::Value subtree_mutation(
      const genetic::Value& elite, const genetic::Value& replacements,
      const std::shared_ptr<genetic::RandomGenerator>& rng,
      const genetic::Callable& validator) override;
  [[nodiscard]] genetic::Value hoist_mutation(const genetic::Value& elite,
                                              const std::shared_ptr<genetic::RandomGenerator>& rng,
                                              const genetic::Callable& validator) override;

 private:
  genetic::GeneticOps& operators_;
  Lineage& lineage_;
};

// The same for the source of fresh graphs.
class ObservedRandomGraphs : public genetic::RandomWeighted {
 public:
  // Both must outlive the object and its walks.
  ObservedRandomGraphs(genetic::RandomWeighted& source, Lineage& lineage)
      : source_(source), lineage_(lineage) {}

  [[nodiscard]] std::unique_ptr<genetic::ValueIterator> random_weighted_graphs(
      genetic::SearchContext& context, const std::shared_ptr<genetic::RandomGenerator>& rng,
      const genetic::Mapping& log_context, std::string_view template_name) override;

 private:
  genetic::RandomWeighted& source_;
  Lineage& lineage_;
};

}  // namespace varnholt::embedded
