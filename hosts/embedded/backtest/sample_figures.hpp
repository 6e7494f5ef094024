// All figures of one signal, on the days that the search saw and on those that it never saw.
#pragma once

#include <limits>
#include <vector>

#include "hosts/embedded/backtest/information.hpp"
#include "hosts/embedded/backtest/out_of_sample.hpp"
#include "hosts/embedded/backtest/performance.hpp"
#include "hosts/embedded/backtest/statistics.hpp"
#include "hosts/embedded/market/eras.hpp"

namespace varnholt::embedded {

struct SampleFigures {
  BacktestResult backtest;
  PerformanceFigures performance;
  InformationFigures information;
  std::vector<YearFigures> years;
  // In sample, once the trials of the run are counted (hosts/embedded/luck): the probability that
  // the signal is better than the best of so many without any skill. NaN before, and on the
  // hold-out.
  double deflated_sharpe = std::numeric_limits<double>::quiet_NaN();
  // The day, counted from the first of the history, on which the first holding day is booked: that
  // is the next one after it. The others follow one by one.
  Eigen::Index first_booked = 0;
};

struct SignalFigures {
  SampleFigures in_sample;
  SampleFigures holdout;
};

// Takes the figures of signals over one history, beside its market.
class FigureTaker {
 public:
  // `close` and `dates` are of the whole history, the one that `plan` was made for. The first three
  // must outlive the object.
  FigureTaker(const Panel& close, const std::vector<Date>& dates, const EraPlan& plan,
              const BookRules& rules);

  // The figures of the signal, a panel of the shape of the closes, and of the weights that are made
  // of it.
  [[nodiscard]] SignalFigures figures(const Panel& signal, const Panel& weights) const;
  // Of the equal-weight market.
  [[nodiscard]] SampleStatistics market() const {
    return {market_in_sample_.statistics, market_holdout_.statistics};
  }

 private:
  [[nodiscard]] SampleFigures of_sample(const Panel& signal, BacktestResult backtest,
                                        const BacktestResult& market,
                                        Eigen::Index first_held) const;

  const Panel& close_;
  const std::vector<Date>& dates_;
  const EraPlan& plan_;
  BookRules rules_;
  BacktestResult market_in_sample_;
  BacktestResult market_holdout_;
};

}  // namespace varnholt::embedded
