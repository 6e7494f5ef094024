// The best of what a search has evaluated, of each kind of behaviour: what the host breeds from.
//
// The search breeds from what passes its gates in one generation, and forgets it at a restart. The
// archive forgets nothing that is good of its kind, and asks no gate: a signal that misses one
// narrowly is as good a parent. In the manner of MAP-Elites (J.-B. Mouret and J. Clune,
// "Illuminating search spaces by mapping elites", 2015), but with neighbours in place of cells:
//
//   score     the Sharpe ratio beside the market, less a price for each node
//   a signal  takes the place of all that it is like and better than, where it is better than all
//             that it is like (a likeness of kAlike or more); where it is like none, that of the
//             worst once the archive is full
//   a parent  is the best of three that are drawn, by score less a price for each time that it was
//             a parent before, so that none is bred from for ever
//
// All draws come from the generator that is given, and signals are told of in the order of their
// candidate numbers: a seed repeats a run for any number of jobs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <vector>

#include "hosts/embedded/archive/behaviour.hpp"
#include "hosts/embedded/archive/source_shares.hpp"
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class SignalArchive {
 public:
  static constexpr std::size_t kCapacity = 96;
  static constexpr double kAlike = 0.7;
  static constexpr double kPricePerNode = 0.01;
  static constexpr double kPricePerChild = 0.02;
  static constexpr std::size_t kTournament = 3;
  // With fewer there is nothing to choose from.
  static constexpr std::size_t kLeastParents = 8;

  // A signal that was evaluated. `nodes` is the size of its graph.
  void add(const genetic::Value& graph, double nodes, const Behaviour& behaviour,
           CandidateSource source);

  // A signal that does what an earlier one did, and comes to nothing.
  void add_repeat(const genetic::Value& graph, CandidateSource source);

  // Whether a graph of this structure was added before, whatever became of it.
  [[nodiscard]] bool has_met(const genetic::Value& graph) const;

  [[nodiscard]] bool has_parents() const { return members_.size() >= kLeastParents; }
  [[nodiscard]] const SourceShares& shares() const { return shares_; }

  // The graph of a parent. There must be one. kTournament draws.
  [[nodiscard]] genetic::Value parent(genetic::RandomGenerator& generator);
  // The graph of any member, to lend its parts. There must be one. One draw.
  [[nodiscard]] genetic::Value lender(genetic::RandomGenerator& generator) const;

  [[nodiscard]] std::size_t size() const { return members_.size(); }

 private:
  struct Member {
    genetic::Value graph;
    double score = 0.0;
    Behaviour behaviour;
    std::int64_t children = 0;

    [[nodiscard]] double rank() const {
      return score - kPricePerChild * static_cast<double>(children);
    }
  };

  [[nodiscard]] bool enters(Member newcomer);

  std::vector<Member> members_;
  // Hashes in place of structures: of two that share one by chance, the second is not bred.
  std::unordered_set<std::size_t> met_;
  SourceShares shares_;
};

}  // namespace varnholt::embedded
