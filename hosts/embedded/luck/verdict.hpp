// What a run found beside what chance alone would have found.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/luck/deflated_sharpe.hpp"

namespace varnholt::embedded {

// A signal that was submitted. Its Sharpe ratios are a year's.
struct JudgedSignal {
  std::string eval_id;
  double in_sample_sharpe = 0.0;
  double holdout_sharpe = 0.0;
  // The z_value() in sample beside the expected maximum, and on the hold-out beside 0.
  double deflated_z = 0.0;
  double holdout_z = 0.0;
};

// Above this share of the normal distribution it is better than luck.
inline constexpr double kBetterThanLuck = 0.95;

struct RunLuck {
  // What chance gives the trials, and what those of them had that were drawn at random.
  TrialSpread spread;
  TrialSpread drawn;
  // Of a year: what the best of so many trials is expected to reach by chance.
  double expected_maximum_sharpe = 0.0;
  // How often the best of one half of the days is below the middle in the other; absent where there
  // was nothing to compare.
  std::optional<double> overfitting_probability;
  // How many trials' daily PnL the correlation and the overfitting are estimated from.
  std::int64_t sampled_trials = 0;

  // The submitted signal with the best Sharpe ratio in sample; absent without any whose hold-out
  // was evaluated. It is chosen without a look at the hold-out.
  std::optional<JudgedSignal> best;
  // normal_share(deflated_z) of the best, and normal_share((deflated_z + holdout_z) / sqrt(2)):
  // both samples together, each with the same weight (S. A. Stouffer, 1949).
  double deflated_sharpe = 0.0;
  double confidence = 0.0;
  bool better_than_luck = false;  // confidence >= kBetterThanLuck.

  // Over all submitted signals whose hold-out was evaluated: their means, and the correlation
  // between the two samples, absent for fewer than three.
  std::int64_t signals = 0;
  double mean_in_sample_sharpe = 0.0;
  double mean_holdout_sharpe = 0.0;
  std::optional<double> sample_correlation;
};

// Adds the signals to what is known of the trials.
[[nodiscard]] RunLuck judged(RunLuck luck, const std::vector<JudgedSignal>& signals);

}  // namespace varnholt::embedded
