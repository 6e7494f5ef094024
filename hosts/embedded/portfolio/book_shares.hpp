// How much of the capital each signal of a book gets.
//
// C is the shrunk correlation of the signals' daily PnL (shrunk_correlation.hpp), s_i the standard
// deviation of a signal's, m_i its mean over s_i. All three come from the days that are passed in,
// which are those that the search saw: shares that know the hold-out would spoil it. The signals
// were chosen by the same days, and their means owe a part to it: m_i less luck_in(m), l_i, is what
// ridge takes.
//
//   equal       the same capital each
//   equal-risk  the same risk each: y_i (C y)_i is equal for all i, and the share is y_i / s_i
//               (S. Maillard, T. Roncalli, J. Teiletche, "The properties of equally weighted risk
//               contribution portfolios", 2010). Found by T. Griveau-Billion, J.-C. Richard and T.
//               Roncalli's cyclical descent, "A fast algorithm for computing high-dimensional risk
//               parity portfolios", 2013
//   ridge       the best mean for its variance, held back: the y >= 0 that maximises
//               l'y - y'(C + 4I) y / 2, and the share is y_i / s_i. Without the 4I, a penalty on
//               large y as in a ridge regression, it would bet on the noise of the means. Signals
//               that others make superfluous get nothing.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include <Eigen/Core>

namespace varnholt::embedded {

enum class BookMethod { Equal, EqualRisk, Ridge };

struct BookMethodName {
  BookMethod method;
  std::string_view name;
  std::string_view meaning;  // "the same risk in each signal"
};
// The first is the default.
[[nodiscard]] std::span<const BookMethodName> book_methods();
[[nodiscard]] const BookMethodName& name_of(BookMethod method);

struct BookShares {
  Eigen::VectorXd shares;  // Of the capital: none negative, 1 in all.
  Eigen::VectorXd risks;   // Of the book's variance by C: 1 in all.
  double shrinkage = 0.0;
  double mean_correlation = 0.0;  // Measured, of all pairs; 0 of one signal.
};

// What is taken for luck in means over standard deviations, of so many days: 2 standard errors of
// one, 2 / sqrt(days), as the least Sharpe ratio of a member is; but at most three quarters of the
// greatest, so that a pool of weak signals still has a book.
[[nodiscard]] double luck_in(const Eigen::VectorXd& means, Eigen::Index days);

// `pnl` has a row a day and a column a signal, at least one. Throws std::invalid_argument as
// standardised() does, and with Ridge where no signal has earned anything.
[[nodiscard]] BookShares book_shares(const Eigen::MatrixXd& pnl, BookMethod method);

}  // namespace varnholt::embedded
