// The gate that keeps out of the signal pool what chance alone explains.
#pragma once

#include <cstdint>
#include <optional>

#include <Eigen/Core>

#include "hosts/embedded/signal_pool/pool_gates.hpp"

namespace varnholt::embedded {

// The deflated Sharpe ratio of a signal with this daily PnL: the probability, from 0 to 1, that its
// Sharpe ratio exceeds what the best of so many trials reaches by chance (deflated_sharpe.hpp). All
// trials count as independent, because their correlation is not known before the end of a run: the
// gate is a little stricter than the figure that the run tells at its end.
[[nodiscard]] double deflated_sharpe(const Eigen::ArrayXd& pnl, std::int64_t trials);

// "deflated_sharpe_below_min" for a signal whose deflated Sharpe ratio is below the least one;
// absent where it passes, as it does with a least one of 0.
[[nodiscard]] std::optional<PoolRefusal> luck_refusal(const Eigen::ArrayXd& pnl,
                                                      std::int64_t trials, double least);

}  // namespace varnholt::embedded
