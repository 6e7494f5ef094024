#include "hosts/embedded/search/run_luck.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/value_wire.hpp"
#include "hosts/embedded/luck/overfitting.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/json_text.hpp"

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXd;
using Eigen::ArrayXXd;
using genetic::Mapping;
using genetic::Value;

// Evenly spread, the first among them.
std::vector<TrialRecord> sample_of(const std::vector<TrialRecord>& trials) {
  const std::size_t count = std::min(trials.size(), kSampledTrials);
  std::vector<TrialRecord> sample;
  sample.reserve(count);
  for (std::size_t i = 0; i < count; ++i)
    sample.push_back(trials[i * trials.size() / count]);
  return sample;
}

Eigen::Index holding_days(const Evaluator& evaluator) {
  return evaluator.close().rows() - 1;
}

// The graph of each, as it is stored. In a worker the store is out of reach.
std::vector<std::string> graphs_of(RunStore& store, const std::vector<TrialRecord>& trials) {
  std::vector<std::string> graphs;
  graphs.reserve(trials.size());
  for (const TrialRecord& trial : trials) {
    if (auto found = store.find_evaluation(trial.eval_id))
      graphs.push_back(std::move(found->evaluation.graph_json));
  }
  return graphs;
}

// The bytes of the daily PnL; none for a trial that cannot be evaluated any more.
std::string pnl_of(const std::string& graph_json, const Evaluator& evaluator) {
  try {
    return number_bytes(evaluator.evaluate(read_json(graph_json)).backtest.net_returns);
  } catch (const genetic::ValueError&) {
    // Its text is damaged, or it is of an earlier run that had other columns or limits.
    return {};
  }
}

// A column for each trial of the sample that could be evaluated, in their order.
ArrayXXd sampled_pnl(RunStore& store, const std::vector<TrialRecord>& trials,
                     const Evaluator& evaluator, ReportWorkers& workers) {
  const std::vector<std::string> graphs = graphs_of(store, sample_of(trials));
  ArrayXXd returns(holding_days(evaluator), static_cast<Eigen::Index>(graphs.size()));
  Eigen::Index columns = 0;
  const auto take = [&](std::size_t /*index*/, const std::string& pnl) {
    if (!pnl.empty()) returns.col(columns++) = numbers_from(pnl);
  };
  workers.run(
      graphs.size(), [&](const WorkItem& item) { return pnl_of(graphs[item.index], evaluator); },
      take);
  return returns.leftCols(columns);
}

std::vector<double> drawn_sharpes(const std::vector<TrialRecord>& trials, double year) {
  std::vector<double> sharpes;
  for (const TrialRecord& trial : trials) {
    if (trial.is_fresh && trial.gross_sharpe) sharpes.push_back(*trial.gross_sharpe / year);
  }
  return sharpes;
}

Value optional_number(const std::optional<double>& number) {
  return number ? Value(*number) : Value();
}

std::string record_of(const RunLuck& luck, double year) {
  const bool has_best = luck.best.has_value();
  const auto of_best = [has_best](double figure) { return has_best ? Value(figure) : Value(); };
  return genetic::json_text(
      Mapping{{"trials", luck.spread.trials},
              {"independent_trials", luck.spread.independent},
              {"drawn_sharpe_median", year * luck.drawn.mean},
              {"drawn_sharpe_deviation", year * luck.drawn.deviation},
              {"sampled_trials", luck.sampled_trials},
              {"expected_maximum_sharpe", luck.expected_maximum_sharpe},
              {"overfitting_probability", optional_number(luck.overfitting_probability)},
              {"best_eval_id", has_best ? Value(luck.best->eval_id) : Value()},
              {"best_sharpe", of_best(has_best ? luck.best->in_sample_sharpe : 0.0)},
              {"best_holdout_sharpe", of_best(has_best ? luck.best->holdout_sharpe : 0.0)},
              {"deflated_sharpe", of_best(luck.deflated_sharpe)},
              {"confidence", of_best(luck.confidence)},
              {"better_than_luck", luck.better_than_luck},
              {"signals", luck.signals},
              {"mean_in_sample_sharpe", luck.mean_in_sample_sharpe},
              {"mean_holdout_sharpe", luck.mean_holdout_sharpe},
              {"sample_correlation", optional_number(luck.sample_correlation)}});
}

}  // namespace

std::int64_t sides_judged(const Evaluator& evaluator) {
  return evaluator.options().judges_both_signs ? 2 : 1;
}

RunLuck measure_luck(RunStore& store, std::int64_t run, const Evaluator& evaluator,
                     const std::vector<SubmittedSignal>& signals, ReportWorkers& workers) {
  const double year = std::sqrt(evaluator.options().book.periods_per_year);
  const std::vector<TrialRecord> trials = store.trials(run);
  const ArrayXXd sample = sampled_pnl(store, trials, evaluator, workers);
  RunLuck luck;
  luck.spread = spread_without_skill(holding_days(evaluator));
  luck.drawn = spread_of_drawn(drawn_sharpes(trials, year));
  luck.spread.trials = luck.drawn.trials = static_cast<std::int64_t>(trials.size());
  luck.spread.independent = luck.drawn.independent =
      independent_trials(sample, sides_judged(evaluator) * luck.spread.trials);
  luck.sampled_trials = sample.cols();
  luck.overfitting_probability = overfitting_probability(sample);
  const double expected = expected_maximum_sharpe(luck.spread);
  luck.expected_maximum_sharpe = year * expected;

  std::vector<JudgedSignal> judgements;
  std::map<std::string, double> deflated;
  for (const SubmittedSignal& signal : signals) {
    if (!signal.has_holdout) continue;
    const double z = signal.in_sample_estimate.z_value(expected);
    judgements.push_back({signal.eval_id, signal.statistics.in_sample.sharpe,
                          signal.statistics.holdout.sharpe, z,
                          signal.holdout_estimate.z_value(0.0)});
    deflated.emplace(signal.eval_id, normal_share(z));
  }
  luck = judged(std::move(luck), judgements);
  store.record_luck(run, record_of(luck, year), deflated);
  return luck;
}

}  // namespace varnholt::embedded
