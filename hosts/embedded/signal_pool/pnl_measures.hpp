// How strongly two daily PnL series depend on each other.
//
// Both measures are symmetric, and both take a series as a sample: the order of the days does not
// matter, only which values fall on the same day. Series must be of equal length and finite;
// std::invalid_argument otherwise.
#pragma once

#include <cstdint>
#include <vector>

#include <Eigen/Core>

namespace varnholt::embedded {

// Pearson's coefficient of correlation, from -1 to 1. A constant series correlates with nothing: 0.
// It sees linear dependence only.
[[nodiscard]] double pearson_correlation(const Eigen::ArrayXd& left, const Eigen::ArrayXd& right);

// The neighbours that the estimator of mutual information looks for around each day. More of them
// lower the variance of the estimate and blur fine structure; PnL series have little of that, and a
// gate needs a steady figure.
inline constexpr int kNeighbours = 8;

// A series made ready for comparisons: its values replaced by normal scores. The day whose value
// has rank r of n (from 1) has the score q((r - 1/2) / n), q being the quantile function of the
// standard normal distribution. Mutual information does not depend on the scale of either series,
// and so the estimate does not either, to the last bit, as long as the order is kept.
//
// Equal values, as on days without a position, are put in an order that has nothing to do with the
// other series: a fixed permutation, drawn by a generator that is seeded with the pattern of the
// ranks. The same series is always put in the same order.
class NormalScores {
 public:
  explicit NormalScores(const Eigen::ArrayXd& series);

  [[nodiscard]] Eigen::Index size() const noexcept { return by_day_.size(); }
  // All values were equal.
  [[nodiscard]] bool is_constant() const noexcept { return is_constant_; }
  [[nodiscard]] const Eigen::ArrayXd& by_day() const noexcept { return by_day_; }
  // The scores in ascending order.
  [[nodiscard]] const std::vector<double>& in_order() const noexcept { return in_order_; }
  // The place of each day in that order.
  [[nodiscard]] const std::vector<Eigen::Index>& place_of_day() const noexcept {
    return place_of_day_;
  }

 private:
  Eigen::ArrayXd by_day_;
  std::vector<double> in_order_;
  std::vector<Eigen::Index> place_of_day_;
  bool is_constant_ = false;
};

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

// The digamma function of 1 .. n, the first entry standing for 1:
// psi(m) = -gamma + 1 + 1/2 + ... + 1/(m - 1), gamma being Euler's constant.
[[nodiscard]] std::vector<double> digamma_of_integers(std::int64_t n);

// The quantile function of the standard normal distribution, for 0 < p < 1.
[[nodiscard]] double normal_quantile(double p);

}  // namespace varnholt::embedded
