// The best of what a search has evaluated, of each kind of behaviour: what the host breeds from.
//
// The search breeds from what passes its gates in one generation, and forgets it at a restart. The
// archive forgets nothing that is good of its kind, and asks no gate: a signal that misses one
// narrowly is as good a parent. In the manner of MAP-Elites (J.-B. Mouret and J. Clune,
// "Illuminating search spaces by mapping elites", 2015), but with neighbours in place of cells:
//
//   score     the Sharpe ratio beside the market with a part of the costs taken off
//             (behaviour.hpp), less a price for each node
//   rank      the score, less a price for each time that it was a parent and for its age, so that
//             none is bred from for ever, and less a half of what a member of the signal pool tells
//             of it: what adds to the pool comes first, and what is in the pool can still be
//             improved
//   a signal  takes the place of all that it is like and better than, where it is better than all
//             that it is like (a likeness of kAlike or more); where it is like none, that of the
//             lowest rank once the archive is full
//   a parent  is the one of the highest rank of three that are drawn
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
  // For each signal that was evaluated since it came: 0.1 in a thousand.
  static constexpr double kPriceOfAge = 0.0001;
  static constexpr double kPoolShare = 0.5;
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

  // The members of the signal pool, each by its own PnL. The ranks are those beside them from now
  // on.
  void set_pool(std::vector<Behaviour> pool);

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
    std::int64_t came_at = 0;   // How many were evaluated before.
    double told_by_pool = 0.0;  // Of its Sharpe ratio: likeness times that of the pool's member.
    std::int64_t children = 0;
  };

  [[nodiscard]] bool enters(Member newcomer);
  [[nodiscard]] double rank(const Member& member) const;
  [[nodiscard]] double told_by_pool(const Behaviour& behaviour) const;

  std::vector<Member> members_;
  std::vector<Behaviour> pool_;
  std::int64_t evaluated_ = 0;
  // Hashes in place of structures: of two that share one by chance, the second is not bred.
  std::unordered_set<std::size_t> met_;
  SourceShares shares_;
};

}  // namespace varnholt::embedded
