// From a graph to what its signal would have earned.
#pragma once

#include <Eigen/Core>

#include "hosts/embedded/backtest/book_rules.hpp"
#include "hosts/embedded/backtest/statistics.hpp"
#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/vocabulary/expression.hpp"
#include "hosts/embedded/vocabulary/feature_panels.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

struct EvaluatorOptions {
  BookRules book = {};
  GraphLimits limits = {};
  VocabularySettings vocabulary = {};
  // Whether judge() may turn a signal round.
  bool judges_both_signs = false;
};

struct Evaluation {
  GraphShape shape;
  // What the signal of every day wants to hold, the last included; see statistics.hpp.
  Panel weights;
  BacktestResult backtest;
};

// Evaluates graphs over one set of market data. The features are computed once, by the constructor;
// afterwards nothing changes, and the evaluation of one graph does not affect the next.
class Evaluator {
 public:
  // Throws std::invalid_argument for rules that name a group which the data do not have.
  explicit Evaluator(MarketData data, EvaluatorOptions options = {});

  // The closes that the weights earn their returns from.
  [[nodiscard]] const Panel& close() const { return *features_.find("close"); }
  [[nodiscard]] const Vocabulary& vocabulary() const { return features_.vocabulary(); }
  [[nodiscard]] const EvaluatorOptions& options() const { return options_; }

  // The signal of an expression that was compiled against vocabulary(). Equal subtrees
  // are computed once, and a panel is freed when the last step that reads it is done.
  [[nodiscard]] Panel signal(const Expression& expression) const;

  // What the signal wants to hold by the rules of the options: neutralized, and scaled to one unit
  // of gross exposure a day, in the memory of the signal.
  [[nodiscard]] Panel weights(Panel signal) const;

  // The graph's signal as weights, and what they would have earned. Throws GraphError for a graph
  // that breaks a rule of graph_check.hpp or is beyond the limits of the options.
  [[nodiscard]] Evaluation evaluate(const genetic::Value& graph) const {
    return evaluate(compile(graph));
  }

  // The two halves of that: the check, and the work.
  [[nodiscard]] Expression compile(const genetic::Value& graph) const;
  [[nodiscard]] Evaluation evaluate(const Expression& expression) const;

  // The backtest as a search judges it: where the options want both signs and the signal loses
  // before costs, it is that of the opposite, and the statistics say so. What earns with one sign
  // loses with the other, so that nobody has to try both.
  [[nodiscard]] BacktestResult judge(const Expression& expression) const;
  // The second half of that, for who looks at the weights before.
  [[nodiscard]] BacktestResult judge_weights(const Panel& weights) const;
  [[nodiscard]] BacktestResult judge(const genetic::Value& graph) const {
    return judge(compile(graph));
  }

 private:
  FeaturePanels features_;
  EvaluatorOptions options_;
};

}  // namespace varnholt::embedded
