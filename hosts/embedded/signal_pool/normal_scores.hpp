// A daily PnL as normal scores: what measures of dependence take that do not look at the scale.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <Eigen/Core>

namespace varnholt::embedded {

// What depends on the number of days alone, made once for all series of so many.
struct DayTables {
  explicit DayTables(Eigen::Index days);

  // The place of the first score that is not less than `score`, or one a few steps from it.
  [[nodiscard]] Eigen::Index likely_place(double score) const noexcept {
    const auto last = static_cast<double>(place_of_part.size() - 1);
    const double part = std::clamp((score - scores.front()) * parts_of_one, 0.0, last);
    return place_of_part[static_cast<std::size_t>(part)];
  }

  // The scores in ascending order: of the place p, from 0, the quantile of (p + 1/2) / days.
  std::vector<double> scores;
  // From the least score to the greatest in equal parts, of which one score has so many: the place
  // of the first score in the part or behind it.
  double parts_of_one = 0.0;
  std::vector<std::int32_t> place_of_part;
  // digamma_of_integers(days).
  std::vector<double> digamma;
};

// A series made ready for comparisons: its values replaced by normal scores. The day whose value
// has rank r of n (from 1) has the score q((r - 1/2) / n), q being the quantile function of the
// standard normal distribution. Mutual information does not depend on the scale of either series,
// and so the estimate does not either, to the last bit, as long as the order is kept.
//
// Equal values, as on days without a position, are put in an order that has nothing to do with the
// other series: a fixed permutation, drawn by a generator that is seeded with the pattern of the
// ranks. The same series is always put in the same order.
//
// Throws std::invalid_argument for a series with an entry that is no finite number.
class NormalScores {
 public:
  explicit NormalScores(const Eigen::ArrayXd& series);
  // With tables for as many days; std::invalid_argument for others.
  NormalScores(const Eigen::Ref<const Eigen::ArrayXd>& series,
               std::shared_ptr<const DayTables> tables);

  [[nodiscard]] Eigen::Index size() const noexcept { return by_day_.size(); }
  // All values were equal.
  [[nodiscard]] bool is_constant() const noexcept { return is_constant_; }
  [[nodiscard]] const Eigen::ArrayXd& by_day() const noexcept { return by_day_; }
  // The scores in ascending order.
  [[nodiscard]] const std::vector<double>& in_order() const noexcept { return tables_->scores; }
  // The place of each day in that order.
  [[nodiscard]] const std::vector<Eigen::Index>& place_of_day() const noexcept {
    return place_of_day_;
  }
  [[nodiscard]] const DayTables& tables() const noexcept { return *tables_; }

 private:
  std::shared_ptr<const DayTables> tables_;
  Eigen::ArrayXd by_day_;
  std::vector<Eigen::Index> place_of_day_;
  bool is_constant_ = false;
};

// std::invalid_argument where an entry is no finite number.
void require_finite(const Eigen::Ref<const Eigen::ArrayXd>& series);

// The digamma function of 1 .. n, the first entry standing for 1:
// psi(m) = -gamma + 1 + 1/2 + ... + 1/(m - 1), gamma being Euler's constant.
[[nodiscard]] std::vector<double> digamma_of_integers(std::int64_t n);

// The quantile function of the standard normal distribution, for 0 < p < 1.
[[nodiscard]] double normal_quantile(double p);

}  // namespace varnholt::embedded
