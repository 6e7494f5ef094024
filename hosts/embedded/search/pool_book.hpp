// The signals of a pool as one book.
//
// The capital is shared among the signals (portfolio/book_shares.hpp) by their daily PnL on the
// days in sample. What one signal buys and another sells is never traded: the book's weights are
// the shares times the signals' weights, added up, and its figures those of a backtest of these
// weights by the rules of the latest run.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "hosts/embedded/backtest/out_of_sample.hpp"
#include "hosts/embedded/portfolio/book_shares.hpp"
#include "hosts/embedded/store/store_records.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

// A book that cannot be made of these signals or on these prices. The text has the remedy.
class PoolBookError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct BookMember {
  std::string eval_id;
  std::size_t signal = 0;       // Its place among those that were passed in.
  double share = 0.0;           // Of the capital.
  double risk = 0.0;            // Of the book's variance in sample.
  SampleStatistics statistics;  // Alone, with all of the capital.
};

struct PoolBook {
  EraPlan plan;  // The days on the prices at hand; one era.
  BookRules rules;
  std::vector<BookMember> members;
  // The ids of those that cannot be part of it, with the reason.
  std::vector<std::pair<std::string, std::string>> left_out;
  double shrinkage = 0.0;
  double mean_correlation = 0.0;
  Panel weights;  // Of every day of the prices.
  SampleStatistics statistics;
  SampleStatistics market;
  // mean(traded), if each signal were traded by itself: the shares times the signals' turnovers.
  double turnover_alone_in_sample = 0.0;
  double turnover_alone_holdout = 0.0;
};

// The days of the prices at hand by the dates of the runs that found the signals: in sample up to
// the latest day that any of their searches saw, hold-out from the latest day on which any of their
// hold-outs begins, so that no signal's hold-out is another's sample. PoolBookError where a run has
// no eras, or where less than kMinimumEraDays are left of either.
[[nodiscard]] EraPlan book_days(const std::vector<EvaluationOfRun>& signals,
                                const std::vector<Date>& dates);

// Each signal is evaluated twice, so that no more than a few panels are held at once. PoolBookError
// where no signal can be part of the book.
[[nodiscard]] PoolBook make_pool_book(const std::vector<EvaluationOfRun>& signals,
                                      const MarketData& data, BookMethod method,
                                      const InterruptCheck& check);

}  // namespace varnholt::embedded
