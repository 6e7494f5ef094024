// How large a Sharpe ratio chance alone reaches in many trials, and what is left of one beside it.
//
// After D. H. Bailey and M. Lopez de Prado, "The Deflated Sharpe Ratio" (Journal of Portfolio
// Management 40, 2014). All Sharpe ratios here are those of one day, not annualised, over n days.
// docs/luck.md tells the choices.
#pragma once

#include <cstdint>
#include <vector>

#include <Eigen/Core>

namespace varnholt::embedded {

// The share of the standard normal distribution that lies below `z`.
[[nodiscard]] double normal_share(double z);

// The trials of a search.
struct TrialSpread {
  // Different expressions that were backtested.
  std::int64_t trials = 0;
  // How many independent ones they count as: independent_trials().
  double independent = 0.0;
  // Of the Sharpe ratio of one trial.
  double mean = 0.0;
  double deviation = 0.0;
};

// Without any skill, over n days: a mean of 0 and the standard error 1 / sqrt(n - 1) of a Sharpe
// ratio. The paper takes the spread that the trials have instead. That one holds what is really
// there, too: where many expressions have caught an effect, it is wide, and nothing would be better
// than luck (docs/luck.md has both).
[[nodiscard]] TrialSpread spread_without_skill(std::int64_t days);

// What the trials have, for a look at them: the median of Sharpe ratios before costs, since costs
// can only lower one, of expressions that were drawn at random and not chosen; and their
// interquartile range over that of a normal distribution. Of fewer than kLeastDrawn nothing is
// told: both are 0.
inline constexpr std::size_t kLeastDrawn = 20;
[[nodiscard]] TrialSpread spread_of_drawn(std::vector<double> sharpes);

// r + (1 - r) M for M trials, with r the mean absolute correlation of the daily PnL of a sample of
// them (a row a day, a column a trial): 1 where all are alike, M where none is like another. The
// absolute one, because the search draws a signal and its opposite alike. M where the sample has
// fewer than two columns with any spread.
[[nodiscard]] double independent_trials(const Eigen::ArrayXXd& sample, std::int64_t trials);

// mean + deviation ((1 - g) Q(1 - 1/N) + g Q(1 - 1/(N e))) with N = independent, at least 1, g
// Euler's constant and Q the quantile of the normal distribution: the largest Sharpe ratio that N
// trials are expected to reach by chance. The mean itself for one trial.
[[nodiscard]] double expected_maximum_sharpe(const TrialSpread& spread);

// The Sharpe ratio of n returns with the standard error of its estimate,
//   sqrt((1 - g3 SR + (g4 - 1) / 4 SR^2) / (n - 1))
// with the skewness g3 and the kurtosis g4 of the returns (3 for a normal distribution).
struct SharpeEstimate {
  double sharpe = 0.0;
  double error = 0.0;

  // By how many of its errors it lies above the benchmark; 0 without any spread. The normal_share()
  // of it is the probabilistic Sharpe ratio, and with expected_maximum_sharpe() as benchmark the
  // deflated one.
  [[nodiscard]] double z_value(double benchmark) const {
    return error > 0.0 ? (sharpe - benchmark) / error : 0.0;
  }
};
[[nodiscard]] SharpeEstimate sharpe_estimate(const Eigen::ArrayXd& returns);

}  // namespace varnholt::embedded
