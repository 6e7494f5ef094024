#include "hosts/embedded/backtest/out_of_sample.hpp"

#include <cmath>
#include <stdexcept>
#include <string>

namespace varnholt::embedded {
namespace {

void check_plan(const Panel& close, const EraPlan& plan) {
  if (plan.holdout.end_day == close.rows()) return;
  throw std::invalid_argument("eras of a history of " + std::to_string(plan.holdout.end_day) +
                              " days for closes of " + std::to_string(close.rows()) +
                              " days; split the history of these closes");
}

}  // namespace

BacktestResult in_sample_backtest(const Panel& weights, const Panel& close, const BookRules& rules,
                                  const EraPlan& plan) {
  check_plan(close, plan);
  return backtest_holding_days(weights, close, rules, 0, plan.seen_days() - 1);
}

BacktestResult holdout_backtest(const Panel& weights, const Panel& close, const BookRules& rules,
                                const EraPlan& plan) {
  check_plan(close, plan);
  return backtest_holding_days(weights, close, rules, plan.train_days() - 1,
                               plan.holdout.day_count());
}

SampleStatistics sample_statistics(const Panel& weights, const Panel& close, const BookRules& rules,
                                   const EraPlan& plan) {
  return {in_sample_backtest(weights, close, rules, plan).statistics,
          holdout_backtest(weights, close, rules, plan).statistics};
}

Panel equal_weights(const Panel& close) {
  Eigen::ArrayXd known = Eigen::ArrayXd::Zero(close.rows());
  for (Eigen::Index column = 0; column < close.cols(); ++column) {
    for (Eigen::Index day = 0; day < close.rows(); ++day) {
      if (std::isfinite(close(day, column))) known(day) += 1.0;
    }
  }
  Panel weights = Panel::Zero(close.rows(), close.cols());
  for (Eigen::Index column = 0; column < close.cols(); ++column) {
    for (Eigen::Index day = 0; day < close.rows(); ++day) {
      if (std::isfinite(close(day, column))) weights(day, column) = 1.0 / known(day);
    }
  }
  return weights;
}

BacktestResult market_backtest(const Panel& close, const BookRules& rules) {
  return backtest_weights(equal_weights(close), close, rules);
}

}  // namespace varnholt::embedded
