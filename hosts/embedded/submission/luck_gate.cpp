#include "hosts/embedded/submission/luck_gate.hpp"

#include <fmt/format.h>

#include "hosts/embedded/luck/deflated_sharpe.hpp"

namespace varnholt::embedded {

double deflated_sharpe(const Eigen::ArrayXd& pnl, std::int64_t trials) {
  TrialSpread spread = spread_without_skill(pnl.size());
  spread.trials = trials;
  spread.independent = static_cast<double>(trials);
  return normal_share(sharpe_estimate(pnl).z_value(expected_maximum_sharpe(spread)));
}

std::optional<PoolRefusal> luck_refusal(const Eigen::ArrayXd& pnl, std::int64_t trials,
                                        double least) {
  const double deflated = deflated_sharpe(pnl, trials);
  if (deflated >= least) return std::nullopt;
  return PoolRefusal{
      kDeflatedSharpeBelowMin,
      fmt::format("deflated Sharpe ratio {:.6g} is below {:.6g}, beside the best of {} trials",
                  deflated, least, trials)};
}

}  // namespace varnholt::embedded
