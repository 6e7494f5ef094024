// The weights of stored signals on prices at hand, each by the rules of its own run.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/store/store_records.hpp"

namespace varnholt::embedded {

class SignalWeights {
 public:
  // The prices must outlive it.
  explicit SignalWeights(const MarketData& data) : data_(data) {}

  // A row a day, a column an instrument. Throws GraphError for a graph that is not valid on these
  // prices, and genetic::ValueError for a text that is not JSON.
  [[nodiscard]] Panel of(const EvaluationOfRun& signal);

 private:
  const MarketData& data_;
  // By the least share of known days and what is neutralized, which is all of a run's rules that
  // weights depend on.
  std::map<std::pair<double, std::string>, Evaluator> evaluators_;
};

}  // namespace varnholt::embedded
