// The gates of the signal pool, which a signal passes to join it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace varnholt::embedded {

// What was measured of a signal against a pool.
struct PoolMeasure {
  // How much of the signal is new beside the member that it depends on most, from 0 (nothing) to 1
  // (all, and in an empty pool): novelty_of(`mutual_information`).
  double novelty = 1.0;
  // In nats: the largest with any member, or with the member that was enough to refuse the signal;
  // 0 in an empty pool.
  double mutual_information = 0.0;
  // The largest absolute Pearson correlation with any member; 0 in an empty pool.
  double correlation = 0.0;
  // The members that gave the two, by their evaluation ids; of equal ones the earlier. Absent in an
  // empty pool.
  std::optional<std::string> nearest_by_information;
  std::optional<std::string> nearest_by_correlation;
  // The members that it was compared with, and those of them that the information was asked of: all
  // of them, or those until one was enough to refuse the signal; none where any novelty will do.
  std::int64_t members = 0;
  std::int64_t informed = 0;
};

// A signal passes with a novelty of at least the one and a correlation of at most the other, and
// with a deflated Sharpe ratio of at least the third (luck_gate.hpp); 0 asks for none.
//
// The novelty of independent signals is not 1 but scatters below it, since their mutual information
// is estimated: over 1,000 days, mostly from 0.8 on. A minimum above 0.6 would refuse what is new.
inline constexpr double kDefaultMinNovelty = 0.2;
inline constexpr double kDefaultMaxCorrelation = 0.7;

struct PoolThresholds {
  double min_novelty = kDefaultMinNovelty;
  double max_correlation = kDefaultMaxCorrelation;
  double min_deflated_sharpe = 0.0;
  // Whether a signal takes the place of members that it outdoes (MemberSeries::outdoes) and is
  // like; otherwise the first of like signals stays, however weak it is.
  bool replaces_weaker = false;
};

// Throws std::invalid_argument unless all are from 0 to 1.
void check_pool_thresholds(const PoolThresholds& thresholds);

// 1 - sqrt(1 - exp(-2 I)) for mutual information of I nats; what an estimate has below 0 counts as
// 0. The root is the informational coefficient of correlation (E. H. Linfoot, "An informational
// measure of correlation", Information and Control 1, 1957): for a Gaussian pair with correlation
// rho it is |rho|, so that the novelty is 1 - |rho|.
[[nodiscard]] double novelty_of(double mutual_information);
// The information that leaves this novelty: -ln(1 - (1 - novelty)^2) / 2; infinity for 0.
[[nodiscard]] double information_of(double novelty);

[[nodiscard]] bool passes_novelty(const PoolMeasure& measure, const PoolThresholds& thresholds);
[[nodiscard]] bool passes_correlation(const PoolMeasure& measure, const PoolThresholds& thresholds);

// The host's own reasons; those of the two other gates are the search's. The second is that of a
// member which has left the pool.
inline constexpr const char* kDeflatedSharpeBelowMin = "deflated_sharpe_below_min";
inline constexpr const char* kReplacedByBetter = "replaced_by_better";

// A gate that a signal failed: "pnl_mi_below_threshold", "correlation_exceeded" or the reason
// above, and what was measured, for people.
struct PoolRefusal {
  std::string reason;
  std::string detail;
};

// Absent when novelty and correlation pass. Of two failed gates the mutual information's is named.
[[nodiscard]] std::optional<PoolRefusal> refusal(const PoolMeasure& measure,
                                                 const PoolThresholds& thresholds);

}  // namespace varnholt::embedded
