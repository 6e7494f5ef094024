#include "hosts/embedded/luck/overfitting.hpp"

#include <bit>
#include <cmath>

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXd;
using Eigen::ArrayXXd;
using Eigen::Index;

// A block's sums of the returns and of their squares, a row a trial and a column a block.
struct BlockSums {
  ArrayXXd sums;
  ArrayXXd squares;
};

BlockSums block_sums(const ArrayXXd& returns, Index days) {
  BlockSums found{ArrayXXd::Zero(returns.cols(), kOverfittingBlocks),
                  ArrayXXd::Zero(returns.cols(), kOverfittingBlocks)};
  const Index first = returns.rows() - days * kOverfittingBlocks;
  for (Index trial = 0; trial < returns.cols(); ++trial) {
    for (Index day = 0; day < days * kOverfittingBlocks; ++day) {
      const double value = returns(first + day, trial);
      found.sums(trial, day / days) += value;
      found.squares(trial, day / days) += value * value;
    }
  }
  return found;
}

// Sums over the blocks whose bit is set.
ArrayXd chosen(const ArrayXXd& blocks, std::uint32_t side) {
  ArrayXd total = ArrayXd::Zero(blocks.rows());
  for (Index block = 0; block < kOverfittingBlocks; ++block) {
    if ((side >> static_cast<unsigned>(block) & 1U) != 0) total += blocks.col(block);
  }
  return total;
}

// Of one side, up to a factor that all trials share.
ArrayXd sharpes(const BlockSums& blocks, std::uint32_t side, Index days) {
  const double count = static_cast<double>(days * kOverfittingBlocks) / 2.0;
  const ArrayXd mean = chosen(blocks.sums, side) / count;
  const ArrayXd variance = (chosen(blocks.squares, side) / count - mean.square()).max(0.0);
  ArrayXd found(mean.size());
  for (Index trial = 0; trial < mean.size(); ++trial)
    found(trial) = variance(trial) > 0.0 ? mean(trial) / std::sqrt(variance(trial)) : 0.0;
  return found;
}

// From 1 for the worst; equal ones share the mean.
double place_of(const ArrayXd& values, Index trial) {
  const auto below = static_cast<double>((values < values(trial)).count());
  const auto equal = static_cast<double>((values == values(trial)).count());
  return below + (equal + 1.0) / 2.0;
}

// Whether the trial that is best on the one side is no better than the middle on the other.
bool is_overfitted(const ArrayXd& chosen_on, const ArrayXd& seen_on) {
  Index best = 0;
  chosen_on.maxCoeff(&best);
  return place_of(seen_on, best) <= static_cast<double>(seen_on.size() + 1) / 2.0;
}

}  // namespace

std::optional<double> overfitting_probability(const ArrayXXd& returns) {
  const Index days = returns.rows() / kOverfittingBlocks;
  if (returns.cols() < 2 || days < 2) return std::nullopt;
  const BlockSums blocks = block_sums(returns, days);
  constexpr std::uint32_t kAll = (1U << kOverfittingBlocks) - 1U;
  std::int64_t ways = 0;
  std::int64_t overfitted = 0;
  // Two sides are two ways, one to choose on each of them.
  for (std::uint32_t side = 0; side < kAll - side; ++side) {
    if (std::popcount(side) != kOverfittingBlocks / 2) continue;
    const ArrayXd here = sharpes(blocks, side, days);
    const ArrayXd there = sharpes(blocks, kAll - side, days);
    ways += 2;
    overfitted += is_overfitted(here, there) ? 1 : 0;
    overfitted += is_overfitted(there, here) ? 1 : 0;
  }
  return static_cast<double>(overfitted) / static_cast<double>(ways);
}

}  // namespace varnholt::embedded
