// How strongly two daily PnL series depend on each other.
//
// Both measures are symmetric, and both take a series as a sample: the order of the days does not
// matter, only which values fall on the same day. Series must be of equal length and finite;
// std::invalid_argument otherwise.
#pragma once

#include <optional>

#include <Eigen/Core>

#include "hosts/embedded/signal_pool/near_days.hpp"
#include "hosts/embedded/signal_pool/normal_scores.hpp"

namespace varnholt::embedded {

// Pearson's coefficient of correlation, from -1 to 1. A constant series correlates with nothing: 0.
// It sees linear dependence only.
[[nodiscard]] double pearson_correlation(const Eigen::ArrayXd& left, const Eigen::ArrayXd& right);

// An estimate of the mutual information in nats: 0 for independent series, ln(n) or so for the
// greatest that n days can show. It may be slightly negative.
//
// The estimator counts neighbours (A. Kraskov, H. Stoegbauer, P. Grassberger, "Estimating mutual
// information", Phys. Rev. E 69, 066138, 2004, estimator 1):
//   I = psi(k) + psi(n) - mean over the days of (psi(a + 1) + psi(b + 1)),
// where psi is the digamma function, and a and b count the other days that are nearer in the one
// and in the other series than the day's k-th neighbour is in the plane of both, by the greater of
// the two distances. k is `neighbours`; series with no more days than that throw
// std::invalid_argument. A constant series carries no information: 0.
[[nodiscard]] double mutual_information(const NormalScores& left, const NormalScores& right,
                                        int neighbours = kNeighbours);
[[nodiscard]] double mutual_information(const Eigen::ArrayXd& left, const Eigen::ArrayXd& right,
                                        int neighbours = kNeighbours);

// The same, or nothing where it is sure to be below `least`: after some of the days, an eighth of a
// thousand at the least, the mean over them lies four standard errors below. `guess` has what each
// day seems to add to the mean. Any guess will do, but the better it is, the sooner it is sure:
// only the difference to it is unknown on the days that were not looked at.
[[nodiscard]] std::optional<double> mutual_information_from(const NormalScores& left,
                                                            const NormalScores& right, double least,
                                                            const Eigen::ArrayXd& guess,
                                                            int neighbours = kNeighbours);

}  // namespace varnholt::embedded
