// How often choosing the best of the trials in one half of the days chooses one that is below the
// average in the other half.
//
// Combinatorially symmetric cross-validation (D. H. Bailey, J. Borwein, M. Lopez de Prado and Q. J.
// Zhu, "The Probability of Backtest Overfitting", Journal of Computational Finance 20, 2017).
#pragma once

#include <cstdint>
#include <optional>

#include <Eigen/Core>

namespace varnholt::embedded {

// The days fall into so many blocks of equal length, of which half make one side: 12,870 ways. What
// does not fill a block, at the beginning, counts nowhere.
inline constexpr Eigen::Index kOverfittingBlocks = 16;

// The share of the ways in which the trial with the best Sharpe ratio on the one side has, on the
// other, a place no better than the middle: its rank from below over the number of trials plus 1 is
// at most a half, with equal ones sharing the mean of their places. About a half where nothing but
// chance tells them apart. Each column of `returns` is a trial, each row a day. Nothing for fewer
// than two trials, and for fewer than two days a block.
[[nodiscard]] std::optional<double> overfitting_probability(const Eigen::ArrayXXd& returns);

}  // namespace varnholt::embedded
