#include "hosts/embedded/portfolio/book_shares.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

#include "hosts/embedded/portfolio/shrunk_correlation.hpp"

namespace varnholt::embedded {
namespace {

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr auto kMethods = std::to_array<BookMethodName>({
    {BookMethod::Ridge, "ridge", "the best mean beyond luck for its variance, held back"},
    {BookMethod::EqualRisk, "equal-risk", "the same risk in each signal"},
    {BookMethod::Equal, "equal", "the same capital in each signal"},
});

// Measured as luck_in() is: the book of a pool earned the same on later days from 3 to 10.
constexpr double kRidge = 4.0;

constexpr int kMostSweeps = 100'000;
constexpr double kSettled = 1e-12;  // The largest relative change of a sweep.

// Sweeps through the coordinates until they settle; `next(y, i)` is the best value of y_i for the
// others as they are. Both problems here are convex, and a sweep never makes them worse.
template <typename Next>
VectorXd settled(VectorXd y, const Next& next) {
  for (int sweep = 0; sweep < kMostSweeps; ++sweep) {
    double change = 0.0;
    for (Index i = 0; i < y.size(); ++i) {
      const double value = next(y, i);
      change = std::max(change, std::abs(value - y(i)));
      y(i) = value;
    }
    if (change <= kSettled * y.cwiseAbs().maxCoeff()) return y;
  }
  throw std::runtime_error("the shares of a book did not settle");
}

// y minimises y'C y / 2 - sum ln(y_i) / n, where each y_i (C y)_i is 1 / n.
VectorXd of_equal_risk(const MatrixXd& correlation) {
  const double each = 1.0 / static_cast<double>(correlation.rows());
  return settled(VectorXd::Ones(correlation.rows()), [&](const VectorXd& y, Index i) {
    const double others = correlation.row(i).dot(y) - y(i);
    return (std::sqrt(others * others + 4.0 * each) - others) / 2.0;
  });
}

VectorXd of_ridge(const MatrixXd& correlation, VectorXd means, Index days) {
  means.array() -= luck_in(means, days);
  if (!(means.maxCoeff() > 0.0)) {
    throw std::invalid_argument("no signal has earned anything on the days of the shares");
  }
  return settled(VectorXd::Zero(means.size()), [&](const VectorXd& y, Index i) {
    const double others = correlation.row(i).dot(y) - y(i);
    return std::max(0.0, (means(i) - others) / (1.0 + kRidge));
  });
}

double mean_of_pairs(const MatrixXd& standardised_pnl) {
  const auto signals = static_cast<double>(standardised_pnl.cols());
  if (signals < 2.0) return 0.0;
  const MatrixXd measured = standardised_pnl.transpose() * standardised_pnl /
                            static_cast<double>(standardised_pnl.rows());
  return (measured.sum() - measured.trace()) / (signals * (signals - 1.0));
}

}  // namespace

std::span<const BookMethodName> book_methods() {
  return kMethods;
}

const BookMethodName& name_of(BookMethod method) {
  return *std::find_if(kMethods.begin(), kMethods.end(),
                       [method](const BookMethodName& row) { return row.method == method; });
}

double luck_in(const VectorXd& means, Index days) {
  constexpr double kErrors = 2.0;
  constexpr double kMostOfTheGreatest = 0.75;
  const double greatest = std::max(means.maxCoeff(), 0.0);
  return std::min(kErrors / std::sqrt(static_cast<double>(days)), kMostOfTheGreatest * greatest);
}

BookShares book_shares(const MatrixXd& pnl, BookMethod method) {
  if (pnl.cols() < 1) throw std::invalid_argument("a book needs at least one signal");
  const MatrixXd standard = standardised(pnl);
  const VectorXd means = pnl.colwise().mean();
  const VectorXd deviations = ((pnl.rowwise() - means.transpose()).colwise().squaredNorm() /
                               static_cast<double>(pnl.rows()))
                                  .cwiseSqrt();
  const ShrunkCorrelation shrunk = shrunk_correlation(standard);
  BookShares result;
  result.shrinkage = shrunk.shrinkage;
  result.mean_correlation = mean_of_pairs(standard);
  switch (method) {
    case BookMethod::Equal:
      result.shares = VectorXd::Ones(pnl.cols());
      break;
    case BookMethod::EqualRisk:
      result.shares = of_equal_risk(shrunk.correlation).cwiseQuotient(deviations);
      break;
    case BookMethod::Ridge:
      result.shares = of_ridge(shrunk.correlation, means.cwiseQuotient(deviations), pnl.rows())
                          .cwiseQuotient(deviations);
      break;
  }
  result.shares /= result.shares.sum();
  const VectorXd y = result.shares.cwiseProduct(deviations);
  result.risks = y.cwiseProduct(shrunk.correlation * y);
  result.risks /= result.risks.sum();
  return result;
}

}  // namespace varnholt::embedded
