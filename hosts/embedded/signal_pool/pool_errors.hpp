// Why a signal cannot be measured against its signal pool yet. Neither says anything about the
// signal itself: it is to be tried again when the pool's data is ready.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace varnholt::embedded {

// The signal and the pool have too few days in common for a meaningful figure.
class PoolMetricNotYetComputable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The PnL of a member is not there, or is not of the same days as the signal's.
class PoolPnlMissing : public std::runtime_error {
 public:
  PoolPnlMissing(std::string eval_id, const std::string& trouble)
      : std::runtime_error("pool member " + eval_id + " " + trouble),
        eval_id_(std::move(eval_id)) {}

  [[nodiscard]] const std::string& eval_id() const noexcept { return eval_id_; }

 private:
  std::string eval_id_;
};

}  // namespace varnholt::embedded
