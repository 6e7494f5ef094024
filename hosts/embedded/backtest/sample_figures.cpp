#include "hosts/embedded/backtest/sample_figures.hpp"

#include <utility>

namespace varnholt::embedded {

FigureTaker::FigureTaker(const Panel& close, const std::vector<Date>& dates, const EraPlan& plan,
                         const BookRules& rules)
    : close_(close), dates_(dates), plan_(plan), rules_(rules) {
  const Panel market = equal_weights(close);
  market_in_sample_ = in_sample_backtest(market, close, rules, plan);
  market_holdout_ = holdout_backtest(market, close, rules, plan);
}

SampleFigures FigureTaker::of_sample(const Panel& signal, BacktestResult backtest,
                                     const BacktestResult& market, Eigen::Index first_held) const {
  SampleFigures figures;
  figures.first_booked = first_held + 1;
  figures.performance = performance_figures(backtest, market.net_returns, rules_.periods_per_year);
  figures.information = information_figures(signal, close_, rules_.delay_days, first_held,
                                            backtest.net_returns.size());
  figures.years = yearly_figures(backtest, dates_, figures.first_booked, rules_.periods_per_year);
  figures.backtest = std::move(backtest);
  return figures;
}

SignalFigures FigureTaker::figures(const Panel& signal, const Panel& weights) const {
  return {
      of_sample(signal, in_sample_backtest(weights, close_, rules_, plan_), market_in_sample_, 0),
      of_sample(signal, holdout_backtest(weights, close_, rules_, plan_), market_holdout_,
                plan_.train_days() - 1)};
}

}  // namespace varnholt::embedded
