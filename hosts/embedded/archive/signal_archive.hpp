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
#include "search_templates/genetic/host/random_generator.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// How the search came to a signal.
enum class CandidateSource { Random, Archive, Other };

class SignalArchive {
 public:
  static constexpr std::size_t kCapacity = 96;
  static constexpr double kAlike = 0.7;
  static constexpr double kPricePerNode = 0.01;
  static constexpr double kPricePerChild = 0.02;
  static constexpr std::size_t kTournament = 3;
  // With fewer there is nothing to choose from.
  static constexpr std::size_t kLeastParents = 8;
  // The share of what is drawn from the archive begins at the middle and keeps within these.
  static constexpr double kLeastShare = 0.3;
  static constexpr double kGreatestShare = 0.8;

  // A signal that was evaluated. `nodes` is the size of its graph.
  void add(const genetic::Value& graph, double nodes, const Behaviour& behaviour,
           CandidateSource source);

  // Whether a graph of this structure was added before, whatever became of it.
  [[nodiscard]] bool has_met(const genetic::Value& graph) const;

  [[nodiscard]] bool has_parents() const { return members_.size() >= kLeastParents; }
  // How much of what is drawn should be bred from the archive: that part of the signals which got
  // in of late, each way counted by how many of its own did. An estimate that forgets: each
  // signal's weight is less by 1 % with each that follows.
  [[nodiscard]] double bred_share() const;

  // Of the graph of a parent. There must be one. kTournament draws.
  [[nodiscard]] genetic::Value parent(genetic::RandomGenerator& generator);

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
  struct Success {
    double tried = 0.0;
    double entered = 0.0;

    void count(bool has_entered);
    // One more of each than there were, so that a way that was never tried has a chance.
    [[nodiscard]] double rate() const { return (entered + 1.0) / (tried + 2.0); }
  };

  [[nodiscard]] bool enters(Member newcomer);

  std::vector<Member> members_;
  // Hashes in place of structures: of two that share one by chance, the second is not bred.
  std::unordered_set<std::size_t> met_;
  Success at_random_;
  Success from_archive_;
};

}  // namespace varnholt::embedded
