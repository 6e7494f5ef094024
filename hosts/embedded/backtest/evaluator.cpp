#include "hosts/embedded/backtest/evaluator.hpp"

#include <utility>
#include <variant>
#include <vector>

namespace varnholt::embedded {
namespace {

Panel apply(const ExpressionStep& step, const Panel& first, const Panel& second) {
  struct Call {
    const ExpressionStep& step;
    const Panel& first;
    const Panel& second;
    Panel operator()(OnePanelFunction function) const { return function(first); }
    Panel operator()(TwoPanelFunction function) const { return function(first, second); }
    Panel operator()(WindowFunction function) const { return function(first, step.window); }
    Panel operator()(TwoPanelWindowFunction function) const {
      return function(first, second, step.window);
    }
  };
  return std::visit(Call{step, first, second}, step.function->function);
}

// How many steps read each step.
std::vector<std::size_t> count_readers(const Expression& expression) {
  std::vector<std::size_t> readers(expression.steps.size(), 0);
  for (const ExpressionStep& step : expression.steps) {
    if (step.function == nullptr) continue;
    for (std::size_t i = 0; i < step.function->data_children(); ++i)
      ++readers[step.inputs[i]];
  }
  return readers;
}

}  // namespace

Evaluator::Evaluator(MarketData data, EvaluatorOptions options)
    : features_(std::move(data)), options_(options) {}

Panel Evaluator::signal(const Expression& expression) const {
  std::vector<std::size_t> readers = count_readers(expression);
  std::vector<Panel> results(expression.steps.size());
  const auto panel_of = [&](std::size_t index) -> const Panel& {
    const FeatureEntry* const feature = expression.steps[index].feature;
    return feature == nullptr ? results[index] : *features_.find(feature->name);
  };
  for (std::size_t index = 0; index < expression.steps.size(); ++index) {
    const ExpressionStep& step = expression.steps[index];
    if (step.function == nullptr) continue;
    const std::size_t inputs = step.function->data_children();
    results[index] =
        apply(step, panel_of(step.inputs[0]), panel_of(step.inputs[inputs == 1 ? 0 : 1]));
    for (std::size_t i = 0; i < inputs; ++i) {
      if (--readers[step.inputs[i]] == 0) results[step.inputs[i]].resize(0, 0);
    }
  }
  if (expression.steps.back().feature != nullptr) return panel_of(expression.steps.size() - 1);
  return std::move(results.back());
}

Evaluation Evaluator::evaluate(const genetic::Value& graph) const {
  const Expression expression = compile_expression(graph, vocabulary(), options_.limits);
  Evaluation result;
  result.shape = expression.shape;
  result.weights = signal_weights(signal(expression));
  result.backtest = backtest_weights(result.weights, close(), options_.cost_basis_points);
  return result;
}

}  // namespace varnholt::embedded
