#include "hosts/embedded/host/known_behaviours.hpp"

#include <cstddef>
#include <span>

namespace varnholt::embedded {

namespace {

// All bits of a number in all bits of another: the constants are those of SplitMix64.
std::uint64_t mixed(std::uint64_t bits) {
  bits = (bits ^ (bits >> 30U)) * 0xbf58476d1ce4e5b9U;
  bits = (bits ^ (bits >> 27U)) * 0x94d049bb133111ebU;
  return bits ^ (bits >> 31U);
}

// Weights are at most 1 in size, and 0 where they are not known.
std::int64_t rounded(double weight) {
  constexpr auto kScale = static_cast<double>(std::int64_t{1} << kWeightDigits);
  return static_cast<std::int64_t>(weight * kScale + (weight < 0.0 ? -0.5 : 0.5));
}

// 1 or -1, so that the first weight that is not 0 becomes positive; 1 where there is none.
std::int64_t sign_of(std::span<const double> weights) {
  for (const double weight : weights) {
    if (rounded(weight) != 0) return weight < 0.0 ? -1 : 1;
  }
  return 1;
}

}  // namespace

std::uint64_t behaviour_fingerprint(const Panel& weights, bool judges_both_signs) {
  const std::span places(weights.data(), static_cast<std::size_t>(weights.size()));
  const std::int64_t sign = judges_both_signs ? sign_of(places) : 1;
  // A sum over the places: no term waits for the one before it.
  std::uint64_t hash = 0;
  std::uint64_t place = 0;
  for (const double weight : places) {
    place += 0x9e3779b97f4a7c15U;
    hash += mixed(place ^ static_cast<std::uint64_t>(sign * rounded(weight)));
  }
  return hash;
}

void KnownBehaviours::note(std::optional<std::uint64_t> fingerprint) {
  ++candidates_;
  if (fingerprint) noted_.emplace_back(*fingerprint, candidates_);
}

void KnownBehaviours::settle() {
  // Of several the first stays.
  for (const auto& [fingerprint, candidate] : noted_)
    known_.try_emplace(fingerprint, candidate);
  noted_.clear();
}

std::optional<std::int64_t> KnownBehaviours::find(std::uint64_t fingerprint) const {
  const auto found = known_.find(fingerprint);
  return found == known_.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace varnholt::embedded
