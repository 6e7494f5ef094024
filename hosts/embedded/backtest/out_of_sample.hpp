// The performance of a signal on the days that the search saw, and on those that it never saw.
//
// The calendar, for a history of D days with T train days and a search that saw the first S of them
// (S <= T, see eras.hpp). The weights of day t are taken at the close of day t and earn the return
// to the close of day t+1, so that holding day t needs the prices of days t and t+1:
//
//   in sample        holding days 0 .. S-2       prices of days 0 .. S-1
//   in between       holding days S-1 .. T-2     not reported; there are none where S = T
//   out of sample    holding days T-1 .. D-2     weights of days T-1 .. D-2, prices of T-1 .. D-1
//
// The weights taken at the close of the last train day earn the first return of the hold-out. The
// book was held before that, so the turnover of that first day counts from the weights of day T-2.
// The hold-out of H days thus has H holding days, and no return belongs to both samples.
#pragma once

#include "hosts/embedded/backtest/statistics.hpp"
#include "hosts/embedded/market/eras.hpp"
#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// As backtest_weights over the first days that the search of `plan` saw. It is, bit for bit, what
// the weights and prices of these days alone give.
[[nodiscard]] BacktestResult in_sample_backtest(const Panel& weights, const Panel& close,
                                                const BookRules& rules, const EraPlan& plan);

// Over the holding days of the hold-out.
[[nodiscard]] BacktestResult holdout_backtest(const Panel& weights, const Panel& close,
                                              const BookRules& rules, const EraPlan& plan);

// The two statistics side by side. `weights` and `close` are of the whole history, the one that
// `plan` was made for. All of these throw std::invalid_argument as backtest_weights does, and for a
// plan of a history of another length.
struct SampleStatistics {
  BacktestStatistics in_sample;
  BacktestStatistics holdout;
};
[[nodiscard]] SampleStatistics sample_statistics(const Panel& weights, const Panel& close,
                                                 const BookRules& rules, const EraPlan& plan);

// The market that every signal has to beat: each day 1/n in each of the n instruments that have a
// close on that day, long only, and nothing on a day without any. It pays the same costs as a
// signal for what it trades, which is little: only when an instrument enters or leaves do the
// weights change.
[[nodiscard]] Panel equal_weights(const Panel& close);
// What it earned on all days of these closes.
[[nodiscard]] BacktestResult market_backtest(const Panel& close, const BookRules& rules);

}  // namespace varnholt::embedded
