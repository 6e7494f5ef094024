#include "hosts/embedded/backtest/evaluator.hpp"

#include <array>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "hosts/embedded/backtest/neutral_signal.hpp"
#include "hosts/embedded/vocabulary/mapped.hpp"

namespace varnholt::embedded {
namespace {

using Inputs = std::array<const Panel*, kMostElementInputs>;

// With the panel of an input that nothing else will read, or with nullptr.
Panel apply(const ExpressionStep& step, const Inputs& inputs, Panel* last_read,
            const FeaturePanels& features, double least_known_share) {
  struct Call {
    const ExpressionStep& step;
    const Inputs& inputs;
    Panel* last_read;
    const FeaturePanels& features;
    double least_known_share;
    [[nodiscard]] Window window() const { return {step.window, least_known_share}; }
    [[nodiscard]] const Panel& input(std::size_t place) const { return *inputs.at(place); }

    // In the place of an input, where there is one to give: the memory is in the cache already.
    Panel operator()(ElementFunction function) const {
      if (last_read == nullptr) return mapped(function, inputs);
      map_into(function, inputs, *last_read);
      return std::move(*last_read);
    }
    Panel operator()(OnePanelFunction function) const { return function(input(0)); }
    Panel operator()(WindowFunction function) const { return function(input(0), window()); }
    Panel operator()(TwoPanelWindowFunction function) const {
      return function(input(0), input(1), window());
    }
    Panel operator()(NumberFunction function) const { return function(input(0), step.number); }
    Panel operator()(NumberWindowFunction function) const {
      return function(input(0), step.number, window());
    }
    Panel operator()(GroupFunction function) const {
      return function(input(0), features.group(*step.group));
    }
  };
  return std::visit(Call{step, inputs, last_read, features, least_known_share},
                    step.function->function);
}

// What is known of an expression before it is computed.
struct Plan {
  // The panels of features, which are there already.
  std::vector<const Panel*> known;
  // Whether a step has to be computed.
  std::vector<bool> is_computed;
  // How many of the computed steps read each step.
  std::vector<std::size_t> readers;
};

Plan plan_of(const Expression& expression, const FeaturePanels& features) {
  const std::vector<ExpressionStep>& steps = expression.steps;
  Plan plan{std::vector<const Panel*>(steps.size(), nullptr),
            std::vector<bool>(steps.size(), false), std::vector<std::size_t>(steps.size(), 0)};
  plan.readers.back() = 1;  // The signal itself.
  for (std::size_t index = steps.size(); index-- > 0;) {
    if (plan.readers[index] == 0) continue;
    const ExpressionStep& step = steps[index];
    if (step.feature != nullptr) {
      plan.known[index] = features.find(step.feature->name);
      continue;
    }
    plan.is_computed[index] = true;
    if (step.is_constant()) continue;
    for (std::size_t i = 0; i < step.function->data_children(); ++i)
      ++plan.readers[step.inputs[i]];
  }
  return plan;
}

}  // namespace

Evaluator::Evaluator(MarketData data, EvaluatorOptions options)
    : features_(std::move(data), options.vocabulary), options_(std::move(options)) {
  require_neutral_group(options_.book, vocabulary().groups);
}

Panel Evaluator::signal(const Expression& expression) const {
  Plan plan = plan_of(expression, features_);
  std::vector<Panel> results(expression.steps.size());
  const auto panel_of = [&](std::size_t index) -> const Panel& {
    return plan.known[index] != nullptr ? *plan.known[index] : results[index];
  };
  for (std::size_t index = 0; index < expression.steps.size(); ++index) {
    if (!plan.is_computed[index]) continue;
    const ExpressionStep& step = expression.steps[index];
    if (step.is_constant()) {
      results[index] = Panel::Constant(close().rows(), close().cols(), step.number);
      continue;
    }
    const std::size_t inputs = step.function->data_children();
    Inputs panels{};
    Panel* last_read = nullptr;
    for (std::size_t i = 0; i < inputs; ++i) {
      const std::size_t input = step.inputs.at(i);
      panels.at(i) = &panel_of(input);
      if (--plan.readers[input] == 0 && plan.known[input] == nullptr) last_read = &results[input];
    }
    results[index] = apply(step, panels, last_read, features_, options_.book.least_known_share);
    for (std::size_t i = 0; i < inputs; ++i) {
      if (plan.readers[step.inputs.at(i)] == 0) results[step.inputs.at(i)].resize(0, 0);
    }
  }
  if (plan.known.back() != nullptr) return *plan.known.back();
  return std::move(results.back());
}

Panel Evaluator::weights(Panel signal) const {
  const std::string& rule = options_.book.neutralize;
  if (rule == kNeutralizeNone) return signal_weights(std::move(signal));
  const GroupPanel* const groups =
      is_neutral_by_group(options_.book) ? &features_.group(rule) : nullptr;
  return neutral_signal(std::move(signal), groups, weigh_tile);
}

Expression Evaluator::compile(const genetic::Value& graph) const {
  return compile_expression(graph, vocabulary(), options_.limits);
}

Evaluation Evaluator::evaluate(const Expression& expression) const {
  Evaluation result;
  result.shape = expression.shape;
  result.weights = weights(signal(expression));
  result.backtest = backtest_weights(result.weights, close(), options_.book);
  return result;
}

BacktestResult Evaluator::judge(const Expression& expression) const {
  return judge_weights(weights(signal(expression)));
}

BacktestResult Evaluator::judge_weights(const Panel& weights) const {
  BacktestResult result = backtest_weights(weights, close(), options_.book);
  const bool loses = result.statistics.gross_returns_sharpe < 0.0;
  if (!options_.judges_both_signs || !loses) return result;
  result = opposite_backtest(result, options_.book);
  result.statistics.orientation = -1;
  return result;
}

}  // namespace varnholt::embedded
