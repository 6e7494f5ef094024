#include "hosts/embedded/archive/signal_archive.hpp"

#include <algorithm>
#include <utility>

#include "search_templates/genetic/graph/structural_key.hpp"

namespace varnholt::embedded {

using genetic::Value;

namespace {

std::size_t structure_hash(const Value& graph) {
  return genetic::StructuralKeyHash()(genetic::structural_key(graph));
}

}  // namespace

bool SignalArchive::has_met(const Value& graph) const {
  return met_.contains(structure_hash(graph));
}

void SignalArchive::add(const Value& graph, double nodes, const Behaviour& behaviour,
                        CandidateSource source) {
  met_.insert(structure_hash(graph));
  const double score = behaviour.residual_sharpe - kPricePerNode * nodes;
  shares_.count(source, enters({graph, score, behaviour, evaluated_, told_by_pool(behaviour)}));
  ++evaluated_;
}

void SignalArchive::add_repeat(const Value& graph, CandidateSource source) {
  met_.insert(structure_hash(graph));
  shares_.count(source, false);
  ++evaluated_;
}

void SignalArchive::set_pool(std::vector<Behaviour> pool) {
  pool_ = std::move(pool);
  for (Member& member : members_)
    member.told_by_pool = told_by_pool(member.behaviour);
}

double SignalArchive::told_by_pool(const Behaviour& behaviour) const {
  double most = 0.0;
  for (const Behaviour& member : pool_)
    most = std::max(most, behaviour.likeness(member) * member.residual_sharpe);
  return most;
}

double SignalArchive::rank(const Member& member) const {
  return member.score - kPricePerChild * static_cast<double>(member.children) -
         kPriceOfAge * static_cast<double>(evaluated_ - member.came_at) -
         kPoolShare * member.told_by_pool;
}

bool SignalArchive::enters(Member newcomer) {
  const auto is_like = [&newcomer](const Member& member) {
    return member.behaviour.likeness(newcomer.behaviour) >= kAlike;
  };
  const auto is_lower = [this](const Member& left, const Member& right) {
    return rank(left) < rank(right);
  };
  const bool is_best_of_its_kind = std::none_of(
      members_.begin(), members_.end(),
      [&](const Member& member) { return member.score >= newcomer.score && is_like(member); });
  if (!is_best_of_its_kind) return false;
  std::erase_if(members_, is_like);
  if (members_.size() == kCapacity) {
    // Of equal ones the oldest.
    const auto lowest = std::min_element(members_.begin(), members_.end(), is_lower);
    if (!is_lower(*lowest, newcomer)) return false;
    members_.erase(lowest);
  }
  members_.push_back(std::move(newcomer));
  return true;
}

Value SignalArchive::parent(genetic::RandomGenerator& generator) {
  Member* chosen = nullptr;
  for (std::size_t draw = 0; draw < kTournament; ++draw) {
    Member& drawn = members_[genetic::random_below(generator, members_.size())];
    if (chosen == nullptr || rank(drawn) > rank(*chosen)) chosen = &drawn;
  }
  ++chosen->children;
  return chosen->graph;
}

Value SignalArchive::lender(genetic::RandomGenerator& generator) const {
  return members_[genetic::random_below(generator, members_.size())].graph;
}

}  // namespace varnholt::embedded
