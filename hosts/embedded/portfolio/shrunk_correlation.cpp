#include "hosts/embedded/portfolio/shrunk_correlation.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace varnholt::embedded {

using Eigen::Index;
using Eigen::MatrixXd;

MatrixXd standardised(const MatrixXd& pnl) {
  if (pnl.rows() < 2) throw std::invalid_argument("a correlation needs at least two days of PnL");
  if (!pnl.allFinite()) throw std::invalid_argument("a PnL has an entry that is no finite number");
  MatrixXd result = pnl.rowwise() - pnl.colwise().mean();
  for (Index column = 0; column < pnl.cols(); ++column) {
    // The mean of equal numbers rounds, and what is left then is no deviation.
    if ((pnl.col(column).array() == pnl(0, column)).all()) {
      throw std::invalid_argument("a PnL is the same on every day");
    }
    result.col(column) /=
        std::sqrt(result.col(column).squaredNorm() / static_cast<double>(pnl.rows()));
  }
  return result;
}

ShrunkCorrelation shrunk_correlation(const MatrixXd& standardised_pnl) {
  const auto days = static_cast<double>(standardised_pnl.rows());
  MatrixXd measured = standardised_pnl.transpose() * standardised_pnl / days;
  measured.diagonal().setOnes();
  const MatrixXd identity = MatrixXd::Identity(measured.rows(), measured.cols());
  const double distance = (measured - identity).squaredNorm();
  // sum_t |x_t x_t' - S|^2 = sum_t |x_t|^4 - n |S|^2, because the mean of x_t x_t' is S.
  const double fourth_powers = standardised_pnl.rowwise().squaredNorm().array().square().sum();
  const double uncertainty =
      std::max(0.0, fourth_powers - days * measured.squaredNorm()) / (days * days);
  ShrunkCorrelation result;
  result.shrinkage = distance > 0.0 ? std::min(1.0, uncertainty / distance) : 1.0;
  result.correlation = (1.0 - result.shrinkage) * measured + result.shrinkage * identity;
  return result;
}

}  // namespace varnholt::embedded
