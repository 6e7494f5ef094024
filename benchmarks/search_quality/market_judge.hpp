// What signals earn on the days that a search saw, on its hold-out, and on later days.
#pragma once

#include <string>
#include <utility>

#include <Eigen/Core>

#include "benchmarks/search_quality/planted_universe.hpp"
#include "hosts/embedded/backtest/book_rules.hpp"
#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/backtest/statistics.hpp"
#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/search/search_options.hpp"

namespace varnholt::embedded::search_quality {

// The rules by which a signal of a planted market is judged: those of a run.
[[nodiscard]] BookRules planted_rules(const SearchOptions& options);

// The days of a history, from its first one on; what follows the hold-out are later days, which no
// search gets to see.
struct JudgedDays {
  Eigen::Index searched = 0;
  Eigen::Index holdout = 0;
  Eigen::Index later = 0;

  [[nodiscard]] static JudgedDays of(const UniverseShape& shape) {
    return {shape.searched_days, shape.holdout_days, shape.fresh_days};
  }
};

// Weights are of all days.
class MarketJudge {
 public:
  MarketJudge(MarketData data, const JudgedDays& days, const EvaluatorOptions& options)
      : days_(days), data_(std::move(data)), evaluator_(data_, options) {}

  [[nodiscard]] const MarketData& data() const { return data_; }
  [[nodiscard]] const Evaluator& evaluator() const { return evaluator_; }

  [[nodiscard]] BacktestResult searched(const Panel& weights) const {
    return held(weights, 0, days_.searched - 1);
  }
  [[nodiscard]] BacktestResult holdout(const Panel& weights) const {
    return held(weights, days_.searched - 1, days_.holdout);
  }
  [[nodiscard]] BacktestResult later(const Panel& weights) const {
    return held(weights, days_.searched + days_.holdout - 1, days_.later);
  }
  [[nodiscard]] Panel weights_of(const std::string& graph_json) const;

 private:
  [[nodiscard]] BacktestResult held(const Panel& weights, Eigen::Index first,
                                    Eigen::Index days) const {
    return backtest_holding_days(weights, evaluator_.close(), evaluator_.options().book, first,
                                 days);
  }

  JudgedDays days_;
  MarketData data_;
  Evaluator evaluator_;
};

}  // namespace varnholt::embedded::search_quality
