// How signals move together, told from few days.
//
// Correlations of a few hundred days among dozens of signals are mostly noise, and whatever divides
// by them makes the noise its bets. So they are drawn towards none at all, by as much as the days
// leave them uncertain (O. Ledoit and M. Wolf, "A well-conditioned estimator for large-dimensional
// covariance matrices", Journal of Multivariate Analysis 88, 2004). With x_t the PnL of day t, each
// signal's less its mean and over its standard deviation, S the mean of x_t x_t' over n days, I the
// identity and |A|^2 the sum of the squares of A:
//
//   d^2 = |S - I|^2,  b^2 = min(d^2, (1/n^2) sum_t |x_t x_t' - S|^2),  shrinkage = b^2 / d^2
//   estimate = (1 - shrinkage) S + shrinkage I
//
// The paper's estimate takes covariances and draws them to a multiple of I; standardised, that
// multiple is 1, and every signal keeps its own volatility.
#pragma once

#include <Eigen/Core>

namespace varnholt::embedded {

struct ShrunkCorrelation {
  Eigen::MatrixXd correlation;  // Ones on the diagonal.
  double shrinkage = 0.0;       // 0 keeps what was measured, 1 leaves none.
};

// Each column less its mean, over its standard deviation (divisor n). Throws std::invalid_argument
// for fewer than two days, for an entry that is not finite and for a column that is constant.
[[nodiscard]] Eigen::MatrixXd standardised(const Eigen::MatrixXd& pnl);

// Of standardised PnL, a row a day and a column a signal.
[[nodiscard]] ShrunkCorrelation shrunk_correlation(const Eigen::MatrixXd& standardised_pnl);

}  // namespace varnholt::embedded
