// What the signals of a run have wanted to hold, so that a repeat is told before its backtest.
//
// Different expressions often give the same weights: a rank of a rank, a product with a constant, a
// condition that always holds. Their backtests give the same figures, and the pool would refuse
// them for the same returns.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "search_templates/genetic/value/key.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The reason of a candidate that holds what an earlier one of its run held.
inline constexpr genetic::Key kBehaviourRepeated = genetic::key<"behaviour_repeated">();

// The weights of all days, rounded to kWeightDigits binary digits behind the point, as one number.
// Where both signs are judged, opposite weights have the same one. Rounding lets weights be alike
// that differ by what the order of a sum does.
inline constexpr int kWeightDigits = 30;
[[nodiscard]] std::uint64_t behaviour_fingerprint(const Panel& weights, bool judges_both_signs);

// The fingerprints of a run with the candidates that had them first, by their numbers, which are
// the same whatever the number of the run.
//
// Workers are forked at any time, and results are recorded while others run: what is noted counts
// only once it is settled, when none runs, so that a seed gives the same candidates with any number
// of jobs. Repeats within a batch or a round of repairs are evaluated in full.
class KnownBehaviours {
 public:
  // The next candidate was recorded; with its fingerprint if it was backtested.
  void note(std::optional<std::uint64_t> fingerprint);
  void settle();

  // The number of the candidate that had the fingerprint first, of what is settled.
  [[nodiscard]] std::optional<std::int64_t> find(std::uint64_t fingerprint) const;

 private:
  std::unordered_map<std::uint64_t, std::int64_t> known_;
  std::vector<std::pair<std::uint64_t, std::int64_t>> noted_;
  std::int64_t candidates_ = 0;
};

}  // namespace varnholt::embedded
